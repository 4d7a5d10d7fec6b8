// brindlex-cli sets: the sets of a file run in file order over a mask, each
// behind a "# NAME" line, up to the first set without a value.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {

namespace {

TEST(SetsCommand, RunsTheSetsOfAFileInOrder)
{
    const struct {
        const char* what;
        std::string ini, mode;
        std::map<std::string, std::string> files;  // in d/, before
        int status;
        std::string out;
        std::map<std::string, std::string> after;  // in d/, afterwards
        std::string err;                           // part of stderr
        bool interrupt = false;
    } rows[] = {
        {"--find: file order, not sorted; nothing written", "[Replacements]\nzeta=z==>Z\nalpha=a==>A\n", "--find",
         {{"f.txt", "az"}}, 0, "# zeta\nf.txt\t000000002\n# alpha\nf.txt\t000000001\n", {{"f.txt", "az"}}, ""},
        {"--replace: each set sees what the one before wrote", "[Replacements]\r\nfirst=a==>b\r\nsecond=bb==>X\r\n",
         "--replace", {{"f.txt", "abc"}, {"g.txt", "bb"}}, 0,
         "# first\nf.txt\t000000001\n# second\nf.txt\t000000001\ng.txt\t000000001\n", {{"f.txt", "Xc"}, {"g.txt", "X"}},
         "second: 2 hits in 2 of 2 files, 2 files rewritten\n"},
        {"the run stops at a set without value", "[Replacements]\none=a==>1\nhole=\nthree=b==>3\n", "--replace",
         {{"f.txt", "ab"}}, 0, "# one\nf.txt\t000000001\n", {{"f.txt", "1b"}}, ""},
        {"an interrupt while the list is read: no set runs", "[Replacements]\none=a==>1\n", "--replace",
         {{"f.txt", "a"}}, 130, "", {{"f.txt", "a"}}, "", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        const std::string ini = dir.write("sets.ini", row.ini).string();
        dir.write("work/.keep", "");
        for (const auto& [name, bytes] : row.files)
            dir.write("d/" + name, bytes);
        const std::vector<std::string> args = row.interrupt
            ? std::vector<std::string>{"sets", row.mode, "--files-from", "-", ini}
            : std::vector<std::string>{"sets", row.mode, ini, "d"};
        const CliResult r = runcli(args, dir.path(), dir.path() / "work", "d/f.txt\n", row.interrupt);
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        EXPECT_EQ(r.out, row.out);
        EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
        for (const auto& [name, bytes] : row.after)
            EXPECT_EQ(test::readfile(dir.path() / "d" / name), bytes) << name;
        EXPECT_EQ(test::readfile(dir.path() / "sets.ini"), row.ini) << "the file of sets is only read";
    }
}

}  // namespace
}  // namespace brindlex::clitest
