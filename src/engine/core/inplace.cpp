#include "engine/core/inplace.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
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
#include "engine/core/openbinary.h"
#include "engine/core/signalhold.h"

namespace brindlex {

namespace fs = std::filesystem;

namespace {

constexpr std::string_view kMagic = "BRINDLEX UNDO 2\n";
constexpr std::size_t kHeadNumbers = 6;   // device, inode, size, birth (s, ns), path length
constexpr std::string_view kEnd = "UNDO END";
constexpr std::string_view kPrefix = "brindlex.undo.";
constexpr std::size_t kTrailer = 8 + 8 + 8;    // kEnd, record count, checksum
constexpr std::size_t kChunk = 1 << 20;

// FNV-1a, 64 bits: proves the journal whole, not secret.
struct Checksum {
    std::uint64_t h = 0xcbf29ce484222325ULL;
    void add(std::string_view bytes)
    {
        for (const char c : bytes)
            h = (h ^ static_cast<unsigned char>(c)) * 0x100000001b3ULL;
    }
};

template <typename String>
void putnumber(String& out, std::uint64_t n)
{
    for (int i = 0; i < 8; ++i)
        out += static_cast<char>((n >> (8 * i)) & 0xff);
}

std::uint64_t getnumber(std::string_view in)
{
    std::uint64_t n = 0;
    for (int i = 7; i >= 0; --i)
        n = (n << 8) | static_cast<unsigned char>(in[static_cast<std::size_t>(i)]);
    return n;
}

// What the journal says of the file it was made for.
struct Target {
    fs::path path;
    std::uint64_t dev = 0, ino = 0, size = 0;
    std::uint64_t bornSec = 0, bornNsec = 0;   // 0, 0 where the file system doesn't tell
};

// When the file was made: a file made anew in the place of another, even
// under the same inode number, was born later. 0, 0 where unknown.
std::pair<std::uint64_t, std::uint64_t> birthof(int fd)
{
    struct statx stx {};
    if (::statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &stx) != 0 || !(stx.stx_mask & STATX_BTIME))
        return {0, 0};
    return {static_cast<std::uint64_t>(stx.stx_btime.tv_sec), stx.stx_btime.tv_nsec};
}

Error writeall(int fd, std::string_view bytes, std::int64_t offset, const fs::path& path, const char* step)
{
    const int code = pwriteall(fd, bytes, offset, step);
    return code == 0 ? Error {} : errorfromerrno(code, path);
}

bool readall(int fd, char* to, std::size_t n, std::int64_t offset)
{
    while (n > 0) {
        const ssize_t r = ::pread(fd, to, n, offset);
        if (r < 0 && errno == EINTR)
            continue;
        if (r <= 0)
            return false;
        to += r;
        n -= static_cast<std::size_t>(r);
        offset += r;
    }
    return true;
}

// Reads a journal's records one by one from its open descriptor, from
// `begin` up to `end`, through a buffer of a few pieces.
class RecordReader {
public:
    RecordReader(int fd, std::int64_t begin, std::int64_t end) : fd_(fd), at_(begin), end_(end) {}

    // The next record; false at the end, or with `bad` set on a record that
    // runs past the end or can't be read.
    bool next(std::int64_t& offset, std::string_view& oldBytes, std::string_view& newBytes, bool& bad)
    {
        if (at_ >= end_)
            return false;
        if (!have(12))
            return bad = true, false;
        const char* head = buf_.data() + used_;
        offset = static_cast<std::int64_t>(getnumber({head, 8}));
        std::uint32_t len = 0;
        for (int i = 3; i >= 0; --i)
            len = (len << 8) | static_cast<unsigned char>(head[8 + i]);
        if (offset < 0 || len == 0 || len > kChunk || !have(12 + 2 * std::size_t{len}))
            return bad = true, false;
        const std::string_view record(buf_.data() + used_ + 12, 2 * std::size_t{len});
        oldBytes = record.substr(0, len);
        newBytes = record.substr(len);
        used_ += 12 + 2 * std::size_t{len};
        at_ += 12 + 2 * static_cast<std::int64_t>(len);
        return true;
    }

private:
    // At least `n` bytes of the journal from at_ in the buffer, not past end_.
    bool have(std::size_t n)
    {
        if (end_ - at_ < static_cast<std::int64_t>(n))
            return false;
        if (buf_.size() - used_ >= n)
            return true;
        buf_.erase(0, used_);
        used_ = 0;
        const std::size_t kept = buf_.size();
        const auto want = static_cast<std::size_t>(
            std::min<std::int64_t>(end_ - at_, static_cast<std::int64_t>(std::max(n, 2 * kChunk))));
        buf_.resize(want);
        return readall(fd_, buf_.data() + kept, want - kept, at_ + static_cast<std::int64_t>(kept));
    }

