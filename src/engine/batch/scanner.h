// The match scanner: finds a prepared pattern in one open file, hit by hit,
// and in a replace streams the file into the scratch output with the text
// chosen at each hit standing in for the matched bytes.
//
// What is found is defined by a scan in blocks of 1000 bytes. From a restart
// position s (1-based) the blocks are [s + 800k, s + 800k + 999], clipped to
// the file; the last block is the first one with s + 800k + 800 >= lLen and
// reaches to the file's end. The hit is the leftmost occurrence that lies
// wholly inside the first block holding any. Hence:
//  - a pattern of up to 201 bytes is always found at its leftmost occurrence;
//  - one of 202..1000 bytes only where it fits the block of its end: in a
//    file with no earlier hit, 202 bytes at position 800 end at 1001, which
//    is past the block at 1, and the block at 801 starts behind them;
//  - one of more than 1000 bytes never.
// A find restarts one byte behind a hit, so "AA" in "AAAA" is found at 1, 2
// and 3; a replace restarts behind the matched bytes: 1 and 3.
//
// The block is what is found and what a hit shows (sBuf, sBefore), not how
// the file is read: the file goes through a bounded window in large reads,
// the search filters candidates by their first and last bytes with vector
// compares, and the output is buffered, so the cost per hit is small and the
// memory is a constant whatever the file's size.
#pragma once

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "engine/core/runsink.h"
#include "engine/core/alignedbuffer.h"

namespace brindlex {

class RunLog;

// Finds a pattern in a byte buffer. Without match case the pattern must be
// upper-cased already, and a byte of the buffer matches a byte of the pattern
// when its upper-case form (uppercasebyte) equals it.
class PatternSearch {
public:
    PatternSearch(std::string_view pattern, bool bMatchCase);

    // The first offset p >= from with the whole pattern in data[p, p+n), or
    // npos. An empty pattern is never found.
    std::size_t find(const unsigned char* data, std::size_t size, std::size_t from) const;

    // Every occurrence at or after `from`, in order, up to `max` of them, as
    // offsets into `out`; `from` becomes the offset up to which all have
    // been reported (`size` when the buffer is done). For dense hits: one
    // pass over the buffer instead of one search per hit.
    std::size_t findall(const unsigned char* data, std::size_t size, std::size_t& from, std::uint32_t* out,
                        std::size_t max) const;

    std::size_t size() const { return pattern_.size(); }
    // Two occurrences may overlap (the pattern has a border, as "aa").
    bool overlaps() const;
    // Every hit holds the pattern's own bytes.
    bool exact() const { return bMatchCase_; }
    static constexpr std::size_t npos = static_cast<std::size_t>(-1);

private:
    bool matchesat(const unsigned char* p) const;
    std::size_t filter(const unsigned char* data, std::size_t& i, std::size_t last) const;
    template <bool Single>
    std::size_t findallwide(const unsigned char* data, std::size_t last, std::size_t& i, std::uint32_t* out,
                            std::size_t max) const;
    // The places of `bits` (bit k: place i + k) where the whole pattern is.
    [[gnu::noinline]] std::size_t takecandidates(std::uint64_t bits, const unsigned char* data, std::size_t i,
                                                 std::uint32_t* out) const;

    std::string pattern_;
    bool bMatchCase_;
    // The file bytes that match the pattern's first and last byte: one or
    // two values each (both the same when there is only one).
    unsigned char first_[2] {};
    unsigned char last_[2] {};
    bool matchable_ = true;    // every byte of the pattern can match
    bool filterable_ = true;
    std::array<unsigned char, 256> fold_ {};
};

// Where the scratch output goes; writes are in order, unless the sink
// takes them by place too.
class ByteSink {
public:
    virtual ~ByteSink() = default;
    virtual bool write(std::string_view bytes) = 0;
    // Whether writeat() may be used from now on.
    virtual bool positional() { return false; }
    // Writes all of `bytes` at `at` from the output's start, on any thread,
    // beside writes at other places: 0, or the errno of the failure.
    virtual int writeat(std::string_view /*bytes*/, std::int64_t /*at*/) { return ENOTSUP; }
    // After writes by place, on the thread of write(): the output ends at
    // `end`, where write() goes on, or failed with errno `error`.
    virtual bool resume(std::int64_t /*end*/, int error) { return error == 0; }
};

// Where a replace whose text keeps the length sends its edits, instead of
// streaming the file anew: at 1-based `lPos` the bytes `was` become
// `becomes`, of the same length, in the order of the scan.
class EditSink {
public:
    virtual ~EditSink() = default;
    virtual void edit(std::int64_t lPos, std::string_view was, std::string_view becomes) = 0;
};

// Buffers small writes into large ones; long spans go straight through.
// After the first failed write everything else is dropped, so the length of
// what arrived stays short and the length check refuses it. A replace with a
// hit every few dozen bytes writes twice per hit: writeover() and the
// cursor make those copies of fixed length.
class OutputBuffer {
public:
    // Writes shorter than kDirectWrite are gathered up to kBuffer bytes: few
    // enough for the buffer to be still in the core's cache when the kernel
    // copies it out (a 1 MiB buffer made a dense replace slower).
    static constexpr std::size_t kBuffer = 256 << 10;
    static constexpr std::size_t kDirectWrite = 64 << 10;

