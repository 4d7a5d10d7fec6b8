#include "engine/batch/scanner.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <immintrin.h>
#include <unistd.h>

#include "engine/batch/runlog.h"
#include "engine/core/holes.h"
#include "engine/core/state.h"
#include "engine/core/threads.h"
#include "engine/pattern/notation.h"

namespace brindlex {
namespace {

// The block of the scan: its size and how far it moves without a hit.
constexpr std::int64_t kBlock = 1000;
constexpr std::int64_t kStep = 800;

// The reads of a prefetching scan: small enough that the windows in flight
// stay in the processor's cache.
constexpr std::int64_t kPrefetchChunk = 512 << 10;
// A replace with a hit per this many bytes or closer reads for itself, or
// has an Expander make and write the rest.
constexpr std::int64_t kDenseSpan = 4096;

// The sink is asked carryon() at least this often while a long stretch of a
// file is scanned.
constexpr std::int64_t kYieldBytes = 1 << 20;

const std::array<unsigned char, 256>& foldtable()
{
    static const std::array<unsigned char, 256> table = [] {
        std::array<unsigned char, 256> t {};
        for (int c = 0; c < 256; ++c)
            t[c] = uppercasebyte(static_cast<unsigned char>(c));
        return t;
    }();
    return table;
}


}  // namespace

PatternSearch::PatternSearch(std::string_view pattern, bool bMatchCase)
    : pattern_(pattern), bMatchCase_(bMatchCase)
{
    if (pattern_.empty())
        return;
    if (bMatchCase_) {
        for (int c = 0; c < 256; ++c)
            fold_[c] = static_cast<unsigned char>(c);
    } else {
        fold_ = foldtable();
    }
    // The file bytes whose folded form is the pattern's byte `p`.
    auto preimage = [this](unsigned char p, unsigned char (&out)[2]) {
        int found = 0;
        for (int c = 0; c < 256; ++c) {
            if (fold_[c] != p)
                continue;
            if (found < 2)
                out[found] = static_cast<unsigned char>(c);
            ++found;
        }
        if (found == 1)
            out[1] = out[0];
        return found;
    };
    const auto front = static_cast<unsigned char>(pattern_.front());
    const auto back = static_cast<unsigned char>(pattern_.back());
    const int nFirst = preimage(front, first_);
    const int nLast = preimage(back, last_);
    // The vector filter holds two values per end; wider classes (which the
    // upper-casing table never has) take the plain loop.
    filterable_ = nFirst <= 2 && nLast <= 2;
    for (char c : pattern_) {
        if (std::find(fold_.begin(), fold_.end(), static_cast<unsigned char>(c)) == fold_.end())
            matchable_ = false;
    }
}

bool PatternSearch::overlaps() const
{
    // Occurrences d bytes apart overlap when the pattern's last n - d bytes
    // are its first n - d.
    const std::size_t n = pattern_.size();
    for (std::size_t d = 1; d < n; ++d) {
        if (pattern_.compare(0, n - d, pattern_, d, n - d) == 0)
            return true;
    }
    return false;
}

bool PatternSearch::matchesat(const unsigned char* p) const
{
    const std::size_t n = pattern_.size();
    const auto* pat = reinterpret_cast<const unsigned char*>(pattern_.data());
    if (bMatchCase_)
        return std::memcmp(p, pat, n) == 0;
    for (std::size_t j = 0; j < n; ++j) {
        if (fold_[p[j]] != pat[j])
            return false;
    }
    return true;
}

namespace {

using Lanes = signed char __attribute__((vector_size(32)));

}  // namespace

// Candidate filter: positions whose first and last byte may match, 32 at a
// time; each candidate is then compared in full. Written once in vector
// form; the compiler makes an AVX2 and a baseline copy and the loader picks
// the one this processor runs. `i` is where the caller's scalar tail goes on
// when nothing was found.
#if defined(__SANITIZE_THREAD__)
// The loader runs the resolver of a clone before the thread sanitizer is up.
#define BRINDLEX_CLONES
#else
#define BRINDLEX_CLONES __attribute__((target_clones("avx2", "default")))
#endif
BRINDLEX_CLONES std::size_t PatternSearch::filter(const unsigned char* data, std::size_t& i,
                                                  std::size_t last) const
{
    const std::size_t n = pattern_.size();
    // A scalar added to a vector goes to every lane.
    const Lanes f0 = Lanes{} + static_cast<signed char>(first_[0]), f1 = Lanes{} + static_cast<signed char>(first_[1]);
    const Lanes l0 = Lanes{} + static_cast<signed char>(last_[0]), l1 = Lanes{} + static_cast<signed char>(last_[1]);
    for (; i + 31 <= last; i += 32) {
        Lanes a, b;
        std::memcpy(&a, data + i, sizeof a);
        std::memcpy(&b, data + i + n - 1, sizeof b);
        const Lanes m = ((a == f0) | (a == f1)) & ((b == l0) | (b == l1));
        std::uint64_t w[4];
        std::memcpy(w, &m, sizeof w);
        if ((w[0] | w[1] | w[2] | w[3]) == 0)
            continue;
        for (std::size_t k = 0; k < 32; ++k) {
            if (m[k] != 0 && matchesat(data + i + k))
                return i + k;
        }
    }
    return npos;
}

namespace {

// The candidates of 32 places from `p`: a set lane where the first byte of
// the pattern may start and its last byte (`back` further) may end. One
// value per end (match case, or a byte without case) saves two compares.
template <bool Single>
__attribute__((target("avx2"), always_inline)) inline __m256i candidates(const unsigned char* p, std::size_t back,
                                                                          __m256i f0, __m256i f1, __m256i l0,
                                                                          __m256i l1)
{
    const __m256i a = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
    const __m256i b = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p + back));
    if constexpr (Single)
        return _mm256_and_si256(_mm256_cmpeq_epi8(a, f0), _mm256_cmpeq_epi8(b, l0));
    return _mm256_and_si256(_mm256_or_si256(_mm256_cmpeq_epi8(a, f0), _mm256_cmpeq_epi8(a, f1)),
                            _mm256_or_si256(_mm256_cmpeq_epi8(b, l0), _mm256_cmpeq_epi8(b, l1)));
}

// The candidates of 64 places as bits, the first place the lowest.
__attribute__((target("avx2"), always_inline)) inline std::uint64_t maskof(__m256i m0, __m256i m1)
{
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(m0))
           | std::uint64_t {static_cast<std::uint32_t>(_mm256_movemask_epi8(m1))} << 32;
}

}  // namespace

std::size_t PatternSearch::takecandidates(std::uint64_t bits, const unsigned char* data, std::size_t i,
                                          std::uint32_t* out) const
{
    std::size_t count = 0;
    for (; bits != 0; bits &= bits - 1) {
        const std::size_t at = i + static_cast<std::size_t>(__builtin_ctzll(bits));
        if (pattern_.size() == 1 || matchesat(data + at))
            out[count++] = static_cast<std::uint32_t>(at);
    }
    return count;
}

