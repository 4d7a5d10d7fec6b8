// brindlex-cli page over long files: the page text streamed, and --save, the
// viewer's splice, under a kill at any moment.
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include <sys/wait.h>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {
namespace {

using namespace std::string_literals;
using test::readfile;
namespace fs = std::filesystem;

// Without --block the rows of a long file come out in stretches that join
// up exactly as one page would.
TEST(PageCommand, StreamsTheRowsOfALongFile)
{
    test::TempDir dir;
    std::string bytes;
    for (int i = 0; i < 700000; ++i)
        bytes += static_cast<char>(i * 7 % 251);
    dir.write("long", bytes);
    const CliResult whole = runcli({"page", "--width", "10", "--pos", "3", "long"}, dir.path(), dir.path());
    const CliResult one = runcli({"page", "--width", "10", "--pos", "3", "--block", "700000", "long"}, dir.path(), dir.path());
    ASSERT_TRUE(whole.exited(0) && one.exited(0)) << whole.err << one.err;
    EXPECT_TRUE(whole.out == one.out && whole.out.find("\r\n699993: ") != std::string::npos);
}

// An edit killed at any moment leaves the file wholly old or wholly new, and
// nothing else changes. A page of another length is saved by a new file
// swapped in; equal-length replaces and page saves go in place, and the next
// start rolls a half-written one back. The engine's tests kill the commit at
// each of its steps.
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
    KillClock clock(13);
    int olds[3] = {}, news[3] = {};
    for (int round = -3; round < 210; ++round) {
        const std::size_t k = static_cast<std::size_t>(round + 3) % 3;
        SCOPED_TRACE(std::to_string(round) + " " + kinds[k].args[0] + " " + kinds[k].edit);
        test::TempDir dir;
        dir.write("f", old);
        dir.write("g", old);
        dir.write("edit", kinds[k].edit);
        fs::create_directories(dir.path() / "work");
        const pid_t pid = startcli(kinds[k].args, dir.path(), dir.path() / "work", 0);
        ASSERT_GT(pid, 0);
        const int status = clock.end(pid, round < 0, SIGKILL);
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
    EXPECT_TRUE(olds[0] + olds[1] > 0 && news[0] + news[1] > 0) << "the kills came all before or all after the writes";
}

}  // namespace
}  // namespace brindlex::clitest
