#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {
namespace {

using namespace std::string_literals;

TEST(DumpCommand, WritesTheSheetToStdoutOrRefusesWithStatusTwo)
{
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out;  // for status 2: part of what stderr must say
    } rows[] = {
        {{"--size", "2", "--cols", "1", "in.bin"}, 0, " 1 \t258\r\n 2 \t-1\r\n 3 \t255\r\n"},
        {{"--cols", "2", "--size", "4", "--", "in.bin"}, 0, " 1 \t-65278\t255\r\n"},
        {{"--size", "2", "--cols", "1", "missing"}, 2, "No such file or directory"},
        {{"--size", "3", "--cols", "1", "in.bin"}, 2, "expects --size 2|4"},
        {{"--size", "2", "--cols", "0", "in.bin"}, 2, "--cols N of 1 to 32767"},
        {{"--size", "2", "--cols", "32768", "in.bin"}, 2, "--cols N of 1 to 32767"},
        {{"--size", "2", "--cols", "1x", "in.bin"}, 2, "--cols N of 1 to 32767"},
        {{"--size", "2", "--cols"}, 2, "--cols needs a value"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        test::TempDir dir;
        dir.write("in.bin", "\x02\x01\xff\xff\xff"s);
        std::vector<std::string> args = {"dump"};
        args.insert(args.end(), row.args.begin(), row.args.end());
        const CliResult r = runcli(args, dir.path(), dir.path());
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        EXPECT_EQ(r.out, row.status == 0 ? row.out : "");
        if (row.status == 0)
            EXPECT_EQ(r.err, "");
        else
            EXPECT_NE(r.err.find(row.out), std::string::npos) << r.err;
    }
}

TEST(DumpCommand, OutputFileIsReplacedWholeAndKeepsItsMode)
{
    test::TempDir dir;
    dir.write("in.bin", "\x05\x00"s);
    const auto sheet = dir.write("sheet.xls", "an older and longer sheet");
    std::filesystem::permissions(sheet, static_cast<std::filesystem::perms>(0640));
    const CliResult r = runcli({"dump", "--size", "2", "--cols", "1", "-o", "sheet.xls", "in.bin"}, dir.path(), dir.path());
    EXPECT_TRUE(r.exited(0)) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(test::readfile(sheet), " 1 \t5\r\n");
    EXPECT_EQ(static_cast<int>(std::filesystem::status(sheet).permissions()), 0640);

    // A failed dump leaves the old sheet.
    const CliResult failed = runcli({"dump", "--size", "2", "--cols", "1", "--output", "sheet.xls", "gone"},
                                    dir.path(), dir.path());
    EXPECT_TRUE(failed.exited(2));
    EXPECT_EQ(test::readfile(sheet), " 1 \t5\r\n");
}

}  // namespace
}  // namespace brindlex::clitest