// findall with AVX2: the candidates of 64 places at a time, as a mask taken
// bit by bit when it has any. The loader's choice of clones can't pick this
// one, since the mask has no generic vector form; it is chosen at run time
// instead.
template <bool Single>
__attribute__((target("avx2"))) std::size_t PatternSearch::findallwide(const unsigned char* data, std::size_t last,
                                                                        std::size_t& i, std::uint32_t* out,
                                                                        std::size_t max) const
{
    const std::size_t back = pattern_.size() - 1;
    const __m256i f0 = _mm256_set1_epi8(static_cast<char>(first_[0]));
    const __m256i f1 = _mm256_set1_epi8(static_cast<char>(first_[1]));
    const __m256i l0 = _mm256_set1_epi8(static_cast<char>(last_[0]));
    const __m256i l1 = _mm256_set1_epi8(static_cast<char>(last_[1]));
    std::size_t count = 0;
    // Taken in when no bit is left: the place it gives lies past the count.
    constexpr std::uint64_t kTop = std::uint64_t {1} << 63;
    // The places of the candidates `bits` (up to 64) from `at`.
    auto take = [&](std::uint64_t bits, std::size_t at) {
        if (back != 0) {
            count += takecandidates(bits, data, at, out + count);
            return;
        }
        // One byte, as CR in a text: every candidate is a hit, and they are
        // dense enough for the call to cost. The first four places are
        // written whatever their number (the caller leaves room), as a loop
        // on a count that changes from one step to the next mispredicts.
        const auto n = static_cast<std::size_t>(__builtin_popcountll(bits));
        for (std::size_t k = 0; k < 4; ++k, bits &= bits - 1)
            out[count + k] = static_cast<std::uint32_t>(at + static_cast<std::size_t>(__builtin_ctzll(bits | kTop)));
        for (std::size_t k = 4; bits != 0; ++k, bits &= bits - 1)
            out[count + k] = static_cast<std::uint32_t>(at + static_cast<std::size_t>(__builtin_ctzll(bits)));
        count += n;
    };
    // Two steps at a time, with one test for both: with a first and a last
    // byte to match, most of a file has no candidate (one byte, as CR in a
    // text, may have several a step). Room for every place of a step
    // before it is taken.
    for (; back != 0 && i + 127 <= last && count + 128 <= max; i += 128) {
        const __m256i m0 = candidates<Single>(data + i, back, f0, f1, l0, l1);
        const __m256i m1 = candidates<Single>(data + i + 32, back, f0, f1, l0, l1);
        const __m256i m2 = candidates<Single>(data + i + 64, back, f0, f1, l0, l1);
        const __m256i m3 = candidates<Single>(data + i + 96, back, f0, f1, l0, l1);
        const __m256i any = _mm256_or_si256(_mm256_or_si256(m0, m1), _mm256_or_si256(m2, m3));
        if (_mm256_testz_si256(any, any)) [[likely]]
            continue;
        take(maskof(m0, m1), i);
        take(maskof(m2, m3), i + 64);
    }
    for (; i + 63 <= last && count + 64 <= max; i += 64) {
        const __m256i m0 = candidates<Single>(data + i, back, f0, f1, l0, l1);
        const __m256i m1 = candidates<Single>(data + i + 32, back, f0, f1, l0, l1);
        const __m256i any = _mm256_or_si256(m0, m1);
        if (!_mm256_testz_si256(any, any))
            take(maskof(m0, m1), i);
    }
    for (; i + 31 <= last && count + 32 <= max; i += 32) {
        const __m256i m = candidates<Single>(data + i, back, f0, f1, l0, l1);
        if (_mm256_testz_si256(m, m))
            continue;
        take(static_cast<std::uint32_t>(_mm256_movemask_epi8(m)), i);
    }
    return count;
}

std::size_t PatternSearch::findall(const unsigned char* data, std::size_t size, std::size_t& from,
                                   std::uint32_t* out, std::size_t max) const
{
    const std::size_t n = pattern_.size();
    if (n == 0 || !matchable_ || size < n || from > size - n) {
        from = size;
        return 0;
    }
    static const bool wide = __builtin_cpu_supports("avx2");
    const std::size_t last = size - n;
    std::size_t i = from;
    std::size_t count = 0;
    if (filterable_ && wide)
        count = first_[0] == first_[1] && last_[0] == last_[1] ? findallwide<true>(data, last, i, out, max)
                                                               : findallwide<false>(data, last, i, out, max);
    for (; i <= last && count < max; ++i) {
        i = find(data, size, i);
        if (i == npos)
            break;
        out[count++] = static_cast<std::uint32_t>(i);
    }
    from = i > last ? size : i;
    return count;
}

std::size_t PatternSearch::find(const unsigned char* data, std::size_t size, std::size_t from) const
{
    const std::size_t n = pattern_.size();
    if (n == 0 || !matchable_ || size < n || from > size - n)
        return npos;
    const std::size_t last = size - n;   // the last start that fits
    if (n == 1 && first_[0] == first_[1]) {
        const void* p = std::memchr(data + from, first_[0], last - from + 1);
        return p ? static_cast<std::size_t>(static_cast<const unsigned char*>(p) - data) : npos;
    }
    std::size_t i = from;
    if (filterable_) {
        const std::size_t found = filter(data, i, last);
        if (found != npos)
            return found;
    }
    for (; i <= last; ++i) {
        if (fold_[data[i]] == static_cast<unsigned char>(pattern_.front()) && matchesat(data + i))
            return i;
    }
    return npos;
}

void OutputBuffer::writeslow(std::string_view bytes)
{
    if (!ok())
        return;
    if (bytes.size() >= kDirectWrite) {
        if (flush() && !send(bytes)) {
            ok_ = false;
            room_ = 0;
        }
        return;
    }
    if (used_ + bytes.size() > kBuffer && !flush())
        return;
    if (!buf_) {
        buf_ = AlignedBuffer<char>(kBuffer);
        room_ = kBuffer - used_;
    }
    std::memcpy(buf_.get() + used_, bytes.data(), bytes.size());
    used_ += bytes.size();
    room_ -= bytes.size();
}

bool OutputBuffer::send(std::string_view bytes)
{
    sent_ += static_cast<std::int64_t>(bytes.size());
    return sink_->write(bytes);
}

bool OutputBuffer::flush()
{
    if (!ok())
        return false;
    if (used_ != 0) {
        ok_ = send(std::string_view(buf_.get(), used_));
        used_ = 0;
        room_ = ok_ && buf_ ? kBuffer : 0;
    }
    return ok_;
}

Scanner::Scanner(int fd, std::int64_t lLen, std::string_view sFind, bool bMatchCase, OutputBuffer* out, RunSink& sink,
                 std::int64_t windowBytes)
    : fd_(fd), lLen_(lLen), ownSearch_(sFind, bMatchCase), search_(ownSearch_), out_(out), sink_(sink),
      window_(std::clamp<std::int64_t>(windowBytes, 1024, kMaxWindow))
{
}

Scanner::Scanner(int fd, std::int64_t lLen, const PatternSearch& search, OutputBuffer* out, RunSink& sink,
                 std::int64_t windowBytes)
    : fd_(fd), lLen_(lLen), ownSearch_({}, true), search_(search), out_(out), sink_(sink),
      window_(std::clamp<std::int64_t>(windowBytes, 1024, kMaxWindow))
{
}

