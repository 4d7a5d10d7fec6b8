#include "cli/clirun.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/tempdir.h"

namespace brindlex::clitest {

namespace fs = std::filesystem;

namespace {

// The brindlex-cli that the tests run. Under root it is a copy in a
// directory of its own that every user may enter, so that a case that drops
// to nobody can run it wherever the build lies (a checkout in root's home).
const std::string& clipath()
{
    static const std::string path = [] {
        if (::geteuid() != 0)
            return std::string(BRINDLEX_CLI);
        // Kept for the life of the test process; the next one replaces it.
        const fs::path dir = fs::temp_directory_path() / ("brindlex-cli-" + std::to_string(::getpid()));
        fs::create_directories(dir);
        ::chmod(dir.c_str(), 0755);
        fs::copy_file(BRINDLEX_CLI, dir / "brindlex-cli", fs::copy_options::overwrite_existing);
        ::chmod((dir / "brindlex-cli").c_str(), 0755);
        std::atexit([] { fs::remove_all(fs::temp_directory_path() / ("brindlex-cli-" + std::to_string(::getpid()))); });
        return (dir / "brindlex-cli").string();
    }();
    return path;
}

// A line of /proc/PID/status as a number: "SigCgt" in hexadecimal, "VmHWM" in KiB.
unsigned long long procstatus(pid_t pid, const std::string& field, int base)
{
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);)
        if (line.rfind(field + ":", 0) == 0)
            return std::stoull(line.substr(field.size() + 1), nullptr, base);
    return 0;
}

// Made before any test forks a child that drops to nobody.
[[maybe_unused]] const std::string& gCliPath = clipath();

// What a CLI that ended with `status` said, from its files in `work`.
CliResult& finished(CliResult& r, int status, const fs::path& work)
{
    r.exitstatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.termsignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    r.out = test::readfile(work / "cli.out");
    r.err = test::readfile(work / "cli.err");
    return r;
}

}  // namespace

pid_t startcli(const std::vector<std::string>& args, const fs::path& cwd, const fs::path& work, int input)
{
    const std::string& cli = clipath();
    std::vector<const char*> argv = {cli.c_str()};
    for (const std::string& arg : args)
        argv.push_back(arg.c_str());
    argv.push_back(nullptr);
    fs::create_directories(work);
    const std::string out = (work / "cli.out").string(), err = (work / "cli.err").string();
    const pid_t pid = ::fork();
    if (pid == 0) {
        const int o = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        const int e = ::open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (o < 0 || e < 0 || ::dup2(input, 0) < 0 || ::dup2(o, 1) < 0 || ::dup2(e, 2) < 0 ||
            ::chdir(cwd.c_str()) != 0 || ::setenv("BRINDLEX_TEMP", work.c_str(), 1) != 0)
            ::_exit(127);
        ::execv(cli.c_str(), const_cast<char* const*>(argv.data()));
        ::_exit(127);
    }
    return pid;
}

CliResult runcli(const std::vector<std::string>& args, const fs::path& cwd, const fs::path& work,
                 const std::string& input, bool interrupt)
{
    std::signal(SIGPIPE, SIG_IGN);   // a CLI that refuses at once reads no input
    CliResult r;
    int in[2];
    if (::pipe2(in, O_CLOEXEC) != 0)
        return r.failure = "pipe", r;
    const pid_t pid = startcli(args, cwd, work, in[0]);
    ::close(in[0]);
    for (int waited = 0; interrupt && !(procstatus(pid, "SigCgt", 16) >> (SIGINT - 1) & 1) && waited < 10000; ++waited)
        ::usleep(1000);
    if (interrupt)
        ::kill(pid, SIGINT);
    r.failure = ::write(in[1], input.data(), input.size()) == static_cast<ssize_t>(input.size()) ? "" : "stdin";
    ::close(in[1]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    return finished(r, status, work);
}

CliResult runclipeak(const std::vector<std::string>& args, const fs::path& dir, unsigned long long& peakKiB)
{
    CliResult r;
    peakKiB = 0;
    const pid_t pid = startcli(args, dir, dir, 0);
    int status = 0;
    for (; ::waitpid(pid, &status, WNOHANG) == 0; std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
        // Until its exec the child is a copy of this test process, whose
        // memory is not the command's.
        if (test::readfile(fs::path("/proc") / std::to_string(pid) / "comm") == "brindlex-cli\n")
            peakKiB = std::max(peakKiB, procstatus(pid, "VmHWM", 10));
    }
    return finished(r, status, dir);
}

int KillClock::end(pid_t pid, bool measure, int sig)
{
    const auto start = std::chrono::steady_clock::now();
    if (!measure) {
        const auto full = std::max<std::int64_t>(1, std::chrono::duration_cast<std::chrono::nanoseconds>(full_).count());
        std::this_thread::sleep_for(std::chrono::nanoseconds(rng_() % static_cast<std::uint64_t>(full)));
        ::kill(pid, sig);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    if (measure)
        full_ = std::chrono::steady_clock::now() - start;
    return status;
}

}  // namespace brindlex::clitest
