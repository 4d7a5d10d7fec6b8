#include "engine/core/holes.h"

#include <cerrno>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

namespace brindlex {

namespace {

// Whether the bytes [from, from + n) lie in a hole.
bool inhole(int fd, std::int64_t from, std::int64_t n)
{
    const off_t data = ::lseek(fd, from, SEEK_DATA);
    if (data >= 0 || errno != ENXIO)
        return data >= from + n;
    // No data from `from` on: a hole up to the end, if the file still
    // reaches as far; if not, the read tells that it ended early.
    struct stat st {};
    return ::fstat(fd, &st) == 0 && st.st_size >= from + n;
}

}  // namespace

bool hasholes(int fd)
{
    struct stat st {};
    return ::fstat(fd, &st) == 0 && hasholes(st);
}

bool hasholes(const struct stat& st)
{
    return st.st_blocks * 512 < st.st_size;
}

ssize_t preadholes(int fd, bool holes, void* into, std::size_t n, std::int64_t at)
{
    if (holes && n > 0 && inhole(fd, at, static_cast<std::int64_t>(n))) {
        std::memset(into, 0, n);
        return static_cast<ssize_t>(n);
    }
    return ::pread(fd, into, n, at);
}

bool preadwhole(int fd, bool holes, unsigned char* into, std::size_t n, std::int64_t at, int& error)
{
    for (std::size_t got = 0; got < n;) {
        const ssize_t r = preadholes(fd, holes, into + got, n - got, at + static_cast<std::int64_t>(got));
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0) {
            error = r < 0 ? errno : 0;
            return false;
        }
        got += static_cast<std::size_t>(r);
    }
    return true;
}

}  // namespace brindlex