// Reads a long file ahead of the scan on threads of its own, window by
// window, each thread a window at a time in its own cache, and finds the
// occurrences in each as it comes, so that for the scan of the run only the
// hits are left. Window k holds the file's bytes [kC - pad, (k+1)C + look),
// C being the size of a read: the pad is the last bytes of window k - 1
// (at most kPad), copied in when the scan moves on, so that a block that
// starts in one read and ends in the next is whole in one window; `look` is
// the pattern's length - 1, so that each occurrence that starts in
// [kC, (k+1)C) is found in window k. The scan only ever moves on to the
// window after the one in hand.
//
// A find that takes only the occurrences needs no bytes at all: each thread
// then reads into a buffer of its own, used again and again, which stays in
// its cache; and the scan's windows have no bytes (data null).
class Scanner::Prefetch {
public:
    // `search` null: no occurrences are looked for. `bKeepBytes`: the scan
    // takes the bytes too.
    // `bScanIdle`: the scan writes no output; when it has little to do with
    // a window beyond taking its occurrences, it reads windows too.
    // `bHoles`: the file has holes, which are made rather than read.
    Prefetch(int fd, std::int64_t lLen, std::int64_t chunk, const PatternSearch* search, bool bKeepBytes,
             bool bScanIdle, bool bHoles)
        : fd_(fd), lLen_(lLen), chunk_(chunk), bHoles_(bHoles),
          look_(search ? std::min<std::int64_t>(static_cast<std::int64_t>(search->size()), kBlock) - 1 : 0),
          search_(search), bKeepBytes_(bKeepBytes || !search), bScanReads_(bScanIdle && search), held_(!bScanIdle)
    {
        for (Slot& slot : slots_) {
            if (bKeepBytes_)
                slot.data = AlignedBuffer<>(static_cast<std::size_t>(kPad + chunk + look_) + OutputBuffer::kOverread);
        }
        // A scan that reads counts as one of the readers. One that writes is
        // slower than any reader: one keeps ahead of it, and more would only
        // take turns with it on the cores.
        std::size_t readers = bScanIdle ? std::min<std::size_t>(usablecores(), kMaxReaders) : 1;
        if (bScanReads_) {
            if (!bKeepBytes_)
                own_ = AlignedBuffer<>(static_cast<std::size_t>(chunk_ + look_));
            readers = std::max<std::size_t>(readers - 1, 1);
        }
        readers_ = startworkers(readers, [this] { readall(); });
        // With no reader the scan reads for itself.
        if (readers_.empty())
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    ~Prefetch()
    {
        {
            std::lock_guard lock(mutex_);
            stop_ = true;
        }
        changed_.notify_all();
        for (std::thread& reader : readers_)
            reader.join();
    }
    Prefetch(const Prefetch&) = delete;
    Prefetch& operator=(const Prefetch&) = delete;

    std::int64_t chunk() const { return chunk_; }
    // Why next() failed: errno, or 0 when the file ended early.
    int error() const { return error_; }
    // Where window k begins in the file.
    std::int64_t start(std::int64_t k) const { return k * chunk_ - (bKeepBytes_ ? std::min(kPad, k * chunk_) : 0); }
    // The window the scan holds; -1 before the first.
    std::int64_t current() const { return cur_; }
    // The occurrences that start in [kC, (k+1)C) of window k in hand, as
    // offsets from kC, in order.
    const std::vector<std::uint32_t>& found() const { return slots_[cur_ % kSlots].found; }

    // Moves the scan to window cur_ + 1: its bytes and place in the file.
    // False when it could not be read whole.
    bool next(const unsigned char*& data, std::int64_t& wS, std::int64_t& wE)
    {
        const std::int64_t k = cur_ + 1;
        Slot& slot = slots_[k % kSlots];
        // Without bytes nothing of window k - 1 is needed any more: its
        // slot is free at once.
        if (!bKeepBytes_ && k > 0)
            leave(k - 1);
        // While window k is in a reader's hands, a scan that reads takes the
        // next unclaimed window rather than sleep: a sleep and a wake-up for
        // every window would cost more than the search.
        while (bScanReads_ && slot.state.load(std::memory_order_acquire) == kEmpty) {
            std::int64_t j = claimed_.load();
            if (j * chunk_ >= lLen_ || !left(j - kSlots))
                break;
            if (claimed_.compare_exchange_weak(j, j + 1))
                readwindow(j, bKeepBytes_ ? slots_[j % kSlots].data.get() + kPad : own_.get());
        }
        // A short spin spares a sleep and a wake-up when the window is due.
        for (int spin = 0; spin < kSpins && slot.state.load(std::memory_order_acquire) == kEmpty; ++spin)
            _mm_pause();
        if (slot.state.load(std::memory_order_acquire) == kEmpty) {
            std::unique_lock lock(mutex_);
            ++scanWaits_;
            changed_.wait(lock, [&] { return slot.state.load() != kEmpty; });
            --scanWaits_;
        }
        if (slot.state.load(std::memory_order_acquire) != kRead) {
            error_ = slot.error;
            return false;
        }
        const std::int64_t pad = k * chunk_ - start(k);
        if (k > 0 && bKeepBytes_) {
            const Slot& before = slots_[(k - 1) % kSlots];
            std::memcpy(slot.data.get() + kPad - pad, before.data.get() + kPad + chunk_ - pad,
                        static_cast<std::size_t>(pad));
            leave(k - 1);
        }
        cur_ = k;
        data = bKeepBytes_ ? slot.data.get() + kPad - pad : nullptr;
        wS = k * chunk_ - pad;
        wE = std::min((k + 1) * chunk_ + look_, lLen_);
        return true;
    }

    // The readers go on past window 0, which a scan that writes holds them
    // to until it knows that the rest is to be read ahead (a dense replace
    // reads for itself).
    void go()
    {
        if (held_.load()) {
            held_.store(false);
            wake();
        }
    }

    // More than a block and the longest pattern of a block.
    static constexpr std::int64_t kPad = 4096;

private:
    enum : int { kEmpty, kRead, kFailed };
    struct Slot {
        AlignedBuffer<> data;                    // kPad bytes of room, the read, kOverread spare
        std::vector<std::uint32_t> found;
        int error = 0;                           // of a failed read: errno, 0 for the file's early end
        std::atomic<int> state {kEmpty};         // kEmpty again once the scan has left it
    };
    // Windows read ahead of the scan: with bytes, 4 MiB.
    static constexpr std::int64_t kSlots = 8;
    // Beyond a few readers the copies from the page cache no longer speed up.
    static constexpr std::size_t kMaxReaders = 4;
    static constexpr int kSpins = 256;

    void wake()
    {
        { std::lock_guard lock(mutex_); }
        changed_.notify_all();
    }

    // The scan is done with window k: its slot may take window k + kSlots.
    void leave(std::int64_t k)
    {
        slots_[k % kSlots].state.store(kEmpty);
        scanLeft_.store(k);
        if (readerWaits_.load() != 0 && k >= wakeAt_.load())
            wake();
    }

    void readall()
    {
        AlignedBuffer<> own;
        if (!bKeepBytes_)
            own = AlignedBuffer<>(static_cast<std::size_t>(chunk_ + look_));
        for (;;) {
            const std::int64_t k = claimed_.fetch_add(1);
            if (k * chunk_ >= lLen_)
                return;
            if (!left(k - kSlots)) {
                // kSlots windows are read ahead of the scan: wait for it to
                // free half of them, not one, so that a reader ahead of the
                // scan is not woken for every window.
                const std::int64_t until = k - kSlots / 2;
                std::unique_lock lock(mutex_);
                ++readerWaits_;
                wakeAt_.store(std::min(wakeAt_.load(), until));
                changed_.wait(lock, [&] { return stop_ || left(until); });
                if (--readerWaits_ == 0)
                    wakeAt_.store(kNever);
            }
            if (k > 0 && held_.load()) {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [&] { return stop_ || !held_.load(); });
            }
            if (stop_.load())
                return;
            readwindow(k, bKeepBytes_ ? slots_[k % kSlots].data.get() + kPad : own.get());
        }
    }

