// brindlex-cli sets: the sets of a file run in file order over a mask, each
// behind a "# NAME" line, up to the first set without a value.
#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "support/process.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::readfile;
using test::TempDir;

const std::string kChain = "[Replacements]\r\nfirst=a==>b\r\nsecond=bb==>X\r\n";

// "@INI", "@DIR" and "@LIST" stand for paths in `dir`.
std::string substituted(std::string text, const TempDir& dir)
{
    const std::string root = dir.path().string();
    for (const auto& [word, path] : {std::pair<std::string, std::string>{"@INI", root + "/sets.ini"},
                                     {"@LIST", root + "/list"}, {"@DIR", root + "/d"}}) {
        for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + path.size()))
            text.replace(at, word.size(), path);
    }
    return text;
}

TEST(SetsCommand, RunsTheSetsOfAFileInOrderOrRefusesWithStatusTwo)
{
    const struct {
        const char* what;
        std::string ini;
        std::vector<std::string> args;
        std::map<std::string, std::string> files;  // in @DIR, before
        int status;
        std::string out;
        std::map<std::string, std::string> after;  // in @DIR, afterwards
        std::string err;                           // part of stderr
    } rows[] = {
        {"sets run in file order, not sorted", "[Replacements]\nzeta=z==>Z\nalpha=a==>A\n", {"--find", "@INI", "@DIR"},
         {{"f.txt", "az"}}, 0, "# zeta\nf.txt\t000000002\n# alpha\nf.txt\t000000001\n", {{"f.txt", "az"}}, ""},
        {"a replace feeds the next set", kChain, {"--replace", "@INI", "@DIR"}, {{"f.txt", "abc"}, {"g.txt", "bb"}}, 0,
         "# first\nf.txt\t000000001\n# second\nf.txt\t000000001\ng.txt\t000000001\n", {{"f.txt", "Xc"}, {"g.txt", "X"}},
         "second: 2 hits in 2 of 2 files, 2 files rewritten\n"},
        {"the run stops at a set without value", "[Replacements]\none=a==>1\nhole=\nthree=b==>3\n",
         {"--replace", "@INI", "@DIR"}, {{"f.txt", "ab"}}, 0, "# one\nf.txt\t000000001\n", {{"f.txt", "1b"}}, ""},
        {"letters in either case without -c, subdirectories with -s", "[Replacements]\nup=K==>x\n",
         {"--replace", "-s", "@INI", "@DIR"}, {{"f.txt", "k"}, {"sub/g.txt", "kk"}}, 0,
         "# up\nf.txt\t000000001\nsub/g.txt\t000000001\nsub/g.txt\t000000002\n", {{"f.txt", "x"}, {"sub/g.txt", "xx"}}, ""},
        {"no hit in any set; the options reach every run", "[Replacements]\nq=A==>x\nw=www==>x\n",
         {"-c", "--find", "@INI", "@DIR"}, {{"f.txt", "a"}}, 1, "# q\n# w\n", {}, ""},
        {"a file that can't be opened is trouble", "[Replacements]\none=a==>1\ntwo=b==>2\n",
         {"--find", "--files-from", "@LIST", "@INI"}, {{"f.txt", "ab"}}, 2,
         "# one\n@DIR/f.txt\t000000001\n# two\n@DIR/f.txt\t000000002\n", {}, "Error opening "},
        {"no mode", kChain, {"@INI", "@DIR"}, {}, 2, "", {}, "needs --find or --replace"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TempDir dir;
        dir.write("sets.ini", row.ini);
        dir.write("work/.keep", "");
        for (const auto& [name, bytes] : row.files)
            dir.write("d/" + name, bytes);
        dir.write("list", substituted("@DIR/f.txt\n@DIR/missing.txt\n", dir));
        std::vector<std::string> argv = {BRINDLEX_CLI, "sets"};
        for (const std::string& arg : row.args)
            argv.push_back(substituted(arg, dir));
        test::ProcessOptions options;
        options.setenv = {{"BRINDLEX_TEMP", (dir.path() / "work").string()}};
        const test::ProcessResult r = test::runprocess(argv, options);
        EXPECT_TRUE(r.exited(row.status)) << r.failure << " status " << r.exitstatus << " stderr " << r.err;
        EXPECT_EQ(r.out, substituted(row.out, dir));
        EXPECT_NE(r.err.find(row.err), std::string::npos) << r.err;
        for (const auto& [name, bytes] : row.after)
            EXPECT_EQ(readfile(dir.path() / "d" / name), bytes) << name;
        EXPECT_EQ(readfile(dir.path() / "sets.ini"), row.ini) << "the file of sets is only read";
    }
}

// Whether process `pid` has a handler of its own for SIGINT.
bool catchesinterrupt(pid_t pid)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("SigCgt:", 0) == 0)
            return (std::stoull(line.substr(7), nullptr, 16) >> (SIGINT - 1)) & 1;
    }
    return false;
}

TEST(SetsCommand, InterruptCancelsBeforeTheNextSet)
{
    // The command waits for its file list on stdin; an interrupt that comes
    // then must cancel, not kill: no set runs and the status is 130.
    TempDir dir;
    const std::string ini = dir.write("sets.ini", "[Replacements]\none=a==>1\n").string();
    const std::string file = dir.write("d/f.txt", "a").string();
    int in[2], out[2];
    ASSERT_EQ(::pipe(in), 0);
    ASSERT_EQ(::pipe(out), 0);
    const pid_t pid = ::fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {
        ::dup2(in[0], 0);
        ::dup2(out[1], 1);
        ::close(in[1]);
        ::close(out[0]);
        ::execl(BRINDLEX_CLI, BRINDLEX_CLI, "sets", "--replace", "--files-from", "-", ini.c_str(), nullptr);
        ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    for (int waited = 0; !catchesinterrupt(pid) && waited < 10000; ++waited)
        ::usleep(1000);
    ASSERT_TRUE(catchesinterrupt(pid)) << "the command never took SIGINT as Cancel";
    ::kill(pid, SIGINT);
    const std::string list = file + "\n";
    EXPECT_EQ(::write(in[1], list.data(), list.size()), static_cast<ssize_t>(list.size()));
    ::close(in[1]);
    std::string output;
    char buffer[256];
    for (ssize_t n; (n = ::read(out[0], buffer, sizeof buffer)) > 0;)
        output.append(buffer, static_cast<std::size_t>(n));
    ::close(out[0]);
    int status = 0;
    ASSERT_EQ(::waitpid(pid, &status, 0), pid);
    ASSERT_TRUE(WIFEXITED(status)) << "ended by signal " << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 130);
    EXPECT_EQ(output, "");
    EXPECT_EQ(readfile(file), "a");
}

}  // namespace
}  // namespace brindlex
