#include "support/privileges.h"

#include <cerrno>
#include <cstring>

#include <grp.h>
#include <pwd.h>
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
    for (const char* name : {"nogroup", "nobody"})
        if (const group* gr = ::getgrnam(name))
            return gr->gr_gid;
    return 65534;
}

bool writeall(int fd, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        ssize_t n = ::write(fd, text.data() + done, text.size() - done);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        done += static_cast<std::size_t>(n);
    }
    return true;
}

std::string dropprivileges()
{
    const gid_t gid = nogroupgid();
    const uid_t uid = nobodyuid();
    if (::setgroups(0, nullptr) != 0 || ::setgid(gid) != 0 || ::setuid(uid) != 0)
        return std::string("cannot drop to nobody: ") + std::strerror(errno);
    if (::setuid(0) == 0 || ::geteuid() != uid || ::getegid() != gid)
        return "root could be regained";
    return {};
}

std::string runforked(const std::function<std::string()>& body, bool drop)
{
    int pipefd[2];
    if (::pipe(pipefd) != 0)
        return std::string("child failed: pipe: ") + std::strerror(errno);
    pid_t pid = ::fork();
    if (pid < 0) {
        ::close(pipefd[0]);
        ::close(pipefd[1]);
        return std::string("child failed: fork: ") + std::strerror(errno);
    }
    if (pid == 0) {
        ::close(pipefd[0]);
        std::string failure = drop ? dropprivileges() : std::string();
        std::string answer = failure.empty() ? body() : "child failed: " + failure;
        // _exit: the child must not run the test framework's exit handlers.
        ::_exit(writeall(pipefd[1], answer) ? 0 : 1);
    }
    ::close(pipefd[1]);
    std::string answer;
    char buf[4096];
    for (;;) {
        ssize_t n = ::read(pipefd[0], buf, sizeof buf);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        answer.append(buf, static_cast<std::size_t>(n));
    }
    ::close(pipefd[0]);
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return "child failed: status " + std::to_string(status) + " after \"" + answer + "\"";
    return answer;
}

}  // namespace

bool runningasroot()
{
    return ::geteuid() == 0;
}

uid_t unprivilegeduid()
{
    return runningasroot() ? nobodyuid() : ::geteuid();
}

gid_t unprivilegedgid()
{
    return runningasroot() ? nogroupgid() : ::getegid();
}

std::string rununprivileged(const std::function<std::string()>& body)
{
    return runforked(body, runningasroot());
}

std::string runinchild(const std::function<std::string()>& body)
{
    return runforked(body, false);
}

}  // namespace brindlex::test
