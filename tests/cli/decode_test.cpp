#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {
namespace {

using namespace std::string_literals;

TEST(DecodeCommand, WritesTheBytesRawOrRefusesWithStatusTwo)
{
    const struct {
        std::vector<std::string> args;
        int status;
        std::string out;  // for status 2: part of what stderr must say
    } rows[] = {
        {{"<0D> <0A>"}, 0, "\r\n"},
        {{"100%"}, 0, "100%"},
        {{"%00%ff%0a"}, 0, "\0\xff\n"s},
        {{"<41> <GG>"}, 0, "<41> <GG>"},
        // The bytes are those typed, not upper-cased.
        {{"abc%61"}, 0, "abca"},
        {{"<41>%42", "--no-angle"}, 0, "<41>B"},
        {{"--", "--no-angle"}, 0, "--no-angle"},
        {{}, 2, "expects one TEXT"},
        {{"-n", "a"}, 2, "unknown option '-n'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        test::TempDir dir;
        std::vector<std::string> args = {"decode"};
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

}  // namespace
}  // namespace brindlex::clitest
