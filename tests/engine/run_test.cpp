// A run over a file list, seen through a host that writes every call down:
// each case compares that transcript, the files afterwards and the log.
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "batch/run.h"
#include "files/files.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

// Control bytes show as \r \n \t; the temporary directory as "<dir>/".
std::string shown(std::string text, const std::string& dir)
{
    for (std::size_t at = 0; (at = text.find(dir, at)) != std::string::npos;)
        text.replace(at, dir.size(), "<dir>/");
    std::string out;
    for (char c : text) {
        if (c == '\r')
            out += "\\r";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\t')
            out += "\\t";
        else
            out += c;
    }
    return out;
}

class RecordingHost : public Host {
public:
    RecordingHost(std::string dir, std::vector<Answer> answers) : dir_(std::move(dir)), answers_(std::move(answers)) {}

    std::string transcript;
    // Runs after each recorded line, so that a case can act at a moment of
    // the run (press Cancel, change a file).
    std::function<void(const std::string& line, RecordingHost& host)> onEvent;
    bool recordHits = true;
    std::int64_t hitCalls = 0;

    void showcontrols(bool bOn) override { record(bOn ? "controls on" : "controls off"); }
    void clearhits() override { record("clearhits"); }
    void status(const std::string& caption) override { record("status " + caption); }
    void hit(const std::string& sName, std::int64_t lPos) override
    {
        ++hitCalls;
        if (recordHits)
            record("hit " + sName + " " + std::to_string(lPos));
    }
    Answer question(const std::string& title, const std::string& text) override
    {
        record("question " + title + " | " + text);
        return next_ < answers_.size() ? answers_[next_++] : Answer::Yes;
    }
    void message(const std::string& text) override { record("message " + text); }
    void lineupdated(std::size_t index, const std::string& line) override
    {
        record("line " + std::to_string(index) + " " + line);
    }

private:
    void record(const std::string& line)
    {
        const std::string s = shown(line, dir_);
        transcript += s + "\n";
        if (onEvent)
            onEvent(s, *this);
    }

    std::string dir_;
    std::vector<Answer> answers_;
    std::size_t next_ = 0;
};

struct RunCase {
    const char* what {};
    std::map<std::string, std::string> files {};    // name below the base dir -> content
    std::vector<std::string> names {};              // the list, in List1 order
    std::vector<bool> selected {};
    std::string sFind {};
    std::string sReplace {};
    bool bReplace = false;
    bool bMatchCase = false;
    bool bAsk = false;
    int nLogMode = 0;
    std::vector<Answer> answers {};
    std::function<void(const std::string&, RecordingHost&)> onEvent {};
    std::string transcript {};                      // expected
    std::map<std::string, std::string> after {};    // expected contents; unnamed files keep theirs
    std::string log {};                             // expected log, "<dir>/" for the directory
};

struct RunOutcome {
    std::string transcript;
    std::map<std::string, std::string> contents;
    std::string log;
    RunResult result;
};

RunRequest makerequest(const RunCase& c, const test::TempDir& dir)
{
    RunRequest r;
    r.sFind = c.sFind;
    r.sReplaceText = c.sReplace;
    r.bReplace = c.bReplace;
    r.bMatchCase = c.bMatchCase;
    r.bAsk = c.bAsk;
    r.nLogMode = c.nLogMode;
    r.sLogFile = dir.path() / "work" / "brindlex.log.txt";
    r.sScratch = dir.path() / "work" / "brindlex.tmp";
    r.baseDir = (dir.path() / "base").string() + "/";
    for (const std::string& name : c.names) {
        const auto it = c.files.find(name);
        r.lines.push_back(list1line(name, it == c.files.end() ? 3 : static_cast<std::int64_t>(it->second.size())));
    }
    r.selected = c.selected;
    return r;
}

RunOutcome runcase(const RunCase& c, const test::TempDir& dir)
{
    std::filesystem::create_directories(dir.path() / "work");
    for (const auto& [name, content] : c.files)
        dir.write("base/" + name, content);
    const RunRequest request = makerequest(c, dir);
    RecordingHost host(dir.path().string() + "/", c.answers);
    host.onEvent = c.onEvent;
    RunOutcome o;
    o.result = findinfiles(request, host);
    o.transcript = host.transcript;
    for (const auto& [name, content] : c.files) {
        const auto path = dir.path() / "base" / name;
        o.contents[name] = std::filesystem::exists(path) ? test::readfile(path) : "<missing>";
    }
    if (std::filesystem::exists(request.sLogFile))
        o.log = shown(test::readfile(request.sLogFile), dir.path().string() + "/");
    return o;
}