    // Reads window k into `into`, finds its occurrences and hands it over.
    void readwindow(std::int64_t k, unsigned char* into)
    {
        Slot& slot = slots_[k % kSlots];
        const std::int64_t from = k * chunk_;
        const auto want = static_cast<std::size_t>(std::min(chunk_ + look_, lLen_ - from));
        const bool whole = preadwhole(fd_, bHoles_, into, want, from, slot.error);
        if (search_ && whole)
            findall(slot, into, want);
        slot.state.store(whole ? kRead : kFailed);
        if (scanWaits_.load() != 0)
            wake();
    }

    // Whether the scan has left window k (and its slot is free).
    bool left(std::int64_t k) const { return k < 0 || scanLeft_.load() >= k; }

    void findall(Slot& slot, const unsigned char* data, std::size_t size)
    {
        slot.found.clear();
        std::uint32_t batch[512];
        for (std::size_t from = 0; from < size;) {
            const std::size_t count = search_->findall(data, size, from, batch, std::size(batch));
            slot.found.insert(slot.found.end(), batch, batch + count);
        }
    }

    const int fd_;
    const std::int64_t lLen_;
    const std::int64_t chunk_;
    const bool bHoles_;
    const std::int64_t look_;
    const PatternSearch* const search_;
    const bool bKeepBytes_;
    const bool bScanReads_;
    AlignedBuffer<> own_;   // the scan's own reads, when they keep no bytes
    Slot slots_[kSlots];
    std::int64_t cur_ = -1;
    int error_ = 0;
    std::atomic<std::int64_t> scanLeft_ {-1};   // the windows up to here are left behind
    std::atomic<std::int64_t> claimed_ {0};     // the next window a reader takes up
    // Each side sleeps only when the other is behind, and is woken only then.
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<int> scanWaits_ {0};
    std::atomic<int> readerWaits_ {0};
    static constexpr std::int64_t kNever = INT64_MAX;
    std::atomic<std::int64_t> wakeAt_ {kNever};   // the window whose leaving wakes the readers
    std::atomic<bool> stop_ {false};   // set under mutex_, for the sleepers
    std::atomic<bool> held_;           // see go()
    std::vector<std::thread> readers_;
};

// The rest of a dense replace, from a place that no hit reaches over, made
// and written by one thread per core: each takes the next segment of the
// file, reads it, finds its hits, makes its new content and writes it by
// place, so that every byte stays on one core from its read to its write;
// the scan only hands the hits on. Segments need nothing of each other when
// the pattern can't overlap itself: every occurrence is a hit, and one that
// starts in the n - 1 bytes before a segment belongs to the segment before,
// which replaces it whole. The length of a segment's new content follows
// from its hits, so its place is known once the segments before it are
// searched: a thread that loses its core while it makes or writes a
// segment holds no other up (on a busy machine, writes in turn made each
// thread wait for the other a third of the time). A stop ends the writing
// (a stopped file is never replaced, whatever was written), and so does a
// failed read: no segment from it on is placed, so nothing is written at
// or past its place, the output is short, and the length check refuses it.
class Scanner::Expander {
public:
    static constexpr std::int64_t kSegment = kPrefetchChunk;

    // `at`: where the new content of `from0` goes in the output.
    Expander(int fd, std::int64_t lLen, std::int64_t from0, std::int64_t at, const PatternSearch& search,
             std::string_view sReplace, OutputBuffer& out, bool bHoles, std::size_t threads)
        : fd_(fd), lLen_(lLen), from0_(from0), segments_((lLen - from0 + kSegment - 1) / kSegment),
          search_(search), n_(static_cast<std::int64_t>(search.size())), out_(out), bHoles_(bHoles), next_(at)
    {
        rep_.set(sReplace);
        workers_ = startworkers(threads, [this] { work(); });
        if (workers_.empty())
            throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }
    ~Expander()
    {
        stop_.store(true);
        wake();
        for (std::thread& worker : workers_)
            worker.join();
    }
    Expander(const Expander&) = delete;
    Expander& operator=(const Expander&) = delete;

    std::int64_t segments() const { return segments_; }
    std::int64_t begin(std::int64_t j) const { return from0_ + j * kSegment; }
    std::int64_t end(std::int64_t j) const { return std::min(begin(j) + kSegment, lLen_); }

    // The hits of segment j as offsets from its start, once found; null when
    // it could not be read, `error` then being errno or 0 for the file's
    // early end. Until they are found, the scan makes the next segment whose
    // slot is free itself: a sleep and a wake-up for every segment would
    // cost more.
    const std::vector<std::uint32_t>* hits(std::int64_t j, int& error)
    {
        Slot& slot = slots_[j % kSlots];
        while (slot.state.load() == kEmpty) {
            std::int64_t c = claimed_.load();
            if (c >= segments_ || !free(c) || !claimed_.compare_exchange_weak(c, c + 1))
                break;
            make(c, slots_[c % kSlots], own_);
        }
        waitfor([&] { return slot.state.load() != kEmpty; });
        if (slot.state.load() == kFailed) {
            error = slot.error;
            return nullptr;
        }
        return &slot.hits;
    }
    // The scan has handed segment j's hits on.
    void leave(std::int64_t j)
    {
        slots_[j % kSlots].state.store(kEmpty);
        left_.store(j);
        wake();
    }
    // Waits until every segment is written, and has the output go on past
    // them, or fail with the first failed write (or read).
    void finish()
    {
        waitfor([&] { return written_.load() == segments_ || broken_.load(); });
        out_.resume(next_, broken_.load() ? EIO : writeError_.load());
    }

private:
    enum : int { kEmpty, kFound, kFailed };
    struct Slot {
        std::vector<std::uint32_t> hits;
        int error = 0;
        std::int64_t segment = -1;   // whose length is set, under mutex_
        std::int64_t length = 0;     // of its new content
        std::int64_t at = 0;         // its place in the output, once placed_ is past it
        std::atomic<int> state {kEmpty};
        std::atomic<std::int64_t> done {-1};   // the last segment written from here
    };
    // Segments in hand at once: 8 MiB of the file.
    static constexpr std::int64_t kSlots = 16;
    static constexpr int kSpins = 256;

    void wake()
    {
        if (waiters_.load() != 0) {
            { std::lock_guard lock(mutex_); }
            changed_.notify_all();
        }
    }
    template <typename Done>
    void waitfor(Done done)
    {
        for (int spin = 0; spin < kSpins && !done(); ++spin)
            _mm_pause();
        if (done())
            return;
        std::unique_lock lock(mutex_);
        ++waiters_;
        changed_.wait(lock, done);
        --waiters_;
    }

