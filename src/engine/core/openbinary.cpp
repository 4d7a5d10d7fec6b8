#include "engine/core/openbinary.h"

#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <unistd.h>

#include "engine/core/faultinject.h"
#include "engine/core/state.h"

namespace brindlex {

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept
{
    if (this != &other) {
        close();
        fd_ = other.release();
    }
    return *this;
}

FileHandle::~FileHandle()
{
    close();
}

int FileHandle::release()
{
    int fd = fd_;
    fd_ = -1;
    return fd;
}

void FileHandle::close()
{
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

int opennameless(int dirfd, mode_t mode)
{
    static const bool procfd = ::access("/proc/self/fd", X_OK) == 0;
    const int fd = procfd ? ::openat(dirfd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode) : -1;
    if (fd < 0 && (!procfd || errno == EISDIR || errno == EINVAL))
        errno = EOPNOTSUPP;
    return fd;
}

int linknameless(int fd, int dirfd, const char* name)
{
    const std::string procpath = "/proc/self/fd/" + std::to_string(fd);
    return ::linkat(AT_FDCWD, procpath.c_str(), dirfd, name, AT_SYMLINK_FOLLOW);
}

int statlong(const std::filesystem::path& path, struct stat& st)
{
    if (path.native().size() < PATH_MAX)
        return ::stat(path.c_str(), &st);
    const FileHandle fd(openlong(path, O_PATH | O_CLOEXEC));
    return fd.valid() ? ::fstat(fd.get(), &st) : -1;
}

int openlong(const std::filesystem::path& path, int flags)
{
    const std::string& s = path.native();
    if (s.size() < PATH_MAX)
        return ::open(s.c_str(), flags, 0);
    FileHandle at;
    std::size_t from = 0;
    if (s[0] == '/') {
        at = FileHandle(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC));
        from = 1;
    } else {
        at = FileHandle(::open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));
    }
    while (at.valid() && s.size() - from >= PATH_MAX) {
        const std::size_t cut = s.rfind('/', from + PATH_MAX - 1);
        if (cut == std::string::npos || cut <= from) {
            errno = ENAMETOOLONG;   // one name longer than PATH_MAX
            return -1;
        }
        const std::string piece = s.substr(from, cut - from);
        at = FileHandle(::openat(at.get(), piece.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        from = cut + 1;
    }
    return at.valid() ? ::openat(at.get(), s.c_str() + from, flags, 0) : -1;
}

Error openbinaryat(int dirfd, const char* name, const std::string& sFile, OpenedFile& out, bool bSeenRegular)
{
    out = OpenedFile{};
    // A first look by name keeps devices from being opened at all: opening
    // some of them has effects of its own.
    struct stat st {};
    if (!bSeenRegular) {
        if (::fstatat(dirfd, name, &st, 0) != 0)
            return errorfromerrno(errno, sFile);
        if (!S_ISREG(st.st_mode))
            return notregular(sFile);
    }

    // O_NONBLOCK: should a FIFO take the name's place after the look above,
    // the open still returns at once instead of waiting for a writer. The
    // flag stays: reads of a regular file never wait on it, and were the
    // descriptor anything else, a read could not hang either.
    FileHandle fd(::openat(dirfd, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd.valid())
        return errorfromerrno(errno, sFile);
    if (::fstat(fd.get(), &out.st) != 0)
        return errorfromerrno(errno, sFile);
    if (!S_ISREG(out.st.st_mode))
        return notregular(sFile);
    out.fd = std::move(fd);
    return {};
}

Error openbinary(const std::filesystem::path& sFile, OpenedFile& out, bool bSeenRegular)
{
    const bool longname = sFile.native().size() >= PATH_MAX;
    FileHandle dir(longname ? openlong(sFile.parent_path(), O_PATH | O_DIRECTORY | O_CLOEXEC) : AT_FDCWD);
    return openbinaryat(dir.get(), longname ? sFile.filename().c_str() : sFile.c_str(), sFile.native(), out,
                        bSeenRegular);
}

std::string openerrormessage(const std::string& sFile, const Error& error)
{
    return "Error opening " + sFile + ":" + std::string(sCRLF) + error.text;
}

int pwriteall(int fd, std::string_view bytes, std::int64_t at, const char* step)
{
    while (!bytes.empty()) {
        const auto once = [&] { return ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(at)); };
        const ssize_t n = step ? checked(step, once) : once();
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = ENOSPC;
            return errno;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
        at += n;
    }
    return 0;
}

}  // namespace brindlex