void appendto(const std::filesystem::path& path, const std::string& bytes)
{
    std::FILE* f = std::fopen(path.c_str(), "ab");
    ASSERT_NE(f, nullptr);
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
}

void checkcase(const RunCase& c)
{
    SCOPED_TRACE(c.what);
    test::TempDir dir;
    const RunOutcome o = runcase(c, dir);
    EXPECT_EQ(o.transcript, c.transcript);
    for (const auto& [name, content] : c.files) {
        const auto it = c.after.find(name);
        EXPECT_EQ(o.contents.at(name), it == c.after.end() ? content : it->second) << name;
    }
    EXPECT_EQ(o.log, c.log);
}

TEST(RunFind, ReportsHitsFileByFile)
{
    const std::vector<RunCase> cases = {
        {.what = "an empty find text does nothing but clear",
         .files = {{"a.txt", "abc"}},
         .names = {"a.txt"},
         .sFind = "",
         .transcript = "clearhits\nstatus none found\n"},
        {.what = "folded find over two files, one without hits",
         .files = {{"a.txt", "xABcx abc"}, {"b.txt", "none"}},
         .names = {"a.txt", "b.txt"},
         .sFind = "abc",
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a.txt\nhit a.txt 2\nstatus 1\nhit a.txt 7\nstatus 2\nstatus 2\n"
                       "status <dir>/base/b.txt\nstatus 0\n"
                       "status 2\ncontrols on\n"},
        {.what = "a pattern with a code in it is compared exactly",
         .files = {{"a.txt", "ab\rAB\r"}},
         .names = {"a.txt"},
         .sFind = "AB<0D>",
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a.txt\nhit a.txt 4\nstatus 1\nstatus 1\n"
                       "status 1\ncontrols on\n"},
        {.what = "match case",
         .files = {{"a.txt", "abAB"}},
         .names = {"a.txt"},
         .sFind = "ab",
         .bMatchCase = true,
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a.txt\nhit a.txt 1\nstatus 1\nstatus 1\n"
                       "status 1\ncontrols on\n"},
        {.what = "only the selected lines are scanned",
         .files = {{"a", "x"}, {"b", "x"}, {"c", "x"}},
         .names = {"a", "b", "c"},
         .selected = {false, true, false},
         .sFind = "x",
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/b\nhit b 1\nstatus 1\nstatus 1\n"
                       "status 1\ncontrols on\n"},
        {.what = "a run without any hit ends with 0",
         .files = {{"a", "x"}},
         .names = {"a"},
         .sFind = "y",
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\nstatus 0\nstatus 0\ncontrols on\n"},
        {.what = "a file gone since the listing is reported and skipped, and not made",
         .files = {{"b", "x"}},
         .names = {"gone", "b"},
         .sFind = "x",
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/gone\n"
                       "message Error opening <dir>/base/gone:\\r\\nNo such file or directory\n"
                       "status <dir>/base/b\nhit b 1\nstatus 1\nstatus 1\n"
                       "status 1\ncontrols on\n"},
        {.what = "the log of a folded find: the pattern upper-cased, the file's bytes as they are",
         .files = {{"a.txt", "1 abc\r\n"}},
         .names = {"a.txt"},
         .sFind = "abc",
         .nLogMode = 1,
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a.txt\nhit a.txt 3\nstatus 1\nstatus 1\n"
                       "status 1\ncontrols on\n",
         .log = "find      A    B    C  \\r\\n"
                "found    <dir>/base/a.txt 0000003:   a    b    c  <0D> <0A> \\r\\n"},
        {.what = "Cancel at a yield stops the run behind the file in hand",
         .files = {{"a", "xx"}, {"b", "x"}},
         .names = {"a", "b"},
         .sFind = "x",
         .onEvent = [](const std::string& line, RecordingHost& host) {
             if (line == "hit a 1")
                 host.bCancel = true;
         },
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\nhit a 1\nstatus 1\ncontrols on\n"},
    };
    for (const RunCase& c : cases)
        checkcase(c);
}

TEST(RunReplace, RewritesFilesWithHits)
{
    const std::vector<RunCase> cases = {
        {.what = "longer replacement, overlapping hits replaced from the left",
         .files = {{"a", "AAAA-A"}, {"b", "none"}},
         .names = {"a", "b"},
         .sFind = "aa",
         .sReplace = "xyz",
         .bReplace = true,
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\nhit a 1\nstatus 1\nhit a 3\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000008*\n"
                       "status <dir>/base/b\nstatus 0\n"
                       "status 2\ncontrols on\n",
         .after = {{"a", "xyzxyz-A"}}},
        {.what = "the empty replacement deletes, and a hit on the last bytes",
         .files = {{"a", "abcab"}},
         .names = {"a"},
         .sFind = "ab",
         .sReplace = "",
         .bReplace = true,
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\nhit a 1\nstatus 1\nhit a 4\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000001*\n"
                       "status 2\ncontrols on\n",
         .after = {{"a", "c"}}},
        {.what = "a replacement holding the pattern doesn't loop",
         .files = {{"a", "%x%"}},
         .names = {"a"},
         .sFind = "<25>",
         .sReplace = "<25><25>",
         .bReplace = true,
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\nhit a 1\nstatus 1\nhit a 3\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000005*\n"
                       "status 2\ncontrols on\n",
         .after = {{"a", "%%x%%"}}},
        {.what = "asking: Yes, No, and Cancel at the third hit leaves the file as it was",
         .files = {{"a", "1 aXaXa"}, {"z", "a"}},
         .names = {"a", "z"},
         .sFind = "a",
         .sReplace = "B",
         .bReplace = true,
         .bAsk = true,
         .answers = {Answer::Yes, Answer::No, Answer::Cancel},
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\n"
                       "question <dir>/base/a byte 3 | Replace \\r\\n1 \\r\\n\\r\\nA? XaXa\n"
                       "hit a 3\nstatus 1\n"
                       "question <dir>/base/a byte 5 | Replace \\r\\nX\\r\\n\\r\\nA? Xa\n"
                       "hit a 5\nstatus 2\n"
                       "question <dir>/base/a byte 7 | Replace \\r\\nX\\r\\n\\r\\nA? \n"
                       "hit a 7\nstatus 3\ncontrols on\n"},
        {.what = "No to every question still rewrites, with the same bytes",
         .files = {{"a", "aa"}},
         .names = {"a"},
         .sFind = "a",
         .sReplace = "bb",
         .bReplace = true,
         .bAsk = true,
         .answers = {Answer::No, Answer::No},
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\n"
                       "question <dir>/base/a byte 1 | Replace \\r\\n\\r\\n\\r\\nA? a\n"
                       "hit a 1\nstatus 1\n"
                       "question <dir>/base/a byte 2 | Replace \\r\\n\\r\\n\\r\\nA? \n"
                       "hit a 2\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000002*\n"
                       "status 2\ncontrols on\n"},
        {.what = "log of a replace: head lines, found before replaced, none for a declined hit",
         .files = {{"a", "ab ab"}},
         .names = {"a"},
         .sFind = "ab",
         .sReplace = "Z",
         .bReplace = true,
         .bAsk = true,
         .nLogMode = 3,
         .answers = {Answer::Yes, Answer::No},
         .transcript = "clearhits\nstatus none found\ncontrols off\n"
                       "status <dir>/base/a\n"
                       "question <dir>/base/a byte 1 | Replace \\r\\n\\r\\n\\r\\nAB?  ab\n"
                       "hit a 1\nstatus 1\n"
                       "question <dir>/base/a byte 4 | Replace \\r\\n \\r\\n\\r\\nAB? \n"
                       "hit a 4\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000004*\n"
                       "status 2\ncontrols on\n",
         .after = {{"a", "Z ab"}},
         .log = "find      A    B  \\r\\n"
                "replace with     Z  \\r\\n"
                "found    <dir>/base/a 0000001:   a    b  <20>   a    b  \\r\\n"
                "replaced <dir>/base/a 0000001:   Z  <20>   a    b  \\r\\n"
                "found    <dir>/base/a 0000004:   a    b  \\r\\n"},
    };
    for (const RunCase& c : cases)
        checkcase(c);
}

TEST(RunReplace, AFileChangedDuringTheRunIsNotOverwritten)
{
    test::TempDir dir;
    std::filesystem::path target;
    const RunCase c {
        .what = "grows after its hit",
        .files = {{"a", "xax"}, {"b", "a"}},
        .names = {"a", "b"},
        .sFind = "a",
        .sReplace = "b",
        .bReplace = true,
        .onEvent = [&target](const std::string& line, RecordingHost&) {
            if (line == "hit a 2")
                appendto(target, "more");
        },
    };
    target = dir.path() / "base" / "a";
    const RunOutcome o = runcase(c, dir);
    EXPECT_EQ(o.transcript, "clearhits\nstatus none found\ncontrols off\n"
                            "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n"
                            "message Cannot replace! ERROR in file lengths for <dir>/base/a\n"
                            "status <dir>/base/b\nhit b 1\nstatus 1\nstatus 1\n"
                            "line 1 b\\t00000001*\n"
                            "status 2\ncontrols on\n");
    EXPECT_EQ(o.contents.at("a"), "xaxmore");
    EXPECT_EQ(o.contents.at("b"), "b");
    EXPECT_TRUE(o.result.failures);
    EXPECT_EQ(o.result.filesRewritten, 1);
}

TEST(RunReplace, AFileTheUserMayNotWriteKeepsItsContent)
{
    test::TempDir dir;
    const auto base = dir.path() / "base";
    const auto work = dir.path() / "work";
    dir.write("base/a", "xax");
    std::filesystem::create_directories(work);
    // The unprivileged user may read the file but write neither it nor its
    // directory; the work directory is open to it.
    ::chmod(dir.path().c_str(), 0755);
    ::chmod(base.c_str(), 0755);
    ::chmod((base / "a").c_str(), 0644);
    ::chmod(work.c_str(), 0777);
    if (!test::runningasroot())
        ::chmod((base / "a").c_str(), 0444);
    const std::string got = test::rununprivileged([&] {
        RunRequest r;
        r.sFind = "a";
        r.sReplaceText = "b";
        r.bReplace = true;
        r.sScratch = work / "brindlex.tmp";
        r.baseDir = base.string() + "/";
        r.lines = {list1line("a", 3)};
        RecordingHost host(dir.path().string() + "/", {});
        findinfiles(r, host);
        return host.transcript;
    });
    EXPECT_EQ(got, "clearhits\nstatus none found\ncontrols off\n"
                   "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n"
                   "line 0 a\\t00000003*\n"
                   "message Permission denied copying <dir>/work/brindlex.tmp to <dir>/base/a\n"
                   "status 1\ncontrols on\n");
    EXPECT_EQ(test::readfile(base / "a"), "xax");
}

// The caption at the end counts the lines of the hit list, which holds at
// most 1000: exactly 1000 and more show as "more than 1000".
TEST(RunFind, FinalCaptionCountsListedHits)
{
    struct Case {
        int hits;
        bool bReplace;
        std::string caption;
    };
    const std::vector<Case> cases = {
        {999, false, "999"}, {1000, false, "more than 1000"}, {1001, false, "more than 1000"},
        {1001, true, "more than 1000"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.hits);
        test::TempDir dir;
        dir.write("base/a", std::string(static_cast<std::size_t>(c.hits), 'q') + "-");
        RunRequest r;
        r.sFind = "q";
        r.sReplaceText = "rr";
        r.bReplace = c.bReplace;
        r.baseDir = (dir.path() / "base").string() + "/";
        r.sScratch = dir.path() / "brindlex.tmp";
        r.lines = {list1line("a", c.hits + 1)};
        RecordingHost host(dir.path().string() + "/", {});
        host.recordHits = false;
        std::string lastStatus;
        host.onEvent = [&lastStatus](const std::string& line, RecordingHost&) {
            if (line.rfind("status ", 0) == 0)
                lastStatus = line.substr(7);
        };
        const RunResult result = findinfiles(r, host);
        EXPECT_EQ(lastStatus, c.caption);
        EXPECT_EQ(host.hitCalls, c.hits);   // every hit reaches the host
        EXPECT_EQ(result.listed, std::min<std::int64_t>(c.hits, 1000));
        if (c.bReplace) {
            EXPECT_EQ(test::readfile(dir.path() / "base" / "a"),
                      std::string(2 * static_cast<std::size_t>(c.hits), 'r') + "-");
        }
    }
}

}  // namespace
}  // namespace brindlex
