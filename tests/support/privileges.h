// Running a piece of a test in a child process: as an ordinary user (for
// permission checks, which root would pass), or with limits and mounts of its
// own that must not reach the test process.
#pragma once

#include <functional>
#include <string>

#include <sys/types.h>

namespace brindlex::test {

bool runningasroot();

// The user and group the unprivileged child runs as: nobody/nogroup when the
// tests run as root, else the current user and group.
uid_t unprivilegeduid();
gid_t unprivilegedgid();

// Runs `body` in a forked child and returns the text it returned. Under root
// the child first drops to nobody/nogroup (setgroups, setgid, setuid) and
// checks that root can't be regained. A child that can't drop, crashes or
// ends without an answer gives a text that begins with "child failed: ",
// which no expected result in a test matches.
std::string rununprivileged(const std::function<std::string()>& body);

// The same without dropping privileges.
std::string runinchild(const std::function<std::string()>& body);

}  // namespace brindlex::test
