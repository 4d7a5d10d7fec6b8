#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/process.h"

namespace brindlex {
namespace {

using namespace std::string_literals;
using test::ProcessResult;
using test::runprocess;

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
        {{"<00><41><00>"}, 0, "\0A\0"s},
        {{"<41> <GG>"}, 0, "<41> <GG>"},
        // The bytes are those typed, not upper-cased.
        {{"abc%61"}, 0, "abca"},
        {{""}, 0, ""},
        {{"<41>%42", "--no-angle"}, 0, "<41>B"},
        {{"--", "--no-angle"}, 0, "--no-angle"},
        {{"-"}, 0, "-"},
        {{"a b; $(echo x) * 'q'"}, 0, "a b; $(echo x) * 'q'"},
        {{}, 2, "expects one TEXT"},
        {{"a", "b"}, 2, "expects one TEXT"},
        {{"--no-angle"}, 2, "expects one TEXT"},
        {{"-n", "a"}, 2, "unknown option '-n'"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.args));
        std::vector<std::string> argv = {BRINDLEX_CLI, "decode"};
        argv.insert(argv.end(), row.args.begin(), row.args.end());
        const ProcessResult r = runprocess(argv);
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        EXPECT_EQ(r.out, row.status == 0 ? row.out : "");
        if (row.status == 0)
            EXPECT_EQ(r.err, "");
        else
            EXPECT_NE(r.err.find(row.out), std::string::npos) << r.err;
    }
}

TEST(DecodeCommand, HelpGoesToStdout)
{
    ProcessResult r = runprocess({BRINDLEX_CLI, "decode", "--help"});
    EXPECT_TRUE(r.exited(0)) << r.failure;
    EXPECT_EQ(r.out.rfind("usage: brindlex-cli decode [--no-angle]", 0), 0u) << r.out;
    r = runprocess({BRINDLEX_CLI, "--help"});
    EXPECT_NE(r.out.find("decode [--no-angle] TEXT"), std::string::npos) << r.out;
}

// The runner that every command test relies on.
TEST(RunProcess, FeedsStdinAndTellsOutputsExitsAndSignalsApart)
{
    test::ProcessOptions options;
    options.input = std::string(300000, 'x') + '\0' + "end";
    options.directory = "/";
    options.setenv = {{"BRINDLEX_X", "a b"}};
    options.unsetenv = {"HOME"};
    ProcessResult r = runprocess(
        {"/bin/sh", "-c", "cat; pwd; echo \"$BRINDLEX_X-${HOME:-none}\"; echo err >&2; exit 3"}, options);
    EXPECT_TRUE(r.exited(3)) << r.failure;
    EXPECT_EQ(r.out, options.input + "/\na b-none\n");
    EXPECT_EQ(r.err, "err\n");

    r = runprocess({"/bin/sh", "-c", "kill -TERM $$"});
    EXPECT_EQ(r.termsignal, 15);
    EXPECT_FALSE(r.exited(-1));

    r = runprocess({"/nonexistent/brindlex-none"});
    EXPECT_NE(r.failure.find("No such file or directory"), std::string::npos) << r.failure;
    EXPECT_FALSE(r.exited(127));
}

}  // namespace
}  // namespace brindlex
