#include "engine/batch/readahead.h"

#include <algorithm>
#include <csignal>
#include <system_error>

#include <pthread.h>

#include "engine/batch/scanner.h"
#include "engine/core/openbinary.h"

namespace brindlex {
namespace {

// A worker's scan yields to this: a stopping run cancels it at its next
// window.
class WorkerHost : public Host {
public:
    explicit WorkerHost(const std::atomic<bool>& stopping) : stopping_(stopping) {}
    void yield() override
    {
        if (stopping_.load(std::memory_order_relaxed))
            bCancel = true;
    }

private:
    const std::atomic<bool>& stopping_;
};

}  // namespace

bool ReadAhead::fits(std::size_t nFindLen, bool bAskAtHits, bool bLogHits, std::size_t files)
{
    return nFindLen > 0 && nFindLen <= Scanner::kLeftmostFound && !bAskAtHits && !bLogHits && files > 1 &&
           std::thread::hardware_concurrency() > 1;
}

ReadAhead::ReadAhead(std::vector<std::string> files, const PatternSearch& search, bool bReplace)
    : files_(std::move(files)), search_(search), bReplace_(bReplace), slots_(kAhead)
{
    // The run's own thread scans too, whenever it is ahead of the workers.
    const auto threads = std::min<std::size_t>(std::thread::hardware_concurrency() - 1, files_.size());
    // SIGINT is the run's Cancel: it goes to the thread that yields to the
    // host, never interrupts a worker.
    sigset_t block, old;
    sigemptyset(&block);
    sigaddset(&block, SIGINT);
    pthread_sigmask(SIG_BLOCK, &block, &old);
    try {
        for (std::size_t t = 0; t < threads; ++t)
            workers_.emplace_back([this] { work(); });
    } catch (const std::system_error&) {
        // Fewer workers, or none: the run scans what no worker takes up.
    }
    pthread_sigmask(SIG_SETMASK, &old, nullptr);
}

ReadAhead::~ReadAhead()
{
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    room_.notify_all();
    for (std::thread& worker : workers_)
        worker.join();
}

ReadAhead::Outcome ReadAhead::take(std::size_t index)
{
    std::unique_lock lock(mutex_);
    if (index >= claimed_) {
        // No worker has come this far: the run scans the file itself
        // rather than wait.
        claimed_ = index + 1;
        taken_ = index + 1;
        lock.unlock();
        room_.notify_one();
        return {};
    }
    Slot& slot = slots_[index % kAhead];
    ++waiting_;
    ready_.wait(lock, [&] { return slot.ready; });
    --waiting_;
    Outcome outcome = std::move(slot.outcome);
    slot = Slot {};
    // Only now may a worker fill the slot again.
    taken_ = index + 1;
    lock.unlock();
    room_.notify_one();
    return outcome;
}

void ReadAhead::work()
{
    for (;;) {
        std::size_t index = 0;
        {
            std::unique_lock lock(mutex_);
            room_.wait(lock, [&] { return stopping_ || claimed_ >= files_.size() || claimed_ < taken_ + kAhead; });
            if (stopping_ || claimed_ >= files_.size())
                return;
            index = claimed_++;
        }
        Outcome outcome = scan(files_[index]);
        std::unique_lock lock(mutex_);
        Slot& slot = slots_[index % kAhead];
        slot.outcome = std::move(outcome);
        slot.ready = true;
        // Only the run ever waits for an outcome, and mostly it doesn't.
        const bool wake = waiting_ != 0;
        lock.unlock();
        if (wake)
            ready_.notify_one();
    }
}

ReadAhead::Outcome ReadAhead::scan(const std::string& sFile) const
{
    Outcome outcome;
    OpenedFile file;
    if (openbinary(sFile, file) || file.size() > kAheadBytes)
        return outcome;
    outcome.st = file.st;
    WorkerHost host(stopping_);
    Scanner scanner(file.fd.get(), file.size(), search_, nullptr, host);
    std::int64_t batch[256];
    std::int64_t s = 1;
    while (s != 0) {
        const std::size_t count = scanner.collect(s, nullptr, batch, std::size(batch));
        if ((bReplace_ && count != 0) || outcome.lPos.size() + count > kAheadHits)
            return outcome;
        outcome.lPos.insert(outcome.lPos.end(), batch, batch + count);
    }
    outcome.done = !scanner.readfailed() && !host.bCancel;
    return outcome;
}

std::int64_t tellhits(Host& host, const std::string& sName, const std::vector<std::int64_t>& lPos)
{
    constexpr std::size_t kBatch = 4096;
    std::int64_t nHits = 0;
    for (std::size_t at = 0; at < lPos.size(); at += kBatch) {
        const std::size_t count = std::min(kBatch, lPos.size() - at);
        nHits += static_cast<std::int64_t>(host.hits(sName, lPos.data() + at, count, nHits));
        if (host.bCancel)
            return nHits;
    }
    host.hitcount(nHits);
    host.yield();
    return nHits;
}

}  // namespace brindlex