    int fd_;
    std::int64_t at_;
    std::int64_t end_;
    PageString buf_;         // the journal from at_ - used_ on
    std::size_t used_ = 0;
};

// The security.capability attribute of an executable goes with any write by
// anyone; root puts it back.
std::string capabilityof(int fd)
{
    std::string value(256, '\0');
    const ssize_t n = ::fgetxattr(fd, "security.capability", value.data(), value.size());
    value.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
    return value;
}

// After writes into the file itself: its mode, set-id bits included, and
// its capabilities as they were, where this process may set them.
void keepprivileges(int fd, const struct stat& before, const std::string& capability)
{
    struct stat now {};
    if (::fstat(fd, &now) == 0 && (now.st_mode & 07777) != (before.st_mode & 07777))
        ::fchmod(fd, before.st_mode & 07777);
    if (!capability.empty() && capabilityof(fd).empty())
        ::fsetxattr(fd, "security.capability", capability.data(), capability.size(), 0);
}

// Writes pieces of ascending offsets into a file. Pieces close to each other
// (a dense replace: a line end every few dozen bytes) go out as one write of
// the span that holds them, the bytes between read from the file in larger
// reads; a piece far from the others is written alone.
class SpanWriter {
public:
    SpanWriter(int fd, const fs::path& path) : fd_(fd), path_(path) {}

    Error put(std::int64_t offset, std::string_view bytes)
    {
        const std::int64_t end = start_ + static_cast<std::int64_t>(span_.size());
        const bool joins = !span_.empty() && offset >= end && offset - end <= kGap
            && offset + static_cast<std::int64_t>(bytes.size()) - start_ <= kSpan;
        if (!joins) {
            if (Error error = flush())
                return error;
            start_ = offset;
        } else if (offset > end) {
            if (!between(end, offset))
                return errorfromerrno(errno ? errno : EIO, path_);
        }
        span_.append(bytes);
        return {};
    }

    Error flush()
    {
        Error error = writeall(fd_, span_, start_, path_, "inplace-write");
        span_.clear();
        return error;
    }

private:
    static constexpr std::int64_t kGap = 4096;
    static constexpr std::int64_t kSpan = 256 << 10;
    static constexpr std::int64_t kAhead = 64 << 10;

    // Appends the file's bytes [from, to) to the span, from what was read
    // ahead or from a new read.
    bool between(std::int64_t from, std::int64_t to)
    {
        const std::int64_t aheadEnd = aheadStart_ + static_cast<std::int64_t>(ahead_.size());
        if (from < aheadStart_ || to > aheadEnd) {
            ahead_.resize(static_cast<std::size_t>(std::max(to - from, kAhead)));
            errno = 0;
            const ssize_t n = ::pread(fd_, ahead_.data(), ahead_.size(), from);
            ahead_.resize(n > 0 ? static_cast<std::size_t>(n) : 0);
            aheadStart_ = from;
            if (from + static_cast<std::int64_t>(ahead_.size()) < to)
                return false;
        }
        span_.append(ahead_, static_cast<std::size_t>(from - aheadStart_), static_cast<std::size_t>(to - from));
        return true;
    }

