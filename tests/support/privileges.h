// Running a piece of a test in a child process: as an ordinary user (for
// permission checks, which root would pass), or with limits and mounts of its
// own that must not reach the test process.
#pragma once

#include <cstdint>
#include <filesystem>
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

// A second ordinary user beside nobody, for the other side of a two-user
// case (an attacker who plants files for the victim): an id no account
// has, which only root can take.
inline constexpr uid_t kOtherUid = 47011;
inline constexpr gid_t kOtherGid = 47011;

// Runs `body` in a forked child as `uid`/`gid` (root only: the child drops
// to them as rununprivileged does).
std::string runas(uid_t uid, gid_t gid, const std::function<std::string()>& body);

// The same without dropping privileges.
std::string runinchild(const std::function<std::string()>& body);

// For a child: no file may grow beyond `bytes` (ulimit -f), and the signal
// that a write past it would raise is ignored, so the write fails instead.
void limitfilesize(std::int64_t bytes);

// For a child: a full disk at the directory `dir`, a tmpfs of 128 KiB in a
// mount namespace of the child's own. False where that can't be had: a
// file size limit of 60000 bytes then stands in for it.
bool mountsmalldisk(const std::filesystem::path& dir);

}  // namespace brindlex::test
