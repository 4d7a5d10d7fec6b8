#include "support/process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>

#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace brindlex::test {
namespace {

struct MemFile {
    int fd = ::memfd_create("brindlex-test", MFD_CLOEXEC);
    ~MemFile() { ::close(fd); }

    std::string contents() const
    {
        std::string s;
        char buffer[65536];
        for (ssize_t n; (n = ::pread(fd, buffer, sizeof buffer, static_cast<off_t>(s.size()))) > 0;)
            s.append(buffer, static_cast<std::size_t>(n));
        return s;
    }
};

std::vector<char*> pointers(std::vector<std::string>& strings)
{
    std::vector<char*> out;
    for (std::string& s : strings)
        out.push_back(s.data());
    out.push_back(nullptr);
    return out;
}

}  // namespace

ProcessResult runprocess(const std::vector<std::string>& argv, const ProcessOptions& options)
{
    ProcessResult result;
    std::vector<std::string> args = argv, env;
    for (char** e = environ; *e; ++e) {
        const std::string name = std::string(*e).substr(0, std::string(*e).find('='));
        const auto& set = options.setenv;
        if (std::find(options.unsetenv.begin(), options.unsetenv.end(), name) == options.unsetenv.end()
            && std::none_of(set.begin(), set.end(), [&](const auto& s) { return s.first == name; }))
            env.push_back(*e);
    }
    for (const auto& [name, value] : options.setenv)
        env.push_back(name + "=" + value);
    const std::vector<char*> argp = pointers(args), envp = pointers(env);

    MemFile in, out, err;
    std::size_t written = 0;
    for (ssize_t n; written < options.input.size(); written += static_cast<std::size_t>(n)) {
        if ((n = ::write(in.fd, options.input.data() + written, options.input.size() - written)) <= 0)
            break;
    }
    if (in.fd < 0 || out.fd < 0 || err.fd < 0 || written != options.input.size() || ::lseek(in.fd, 0, SEEK_SET) != 0) {
        result.failure = std::string("memfd: ") + std::strerror(errno);
        return result;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, in.fd, 0);
    posix_spawn_file_actions_adddup2(&actions, out.fd, 1);
    posix_spawn_file_actions_adddup2(&actions, err.fd, 2);
    const std::string directory = options.directory ? options.directory->string() : std::string();
    if (options.directory)
        posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t none, pipe;
    ::sigemptyset(&none);
    ::sigemptyset(&pipe);
    ::sigaddset(&pipe, SIGPIPE);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &pipe);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    pid_t pid = 0;
    const int spawned = argv.empty() ? ENOENT : ::posix_spawn(&pid, argp[0], &actions, &attributes, argp.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        result.failure = "cannot run " + (argv.empty() ? std::string() : argv[0]) + ": " + std::strerror(spawned);
        return result;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result.exitstatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.termsignal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.out = out.contents();
    result.err = err.contents();
    return result;
}

}  // namespace brindlex::test
