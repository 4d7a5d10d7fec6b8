// A run over a file list, seen through a host that writes every call down:
// each case compares that transcript, the files afterwards and the log; the
// same run read ahead on worker threads; the run log as a file.
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/batch/readahead.h"
#include "engine/batch/run.h"
#include "engine/batch/runlog.h"
#include "engine/core/threads.h"
#include "engine/files/files.h"
#include "support/privileges.h"
#include "support/recordinghost.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

// Control bytes show as \r \n \t; the temporary directory as "<dir>/".
std::string shown(const std::string& text, const test::TempDir& dir)
{
    std::string out;
    for (char c : dir.shown(text))
        out += c == '\r' ? "\\r" : c == '\n' ? "\\n" : c == '\t' ? "\\t" : std::string(1, c);
    return out;
}

// A case may act at a moment of the run, after the line is recorded.
using OnEvent = std::function<void(const std::string& line, const std::filesystem::path& base)>;

struct RunCase {
    const char* what {};
    std::map<std::string, std::string> files {};    // name below the base dir -> content
    std::vector<std::string> names {};              // the list, in its order: real names
    std::map<std::string, std::string> links {};    // symbolic link -> its target, below the base dir
    std::string sFind {}, sReplace {};
    bool bReplace = false, bMatchCase = false, bAsk = false;
    int nLogMode = 0;
    std::vector<Answer> answers {};
    OnEvent onEvent {};
    std::string transcript {};                      // expected, behind the common start
    std::map<std::string, std::string> after {};    // expected contents; unnamed files keep theirs
    std::string log {};                             // expected log, "<dir>/" for the directory
};

const std::string kStart = "clearhits\nstatus none found\ncontrols off\n";

