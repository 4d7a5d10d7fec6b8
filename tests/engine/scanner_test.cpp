// The fast scanner against the literal model of the block scan, on random
// files built to reach the block edges; the model itself pinned to the
// block rules where the answer follows by hand; and where the kernel copies
// file bytes to and from the engine's memory.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/batch/runlog.h"
#include "engine/batch/scanner.h"
#include "engine/core/alignedbuffer.h"
#include "engine/core/inplace.h"
#include "engine/core/openbinary.h"
#include "engine/core/saferewrite.h"
#include "engine/dump/dump.h"
#include "engine/pattern/notation.h"
#include "engine/viewer/page.h"
#include "engine/viewer/save.h"
#include "support/recordinghost.h"
#include "support/refscanner.h"
#include "support/tempdir.h"

// The transfers between files and memory, seen where the kernel gets them:
// this program's read, write, pread and pwrite stand in for the C library's
// (or a sanitizer's) and note the buffer of each transfer of a page or more
// while noting is on.
namespace kernelcopy {
std::atomic<bool> noting {false};
std::mutex mutex;
std::vector<std::uintptr_t> buffers;

// Notes the buffer at `buf`, then calls the C library's function `name` of
// type F. (The address as a number: the buffer itself is not looked at.)
template <typename F, typename... Args>
ssize_t pass(const char* name, std::uintptr_t buf, std::size_t n, Args... args)
{
    static std::atomic<F> next;
    if (n >= 4096 && noting.load(std::memory_order_relaxed)) {
        std::lock_guard lock(mutex);
        buffers.push_back(buf);
    }
    if (!next.load(std::memory_order_relaxed))
        next.store(reinterpret_cast<F>(::dlsym(RTLD_NEXT, name)), std::memory_order_relaxed);
    return next.load(std::memory_order_relaxed)(args...);
}
}  // namespace kernelcopy

extern "C" {
ssize_t read(int fd, void* buf, size_t n)
{
    return kernelcopy::pass<decltype(&::read)>("read", reinterpret_cast<std::uintptr_t>(buf), n, fd, buf, n);
}
ssize_t write(int fd, const void* buf, size_t n)
{
    return kernelcopy::pass<decltype(&::write)>("write", reinterpret_cast<std::uintptr_t>(buf), n, fd, buf, n);
}
ssize_t pread(int fd, void* buf, size_t n, off_t at)
{
    return kernelcopy::pass<decltype(&::pread)>("pread", reinterpret_cast<std::uintptr_t>(buf), n, fd, buf, n, at);
}
ssize_t pwrite(int fd, const void* buf, size_t n, off_t at)
{
    return kernelcopy::pass<decltype(&::pwrite)>("pwrite", reinterpret_cast<std::uintptr_t>(buf), n, fd, buf, n, at);
}
}