    // A thread's own buffers, which stay in its core's cache: the segment's
    // bytes (n - 1 before it and after it, kOverread spare) and its new content.
    struct Buffers {
        AlignedBuffer<> in;
        AlignedBuffer<char> out;
        std::size_t room = 0;
    };

    // The slot of segment j is free once its last segment is handed on and
    // written.
    bool free(std::int64_t j) const
    {
        return j < kSlots || (left_.load() >= j - kSlots && slots_[j % kSlots].done.load() == j - kSlots);
    }

    void work()
    {
        Buffers buffers;
        for (;;) {
            const std::int64_t j = claimed_.fetch_add(1);
            if (j >= segments_)
                return;
            waitfor([&] { return stop_.load() || free(j); });
            if (stop_.load())
                return;
            make(j, slots_[j % kSlots], buffers);
        }
    }

    // Segment j, its hits found, is `length` bytes long when made: it is
    // placed after the segments before it, and so are the ones after it
    // that waited for it. The caller wakes whoever waits for a place.
    void place(std::int64_t j, Slot& slot, std::int64_t length)
    {
        std::lock_guard lock(mutex_);
        slot.length = length;
        slot.segment = j;
        for (std::int64_t k = placed_.load(); k < segments_; ++k) {
            Slot& s = slots_[k % kSlots];
            if (s.segment != k)
                break;
            s.at = next_;
            next_ += s.length;
            placed_.store(k + 1);
        }
    }

    void make(std::int64_t j, Slot& slot, Buffers& buf)
    {
        const std::int64_t b = begin(j), e = end(j);
        const std::int64_t back = j == 0 ? 0 : n_ - 1;
        const std::int64_t from = b - back, to = std::min(e + n_ - 1, lLen_);
        if (!buf.in)
            buf.in = AlignedBuffer<>(static_cast<std::size_t>(kSegment + 2 * (n_ - 1)) + OutputBuffer::kOverread);
        unsigned char* const in = buf.in.get();
        if (!preadwhole(fd_, bHoles_, in, static_cast<std::size_t>(to - from), from, slot.error)) {
            broken_.store(true);
            slot.state.store(kFailed);
            wake();
            return;
        }
        // The hits, and how much of the segment a hit of the one before covers.
        const auto size = static_cast<std::size_t>(to - from);
        const auto own = static_cast<std::size_t>(e - b);
        const auto un = static_cast<std::size_t>(n_);
        const auto before = static_cast<std::size_t>(back);
        std::size_t skip = 0;
        slot.hits.clear();
        std::uint32_t batch[512];
        for (std::size_t at = 0; at < size;) {
            const std::size_t count = search_.findall(in, size, at, batch, std::size(batch));
            for (std::size_t k = 0; k < count; ++k) {
                if (batch[k] < before)
                    skip = batch[k] + un - before;
                else if (batch[k] - before < own)
                    slot.hits.push_back(static_cast<std::uint32_t>(batch[k] - before));
            }
        }
        // Hits never overlap: the new content runs from `skip` to the end of
        // the last hit or of the segment, each hit n bytes shorter and the
        // replacement longer.
        const std::size_t nRep = rep_.text.size();
        const std::size_t last = slot.hits.empty() ? own : std::max<std::size_t>(own, slot.hits.back() + un);
        const std::size_t length = last > skip ? last - skip - slot.hits.size() * un + slot.hits.size() * nRep : 0;
        place(j, slot, static_cast<std::int64_t>(length));
        slot.state.store(kFound);
        wake();   // for the scan, and for segments placed now

        const std::size_t need = own + slot.hits.size() * nRep + 2 * OutputBuffer::kOverread;
        if (buf.room < need) {
            // With room to spare: the hits of a segment vary, and each new
            // block's pages fault in again on first touch.
            buf.room = need + need / 4;
            buf.out = AlignedBuffer<char>(buf.room);
        }
        const char* const src = reinterpret_cast<const char*>(in + before);
        char* o = buf.out.get();
        std::size_t at = skip;
        for (const std::size_t p : slot.hits) {
            if (p - at <= OutputBuffer::kOverread && nRep <= 16) {
                o = puthit<16>(o, src, at, p, rep_);
            } else {
                std::memcpy(o, src + at, p - at);
                std::memcpy(o + (p - at), rep_.text.data(), nRep);
                o += p - at + nRep;
            }
            at = p + un;
        }
        if (at < own) {
            std::memcpy(o, src + at, own - at);
            o += own - at;
        }
        // A segment is written only at its place, and only once the ones
        // before it are placed: a failed read stops all after it.
        waitfor([&] { return stop_.load() || broken_.load() || placed_.load() > j; });
        if (stop_.load() || placed_.load() <= j)
            return;
        const auto made = static_cast<std::size_t>(o - buf.out.get());
        int error = made == length ? 0 : EIO;
        if (error == 0 && writeError_.load() == 0)
            error = out_.writeat(std::string_view(buf.out.get(), made), slot.at);
        int none = 0;
        if (error != 0)
            writeError_.compare_exchange_strong(none, error);
        slot.done.store(j);
        written_.fetch_add(1);
        wake();
    }

    const int fd_;
    const std::int64_t lLen_;
    const std::int64_t from0_;
    const std::int64_t segments_;
    const PatternSearch& search_;
    const std::int64_t n_;
    OutputBuffer& out_;
    const bool bHoles_;
    Replacement rep_;
    Slot slots_[kSlots];
    Buffers own_;                              // the scan's, for the segments it makes
    std::atomic<std::int64_t> claimed_ {0};   // the next segment a thread takes up
    std::atomic<std::int64_t> left_ {-1};     // the last segment the scan has handed on
    std::atomic<std::int64_t> placed_ {0};    // the segments whose place is known, in order
    std::int64_t next_;                        // the place of segment placed_, under mutex_
    std::atomic<std::int64_t> written_ {0};   // the segments written, in any order
    std::atomic<int> writeError_ {0};         // the first failed write's errno
    std::atomic<bool> broken_ {false};        // a read failed: nothing after it is placed
    std::atomic<bool> stop_ {false};
    std::mutex mutex_;
    std::condition_variable changed_;
    std::atomic<int> waiters_ {0};
    std::vector<std::thread> workers_;
};

// Each thread lends the window of one scan at a time to its scans of files
// that fit a default window: over a tree of small files, every file is then
// read into the same bytes, which stay in the core's cache, and no block is
// taken from the allocator and given back per file.
struct Scanner::Spare {
    AlignedBuffer<> buf;
    bool lent = false;
};

Scanner::~Scanner()
{
    expander_.reset();
    if (lent_)
        lent_->lent = false;
}

void Scanner::stop()
{
    stopped_ = true;
    expander_.reset();
}

void Scanner::failread(int code)
{
    readfailed_ = true;
    readErrno_ = code;
    wS_ = wE_ = 0;
}

// Whether the file has holes to pass over, asked once; a small file, read
// in a window or two, is not asked.
bool Scanner::sparse()
{
    if (holes_ < 0)
        holes_ = lLen_ > kPrefetchWindows * window_ && hasholes(fd_);
    return holes_ != 0;
}

