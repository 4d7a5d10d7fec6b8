// brindlex-cli find / replace end to end, in temporary trees: what stdout,
// stderr and the exit status say, and what the files hold afterwards.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <csignal>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/privileges.h"
#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {

using test::readfile;
namespace fs = std::filesystem;

namespace {

std::string replaceall(std::string text, const std::string& from, const std::string& to)
{
    for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
    return text;
}

// Names whose List1 order differs from the walk's and from a plain sort:
// "sub-d.txt" < "sub/c.txt" and "a.txt" < "a.txt2".
void maketree(const test::TempDir& dir)
{
    for (const char* name : {"base/B.txt", "base/sub-d.txt", "base/.dot.txt", "base/.hid/e.txt", "base/sub/deep/f.txt"})
        dir.write(name, "two");
    dir.write("base/a.txt", "one two");
    dir.write("base/a.txt2", "xtwo");
    dir.write("base/sub/c.txt", "two two");
    dir.write("work/brindlex.log.txt", "old\r\n");
    fs::create_symlink("a.txt", dir.path() / "base/link.txt");
    fs::create_directory_symlink("sub", dir.path() / "base/linkdir");
    ASSERT_EQ(::mkfifo((dir.path() / "base/pipe.txt").c_str(), 0644), 0);
}

TEST(CliFindReplace, HitLinesStatusFilesAndLog)
{
    const struct {
        const char* what;
        std::vector<std::string> args;
        std::string input, out, err;                 // err: "<dir>/" for the tree
        int status;
        std::map<std::string, std::string> after {};  // below base/
        std::string log = "old\r\n";
        bool interrupt = false;
    } rows[] = {
        {"List1 order with subdirectories; no FIFO, no link to a directory, no dot directory",
         {"find", "-s", "TWO", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nlink.txt\t000000005\nsub-d.txt\t000000001\n"
         "sub/c.txt\t000000001\nsub/c.txt\t000000005\nsub/deep/f.txt\t000000001\n",
         "8 hits in 7 of 7 files, 0 files rewritten\n", 0},
        {"no hit is 1", {"find", "--match-case", "TWO", "*.txt"}, "", "", "0 hits in 0 of 5 files, 0 files rewritten\n", 1},
        {"a link's target is replaced once, and the link stays", {"replace", "two", "2<0D>", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nsub-d.txt\t000000001\n",
         "4 hits in 4 of 5 files, 4 files rewritten\n", 0,
         {{"B.txt", "2\r"}, {"a.txt", "one 2\r"}, {"link.txt", "one 2\r"}, {"a.txt2", "xtwo"}, {"sub/c.txt", "two two"}}},
        {"the log: head lines and hits, appended", {"replace", "--log-finds", "--log-replaces", "w", "W", "B.txt"}, "",
         "B.txt\t000000002\n", "1 hits in 1 of 1 files, 1 files rewritten\n", 0, {{"B.txt", "tWo"}},
         "old\r\nfind      W  \r\nreplace with     W  \r\nfound    <dir>/base/B.txt 0000002:   w    o  \r\n"},
        // As the window's Cancel: the hits of the file scanned are listed, and it is not rewritten.
        {"an interrupt cancels before the first rewrite", {"replace", "--files-from", "-", "two", "2"}, "B.txt\n",
         "B.txt\t000000001\n", "1 hits in 1 of 1 files, 0 files rewritten\n", 130, {{"B.txt", "two"}}, "old\r\n", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        maketree(dir);
        const CliResult r = runcli(row.args, dir.path() / "base", dir.path() / "work", row.input, row.interrupt);
        ASSERT_EQ(r.failure, "");
        EXPECT_EQ(r.exitstatus, row.status);
        EXPECT_EQ(r.out, row.out);
        const std::string root = dir.path().string() + "/";
        EXPECT_EQ(replaceall(r.err, root, "<dir>/"), row.err);
        for (const auto& [name, content] : row.after) {
            const fs::path p = dir.path() / "base" / name;
            EXPECT_EQ(fs::exists(p) ? readfile(p) : "<missing>", content) << name;
        }
        EXPECT_EQ(fs::read_symlink(dir.path() / "base/link.txt"), "a.txt");
        EXPECT_EQ(replaceall(readfile(dir.path() / "work/brindlex.log.txt"), root, "<dir>/"), row.log);
    }
}

// As an ordinary user (nobody under root): a file that may not be read is
// reported and passed over; one that may not be written keeps its content
// and gets the copy failure message.
TEST(CliFindReplace, FilesTheUserMayNotTouch)
{
    test::TempDir dir;
    const fs::path base = dir.path() / "base";
    const fs::path locked = dir.write("base/locked", "two"), readonly = dir.write("base/readonly", "two");
    ASSERT_EQ(::chown(dir.write("base/writable", "two").c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
    // The work directory is the ordinary user's own, as it would make it.
    const fs::path work = dir.path() / "shared/work";
    fs::create_directories(work);
    ASSERT_EQ(::chown(work.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
    for (const auto& [path, mode] : {std::pair{work, 0700}, {base, 0777}, {locked, 0}, {readonly, 0444}})
        ::chmod(path.c_str(), static_cast<mode_t>(mode));
    const std::string got = test::rununprivileged([&] {
        const CliResult r = runcli({"replace", "two", "2", "*"}, base, work);
        return r.failure + "status " + std::to_string(r.exitstatus) + "\n" + r.out + r.err;
    });
    EXPECT_EQ(got, "status 2\nreadonly\t000000001\nwritable\t000000001\nError opening " + locked.string() +
                       ": Permission denied\nPermission denied copying " + dir.path().string() +
                       "/shared/work/brindlex.tmp to " + readonly.string() + "\n2 hits in 2 of 3 files, 1 files rewritten\n");
    EXPECT_EQ(readfile(readonly), "two");
    EXPECT_EQ(readfile(base / "writable"), "2");
}

// A full disk (a tiny tmpfs in a mount namespace of a child's own, else a
// file size limit): the message, then the reason on a line of its own.
TEST(CliFindReplace, FullDiskGivesTheReason)
{
    test::TempDir dir;
    const fs::path mnt = dir.path() / "mnt";
    fs::create_directories(mnt);
    fs::create_directories(dir.path() / "work");
    const std::string original = "a" + std::string(40000, '-');
    const std::string seen = test::runinchild([&]() -> std::string {
        const bool tmpfs = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
            && ::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=128k") == 0;
        std::ofstream(mnt / "f", std::ios::binary) << original;
        if (!tmpfs) {
            ::signal(SIGXFSZ, SIG_IGN);
            rlimit limit {60000, 60000};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        const CliResult r = runcli({"replace", "a", std::string(100000, 'b'), "f"}, mnt, dir.path() / "work");
        const std::string reason = tmpfs ? std::strerror(ENOSPC) : std::strerror(EFBIG);
        const std::string file = (mnt / "f").string();
        const std::string expected = "Cannot replace! ERROR in file lengths for " + file + "\nbrindlex-cli: " + file +
                                     ": " + reason + "\n1 hits in 1 of 1 files, 0 files rewritten\n";
        return r.failure + std::to_string(r.exitstatus) + (r.err == expected ? "" : " " + r.err)
            + (readfile(mnt / "f") == original ? "" : " CHANGED");
    });
    EXPECT_EQ(seen, "2");
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
    std::chrono::steady_clock::duration full {};   // an uninterrupted run, to spread the kills over
    std::mt19937_64 rng(7);
    int partly = 0;
    for (int round = -1; round < 12; ++round) {
        SCOPED_TRACE(round);
        test::TempDir dir;
        for (int i = 0; i < kFiles; ++i)
            dir.write("base/f" + std::to_string(100 + i), content(i, false));
        fs::create_directories(dir.path() / "work");
        const auto start = std::chrono::steady_clock::now();
        const pid_t pid = startcli({"replace", "-c", "OLD", "NEW!!", "*"}, dir.path() / "base", dir.path() / "work", 0);
        ASSERT_GT(pid, 0);
        if (round >= 0) {
            std::this_thread::sleep_for(std::chrono::nanoseconds(rng() % static_cast<std::uint64_t>(std::max<std::int64_t>(
                1, std::chrono::duration_cast<std::chrono::nanoseconds>(full).count()))));
            ::kill(pid, SIGKILL);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        if (round < 0)
            full = std::chrono::steady_clock::now() - start;
        ASSERT_TRUE(round >= 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
        int fresh = 0;
        for (int i = 0; i < kFiles; ++i) {
            const std::string now = readfile(dir.path() / ("base/f" + std::to_string(100 + i)));
            EXPECT_TRUE(now == content(i, false) || now == content(i, true)) << "f" << 100 + i << ": " << now.size() << " bytes";
            fresh += now == content(i, true);
        }
        ASSERT_TRUE(round >= 0 || fresh == kFiles);
        partly += fresh > 0 && fresh < kFiles;
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path() / "base"), fs::directory_iterator()), kFiles);
    }
    EXPECT_GT(partly, 0) << "no kill came in the middle of a run";
}

// Memory stays bounded whatever the file's size; the sanitizers carry their own.
#if defined(__SANITIZE_ADDRESS__)
constexpr unsigned long long kMaxRssKiB = 96 * 1024;
#else
constexpr unsigned long long kMaxRssKiB = 32 * 1024;
#endif

TEST(CliFindReplace, FindsAndReplacesBeyondFourGigabytes)
{
    constexpr std::int64_t kSize = 5LL << 30, at31 = 1LL << 31, at32 = 1LL << 32;   // 1-based positions
    test::TempDir dir;
    const fs::path big = dir.path() / "big.bin";
    const int fd = ::open(big.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(::ftruncate(fd, kSize), 0);
    ASSERT_EQ(::pwrite(fd, "NEEDLE", 6, at31 - 1), 6);
    ASSERT_EQ(::pwrite(fd, "NEEDLE", 6, at32 - 1), 6);
    ::close(fd);
    for (const std::vector<std::string>& args : {std::vector<std::string>{"find", "-c", "NEEDLE", "big.bin"},
                                                 {"replace", "-c", "NEEDLE", "pin", "big.bin"}}) {
        SCOPED_TRACE(args[0]);
        struct statvfs room {};
        ASSERT_EQ(::statvfs(dir.path().c_str(), &room), 0);
        if (args[0] == "replace" && static_cast<std::int64_t>(room.f_bavail * room.f_frsize) < kSize + (1LL << 30))
            GTEST_SKIP() << "the replace of the 5 GiB file needs 6 GiB free on " << dir.path();
        // The peak is read from the child while it runs: a spawned child's
        // rusage also counts the memory of its parent.
        unsigned long long peak = 0;
        const pid_t pid = startcli(args, dir.path(), dir.path(), 0);
        int status = 0;
        for (; ::waitpid(pid, &status, WNOHANG) == 0; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
            // Until its exec the child is a copy of this test process, whose
            // memory is not the command's.
            if (readfile(fs::path("/proc") / std::to_string(pid) / "comm") == "brindlex-cli\n")
                peak = std::max(peak, procstatus(pid, "VmHWM", 10));
        }
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readfile(dir.path() / "cli.err");
        EXPECT_EQ(readfile(dir.path() / "cli.out"), "big.bin\t2147483648\nbig.bin\t4294967296\n");
        EXPECT_GT(peak, 0u);
        EXPECT_LT(peak, kMaxRssKiB);
    }
    EXPECT_EQ(static_cast<std::int64_t>(fs::file_size(big)), kSize - 6);
    std::ifstream file(big, std::ios::binary);
    std::string around(5, 'x');
    for (const std::int64_t at : {at31 - 2, at32 - 1 - 3 - 1}) {   // the first hit took 3 bytes away
        file.seekg(at).read(around.data(), 5);
        EXPECT_EQ(around, std::string("\0pin\0", 5)) << at;
    }
}

}  // namespace
}  // namespace brindlex::clitest
