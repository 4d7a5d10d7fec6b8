// Reading ahead over the files of a run: worker threads open and scan the
// files that the run will come to, while the run itself still takes every
// file in List1 order and tells the sink everything as before. A worker
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
//
// Files are handed over without a lock: a thread claims the next file with
// a compare-and-swap and publishes its outcome with a flag, and a thread
// sleeps only when there is truly nothing to do. The run, finding the file
// it comes to still in a worker's hands, scans the next unclaimed one
// itself instead of waiting, so two cores stay busy even when every file
// takes only microseconds.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "engine/core/runsink.h"

namespace brindlex {

class BelowOpener;
class PatternSearch;

class ReadAhead {
public:
    // What a worker found in one file.
    struct Outcome {
        bool done = false;               // false: the run scans the file itself
        std::vector<std::int64_t> lPos;  // the hits, when done
        struct stat st {};               // of the file as the worker opened it
    };

    // Outcomes waiting at most: enough for the workers to go on scanning
    // while the run rewrites a stretch of files with hits (at 64 a worker
    // of a replace over a tree slept up to 120 ms of a 300 ms run).
    static constexpr std::size_t kAhead = 256;
    static constexpr std::size_t kAheadHits = 4096;     // hits a done file may have
    static constexpr std::int64_t kAheadBytes = 16 << 20;   // bigger files: the run's

    // Whether reading ahead can serve a run: a pattern whose hits are its
    // leftmost occurrences, no question and no log line at a hit, and more
    // than one file on a machine with more than one core.
    static bool fits(std::size_t nFindLen, bool bAskAtHits, bool bLogHits, std::size_t files);

    // Starts the workers over `files` (full paths in the order the run
    // takes them). `search` must outlive this object. In a replace the
    // restart is behind the matched bytes and a file with hits is the run's.
    // `bSeenRegular` as for openbinary. With `below`, `files` are names
    // that it opens (it must outlive this object).
    ReadAhead(std::vector<std::string> files, const PatternSearch& search, bool bReplace, bool bSeenRegular = false,
              const BelowOpener* below = nullptr);
    // Stops the workers at their next file or window and waits for them.
    ~ReadAhead();
    ReadAhead(const ReadAhead&) = delete;
    ReadAhead& operator=(const ReadAhead&) = delete;

    // The outcome for files[index]; indexes are taken once each, in order.
    // A file no worker has taken up yet is left to the run at once.
    Outcome take(std::size_t index);

private:
    struct Slot {
        std::atomic<bool> ready {false};   // the outcome is in; the run clears it
        Outcome outcome;
    };
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);
    static constexpr std::size_t kWakeEvery = kAhead / 4;
    static constexpr std::size_t kFull = kNone - 1;
    void work();
    // The next file to scan ahead: its index, kNone when every file is
    // claimed, kFull while kAhead outcomes wait for the run.
    std::size_t claim();
    void publish(std::size_t index);
    Outcome scan(const std::string& sFile) const;

    const std::vector<std::string> files_;
    const PatternSearch& search_;
    const bool bReplace_;
    const bool bSeenRegular_;
    const BelowOpener* below_;
    std::unique_ptr<Slot[]> slots_;         // files[i] in slots_[i % kAhead]
    std::atomic<std::size_t> claimed_ {0};  // the next file to take up
    std::atomic<std::size_t> taken_ {0};    // the next file the run takes
    std::atomic<bool> runWaits_ {false};    // the run sleeps on a slot
    std::atomic<int> workersWait_ {0};      // workers sleep on taken_
    std::atomic<bool> stopping_ {false};
    std::vector<std::thread> workers_;
};

// Hands the hits of one file found by a worker to the sink as the file loop
// does: in batches with a carryon() behind each, then scanned() and a last
// carryon(). Returns the hits the sink took; `stopped` comes up when the
// sink asked to stop.
std::int64_t tellhits(RunSink& sink, const std::string& sName, const std::vector<std::int64_t>& lPos, bool& stopped);

}  // namespace brindlex
