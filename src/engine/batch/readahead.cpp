#include "engine/batch/readahead.h"

#include <algorithm>

#include "engine/batch/scanner.h"
#include "engine/core/openbinary.h"
#include "engine/core/threads.h"
#include "engine/files/openbelow.h"

namespace brindlex {
namespace {

// A worker's scan asks this: a stopping run cancels it at its next window.
class WorkerSink : public RunSink {
public:
    explicit WorkerSink(const std::atomic<bool>& stopping) : stopping_(stopping) {}
    bool carryon() override { return !stopping_.load(std::memory_order_relaxed); }

private:
    const std::atomic<bool>& stopping_;
};

}  // namespace

bool ReadAhead::fits(std::size_t nFindLen, bool bAskAtHits, bool bLogHits, std::size_t files)
{
    return nFindLen > 0 && nFindLen <= Scanner::kLeftmostFound && !bAskAtHits && !bLogHits && files > 1 &&
           usablecores() > 1;
}

ReadAhead::ReadAhead(std::vector<std::string> files, const PatternSearch& search, bool bReplace, bool bSeenRegular,
                     const BelowOpener* below)
    : files_(std::move(files)), search_(search), bReplace_(bReplace), bSeenRegular_(bSeenRegular), below_(below),
      slots_(std::make_unique<Slot[]>(kAhead))
{
    // The run's own thread scans too, whenever it is ahead of the workers,
    // and scans what no worker takes up.
    workers_ = startworkers(std::min<std::size_t>(usablecores() - 1, files_.size()), [this] { work(); });
}

ReadAhead::~ReadAhead()
{
    stopping_ = true;
    // A sleeping worker wakes to any change of taken_.
    taken_.fetch_add(1);
    taken_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

std::size_t ReadAhead::claim()
{
    std::size_t index = claimed_.load();
    for (;;) {
        if (index >= files_.size() || stopping_.load(std::memory_order_relaxed))
            return kNone;
        if (index >= taken_.load() + kAhead)
            return kFull;
        if (claimed_.compare_exchange_weak(index, index + 1))
            return index;
    }
}

void ReadAhead::publish(std::size_t index)
{
    Slot& slot = slots_[index % kAhead];
    slot.outcome = scan(files_[index]);
    slot.ready.store(true);
    // Only the run ever sleeps on a slot, and mostly it doesn't.
    if (runWaits_.load())
        slot.ready.notify_one();
}

ReadAhead::Outcome ReadAhead::take(std::size_t index)
{
    Slot& slot = slots_[index % kAhead];
    Outcome outcome;
    for (;;) {
        std::size_t next = index;
        // No worker has come this far: the run scans the file itself
        // rather than wait.
        if (claimed_.compare_exchange_strong(next, index + 1))
            break;
        if (slot.ready.load()) {
            outcome = std::move(slot.outcome);
            slot.outcome = Outcome {};
            slot.ready.store(false);
            break;
        }
        // The file is in a worker's hands: scan one further ahead meanwhile.
        if (const std::size_t ahead = claim(); ahead < kFull) {
            publish(ahead);
            continue;
        }
        runWaits_.store(true);
        slot.ready.wait(false);
        runWaits_.store(false);
    }
    // Only now may a worker fill the slot again. A worker that sleeps
    // because the run is slow (a replace rewrites) is woken once a few
    // slots are free, not at every file: the run never waits for a sleeping
    // worker, which has no file in hand.
    taken_.store(index + 1);
    if (workersWait_.load() != 0 && (index + 1) % kWakeEvery == 0)
        taken_.notify_all();
    return outcome;
}

void ReadAhead::work()
{
    for (;;) {
        const std::size_t index = claim();
        if (index == kNone)
            return;
        if (index != kFull) {
            publish(index);
            continue;
        }
        // kAhead outcomes wait: sleep until the run takes one.
        ++workersWait_;
        const std::size_t taken = taken_.load();
        if (!stopping_ && claimed_.load() >= taken + kAhead)
            taken_.wait(taken);
        --workersWait_;
    }
}

ReadAhead::Outcome ReadAhead::scan(const std::string& sFile) const
{
    Outcome outcome;
    OpenedFile file;
    if ((below_ ? below_->open(sFile, sFile, file, bSeenRegular_) : openbinary(sFile, file, bSeenRegular_))
        || file.size() > kAheadBytes)
        return outcome;
    outcome.st = file.st;
    WorkerSink sink(stopping_);
    Scanner scanner(file.fd.get(), file.size(), search_, nullptr, sink);
    std::int64_t batch[256];
    std::int64_t s = 1;
    while (s != 0) {
        const std::size_t count = scanner.collect(s, nullptr, batch, std::size(batch));
        if ((bReplace_ && count != 0) || outcome.lPos.size() + count > kAheadHits)
            return outcome;
        outcome.lPos.insert(outcome.lPos.end(), batch, batch + count);
    }
    outcome.done = !scanner.readfailed() && !scanner.stopped();
    return outcome;
}

std::int64_t tellhits(RunSink& sink, const std::string& sName, const std::vector<std::int64_t>& lPos, bool& stopped)
{
    constexpr std::size_t kBatch = 4096;
    std::int64_t nHits = 0;
    for (std::size_t at = 0; at < lPos.size(); at += kBatch) {
        const std::size_t count = std::min(kBatch, lPos.size() - at);
        const std::size_t taken = sink.hits(HitBatch{sName, lPos.data() + at, count, nHits});
        nHits += static_cast<std::int64_t>(taken);
        if (taken < count || !sink.carryon()) {
            stopped = true;
            return nHits;
        }
    }
    sink.scanned(nHits);
    stopped = !sink.carryon();
    return nHits;
}

}  // namespace brindlex