    explicit OutputBuffer(ByteSink* sink) : sink_(sink) {}
    void write(std::string_view bytes)
    {
        // room_ is 0 until the buffer exists and after a failed write. An
        // empty replacement may come with a null data pointer, which memcpy
        // must never see.
        if (bytes.empty())
            return;
        if (bytes.size() <= room_ && bytes.size() < kDirectWrite) [[likely]] {
            std::memcpy(buf_.get() + used_, bytes.data(), bytes.size());
            used_ += bytes.size();
            room_ -= bytes.size();
            return;
        }
        writeslow(bytes);
    }
    // Like write(), for bytes that are followed by at least kOverread more
    // readable bytes of the same buffer (a window): a short span is copied
    // as one block of fixed length, with no branch on a length that changes
    // from one hit to the next.
    static constexpr std::size_t kOverread = 128;
    void writeover(const char* from, std::size_t n)
    {
        if (n <= kOverread && room_ >= kOverread) [[likely]] {
            std::memcpy(buf_.get() + used_, from, kOverread);
            used_ += n;
            room_ -= n;
            return;
        }
        write(std::string_view(from, n));
    }
    // For a loop that writes many short spans itself: where the next byte
    // goes, the room there (0 before the first write and after a failed
    // one), and settle() to take the place the loop has reached.
    char* cursor() { return buf_.get() + used_; }
    std::size_t room() const { return room_; }
    void settle(char* to)
    {
        const auto n = static_cast<std::size_t>(to - cursor());
        used_ += n;
        room_ -= n;
    }
    bool flush();
    bool ok() const { return ok_ && sink_ != nullptr; }

    // For threads that make the output out of order: flushes, and gives the
    // place of the next byte, or -1 when the sink takes writes only in
    // order (or failed). Then writeat() from any thread, and resume() with
    // the end and the first error once they are done.
    std::int64_t placeat()
    {
        return flush() && sink_->positional() ? sent_ : -1;
    }
    int writeat(std::string_view bytes, std::int64_t at) const { return sink_->writeat(bytes, at); }
    void resume(std::int64_t end, int error)
    {
        sent_ = end;
        if (!sink_->resume(end, error)) {
            ok_ = false;
            room_ = 0;
        }
    }

private:
    void writeslow(std::string_view bytes);
    bool send(std::string_view bytes);
    ByteSink* sink_;
    std::int64_t sent_ = 0;   // the bytes handed to the sink
    AlignedBuffer<char> buf_;
    std::size_t used_ = 0;
    std::size_t room_ = 0;
    bool ok_ = true;
};

// One hit as the block scan sees it.
struct ScanHit {
    std::int64_t lPos = 0;      // 1-based position of the hit
    std::int64_t lBlock = 0;    // 1-based start of the block that holds it
    std::string_view sBuf;      // the block, clipped at the file's end
    std::size_t nAt = 0;        // 1-based place of the hit in sBuf
};

// The reading side: a window over the open file and the emission of the
// bytes that the scan passes. Positions are 1-based.
class Scanner {
public:
    // `fd` is read with pread only; `lLen` is the length the scan takes as
    // the file's. `out` is the scratch output of a replace, null in a find.
    // `windowBytes` (1024 to kMaxWindow) is how much is read at a time.
    Scanner(int fd, std::int64_t lLen, std::string_view sFind, bool bMatchCase, OutputBuffer* out, RunSink& sink,
            std::int64_t windowBytes = kDefaultWindow);
    // The same with a search prepared once for a whole run; `search` must
    // outlive the scanner.
    Scanner(int fd, std::int64_t lLen, const PatternSearch& search, OutputBuffer* out, RunSink& sink,
            std::int64_t windowBytes = kDefaultWindow);
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    ~Scanner();

