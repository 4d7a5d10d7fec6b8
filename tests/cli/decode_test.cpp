#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/process.h"

namespace brindlex {
namespace {

using test::ProcessResult;
using test::runprocess;

ProcessResult decode(const std::vector<std::string>& args)
{
    std::vector<std::string> argv = {BRINDLEX_CLI, "decode"};
    argv.insert(argv.end(), args.begin(), args.end());
    return runprocess(argv);
}

struct DecodeCase {
    std::vector<std::string> args;
    std::string out;  // raw bytes expected on stdout

    friend void PrintTo(const DecodeCase& c, std::ostream* os) { *os << testing::PrintToString(c.args); }
};

class DecodeCommandTest : public testing::TestWithParam<DecodeCase> {};

TEST_P(DecodeCommandTest, WritesTheBytesRaw)
{
    const ProcessResult r = decode(GetParam().args);
    EXPECT_TRUE(r.exited(0)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
    EXPECT_EQ(r.out, GetParam().out);
    EXPECT_EQ(r.err, "");
}

INSTANTIATE_TEST_SUITE_P(Patterns, DecodeCommandTest, testing::Values(
    DecodeCase{{"<0D> <0A>"}, "\r\n"},
    DecodeCase{{"100%"}, "100%"},
    DecodeCase{{"%00%ff%0a"}, std::string("\0\xff\n", 3)},
    DecodeCase{{"<00><41><00>"}, std::string("\0A\0", 3)},
    DecodeCase{{"a%20b"}, "a b"},
    DecodeCase{{"<41> <GG>"}, "<41> <GG>"},
    // No upper-casing: the bytes are those typed.
    DecodeCase{{"abc%61"}, "abca"},
    DecodeCase{{""}, ""},
    DecodeCase{{"--no-angle", "<41>%42"}, "<41>B"},
    DecodeCase{{"<41>%42", "--no-angle"}, "<41>B"},
    DecodeCase{{"--", "--no-angle"}, "--no-angle"},
    DecodeCase{{"--", "-x"}, "-x"},
    DecodeCase{{"-"}, "-"},
    DecodeCase{{"a b; $(echo x) * 'q'"}, "a b; $(echo x) * 'q'"}));

struct UsageCase {
    std::vector<std::string> args;
    std::string message;  // part of what stderr must say

    friend void PrintTo(const UsageCase& c, std::ostream* os) { *os << testing::PrintToString(c.args); }
};

class DecodeUsageTest : public testing::TestWithParam<UsageCase> {};

TEST_P(DecodeUsageTest, RefusesWithStatusTwo)
{
    const ProcessResult r = decode(GetParam().args);
    EXPECT_TRUE(r.exited(2)) << r.failure << " status " << r.exitstatus;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(GetParam().message), std::string::npos) << r.err;
}

INSTANTIATE_TEST_SUITE_P(BadUsage, DecodeUsageTest, testing::Values(
    UsageCase{{}, "expects one TEXT"},
    UsageCase{{"a", "b"}, "expects one TEXT"},
    UsageCase{{"--no-angle"}, "expects one TEXT"},
    UsageCase{{"--bogus", "a"}, "unknown option '--bogus'"},
    UsageCase{{"-n", "a"}, "unknown option '-n'"}));

TEST(DecodeCommand, HelpGoesToStdout)
{
    const ProcessResult r = decode({"--help"});
    EXPECT_TRUE(r.exited(0)) << r.failure;
    EXPECT_EQ(r.out.rfind("usage: brindlex-cli decode [--no-angle]", 0), 0u) << r.out;
    EXPECT_EQ(r.err, "");
}

TEST(DecodeCommand, IsListedInTheGeneralHelp)
{
    const ProcessResult r = runprocess({BRINDLEX_CLI, "--help"});
    EXPECT_TRUE(r.exited(0)) << r.failure;
    EXPECT_NE(r.out.find("decode [--no-angle] TEXT"), std::string::npos) << r.out;
}

// ---- the process runner itself, which other command tests rely on --------

TEST(RunProcess, FeedsStdinAndKeepsBothOutputsApart)
{
    std::string big(300000, 'x');
    big[123456] = '\0';
    test::ProcessOptions options;
    options.input = big;
    const ProcessResult r = runprocess({"/bin/sh", "-c", "cat; echo err >&2; exit 3"}, options);
    EXPECT_TRUE(r.exited(3)) << r.failure;
    EXPECT_EQ(r.out, big);
    EXPECT_EQ(r.err, "err\n");
}

TEST(RunProcess, SurvivesAChildThatReadsNothing)
{
    test::ProcessOptions options;
    options.input = std::string(1 << 20, 'y');
    const ProcessResult r = runprocess({"/bin/true"}, options);
    EXPECT_TRUE(r.exited(0)) << r.failure;
}

TEST(RunProcess, SetsDirectoryAndEnvironment)
{
    test::ProcessOptions options;
    options.directory = "/";
    options.setenv = {{"BRINDLEX_X", "a b"}};
    options.unsetenv = {"HOME"};
    const ProcessResult r = runprocess({"/bin/sh", "-c", "pwd; echo \"$BRINDLEX_X-${HOME:-none}\""}, options);
    EXPECT_TRUE(r.exited(0)) << r.failure;
    EXPECT_EQ(r.out, "/\na b-none\n");
}

TEST(RunProcess, ReportsAProgramThatCannotStart)
{
    const ProcessResult r = runprocess({"/nonexistent/brindlex-none"});
    EXPECT_NE(r.failure.find("No such file or directory"), std::string::npos) << r.failure;
    EXPECT_FALSE(r.exited(127));
}

TEST(RunProcess, TellsASignalFromAnExit)
{
    const ProcessResult r = runprocess({"/bin/sh", "-c", "kill -TERM $$"});
    EXPECT_EQ(r.termsignal, 15);
    EXPECT_EQ(r.exitstatus, -1);
    EXPECT_FALSE(r.exited(0));
}

}  // namespace
}  // namespace brindlex