namespace brindlex {
namespace {

using test::RefResult;
using test::RefScan;

// Into the file `fd`, in order or by place as the scratch file of a
// replace: one in memory unless another is given.
struct Sink : ByteSink {
    FileHandle own {::memfd_create("out", MFD_CLOEXEC)};
    int fd = own.get();
    int placedError = 0;   // what every write by place fails with
    bool write(std::string_view b) override { return ::write(fd, b.data(), b.size()) == static_cast<ssize_t>(b.size()); }
    bool positional() override { return true; }
    int writeat(std::string_view b, std::int64_t at) override
    {
        if (placedError != 0)
            return placedError;
        return ::pwrite(fd, b.data(), b.size(), static_cast<off_t>(at)) == static_cast<ssize_t>(b.size()) ? 0 : EIO;
    }
    bool resume(std::int64_t end, int error) override { return error == 0 && ::lseek(fd, end, SEEK_SET) == end; }
    // What the file in memory holds.
    std::string bytes() const
    {
        struct stat st {};
        EXPECT_EQ(::fstat(own.get(), &st), 0);
        std::string b(static_cast<std::size_t>(st.st_size), '\0');
        EXPECT_EQ(::pread(own.get(), b.data(), b.size(), 0), static_cast<ssize_t>(b.size()));
        return b;
    }
};

// A file in memory holding `bytes`, with a hole where a page has only zeros.
FileHandle memfile(const std::string& bytes)
{
    FileHandle fd(::memfd_create("scan", MFD_CLOEXEC));
    EXPECT_EQ(::ftruncate(fd.get(), static_cast<off_t>(bytes.size())), 0);
    for (std::size_t at = 0; at < bytes.size(); at += 4096) {
        const std::string_view page = std::string_view(bytes).substr(at, 4096);
        if (page.find_first_not_of('\0') != std::string_view::npos) {
            EXPECT_EQ(::pwrite(fd.get(), page.data(), page.size(), static_cast<off_t>(at)), static_cast<ssize_t>(page.size()));
        }
    }
    return fd;
}

// The scan of `content`, held in `fd` or else in memory; a replace writes
// to `outFd` when given, and its writes by place fail with `placedError`.
RefResult fastscanfile(const std::string& content, const RefScan& scan, std::int64_t window,
                       const std::filesystem::path& logFile, FileHandle fd = {}, int outFd = -1,
                       std::int64_t cancelAtHit = -1, int placedError = 0)
{
    std::filesystem::remove(logFile);
    // In memory, read with pread like any other file.
    if (!fd.valid())
        fd = memfile(content);
    test::RecordingHost host;
    host.answers = scan.answers;
    host.cancelAtHit = cancelAtHit;
    Sink sink;
    if (outFd >= 0)
        sink.fd = outFd;
    sink.placedError = placedError;
    OutputBuffer out(&sink);
    // A replace that keeps the length goes as in a big file: edits in
    // place, each with the bytes it replaces, which must be the file's.
    struct Patch : EditSink {
        std::string bytes;
        bool wasRight = true;
        void edit(std::int64_t lPos, std::string_view was, std::string_view becomes) override
        {
            wasRight = wasRight && bytes.compare(static_cast<std::size_t>(lPos - 1), was.size(), was) == 0;
            bytes.replace(static_cast<std::size_t>(lPos - 1), becomes.size(), becomes);
        }
    } patch;
    patch.bytes = content;
    const bool inplace = scan.bReplace && scan.sReplace.size() == scan.sFind.size();
    OutputBuffer* nOut = scan.bReplace && !inplace ? &out : nullptr;
    RefResult result;
    {
        // The file stays open while its scanner (and what reads ahead for it) lives.
        Scanner scanner(fd.get(), static_cast<std::int64_t>(content.size()), scan.sFind, scan.bMatchCase, nOut, host, window);
        RunLog log(logFile);
        ScanFile f {.scanner = scanner, .sFile = scan.sFile, .sFind = scan.sFind, .sReplace = scan.sReplace,
                    .bAsk = scan.bAsk, .nLogMode = scan.nLogMode, .log = &log, .nOut = nOut,
                    .edits = inplace ? &patch : nullptr};
        result.nHits = scanloop(f, scan.sName);
        result.lLenChange = f.lLenChange;
        result.bCancel = scanner.stopped();
    }
    result.bWriteFailed = !out.flush();
    result.events = host.transcript;
    result.log = std::filesystem::exists(logFile) ? test::readfile(logFile) : "";
    result.output = inplace ? (result.nHits > 0 ? patch.bytes : "") : sink.bytes();
    EXPECT_TRUE(patch.wasRight);
    return result;
}

std::string flipcase(std::string s, std::mt19937_64& rng)
{
    for (char& c : s) {
        const auto u = static_cast<unsigned char>(c);
        if (rng() % 2 && uppercasebyte(u) != u)
            c = static_cast<char>(uppercasebyte(u));
        else if (rng() % 2 && ((u >= 'A' && u <= 'Z') || (u >= 0xC0 && u <= 0xDE && u != 0xD7)))
            c = static_cast<char>(u + 32);
    }
    return s;
}

struct RandomCase { std::string content; RefScan scan; std::int64_t window = 0; };

// A random file and pattern, with copies of the pattern planted around the
// block grid, at the file's end, adjacent and overlapping.
RandomCase makecase(std::mt19937_64& rng)
{
    auto pick = [&rng](std::int64_t lo, std::int64_t hi) {
        return lo + static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(hi - lo + 1));
    };
    // Few distinct bytes, so that hits come by chance too.
    const std::string narrow("aAbB\xE9\xC9\0", 7);
    const bool full = rng() % 3 == 0;
    auto randombyte = [&]() { return full ? static_cast<char>(rng()) : narrow[rng() % narrow.size()]; };

