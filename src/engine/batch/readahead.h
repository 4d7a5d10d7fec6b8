// Reading ahead over the files of a run: worker threads open and scan the
// files that the run will come to, while the run itself still takes every
// file in List1 order and tells the host everything as before. A worker
// only ever reads: a file whose hits it can hand over whole (a find with a
// bounded number of hits, a replace without any) is done; anything else (a
// replace with hits, a file that can't be opened or read, a big file, very
// many hits, a file the run comes to before any worker) is left to the
// run, which scans it as if nobody had looked.
//
// Example: files a, b, c with hits in b only. In a find the workers report
// a: none, b: 7 and 19, c: none, and the run lists b's hits when it comes
// to b. In a replace, b is handed back and the run rewrites it itself.
//
// Memory is bounded: at most kAhead outcomes wait, each with at most
// kAheadHits positions, and a worker reads one window at a time.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "engine/batch/host.h"

namespace brindlex {

class PatternSearch;

class ReadAhead {
public:
    // What a worker found in one file.
    struct Outcome {
        bool done = false;               // false: the run scans the file itself
        std::vector<std::int64_t> lPos;  // the hits, when done
        struct stat st {};               // of the file as the worker opened it
    };

    static constexpr std::size_t kAhead = 64;           // outcomes waiting at most
    static constexpr std::size_t kAheadHits = 4096;     // hits a done file may have
    static constexpr std::int64_t kAheadBytes = 16 << 20;   // bigger files: the run's

    // Whether reading ahead can serve a run: a pattern whose hits are its
    // leftmost occurrences, no question and no log line at a hit, and more
    // than one file on a machine with more than one core.
    static bool fits(std::size_t nFindLen, bool bAskAtHits, bool bLogHits, std::size_t files);

    // Starts the workers over `files` (full paths in the order the run
    // takes them). `search` must outlive this object. In a replace the
    // restart is behind the matched bytes and a file with hits is the run's.
    ReadAhead(std::vector<std::string> files, const PatternSearch& search, bool bReplace);
    // Stops the workers at their next file or window and waits for them.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The outcome for files[index]; indexes are taken once each, in order.
    // A file no worker has taken up yet is left to the run at once.
    Outcome take(std::size_t index);

private:
    struct Slot {
        bool ready = false;
        Outcome outcome;
    };
    void work();
    Outcome scan(const std::string& sFile) const;

    const std::vector<std::string> files_;
    const PatternSearch& search_;
    const bool bReplace_;
    std::mutex mutex_;
    std::condition_variable ready_;   // an outcome came
    std::condition_variable room_;    // the run took one: a worker may go on
    std::vector<Slot> slots_;      // files[i] in slots_[i % kAhead]
    std::size_t claimed_ = 0;      // the next file a worker takes up
    std::size_t taken_ = 0;        // the next file the run takes
    int waiting_ = 0;              // the run waits for an outcome
    std::atomic<bool> stopping_ {false};
    std::vector<std::thread> workers_;
};

// Hands the hits of one file found by a worker to the host as the file loop
// does: in batches, then the file's count and a yield unless cancelled.
// Returns the hits the host took.
std::int64_t tellhits(Host& host, const std::string& sName, const std::vector<std::int64_t>& lPos);

}  // namespace brindlex