TEST(Run, OneCasePerBehaviour)
{
    // Long enough to be read ahead on threads of its own, with hits at both
    // ends; the first hit cuts it to 1000 bytes.
    const std::string kLong = "xax" + std::string(17 << 20, 'x') + "a";
    const OnEvent cutshort = [](const std::string& line, const std::filesystem::path& base) {
        if (line == "hit a 2")
            std::filesystem::resize_file(base / "a", 1000);
    };
    const std::string kChanged = "message Cannot replace! ERROR in file lengths for <dir>/base/a"
                                 " | <dir>/base/a: File changed by another program since it was read\n";
    const RunCase cases[] = {
        {.what = "an empty find text only clears", .files = {{"a", "abc"}}, .names = {"a"}, .sFind = ""},
        {.what = "an empty replacement deletes; a code in the pattern makes it match case",
         .files = {{"a", "ab\rAB\r"}}, .names = {"a"}, .sFind = "AB<0D>", .sReplace = "", .bReplace = true,
         .transcript = "status <dir>/base/a\nhit a 4\nstatus 1\nstatus 1\nline 0 a\\t00000003*\nstatus 1\ncontrols on\n",
         .after = {{"a", "ab\r"}}},
        // The question's text is the scanner's, checked against the block model.
        {.what = "asking: Yes and No rewrite a; Cancel leaves b as it was and c unscanned",
         .files = {{"a", "qq-"}, {"b", "1q2q"}, {"c", "q"}}, .names = {"a", "b", "c"},
         .sFind = "q", .sReplace = "R", .bReplace = true, .bAsk = true,
         .answers = {Answer::Yes, Answer::No, Answer::Yes, Answer::Cancel},
         .transcript = "status <dir>/base/a\nquestion <dir>/base/a byte 1|Replace \\r\\n\\r\\n\\r\\nQ? q-\nhit a 1\nstatus 1\n"
                       "question <dir>/base/a byte 2|Replace \\r\\n\\r\\n\\r\\nQ? -\nhit a 2\nstatus 2\nstatus 2\n"
                       "line 0 a\\t00000003*\nstatus <dir>/base/b\n"
                       "question <dir>/base/b byte 2|Replace \\r\\n1\\r\\n\\r\\nQ? 2q\nhit b 2\nstatus 1\n"
                       "question <dir>/base/b byte 4|Replace \\r\\n2\\r\\n\\r\\nQ? \nhit b 4\nstatus 2\ncontrols on\n",
         .after = {{"a", "Rq-"}}},
        {.what = "a file that grows after its hit fails the length check and keeps its bytes",
         .files = {{"a", "xax"}, {"b", "a"}}, .names = {"a", "b"}, .sFind = "a", .sReplace = "b", .bReplace = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line == "hit a 2")
                 std::ofstream(base / "a", std::ios::app) << "more";
         },
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n" + kChanged +
                       "status <dir>/base/b\nhit b 1\nstatus 1\nstatus 1\nline 1 b\\t00000001*\nstatus 2\ncontrols on\n",
         .after = {{"a", "xaxmore"}, {"b", "b"}}},
        {.what = "a long file cut short under a find is reported",
         .files = {{"a", kLong}}, .names = {"a"}, .sFind = "a", .onEvent = cutshort,
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\nmessage Error reading <dir>/base/a:\\r\\n"
                       "The file became shorter while it was read\nstatus 1\ncontrols on\n",
         .after = {{"a", kLong.substr(0, 1000)}}},
        {.what = "a long file cut short under a replace keeps the bytes left",
         .files = {{"a", kLong}}, .names = {"a"}, .sFind = "a", .sReplace = "b", .bReplace = true, .onEvent = cutshort,
         .transcript = "status <dir>/base/a\nhit a 2\nstatus 1\nstatus 1\n" + kChanged + "status 1\ncontrols on\n",
         .after = {{"a", kLong.substr(0, 1000)}}},
        {.what = "a file renamed over the one read before the first byte is written keeps its content",
         .files = {{"a", "HIT"}, {"o", "HAT"}}, .names = {"a"}, .sFind = "hit", .sReplace = "HOT", .bReplace = true,
         .bAsk = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line.starts_with("question"))
                 std::filesystem::rename(base / "o", base / "a");
         },
         .transcript = "status <dir>/base/a\nquestion <dir>/base/a byte 1|Replace \\r\\n\\r\\n\\r\\nHIT? \n"
                       "hit a 1\nstatus 1\nstatus 1\n" + kChanged + "status 1\ncontrols on\n",
         .after = {{"a", "HAT"}, {"o", ""}}},
        {.what = "real names are taken as they are; a file is rewritten once whichever name leads to it",
         .files = {{" lead", "hit"}, {"x\ty", "hit"}, {"x", "-"}, {"t", "xhitx"}},
         .names = {" lead", "l1", "l2", "t", "x", "x\ty"}, .links = {{"l1", "t"}, {"l2", "t"}},
         .sFind = "hit", .sReplace = "hitx", .bReplace = true,
         .transcript = "status <dir>/base/ lead\nhit  lead 1\nstatus 1\nstatus 1\nline 0  lead\\t00000004*\n"
                       "status <dir>/base/l1\nhit l1 2\nstatus 1\nstatus 1\nline 1 l1\\t00000006*\n"
                       "status <dir>/base/l2\nnote <dir>/base/l2: the same file as <dir>/base/l1, rewritten once\n"
                       "status <dir>/base/t\nnote <dir>/base/t: the same file as <dir>/base/l1, rewritten once\n"
                       "status <dir>/base/x\nstatus 0\n"
                       "status <dir>/base/x\\ty\nhit x\\ty 1\nstatus 1\nstatus 1\nline 5 x\\ty\\t00000004*\n"
                       "status 3\ncontrols on\n",
         .after = {{" lead", "hitx"}, {"x\ty", "hitx"}, {"t", "xhitxx"}}},
        {.what = "a directory swapped for a link after the listing is refused, never followed",
         .files = {{"a", "hit"}, {"sub/s", "hit"}, {"victim/s", "hit"}}, .names = {"a", "sub/s"}, .sFind = "hit",
         .sReplace = "HOT", .bReplace = true, .bMatchCase = true,
         .onEvent = [](const std::string& line, const std::filesystem::path& base) {
             if (line == "hit a 1") {
                 std::filesystem::rename(base / "sub", base / "sub.old");
                 std::filesystem::create_directory_symlink(base / "victim", base / "sub");
             }
         },
         .transcript = "status <dir>/base/a\nhit a 1\nstatus 1\nstatus 1\nline 0 a\\t00000003*\n"
                       "status <dir>/base/sub/s\nmessage Error opening <dir>/base/sub/s:\\r\\n"
                       "A directory on its path is a symbolic link now: not followed\nstatus 1\ncontrols on\n",
         .after = {{"a", "HOT"}}},
    };
    for (const RunCase& c : cases) {
        SCOPED_TRACE(c.what);
        test::TempDir dir;
        const std::string dirs = dir.path().string() + "/";
        std::filesystem::create_directories(dir.path() / "base");
        for (const auto& [name, content] : c.files)
            dir.write("base/" + name, content);
        for (const auto& [name, target] : c.links)
            std::filesystem::create_symlink(target, dir.path() / "base" / name);
        std::vector<FileEntry> entries;
        for (const std::string& name : c.names)
            entries.push_back({name, 3});
        RunRequest r {.sFind = c.sFind, .sReplaceText = c.sReplace, .bReplace = c.bReplace, .bMatchCase = c.bMatchCase,
                      .bAsk = c.bAsk, .nLogMode = c.nLogMode, .sLogFile = dir.path() / "run.log",
                      .sScratch = dir.path() / "scratch", .baseDir = dirs + "base/", .files = entries,
                      .selected = {}};
        test::RecordingHost host;
        host.answers = c.answers;
        host.show = [&](const std::string& line) { return shown(line, dir); };
        if (c.onEvent)
            host.onEvent = [&](const std::string& line) { c.onEvent(line, dir.path() / "base"); };
        findinfiles(r, host);
        EXPECT_EQ(host.transcript, c.sFind.empty() ? "clearhits\nstatus none found\n" : kStart + c.transcript);
        for (const auto& [name, content] : c.files) {
            const auto it = c.after.find(name);
            EXPECT_EQ(test::readfile(dir.path() / "base" / name), it == c.after.end() ? content : it->second) << name;
        }
        EXPECT_EQ(std::filesystem::exists(r.sLogFile) ? shown(test::readfile(r.sLogFile), dir) : "", c.log);
    }
}

