#include "engine/core/saferewrite.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "engine/core/faultinject.h"
#include "engine/core/openbinary.h"

namespace brindlex {

namespace fs = std::filesystem;

namespace {

// Runs one step that may fail, unless the fault seam makes it fail first.
template <class Call>
auto checked(const char* step, Call call) -> decltype(call())
{
    if (int code = faultinject::fault(step)) {
        errno = code;
        return -1;
    }
    return call();
}

Error changederror(const fs::path& path)
{
    return Error{ESTALE, "File changed by another program since it was read", path};
}

bool samefile(const struct stat& a, const struct stat& b)
{
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size
        && a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec
        && a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The file a name leads to, through any chain of symbolic links, so that
// the link stays a link and its target gets the new content.
Error resolvelinks(const fs::path& target, fs::path& out)
{
    fs::path p = target;
    for (int hops = 0; hops < 40; ++hops) {
        struct stat st {};
        if (::lstat(p.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) {
            out = p;
            return {};
        }
        std::string link(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        ssize_t n = ::readlink(p.c_str(), link.data(), link.size());
        if (n < 0)
            return errorfromerrno(errno, p);
        link.resize(static_cast<std::size_t>(n));
        fs::path next(link);
        p = next.is_absolute() ? next : p.parent_path() / next;
    }
    return errorfromerrno(ELOOP, target);
}

std::string hiddenname(const std::string& name, int attempt)
{
    static unsigned counter = 0;
    auto now = static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count());
    char tag[40];
    std::snprintf(tag, sizeof tag, ".%llx%x%x", now ^ (static_cast<unsigned long long>(::getpid()) << 32),
                  ++counter, static_cast<unsigned>(attempt));
    // Cut a long name so that the hidden one still fits a directory entry.
    return "." + name.substr(0, 200) + tag;
}

}  // namespace

struct SafeReplace::Impl {
    enum class Route { SameDir, Scratch };

    fs::path target;     // the file itself, links resolved
    fs::path scratch;
    FileHandle dir;      // the directory that holds target
    bool dirReadable = false;
    std::string name;    // target's entry in dir
    struct stat st {};   // of the original when begun
    bool exists = true;
    Route route = Route::SameDir;
    FileHandle out;      // where the new content goes
    std::string hidden;  // the new file's name while it has one of its own
    std::string named;   // the last name it had, for messages
    Error writeError;
    bool finished = false;

    Error opendir(const fs::path& dirpath);
    Error makesamedirfile();
    Error keepownerandmode();
    Error copyxattrs();
    Error openscratch();
    void droptemp();
    Error checkunchanged();
    Error swapinplace();
    Error copyinplace();
};

Error SafeReplace::Impl::opendir(const fs::path& dirpath)
{
    int fd = checked("open-dir", [&] { return ::open(dirpath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    dirReadable = fd >= 0;
    // A directory that can be passed but not read still lets the file be
    // copied over in place; only the new-file route needs to sync it.
    if (fd < 0 && errno == EACCES)
        fd = ::open(dirpath.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return errorfromerrno(errno, dirpath);
    dir = FileHandle(fd);
    return {};
}

Error SafeReplace::Impl::makesamedirfile()
{
    // O_TMPFILE makes a file without a name: should the program die during
    // the long write, nothing is left in the user's directory.
    // It is named later through /proc, so without /proc a hidden name is
    // used from the start.
    static const bool procfd = ::access("/proc/self/fd", X_OK) == 0;
    const mode_t mode = exists ? 0600 : 0666;
    int fd = !procfd ? -1 : checked("open-tmpfile", [&] {
        return ::openat(dir.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, mode);
    });
    if (fd >= 0) {
        out = FileHandle(fd);
        return {};
    }
    if (procfd && errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)
        return errorfromerrno(errno, target);
    for (int attempt = 0; attempt < 100; ++attempt) {
        std::string candidate = hiddenname(name, attempt);
        fd = checked("open-hidden", [&] {
            return ::openat(dir.get(), candidate.c_str(), O_CREAT | O_EXCL | O_RDWR | O_NOFOLLOW | O_CLOEXEC, mode);
        });
        if (fd >= 0) {
            out = FileHandle(fd);
            hidden = named = candidate;
            return {};
        }
        if (errno != EEXIST)
            break;
    }
    return errorfromerrno(errno, target);
}

Error SafeReplace::Impl::keepownerandmode()
{
    // The owner first: a change of owner clears the set-id bits, which the
    // mode then puts back.
    struct stat mine {};
    if (::fstat(out.get(), &mine) != 0)
        return errorfromerrno(errno, target);
    if ((mine.st_uid != st.st_uid || mine.st_gid != st.st_gid)
        && checked("fchown", [&] { return ::fchown(out.get(), st.st_uid, st.st_gid); }) != 0)
        return errorfromerrno(errno, target);
    if (checked("fchmod", [&] { return ::fchmod(out.get(), st.st_mode & 07777); }) != 0)
        return errorfromerrno(errno, target);
    return {};
}

Error SafeReplace::Impl::copyxattrs()
{
    ssize_t size = checked("listxattr", [&] { return ::llistxattr(target.c_str(), nullptr, 0); });
    if (size < 0)
        return errno == ENOTSUP ? Error{} : errorfromerrno(errno, target);
    if (size == 0)
        return {};   // no attributes: nothing to read or copy
    std::string names(static_cast<std::size_t>(size), '\0');
    size = ::llistxattr(target.c_str(), names.data(), names.size());
    if (size < 0)
        return errorfromerrno(errno, target);
    names.resize(static_cast<std::size_t>(size));
    std::string value;
    for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
        const char* attr = names.c_str() + at;
        ssize_t len = ::lgetxattr(target.c_str(), attr, nullptr, 0);
        if (len < 0)
            return errorfromerrno(errno, target);
        value.assign(static_cast<std::size_t>(len), '\0');
        len = ::lgetxattr(target.c_str(), attr, value.data(), value.size());
        if (len < 0)
            return errorfromerrno(errno, target);
        if (checked("setxattr", [&] {
                return ::fsetxattr(out.get(), attr, value.data(), static_cast<std::size_t>(len), 0);
            }) != 0)
            return errorfromerrno(errno, target);
    }
    return {};
}

Error SafeReplace::Impl::openscratch()
{
    if (scratch.empty())
        return Error{ENOENT, "No work directory for the scratch file", target};
    int fd = checked("open-scratch", [&] {
        return ::open(scratch.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
    });
    if (fd < 0)
        return errorfromerrno(errno, scratch);
    FileHandle handle(fd);
    // Held until the copy is over: two processes never share the file.
    if (checked("lock-scratch", [&] { return ::flock(handle.get(), LOCK_EX | LOCK_NB); }) != 0)
        return errno == EWOULDBLOCK ? Error{EWOULDBLOCK, "Scratch file in use by another process", scratch}
                                    : errorfromerrno(errno, scratch);
    struct stat sst {};
    if (::fstat(handle.get(), &sst) != 0)
        return errorfromerrno(errno, scratch);
    if (!S_ISREG(sst.st_mode) || sst.st_uid != ::geteuid() || sst.st_nlink != 1)
        return Error{EPERM, "Scratch file is not a private regular file", scratch};
    if (checked("truncate-scratch", [&] { return ::ftruncate(handle.get(), 0); }) != 0)
        return errorfromerrno(errno, scratch);
    out = std::move(handle);
    route = Route::Scratch;
    return {};
}

void SafeReplace::Impl::droptemp()
{
    if (route == Route::SameDir && !hidden.empty())
        ::unlinkat(dir.get(), hidden.c_str(), 0);
    hidden.clear();
    out.close();
}

Error SafeReplace::Impl::checkunchanged()
{
    struct stat now {};
    int rc = checked("recheck", [&] { return ::fstatat(dir.get(), name.c_str(), &now, AT_SYMLINK_NOFOLLOW); });
    if (!exists)
        return rc != 0 && errno == ENOENT ? Error{} : changederror(target);
    if (rc != 0 || !samefile(now, st))
        return changederror(target);
    return {};
}

Error SafeReplace::Impl::swapinplace()
{
    const std::string procpath = "/proc/self/fd/" + std::to_string(out.get());
    if (hidden.empty() && !exists) {
        // linkat fails on an existing name: a file that appeared meanwhile
        // is never replaced.
        if (checked("link-new", [&] {
                return ::linkat(AT_FDCWD, procpath.c_str(), dir.get(), name.c_str(), AT_SYMLINK_FOLLOW);
            }) != 0)
            return errno == EEXIST ? changederror(target) : errorfromerrno(errno, target);
    } else {
        // The nameless file gets a hidden name first; renameat then swaps it
        // with the original in one step.
        for (int attempt = 0; attempt < 100 && hidden.empty(); ++attempt) {
            std::string candidate = hiddenname(name, attempt);
            int rc = checked("link-tmpfile", [&] {
                return ::linkat(AT_FDCWD, procpath.c_str(), dir.get(), candidate.c_str(), AT_SYMLINK_FOLLOW);
            });
            if (rc == 0)
                hidden = named = candidate;
            else if (errno != EEXIST)
                return errorfromerrno(errno, target);
        }
        if (hidden.empty())
            return errorfromerrno(EEXIST, target);
        if (exists) {
            if (checked("rename", [&] { return ::renameat(dir.get(), hidden.c_str(), dir.get(), name.c_str()); }) != 0)
                return errorfromerrno(errno, target);
        } else {
            if (checked("link-new", [&] { return ::linkat(dir.get(), hidden.c_str(), dir.get(), name.c_str(), 0); }) != 0)
                return errno == EEXIST ? changederror(target) : errorfromerrno(errno, target);
            ::unlinkat(dir.get(), hidden.c_str(), 0);
        }
        hidden.clear();
    }
    // The new content is in place from here on. A directory that can't be
    // synced makes the swap less durable, not undone: no failure to report.
    checked("fsync-dir", [&] { return ::fsync(dir.get()); });
    return {};
}

Error SafeReplace::Impl::copyinplace()
{
    int fd = checked("open-target", [&] {
        return ::openat(dir.get(), name.c_str(), O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    });
    if (fd < 0)
        return errorfromerrno(errno, target);
    FileHandle dest(fd);
    struct stat now {};
    if (::fstat(dest.get(), &now) != 0 || !samefile(now, st))
        return changederror(target);

    struct stat sst {};
    if (::fstat(out.get(), &sst) != 0)
        return errorfromerrno(errno, scratch);
    const off_t length = sst.st_size;
    // The room is taken before the first byte changes, so a full disk ends
    // the copy while the file still holds its old content.
    if (length > 0 && checked("fallocate", [&] { return ::fallocate(dest.get(), FALLOC_FL_KEEP_SIZE, 0, length); }) != 0
        && errno != EOPNOTSUPP && errno != ENOSYS)
        return errorfromerrno(errno, target);

    std::vector<char> buf(std::size_t{1} << 20);
    for (off_t at = 0; at < length;) {
        ssize_t got = checked("copy-read", [&] { return ::pread(out.get(), buf.data(), buf.size(), at); });
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return errorfromerrno(got < 0 ? errno : EIO, scratch);
        for (ssize_t done = 0; done < got;) {
            ssize_t put = checked("copy-write", [&] {
                return ::pwrite(dest.get(), buf.data() + done, static_cast<std::size_t>(got - done), at + done);
            });
            if (put < 0 && errno == EINTR)
                continue;
            if (put <= 0)
                return errorfromerrno(put < 0 ? errno : ENOSPC, target);
            done += put;
        }
        at += got;
    }
    if (checked("truncate-target", [&] { return ::ftruncate(dest.get(), length); }) != 0)
        return errorfromerrno(errno, target);
    if (checked("sync-target", [&] { return ::fdatasync(dest.get()); }) != 0)
        return errorfromerrno(errno, target);
    return {};
}

SafeReplace::SafeReplace(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

SafeReplace::~SafeReplace()
{
    abort();
}

std::unique_ptr<SafeReplace> SafeReplace::begin(const fs::path& target, const fs::path& scratch, Error& error)
{
    return begin(target, scratch, error, Missing::Refuse);
}

std::unique_ptr<SafeReplace> SafeReplace::begin(const fs::path& target, const fs::path& scratch, Error& error,
                                                Missing missing)
{
    error = {};
    auto impl = std::make_unique<Impl>();
    impl->scratch = scratch;
    if ((error = resolvelinks(target, impl->target)))
        return nullptr;
    impl->name = impl->target.filename().string();
    if (impl->name.empty() || impl->name == "." || impl->name == "..") {
        error = errorfromerrno(EISDIR, target);
        return nullptr;
    }
    const fs::path parent = impl->target.parent_path();
    if ((error = impl->opendir(parent.empty() ? fs::path(".") : parent)))
        return nullptr;

    // The name itself, never a link's target, looked at in the directory
    // just opened: nothing is opened, so neither a FIFO nor a device is, and
    // no read permission is needed to check it.
    const int rc = checked("fstat-original", [&] {
        return ::fstatat(impl->dir.get(), impl->name.c_str(), &impl->st, AT_SYMLINK_NOFOLLOW);
    });
    if (rc != 0 && errno == ENOENT && missing == Missing::Create) {
        impl->exists = false;
        impl->st = {};
    } else if (rc != 0) {
        error = errorfromerrno(errno, impl->target);
        return nullptr;
    } else if (!S_ISREG(impl->st.st_mode)) {
        error = Error{EINVAL, "Not a regular file", impl->target};
        return nullptr;
    }

    const bool writable = !impl->exists
        || ::faccessat(impl->dir.get(), impl->name.c_str(), W_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW) == 0;
    const bool dirWritable = impl->dirReadable && ::faccessat(impl->dir.get(), ".", W_OK | X_OK, AT_EACCESS) == 0;
    auto started = [&] { return std::unique_ptr<SafeReplace>(new SafeReplace(std::move(impl))); };

    // A file that may not be written is still staged, so that the scan and
    // its length check run as usual; commit() then refuses it.
    if (!writable) {
        Error staged = impl->openscratch();
        if (staged && dirWritable)
            staged = impl->makesamedirfile();
        if (!staged)
            return started();
        error = errorfromerrno(EACCES, impl->target);
        return nullptr;
    }

    if (!impl->exists) {
        if (!dirWritable)
            error = errorfromerrno(EACCES, impl->target);
        else if (!(error = impl->makesamedirfile()))
            return started();
        return nullptr;
    }

    // Where a new file can't keep everything the old one had, the content
    // is copied over the file in place instead, through the scratch file.
    Error samedir;
    if (!dirWritable)
        samedir = errorfromerrno(EACCES, parent);
    else if (impl->st.st_nlink > 1)
        samedir = Error{EMLINK, "More than one link", impl->target};
    else if (!(samedir = impl->makesamedirfile()) && !(samedir = impl->keepownerandmode()))
        samedir = impl->copyxattrs();
    if (!samedir)
        return started();
    impl->droptemp();
    if (Error viaScratch = impl->openscratch()) {
        error = impl->scratch.empty() ? samedir : viaScratch;
        return nullptr;
    }
    return started();
}

int SafeReplace::fd() const
{
    return impl_->out.get();
}

bool SafeReplace::write(std::string_view bytes)
{
    Impl& d = *impl_;
    if (d.writeError || d.finished)
        return false;
    while (!bytes.empty()) {
        ssize_t n = checked("write", [&] { return ::write(d.out.get(), bytes.data(), bytes.size()); });
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            d.writeError = errorfromerrno(n < 0 ? errno : ENOSPC, d.route == Impl::Route::Scratch ? d.scratch : d.target);
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

std::int64_t SafeReplace::writtenlength() const
{
    struct stat st {};
    if (!impl_->out.valid() || ::fstat(impl_->out.get(), &st) != 0)
        return -1;
    return static_cast<std::int64_t>(st.st_size);
}

std::int64_t SafeReplace::originallength() const
{
    return static_cast<std::int64_t>(impl_->st.st_size);
}

const Error& SafeReplace::writeerror() const
{
    return impl_->writeError;
}

fs::path SafeReplace::copiedfrom() const
{
    const Impl& d = *impl_;
    if (d.route == Impl::Route::Scratch)
        return d.scratch;
    return d.target.parent_path() / d.named;
}

Error SafeReplace::commit()
{
    Impl& d = *impl_;
    if (d.finished)
        return Error{EINVAL, "Replacement already finished", d.target};
    Error error = [&]() -> Error {
        if (d.writeError)
            return d.writeError;
        if (checked("sync-new", [&] { return ::fdatasync(d.out.get()); }) != 0)
            return errorfromerrno(errno, d.route == Impl::Route::Scratch ? d.scratch : d.target);
        // What was written must all be there: the file's end is where the
        // writes left off.
        struct stat st {};
        off_t end = ::lseek(d.out.get(), 0, SEEK_CUR);
        if (checked("verify", [&] { return ::fstat(d.out.get(), &st); }) != 0 || end < 0 || st.st_size != end)
            return Error{EIO, "New content incomplete", d.target};
        if (Error changed = d.checkunchanged())
            return changed;
        if (d.exists
            && checked("access", [&] {
                   return ::faccessat(d.dir.get(), d.name.c_str(), W_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW);
               }) != 0)
            return errorfromerrno(errno, d.target);
        return d.route == Impl::Route::Scratch ? d.copyinplace() : d.swapinplace();
    }();
    d.droptemp();
    d.finished = true;
    return error;
}

void SafeReplace::abort()
{
    if (!impl_ || impl_->finished)
        return;
    impl_->droptemp();
    impl_->finished = true;
}

Error replacefilecontent(const fs::path& target, std::string_view bytes, const fs::path& scratch)
{
    Error error;
    auto replace = SafeReplace::begin(target, scratch, error, SafeReplace::Missing::Create);
    if (!replace)
        return error;
    replace->write(bytes);
    return replace->commit();
}

}  // namespace brindlex
