#include "engine/files/openbelow.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif

namespace brindlex {
namespace {

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;

#ifndef SYS_openat2
#define SYS_openat2 437
#endif
#ifndef RESOLVE_NO_SYMLINKS
struct open_how {
    unsigned long long flags, mode, resolve;
};
#define RESOLVE_NO_SYMLINKS 0x04
#endif

// openat2 with RESOLVE_NO_SYMLINKS, -1 with errno ENOSYS where the kernel
// lacks it.
int openat2nolinks(int base, const std::string& rel)
{
    open_how how {};
    // Without O_NOFOLLOW, a link as the last component fails as every
    // other does, with ELOOP (with it: ENOTDIR).
    how.flags = static_cast<unsigned long long>(kDirFlags & ~O_NOFOLLOW);
    how.resolve = RESOLVE_NO_SYMLINKS;
    return static_cast<int>(::syscall(SYS_openat2, base, rel.c_str(), &how, sizeof how));
}


}  // namespace

int opendirbycomponents(int base, std::string_view rel)
{
    FileHandle at(::fcntl(base, F_DUPFD_CLOEXEC, 0));
    std::string part;
    while (at.valid() && !rel.empty()) {
        const std::size_t slash = std::min(rel.find('/'), rel.size());
        part.assign(rel.substr(0, slash));
        rel.remove_prefix(std::min(slash + 1, rel.size()));
        if (part.empty() || part == ".")
            continue;
        FileHandle next(::openat(at.get(), part.c_str(), kDirFlags));
        // O_NOFOLLOW|O_DIRECTORY fails on a link with ENOTDIR: told as the
        // link it is.
        struct stat st {};
        if (!next.valid() && errno == ENOTDIR && ::fstatat(at.get(), part.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0
            && S_ISLNK(st.st_mode))
            errno = ELOOP;
        at = std::move(next);
    }
    return at.release();
}

int opendirbelow(int base, std::string_view rel)
{
    static std::atomic<bool> noOpenat2 {false};   // the kernel said ENOSYS once
    if (!noOpenat2.load(std::memory_order_relaxed) && rel.size() < PATH_MAX) {
        const int fd = openat2nolinks(base, rel.empty() ? std::string(".") : std::string(rel));
        if (fd >= 0 || (errno != ENOSYS && errno != E2BIG && errno != ENAMETOOLONG))
            return fd;
        if (errno == ENOSYS)
            noOpenat2.store(true, std::memory_order_relaxed);
    }
    return opendirbycomponents(base, rel);
}

BelowOpener::BelowOpener(FileHandle base, int baseError) : base_(std::move(base)), baseError_(baseError)
{
    if (!base_.valid() && baseError_ == 0)
        baseError_ = EBADF;
}

std::shared_ptr<const FileHandle> BelowOpener::directory(std::string_view dir, int& code) const
{
    {
        const std::lock_guard guard(lock_);
        for (auto it = kept_.rbegin(); it != kept_.rend(); ++it) {
            if (it->first == dir)
                return it->second;
        }
    }
    auto fd = std::make_shared<const FileHandle>(opendirbelow(base_.get(), dir));
    if (!fd->valid()) {
        code = errno;
        return nullptr;
    }
    const std::lock_guard guard(lock_);
    if (kept_.size() == kKept)
        kept_.erase(kept_.begin());
    kept_.emplace_back(std::string(dir), fd);
    return fd;
}

Error BelowOpener::open(std::string_view name, const std::string& sFile, OpenedFile& out, bool bSeenRegular) const
{
    out = OpenedFile{};
    if (baseError_ != 0)
        return errorfromerrno(baseError_, sFile);
    while (name.starts_with('/'))
        name.remove_prefix(1);
    const std::size_t slash = name.rfind('/');
    const std::string leaf(slash == std::string_view::npos ? name : name.substr(slash + 1));
    std::shared_ptr<const FileHandle> kept;
    int dirfd = base_.get();
    if (slash != std::string_view::npos) {
        int code = 0;
        kept = directory(name.substr(0, slash), code);
        if (!kept) {
            if (code == ELOOP)
                return Error{ELOOP, "A directory on its path is a symbolic link now: not followed", sFile};
            return errorfromerrno(code, sFile);
        }
        dirfd = kept->get();
    }
    // The name itself may be a link to a regular file: followed here, in
    // the directory opened above.
    return openbinaryat(dirfd, leaf.c_str(), sFile, out, bSeenRegular);
}

}  // namespace brindlex