    RandomCase c;
    // The longest are read ahead on threads with the smaller windows.
    static const std::int64_t lengths[][2] = {{0, 20}, {100, 3000}, {3000, 12000}, {1500, 4000}, {16000, 40000}};
    const auto& lr = lengths[rng() % 5];
    c.content.resize(static_cast<std::size_t>(pick(lr[0], lr[1])));
    for (char& b : c.content)
        b = randombyte();
    // Pages of zeros, which the file holds as holes.
    for (std::int64_t holes = rng() % 3 ? 0 : pick(1, 3); holes > 0 && c.content.size() > 4096; --holes) {
        const std::size_t at = 4096 * static_cast<std::size_t>(pick(0, static_cast<std::int64_t>(c.content.size() / 4096) - 1));
        std::fill_n(c.content.begin() + static_cast<std::ptrdiff_t>(at), std::min<std::size_t>(c.content.size() - at, 4096 * pick(1, 3)), '\0');
    }

    // Around 201/202 bytes and 1000 bytes, where what the blocks see changes.
    static const std::int64_t patternLengths[][2] = {{1, 4}, {1, 4}, {5, 30}, {190, 215}, {780, 1010}, {999, 1100}};
    const auto& pr = patternLengths[rng() % 6];
    const auto n = pick(pr[0], pr[1]);
    std::string pattern(static_cast<std::size_t>(n), '\0');
    for (char& b : pattern)
        b = randombyte();

    const auto len = static_cast<std::int64_t>(c.content.size());
    const int plants = static_cast<int>(pick(0, 5));
    std::int64_t previous = -1;
    for (int i = 0; i < plants && n <= len; ++i) {
        std::int64_t at = 0;   // 0-based
        switch (rng() % 6) {
        case 0: at = 800 * pick(0, len / 800 + 1) + pick(-n - 3, 3); break;
        case 1: at = 800 * pick(0, len / 800 + 1) + 1000 - n + pick(-2, 2); break;
        case 2: at = len - n + pick(-1, 0); break;
        case 3: at = previous >= 0 ? previous + pick(1, n) : pick(0, len - n); break;
        case 4: at = 4096 * pick(1, len / 4096 + 1) - pick(0, n); break;   // across a page, a hole's edge
        default: at = pick(0, len - n);
        }
        at = std::clamp<std::int64_t>(at, 0, len - n);
        c.content.replace(static_cast<std::size_t>(at), static_cast<std::size_t>(n), flipcase(pattern, rng));
        previous = at;
    }