// A run that reads ahead on worker threads against the same run on one
// thread: over many small files, files that can't be opened and a file with
// more hits than a worker keeps, the host must see the same calls in the
// same order, the files must end the same, and a Cancel must stop both at
// the same hit.

struct Outcome {
    std::string transcript {};
    RunResult result;
    std::vector<std::string> contents {};
};

Outcome runover(const test::TempDir& temp, bool bReplace, bool bReadAhead, std::int64_t cancelAtHit)
{
    const std::filesystem::path base = temp.path() / "base";
    std::filesystem::remove_all(base);
    // More files than the workers may scan ahead of the run, of up to 3000
    // bytes over a few letters, so that "ab" is found by chance in every
    // other one, one file of more hits than a worker keeps, and names that
    // can't be opened: one gone, one a directory.
    std::mt19937_64 rng(2026);
    std::vector<FileEntry> entries;
    for (int i = 0; i < static_cast<int>(ReadAhead::kAhead) + 64; ++i) {
        std::string content(rng() % 3000, '\0');
        for (char& c : content)
            c = "aAxy\rb"[rng() % (i % 2 ? 6 : 5)];
        entries.push_back({"f" + std::to_string(1000 + i), 1});
        temp.write("base/" + entries.back().name, content);
    }
    std::string many;
    for (std::size_t i = 0; i < ReadAhead::kAheadHits + 10; ++i)
        many += "xab";
    temp.write("base/many", many);
    std::filesystem::create_directory(base / "dir");
    entries.insert(entries.begin() + 3, {"many", 1});
    entries.insert(entries.begin() + 5, {"gone", 1});
    entries.insert(entries.begin() + 9, {"dir", 1});
    const RunRequest request {.sFind = "ab", .sReplaceText = "%0D%0A", .bReplace = bReplace, .sLogFile = {},
                              .sScratch = temp.path() / "brindlex.tmp", .baseDir = base.string() + "/", .files = entries,
                              .selected = {}, .bReadAhead = bReadAhead};
    test::RecordingHost host;
    host.cancelAtHit = cancelAtHit;
    Outcome out {.result = findinfiles(request, host)};
    out.transcript = host.transcript;
    for (const FileEntry& entry : entries)
        out.contents.push_back(std::filesystem::is_regular_file(base / entry.name) ? test::readfile(base / entry.name) : "-");
    return out;
}

