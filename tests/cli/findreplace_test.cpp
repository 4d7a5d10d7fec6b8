// brindlex-cli find / replace end to end, in temporary trees: what stdout,
// stderr and the exit status say, and what the files hold afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <chrono>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/privileges.h"
#include "support/process.h"
#include "support/tempdir.h"

extern char** environ;

namespace brindlex {
namespace {

using test::ProcessOptions;
using test::ProcessResult;
using test::runprocess;
using test::TempDir;

namespace fs = std::filesystem;

std::string replaceall(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// A tree with names whose List1 order differs from the walk's and from a
// plain sort of names: "sub-d.txt" < "sub/c.txt" and "a.txt" < "a.txt2".
void maketree(const TempDir& dir)
{
    const std::map<std::string, std::string> files = {
        {"base/a.txt", "one two"},     {"base/B.txt", "two"},          {"base/a.txt2", "xtwo"},
        {"base/sub/c.txt", "two two"}, {"base/sub-d.txt", "two"},      {"base/.dot.txt", "two"},
        {"base/.hid/e.txt", "two"},    {"base/sub/deep/f.txt", "two"},
    };
    for (const auto& [name, content] : files)
        dir.write(name, content);
    fs::create_symlink("a.txt", dir.path() / "base/link.txt");
    fs::create_directory_symlink("sub", dir.path() / "base/linkdir");
    ASSERT_EQ(::mkfifo((dir.path() / "base/pipe.txt").c_str(), 0644), 0);
    fs::create_directories(dir.path() / "work");
}

struct CliCase {
    const char* what;
    std::vector<std::string> args;
    std::string input;                            // stdin
    std::string out;                              // expected stdout
    std::string err;                              // expected stderr, "<dir>/" for the tree
    int status;
    std::map<std::string, std::string> after {};  // expected contents below base/
    std::string log {};                           // expected work/brindlex.log.txt, if any
};

ProcessResult runcli(const TempDir& dir, const std::vector<std::string>& args, const std::string& input = "")
{
    std::vector<std::string> argv = {BRINDLEX_CLI};
    argv.insert(argv.end(), args.begin(), args.end());
    ProcessOptions options;
    options.input = input;
    options.directory = dir.path() / "base";
    options.setenv = {{"BRINDLEX_TEMP", (dir.path() / "work").string()}};
    return runprocess(argv, options);
}

TEST(CliFindReplace, RunsOverTheTree)
{
    const std::vector<CliCase> cases = {
        {"find in the directory only, in List1 order; no FIFO, no link to a directory",
         {"find", "two", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nlink.txt\t000000005\nsub-d.txt\t000000001\n",
         "5 hits in 5 of 5 files, 0 files rewritten\n", 0},
        {"with subdirectories; dot-directories are not entered",
         {"find", "-s", "TWO", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nlink.txt\t000000005\nsub-d.txt\t000000001\n"
         "sub/c.txt\t000000001\nsub/c.txt\t000000005\nsub/deep/f.txt\t000000001\n",
         "8 hits in 7 of 7 files, 0 files rewritten\n", 0},
        {"match case finds nothing, and nothing is 1",
         {"find", "--match-case", "TWO", "*.txt"}, "", "", "0 hits in 0 of 5 files, 0 files rewritten\n", 1},
        {"replace; a link's target is replaced once, and the link stays",
         {"replace", "two", "2<0D>", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nsub-d.txt\t000000001\n",
         "4 hits in 4 of 5 files, 4 files rewritten\n", 0,
         {{".dot.txt", "2\r"}, {"B.txt", "2\r"}, {"a.txt", "one 2\r"}, {"link.txt", "one 2\r"}, {"sub-d.txt", "2\r"},
          {"a.txt2", "xtwo"}, {"sub/c.txt", "two two"}}},
        {"the log: head lines and hits, appended to the old log",
         {"replace", "--log-finds", "--log-replaces", "w", "W", "B.txt"}, "", "B.txt\t000000002\n",
         "1 hits in 1 of 1 files, 1 files rewritten\n", 0, {{"B.txt", "tWo"}},
         "old\r\nfind      W  \r\nreplace with     W  \r\nfound    <dir>/base/B.txt 0000002:   w    o  \r\n"},
        {"files from stdin; one is gone: its message, and it isn't made",
         {"find", "--files-from", "-", "two"}, "B.txt\ngone.txt\n", "B.txt\t000000001\n",
         "Error opening gone.txt: No such file or directory\n1 hits in 1 of 2 files, 0 files rewritten\n", 2,
         {{"gone.txt", "<missing>"}}},
        {"bad usage: no mask", {"find", "two"}, "", "", "", 2},
    };
    for (const CliCase& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        maketree(dir);
        dir.write("work/brindlex.log.txt", "old\r\n");
        const ProcessResult r = runcli(dir, c.args, c.input);
        ASSERT_EQ(r.failure, "");
        EXPECT_EQ(r.exitstatus, c.status);
        EXPECT_EQ(r.out, c.out);
        if (c.status != 2 || !c.err.empty()) {
            EXPECT_EQ(replaceall(r.err, dir.path().string() + "/", "<dir>/"), c.err);
        } else {
            EXPECT_NE(r.err, "");   // usage errors say something
        }
        for (const auto& [name, content] : c.after) {
            const fs::path p = dir.path() / "base" / name;
            EXPECT_EQ(fs::exists(p) ? test::readfile(p) : "<missing>", content) << name;
        }
        EXPECT_TRUE(fs::is_symlink(dir.path() / "base/link.txt"));
        EXPECT_EQ(fs::read_symlink(dir.path() / "base/link.txt"), "a.txt");
        const std::string log = replaceall(test::readfile(dir.path() / "work/brindlex.log.txt"),
                                           dir.path().string() + "/", "<dir>/");
        EXPECT_EQ(log, c.log.empty() ? "old\r\n" : c.log);
    }
}

// As an ordinary user (nobody when the tests run as root): a file that may
// not be read is reported and passed over; one that may not be written keeps
// its content and gets the copy failure message.
TEST(CliFindReplace, FilesTheUserMayNotTouch)
{
    TempDir dir;
    dir.write("base/locked", "two");
    dir.write("base/readonly", "two");
    dir.write("base/writable", "two");
    fs::create_directories(dir.path() / "shared");
    ::chmod((dir.path() / "shared").c_str(), 0777);
    ::chmod((dir.path() / "base").c_str(), 0777);
    const uid_t uid = test::unprivilegeduid();
    const gid_t gid = test::unprivilegedgid();
    ASSERT_EQ(::chown((dir.path() / "base/writable").c_str(), uid, gid), 0);
    ::chmod((dir.path() / "base/locked").c_str(), 0);
    ::chmod((dir.path() / "base/readonly").c_str(), 0444);

    const std::string got = test::rununprivileged([&] {
        ProcessOptions options;
        options.directory = dir.path() / "base";
        options.setenv = {{"BRINDLEX_TEMP", (dir.path() / "shared/work").string()}};
        const ProcessResult r = runprocess({BRINDLEX_CLI, "replace", "two", "2", "*"}, options);
        return r.failure + "status " + std::to_string(r.exitstatus) + "\n" + r.out + r.err;
    });
    const std::string base = dir.path().string() + "/base/";
    const std::string scratch = dir.path().string() + "/shared/work/brindlex.tmp";
    EXPECT_EQ(got, "status 2\n"
                   "readonly\t000000001\nwritable\t000000001\n"
                   "Error opening " + base + "locked: Permission denied\n"
                   "Permission denied copying " + scratch + " to " + base + "readonly\n"
                   "2 hits in 2 of 3 files, 1 files rewritten\n");
    EXPECT_EQ(test::readfile(dir.path() / "base/readonly"), "two");
    EXPECT_EQ(test::readfile(dir.path() / "base/writable"), "2");
    ::chmod((dir.path() / "base/locked").c_str(), 0644);
    EXPECT_EQ(test::readfile(dir.path() / "base/locked"), "two");
}

// Starts the CLI in `dir` with stdout and stderr going to the files named,
// without waiting for it: the caller kills it or watches it run. `extraenv`
// ("NAME=value") comes first, so it wins over the same name in the environment.
pid_t startcli(const std::vector<std::string>& args, const fs::path& dir, const std::string& out, const std::string& err,
               const std::string& extraenv = "BRINDLEX_NONE=")
{
    std::vector<std::string> strings = {BRINDLEX_CLI}, envstrings = {extraenv};
    strings.insert(strings.end(), args.begin(), args.end());
    for (char** e = environ; *e; ++e)
        envstrings.emplace_back(*e);
    std::vector<char*> argv, envp;
    for (std::string& s : strings)
        argv.push_back(s.data());
    for (std::string& s : envstrings)
        envp.push_back(s.data());
    argv.push_back(nullptr);
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addchdir_np(&actions, dir.c_str());
    pid_t pid = 0;
    const int spawned = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return spawned == 0 ? pid : -1;
}

// A replace killed at any moment leaves every file wholly old or wholly new.
TEST(CliFindReplace, KilledReplaceLeavesEveryFileOldOrNew)
{
    constexpr int kFiles = 24;
    auto content = [](int i, bool replaced) {
        std::string s;
        for (int line = 0; line < 6000; ++line)
            s += "line " + std::to_string(line) + " of file " + std::to_string(i) + (replaced ? ": NEW!!\n" : ": OLD\n");
        return s;
    };
    auto build = [&](const TempDir& dir) {
        for (int i = 0; i < kFiles; ++i)
            dir.write("base/f" + std::to_string(100 + i), content(i, false));
        fs::create_directories(dir.path() / "work");
    };
    const std::vector<std::string> args = {"replace", "-c", "OLD", "NEW!!", "*"};

    // How long an uninterrupted run takes here, to spread the kills over it.
    std::chrono::steady_clock::duration full {};
    {
        TempDir dir;
        build(dir);
        const auto start = std::chrono::steady_clock::now();
        const ProcessResult r = runcli(dir, args);
        full = std::chrono::steady_clock::now() - start;
        ASSERT_TRUE(r.exited(0)) << r.err;
        for (int i = 0; i < kFiles; ++i)
            ASSERT_EQ(test::readfile(dir.path() / ("base/f" + std::to_string(100 + i))), content(i, true));
    }

    std::mt19937_64 rng(7);
    int partly = 0;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        TempDir dir;
        build(dir);
        const pid_t pid = startcli(args, dir.path() / "base", "/dev/null", "/dev/null",
                                   "BRINDLEX_TEMP=" + (dir.path() / "work").string());
        ASSERT_GT(pid, 0);
        const auto delay = std::chrono::nanoseconds(static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(
            std::max<std::int64_t>(1, std::chrono::duration_cast<std::chrono::nanoseconds>(full).count()))));
        std::this_thread::sleep_for(delay);
        ::kill(pid, SIGKILL);
        int status = 0;
        ::waitpid(pid, &status, 0);

        int fresh = 0;
        for (int i = 0; i < kFiles; ++i) {
            const std::string now = test::readfile(dir.path() / ("base/f" + std::to_string(100 + i)));
            const bool isold = now == content(i, false);
            const bool isnew = now == content(i, true);
            EXPECT_TRUE(isold || isnew) << "f" << 100 + i << " holds " << now.size() << " bytes of neither";
            fresh += isnew;
        }
        partly += fresh > 0 && fresh < kFiles;
        std::size_t entries = 0;
        for (const auto& entry : fs::directory_iterator(dir.path() / "base"))
            entries += entry.path().filename().string()[0] != '.';
        EXPECT_EQ(entries, static_cast<std::size_t>(kFiles));
    }
    // Some kills must have come in the middle of the run, or nothing was shown.
    EXPECT_GT(partly, 0);
}

struct Usage {
    ProcessResult result;
    long peakKiB = 0;
};

long peakresidentKiB(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmHWM:", 0) == 0)
            return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

// Runs the CLI and follows the child's peak resident memory. The peak is
// read from the child itself while it runs: the rusage of a spawned child
// also counts the memory of the process that spawned it.
Usage runmeasured(const std::vector<std::string>& args, const fs::path& dir, const TempDir& outdir)
{
    Usage u;
    const std::string outpath = (outdir.path() / "stdout").string();
    const std::string errpath = (outdir.path() / "stderr").string();
    const pid_t pid = startcli(args, dir, outpath, errpath);
    if (pid < 0) {
        u.result.failure = "spawn failed";
        return u;
    }
    int status = 0;
    while (::waitpid(pid, &status, WNOHANG) == 0) {
        u.peakKiB = std::max(u.peakKiB, peakresidentKiB(pid));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    u.result.exitstatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    u.result.out = test::readfile(outpath);
    u.result.err = test::readfile(errpath);
    return u;
}

// Memory stays bounded whatever the file's size. Instrumented builds carry
// the sanitizers' own memory on top.
#if defined(__SANITIZE_ADDRESS__)
constexpr long kMaxRssKiB = 96 * 1024;
#else
constexpr long kMaxRssKiB = 32 * 1024;
#endif

TEST(CliFindReplace, FindsAndReplacesBeyondFourGigabytes)
{
    constexpr std::int64_t kSize = 5LL << 30;
    const std::int64_t at31 = 1LL << 31;   // 1-based positions
    const std::int64_t at32 = 1LL << 32;
    TempDir dir;
    const fs::path big = dir.path() / "big.bin";
    {
        const int fd = ::open(big.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(::ftruncate(fd, kSize), 0);
        ASSERT_EQ(::pwrite(fd, "NEEDLE", 6, at31 - 1), 6);
        ASSERT_EQ(::pwrite(fd, "NEEDLE", 6, at32 - 1), 6);
        ::close(fd);
    }
    TempDir outdir;
    const Usage find = runmeasured({"find", "-c", "NEEDLE", "big.bin"}, dir.path(), outdir);
    ASSERT_EQ(find.result.failure, "");
    EXPECT_EQ(find.result.exitstatus, 0);
    EXPECT_EQ(find.result.out, "big.bin\t2147483648\nbig.bin\t4294967296\n");
    EXPECT_GT(find.peakKiB, 0);
    EXPECT_LT(find.peakKiB, kMaxRssKiB);

    struct statvfs fsinfo {};
    ASSERT_EQ(::statvfs(dir.path().c_str(), &fsinfo), 0);
    const auto room = static_cast<std::int64_t>(fsinfo.f_bavail) * static_cast<std::int64_t>(fsinfo.f_frsize);
    if (room < kSize + (1LL << 30))
        GTEST_SKIP() << "the replace of the 5 GiB file needs " << (kSize >> 20) + 1024 << " MiB free on "
                     << dir.path() << ", which has " << (room >> 20) << " MiB";

    const Usage replace = runmeasured({"replace", "-c", "NEEDLE", "pin", "big.bin"}, dir.path(), outdir);
    EXPECT_EQ(replace.result.exitstatus, 0) << replace.result.err;
    EXPECT_EQ(replace.result.out, "big.bin\t2147483648\nbig.bin\t4294967296\n");
    EXPECT_LT(replace.peakKiB, kMaxRssKiB);
    EXPECT_EQ(static_cast<std::int64_t>(fs::file_size(big)), kSize - 6);
    const int fd = ::open(big.c_str(), O_RDONLY);
    ASSERT_GE(fd, 0);
    char around[8] = {};
    ASSERT_EQ(::pread(fd, around, 5, at31 - 2), 5);
    EXPECT_EQ(std::string(around, 5), std::string("\0pin\0", 5));
    ASSERT_EQ(::pread(fd, around, 5, at32 - 1 - 3 - 1), 5);   // the first hit took 3 bytes away
    EXPECT_EQ(std::string(around, 5), std::string("\0pin\0", 5));
    ::close(fd);
}

}  // namespace
}  // namespace brindlex
