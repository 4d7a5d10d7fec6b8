// brindlex-cli page over long files: the page text streamed, and --save, the
// viewer's splice, under a kill at any moment and beyond 4 GiB.
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <sys/statvfs.h>
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

// A save killed at any moment leaves the file wholly old or wholly new.
TEST(PageCommand, KilledSaveLeavesTheFileOldOrNew)
{
    std::string old;
    for (int line = 0; old.size() < (12u << 20); ++line)
        old += "line " + std::to_string(line) + " of the page test\n";
    const std::string page = "a page that is longer than the one it replaces\n";
    const std::string fresh = old.substr(0, 999) + page + old.substr(999 + 16);
    KillClock clock(11);
    int olds = 0;
    for (int round = -1; round < 12; ++round) {
        SCOPED_TRACE(round);
        test::TempDir dir;
        dir.write("f", old);
        dir.write("edit", page);
        fs::create_directories(dir.path() / "work");
        const pid_t pid = startcli({"page", "--mode", "2", "--pos", "1000", "--block", "16", "--save", "edit", "f"},
                                   dir.path(), dir.path() / "work", 0);
        ASSERT_GT(pid, 0);
        const int status = clock.end(pid, round < 0, SIGKILL);
        ASSERT_TRUE(round >= 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0)) << readfile(dir.path() / "work/cli.err");
        const std::string now = readfile(dir.path() / "f");
        EXPECT_TRUE(now == old || now == fresh) << now.size() << " bytes";
        olds += round >= 0 && now == old;
        // A SIGKILL between naming the new file and the swap can leave that
        // name, the killed process's, for the next replace there to remove.
        for (const auto& entry : fs::directory_iterator(dir.path())) {
            const std::string n = entry.path().filename().string();
            EXPECT_TRUE(n == "f" || n == "edit" || n == "work"
                        || (n.starts_with(".f.") && n.ends_with("-" + std::to_string(pid) + ".brindlex-new")))
                << n;
        }
    }
    EXPECT_GT(olds, 0) << "no kill came before the swap";
}

// A page near the end of a 5 GiB file: the page's bytes change, every other
// byte stays, and the command's memory stays small.
TEST(PageCommand, SavesAPageNearTheEndOfFiveGigabytes)
{
    constexpr std::int64_t kSize = 5LL << 30, kAt = kSize - 40;   // the page's 1-based position
    test::TempDir dir;
    struct statvfs room {};
    ASSERT_EQ(::statvfs(dir.path().c_str(), &room), 0);
    if (static_cast<std::int64_t>(room.f_bavail * room.f_frsize) < kSize + (1LL << 30))
        GTEST_SKIP() << "the save into the 5 GiB file needs 6 GiB free on " << dir.path();
    const fs::path big = dir.path() / "big.bin";
    ASSERT_TRUE(test::sparsefile(big, kSize, {{0, "HEAD"}, {kAt - 1, "abcdefgh"}, {kSize - 4, "TAIL"}}));
    dir.write("edit", "FFFFFFFEC0: <61> <62> <63> <64> <65> <66> <67> <68> <58> \r\n");
    unsigned long long peak = 0;
    const CliResult r = runclipeak({"page", "--mode", "0", "--width", "8", "--format", "1", "--pos", std::to_string(kAt),
                                    "--block", "8", "--save", "edit", "big.bin"}, dir.path(), peak);
    EXPECT_TRUE(r.exited(0)) << r.err;
    EXPECT_GT(peak, 0u);
    EXPECT_LT(peak, kMaxRssKiB);
    EXPECT_EQ(static_cast<std::int64_t>(fs::file_size(big)), kSize + 1);
    // Every byte but the inserted one, in 1 MiB steps: zeros where there were zeros.
    std::ifstream in(big, std::ios::binary);
    std::string buffer(1 << 20, '\0'), nonzero;
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0)
        std::copy_if(buffer.begin(), buffer.begin() + in.gcount(), std::back_inserter(nonzero), [](char c) { return c != 0; });
    EXPECT_EQ(nonzero, "HEADabcdefghXTAIL");
    std::string page(9, '\0'), tail(4, '\0');
    in.clear();
    in.seekg(kAt - 1).read(page.data(), 9).seekg(kSize - 3).read(tail.data(), 4);
    EXPECT_EQ(page + tail, "abcdefghXTAIL");
}

}  // namespace
}  // namespace brindlex::clitest
