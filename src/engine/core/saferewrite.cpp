#include "engine/core/saferewrite.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "engine/core/alignedbuffer.h"
#include "engine/core/faultinject.h"
#include "engine/core/filestamp.h"
#include "engine/core/holes.h"
#include "engine/core/journal.h"
#include "engine/core/openbinary.h"
#include "engine/core/signalhold.h"

namespace brindlex {

namespace fs = std::filesystem;

namespace {

bool samefile(const struct stat& a, const struct stat& b)
{
    return filestamp(a) == filestamp(b);
}

fs::path parentof(const fs::path& p)
{
    return p.has_parent_path() ? p.parent_path() : fs::path(".");
}

// The file a name leads to, through any chain of symbolic links, so that
// the link stays a link and its target gets the new content. A name longer
// than PATH_MAX is looked at from its directory.
Error resolvelinks(const fs::path& target, fs::path& out)
{
    fs::path p = target;
    for (int hops = 0; hops < 40; ++hops) {
        const bool longname = p.native().size() >= PATH_MAX;
        FileHandle dir(longname ? openlong(parentof(p), O_PATH | O_DIRECTORY | O_CLOEXEC) : AT_FDCWD);
        const std::string name = longname ? p.filename().string() : p.string();
        struct stat st {};
        if (::fstatat(dir.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISLNK(st.st_mode)) {
            out = p;
            return {};
        }
        std::string link(static_cast<std::size_t>(st.st_size > 0 ? st.st_size : 255) + 1, '\0');
        ssize_t n = ::readlinkat(dir.get(), name.c_str(), link.data(), link.size());
        if (n < 0)
            return errorfromerrno(errno, p);
        link.resize(static_cast<std::size_t>(n));
        fs::path next(link);
        p = next.is_absolute() ? next : p.parent_path() / next;
    }
    return errorfromerrno(ELOOP, target);
}

constexpr const char* kCapability = "security.capability";

// A new file's name while it has one: "." name "." tag "-" pid and this
// suffix, so that the files of dead processes can be told and removed.
constexpr std::string_view kTempSuffix = ".brindlex-new";

std::string hiddenname(const std::string& name, int attempt)
{
    static unsigned counter = 0;
    auto now = static_cast<unsigned long long>(std::chrono::steady_clock::now().time_since_epoch().count());
    char tag[48];
    std::snprintf(tag, sizeof tag, ".%llx%x%x-%d", now, ++counter, static_cast<unsigned>(attempt),
                  static_cast<int>(::getpid()));
    // Cut a long name so that the hidden one still fits a directory entry.
    std::string hidden(".");
    hidden.append(name, 0, 200).append(tag).append(kTempSuffix);
    return hidden;
}

// The process that made a hidden new file, or 0 for a name of any other kind.
pid_t makerof(std::string_view name)
{
    if (name.size() <= kTempSuffix.size() || name[0] != '.' || !name.ends_with(kTempSuffix))
        return 0;
    name.remove_suffix(kTempSuffix.size());
    const std::size_t dash = name.rfind('-');
    if (dash == std::string_view::npos || dash + 1 == name.size())
        return 0;
    pid_t pid = 0;
    for (char c : name.substr(dash + 1)) {
        if (c < '0' || c > '9' || pid > 100000000)
            return 0;
        pid = pid * 10 + (c - '0');
    }
    return pid;
}

}  // namespace

bool isstray(int dirfd, const char* name)
{
    const pid_t pid = makerof(name);
    struct stat st {};
    return pid > 0 && pid != ::getpid() && ::kill(pid, 0) != 0 && errno == ESRCH
           && ::fstatat(dirfd, name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)
           && st.st_uid == ::geteuid();
}

namespace {

// Removes, once per directory and process, the strays there but the file
// being replaced, which a list of files given by name may hold.
void removestrays(int dirfd, const fs::path& dirpath, const std::string& target)
{
    static std::mutex mutex;
    static std::set<std::string> done;
    {
        std::lock_guard lock(mutex);
        if (!done.insert(dirpath.string()).second)
            return;
    }
    const int fd = ::openat(dirfd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    DIR* dir = fd < 0 ? nullptr : ::fdopendir(fd);
    if (!dir) {
        if (fd >= 0)
            ::close(fd);
        return;
    }
    while (const dirent* entry = ::readdir(dir)) {
        if (entry->d_name != target && isstray(dirfd, entry->d_name))
            ::unlinkat(dirfd, entry->d_name, 0);
    }
    ::closedir(dir);
}

fs::path journalpath(const fs::path& scratch)
{
    return scratch.string() + ".journal";
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
    bool sparse = false; // the original has holes, which the new file keeps
    Route route = Route::SameDir;
    FileHandle out;      // where the new content goes
    std::string hidden;  // the new file's name while it has one of its own
    std::string named;   // the last name it had, for messages
    Error writeError;
    bool finished = false;
    const OpenedFile* original = nullptr;   // the caller's, open until commit
    struct stat result {};

    Error opendir(const fs::path& dirpath);
    Error makesamedirfile();
    Error keepowner();
    Error copyxattrs();
    Error lookattarget(const fs::path& given, Missing missing);
    Error openscratch();
    void droptemp();
    Error checkunchanged();
    Error swapinplace();
    Error copyinplace();
    void putcapability(int fd);
    bool writeall(std::string_view bytes);
    bool writesparse(std::string_view bytes);
    bool failwrite(int code);

    std::string capability;   // the original's security.capability, if any
    std::string notice;
};

// Gives the file its capabilities back after the last write; only a process
// that may set them (root) can, else the loss is told.
void SafeReplace::Impl::putcapability(int fd)
{
    if (capability.empty())
        return;
    if (checked("setcap", [&] { return ::fsetxattr(fd, kCapability, capability.data(), capability.size(), 0); }) != 0)
        notice = "File capabilities dropped (" + std::string(std::strerror(errno)) + "): only root can set them";
}

Error SafeReplace::Impl::opendir(const fs::path& dirpath)
{
    int fd = checked("open-dir", [&] { return openlong(dirpath, O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
    dirReadable = fd >= 0;
    // A directory that can be passed but not read still lets the file be
    // copied over in place; only the new-file route needs to sync it.
    if (fd < 0 && errno == EACCES)
        fd = openlong(dirpath, O_PATH | O_DIRECTORY | O_CLOEXEC);
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
    const mode_t mode = exists ? 0600 : 0666;
    removestrays(dir.get(), parentof(target), name);
    int fd = checked("open-tmpfile", [&] { return opennameless(dir.get(), mode); });
    if (fd >= 0) {
        out = FileHandle(fd);
        return {};
    }
    if (errno != EOPNOTSUPP)
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

// The owner is given at the start (the route depends on whether it can
// be); the mode only after the last write, which would clear set-id bits.
Error SafeReplace::Impl::keepowner()
{
    struct stat mine {};
    if (::fstat(out.get(), &mine) != 0)
        return errorfromerrno(errno, target);
    if ((mine.st_uid != st.st_uid || mine.st_gid != st.st_gid)
        && checked("fchown", [&] { return ::fchown(out.get(), st.st_uid, st.st_gid); }) != 0)
        return errorfromerrno(errno, target);
    return {};
}

Error SafeReplace::Impl::copyxattrs()
{
    // From the file read where the caller has it open: no path to resolve.
    const int fd = original ? original->fd.get() : -1;
    auto list = [&](char* into, std::size_t size) {
        return fd >= 0 ? ::flistxattr(fd, into, size) : ::llistxattr(target.c_str(), into, size);
    };
    auto get = [&](const char* attr, char* into, std::size_t size) {
        return fd >= 0 ? ::fgetxattr(fd, attr, into, size) : ::lgetxattr(target.c_str(), attr, into, size);
    };
    ssize_t size = checked("listxattr", [&] { return list(nullptr, 0); });
    if (size < 0)
        return errno == ENOTSUP ? Error{} : errorfromerrno(errno, target);
    if (size == 0)
        return {};   // no attributes: nothing to read or copy
    std::string names(static_cast<std::size_t>(size), '\0');
    size = list(names.data(), names.size());
    if (size < 0)
        return errorfromerrno(errno, target);
    names.resize(static_cast<std::size_t>(size));
    std::string value;
    for (std::size_t at = 0; at < names.size(); at = names.find('\0', at) + 1) {
        const char* attr = names.c_str() + at;
        ssize_t len = get(attr, nullptr, 0);
        if (len < 0)
            return errorfromerrno(errno, target);
        value.assign(static_cast<std::size_t>(len), '\0');
        len = get(attr, value.data(), value.size());
        if (len < 0)
            return errorfromerrno(errno, target);
        // Every write clears a file's capabilities: they go on after the last.
        if (std::string_view(attr) == kCapability) {
            capability = value.substr(0, static_cast<std::size_t>(len));
            continue;
        }
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
    // A copy in place that failed half done keeps its journal and the
    // content it still needs until the next start finishes it.
    struct stat jst {};
    if (::lstat(journalpath(scratch).c_str(), &jst) == 0)
        return Error{EBUSY, "Scratch file holds an unfinished copy", scratch};
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
        return rc != 0 && errno == ENOENT ? Error{} : filechanged(target);
    if (rc != 0 || !samefile(now, st))
        return filechanged(target);
    return {};
}

Error SafeReplace::Impl::swapinplace()
{
    if (exists && checked("fchmod", [&] { return ::fchmod(out.get(), st.st_mode & 07777); }) != 0)
        return errorfromerrno(errno, target);
    putcapability(out.get());
    // Between the new file's name and the rename, no signal of ours ends
    // the process and leaves the name behind.
    const SignalHold hold;
    if (hidden.empty() && !exists) {
        // linkat fails on an existing name: a file that appeared meanwhile
        // is never replaced.
        if (checked("link-new", [&] {
                return linknameless(out.get(), dir.get(), name.c_str());
            }) != 0)
            return errno == EEXIST ? filechanged(target) : errorfromerrno(errno, target);
    } else {
        // The nameless file gets a hidden name first; renameat then swaps it
        // with the original in one step.
        for (int attempt = 0; attempt < 100 && hidden.empty(); ++attempt) {
            std::string candidate = hiddenname(name, attempt);
            int rc = checked("link-tmpfile", [&] {
                return linknameless(out.get(), dir.get(), candidate.c_str());
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
                return errno == EEXIST ? filechanged(target) : errorfromerrno(errno, target);
            ::unlinkat(dir.get(), hidden.c_str(), 0);
        }
        hidden.clear();
    }
    // The new content is in place from here on. A directory that can't be
    // synced makes the swap less durable, not undone: no failure to report.
    ::fstat(out.get(), &result);
    checked("fsync-dir", [&] { return ::fsync(dir.get()); });
    return {};
}

Error SafeReplace::Impl::copyinplace()
{
    int fd = checked("open-target", [&] {
        return ::openat(dir.get(), name.c_str(), O_RDWR | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    });
    if (fd < 0)
        return errorfromerrno(errno, target);
    FileHandle dest(fd);
    struct stat now {};
    if (::fstat(dest.get(), &now) != 0 || !samefile(now, st))
        return filechanged(target);
    struct stat sst {};
    if (::fstat(out.get(), &sst) != 0)
        return errorfromerrno(errno, scratch);
    // The capabilities go with the first change (the room taken included),
    // to be put back at the end.
    capability.clear();
    if (const ssize_t len = ::fgetxattr(dest.get(), kCapability, nullptr, 0); len > 0) {
        capability.assign(static_cast<std::size_t>(len), '\0');
        capability.resize(static_cast<std::size_t>(
            std::max<ssize_t>(0, ::fgetxattr(dest.get(), kCapability, capability.data(), capability.size()))));
    }
    // The room comes before the journal: a full disk fails the copy before
    // its first change, and the ctime the journal starts from is the one
    // the room left (a change of it in between would look like another
    // program's).
    if (Error room = reserveroom(dest.get(), sst.st_size, target))
        return room;
    if (::fstat(dest.get(), &now) != 0)
        return errorfromerrno(errno, target);

    // The journal proves at the next start which file this was and what it
    // held: its blocks are hashed before the first change.
    CopyJournal journal;
    journal.target = fs::absolute(target).string();
    journal.dev = now.st_dev;
    journal.ino = now.st_ino;
    journal.oldLength = now.st_size;
    journal.mode = st.st_mode & 07777;   // as read: the room taken may clear the set-id bits
    journal.mtime = now.st_mtim;
    journal.ctime = now.st_ctim;
    journal.scratchDev = sst.st_dev;
    journal.scratchIno = sst.st_ino;
    journal.newLength = sst.st_size;
    journal.block = journalblock(std::max(now.st_size, sst.st_size));
    if (Error hashed = hashcontents(dest.get(), out.get(), journal))
        return hashed.path = target, hashed;

    // From the journal on, the copy is finished by this process or, should
    // it die, by the next start of the program.
    const SignalHold hold;
    JournalWriter writer;
    if (Error error = JournalWriter::create(journalpath(scratch), journal, now.st_ctim, writer))
        return error;
    // A copy that failed before its first change leaves the old content,
    // which the journal must not overwrite later. One that failed after it
    // leaves the file half new: the journal stays, the next start finishes
    // the copy, and the reason says so.
    bool touched = false;
    Error copied = copyjournaled(out.get(), dest.get(), journal, writer, scratch, target, touched);
    if (copied && touched) {
        copied.text += " (the copy is finished from the kept scratch file at the next start)";
        return copied;
    }
    ::unlink(journalpath(scratch).c_str());
    if (copied)
        return copied;
    // An ordinary user's write clears the set-id bits of the file itself.
    if (::fstat(dest.get(), &result) == 0 && (result.st_mode & 07777) != (st.st_mode & 07777))
        ::fchmod(dest.get(), st.st_mode & 07777);
    putcapability(dest.get());
    return {};
}

SafeReplace::SafeReplace(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

SafeReplace::~SafeReplace()
{
    abort();
}

Error SafeReplace::Impl::lookattarget(const fs::path& given, Missing missing)
{
    // The name itself, never a link's target, is looked at in the directory
    // just opened: nothing is opened, so neither a FIFO nor a device is, and
    // no read permission is needed to check it. Most names are no link: one
    // look settles it; a link is followed to its end, and the directory of
    // that end is opened instead.
    target = given;
    int rc = 0;
    for (int pass = 0; pass < 2; ++pass) {
        name = target.filename().string();
        if (name.empty() || name == "." || name == "..")
            return errorfromerrno(EISDIR, given);
        if (Error error = opendir(parentof(target)))
            return error;
        rc = checked("fstat-original", [&] { return ::fstatat(dir.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW); });
        if (pass == 1 || rc != 0 || !S_ISLNK(st.st_mode))
            break;
        if (missing == Missing::CreateNoLink)
            return Error{ELOOP, "A symbolic link, not followed", given};
        if (Error error = resolvelinks(given, target))
            return error;
    }
    if (rc != 0 && errno == ENOENT && missing != Missing::Refuse) {
        exists = false;
        st = {};
        return {};
    }
    if (rc != 0)
        return errorfromerrno(errno, target);
    if (!S_ISREG(st.st_mode))
        return notregular(target);
    // What the caller read must be what the name holds now.
    if (original && !samefile(st, original->st))
        return filechanged(target);
    return {};
}

std::unique_ptr<SafeReplace> SafeReplace::begin(const fs::path& target, const fs::path& scratch, Error& error,
                                                Missing missing, const OpenedFile* original)
{
    auto impl = std::make_unique<Impl>();
    impl->scratch = scratch;
    impl->original = original;
    if ((error = impl->lookattarget(target, missing)))
        return nullptr;
    impl->sparse = impl->exists && hasholes(impl->st);
    const fs::path parent = parentof(impl->target);

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
    else if (!(samedir = impl->makesamedirfile()) && !(samedir = impl->keepowner()))
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

bool SafeReplace::Impl::writeall(std::string_view bytes)
{
    while (!bytes.empty()) {
        ssize_t n = checked("write", [&] { return ::write(out.get(), bytes.data(), bytes.size()); });
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return failwrite(n < 0 ? errno : ENOSPC);
        bytes.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

bool SafeReplace::Impl::failwrite(int code)
{
    writeError = errorfromerrno(code, route == Route::Scratch ? scratch : target);
    return false;
}

namespace {

constexpr std::size_t kHolePage = 4096;

bool allzero(std::string_view bytes)
{
    return !bytes.empty() && bytes[0] == 0 && std::memcmp(bytes.data(), bytes.data() + 1, bytes.size() - 1) == 0;
}

}  // namespace

// A file that had holes keeps them where its new content has pages of
// zeros: they are passed over rather than written, as cp does with a
// sparse file, so that a sparse image of many gigabytes is not made whole
// on the disk. The bytes go by the file's pages, and the zeros of a page
// that two writes share are passed over in both. A file without holes is
// written byte for byte: its blocks may have been taken on purpose.
bool SafeReplace::Impl::writesparse(std::string_view bytes)
{
    const off_t at = ::lseek(out.get(), 0, SEEK_CUR);
    if (at < 0)
        return failwrite(errno);
    auto pos = static_cast<std::uint64_t>(at);
    bool holeAtEnd = false;
    while (!bytes.empty()) {
        // Data up to the first piece of zeros, then the zeros; a piece runs
        // to the end of a page of the file.
        auto piece = [&](std::size_t from) {
            return std::min(bytes.size() - from, kHolePage - (pos + from) % kHolePage);
        };
        std::size_t data = 0;
        while (data < bytes.size() && !allzero(bytes.substr(data, piece(data))))
            data += piece(data);
        if (data > 0 && !writeall(bytes.substr(0, data)))
            return false;
        std::size_t zeros = 0;
        while (data + zeros < bytes.size() && allzero(bytes.substr(data + zeros, piece(data + zeros))))
            zeros += piece(data + zeros);
        if (zeros > 0 && ::lseek(out.get(), static_cast<off_t>(zeros), SEEK_CUR) < 0)
            return failwrite(errno);
        holeAtEnd = zeros > 0;
        pos += data + zeros;
        bytes.remove_prefix(data + zeros);
    }
    // The file's length is where the writes left off, a hole at its end too.
    if (holeAtEnd && checked("write", [&] { return ::ftruncate(out.get(), static_cast<off_t>(pos)); }) != 0)
        return failwrite(errno);
    return true;
}

bool SafeReplace::write(std::string_view bytes)
{
    Impl& d = *impl_;
    if (d.writeError || d.finished)
        return false;
    return d.sparse && d.route == Impl::Route::SameDir ? d.writesparse(bytes) : d.writeall(bytes);
}

bool SafeReplace::positional() const
{
    const Impl& d = *impl_;
    return !d.writeError && !d.finished && !(d.sparse && d.route == Impl::Route::SameDir);
}

int SafeReplace::writeat(std::string_view bytes, std::int64_t at) const
{
    return pwriteall(impl_->out.get(), bytes, at, "write");
}

bool SafeReplace::resume(std::int64_t end, int error)
{
    Impl& d = *impl_;
    if (d.writeError)
        return false;
    if (error != 0)
        return d.failwrite(error);
    if (::lseek(d.out.get(), static_cast<off_t>(end), SEEK_SET) < 0)
        return d.failwrite(errno);
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

std::int64_t SafeReplace::lengthnow() const
{
    struct stat st {};
    if (::fstatat(impl_->dir.get(), impl_->name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return -1;
    return static_cast<std::int64_t>(st.st_size);
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
        // Two of our processes that read the same file take turns here: the
        // second finds the name no longer holds what it read.
        if (d.original)
            while (::flock(d.original->fd.get(), LOCK_EX) != 0 && errno == EINTR) {
            }
        if (Error changed = d.checkunchanged())
            return changed;
        if (d.exists
            && checked("access", [&] {
                   return ::faccessat(d.dir.get(), d.name.c_str(), W_OK, AT_EACCESS | AT_SYMLINK_NOFOLLOW);
               }) != 0)
            return errorfromerrno(errno, d.target);
        return d.route == Impl::Route::Scratch ? d.copyinplace() : d.swapinplace();
    }();
    if (d.original)
        ::flock(d.original->fd.get(), LOCK_UN);
    d.droptemp();
    d.finished = true;
    return error;
}

const std::string& SafeReplace::notice() const
{
    return impl_->notice;
}

const struct stat& SafeReplace::result() const
{
    return impl_->result;
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

namespace {

Recovery told(Recovery::Outcome outcome, std::string message)
{
    return Recovery{outcome, std::move(message)};
}

}  // namespace

Recovery recoverinterruptedcopy(const fs::path& scratch, std::chrono::milliseconds wait)
{
    const fs::path journalfile = journalpath(scratch);
    struct stat st {};
    if (scratch.empty() || (::lstat(journalfile.c_str(), &st) != 0 && errno == ENOENT))
        return {};
    const std::string journalname = journalfile.string(), scratchname = scratch.string();
    auto leftalone = [&](const std::string& why) {
        return told(Recovery::Outcome::Refused, "The journal " + journalname
                        + " of an interrupted copy was left alone and not applied: " + why
                        + ". Delete it unless a copy of yours was cut short.");
    };
    // Nothing in a directory that others may write is read, let alone
    // applied; the scratch file is opened without blocking and must be ours.
    FileHandle dir(openlong(parentof(scratch), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!dir.valid() || ::fstat(dir.get(), &st) != 0 || st.st_uid != ::geteuid() || (st.st_mode & 022) != 0)
        return leftalone("its directory is not the user's own, or others may write to it");
    FileHandle from(::openat(dir.get(), scratch.filename().c_str(),
                             O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    if (from.valid() && (::fstat(from.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()))
        return leftalone("the scratch file " + scratchname + " is not a regular file of the user's own");
    // The lock is free only when no other process copies through the
    // scratch file: one that finishes the same copy is waited for.
    const auto until = std::chrono::steady_clock::now() + wait;
    while (from.valid() && ::flock(from.get(), LOCK_EX | LOCK_NB) != 0) {
        if (::lstat(journalfile.c_str(), &st) != 0 && errno == ENOENT)
            return {};
        if (std::chrono::steady_clock::now() >= until) {
            const JournalLoad busy = loadjournal(journalfile);
            const std::string target = busy.error ? std::string("a file") : busy.journal.target;
            return told(Recovery::Outcome::Busy, "Another process is copying " + scratchname + " over " + target
                            + " in place; " + target + " may be half new until it ends.");
        }
        ::usleep(20000);
    }
    const JournalLoad load = loadjournal(journalfile);
    if (!load.exists)
        return {};
    if (load.error)
        return leftalone(load.error.text);
    const CopyJournal& journal = load.journal;
    const std::string target = journal.target;
    auto kept = [&](const std::string& why) {
        return told(Recovery::Outcome::Kept,
                    "An interrupted copy could not be finished: " + why + ". Nothing was written; the journal "
                        + journalname + " and the scratch file " + scratchname + " with the new content of " + target
                        + " are kept, and the copy is tried again at the next start.");
    };
    if (!from.valid())
        return told(Recovery::Outcome::Kept,
                    "An interrupted copy can't be finished: " + reasontext(errorfromerrno(errno, scratch))
                        + ". Nothing was written; " + target + " may be half new: check it, then delete "
                        + journalname + ", which until then keeps every copy in place from starting.");
    // The target is looked at before it is opened for writing: never a
    // device, never a FIFO, never another file than the one of the journal.
    FileHandle where(openlong(target, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    if (!where.valid())
        return kept(reasontext(errorfromerrno(errno, target)) + " (put it back where it was)");
    std::string why;
    if (::fstat(where.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_dev != journal.dev
        || st.st_ino != journal.ino)
        why = "it is another file now";
    FileHandle dest;
    if (why.empty()) {
        dest = FileHandle(::open(("/proc/self/fd/" + std::to_string(where.get())).c_str(),
                                 O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (!dest.valid())
            return kept(reasontext(errorfromerrno(errno, target)));
    }
    const JournalVerdict verdict =
        why.empty() ? verifyjournal(journal, load.step, dest.get(), from.get(), why) : JournalVerdict::Doubt;
    if (verdict == JournalVerdict::Doubt)
        return told(Recovery::Outcome::Kept,
                    "An interrupted copy was not finished: " + target + ": " + why
                        + ", so nothing was written. Its new content is in " + scratchname
                        + ". Check the file; to finish the copy, copy " + scratchname + " over it; then delete "
                        + journalname + ", which until then keeps every copy in place from starting.");
    if (verdict == JournalVerdict::Resume) {
        const SignalHold hold;
        JournalWriter writer;
        bool touched = false;
        Error error = JournalWriter::reopen(journalfile, journal, load.step, writer);
        if (!error)
            error = copyjournaled(from.get(), dest.get(), journal, writer, scratch, target, touched);
        if (error)
            return kept(reasontext(error));
        if (::fstat(dest.get(), &st) == 0 && (st.st_mode & 07777) != journal.mode)
            ::fchmod(dest.get(), journal.mode);
    }
    ::unlink(journalfile.c_str());
    return told(Recovery::Outcome::Finished, "Finished the interrupted copy of " + scratchname + " to " + target);
}

std::string finishinterruptedcopy(const fs::path& scratch)
{
    return recoverinterruptedcopy(scratch).message;
}

}  // namespace brindlex
