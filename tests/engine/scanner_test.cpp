// The fast scanner against the literal model of the block scan, and the
// rules of what a scan finds on hand-made files.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "batch/runlog.h"
#include "batch/scanner.h"
#include "pattern/notation.h"
#include "support/refscanner.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::RefResult;
using test::RefScan;

class RecordingHost : public Host {
public:
    explicit RecordingHost(std::vector<Answer> answers) : answers_(std::move(answers)) {}
    std::string events;

    void hit(const std::string& sName, std::int64_t lPos) override { events += test::hitevent(sName, lPos); }
    void status(const std::string& caption) override { events += test::statusevent(caption); }
    Answer question(const std::string& title, const std::string& text) override
    {
        events += test::questionevent(title, text);
        return next_ < answers_.size() ? answers_[next_++] : Answer::Yes;
    }

private:
    std::vector<Answer> answers_;
    std::size_t next_ = 0;
};

class StringSink : public ByteSink {
public:
    std::string bytes;
    bool write(std::string_view b) override
    {
        bytes.append(b);
        return true;
    }
};

// An in-memory file that the scanner reads with pread like any other.
class MemFile {
public:
    explicit MemFile(const std::string& content) : fd_(::memfd_create("scan", MFD_CLOEXEC))
    {
        std::size_t done = 0;
        while (done < content.size()) {
            const ssize_t r = ::write(fd_, content.data() + done, content.size() - done);
            if (r <= 0)
                break;
            done += static_cast<std::size_t>(r);
        }
    }
    ~MemFile() { ::close(fd_); }
    int fd() const { return fd_; }

private:
    int fd_;
};

RefResult fastscanfile(const std::string& content, const RefScan& scan, std::int64_t window,
                       const std::filesystem::path& logFile)
{
    std::filesystem::remove(logFile);
    MemFile file(content);
    RecordingHost host(scan.answers);
    StringSink sink;
    OutputBuffer out(&sink);
    OutputBuffer* nOut = scan.bReplace ? &out : nullptr;
    Scanner scanner(file.fd(), static_cast<std::int64_t>(content.size()), scan.sFind, scan.bMatchCase, nOut, host,
                    window);
    RunLog log(logFile);
    ScanFile f {.scanner = scanner, .sFile = scan.sFile, .sFind = scan.sFind, .sReplace = scan.sReplace,
                .bAsk = scan.bAsk, .nLogMode = scan.nLogMode, .log = &log, .nOut = nOut, .host = host};
    RefResult r;
    r.nHits = scanloop(f, scan.sName);
    out.flush();
    r.events = host.events;
    r.output = sink.bytes;
    r.lLenChange = f.lLenChange;
    r.bCancel = host.bCancel;
    r.log = std::filesystem::exists(logFile) ? test::readfile(logFile) : "";
    return r;
}

std::string flipcase(std::string s, std::mt19937_64& rng)
{
    for (char& c : s) {
        const auto u = static_cast<unsigned char>(c);
        if (rng() % 2 && uppercasebyte(u) != u)
            c = static_cast<char>(uppercasebyte(u));
        else if (rng() % 2 && u >= 'A' && u <= 'Z')
            c = static_cast<char>(u + 32);
        else if (rng() % 2 && u >= 0xC0 && u <= 0xDE && u != 0xD7)
            c = static_cast<char>(u + 32);
    }
    return s;
}

struct RandomCase {
    std::string content;
    RefScan scan;
    std::int64_t window = 0;
};