bool Scanner::load(std::int64_t from0)
{
    // On one core a reader thread would only take turns with the scan.
    if (from0 == 0 && !prefetch_ && lLen_ > kPrefetchWindows * window_ && usablecores() > 1) {
        try {
            // The occurrences are looked for ahead only for collect().
            prefetch_ = std::make_unique<Prefetch>(fd_, lLen_, std::min(window_, kPrefetchChunk),
                                                   bulk_ ? &search_ : nullptr, out_ != nullptr || keepBytes_,
                                                   out_ == nullptr, sparse());
        } catch (const std::system_error&) {
            // No thread to spare: the scan reads for itself.
        }
    }
    if (prefetch_ && loadahead(from0))
        return !readfailed_;
    const std::int64_t want = std::min(window_, lLen_ - from0);
    if (!lent_ && !buf_) {
        // A small file gets a small buffer, left uninitialised: a run over
        // a tree of small files must not clear a whole window per file. The
        // output's copies of fixed length may read kOverread bytes past it.
        const auto need = static_cast<std::size_t>(std::min(window_, lLen_)) + OutputBuffer::kOverread;
        static thread_local Spare spare;
        if (!spare.lent && need <= kDefaultWindow + OutputBuffer::kOverread) {
            if (spare.buf.size() < need)
                spare.buf = AlignedBuffer<>(need);
            spare.lent = true;
            lent_ = &spare;
        } else {
            buf_ = AlignedBuffer<>(need);
        }
    }
    unsigned char* const into = lent_ ? lent_->buf.get() : buf_.get();
    win_ = into;
    if (int error = 0; !preadwhole(fd_, sparse(), into, static_cast<std::size_t>(want), from0, error)) {
        // The file shrank or can't be read: the scan ends here, and the
        // output, being short, can't pass the length check.
        failread(error);
        return false;
    }
    wS_ = from0;
    wE_ = from0 + want;
    sinceYield_ += want;
    return true;
}

// The window that holds [from0, from0 + kBlock) from the prefetching
// thread: always the one after the window in hand, as the scan goes on.
// False when the scan asks for another (it went back), or when a replace
// has proved dense: the prefetching ends and the scan reads for itself from
// here, unless an Expander takes the rest.
bool Scanner::loadahead(std::int64_t from0)
{
    const std::int64_t chunk = prefetch_->chunk();
    const std::int64_t k = std::min((from0 + kBlock) / chunk, (lLen_ - 1) / chunk);
    if (dense_ || k != prefetch_->current() + 1 || from0 < prefetch_->start(k)) {
        prefetch_.reset();
        return false;
    }
    const std::int64_t before = wE_;
    if (!prefetch_->next(win_, wS_, wE_)) {
        failread(prefetch_->error());
        return true;
    }
    foundAt_ = 0;
    sinceYield_ += wE_ - std::max(before, wS_);
    // A replace with a hit every few KiB copies every span between hits: on
    // the core that read the bytes, whose caches still hold them, that costs
    // less than taking them over from a reader's core (CR -> CR LF over 512
    // MiB: 0.34 s of processor time against 0.60 s). An Expander keeps each
    // segment on one core and shares them out among the cores.
    dense_ = out_ && replacing_ && prefetch_->found().size() >= static_cast<std::size_t>(chunk / kDenseSpan);
    if (!dense_)
        prefetch_->go();
    return true;
}

bool Scanner::yieldcheck()
{
    if (sinceYield_ >= kYieldBytes) {
        sinceYield_ = 0;
        sink_.progress(wE_, lLen_);
        return carryon();
    }
    return !stopped_;
}

inline void Scanner::emitrange(std::int64_t from0, std::int64_t to0)
{
    // The bytes between two hits in the window: the run of a replace.
    if (from0 >= wS_) [[likely]] {
        if (to0 > from0) {
            out_->writeover(reinterpret_cast<const char*>(win_ + (from0 - wS_)), static_cast<std::size_t>(to0 - from0));
            outPos_ = to0;
        }
        return;
    }
    emitbehind(from0, to0);
}

void Scanner::emitbehind(std::int64_t from0, std::int64_t to0)
{
    // What lies behind the window (the start of a file whose output began
    // at its first hit) is read again in pieces.
    AlignedBuffer<> piece;
    while (from0 < std::min(to0, wS_)) {
        const std::int64_t want = std::min(window_, std::min(to0, wS_) - from0);
        if (piece.size() < static_cast<std::size_t>(want))
            piece = AlignedBuffer<>(static_cast<std::size_t>(want));
        const ssize_t r = preadholes(fd_, sparse(), piece.data(), static_cast<std::size_t>(want), from0);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0) {
            readfailed_ = true;
            readErrno_ = r < 0 ? errno : 0;
            return;
        }
        out_->write(std::string_view(reinterpret_cast<const char*>(piece.data()), static_cast<std::size_t>(r)));
        from0 += r;
        outPos_ = from0;
    }
    if (to0 <= from0)
        return;
    out_->write(std::string_view(reinterpret_cast<const char*>(win_ + (from0 - wS_)),
                                 static_cast<std::size_t>(to0 - from0)));
    outPos_ = to0;
}

bool Scanner::next(std::int64_t s, ScanHit& hit)
{
    const auto n = static_cast<std::int64_t>(search_.size());
    if (n == 0 || n > kBlock)
        return false;
    std::int64_t pos = s - 1;   // 0-based: the next place an occurrence may start
    for (;;) {
        if (pos + n > lLen_)
            return false;
        if (pos < wS_ || pos + n > wE_) {
            if (emitting_ && outPos_ < pos)
                emitrange(outPos_, pos);
            if (!yieldcheck() || !load(pos))
                return false;
        }
        const std::size_t p = search_.find(win_, static_cast<std::size_t>(wE_ - wS_),
                                           static_cast<std::size_t>(pos - wS_));
        if (p == PatternSearch::npos) {
            if (wE_ >= lLen_)
                return false;
            pos = wE_ - n + 1;
            continue;
        }
        // The occurrence at lHit is seen by the first block that reaches its
        // end, and only if that block starts at or before it.
        const std::int64_t lHit = wS_ + static_cast<std::int64_t>(p) + 1;
        const std::int64_t over = lHit + n - 1 - (s + kBlock - 1);
        const std::int64_t lBlock = s + (over > 0 ? (over + kStep - 1) / kStep : 0) * kStep;
        if (lBlock > lHit) {
            pos = lHit;   // 0-based lHit - 1, plus one
            continue;
        }
        const std::int64_t b0 = lBlock - 1;
        const std::int64_t end0 = std::min(b0 + kBlock, lLen_);
        if (b0 < wS_ || end0 > wE_) {
            if (emitting_ && outPos_ < b0)
                emitrange(outPos_, b0);
            if (!load(b0))
                return false;
        }
        hit.lPos = lHit;
        hit.lBlock = lBlock;
        hit.sBuf = std::string_view(reinterpret_cast<const char*>(win_ + (b0 - wS_)),
                                    static_cast<std::size_t>(end0 - b0));
        hit.nAt = static_cast<std::size_t>(lHit - lBlock + 1);
        return true;
    }
}

