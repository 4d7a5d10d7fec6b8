// The hit lines of a run on stdout: the real name, a tab (or -0's NUL) and
// the position of nine digits or more, a line each. A run with millions of
// hits prints millions of lines, and their digits cost a sixth of a CR to
// CR LF replace: where stdout is no terminal they are made on a thread of
// their own once there are many, so that the scan does not wait for them.
// Either way the lines reach stdout in the order given, all of them before
// flush() returns. When stdout is /dev/null no line is made at all: a
// script that only wants the files changed sends the lines there.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace brindlex::cli {

class HitLines {
public:
    // With `threaded` the lines may be made and written on a thread of
    // their own; without, `beforewrite` runs before each write to stdout
    // (the progress line on the same terminal is erased there).
    HitLines(bool threaded, std::function<void()> beforewrite);
    ~HitLines();
    HitLines(const HitLines&) = delete;
    HitLines& operator=(const HitLines&) = delete;

    void put(const std::string& sName, const std::int64_t* lPos, std::size_t count);
    // Every line put so far is in stdout's buffer.
    void flush();

    char separator = '\t';   // between a hit's name and position

private:
    // Hits waiting for their lines: positions, and the names they belong
    // to, each with the count of the positions that follow in turn.
    struct Chunk {
        std::vector<std::int64_t> pos;
        std::vector<std::pair<std::string, std::size_t>> names;
    };
    static constexpr std::size_t kChunk = 1 << 14;   // positions a chunk gathers
    static constexpr std::size_t kQueued = 4;        // chunks waiting at most

    void print(const Chunk& chunk);
    void print(const std::string& sName, const std::int64_t* lPos, std::size_t count);
    void write();   // the lines made so far
    void out(const char* bytes, std::size_t size);
    void submit();
    void work();

    const bool discard_;   // stdout is /dev/null
    const bool threaded_;
    const std::function<void()> beforewrite_;
    std::unique_ptr<char[]> text_;   // lines not yet in stdout's buffer
    std::size_t used_ = 0;
    Chunk filling_;

    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Chunk> queue_;        // in order; the thread prints the front
    std::vector<Chunk> spare_;
    bool printing_ = false;          // the thread has a chunk in hand
    bool stopping_ = false;
    std::thread thread_;             // started with the first full chunk
};

}  // namespace brindlex::cli
