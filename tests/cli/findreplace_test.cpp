// brindlex-cli find / replace end to end, in temporary trees: what stdout,
// stderr and the exit status say, and what the files hold afterwards, under
// a kill too; the progress line on a terminal; and a page saved beyond 4 GiB.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cstring>
#include <csignal>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <pty.h>
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
using namespace std::string_literals;
namespace fs = std::filesystem;

namespace {

TEST(CliFindReplace, HitLinesMessagesStatusFilesAndLog)
{
    const struct {
        const char* what;
        std::vector<std::string> args;
        std::string input, out;
        std::optional<std::string> err;              // "<dir>/" for the tree; none: not compared
        int status;
        std::map<std::string, std::string> after {};  // below base/
        std::string log = "old\r\n";
        bool interrupt = false;
    } rows[] = {
        {"List1 order with subdirectories; no FIFO, no link to a directory, no dot directory",
         {"find", "-s", "TWO", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nlink.txt\t000000005\nsub-d.txt\t000000001\n"
         "sub/c.txt\t000000001\nsub/c.txt\t000000005\nsub/deep/f.txt\t000000001\n",
         "8 hits in 7 of 7 files\n", 0},
        {"no hit is 1", {"find", "--match-case", "TWO", "*.txt"}, "", "", "0 hits in 0 of 5 files\n", 1},
        {"a link's target is replaced once, and the link stays", {"replace", "two", "2<0D>", "*.txt"}, "",
         ".dot.txt\t000000001\nB.txt\t000000001\na.txt\t000000005\nsub-d.txt\t000000001\n",
         "brindlex-cli: <dir>/base/link.txt: the same file as <dir>/base/a.txt, rewritten once\n"
         "4 hits in 4 of 5 files, 4 files rewritten\n", 0,
         {{"B.txt", "2\r"}, {"a.txt", "one 2\r"}, {"link.txt", "one 2\r"}, {"a.txt2", "xtwo"}, {"sub/c.txt", "two two"}}},
        {"the log: head lines and hits, appended", {"replace", "--log-finds", "--log-replaces", "w", "W", "B.txt"}, "",
         "B.txt\t000000002\n", "1 hit in 1 of 1 file, 1 file rewritten\n", 0, {{"B.txt", "tWo"}},
         "old\r\nfind      W  \r\nreplace with     W  \r\nfound    <dir>/base/B.txt 0000002:   w    o  \r\n"},
        {"a log at a link is never followed: told, and the status is 2; --opt=value as well",
         {"find", "--log-finds", "--log=link.txt", "w", "B.txt"}, "", "B.txt\t000000002\n",
         "Error writing log link.txt: Too many levels of symbolic links\n1 hit in 1 of 1 file\n", 2, {{"a.txt", "one two"}}},
        // As the window's Cancel: the hits of the file scanned are listed, and it is not rewritten.
        {"an interrupt cancels before the first rewrite", {"replace", "--files-from", "-", "two", "2"}, "B.txt\n",
         "B.txt\t000000001\n", "1 hit in 1 of 1 file, 0 files rewritten, interrupted\n", 130, {{"B.txt", "two"}}, "old\r\n", true},
        // A dry run lists the hits of the replace, which restarts behind a hit.
        {"a dry run: 1 and 3, not 1, 2 and 3; -i is the explicit default, the last of -c and -i holds",
         {"replace", "--dry-run", "-c", "-i", "AA", "X", "a.dat"},
         "", "a.dat\t000000001\na.dat\t000000003\n",
         "would rewrite <dir>/base/a.dat\n2 hits in 1 of 1 file, 0 files rewritten\n", 0, {{"a.dat", "aaaa"}}},
        {"only a replace has a dry run", {"find", "--dry-run", "aa", "a.dat"}, "", "",
         "brindlex-cli: find: unknown option '--dry-run' (see brindlex-cli find --help)\n", 2},
        // What could not be searched is told as grep -r tells it, and changes
        // the exit status; what matches nothing is no trouble.
        {"a missing directory", {"find", "two", "nodir/*.txt"}, "", "",
         "brindlex-cli: nodir: No such file or directory\n0 hits in 0 of 0 files\n", 2},
        {"a missing file", {"find", "two", "missing.txt"}, "", "",
         "brindlex-cli: missing.txt: No such file or directory\n0 hits in 0 of 0 files\n", 2},
        {"a FIFO named without a wildcard is not searched, and said so", {"find", "two", "pipe.txt"}, "", "",
         "brindlex-cli: pipe.txt: Not a regular file\n0 hits in 0 of 0 files\n", 2},
        {"a wildcard that matches nothing", {"find", "two", "*.none"}, "", "", "0 hits in 0 of 0 files\n", 1},
        {"an empty pattern", {"replace", "", "x", "*"}, "", "", "brindlex-cli: replace: PATTERN is empty\n", 2},
        {"a flag given a value", {"find", "--subdirs=yes", "two", "*"}, "", "",
         "brindlex-cli: find: option '--subdirs' takes no value (see brindlex-cli find --help)\n", 2},
        {"too few operands", {"find", "two"}, "", "",
         "brindlex-cli: find: expects PATTERN and MASK, not 1 operand (see brindlex-cli find --help)\n", 2},
        // The sets of a file run in file order, each seeing what the one
        // before wrote, up to the first set without a value.
        {"sets --find", {"sets", "--find", "../sets.ini", "a.txt"}, "",
         "# zeta\na.txt\t000000001\na.txt\t000000007\n# alpha\n",
         "zeta: 2 hits in 1 of 1 file\nalpha: 0 hits in 0 of 1 file\n", 0, {{"a.txt", "one two"}}},
        {"sets --replace", {"sets", "--replace", "../sets.ini", "a.txt"}, "",
         "# zeta\na.txt\t000000001\na.txt\t000000007\n# alpha\na.txt\t000000001\n",
         "zeta: 2 hits in 1 of 1 file, 1 file rewritten\nalpha: 1 hit in 1 of 1 file, 1 file rewritten\n", 0,
         {{"a.txt", "Ne tw0"}}},
        {"a file of sets with none to run says so", {"sets", "--find", "../nosets.ini", "a.txt"}, "", "",
         "brindlex-cli: sets: ../nosets.ini has no set to run: its section [Replacements] has none, or the first has "
         "no value\n", 1},
        {"an interrupt while the list of sets' files is read: no set runs",
         {"sets", "--replace", "--files-from", "-", "../sets.ini"}, "a.txt\n", "", "", 130, {{"a.txt", "one two"}},
         "old\r\n", true},
        {"a pattern too long to be found everywhere", {"find", std::string(202, 'H'), "a.txt"}, "", "",
         "brindlex-cli: note: a pattern longer than 201 bytes is found only where it fits one 1000-byte block\n"
         "0 hits in 0 of 1 file\n", 1},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        // Names whose List1 order differs from the walk's and from a plain sort:
        // "sub-d.txt" < "sub/c.txt" and "a.txt" < "a.txt2".
        for (const char* name : {"base/B.txt", "base/sub-d.txt", "base/.dot.txt", "base/.hid/e.txt", "base/sub/deep/f.txt"})
            dir.write(name, "two");
        dir.write("base/a.txt", "one two");
        dir.write("base/a.txt2", "xtwo");
        dir.write("base/a.dat", "aaaa");
        dir.write("base/sub/c.txt", "two two");
        dir.write("work/brindlex.log.txt", "old\r\n");
        dir.write("sets.ini", "[Replacements]\nzeta=o==>0\nalpha=0n==>N\nhole=\nlast=t==>T\n");
        dir.write("nosets.ini", "[Replacements]\nhole=\nlast=t==>T\n");
        fs::create_symlink("a.txt", dir.path() / "base/link.txt");
        fs::create_directory_symlink("sub", dir.path() / "base/linkdir");
        ASSERT_EQ(::mkfifo((dir.path() / "base/pipe.txt").c_str(), 0644), 0);
        const CliResult r = runcli(row.args, dir.path() / "base", dir.path() / "work", row.input, row.interrupt);
        ASSERT_EQ(r.failure, "");
        EXPECT_EQ(r.exitstatus, row.status);
        EXPECT_EQ(r.out, row.out);
        EXPECT_EQ(row.err ? dir.shown(r.err) : "", row.err.value_or(""));
        for (const auto& [name, content] : row.after) {
            const fs::path p = dir.path() / "base" / name;
            EXPECT_EQ(fs::exists(p) ? readfile(p) : "<missing>", content) << name;
        }
        EXPECT_EQ(fs::read_symlink(dir.path() / "base/link.txt"), "a.txt");
        EXPECT_EQ(dir.shown(readfile(dir.path() / "work/brindlex.log.txt")), row.log);
        EXPECT_FALSE(fs::exists(dir.path() / "work/brindlex.tmp"));
    }
}

// A file is found again by the name the walk gave, as bytes, whatever
// blanks, tabs or line breaks it holds (the run's own cases replace such
// files): "x\ty" is not "x". With -0 a NUL ends each name, and a list of
// names may hold any of them. A file below a path longer than PATH_MAX is
// found: the walk and the run open each level from the one above.
TEST(CliFindReplace, EachFileByItsRealNameAndPath)
{
    test::TempDir dir;
    for (const char* name : {" lead", "trail ", "x\ty", "x", "new\nline"})
        dir.write(std::string("base/") + name, "HIT");
    dir.write("list0", std::string("x\ty\0 lead\0", 10));
    const std::string deep = test::deepfile(dir.path() / "base", "deep.txt", "a HIT").lexically_relative(dir.path() / "base");
    ASSERT_GT(deep.size(), static_cast<std::size_t>(PATH_MAX));
    const struct { std::vector<std::string> args; std::string out, err; } steps[] = {
        {{"find", "-0", "-c", "HIT", "*"},
         " lead\0" "000000001\nnew\nline\0" "000000001\ntrail \0" "000000001\nx\0" "000000001\nx\ty\0" "000000001\n"s,
         "5 hits in 5 of 5 files\n"},
        {{"find", "--files0-from", "../list0", "HIT"}, " lead\t000000001\nx\ty\t000000001\n", "2 hits in 2 of 2 files\n"},
        {{"find", "-s", "hit", "deep.txt"}, deep + "\t000000003\n", "1 hit in 1 of 1 file\n"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.args[0] + " " + step.args[1]);
        const CliResult r = runcli(step.args, dir.path() / "base", dir.path() / "work");
        EXPECT_EQ(r.exitstatus, 0);
        EXPECT_EQ(r.out, step.out);
        EXPECT_EQ(r.err, step.err);
    }
}

// Tens of thousands of hit lines, made on a thread of their own when stdout
// is no terminal: all of them, in the run's order, a long name's too.
TEST(CliFindReplace, ManyHitLinesInTheRunsOrder)
{
    test::TempDir dir;
    std::string expected;
    for (const auto& [name, count] : {std::pair{std::string("a"), 20000}, {"c", 1}, {"d", 17000}, {std::string(100, 'n'), 30000}}) {
        std::string content;
        for (int i = 0; i < count; ++i) {
            content += "HIT";
            char tail[16];
            std::snprintf(tail, sizeof tail, "\t%09d\n", 3 * i + 1);
            expected += name + tail;
        }
        dir.write("base/" + name, content);
    }
    const CliResult r = runcli({"find", "-c", "HIT", "*"}, dir.path() / "base", dir.path() / "work");
    EXPECT_EQ(r.err, "67001 hits in 4 of 4 files\n");
    EXPECT_TRUE(r.out == expected) << r.out.size() << " bytes, not " << expected.size();
}

// stdout on a full device: the hits are lost, and that is said.
TEST(CliFindReplace, SaysThatStdoutIsFull)
{
    test::TempDir dir;
    dir.write("a.txt", "HIT");
    fs::create_symlink("/dev/full", dir.path() / "cli.out");
    int status = 0;
    ::waitpid(startcli({"find", "HIT", "*.txt"}, dir.path(), dir.path(), 0), &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2);
    EXPECT_EQ(readfile(dir.path() / "cli.err"),
              "brindlex-cli: write error on stdout: No space left on device\n1 hit in 1 of 1 file\n");
}

// As an ordinary user (nobody under root): what may not be read is reported
// and passed over; a file that may not be written keeps its content and gets
// the copy failure message. The read-only file is the user's own in a
// directory the user may write: only the check of its mode stops a rename.
TEST(CliFindReplace, FilesTheUserMayNotTouch)
{
    test::TempDir dir;
    const fs::path base = dir.path() / "base";
    const fs::path locked = dir.write("base/locked", "two"), readonly = dir.write("base/readonly", "two");
    for (const fs::path& own : {readonly, dir.write("base/writable", "two")})
        ASSERT_EQ(::chown(own.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
    const fs::path lockeddir = dir.write("base/lockeddir/inside", "two").parent_path();
    // The work directory is the ordinary user's own, as it would make it.
    const fs::path work = dir.path() / "shared/work";
    fs::create_directories(work);
    ASSERT_EQ(::chown(work.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
    for (const auto& [path, mode] : {std::pair{work, 0700}, {base, 0777}, {locked, 0}, {readonly, 0444}, {lockeddir, 0}})
        ::chmod(path.c_str(), static_cast<mode_t>(mode));
    const std::string got = test::rununprivileged([&] {
        const CliResult r = runcli({"replace", "-s", "two", "2", "*"}, base, work);
        return r.failure + "status " + std::to_string(r.exitstatus) + "\n" + r.out + r.err;
    });
    EXPECT_EQ(got, "status 2\nreadonly\t000000001\nwritable\t000000001\nbrindlex-cli: " + lockeddir.string()
                       + ": Permission denied\nError opening " + locked.string() +
                       ": Permission denied\nPermission denied copying " + dir.path().string() +
                       "/shared/work/brindlex.tmp to " + readonly.string() + "\n2 hits in 2 of 3 files, 1 file rewritten\n");
    EXPECT_EQ(readfile(readonly), "two");
    EXPECT_EQ(readfile(base / "writable"), "2");
    EXPECT_EQ(test::entrycount(base), 4) << "no stray file";
}

// A list of names that is none (nothing but empty names, random bytes, a
// list without end) is refused in bounded memory, and soon.
TEST(CliFindReplace, EndlessListsAreRefusedInBoundedMemory)
{
    test::TempDir dir;
    const struct { const char* option; const char* list; const char* why; } rows[] = {
        {"--files0-from", "/dev/zero", "more than 16 empty names in a row"},
        {"--files-from", "/dev/zero", "a name holds a NUL byte"},
        {"--files0-from", "/dev/urandom", "names in a row lead to no file"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.option) + " " + row.list);
        unsigned long long peak = 0;
        const CliResult r = runclipeak({"find", row.option, row.list, "x"}, dir.path(), peak);
        EXPECT_TRUE(r.exited(2)) << r.err;
        EXPECT_TRUE(r.err.starts_with("brindlex-cli: find: cannot read the list "s + row.list + ": ")) << r.err;
        EXPECT_NE(r.err.find(row.why), std::string::npos) << r.err;
        EXPECT_LT(peak, kMaxRssKiB);
    }
}

// A full disk (a tiny tmpfs in a mount namespace of a child's own, else a size
// limit) or a size limit (ulimit -f, whose signal must not end the CLI): the
// file that would outgrow it keeps its bytes, the reason comes on a line of
// its own, and the run goes on with the next file.
TEST(CliFindReplace, FullDiskOrSizeLimitFailsOneFileOnly)
{
    const std::string big = "HIT" + std::string(100000, '.');
    for (const bool tmpfs : {true, false}) {
        SCOPED_TRACE(tmpfs ? "a full disk" : "a file size limit");
        test::TempDir dir;
        const fs::path mnt = dir.path() / "mnt";
        fs::create_directories(mnt);
        const std::string got = test::runinchild([&] {
            const bool mounted = tmpfs && test::mountsmalldisk(mnt);
            std::ofstream(mnt / "a", std::ios::binary) << big;
            std::ofstream(mnt / "b", std::ios::binary) << "HIT";
            const rlimit limit {60000, 60000};
            if (!mounted)
                ::setrlimit(RLIMIT_FSIZE, &limit);
            const CliResult r = runcli({"replace", "-c", "HIT", "HOT", "*"}, mnt, dir.path() / "work");
            std::string err = dir.shown(r.err);
            const std::string reason = std::strerror(mounted ? ENOSPC : EFBIG);
            if (const std::size_t at = err.find(": " + reason); at != std::string::npos)
                err.replace(at + 2, reason.size(), "<full>");
            return r.failure + "status " + std::to_string(r.exitstatus) + " signal " + std::to_string(r.termsignal) +
                   "\n" + err + (readfile(mnt / "a") == big ? "" : "a CHANGED\n") + readfile(mnt / "b");
        });
        EXPECT_EQ(got, "status 2 signal 0\nCannot replace! ERROR in file lengths for <dir>/mnt/a\n"
                       "brindlex-cli: <dir>/mnt/a: <full>\n2 hits in 2 of 2 files, 1 file rewritten\nHOT");
    }
}

// A replace killed at any moment leaves every file wholly old or wholly new
// and no file of its own among them. Two files of three are hard-linked, so
// copied over in place: SIGTERM and SIGHUP wait for the copy's end; after
// SIGKILL the next command finishes a copy cut short and says so.
TEST(CliFindReplace, KilledReplaceLeavesEveryFileOldOrNew)
{
    constexpr int kFiles = 24;
    std::vector<std::string> before(kFiles), after(kFiles);
    for (int i = 0; i < kFiles; ++i) {
        for (int line = 0; line < 6000; ++line) {
            const std::string head = "line " + std::to_string(line) + " of file " + std::to_string(i);
            before[i] += head + ": OLD\n";
            after[i] += head + ": NEW!!\n";
        }
    }
    auto name = [](int i) { return "f" + std::to_string(100 + i); };
    KillClock clock(7);
    int partly = 0;
    for (int round = -1; round < 24; ++round) {
        const int sig = std::array{SIGKILL, SIGTERM, SIGHUP}[static_cast<std::size_t>(round + 3) % 3];
        SCOPED_TRACE(std::to_string(round) + " signal " + std::to_string(sig));
        test::TempDir dir;
        fs::create_directories(dir.path() / "links");
        for (int i = 0; i < kFiles; ++i) {
            dir.write("base/" + name(i), before[i]);
            if (i % 3)
                fs::create_hard_link(dir.path() / "base" / name(i), dir.path() / "links" / name(i));
        }
        const pid_t pid = startcli({"replace", "-c", "OLD", "NEW!!", "*"}, dir.path() / "base", dir.path() / "work", 0);
        ASSERT_GT(pid, 0);
        const int status = clock.end(pid, round < 0, sig);
        ASSERT_TRUE(round >= 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0));
        auto torn = [&] {
            int n = 0;
            for (int i = 0; i < kFiles; ++i) {
                const std::string now = readfile(dir.path() / "base" / name(i));
                n += now != before[i] && now != after[i];
            }
            return n;
        };
        const int cut = torn();
        EXPECT_TRUE(cut == 0 || sig == SIGKILL) << cut << " files torn";
        const CliResult next = runcli({"decode", "x"}, dir.path(), dir.path() / "work");
        // A kill just before the first byte or just after the last also
        // leaves a copy to finish: the file's content stays whole either way.
        EXPECT_TRUE(cut == 0 || next.err.find("Finished the interrupted copy") != std::string::npos) << next.err;
        EXPECT_EQ(torn(), 0);
        int fresh = 0;
        for (int i = 0; i < kFiles; ++i) {
            fresh += readfile(dir.path() / "base" / name(i)) == after[i];
            if (i % 3) {
                EXPECT_EQ(readfile(dir.path() / "links" / name(i)), readfile(dir.path() / "base" / name(i)));
            }
        }
        ASSERT_TRUE(round >= 0 || fresh == kFiles);
        partly += fresh > 0 && fresh < kFiles;
        // A SIGKILL between naming the new file and the swap can leave it
        // beside the user's: the replace run again there takes it away.
        const CliResult again = runcli({"replace", "-c", "OLD", "NEW!!", "*"}, dir.path() / "base", dir.path() / "work");
        EXPECT_TRUE(again.exited(fresh == kFiles ? 1 : 0)) << again.err;
        EXPECT_EQ(test::entrycount(dir.path() / "base"), kFiles) << "no stray file";
    }
    EXPECT_GT(partly, 0) << "no signal came in the middle of a run";
}

// The hidden new file that a killed run left is its own, not the user's:
// no run lists it (the next replace there removes it: the safe replace's own
// test). One named for a process that is alive is a file like any other.
TEST(CliFindReplace, AStrayOfAKilledRunIsNeverListed)
{
    const pid_t dead = ::fork();
    if (dead == 0)
        ::_exit(0);
    ASSERT_GT(dead, 0);
    ::waitpid(dead, nullptr, 0);
    test::TempDir dir;
    const std::string stray = ".f.1f-" + std::to_string(dead) + ".brindlex-new";
    const std::string live = ".g.1f-" + std::to_string(::getpid()) + ".brindlex-new";
    for (const std::string& name : {"f"s, stray, live})
        dir.write("base/" + name, "OLD");
    const CliResult found = runcli({"find", "-c", "OLD", "*"}, dir.path() / "base", dir.path() / "work");
    EXPECT_EQ(found.out, live + "\t000000001\nf\t000000001\n");
    // Named in a list, it is replaced, not removed as it is being replaced.
    const CliResult named =
        runcli({"replace", "--files-from", "-", "-c", "OLD", "NEW"}, dir.path() / "base", dir.path() / "work", stray + "\n");
    EXPECT_TRUE(named.exited(0)) << named.err;
    EXPECT_EQ(readfile(dir.path() / "base" / stray), "NEW");
}

// Two replaces over one tree at once: each file gets one "X" per replace
// that reports it rewritten, never fewer (a lost update).
TEST(CliFindReplace, TwoReplacesAtOnceLoseNoUpdate)
{
    constexpr int kFiles = 30;
    for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(round);
        test::TempDir dir;
        for (int i = 0; i < kFiles; ++i)
            dir.write("base/f" + std::to_string(i), std::string(300000, '.') + "HIT");
        const fs::path works[2] = {dir.path() / "work0", dir.path() / "work1"};
        pid_t pids[2];
        for (int k = 0; k < 2; ++k)
            pids[k] = startcli({"replace", "-c", "HIT", "HITX", "*"}, dir.path() / "base", works[k], 0);
        long reported = 0, xs = 0;
        for (int k = 0; k < 2; ++k) {
            ::waitpid(pids[k], nullptr, 0);
            const std::string err = readfile(works[k] / "cli.err");
            const std::size_t at = err.rfind(", ");
            reported += at == std::string::npos ? -1000 : std::stol(err.substr(at + 2));
        }
        for (int i = 0; i < kFiles; ++i)
            xs += static_cast<long>(readfile(dir.path() / ("base/f" + std::to_string(i))).size()) - 300003;
        EXPECT_EQ(xs, reported);
    }
}

// Past 2 and 4 GiB a find and a replace reach their hits and a page near the
// end of 5 GiB is saved, in little memory, in place. Every other byte stays:
// zeros where there were zeros and the rest in their order, so an edit put
// anywhere else would show. Holes read as zeros: only data extents are read.
TEST(CliFindReplace, FindsReplacesAndSavesAPageBeyondFourGigabytes)
{
    constexpr std::int64_t kSize = 5LL << 30, at31 = 1LL << 31, at32 = 1LL << 32, kPage = kSize - 40;   // 1-based
    test::TempDir dir;
    const fs::path big = dir.path() / "big.bin";
    ASSERT_TRUE(test::sparsefile(big, kSize, {{0, "HEAD"}, {at31 - 1, "NEEDLE"}, {at32 - 1, "NEEDLE"},
                                              {kPage - 1, "abcdefgh"}, {kSize - 4, "TAIL"}}));
    dir.write("edit", "FFFFFFFEC0: <61> <62> <63> <64> <65> <66> <67> <58> \r\n");
    struct statvfs room {};
    ASSERT_EQ(::statvfs(dir.path().c_str(), &room), 0);
    const std::vector<std::string> runs[] = {
        {"find", "-c", "NEEDLE", "big.bin"},
        {"replace", "-c", "NEEDLE", "PINPIN", "big.bin"},
        {"page", "--mode", "0", "--width", "8", "--format", "1", "--pos", std::to_string(kPage), "--block", "8", "--save",
         "edit", "big.bin"},
    };
    for (const std::vector<std::string>& args : runs) {
        SCOPED_TRACE(args[0]);
        if (args[0] != "find" && static_cast<std::int64_t>(room.f_bavail * room.f_frsize) < kSize + (1LL << 30))
            GTEST_SKIP() << "an edit of the 5 GiB file needs 6 GiB free on " << dir.path();
        unsigned long long peak = 0;
        const CliResult r = runclipeak(args, dir.path(), peak);
        EXPECT_TRUE(r.exited(0)) << r.err;
        EXPECT_EQ(r.out, args[0] == "page" ? "" : "big.bin\t2147483648\nbig.bin\t4294967296\n");
        EXPECT_GT(peak, 0u);
        EXPECT_LT(peak, kMaxRssKiB);
    }
    EXPECT_EQ(static_cast<std::int64_t>(fs::file_size(big)), kSize);
    std::string buffer, nonzero;
    const int fd = ::open(big.c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(fd, 0);
    for (off_t data = 0, hole; (data = ::lseek(fd, data, SEEK_DATA)) >= 0; data = hole) {
        hole = ::lseek(fd, data, SEEK_HOLE);
        buffer.resize(static_cast<std::size_t>(hole - data));
        ASSERT_EQ(::pread(fd, buffer.data(), buffer.size(), data), static_cast<ssize_t>(buffer.size()));
        std::copy_if(buffer.begin(), buffer.end(), std::back_inserter(nonzero), [](char c) { return c != 0; });
    }
    ::close(fd);
    EXPECT_EQ(nonzero, "HEADPINPINPINPINabcdefgXTAIL");
}

// An edit killed at any moment leaves the file wholly old or wholly new, and
// nothing else changes. A page of another length is saved by a new file
// swapped in; equal-length replaces and page saves go in place, and the next
// start rolls a half-written one back.
TEST(PageCommand, KilledEditsLeaveTheFileOldOrNew)
{
    ::setenv("BRINDLEX_INPLACE_MIN", "1", 1);
    std::string old;
    for (int line = 0; old.size() < (512u << 10); ++line)
        old += "record " + std::to_string(line) + " OLD\n";
    std::string replaced = old;
    for (std::size_t at = 0; (at = replaced.find("OLD", at)) != std::string::npos; at += 3)
        replaced.replace(at, 3, "NEW");
    const std::string longer = "a page that is longer than the one it replaces\n";
    const struct { std::vector<std::string> args; std::string edit, fresh; } kinds[] = {
        {{"replace", "-c", "OLD", "NEW", "f"}, "", replaced},
        {{"page", "--mode", "2", "--pos", "1000", "--block", "8", "--save", "edit", "f"}, "SAVED!!!",
         std::string(old).replace(999, 8, "SAVED!!!")},
        {{"page", "--mode", "2", "--pos", "1000", "--block", "16", "--save", "edit", "f"}, longer,
         std::string(old).replace(999, 16, longer)},
    };
    // Each kind's kills are spread over a run of that kind: a replace in
    // place takes longer than a page save.
    KillClock clocks[] = {KillClock(13), KillClock(14), KillClock(15)};
    int olds[3] = {}, news[3] = {};
    for (int round = -3; round < 210; ++round) {
        const std::size_t k = static_cast<std::size_t>(round + 3) % 3;
        SCOPED_TRACE(std::to_string(round) + " " + kinds[k].args[0] + " " + kinds[k].edit);
        test::TempDir dir;
        dir.write("f", old);
        dir.write("g", old);
        dir.write("edit", kinds[k].edit);
        const pid_t pid = startcli(kinds[k].args, dir.path(), dir.path() / "work", 0);
        ASSERT_GT(pid, 0);
        const int status = clocks[k].end(pid, round < 0, SIGKILL);
        ASSERT_TRUE(round >= 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << readfile(dir.path() / "work/cli.err");
        // A swap is whole at once; an edit in place may wait for the next start.
        const std::string now = readfile(dir.path() / "f");
        EXPECT_TRUE(k < 2 || now == old || now == kinds[k].fresh) << now.size() << " bytes";
        const CliResult next = runcli({"decode", "x"}, dir.path(), dir.path() / "work");
        EXPECT_TRUE(next.exited(0)) << next.err;
        const std::string after = readfile(dir.path() / "f");
        EXPECT_TRUE(after == old || after == kinds[k].fresh) << next.err;
        olds[k] += round >= 0 && after == old;
        news[k] += round >= 0 && after == kinds[k].fresh;
        EXPECT_EQ(readfile(dir.path() / "g"), old);
        // A SIGKILL between naming the new file and the swap can leave that
        // name, the killed process's, for the next replace there to remove.
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            const std::string n = entry.path().filename().string();
            EXPECT_TRUE(n == "f" || n == "g" || n == "edit" || n == "work"
                        || (k == 2 && n.starts_with(".f.") && n.ends_with("-" + std::to_string(pid) + ".brindlex-new")))
                << n;
        }
        EXPECT_EQ(test::entrycount(dir.path() / "work"), 2) << "cli.out and cli.err only";
    }
    ::unsetenv("BRINDLEX_INPLACE_MIN");
    EXPECT_GT(olds[2], 0) << "no kill came before the swap";
    EXPECT_TRUE(olds[0] + olds[1] > 0 && news[0] + news[1] > 0)
        << "the kills came all before or all after the writes: " << olds[0] << " " << olds[1] << " old, " << news[0]
        << " " << news[1] << " new";
}

TEST(CliProgress, ShownOnATerminalOnlyAndErased)
{
    test::TempDir dir;
    dir.write("a.txt", "HIT");
    for (const char* name : {"b.txt", "c.txt", "d.txt"})
        dir.write(name, "nothing");
    const std::string kErase = "\r\033[K";
    using ms = std::chrono::milliseconds;
    const struct { const char* what; std::vector<std::string> extra; bool toPipe; ms wait; bool shown; } rows[] = {
        {"a long run on a terminal", {}, false, ms(700), true},
        {"a short run", {}, false, ms(0), false},
        {"stderr on a pipe", {}, true, ms(700), false},
        {"--no-progress", {"--no-progress"}, false, ms(700), false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        // A replace with --ask on a pseudo-terminal, its one question answered
        // after `wait`, so that the run has lasted that long when it goes on
        // to the next file; stderr to a pipe when asked for.
        int pipefd[2];
        ASSERT_EQ(::pipe(pipefd), 0);
        int master = -1;
        const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
        if (pid == 0) {
            if (::chdir(dir.path().c_str()) != 0)
                ::_exit(127);
            if (row.toPipe)
                ::dup2(pipefd[1], 2);
            std::vector<std::string> args = {BRINDLEX_CLI, "replace", "--ask", "-c", "HIT", "X", "*.txt"};
            args.insert(args.begin() + 2, row.extra.begin(), row.extra.end());
            std::vector<char*> argv;
            for (std::string& a : args)
                argv.push_back(a.data());
            argv.push_back(nullptr);
            ::execv(BRINDLEX_CLI, argv.data());
            ::_exit(127);
        }
        ::close(pipefd[1]);
        std::string terminal, piped;   // all the terminal got (the question, the progress line, stderr); the pipe's
        bool answered = false;
        char buf[4096];
        for (ssize_t n; (n = ::read(master, buf, sizeof buf)) > 0;) {   // EIO once the child has gone
            terminal.append(buf, static_cast<std::size_t>(n));
            if (!answered && terminal.find("[y]es") != std::string::npos) {
                std::this_thread::sleep_for(row.wait);
                EXPECT_EQ(::write(master, "n\n", 2), 2);
                answered = true;
            }
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << terminal;
        for (ssize_t n; (n = ::read(pipefd[0], buf, sizeof buf)) > 0;)
            piped.append(buf, static_cast<std::size_t>(n));
        ::close(pipefd[0]);
        ::close(master);
        EXPECT_EQ(terminal.find("1/4 files") != std::string::npos, row.shown) << terminal;
        if (row.shown) {
            // Erased before the results and the summary come.
            const std::size_t erased = terminal.rfind(kErase);
            ASSERT_NE(erased, std::string::npos);
            EXPECT_LT(terminal.rfind("/4 files"), erased);
            EXPECT_NE(terminal.find("a.txt\t000000001", erased), std::string::npos);
        }
        EXPECT_EQ(piped.find('\033'), std::string::npos);
        EXPECT_EQ(piped.empty(), !row.toPipe);
    }
}

}  // namespace
}  // namespace brindlex::clitest