std::size_t Scanner::collect(std::int64_t& s, const std::string_view* sReplace, std::int64_t* lPos, std::size_t max)
{
    const auto n = static_cast<std::int64_t>(search_.size());
    bulk_ = true;
    replacing_ = sReplace;
    if (expander_)
        return takeexpanded(s, lPos, max);
    std::int64_t pos = s - 1;   // 0-based: the next place an occurrence may start
    if (n == 0 || pos + n > lLen_) {
        s = 0;
        return 0;
    }
    if (pos < wS_ || pos + n > wE_) {
        if (emitting_ && outPos_ < pos)
            emitrange(outPos_, pos);
        if (dense_ && expand(pos))
            return takeexpanded(s, lPos, max);
        if (!yieldcheck() || !load(pos)) {
            s = 0;
            return 0;
        }
    }
    const auto size = static_cast<std::size_t>(wE_ - wS_);
    const auto un = static_cast<std::size_t>(n);
    auto at = static_cast<std::size_t>(pos - wS_);   // the restart in the window
    std::size_t scanned = at;
    std::size_t count = 0;
    constexpr std::size_t kFound = 512;
    std::uint32_t found[kFound];
    Replacement rep;
    if (sReplace)
        rep.set(*sReplace);
    while (count < max) {
        const std::size_t k = findall(size, scanned, found, std::min(kFound, max - count));
        if (!sReplace || !out_) {
            // A replace without an output (its edits go in place) restarts
            // as one with it.
            const std::size_t step = sReplace ? un : 1;
            for (std::size_t j = 0; j < k; ++j) {
                if (found[j] < at)
                    continue;   // inside the bytes of a hit counted already
                lPos[count++] = wS_ + static_cast<std::int64_t>(found[j]) + 1;
                at = found[j] + step;
            }
        } else if (rep.bShort) {
            count += replacefound<16>(found, k, at, lPos + count, rep);
        } else {
            count += replacefound<OutputBuffer::kOverread>(found, k, at, lPos + count, rep);
        }
        if (scanned >= size) {
            // An occurrence may still begin in the last n - 1 bytes, unless
            // a replaced hit covers them.
            const std::size_t tail = std::max(at, size - un + 1);
            s = wE_ >= lLen_ ? 0 : wS_ + static_cast<std::int64_t>(tail) + 1;
            return count;
        }
    }
    s = wS_ + static_cast<std::int64_t>(at) + 1;
    return count;
}

template <std::size_t RepN>
std::size_t Scanner::replacefound(const std::uint32_t* found, std::size_t k, std::size_t& at, std::int64_t* lPos,
                                  const Replacement& rep)
{
    // The hits of one batch in one pass. While the output goes on inside
    // the window, the place it has reached, the buffer's cursor and its end
    // stay in locals: each hit is two copies of fixed length and no store
    // to this object. A span too long for such a copy, a buffer nearly
    // full or output that hasn't begun take the general route.
    constexpr std::size_t kSpan = OutputBuffer::kOverread;
    const std::size_t un = search_.size();
    const std::size_t nRep = rep.text.size();
    const char* const win = reinterpret_cast<const char*>(win_);
    char* o = nullptr;           // the cursor, while held
    char* end = nullptr;
    std::size_t from = 0;        // the window offset the output has reached, while held
    auto hold = [&] {
        if (emitting_ && outPos_ >= wS_) {
            from = static_cast<std::size_t>(outPos_ - wS_);
            o = out_->cursor();
            end = o + out_->room();
        }
    };
    auto release = [&] {
        if (o) {
            out_->settle(o);
            outPos_ = wS_ + static_cast<std::int64_t>(from);
            o = nullptr;
        }
    };
    hold();
    std::size_t count = 0;
    for (std::size_t j = 0; j < k; ++j) {
        const std::size_t p = found[j];
        if (p < at)
            continue;   // inside the bytes of a replaced hit
        const std::int64_t lHit = wS_ + static_cast<std::int64_t>(p) + 1;
        lPos[count++] = lHit;
        at = p + un;
        if (o && p - from <= kSpan && nRep <= RepN && static_cast<std::size_t>(end - o) >= kSpan + RepN) [[likely]] {
            o = puthit<RepN>(o, win, from, p, rep);
            from = at;
            continue;
        }
        release();
        emitupto(lHit);
        out_->write(rep.text);
        skipto(lHit + static_cast<std::int64_t>(un));
        hold();
    }
    release();
    return count;
}

bool Scanner::expand(std::int64_t pos)
{
    const std::size_t threads = std::min<std::size_t>(usablecores(), 4);
    if (!replacing_ || !out_ || !emitting_ || outPos_ != pos || threads < 2 || search_.size() > kBlock ||
        lLen_ - pos < 2 * Expander::kSegment || search_.overlaps())
        return false;
    const std::int64_t at = out_->placeat();
    if (at < 0)
        return false;
    prefetch_.reset();
    try {
        expander_ = std::make_unique<Expander>(fd_, lLen_, pos, at, search_, *replacing_, *out_, sparse(), threads - 1);
    } catch (const std::system_error&) {
        return false;
    }
    expSegment_ = 0;
    expNext_ = 0;
    return true;
}

std::size_t Scanner::takeexpanded(std::int64_t& s, std::int64_t* lPos, std::size_t max)
{
    std::size_t count = 0;
    while (count < max) {
        const std::int64_t j = expSegment_;
        if (j == expander_->segments()) {
            s = 0;
            return count;
        }
        if (expNext_ == 0) {
            // A new segment: as a new window, it may give the sink its turn.
            if (count != 0)
                break;
            sinceYield_ += expander_->end(j) - expander_->begin(j);
            wE_ = expander_->end(j);
            if (!yieldcheck()) {
                s = 0;
                return 0;
            }
        }
        int error = 0;
        const std::vector<std::uint32_t>* hits = expander_->hits(j, error);
        if (!hits) {
            expander_.reset();
            failread(error);
            s = 0;
            return count;
        }
        const std::size_t take = std::min(max - count, hits->size() - expNext_);
        const std::int64_t b = expander_->begin(j) + 1;
        for (std::size_t k = 0; k < take; ++k)
            lPos[count++] = b + (*hits)[expNext_ + k];
        expNext_ += take;
        if (expNext_ == hits->size()) {
            expander_->leave(j);
            ++expSegment_;
            expNext_ = 0;
        }
    }
    s = 1;   // anything but 0: the rest is the expander's
    return count;
}

std::size_t Scanner::findall(std::size_t size, std::size_t& from, std::uint32_t* out, std::size_t max)
{
    if (!prefetch_)
        return search_.findall(win_, size, from, out, max);
    // Found ahead, as offsets from the read that the window's pad precedes.
    const std::vector<std::uint32_t>& found = prefetch_->found();
    const auto pad = static_cast<std::uint32_t>(prefetch_->current() * prefetch_->chunk() - wS_);
    while (foundAt_ < found.size() && found[foundAt_] + pad < from)
        ++foundAt_;
    std::size_t count = 0;
    for (; foundAt_ < found.size() && count < max; ++foundAt_)
        out[count++] = found[foundAt_] + pad;
    from = foundAt_ < found.size() ? found[foundAt_] + pad : size;
    return count;
}