// A random file and pattern, with copies of the pattern planted around the
// block grid, at the file's end, adjacent and overlapping.
RandomCase makecase(std::mt19937_64& rng)
{
    auto pick = [&rng](std::int64_t lo, std::int64_t hi) {
        return lo + static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(hi - lo + 1));
    };
    const std::string narrow = std::string("aAbB\xE9\xC9", 6) + std::string(1, '\0');
    const bool full = rng() % 3 == 0;
    auto randombyte = [&]() { return full ? static_cast<char>(rng()) : narrow[rng() % narrow.size()]; };

    RandomCase c;
    static const std::int64_t lengths[][2] = {{0, 20}, {100, 3000}, {3000, 12000}, {1500, 4000}};
    const auto& lr = lengths[rng() % 4];
    c.content.resize(static_cast<std::size_t>(pick(lr[0], lr[1])));
    for (char& b : c.content)
        b = randombyte();

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
        switch (rng() % 5) {
        case 0: at = 800 * pick(0, len / 800 + 1) + pick(-n - 3, 3); break;
        case 1: at = 800 * pick(0, len / 800 + 1) + 1000 - n + pick(-2, 2); break;
        case 2: at = len - n + pick(-1, 0); break;
        case 3: at = previous >= 0 ? previous + pick(1, n) : pick(0, len - n); break;
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
    int withHits = 0;
    int cancelled = 0;
    for (int i = 0; i < 3000; ++i) {
        const RandomCase c = makecase(rng);
        const RefResult want = test::refscanfile(c.content, c.scan);
        std::filesystem::remove(logFile);
        const RefResult got = fastscanfile(c.content, c.scan, c.window, logFile);
        SCOPED_TRACE("case " + std::to_string(i) + ": length " + std::to_string(c.content.size()) + ", pattern " +
                     std::to_string(c.scan.sFind.size()) + ", window " + std::to_string(c.window) +
                     (c.scan.bReplace ? ", replace" : ", find") + (c.scan.bMatchCase ? ", match case" : ", folded"));
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

// Hand-made files whose hits follow from the block rules alone.
struct RuleCase {
    const char* what;
    std::string content;
    std::string sFind;
    bool bReplace;
    std::vector<std::int64_t> hits;
};

std::vector<std::int64_t> positions(std::int64_t from, std::int64_t to)
{
    std::vector<std::int64_t> v;
    for (std::int64_t p = from; p <= to; ++p)
        v.push_back(p);
    return v;
}

std::string planted(std::size_t length, std::size_t at, const std::string& pattern)
{
    std::string s(length, '.');
    s.replace(at, pattern.size(), pattern);
    return s;
}

TEST(ScannerRules, FindsWhatTheBlockScanFinds)
{
    const std::string p201(201, 'Q');
    const std::string p202(202, 'Q');
    const std::string p1000(1000, 'Q');
    const std::vector<RuleCase> cases = {
        {"empty file", "", "A", false, {}},
        {"pattern equals the file", "ABC", "ABC", false, {1}},
        {"pattern one byte longer than the file", "ABC", "ABCD", false, {}},
        {"hit on the last bytes", "xxxAB", "AB", false, {4}},
        {"last byte cut off", "xxxA", "AB", false, {}},
        {"overlapping hits of a find", "AAAA", "AA", false, {1, 2, 3}},
        {"a replace restarts behind the hit", "AAAA", "AA", true, {1, 3}},
        {"NUL bytes", std::string("\0\0x\0", 4), std::string("\0", 1), false, {1, 2, 4}},
        {"201 bytes ending on the first block's end", planted(3000, 799, p201), p201, false, {800}},
        {"201 bytes across the first block's end", planted(3000, 850, p201), p201, false, {851}},
        {"201 bytes at the second overlap", planted(3000, 1599, p201), p201, false, {1600}},
        {"202 bytes at position 800 are missed", planted(3000, 799, p202), p202, false, {}},
        {"202 bytes at position 799 fit the first block", planted(3000, 798, p202), p202, false, {799}},
        {"202 bytes at position 801 start the second block", planted(3000, 800, p202), p202, false, {801}},
        {"1000 bytes on the grid", planted(3000, 800, p1000), p1000, false, {801}},
        {"1000 bytes off the grid", planted(3000, 801, p1000), p1000, false, {}},
        {"1001 bytes are never found", planted(3000, 0, std::string(1001, 'Q')), std::string(1001, 'Q'), false, {}},
        {"202 bytes at a file's very end", planted(1900, 1698, p202), p202, false, {1699}},
        {"after a hit the blocks start at the restart", planted(3000, 699, std::string(302, 'Q')), p202, false,
         positions(700, 800)},
    };
    for (const RuleCase& c : cases) {
        SCOPED_TRACE(c.what);
        MemFile file(c.content);
        Host host;
        StringSink sink;
        OutputBuffer out(&sink);
        OutputBuffer* nOut = c.bReplace ? &out : nullptr;
        Scanner scanner(file.fd(), static_cast<std::int64_t>(c.content.size()), c.sFind, true, nOut, host);
        ScanFile f {.scanner = scanner, .sFile = "f", .sFind = c.sFind, .sReplace = "", .nOut = nOut, .host = host};
        std::vector<std::int64_t> hits;
        std::int64_t lPos = 0;
        std::int64_t nHits = 0;
        do {
            findnext(f, lPos, nHits);
            if (lPos != 0)
                hits.push_back(std::llabs(lPos));
        } while (lPos != 0);
        EXPECT_EQ(hits, c.hits);
        EXPECT_EQ(nHits, static_cast<std::int64_t>(c.hits.size()));
    }
}

TEST(ScannerRules, FoldedSearchMatchesEitherCaseAndKeepsTheFileBytes)
{
    // "\xE9" is the small e with acute accent; its capital is "\xC9".
    const std::string content = "x\xE9t\xC9T\xE9tab\xFF\xDF";
    struct Case {
        std::string sFind;
        std::vector<std::int64_t> hits;
    };
    const std::vector<Case> cases = {
        {"\xC9T", {2, 4, 6}},
        {"AB", {8}},
        {"\xFF", {10}},   // no capital: matches itself only
        {"\xDF", {11}},
        {"\xE9", {}},     // the folded file never holds a small letter
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.sFind);
        MemFile file(content);
        Host host;
        StringSink sink;
        OutputBuffer out(&sink);
        Scanner scanner(file.fd(), static_cast<std::int64_t>(content.size()), c.sFind, false, &out, host);
        ScanFile f {.scanner = scanner, .sFile = "f", .sFind = c.sFind, .sReplace = "", .nOut = &out, .host = host};
        std::vector<std::int64_t> hits;
        std::int64_t lPos = 0;
        std::int64_t nHits = 0;
        do {
            findnext(f, lPos, nHits);
            if (lPos != 0)
                hits.push_back(-lPos);
        } while (lPos != 0);
        out.flush();
        EXPECT_EQ(hits, c.hits);
        std::string expected = c.hits.empty() ? "" : content;
        for (auto it = c.hits.rbegin(); it != c.hits.rend(); ++it)
            expected.erase(static_cast<std::size_t>(*it - 1), c.sFind.size());
        EXPECT_EQ(sink.bytes, expected);
    }
}

}  // namespace
}  // namespace brindlex