    int fd_;
    const fs::path& path_;
    std::int64_t start_ = 0;
    PageString span_;
    std::int64_t aheadStart_ = 0;
    PageString ahead_;
};

// Writes the `newer` (or else the older) bytes of every record into `fd`.
Error applyrecords(int journal, std::int64_t begin, std::int64_t end, int fd, bool newer, const fs::path& path)
{
    RecordReader records(journal, begin, end);
    SpanWriter out(fd, path);
    std::int64_t offset = 0;
    std::string_view oldBytes, newBytes;
    bool bad = false;
    while (records.next(offset, oldBytes, newBytes, bad)) {
        if (Error error = out.put(offset, newer ? newBytes : oldBytes))
            return error;
    }
    if (bad)
        return Error{EIO, "Undo journal unreadable", path};
    if (Error error = out.flush())
        return error;
    if (checked("inplace-sync", [&] { return ::fdatasync(fd); }) != 0)
        return errorfromerrno(errno, path);
    return {};
}

std::atomic<int> journalsMade {0};

}  // namespace

std::int64_t inplacethreshold()
{
    if (const char* own = std::getenv("BRINDLEX_INPLACE_MIN"); own && *own) {
        char* end = nullptr;
        const long long n = std::strtoll(own, &end, 10);
        if (end && *end == '\0' && n >= 0)
            return n;
    }
    return std::int64_t{16} << 20;
}

struct InPlaceEdit::Impl {
    fs::path target;
    const OpenedFile* original = nullptr;
    fs::path workdir;
    FileHandle dir;          // the work directory
    FileHandle journal;      // nameless until the commit
    std::string named;       // its name from then on
    PageString pending;      // records not yet written to it
    std::int64_t written = 0;
    std::int64_t headerLen = 0;
    std::int64_t count = 0;
    Checksum sum;
    Error error;
    bool finished = false;
    struct stat result {};

    bool flush();
    Error closejournal();
    Error checkunchanged(int fd) const;
    void dropjournal();
};

bool InPlaceEdit::Impl::flush()
{
    if (error)
        return false;
    if (pending.empty())
        return true;
    sum.add(pending);
    if (Error failed = writeall(journal.get(), pending, written, workdir, "undo-journal")) {
        error = failed;
        return false;
    }
    written += static_cast<std::int64_t>(pending.size());
    pending.clear();
    return true;
}

// The trailer, the sync, and a name in the work directory: from here on a
// next start undoes whatever of the edits reached the file.
Error InPlaceEdit::Impl::closejournal()
{
    std::string trailer(kEnd);
    putnumber(trailer, static_cast<std::uint64_t>(count));
    if (!flush())
        return error;
    putnumber(trailer, sum.h);
    if (Error failed = writeall(journal.get(), trailer, written, workdir, "undo-journal"))
        return failed;
    written += static_cast<std::int64_t>(trailer.size());
    if (checked("undo-sync", [&] { return ::fdatasync(journal.get()); }) != 0)
        return errorfromerrno(errno, workdir);
    for (int attempt = 0; attempt < 100 && named.empty(); ++attempt) {
        std::string name = std::string(kPrefix) + std::to_string(::getpid()) + "-" + std::to_string(++journalsMade);
        if (checked("undo-name", [&] {
                return linknameless(journal.get(), dir.get(), name.c_str());
            }) == 0)
            named = name;
        else if (errno != EEXIST)
            return errorfromerrno(errno, workdir);
    }
    if (named.empty())
        return errorfromerrno(EEXIST, workdir);
    if (checked("undo-sync-dir", [&] { return ::fsync(dir.get()); }) != 0)
        return errorfromerrno(errno, workdir);
    return {};
}

