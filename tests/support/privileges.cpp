#include "support/privileges.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <grp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brindlex::test {
namespace {

uid_t nobodyuid()
{
    const passwd* pw = ::getpwnam("nobody");
    return pw ? pw->pw_uid : 65534;
}

gid_t nogroupgid()
{
    const group* gr = ::getgrnam("nogroup");
    if (!gr)
        gr = ::getgrnam("nobody");
    return gr ? gr->gr_gid : 65534;
}

// What the child answers; on failure a text that no test expects.
std::string answerinchild(const std::function<std::string()>& body, bool drop, uid_t uid, gid_t gid)
{
    if (drop && (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0))
        return std::string("child failed: cannot drop to ") + std::to_string(uid) + ": " + std::strerror(errno);
    if (drop && (::setuid(0) == 0 || ::geteuid() != uid || ::getegid() != gid))
        return "child failed: root could be regained";
    return body();
}

std::string runforked(const std::function<std::string()>& body, bool drop, uid_t uid = nobodyuid(),
                      gid_t gid = nogroupgid())
{
    int pipefd[2];
    if (::pipe(pipefd) != 0)
        return std::string("child failed: pipe: ") + std::strerror(errno);
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::close(pipefd[0]);
        const std::string answer = answerinchild(body, drop, uid, gid);
        std::size_t done = 0;
        for (ssize_t n; done < answer.size(); done += static_cast<std::size_t>(n)) {
            if ((n = ::write(pipefd[1], answer.data() + done, answer.size() - done)) <= 0)
                break;
        }
        // _exit: the child must not run the test framework's exit handlers.
        ::_exit(done == answer.size() ? 0 : 1);
    }
    ::close(pipefd[1]);
    std::string answer;
    char buffer[4096];
    for (ssize_t n; (n = ::read(pipefd[0], buffer, sizeof buffer)) > 0 || (n < 0 && errno == EINTR);)
        answer.append(buffer, n > 0 ? static_cast<std::size_t>(n) : 0);
    ::close(pipefd[0]);
    int status = 0;
    while (pid > 0 && ::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (pid < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "child failed: status " + std::to_string(pid < 0 ? -1 : status) + " after \"" + answer + "\"";
    return answer;
}

}  // namespace

bool runningasroot() { return ::geteuid() == 0; }
uid_t unprivilegeduid() { return runningasroot() ? nobodyuid() : ::geteuid(); }
gid_t unprivilegedgid() { return runningasroot() ? nogroupgid() : ::getegid(); }

std::string rununprivileged(const std::function<std::string()>& body) { return runforked(body, runningasroot()); }
std::string runinchild(const std::function<std::string()>& body) { return runforked(body, false); }
std::string runas(uid_t uid, gid_t gid, const std::function<std::string()>& body)
{
    return runforked(body, true, uid, gid);
}

void limitfilesize(std::int64_t bytes)
{
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit {static_cast<rlim_t>(bytes), static_cast<rlim_t>(bytes)};
    ::setrlimit(RLIMIT_FSIZE, &limit);
}

bool mountsmalldisk(const std::filesystem::path& dir)
{
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
        && ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=128k") == 0;
}

}  // namespace brindlex::test
