#include <atomic>
#include <cerrno>
#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/openbinary.h"
#include "engine/core/saferewrite.h"
#include "engine/core/threads.h"
#include "engine/core/walksink.h"
#include "engine/files/files.h"

namespace brindlex {

namespace {

// Reads a directory open as `fd` without taking the descriptor, so the
// walk can still climb back from it once the stream is closed.
class DirStream {
public:
    explicit DirStream(int fd)
    {
        const int own = ::openat(fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
        if (own >= 0 && !(dir_ = ::fdopendir(own)))
            ::close(own);
    }
    ~DirStream()
    {
        if (dir_)
            ::closedir(dir_);
    }
    DirStream(const DirStream&) = delete;
    DirStream& operator=(const DirStream&) = delete;

    DIR* get() const { return dir_; }
    int fd() const { return ::dirfd(dir_); }

private:
    DIR* dir_ = nullptr;
};

// A real directory: a link to one is never entered, so that a walk can't
// run in circles or leave the tree it was given.
bool isrealdir(int dirfd, const dirent* entry)
{
    if (entry->d_type == DT_DIR)
        return true;
    if (entry->d_type != DT_UNKNOWN)
        return false;
    struct stat st {};
    return ::fstatat(dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// The next entry of `dir`; nullptr at the end or on an error, which is
// told to the host as the directory at `where` being unreadable.
const dirent* nextentry(DIR* dir, const std::string& where, WalkSink& host)
{
    errno = 0;
    const dirent* entry = ::readdir(dir);
    if (!entry && errno != 0)
        host.unreadable(where, errno);
    return entry;
}

// The files of one directory and (with `bIncludeSubs`) the names of its
// subdirectories, in one pass over it. False when the user cancelled on the
// way. A directory that can't be read (or searched: its entries could not
// be opened) is told to the host as `where`.
bool listlevel(int dirfd, std::string_view typedname, const std::string& prefix, const std::string& where,
               bool bIncludeSubs, WalkSink& host, std::vector<std::string>& subdirs)
{
    DirStream dir(dirfd);
    if (!dir.get()) {
        host.unreadable(where, errno);
        return true;
    }

    const bool sizes = host.wantsizes();
    std::string relname;
    while (const dirent* entry = nextentry(dir.get(), where, host)) {
        if (entry->d_type == DT_DIR || entry->d_type == DT_UNKNOWN) {
            if (bIncludeSubs && entry->d_name[0] != '.' && isrealdir(dir.fd(), entry)) {
                subdirs.emplace_back(entry->d_name);
                continue;
            }
            if (entry->d_type == DT_DIR)
                continue;
        } else if (entry->d_type != DT_REG && entry->d_type != DT_LNK) {
            continue;
        }
        if (!wildcardmatch(typedname, entry->d_name) || isstray(dir.fd(), entry->d_name))
            continue;
        // Following a link lists a link to a regular file with the size of
        // what it points to; a name gone since readdir is passed over.
        struct stat st {};
        if ((sizes || entry->d_type != DT_REG)
            && (::fstatat(dir.fd(), entry->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)))
            continue;
        if (!host.carryon())
            return false;
        relname.assign(prefix).append(entry->d_name);
        host.entry(relname, static_cast<std::int64_t>(st.st_size));
    }
    // A Cancel here stops the walk before the subdirectories.
    for (std::size_t i = 0; i < subdirs.size(); ++i) {
        if (!host.carryon())
            return false;
    }
    return true;
}

constexpr int kDirFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

bool samedir(int fd, const struct stat& want)
{
    struct stat st {};
    return ::fstat(fd, &st) == 0 && st.st_dev == want.st_dev && st.st_ino == want.st_ino;
}

// What stays the same through a walk.
struct Walk {
    std::string m;   // the name part below the first level
    bool bIncludeSubs;
    WalkSink& host;
};

// What a walk of one subdirectory told, kept by the thread that walked it
// until the walk's own thread tells the host, in order.
class Kept final : public WalkSink {
public:
    Kept(bool sizes, const std::atomic<bool>& stop) : sizes_(sizes), stop_(stop) {}

    void entry(const std::string& name, std::int64_t size) override { events_.push_back({Kind::Entry, name, size}); }
    void unreadable(const std::string& path, int code) override { events_.push_back({Kind::Unreadable, path, code}); }
    bool wantsizes() const override { return sizes_; }
    void level(bool begins) override { events_.push_back({begins ? Kind::Begins : Kind::Ends, {}, 0}); }
    bool carryon() override { return !stop_.load(std::memory_order_relaxed); }

    // Tells `host` what was kept, asking its carryon() before each file as
    // the walk does; false when it asked to stop, with every level begun
    // here ended.
    bool tell(WalkSink& host) const
    {
        int depth = 0;
        for (const Event& e : events_) {
            switch (e.kind) {
            case Kind::Entry:
                if (!host.carryon()) {
                    for (; depth > 0; --depth)
                        host.level(false);
                    return false;
                }
                host.entry(e.text, e.value);
                break;
            case Kind::Unreadable:
                host.unreadable(e.text, static_cast<int>(e.value));
                break;
            case Kind::Begins:
                ++depth;
                host.level(true);
                break;
            case Kind::Ends:
                --depth;
                host.level(false);
                break;
            }
        }
        return true;
    }

private:
    enum class Kind { Entry, Unreadable, Begins, Ends };
    struct Event {
        Kind kind;
        std::string text;      // the name or path
        std::int64_t value;    // the size or errno
    };
    const bool sizes_;
    const std::atomic<bool>& stop_;
    std::vector<Event> events_;
};

// Opens subdirectory `name` of `dir` (whose own identity is `self`) to walk
// it; invalid, with the reason told to the host as if the subdirectory had
// been entered and found empty, when it can't be opened or its ".." does not
// lead back to `dir` (it may be read but not searched, so the climb back
// would fail).
FileHandle opensubdir(int dir, const struct stat& self, const std::string& name, const std::string& subpath,
                      WalkSink& host)
{
    FileHandle sub(::openat(dir, name.c_str(), kDirFlags | O_NOFOLLOW));
    int code = errno;
    if (sub.valid()) {
        const FileHandle up(::openat(sub.get(), "..", kDirFlags));
        code = !up.valid() ? errno : samedir(up.get(), self) ? 0 : ESTALE;
    }
    if (code == 0)
        return sub;
    host.unreadable(subpath, code);
    host.level(true);
    host.level(false);
    return FileHandle();
}

std::string subpathof(const std::string& where, const std::string& name)
{
    return where + (where.ends_with('/') ? "" : "/") + name;
}

FileHandle walklevel(FileHandle dir, const std::string& prefix, const std::string& where, std::string_view typedname,
                     const Walk& w, bool bSplit = false);

// The subdirectories of the first directory (open as `dir`, its identity
// `self`), each walked whole by whichever thread takes it up next: this one
// or a worker. What each finds is kept and told to the host in the order of
// the subdirectories, as one thread walking them in turn tells it, from
// this thread only, until the host asks to stop.
void walksubdirs(int dir, const struct stat& self, const std::vector<std::string>& subdirs, const std::string& prefix,
                 const std::string& where, const Walk& w)
{
    const std::size_t n = subdirs.size();
    std::atomic<bool> stop {false};
    std::vector<std::unique_ptr<Kept>> kept(n);
    for (auto& k : kept)
        k = std::make_unique<Kept>(w.host.wantsizes(), stop);
    const auto done = std::make_unique<std::atomic<bool>[]>(n);
    std::atomic<std::size_t> next {0};
    auto walkone = [&](std::size_t i) {
        const std::string subpath = subpathof(where, subdirs[i]);
        FileHandle sub = opensubdir(dir, self, subdirs[i], subpath, *kept[i]);
        if (sub.valid())
            walklevel(std::move(sub), prefix + subdirs[i] + "/", subpath, w.m, Walk{w.m, w.bIncludeSubs, *kept[i]});
        done[i].store(true, std::memory_order_release);
        done[i].notify_one();
    };
    auto work = [&] {
        for (std::size_t i; (i = next.fetch_add(1)) < n && !stop.load(std::memory_order_relaxed);)
            walkone(i);
    };
    std::vector<std::thread> workers = startworkers(std::min(usablecores() - 1, n - 1), work);
    std::size_t told = 0;
    bool going = true;
    auto tellready = [&] {
        for (; going && told < n && done[told].load(std::memory_order_acquire); ++told) {
            going = kept[told]->tell(w.host);
            kept[told].reset();
        }
    };
    for (std::size_t i; going && (i = next.fetch_add(1)) < n;) {
        walkone(i);
        tellready();
    }
    while (going && told < n) {
        done[told].wait(false, std::memory_order_acquire);
        tellready();
    }
    stop = !going;
    for (std::thread& worker : workers)
        worker.join();
}

// One directory and, with bIncludeSubs, its subdirectories, each entered
// from the one above with openat: a path of any length is walked. Only the
// directory in hand is open; after a subdirectory the walk climbs back
// through "..". A subdirectory is entered only once its ".." is seen to lead
// here, so one that may be read but not searched (the climb back would
// fail) is told to the host and passed over, and the walk goes on with the
// next. Should the climb fail all the same (the subdirectory was moved
// meanwhile), the rest of this level is told as unreadable. `where` is the
// directory's path for the host's report of what can't be read. With
// `bSplit` (the first directory, for a host that allows it) the
// subdirectories are walked by several threads, this directory staying
// open meanwhile. Returns the descriptor it climbed back to, for the level
// above.
FileHandle walklevel(FileHandle dir, const std::string& prefix, const std::string& where, std::string_view typedname,
                     const Walk& w, bool bSplit)
{
    w.host.level(true);
    std::vector<std::string> subdirs;
    struct stat self {};
    if (::fstat(dir.get(), &self) != 0)
        w.host.unreadable(where, errno);
    else if (!listlevel(dir.get(), typedname, prefix, where, w.bIncludeSubs, w.host, subdirs))
        subdirs.clear();
    if (bSplit && subdirs.size() > 1 && usablecores() > 1)
        walksubdirs(dir.get(), self, subdirs, prefix, where, w);
    else {
        for (const std::string& f : subdirs) {
            const std::string subpath = subpathof(where, f);
            FileHandle sub = opensubdir(dir.get(), self, f, subpath, w.host);
            if (!sub.valid())
                continue;
            dir.close();
            FileHandle back = walklevel(std::move(sub), prefix + f + "/", subpath, w.m, w);
            dir = FileHandle(back.valid() ? ::openat(back.get(), "..", kDirFlags) : -1);
            if (!dir.valid() || !samedir(dir.get(), self)) {
                w.host.unreadable(where, dir.valid() || errno == 0 ? ESTALE : errno);
                break;
            }
        }
    }
    w.host.level(false);
    return dir;
}

}  // namespace

void listfiles(const std::string& mask, bool bIncludeSubs, const std::string& baseDir, WalkSink& host,
               FileHandle* keepBase)
{
    // The name part as typed, blanks included, selects in this directory;
    // the levels below get filepart's version without blanks.
    const std::size_t slash = mask.rfind('/');
    const std::string_view typedname = slash == std::string::npos
        ? std::string_view(mask) : std::string_view(mask).substr(slash + 1);
    const std::string d = dirpart(mask);

    std::string prefix = d + "/";
    if (prefix.compare(0, baseDir.size(), baseDir) == 0)
        prefix.erase(0, baseDir.size());

    const std::string dirpath = slash == std::string::npos ? "." : (d.empty() ? "/" : d);
    FileHandle dir(openlong(dirpath, kDirFlags));
    if (!dir.valid()) {
        host.unreadable(dirpath, errno);
        host.level(true);
        host.level(false);
        return;
    }
    if (keepBase)
        *keepBase = FileHandle(::fcntl(dir.get(), F_DUPFD_CLOEXEC, 0));
    walklevel(std::move(dir), prefix, dirpath, typedname, Walk{filepart(mask), bIncludeSubs, host},
              host.parallelwalk());
}

}  // namespace brindlex