std::string_view Scanner::bytesat(std::int64_t lPos, std::size_t n)
{
    const std::int64_t from0 = lPos - 1;
    if (win_ && from0 >= wS_ && from0 + static_cast<std::int64_t>(n) <= wE_)
        return {reinterpret_cast<const char*>(win_ + (from0 - wS_)), n};
    read_.assign(n, '\0');
    for (std::size_t got = 0; got < n;) {
        const ssize_t r = ::pread(fd_, read_.data() + got, n - got, from0 + static_cast<std::int64_t>(got));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0) {
            failread(r < 0 ? errno : 0);
            break;
        }
        got += static_cast<std::size_t>(r);
    }
    return read_;
}

void Scanner::emitupto(std::int64_t lTo)
{
    if (!out_)
        return;
    emitting_ = true;
    emitrange(outPos_, lTo - 1);
}

void Scanner::emitrest()
{
    if (expander_) {
        expander_->finish();
        expander_.reset();
        outPos_ = lLen_;
        return;
    }
    if (!emitting_)
        return;
    while (outPos_ < lLen_) {
        if (outPos_ < wS_ || outPos_ >= wE_) {
            if (!yieldcheck() || !load(outPos_))
                return;
        }
        emitrange(outPos_, wE_);
    }
}

std::string questiontext(const ScanHit& hit, std::string_view sFind)
{
    const std::string_view sBefore = hit.sBuf.substr(0, hit.nAt - 1);
    const std::string_view tail = sBefore.substr(sBefore.size() - std::min<std::size_t>(50, sBefore.size()));
    const std::size_t behind = std::min(hit.sBuf.size(), hit.nAt - 1 + sFind.size());
    std::string text = "Replace ";
    text += sCRLF;
    text += tail;
    text += sCRLF;
    text += sCRLF;
    text += sFind;
    text += "? ";
    text += hit.sBuf.substr(behind, 20);
    return text;
}

namespace {

// The body of findnext, inlined into the loop of scanloop: a replace with
// a hit every few dozen bytes spends most of its time here.
[[gnu::always_inline]] inline void findnextinline(ScanFile& f, std::int64_t& lPos, std::int64_t& nHits)
{
    const auto nFindLen = static_cast<std::int64_t>(f.sFind.size());
    const std::int64_t s = lPos < 0 ? nFindLen - lPos : lPos + 1;
    ScanHit hit;
    if (!f.scanner.next(s, hit)) [[unlikely]] {
        if (f.nOut && !f.scanner.stopped() && !f.scanner.readfailed())
            f.scanner.emitrest();
        lPos = 0;
        return;
    }
    ++nHits;
    if ((f.nLogMode & kLogFinds) && f.log) [[unlikely]]
        f.log->writelog(kLogFound, f.sFile, hit.lPos, hit.sBuf.substr(hit.nAt - 1));
    lPos = hit.lPos;
    if (!f.nOut && !f.edits)
        return;

    f.scanner.emitupto(hit.lPos);
    Answer answer = Answer::Yes;
    if (f.bAsk) [[unlikely]] {
        const std::string text = questiontext(hit, f.sFind);
        answer = f.scanner.sink().question(Question{f.sFile, hit.lPos, text});
        if (answer == Answer::Cancel) {
            f.scanner.stop();
            return;
        }
    }
    // The bytes from the hit to the block's end: the matched bytes and what
    // a log line shows behind the replacement.
    const std::string_view fromHit = hit.sBuf.substr(hit.nAt - 1);
    const std::string_view text = answer == Answer::No ? fromHit.substr(0, f.sFind.size()) : f.sReplace;
    if (f.nOut)
        f.nOut->write(text);
    else
        f.edits->edit(hit.lPos, fromHit.substr(0, f.sFind.size()), text);
    if ((f.nLogMode & kLogReplaces) && f.log && answer != Answer::No && f.sReplace != f.sFind) [[unlikely]] {
        std::string shown(f.sReplace.substr(0, kLogTextBytes));
        shown += fromHit.substr(f.sFind.size(), kLogTextBytes - shown.size());
        f.log->writelog(kLogReplaced, f.sFile, hit.lPos, shown);
    }
    f.lLenChange += static_cast<std::int64_t>(text.size()) - nFindLen;
    f.scanner.skipto(hit.lPos + nFindLen);
    lPos = -lPos;
}

}  // namespace

void findnext(ScanFile& f, std::int64_t& lPos, std::int64_t& nHits)
{
    findnextinline(f, lPos, nHits);
}

namespace {

// A file loop without questions or log lines, for a pattern whose hits are
// its leftmost occurrences: the scanner hands over the hits of a window in
// one go and the sink takes them in one call. The sink sees what the loop
// of single hits shows it.
std::int64_t scanbatches(ScanFile& f, const std::string& sName)
{
    constexpr std::size_t kBatch = 4096;
    std::int64_t lPos[kBatch];
    std::int64_t nHits = 0;
    const std::string_view* sReplace = f.nOut || f.edits ? &f.sReplace : nullptr;
    const auto grow = static_cast<std::int64_t>(f.sReplace.size()) - static_cast<std::int64_t>(f.sFind.size());
    std::int64_t s = 1;
    while (s != 0) {
        const std::size_t count = f.scanner.collect(s, sReplace, lPos, kBatch);
        if (count == 0)
            continue;
        const std::size_t taken = f.scanner.sink().hits(HitBatch{sName, lPos, count, nHits});
        nHits += static_cast<std::int64_t>(taken);
        if (taken < count)
            f.scanner.stop();
        if (!f.scanner.carryon())
            return nHits;
        if (f.edits) {
            for (std::size_t k = 0; k < count; ++k)
                f.edits->edit(lPos[k], f.scanner.exact() ? f.sFind : f.scanner.bytesat(lPos[k], f.sFind.size()),
                              f.sReplace);
        }
        if (sReplace)
            f.lLenChange += grow * static_cast<std::int64_t>(count);
    }
    if (f.nOut && !f.scanner.stopped() && !f.scanner.readfailed())
        f.scanner.emitrest();
    f.scanner.sink().scanned(nHits);
    f.scanner.carryon();
    return nHits;
}

}  // namespace

std::int64_t scanloop(ScanFile& f, const std::string& sName)
{
    std::int64_t lPos = 0;
    std::int64_t nHits = 0;
    f.lLenChange = 0;
    // The bytes that edits in place replace are those of the hit, which
    // the windows keep unless the pattern's own are the same.
    if (f.edits && !f.scanner.exact())
        f.scanner.keepbytes();
    const bool logging = f.log && (f.nLogMode & 3);
    if (!f.bAsk && !logging && !f.sFind.empty() && f.sFind.size() <= Scanner::kLeftmostFound)
        return scanbatches(f, sName);
    do {
        findnextinline(f, lPos, nHits);
        if (lPos != 0) {
            const std::int64_t at = lPos < 0 ? -lPos : lPos;
            if (f.scanner.sink().hits(HitBatch{sName, &at, 1, nHits - 1}) == 0)
                f.scanner.stop();
        } else {
            f.scanner.sink().scanned(nHits);
        }
    } while (f.scanner.carryon() && lPos != 0);
    return nHits;
}

}  // namespace brindlex
