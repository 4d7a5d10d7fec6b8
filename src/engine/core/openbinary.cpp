#include "engine/core/openbinary.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

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

namespace {

Error notregular(const std::filesystem::path& sFile)
{
    return Error{EINVAL, "Not a regular file", sFile};
}

}  // namespace

Error openbinary(const std::filesystem::path& sFile, OpenedFile& out)
{
    out = OpenedFile{};
    // A first look by name keeps devices from being opened at all: opening
    // some of them has effects of its own.
    struct stat st {};
    if (::stat(sFile.c_str(), &st) != 0)
        return errorfromerrno(errno, sFile);
    if (!S_ISREG(st.st_mode))
        return notregular(sFile);

    // O_NONBLOCK: should a FIFO take the name's place after the look above,
    // the open still returns at once instead of waiting for a writer. The
    // flag stays: reads of a regular file never wait on it, and were the
    // descriptor anything else, a read could not hang either.
    FileHandle fd(::open(sFile.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd.valid())
        return errorfromerrno(errno, sFile);
    if (::fstat(fd.get(), &out.st) != 0)
        return errorfromerrno(errno, sFile);
    if (!S_ISREG(out.st.st_mode))
        return notregular(sFile);
    out.fd = std::move(fd);
    return {};
}

std::string openerrormessage(const std::string& sFile, const Error& error)
{
    return "Error opening " + sFile + ":" + std::string(sCRLF) + error.text;
}

}  // namespace brindlex
