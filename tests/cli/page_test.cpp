// brindlex-cli page: the viewer's page text on stdout, and --save, the
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

TEST(PageCommand, WritesThePageOrSavesAnEditedOne)
{
    const std::string kMeta = "ab\x03\0\0\0\x21\x15\x09\0"s;
    const struct {
        std::vector<std::string> args;
        std::string edit;    // the page text given to --save
        int status;
        std::string out;     // stdout; for status 2 part of stderr
        std::string after;   // the file afterwards
    } rows[] = {
        {{"f"}, "", 0, "000001:   H    i  <0D> <0A> <00> <FF>   Z  ", ""},
        {{"--mode", "0", "--width", "4", "--format", "1", "f"}, "", 0,
         "000001: <48> <69> <0D> <0A> \r\n000005: <00> <FF> <5A> ", ""},
        {{"--mode", "2", "--pos", "2", "--block", "2", "f"}, "", 0, "i\r\n", ""},
        {{"--mode", "0", "--width", "2", "--pos", "3", "--block", "2", "f"}, "000003: <41> <42> <43>", 0, "",
         "HiABC\0\xFFZ"s},
        // Bytes the records pass over are on no page: such a page is not saved.
        {{"--format", "3", "m"}, "000001 = 03 : <03> <00> <00> <00> <21> <16>", 2, "metafile records", ""},
        {{"none"}, "", 2, "Error opening none:\r\n", ""},
        {{"--pos", "0", "f"}, "", 2, "bad value '0' for --pos", ""},
        {{"f", "g"}, "", 2, "expects one FILE", ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        test::TempDir dir;
        dir.write("f", "Hi\r\n\0\xFFZ"s);
        dir.write("m", kMeta);
        fs::create_directories(dir.path() / "work");
        std::vector<std::string> args = {"page"};
        if (!row.edit.empty())
            args.insert(args.end(), {"--save", dir.write("edit", row.edit).string()});
        args.insert(args.end(), row.args.begin(), row.args.end());
        const CliResult r = runcli(args, dir.path(), dir.path() / "work");
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        if (row.status == 0)
            EXPECT_EQ(r.out, row.out);
        else
            EXPECT_NE(r.err.find(row.out), std::string::npos) << r.err;
        EXPECT_EQ(readfile(dir.path() / "f"), row.after.empty() ? "Hi\r\n\0\xFFZ"s : row.after);
        EXPECT_EQ(readfile(dir.path() / "m"), kMeta);
    }
}

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
        EXPECT_EQ(test::entrycount(dir.path()), 3);
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