    static constexpr std::int64_t kDefaultWindow = 1 << 20;
    // Offsets in a window fit 32 bits.
    static constexpr std::int64_t kMaxWindow = 1 << 30;
    // A file longer than this many windows is read ahead of the scan on a
    // thread of its own (Prefetch), so that reading and scanning overlap.
    static constexpr std::int64_t kPrefetchWindows = 16;

    // The next hit from restart position `s`. False when there is none up to
    // the file's end, when the sink answered no to carryon(), or when a
    // read failed (readfailed()). Once the output has begun, the bytes that
    // the scan passes are emitted as it goes.
    bool next(std::int64_t s, ScanHit& hit);

    // Patterns up to this long are always found at their leftmost
    // occurrence from a restart: 1000 - 800 + 1.
    static constexpr std::size_t kLeftmostFound = 201;

    // The hits from restart position `s` that lie in the window in hand (one
    // is loaded when the scan has left it), up to `max` of them, into
    // `lPos`: a bulk next() for patterns of at most kLeftmostFound bytes,
    // which needs no block. A find restarts one byte behind each hit; a
    // replace (`sReplace` not null) writes the replacement at each hit (when
    // there is an output) and restarts behind the matched bytes. Returns the count; `s` becomes the
    // next restart, or 0 when the file is done, the scan was stopped or a
    // read failed. With "AA" in "AAAA" a find gives 1, 2, 3, a replace 1, 3.
    std::size_t collect(std::int64_t& s, const std::string_view* sReplace, std::int64_t* lPos, std::size_t max);

    // The `n` bytes of the file at 1-based `lPos`: from the window when it
    // holds them (as it does for the hits collect() just gave), else read.
    // Valid until the scan goes on.
    std::string_view bytesat(std::int64_t lPos, std::size_t n);

    // The windows keep the file's bytes even without an output, for a
    // bytesat() of every hit. Before the scan begins.
    void keepbytes() { keepBytes_ = true; }
    // Every hit holds the pattern's own bytes (the search matches case).
    bool exact() const { return search_.exact(); }

    // Emits the bytes up to position `lTo` - 1; the output begins with the
    // first call, at the first hit, so a file without hits writes nothing.
    void emitupto(std::int64_t lTo);
    // The output goes on behind `lSkipTo` - 1: the caller has written what
    // stands in for the bytes between.
    void skipto(std::int64_t lSkipTo) { outPos_ = lSkipTo - 1; }

    // Emits every byte not yet emitted up to the file's end, if the output
    // has begun.
    void emitrest();

    std::int64_t length() const { return lLen_; }

    // Asks the sink whether to go on; a no, or a stop(), holds for the rest
    // of the scan.
    bool carryon()
    {
        if (!stopped_ && !sink_.carryon())
            stop();
        return !stopped_;
    }
    void stop();
    bool stopped() const { return stopped_; }
    RunSink& sink() const { return sink_; }
    bool readfailed() const { return readfailed_; }
    // Why a read failed: errno, or 0 when the file ended before its length.
    int readerrno() const { return readErrno_; }

private:
    class Prefetch;
    class Expander;
    struct Spare;
    bool load(std::int64_t from0);
    bool loadahead(std::int64_t from0);
    void failread(int code);
    // The occurrences in the window from `from` on, as PatternSearch::findall.
    std::size_t findall(std::size_t size, std::size_t& from, std::uint32_t* out, std::size_t max);
    // A replacement, with a copy that may be read kOverread bytes long
    // (only its first kOverread bytes: a longer one goes the general route).
    struct Replacement {
        std::string_view text;
        bool bShort = false;   // 16 bytes at most, as CR LF for CR
        char padded[OutputBuffer::kOverread] = {};
        void set(std::string_view sReplace)
        {
            text = sReplace;
            bShort = text.size() <= 16;
            if (!text.empty())
                std::memcpy(padded, text.data(), std::min(text.size(), sizeof padded));
        }
    };
    // Puts the bytes [from, p) of `src` and then the replacement at `o`, and
    // returns the end: a span of at most kOverread bytes and a replacement
    // of at most RepN as copies of those fixed lengths, so `src` must hold
    // kOverread readable bytes from `from` and `o` room for kOverread + RepN.
    template <std::size_t RepN>
    static char* puthit(char* o, const char* src, std::size_t from, std::size_t p, const Replacement& rep)
    {
        std::memcpy(o, src + from, OutputBuffer::kOverread);
        o += p - from;
        std::memcpy(o, rep.padded, RepN);
        return o + rep.text.size();
    }
    template <std::size_t RepN>
    std::size_t replacefound(const std::uint32_t* found, std::size_t k, std::size_t& at, std::int64_t* lPos,
                             const Replacement& rep);
    // From 0-based `pos`, where the output has got to, hands the rest of a
    // dense replace to an Expander, when it can take it.
    bool expand(std::int64_t pos);
    // collect() while an Expander has the rest.
    std::size_t takeexpanded(std::int64_t& s, std::int64_t* lPos, std::size_t max);
    void emitrange(std::int64_t from0, std::int64_t to0);
    void emitbehind(std::int64_t from0, std::int64_t to0);
    bool sparse();
    bool yieldcheck();

