#include "support/process.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace brindlex::test {
namespace {

struct Pipe {
    int fd[2] = {-1, -1};
    bool open() { return ::pipe2(fd, O_CLOEXEC) == 0; }
    void close(int end)
    {
        if (fd[end] >= 0)
            ::close(fd[end]);
        fd[end] = -1;
    }
    ~Pipe()
    {
        close(0);
        close(1);
    }
};

std::vector<std::string> childenvironment(const ProcessOptions& options)
{
    std::vector<std::string> env;
    for (char** e = environ; *e; ++e) {
        const std::string entry = *e;
        const std::string name = entry.substr(0, entry.find('='));
        bool dropped = false;
        for (const std::string& unset : options.unsetenv)
            dropped = dropped || unset == name;
        for (const auto& [setname, value] : options.setenv)
            dropped = dropped || setname == name;
        if (!dropped)
            env.push_back(entry);
    }
    for (const auto& [name, value] : options.setenv)
        env.push_back(name + "=" + value);
    return env;
}

std::vector<char*> pointers(std::vector<std::string>& strings)
{
    std::vector<char*> out;
    for (std::string& s : strings)
        out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

// Only async-signal-safe calls between fork and exec: the test process may
// have threads.
[[noreturn]] void runchild(Pipe& in, Pipe& out, Pipe& err, Pipe& report, const char* directory,
                           char* const* argv, char* const* envp)
{
    struct sigaction deflt {};
    deflt.sa_handler = SIG_DFL;
    ::sigaction(SIGPIPE, &deflt, nullptr);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::dup2(in.fd[0], 0) >= 0 && ::dup2(out.fd[1], 1) >= 0 && ::dup2(err.fd[1], 2) >= 0
        && (!directory || ::chdir(directory) == 0))
        ::execve(argv[0], argv, envp);
    const int code = errno;
    [[maybe_unused]] ssize_t n = ::write(report.fd[1], &code, sizeof code);
    ::_exit(127);
}

}  // namespace

ProcessResult runprocess(const std::vector<std::string>& argv, const ProcessOptions& options)
{
    ProcessResult result;
    if (argv.empty()) {
        result.failure = "no program given";
        return result;
    }
    std::vector<std::string> args = argv;
    std::vector<std::string> env = childenvironment(options);
    const std::vector<char*> argp = pointers(args);
    const std::vector<char*> envp = pointers(env);
    const std::string directory = options.directory ? options.directory->string() : std::string();

    Pipe in, out, err, report;
    if (!in.open() || !out.open() || !err.open() || !report.open()) {
        result.failure = std::string("pipe: ") + std::strerror(errno);
        return result;
    }
    const pid_t pid = ::fork();
    if (pid < 0) {
        result.failure = std::string("fork: ") + std::strerror(errno);
        return result;
    }
    if (pid == 0)
        runchild(in, out, err, report, options.directory ? directory.c_str() : nullptr, argp.data(),
                 envp.data());

    in.close(0);
    out.close(1);
    err.close(1);
    report.close(1);
    // The child may stop reading stdin at any time: a write must then fail
    // with EPIPE instead of killing the test.
    ::fcntl(in.fd[1], F_SETFL, O_NONBLOCK);
    if (options.input.empty())
        in.close(1);

    std::size_t written = 0;
    char buffer[65536];
    while (out.fd[0] >= 0 || err.fd[0] >= 0) {
        pollfd fds[3];
        nfds_t count = 0;
        for (const int fd : {out.fd[0], err.fd[0]})
            if (fd >= 0)
                fds[count++] = {fd, POLLIN, 0};
        if (in.fd[1] >= 0)
            fds[count++] = {in.fd[1], POLLOUT, 0};
        if (::poll(fds, count, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        for (nfds_t i = 0; i < count; ++i) {
            if (fds[i].revents == 0)
                continue;
            if (fds[i].fd == in.fd[1]) {
                sigset_t pipe, old;
                ::sigemptyset(&pipe);
                ::sigaddset(&pipe, SIGPIPE);
                ::pthread_sigmask(SIG_BLOCK, &pipe, &old);
                const ssize_t n = ::write(in.fd[1], options.input.data() + written, options.input.size() - written);
                const int writeerror = n < 0 ? errno : 0;
                if (writeerror == EPIPE) {
                    // Take back the SIGPIPE raised for this thread.
                    const timespec zero{};
                    ::sigtimedwait(&pipe, nullptr, &zero);
                }
                ::pthread_sigmask(SIG_SETMASK, &old, nullptr);
                if (n > 0)
                    written += static_cast<std::size_t>(n);
                if ((writeerror != 0 && writeerror != EAGAIN && writeerror != EINTR) || written == options.input.size())
                    in.close(1);
                continue;
            }
            const ssize_t n = ::read(fds[i].fd, buffer, sizeof buffer);
            if (n > 0) {
                (fds[i].fd == out.fd[0] ? result.out : result.err).append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || (errno != EINTR && errno != EAGAIN)) {
                if (fds[i].fd == out.fd[0])
                    out.close(0);
                else
                    err.close(0);
            }
        }
    }
    in.close(1);

    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    int code = 0;
    if (::read(report.fd[0], &code, sizeof code) == static_cast<ssize_t>(sizeof code)) {
        result.failure = "cannot run " + argv[0] + ": " + std::strerror(code);
        return result;
    }
    if (WIFEXITED(status)) {
        result.exitstatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.termsignal = WTERMSIG(status);
    }
    return result;
}

}  // namespace brindlex::test
