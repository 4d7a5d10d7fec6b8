#include "cli/hitlines.h"

#include <cstdio>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/threads.h"
#include "engine/files/files.h"

namespace brindlex::cli {
namespace {

constexpr std::size_t kText = 1 << 16;
constexpr std::size_t kPrefix = 64;   // names up to this long go in as one copy of fixed length

bool stdoutisnull()
{
    struct stat out {}, null {};
    return ::fstat(STDOUT_FILENO, &out) == 0 && S_ISCHR(out.st_mode) && ::stat("/dev/null", &null) == 0
           && S_ISCHR(null.st_mode) && out.st_rdev == null.st_rdev;
}

}  // namespace

HitLines::HitLines(bool threaded, std::function<void()> beforewrite)
    : discard_(stdoutisnull()), threaded_(threaded && usablecores() > 1), beforewrite_(std::move(beforewrite)),
      text_(std::make_unique_for_overwrite<char[]>(kText))
{
}

HitLines::~HitLines()
{
    flush();
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            stopping_ = true;
        }
        changed_.notify_all();
        thread_.join();
    }
}

void HitLines::put(const std::string& sName, const std::int64_t* lPos, std::size_t count)
{
    if (discard_)
        return;
    if (!threaded_) {
        print(sName, lPos, count);
        return;
    }
    while (count != 0) {
        const std::size_t n = std::min(count, kChunk - filling_.pos.size());
        if (filling_.names.empty() || filling_.names.back().first != sName)
            filling_.names.emplace_back(sName, 0);
        filling_.names.back().second += n;
        filling_.pos.insert(filling_.pos.end(), lPos, lPos + n);
        lPos += n;
        count -= n;
        if (filling_.pos.size() == kChunk)
            submit();
    }
}

void HitLines::flush()
{
    if (!thread_.joinable()) {
        // Few hits so far, or no thread: the lines are made here.
        print(filling_);
        filling_.pos.clear();
        filling_.names.clear();
        write();
        return;
    }
    if (!filling_.pos.empty())
        submit();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return queue_.empty() && !printing_; });
}

void HitLines::submit()
{
    Chunk next;
    {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return queue_.size() < kQueued; });
        queue_.push_back(std::move(filling_));
        if (!spare_.empty()) {
            next = std::move(spare_.back());
            spare_.pop_back();
        }
    }
    changed_.notify_all();
    filling_ = std::move(next);
    filling_.pos.clear();
    filling_.names.clear();
    filling_.pos.reserve(kChunk);
    if (!thread_.joinable()) {
        std::vector<std::thread> started = startworkers(1, [this] { work(); });
        if (!started.empty()) {
            thread_ = std::move(started.front());
            return;
        }
        // No thread to be had: the lines are made here after all.
        std::deque<Chunk> waiting;
        {
            const std::lock_guard lock(mutex_);
            waiting.swap(queue_);
        }
        for (const Chunk& chunk : waiting)
            print(chunk);
    }
}

void HitLines::work()
{
    std::unique_lock lock(mutex_);
    for (;;) {
        changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
        if (queue_.empty())
            return;
        Chunk chunk = std::move(queue_.front());
        queue_.pop_front();
        printing_ = true;
        lock.unlock();
        changed_.notify_all();   // room in the queue
        print(chunk);
        write();
        chunk.pos.clear();
        chunk.names.clear();
        lock.lock();
        spare_.push_back(std::move(chunk));
        printing_ = false;
        changed_.notify_all();
    }
}

void HitLines::print(const Chunk& chunk)
{
    std::size_t at = 0;
    for (const auto& [sName, count] : chunk.names) {
        print(sName, chunk.pos.data() + at, count);
        at += count;
    }
}

void HitLines::print(const std::string& sName, const std::int64_t* lPos, std::size_t count)
{
    char prefix[kPrefix] = {};
    const bool shortname = sName.size() <= kPrefix;
    if (shortname)
        std::memcpy(prefix, sName.data(), sName.size());
    for (std::size_t k = 0; k < count; ++k) {
        if (kText - used_ < kPrefix + kList2Tail + 1)
            write();
        char* at = text_.get() + used_;
        if (shortname) {
            std::memcpy(at, prefix, kPrefix);
            at += sName.size();
        } else {
            // A long name goes straight out.
            write();
            out(sName.data(), sName.size());
            at = text_.get();
        }
        char* const tail = at;
        at = putlist2tail(at, lPos[k]);
        *tail = separator;
        *at++ = '\n';
        used_ = static_cast<std::size_t>(at - text_.get());
    }
}

void HitLines::write()
{
    if (used_ != 0)
        out(text_.get(), used_);
    used_ = 0;
}

void HitLines::out(const char* bytes, std::size_t size)
{
    if (beforewrite_ && !threaded_)
        beforewrite_();
    fwrite_unlocked(bytes, 1, size, stdout);
}

}  // namespace brindlex::cli