    RefScan& s = c.scan;
    s.sFile = "/data/f" + std::to_string(rng() % 100) + ".bin";
    s.sName = s.sFile.substr(6);
    s.bMatchCase = rng() % 2;
    s.sFind = pattern;
    if (!s.bMatchCase)
        uppercase(s.sFind);
    s.bReplace = rng() % 2;
    switch (rng() % 5) {
    case 0: s.sReplace = ""; break;
    case 1: s.sReplace = s.sFind; break;
    case 2: s.sReplace = pattern.substr(0, static_cast<std::size_t>(n - 1)) + "xy"; break;
    default:
        s.sReplace.resize(static_cast<std::size_t>(pick(0, 12)));
        for (char& b : s.sReplace)
            b = randombyte();
    }
    s.bAsk = s.bReplace && rng() % 2;
    for (int i = 0; i < 40; ++i) {
        const auto r = rng() % 20;
        s.answers.push_back(r < 12 ? Answer::Yes : r < 19 ? Answer::No : Answer::Cancel);
    }
    s.nLogMode = static_cast<int>(rng() % 4);
    static const std::int64_t windows[] = {1024, 1500, 2048, 4096, Scanner::kDefaultWindow};
    c.window = windows[rng() % 5];
    return c;
}

TEST(ScannerDifferential, AgreesWithTheBlockModelOnRandomFiles)
{
    test::TempDir dir;
    const auto logFile = dir.path() / "run.log";
    std::mt19937_64 rng(20261122);
    int withHits = 0, cancelled = 0;
    cpu_set_t all, one;
    ASSERT_EQ(::sched_getaffinity(0, sizeof all, &all), 0);
    CPU_ZERO(&one);
    CPU_SET(::sched_getcpu(), &one);
    const struct Restore {
        const cpu_set_t& all;
        ~Restore() { ::sched_setaffinity(0, sizeof all, &all); }
    } restore {all};
    for (int i = 0; i < 3000; ++i) {
        const RandomCase c = makecase(rng);
        const RefResult want = test::refscanfile(c.content, c.scan);
        // A quarter on one core, where a long file is read by the scan
        // itself rather than ahead on threads.
        ASSERT_EQ(::sched_setaffinity(0, sizeof all, i % 4 ? &all : &one), 0);
        const RefResult got = fastscanfile(c.content, c.scan, c.window, logFile);
        SCOPED_TRACE(testing::Message() << "case " << i << ": length " << c.content.size() << ", pattern "
                     << c.scan.sFind.size() << ", window " << c.window << (c.scan.bReplace ? ", replace" : ", find")
                     << (i % 4 ? "" : ", one core"));
        ASSERT_EQ(got.events, want.events);
        ASSERT_EQ(got.nHits, want.nHits);
        ASSERT_EQ(got.log, want.log);
        ASSERT_EQ(got.bCancel, want.bCancel);
        ASSERT_EQ(got.lLenChange, want.lLenChange);
        // A file without hits is never written; the output begins at the first.
        if (c.scan.bReplace && !want.bCancel) {
            ASSERT_EQ(got.output, want.nHits > 0 ? want.output : "");
        }
        withHits += want.nHits > 0;
        cancelled += want.bCancel;
    }
    // The generator must reach the cases that matter, not only empty scans.
    EXPECT_GT(withHits, 1000);
    EXPECT_GT(cancelled, 20);
}

// Dense hits through a file of more windows than are read ahead: more hits
// in a window than a batch holds, the output through many buffer flushes and
// windows, with a replacement of each kind (short, up to a fixed copy's
// length, longer, empty) and spans between hits on both sides of that
// length, and now and then one long enough to be written straight from the
// window. A pattern that can't overlap itself has its rest made by threads
// in segments, hits lying across their edges; one that can is scanned on.
TEST(ScannerDifferential, DenseReplaceOfALongFileIsAPlainReplace)
{
    test::TempDir dir;
    const struct {
        std::string sFind;
        std::size_t gap;   // most filler bytes between two patterns, if not now and then many more
        std::vector<std::string> replacements;
        bool expands = true;   // the rest is made on every core, and written by place
    } rows[] = {
        {"\r", 60, {"\r\n", std::string(40, 'y'), std::string(300, 'z'), ""}},
        {"<tag/>", 6, {"\n", std::string(20, 'y')}},
        {"abab", 3, {"ba"}, false},
    };
    std::mt19937_64 rng(20261123);
    for (const auto& row : rows) {
        const std::size_t n = row.sFind.size();
        std::string content;
        while (content.size() < (5u << 20)) {
            const bool spread = row.gap > n;
            const std::size_t run = spread && rng() % 16384 == 0 ? 60000 + rng() % 200000
                                    : spread && rng() % 16 == 0   ? rng() % 400
                                                                  : rng() % (row.gap + 1);
            content.append(run, 'x');
            content += row.sFind;
        }
        for (const std::string& sReplace : row.replacements) {
            const RefScan s {.sFile = "/data/big", .sName = "big", .sFind = row.sFind, .sReplace = sReplace,
                             .bReplace = true};
            const RefResult got = fastscanfile(content, s, 256 << 10, dir.path() / "run.log");
            std::string want;
            std::string hits;
            std::vector<std::size_t> ends;   // of each hit's lines in `hits`
            std::int64_t nHits = 0;
            const std::size_t cut = (3u << 20) + 1000;
            std::size_t wantAtCut = 0;   // the new content of the bytes before `cut`
            for (std::size_t i = 0;;) {
                const std::size_t p = content.find(row.sFind, i);
                if (p >= cut && wantAtCut == 0)
                    wantAtCut = want.size() + (i <= cut ? cut - i : 0);
                want.append(content, i, p - i);
                if (p == std::string::npos)
                    break;
                want += sReplace;
                hits += test::hitevent("big", static_cast<std::int64_t>(p + 1)) +
                        test::statusevent(std::to_string(++nHits));
                ends.push_back(hits.size());
                i = p + n;
            }
            SCOPED_TRACE(row.sFind + " by a replacement of " + std::to_string(sReplace.size()) + " bytes");
            EXPECT_EQ(got.nHits, nHits);
            EXPECT_NE(got.events.find(hits), std::string::npos);
            EXPECT_EQ(got.lLenChange, static_cast<std::int64_t>(want.size() - content.size()));
            const auto differ = std::mismatch(got.output.begin(), got.output.end(), want.begin(), want.end());
            EXPECT_EQ(differ.first - got.output.begin(), static_cast<std::ptrdiff_t>(want.size()));
            EXPECT_EQ(got.output.size(), want.size());
            if (&sReplace != &row.replacements.front())
                continue;
            // A file that ends early fails the read where it ends: what was
            // written is the start of the new content, and no more than that
            // of the bytes read, so the length check refuses it.
            const RefResult early =
                fastscanfile(content, s, 256 << 10, dir.path() / "run.log", memfile(content.substr(0, cut)));
            EXPECT_LT(early.nHits, nHits);
            EXPECT_LE(early.output.size(), wantAtCut);
            EXPECT_EQ(want.compare(0, early.output.size(), early.output), 0);
            // A failed write by place leaves the output failed, whatever its length.
            EXPECT_FALSE(got.bWriteFailed);
            EXPECT_EQ(fastscanfile(content, s, 256 << 10, dir.path() / "run.log", {}, -1, -1, ENOSPC).bWriteFailed,
                      row.expands);
            // Stopped halfway, the hits end there (a stopped file is never
            // replaced, whatever its output).
            const RefResult half = fastscanfile(content, s, 256 << 10, dir.path() / "run.log", {}, -1, nHits / 2);
            EXPECT_TRUE(half.bCancel);
            EXPECT_EQ(half.nHits, nHits / 2);
            const std::string told = hits.substr(0, ends[static_cast<std::size_t>(nHits / 2) - 1]);
            const std::size_t at = half.events.find(told);
            ASSERT_NE(at, std::string::npos);
            EXPECT_EQ(half.events.find("hit ", at + told.size()), std::string::npos);
        }
    }
}

// 3000 dots with `pattern` at 1-based position `at`.
std::string planted(std::size_t at, const std::string& pattern)
{
    return std::string(3000, '.').replace(at - 1, pattern.size(), pattern);
}

// The differential test trusts the model; these hold it to the rules of the
// block scan, reasoned by hand.
TEST(ScannerModel, FindsWhatTheBlocksHold)
{
    const std::string q202(202, 'Q'), q1000(1000, 'Q');
    std::string restarted;   // each restart begins a block, so 800 (ending at 1001) is found now
    for (int p = 700; p <= 800; ++p)
        restarted += std::to_string(p) + " ";
    const struct { const char* what; std::string content, sFind, hits; } rows[] = {
        {"202 bytes ending at 1000 fit the first block", planted(799, q202), q202, "799 "},
        {"202 bytes ending at 1001: past block 1, before block 801", planted(800, q202), q202, ""},
        {"1000 bytes on the grid", planted(801, q1000), q1000, "801 "},
        {"1000 bytes off the grid", planted(802, q1000), q1000, ""},
        {"1001 bytes never", planted(1, q1000 + "Q"), q1000 + "Q", ""},
        {"after a hit", planted(700, std::string(302, 'Q')), q202, restarted},
        {"NUL bytes, and a hit on the last byte", std::string("\0\0x\0", 4), std::string(1, '\0'), "1 2 4 "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        // The hit positions of the model, each followed by a blank.
        const std::string events = test::refscanfile(row.content, {.sName = "f", .sFind = row.sFind}).events;
        std::string hits;
        for (std::size_t at = 0; (at = events.find("hit f ", at)) != std::string::npos; at += 6)
            hits += events.substr(at + 6, events.find('\n', at) - at - 6) + " ";
        EXPECT_EQ(hits, row.hits);
    }
}

// A thread lends its spare window to one scan at a time: a second scan alive
// on the same thread reads into bytes of its own, and the first keeps its
// file's bytes.
TEST(ScannerWindow, TwoScansOnOneThreadKeepTheirOwnBytes)
{
    const std::string first = std::string(3000, 'a') + "needle" + std::string(500, 'b');
    const std::string second = std::string(3000, 'c') + "needle" + std::string(500, 'd');
    const FileHandle one = memfile(first), two = memfile(second);
    test::RecordingHost host;
    Scanner outer(one.get(), static_cast<std::int64_t>(first.size()), "needle", true, nullptr, host);
    std::int64_t s = 1, lPos = 0;
    ASSERT_EQ(outer.collect(s, nullptr, &lPos, 1), 1u);
    {
        Scanner inner(two.get(), static_cast<std::int64_t>(second.size()), "needle", true, nullptr, host);
        std::int64_t t = 1, lInner = 0;
        ASSERT_EQ(inner.collect(t, nullptr, &lInner, 1), 1u);
        EXPECT_EQ(inner.bytesat(1, 4), "cccc");
        EXPECT_EQ(outer.bytesat(lPos - 3, 9), "aaaneedle");
    }
}

// Every buffer of a transfer of a page or more that the engine makes starts
// on a page boundary: a 512 KiB read into a block 16 bytes past one costs
// the kernel's copy several times as much.
TEST(KernelCopies, StartOnAPageBoundary)
{
    test::TempDir dir;
    // 600 KiB with three hits, the first far behind the start.
    std::string content(600 << 10, '.');
    for (const std::size_t at : {300000u, 400000u, 500000u})
        content.replace(at, 6, "needle");
    const auto file = dir.write("f.bin", content);
    const auto work = dir.path() / "work";
    std::filesystem::create_directories(work);
    // A scan of the file for "needle" through windows of `window` bytes; a replace writes to out.bin.
    const auto scanfile = [&](std::int64_t window, bool replace) {
        const FileHandle out(replace ? ::open((work / "out.bin").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600) : -1);
        const RefScan scan {.sFile = file.string(), .sName = "f", .sFind = "needle", .sReplace = "pin", .bReplace = replace};
        EXPECT_EQ(fastscanfile(content, scan, window, work / "run.log", FileHandle(::open(file.c_str(), O_RDONLY | O_CLOEXEC)),
                               out.get()).nHits, 3);
    };
    const struct { const char* what; std::function<void()> run; } rows[] = {
        {"a scan's own window", [&] { scanfile(Scanner::kDefaultWindow, false); }},
        {"the reader threads of a find", [&] { scanfile(4096, false); }},
        {"the windows and output of a replace, and what it reads again behind them", [&] { scanfile(4096, true); }},
        {"a dump",
         [&] {
             DumpSink quiet;
             std::int64_t lPos = 0;
             dumpints(4, 8, file, work / "sheet.xls", lPos, quiet);
         }},
        {"a page save",
         [&] {
             struct stat st {};
             ::stat(file.c_str(), &st);
             EXPECT_FALSE(splicepage({file, 1000, 16, "0123456789abcdef", filestamp(st), work / "scratch"}).error);
         }},
        {"an in-place edit, its journal and the span it writes",
         [&] {
             OpenedFile opened;
             ASSERT_FALSE(openbinary(file, opened));
             Error error;
             auto edit = InPlaceEdit::begin(file, opened, work, error);
             ASSERT_TRUE(edit) << error.text;
             // Hits every 40 bytes: the edits go out as spans with the bytes between.
             for (std::int64_t at = 0; at < 200000; at += 40)
                 edit->add(at, std::string_view(content).substr(static_cast<std::size_t>(at), 1), "#");
             EXPECT_FALSE(edit->commit());
         }},
        {"the copy into a hard-linked file",
         [&] {
             std::filesystem::create_hard_link(file, dir.path() / "twin");
             Error error;
             auto replace = SafeReplace::begin(file, work / "scratch", error);
             ASSERT_TRUE(replace) << error.text;
             AlignedBuffer<char> bytes(content.size());
             std::copy(content.begin(), content.end(), bytes.data());
             replace->write(std::string_view(bytes.data(), bytes.size()));
             EXPECT_FALSE(replace->commit());
         }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        kernelcopy::buffers.clear();
        kernelcopy::noting = true;
        row.run();
        kernelcopy::noting = false;
        std::lock_guard lock(kernelcopy::mutex);
        EXPECT_FALSE(kernelcopy::buffers.empty());
        for (const std::uintptr_t buf : kernelcopy::buffers)
            EXPECT_EQ(buf % aligned::kPage, 0u) << "a transfer from or into " << std::hex << buf;
    }
}

}  // namespace
}  // namespace brindlex