    int fd_;
    std::int64_t lLen_;
    PatternSearch ownSearch_;
    const PatternSearch& search_;
    OutputBuffer* out_;
    RunSink& sink_;
    std::int64_t window_;
    std::unique_ptr<Prefetch> prefetch_;   // while the scan goes on from window to window
    std::unique_ptr<Expander> expander_;   // a dense replace's rest, made and written by threads
    AlignedBuffer<> buf_;                    // the window as read without prefetching, when not lent
    Spare* lent_ = nullptr;                  // the thread's spare, while this scan has it
    const unsigned char* win_ = nullptr;     // the window's bytes
    std::int64_t wS_ = 0, wE_ = 0;   // the window: 0-based [wS_, wE_)
    std::int64_t outPos_ = 0;        // 0-based next byte to emit
    std::int64_t sinceYield_ = 0;
    std::size_t foundAt_ = 0;        // the next of the window's occurrences found ahead
    const std::string_view* replacing_ = nullptr;   // collect()'s replacement
    bool dense_ = false;             // a replace with a hit every few KiB: no reading ahead for the scan
    std::int64_t expSegment_ = 0;    // the expander's segment whose hits are handed on
    std::size_t expNext_ = 0;        // and its next hit
    bool bulk_ = false;              // the scan goes by collect()
    bool emitting_ = false;
    bool readfailed_ = false;
    bool stopped_ = false;
    int readErrno_ = 0;
    int holes_ = -1;                 // a big file has holes (1) or not (0); -1: not asked yet
    std::string read_;               // bytesat() outside the window
    bool keepBytes_ = false;
};

// Everything that the scan of one file and its hit steps need.
struct ScanFile {
    Scanner& scanner;
    std::string sFile;           // full path, for the log and the question
    std::string_view sFind;      // prepared
    std::string_view sReplace;   // prepared
    bool bAsk = false;
    int nLogMode = 0;
    RunLog* log = nullptr;       // null: no log lines
    OutputBuffer* nOut = nullptr;  // the scratch output; null in a find
    EditSink* edits = nullptr;     // a replace's edits in place, instead of nOut
    std::int64_t lLenChange = 0;
};

// Runs to the next hit or the file's end. `lPos` is 0 on the first call for
// a file; on return it is 0 when the file is done (or the scan was
// cancelled), the hit's position p in a find or at the answer Cancel, and -p
// for a hit that a replace has dealt with; the next call restarts at p + 1
// or p + the pattern's length. A hit counts in `nHits`, is logged as found,
// and in a replace is asked about (bAsk), written and logged as replaced.
void findnext(ScanFile& f, std::int64_t& lPos, std::int64_t& nHits);

// The question at a hit of a replace: its text.
std::string questiontext(const ScanHit& hit, std::string_view sFind);

// The loop over one file: findnext until the file is done or cancelled,
// with each hit (the position as it was before replacing) told to the sink
// and a carryon() after each return; at the end the sink hears scanned()
// and is asked carryon() once more. Returns nHits.
std::int64_t scanloop(ScanFile& f, const std::string& sName);

}  // namespace brindlex
