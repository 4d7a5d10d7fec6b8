// The progress line of brindlex-cli: on a terminal, and nowhere else.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "cli/clirun.h"
#include "support/tempdir.h"

namespace brindlex::clitest {
namespace {

namespace fs = std::filesystem;

struct PtyRun {
    std::string terminal;   // all the terminal got: the question, the progress line, stderr
    std::string piped;      // stderr, when it went to a pipe
};

// Runs a replace with --ask on a pseudo-terminal and answers its one
// question after `wait`, so that the run has lasted that long when it goes
// on to the next file. With `stderrToPipe` stderr goes to a pipe instead.
PtyRun runonpty(const fs::path& cwd, const std::vector<std::string>& extra, bool stderrToPipe,
                std::chrono::milliseconds wait)
{
    int pipefd[2];
    EXPECT_EQ(::pipe(pipefd), 0);
    int master = -1;
    const pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        if (::chdir(cwd.c_str()) != 0)
            ::_exit(127);
        if (stderrToPipe)
            ::dup2(pipefd[1], 2);
        std::vector<std::string> args = {BRINDLEX_CLI, "replace", "--ask", "-c", "HIT", "X", "*.txt"};
        args.insert(args.begin() + 2, extra.begin(), extra.end());
        std::vector<char*> argv;
        for (std::string& a : args)
            argv.push_back(a.data());
        argv.push_back(nullptr);
        ::execv(BRINDLEX_CLI, argv.data());
        ::_exit(127);
    }
    ::close(pipefd[1]);
    PtyRun run;
    bool answered = false;
    char buf[4096];
    for (;;) {
        const ssize_t n = ::read(master, buf, sizeof buf);
        if (n <= 0)
            break;   // EIO once the child has gone
        run.terminal.append(buf, static_cast<std::size_t>(n));
        if (!answered && run.terminal.find("[y]es") != std::string::npos) {
            std::this_thread::sleep_for(wait);
            EXPECT_EQ(::write(master, "n\n", 2), 2);
            answered = true;
        }
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << run.terminal;
    for (ssize_t n; (n = ::read(pipefd[0], buf, sizeof buf)) > 0;)
        run.piped.append(buf, static_cast<std::size_t>(n));
    ::close(pipefd[0]);
    ::close(master);
    return run;
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
        const PtyRun run = runonpty(dir.path(), row.extra, row.toPipe, row.wait);
        const std::size_t line = run.terminal.find("1/4 files");
        EXPECT_EQ(line != std::string::npos, row.shown) << run.terminal;
        if (row.shown) {
            // Erased before the results and the summary come.
            const std::size_t erased = run.terminal.rfind(kErase);
            ASSERT_NE(erased, std::string::npos);
            EXPECT_LT(run.terminal.rfind("/4 files"), erased);
            EXPECT_NE(run.terminal.find("a.txt\t000000001", erased), std::string::npos);
        }
        EXPECT_EQ(run.piped.find('\033'), std::string::npos);
        EXPECT_EQ(run.piped.empty(), !row.toPipe);
    }
}

}  // namespace
}  // namespace brindlex::clitest