// The name still leads to the file read, and the file is as it was read.
Error InPlaceEdit::Impl::checkunchanged(int fd) const
{
    const struct stat& was = original->st;
    struct stat byname {}, now {};
    const bool same = ::stat(target.c_str(), &byname) == 0 && ::fstat(fd, &now) == 0
        && byname.st_dev == was.st_dev && byname.st_ino == was.st_ino && filestamp(now) == filestamp(was);
    return same ? Error{} : filechanged(target);
}

void InPlaceEdit::Impl::dropjournal()
{
    if (!named.empty()) {
        ::unlinkat(dir.get(), named.c_str(), 0);
        ::fsync(dir.get());
        named.clear();
    }
    journal.close();
}

InPlaceEdit::InPlaceEdit(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

InPlaceEdit::~InPlaceEdit()
{
    if (!impl_->finished)
        impl_->dropjournal();
}

std::unique_ptr<InPlaceEdit> InPlaceEdit::begin(const fs::path& target, const OpenedFile& original,
                                                const fs::path& workdir, Error& error)
{
    auto d = std::make_unique<Impl>();
    d->target = target;
    d->original = &original;
    d->workdir = workdir;
    if (workdir.empty()) {
        error = Error{ENOENT, "No work directory for the undo journal", target};
        return nullptr;
    }
    d->dir = FileHandle(checked("open-workdir", [&] {
        return ::open(workdir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    }));
    if (d->dir.valid())
        d->journal = FileHandle(checked("undo-create", [&] {
            return opennameless(d->dir.get(), 0600);
        }));
    if (!d->journal.valid()) {
        error = errorfromerrno(errno, workdir);
        return nullptr;
    }
    // Held for the journal's life: a start that finds it free knows that
    // the process that made the journal is gone.
    ::flock(d->journal.get(), LOCK_EX);
    // The journal's head: the file as it was read.
    std::string head(kMagic);
    const struct stat& st = original.st;
    const auto [bornSec, bornNsec] = birthof(original.fd.get());
    for (std::uint64_t n : {static_cast<std::uint64_t>(st.st_dev), static_cast<std::uint64_t>(st.st_ino),
                            static_cast<std::uint64_t>(st.st_size), bornSec, bornNsec})
        putnumber(head, n);
    const std::string path = fs::absolute(target).lexically_normal().string();
    putnumber(head, path.size());
    head += path;
    d->pending = head;
    d->headerLen = static_cast<std::int64_t>(d->pending.size());
    return std::unique_ptr<InPlaceEdit>(new InPlaceEdit(std::move(d)));
}

bool InPlaceEdit::add(std::int64_t offset, std::string_view oldBytes, std::string_view newBytes)
{
    Impl& d = *impl_;
    if (d.error)
        return false;
    // A record holds at most a piece of the file's bytes, so that reading
    // it back needs a bounded buffer.
    while (oldBytes.size() > kChunk) {
        if (!add(offset, oldBytes.substr(0, kChunk), newBytes.substr(0, kChunk)))
            return false;
        offset += static_cast<std::int64_t>(kChunk);
        oldBytes.remove_prefix(kChunk);
        newBytes.remove_prefix(kChunk);
    }
    // Only the bytes that differ: a record from the first to the last.
    std::size_t first = 0, last = oldBytes.size();
    while (first < last && oldBytes[first] == newBytes[first])
        ++first;
    while (last > first && oldBytes[last - 1] == newBytes[last - 1])
        --last;
    if (first == last)
        return true;
    const std::size_t len = last - first;
    putnumber(d.pending, static_cast<std::uint64_t>(offset) + first);
    for (int i = 0; i < 4; ++i)
        d.pending += static_cast<char>((len >> (8 * i)) & 0xff);
    d.pending.append(oldBytes.substr(first, len));
    d.pending.append(newBytes.substr(first, len));
    ++d.count;
    return d.pending.size() < kChunk || d.flush();
}

std::int64_t InPlaceEdit::edits() const
{
    return impl_->count;
}

const struct stat& InPlaceEdit::result() const
{
    return impl_->result;
}

Error InPlaceEdit::commit()
{
    Impl& d = *impl_;
    if (d.finished)
        return Error{EINVAL, "Replacement already finished", d.target};
    d.finished = true;
    if (d.error) {
        d.dropjournal();
        return d.error;
    }
    // Two of our processes that read the same file take turns here: the
    // second finds the file no longer what it read.
    const int readfd = d.original->fd.get();
    while (::flock(readfd, LOCK_EX) != 0 && errno == EINTR) {
    }
    Error error = [&]() -> Error {
        // Opened anew through the descriptor that read it: the very file
        // read, whatever its name leads to now; the open checks that the
        // user may write it.
        const std::string procpath = "/proc/self/fd/" + std::to_string(readfd);
        FileHandle fd(checked("open-target", [&] {
            return ::open(procpath.c_str(), O_RDWR | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
        }));
        if (!fd.valid())
            return errorfromerrno(errno, d.target);
        if (Error changed = d.checkunchanged(fd.get()))
            return changed;
        if (d.count == 0)
            return ::fstat(fd.get(), &d.result) == 0 ? Error{} : errorfromerrno(errno, d.target);
        const std::string capability = capabilityof(fd.get());
        const SignalHold hold;
        if (Error closed = d.closejournal())
            return closed;
        Error applied = applyrecords(d.journal.get(), d.headerLen, d.written - static_cast<std::int64_t>(kTrailer),
                                     fd.get(), true, d.target);
        if (applied) {
            // Undone at once if it can be; else by the next start.
            if (applyrecords(d.journal.get(), d.headerLen, d.written - static_cast<std::int64_t>(kTrailer), fd.get(),
                             false, d.target)) {
                applied.text += " (the old bytes are written back from the kept undo journal at the next start)";
                d.named.clear();
                return applied;
            }
            return applied;
        }
        keepprivileges(fd.get(), d.original->st, capability);
        ::fstat(fd.get(), &d.result);
        return {};
    }();
    ::flock(readfd, LOCK_UN);
    d.dropjournal();
    return error;
}

namespace {

// Proves a journal whole and reads its head; the reason it can't be used
// otherwise.
Error readhead(int fd, const struct stat& st, const fs::path& journal, Target& target, std::int64_t& begin,
               std::int64_t& end)
{
    const auto size = static_cast<std::int64_t>(st.st_size);
    const Error unreadable {EINVAL, "Undo journal incomplete or damaged", journal};
    if (size < static_cast<std::int64_t>(kMagic.size() + 8 * kHeadNumbers + kTrailer))
        return unreadable;
    Checksum sum;
    PageString piece(kChunk, '\0');
    end = size - static_cast<std::int64_t>(kTrailer);
    for (std::int64_t at = 0; at < end;) {
        const auto n = static_cast<std::size_t>(std::min<std::int64_t>(end - at, kChunk));
        if (!readall(fd, piece.data(), n, at))
            return unreadable;
        sum.add(std::string_view(piece).substr(0, n));
        at += static_cast<std::int64_t>(n);
    }
    char trailer[kTrailer];
    if (!readall(fd, trailer, kTrailer, end) || std::string_view(trailer, 8) != kEnd
        || getnumber({trailer + 16, 8}) != sum.h)
        return unreadable;
    char head[kMagic.size() + 8 * kHeadNumbers];
    if (!readall(fd, head, sizeof head, 0) || std::string_view(head, kMagic.size()) != kMagic)
        return unreadable;
    const char* n = head + kMagic.size();
    target.dev = getnumber({n, 8});
    target.ino = getnumber({n + 8, 8});
    target.size = getnumber({n + 16, 8});
    target.bornSec = getnumber({n + 24, 8});
    target.bornNsec = getnumber({n + 32, 8});
    const std::uint64_t pathLen = getnumber({n + 40, 8});
    begin = static_cast<std::int64_t>(sizeof head);
    if (pathLen == 0 || pathLen > static_cast<std::uint64_t>(end - begin))
        return unreadable;
    std::string path(pathLen, '\0');
    if (!readall(fd, path.data(), path.size(), begin))
        return unreadable;
    target.path = path;
    begin += static_cast<std::int64_t>(pathLen);
    return {};
}

// Whether every record of the file holds its old or its new bytes: only
// then is the file the one the journal was made for, as the edit left it.
// `touched` tells whether any holds the new ones.
Error matchrecords(int journal, std::int64_t begin, std::int64_t end, int fd, const fs::path& path, bool& touched)
{
    RecordReader records(journal, begin, end);
    std::int64_t offset = 0;
    std::string_view oldBytes, newBytes;
    bool bad = false;
    std::string now;
    touched = false;
    while (records.next(offset, oldBytes, newBytes, bad)) {
        now.resize(oldBytes.size());
        if (!readall(fd, now.data(), now.size(), offset) || (now != oldBytes && now != newBytes))
            return filechanged(path, "since it was edited");
        touched = touched || now != oldBytes;
    }
    if (bad)
        return Error{EINVAL, "Undo journal incomplete or damaged", path};
    return {};
}

// Undoes one journal of `dirfd`. Empty when it is not for this start to
// look at (its process is alive).
std::string rollbackone(int dirfd, const fs::path& workdir, const std::string& name)
{
    const fs::path journal = workdir / name;
    FileHandle fd(::openat(dirfd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st {};
    if (!fd.valid() || ::fstat(fd.get(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()
        || st.st_nlink != 1 || (st.st_mode & 077) != 0)
        return "An undo journal that is not this user's own was left alone: " + journal.string();
    // The lock is free only when the process that made the journal is gone.
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0)
        return {};
    Target target;
    std::int64_t begin = 0, end = 0;
    Error error = readhead(fd.get(), st, journal, target, begin, end);
    bool touched = false;
    if (!error) {
        FileHandle file(openlong(target.path, O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
        struct stat now {};
        if (!file.valid())
            error = errorfromerrno(errno, target.path);
        else if (::fstat(file.get(), &now) != 0 || !S_ISREG(now.st_mode) || now.st_dev != target.dev
                 || now.st_ino != target.ino || static_cast<std::uint64_t>(now.st_size) != target.size
                 || birthof(file.get()) != std::pair(target.bornSec, target.bornNsec))
            error = filechanged(target.path, "since it was edited");
        else
            error = matchrecords(fd.get(), begin, end, file.get(), target.path, touched);
        if (!error && touched) {
            const std::string capability = capabilityof(file.get());
            const SignalHold hold;
            error = applyrecords(fd.get(), begin, end, file.get(), false, target.path);
            if (!error)
                keepprivileges(file.get(), now, capability);
        }
    }
    if (error) {
        const std::string shown = target.path.empty() ? std::string("a file") : target.path.string();
        return "An interrupted in-place edit of " + shown + " was not undone: " + error.text + ". The old bytes are in "
            + journal.string() + "; remove it once the file is checked.";
    }
    ::unlinkat(dirfd, name.c_str(), 0);
    ::fsync(dirfd);
    return touched ? "Undid the interrupted in-place edit of " + target.path.string() : std::string();
}

}  // namespace

std::string rollbackinplaceedits(const fs::path& workdir)
{
    FileHandle dir(::open(workdir.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    if (!dir.valid() || ::fstat(dir.get(), &st) != 0 || st.st_uid != ::geteuid() || (st.st_mode & 022) != 0)
        return {};
    std::vector<std::string> names;
    if (DIR* listing = ::fdopendir(::dup(dir.get()))) {
        while (const dirent* entry = ::readdir(listing)) {
            if (std::string_view(entry->d_name).starts_with(kPrefix))
                names.emplace_back(entry->d_name);
        }
        ::closedir(listing);
    }
    std::string said;
    for (const std::string& name : names) {
        const std::string line = rollbackone(dir.get(), workdir, name);
        if (!line.empty())
            said += (said.empty() ? "" : "\n") + line;
    }
    return said;
}

}  // namespace brindlex