TEST(ReadAhead, TellsTheHostWhatTheSerialRunTells)
{
    test::TempDir dir;
    // Cancelled never, or behind the file of many hits, in the files the workers have done.
    for (const std::int64_t cancelAtHit : {std::int64_t{-1}, static_cast<std::int64_t>(ReadAhead::kAheadHits) + 500}) {
        for (const bool bReplace : {false, true}) {
            SCOPED_TRACE((bReplace ? "replace" : "find") + std::string(cancelAtHit < 0 ? "" : " cancelled"));
            const Outcome serial = runover(dir, bReplace, false, cancelAtHit);
            const Outcome ahead = runover(dir, bReplace, true, cancelAtHit);
            EXPECT_EQ(ahead.transcript, serial.transcript);
            EXPECT_EQ(ahead.contents, serial.contents);
            EXPECT_EQ(ahead.result.hits, serial.result.hits);
            EXPECT_EQ(ahead.result.cancelled, cancelAtHit >= 0);
            EXPECT_EQ(ahead.result.failures, serial.result.failures);
            // The rows must reach what they are about.
            EXPECT_GT(serial.result.hits, static_cast<std::int64_t>(ReadAhead::kAheadHits));
            EXPECT_NE(serial.transcript.find("message Error opening"), std::string::npos);
        }
    }
}

// A worker is placed on a core to begin with, but it must not stay bound to
// it (a busy core would hold it), and a Ctrl+C must reach the run's thread,
// never a worker.
TEST(Workers, RunOnEveryCoreOfTheProcessWithSigintBlocked)
{
    cpu_set_t process;
    ASSERT_EQ(::sched_getaffinity(0, sizeof process, &process), 0);
    std::atomic<int> unbound {0};
    std::vector<std::thread> workers = startworkers(3, [&] {
        cpu_set_t mine;
        sigset_t blocked;
        unbound += ::sched_getaffinity(0, sizeof mine, &mine) == 0 && CPU_EQUAL(&mine, &process)
            && ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked) == 0 && sigismember(&blocked, SIGINT) == 1;
    });
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_EQ(workers.size(), 3u);
    EXPECT_EQ(unbound, 3);
}

// The run log as a file; its lines are checked against the model of the
// scan (found, replaced) and by a logged run (the heads). It is appended to,
// and made anew and private when it went between two lines of a run; one
// that can't be had or written fails with its reason, and what is at the
// name (a link's target, another user's file) is left as it was.
TEST(RunLogFile, AppendsMakesAnewPrivatelyOrFailsWithItsReason)
{
    test::TempDir dir;
    dir.write("run.log", "old\r\n");
    dir.write("gone.log", "old\r\n");
    std::filesystem::create_symlink(dir.write("victim", "precious"), dir.path() / "link.log");
    ::chown(dir.write("theirs.log", "theirs").c_str(), test::unprivilegeduid(), test::unprivilegedgid());
    ::chmod((dir.path() / "theirs.log").c_str(), 0666);
    ASSERT_EQ(::mkfifo((dir.path() / "fifo.log").c_str(), 0600), 0);
    const std::string found = "found    /f 10000000:   a  \r\n";   // a position past seven digits
    // then: what is at the name afterwards ("" for no regular file).
    const struct { const char* name; int code; std::int64_t sizeLimit; std::string then; } rows[] = {
        {"run.log", 0, 0, "old\r\nfind      A  \r\n" + found}, {"gone.log", 0, 0, found},
        {"link.log", ELOOP, 0, "precious"}, {"theirs.log", EPERM, 0, "theirs"}, {"fifo.log", EINVAL, 0, ""},
        {"missing/run.log", ENOENT, 0, ""}, {"limited.log", EFBIG, 10, "find      "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        const auto path = dir.path() / row.name;
        EXPECT_EQ(test::runinchild([&] {
                      if (row.sizeLimit)
                          test::limitfilesize(row.sizeLimit);
                      RunLog log(path);
                      log.writelog("find   ", "", -1, "A");
                      if (path.filename() == "gone.log")
                          std::filesystem::remove(path);
                      log.writelog("found   ", "/f", 10000000, "a");
                      return std::to_string(log.failure().code);
                  }),
                  std::to_string(row.code));
        EXPECT_EQ(std::filesystem::is_regular_file(path) ? test::readfile(path) : "", row.then);
    }
    EXPECT_EQ(std::filesystem::status(dir.path() / "gone.log").permissions(), std::filesystem::perms(0600));
}

}  // namespace
}  // namespace brindlex
