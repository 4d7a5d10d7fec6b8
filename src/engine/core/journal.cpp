#include "engine/core/journal.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/alignedbuffer.h"
#include "engine/core/faultinject.h"
#include "engine/core/openbinary.h"

namespace brindlex {

namespace fs = std::filesystem;

namespace {

constexpr char kMagic[8] = {'B', 'R', 'X', 'J', 'R', 'N', 'L', '2'};
constexpr std::int64_t kMiB = 1 << 20;
constexpr std::size_t kFields = 16;                   // numbers after the magic
constexpr std::size_t kMaxPath = 16 * kMiB;           // a name of any length a file system takes
constexpr std::size_t kMaxHashes = 262144 + 1;
constexpr std::int64_t kMaxBlock = 1024 * kMiB;
constexpr std::size_t kStepHead = 6 * 8;

void put(std::string& out, std::uint64_t v)
{
    out.append(reinterpret_cast<const char*>(&v), 8);
}

std::uint64_t get(const char* at)
{
    std::uint64_t v = 0;
    std::memcpy(&v, at, 8);
    return v;
}

// Reads exactly `count` bytes at `offset`, fewer only at the end of the file.
// The copy's blocks go into page-aligned strings (PageString).
template <class Bytes>
bool readat(int fd, std::int64_t offset, std::size_t count, Bytes& into)
{
    into.resize(count);
    std::size_t got = 0;
    while (got < count) {
        const ssize_t n = ::pread(fd, into.data() + got, count - got, static_cast<off_t>(offset + got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return false;
        if (n == 0)
            break;
        got += static_cast<std::size_t>(n);
    }
    into.resize(got);
    return true;
}

std::int64_t slotsfrom(std::size_t headerSize)
{
    return static_cast<std::int64_t>((headerSize + 4095) / 4096 * 4096);
}

// A step goes out in one write of up to a block: from a page-aligned string.
PageString encodestep(const JournalStep& step)
{
    std::string head;
    put(head, step.seq);
    put(head, static_cast<std::uint64_t>(step.chunk));
    put(head, static_cast<std::uint64_t>(step.ctime.tv_sec));
    put(head, static_cast<std::uint64_t>(step.ctime.tv_nsec));
    put(head, step.before.size());
    put(head, contenthash(head + step.before));
    PageString s(head.begin(), head.end());
    s.append(step.before);
    return s;
}

std::string encodeheader(const CopyJournal& j)
{
    std::string s(kMagic, sizeof kMagic);
    for (std::uint64_t v : {j.dev, j.ino, static_cast<std::uint64_t>(j.oldLength), std::uint64_t{j.mode},
                            static_cast<std::uint64_t>(j.mtime.tv_sec), static_cast<std::uint64_t>(j.mtime.tv_nsec),
                            static_cast<std::uint64_t>(j.ctime.tv_sec), static_cast<std::uint64_t>(j.ctime.tv_nsec),
                            j.scratchDev, j.scratchIno, static_cast<std::uint64_t>(j.newLength), j.newHash,
                            static_cast<std::uint64_t>(j.block), std::uint64_t{j.target.size()},
                            std::uint64_t{j.oldHashes.size()}, std::uint64_t{0}})
        put(s, v);
    s += j.target;
    for (std::uint64_t h : j.oldHashes)
        put(s, h);
    put(s, contenthash(s));
    return s;
}

std::int64_t blocksof(std::int64_t length, std::int64_t block)
{
    return (length + block - 1) / block;
}

Error unreadable(const fs::path& path, const std::string& why)
{
    return Error{EINVAL, "Journal unreadable: " + why, path};
}

}  // namespace

std::uint64_t contenthash(std::string_view bytes, std::uint64_t seed)
{
    constexpr std::uint64_t kMul = 0x9E3779B97F4A7C15ull;
    std::uint64_t h = seed ^ (bytes.size() * 0xC2B2AE3D27D4EB4Full);
    const char* p = bytes.data();
    std::size_t n = bytes.size();
    for (; n >= 8; p += 8, n -= 8) {
        h = (h ^ get(p)) * kMul;
        h ^= h >> 31;
    }
    std::uint64_t last = 0;
    std::memcpy(&last, p, n);
    h = (h ^ last) * kMul;
    h ^= h >> 29;
    h *= 0xBF58476D1CE4E5B9ull;
    return h ^ (h >> 32);
}

std::int64_t journalblock(std::int64_t length)
{
    const std::int64_t span = kMiB * static_cast<std::int64_t>(kMaxHashes - 1);
    return std::min(kMaxBlock, kMiB * std::max<std::int64_t>(1, (length + span - 1) / span));
}

Error hashcontents(int target, int scratch, CopyJournal& journal)
{
    PageString buf;
    journal.oldHashes.clear();
    for (std::int64_t at = 0; at < journal.oldLength; at += journal.block) {
        if (!readat(target, at, static_cast<std::size_t>(std::min(journal.block, journal.oldLength - at)), buf))
            return errorfromerrno(errno);
        journal.oldHashes.push_back(contenthash(buf));
    }
    journal.newHash = 0;
    for (std::int64_t at = 0; at < journal.newLength; at += journal.block) {
        if (!readat(scratch, at, static_cast<std::size_t>(std::min(journal.block, journal.newLength - at)), buf))
            return errorfromerrno(errno);
        journal.newHash = contenthash(buf, journal.newHash);
    }
    return {};
}

Error JournalWriter::create(const fs::path& path, const CopyJournal& journal, const timespec& ctime,
                            JournalWriter& out)
{
    const std::string header = encodeheader(journal);
    // The journal is written whole, with its first step, before it gets its
    // name: killed before that, the copy leaves no journal at all rather
    // than half of one, which the next start would have to doubt. Where a
    // nameless file can't be made, it is made under its name at once.
    const fs::path dirpath = path.has_parent_path() ? path.parent_path() : fs::path(".");
    FileHandle dir(::open(dirpath.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    bool nameless = true;
    FileHandle fd(checked("journal", [&] {
        const int made = opennameless(dir.get(), 0600);
        if (made >= 0 || errno != EOPNOTSUPP)
            return made;
        nameless = false;
        return ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    }));
    if (!fd.valid())
        return errorfromerrno(errno, path);
    out.fd_ = std::move(fd);
    out.path_ = path;
    out.slots_ = slotsfrom(header.size());
    out.slotSize_ = static_cast<std::int64_t>(kStepHead) + journal.block;
    out.seq_ = 0;
    if (pwriteall(out.fd_.get(), header, 0, nullptr) != 0 || out.record(-1, ctime, {}) || ::fdatasync(out.fd_.get()) != 0
        || (nameless && checked("journal-name", [&] {
                return linknameless(out.fd_.get(), dir.get(), path.filename().c_str());
            }) != 0)) {
        const Error error = errorfromerrno(errno, path);
        if (!nameless)
            ::unlink(path.c_str());
        out.fd_.close();
        return error;
    }
    if (dir.valid())
        ::fsync(dir.get());
    return {};
}

Error JournalWriter::reopen(const fs::path& path, const CopyJournal& journal, const JournalStep& last,
                            JournalWriter& out)
{
    FileHandle fd(::open(path.c_str(), O_RDWR | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    struct stat st {};
    if (!fd.valid() || ::fstat(fd.get(), &st) != 0)
        return errorfromerrno(errno, path);
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid())
        return unreadable(path, "not a regular file of the user's own");
    out.fd_ = std::move(fd);
    out.path_ = path;
    out.slots_ = slotsfrom(encodeheader(journal).size());
    out.slotSize_ = static_cast<std::int64_t>(kStepHead) + journal.block;
    out.seq_ = last.seq + 1;
    return {};
}

Error JournalWriter::record(std::int64_t chunk, const timespec& ctime, std::string_view before)
{
    JournalStep step;
    step.seq = seq_;
    step.chunk = chunk;
    step.ctime = ctime;
    step.before = before;
    const PageString bytes = encodestep(step);
    if (const int code = pwriteall(fd_.get(), bytes, slots_ + static_cast<std::int64_t>(seq_ % 2) * slotSize_,
                                   "journal-step"))
        return errorfromerrno(code, path_);
    ++seq_;
    return {};
}

JournalLoad loadjournal(const fs::path& path)
{
    JournalLoad load;
    const fs::path dirpath = path.has_parent_path() ? path.parent_path() : fs::path(".");
    FileHandle dir(openlong(dirpath, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat st {};
    const std::string name = path.filename().string();
    if (!dir.valid() || ::fstatat(dir.get(), name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        load.exists = !dir.valid() ? false : errno != ENOENT;
        load.error = errorfromerrno(errno, path);
        return load;
    }
    load.exists = true;
    struct stat dst {};
    if (::fstat(dir.get(), &dst) != 0 || dst.st_uid != ::geteuid() || (dst.st_mode & 022) != 0) {
        load.error = Error{EPERM, "its directory is not the user's own, or others may write to it", path};
        return load;
    }
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid() || st.st_nlink != 1) {
        load.error = Error{EPERM, "it is not a regular file of the user's own", path};
        return load;
    }
    FileHandle fd(::openat(dir.get(), name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd.valid() || ::fstat(fd.get(), &st) != 0) {
        load.error = errorfromerrno(errno, path);
        return load;
    }
    if (!S_ISREG(st.st_mode) || st.st_uid != ::geteuid() || st.st_nlink != 1) {
        load.error = Error{EPERM, "it is not a regular file of the user's own", path};
        return load;
    }
    std::string head;
    const std::size_t fixed = sizeof kMagic + kFields * 8;
    if (!readat(fd.get(), 0, fixed, head) || head.size() != fixed || std::memcmp(head.data(), kMagic, 8) != 0) {
        load.error = unreadable(path, "not a journal of this program");
        return load;
    }
    auto field = [&](std::size_t i) { return get(head.data() + 8 + i * 8); };
    CopyJournal& j = load.journal;
    j.dev = field(0);
    j.ino = field(1);
    j.oldLength = static_cast<std::int64_t>(field(2));
    j.mode = static_cast<std::uint32_t>(field(3));
    j.mtime = {static_cast<time_t>(field(4)), static_cast<long>(field(5))};
    j.ctime = {static_cast<time_t>(field(6)), static_cast<long>(field(7))};
    j.scratchDev = field(8);
    j.scratchIno = field(9);
    j.newLength = static_cast<std::int64_t>(field(10));
    j.newHash = field(11);
    j.block = static_cast<std::int64_t>(field(12));
    const std::uint64_t pathlen = field(13), nhashes = field(14);
    if (pathlen == 0 || pathlen > kMaxPath || nhashes > kMaxHashes || j.block <= 0 || j.block > kMaxBlock
        || j.oldLength < 0 || j.newLength < 0 || nhashes != static_cast<std::uint64_t>(blocksof(j.oldLength, j.block))) {
        load.error = unreadable(path, "its fields are out of range");
        return load;
    }
    std::string rest;
    const std::size_t restsize = static_cast<std::size_t>(pathlen + nhashes * 8 + 8);
    if (!readat(fd.get(), static_cast<std::int64_t>(fixed), restsize, rest) || rest.size() != restsize
        || contenthash(head + rest.substr(0, restsize - 8)) != get(rest.data() + restsize - 8)) {
        load.error = unreadable(path, "it is cut short or damaged");
        return load;
    }
    j.target = rest.substr(0, static_cast<std::size_t>(pathlen));
    for (std::uint64_t i = 0; i < nhashes; ++i)
        j.oldHashes.push_back(get(rest.data() + pathlen + i * 8));
    // The newer of the two steps that is whole.
    const std::int64_t slots = slotsfrom(fixed + restsize);
    bool found = false;
    for (int slot = 0; slot < 2; ++slot) {
        std::string sh;
        const std::int64_t at = slots + slot * (static_cast<std::int64_t>(kStepHead) + j.block);
        if (!readat(fd.get(), at, kStepHead, sh) || sh.size() != kStepHead)
            continue;
        JournalStep step;
        step.seq = get(sh.data());
        step.chunk = static_cast<std::int64_t>(get(sh.data() + 8));
        step.ctime = {static_cast<time_t>(get(sh.data() + 16)), static_cast<long>(get(sh.data() + 24))};
        const std::uint64_t len = get(sh.data() + 32);
        if (len > static_cast<std::uint64_t>(j.block) || step.seq % 2 != static_cast<std::uint64_t>(slot)
            || (found && step.seq < load.step.seq))
            continue;
        if (!readat(fd.get(), at + static_cast<std::int64_t>(kStepHead), static_cast<std::size_t>(len), step.before)
            || step.before.size() != len || contenthash(sh.substr(0, 40) + step.before) != get(sh.data() + 40))
            continue;
        load.step = std::move(step);
        found = true;
    }
    if (!found)
        load.error = unreadable(path, "no step of the copy is whole");
    return load;
}

JournalVerdict verifyjournal(const CopyJournal& j, const JournalStep& step, int target, int scratch, std::string& why)
{
    struct stat tst {}, sst {};
    if (::fstat(target, &tst) != 0 || !S_ISREG(tst.st_mode) || tst.st_dev != j.dev || tst.st_ino != j.ino) {
        why = "it is another file now";
        return JournalVerdict::Doubt;
    }
    if (::fstat(scratch, &sst) != 0 || sst.st_dev != j.scratchDev || sst.st_ino != j.scratchIno
        || sst.st_size != j.newLength) {
        why = "the scratch file is not the one the copy wrote";
        return JournalVerdict::Doubt;
    }
    const std::int64_t size = tst.st_size, O = j.oldLength, N = j.newLength, B = j.block;
    const bool samectime = tst.st_ctim.tv_sec == step.ctime.tv_sec && tst.st_ctim.tv_nsec == step.ctime.tv_nsec;
    const std::int64_t c = step.chunk;
    bool complete = size == N, consistent = true;
    std::uint64_t newHash = 0;
    PageString t, n;
    const std::int64_t blocks = std::max(blocksof(std::max(O, N), B), blocksof(size, B));
    for (std::int64_t m = 0; m < blocks; ++m) {
        const std::int64_t at = m * B;
        if (!readat(target, at, static_cast<std::size_t>(std::clamp<std::int64_t>(size - at, 0, B)), t)
            || !readat(scratch, at, static_cast<std::size_t>(std::clamp<std::int64_t>(N - at, 0, B)), n)) {
            why = std::string("a read failed: ") + std::strerror(errno);
            return JournalVerdict::Doubt;
        }
        if (!n.empty())
            newHash = contenthash(n, newHash);
        complete = complete && t == n;
        if (!consistent)
            continue;
        const std::size_t oldlen = static_cast<std::size_t>(std::clamp<std::int64_t>(O - at, 0, B));
        if (c == JournalStep::kTruncating || m < c) {
            // Written whole: the new bytes, then (before the cut) the old ones behind the new end.
            consistent = t.compare(0, n.size(), n) == 0 && t.size() >= n.size();
        } else if (m == c) {
            // The new bytes up to where the write got, then the block as it was.
            // For the k bytes written: t is n[0,k) then was[k..], as long as
            // the longer of the two. The longest common start d with n is
            // the k that leaves the least to compare.
            const std::string_view was = step.before;
            std::size_t d = 0;
            while (d < t.size() && d < n.size() && t[d] == n[d])
                ++d;
            consistent = t.size() > was.size() ? d == t.size()
                : t.size() == was.size() && std::string_view(t).substr(d) == was.substr(d);
            // A new ctime with the block as it was: someone else wrote the file.
            consistent = consistent && (samectime || std::string_view(t) != was);
        } else {
            consistent = t.size() == oldlen && (oldlen == 0 || contenthash(t) == j.oldHashes[static_cast<std::size_t>(m)]);
        }
    }
    if (newHash != j.newHash) {
        why = "the scratch file no longer holds the new content";
        return JournalVerdict::Doubt;
    }
    if (complete)
        return JournalVerdict::Complete;
    if (c == JournalStep::kTruncating)
        consistent = consistent && samectime && size == std::max(O, N);
    else if (c < 0)
        consistent = consistent && samectime;
    if (!consistent) {
        why = "it has changed since the copy was cut short";
        return JournalVerdict::Doubt;
    }
    return JournalVerdict::Resume;
}

Error reserveroom(int dest, std::int64_t length, const fs::path& target)
{
    if (length > 0 && checked("fallocate", [&] { return ::fallocate(dest, FALLOC_FL_KEEP_SIZE, 0, length); }) != 0
        && errno != EOPNOTSUPP && errno != ENOSYS)
        return errorfromerrno(errno, target);
    return {};
}

Error copyjournaled(int from, int dest, const CopyJournal& j, JournalWriter& writer, const fs::path& scratch,
                    const fs::path& target, bool& touched)
{
    touched = false;
    const std::int64_t N = j.newLength, B = j.block;
    struct stat st {};
    PageString n, t;
    for (std::int64_t at = 0, chunk = 0; at < N; at += B, ++chunk) {
        const std::size_t want = static_cast<std::size_t>(std::min(B, N - at));
        if (checked("copy-read", [&] { return readat(from, at, want, n) ? 0 : -1; }) != 0)
            return errorfromerrno(errno, scratch);
        if (n.size() != want)
            return errorfromerrno(EIO, scratch);
        if (!readat(dest, at, static_cast<std::size_t>(B), t))
            return errorfromerrno(errno, target);
        if (t.compare(0, n.size(), n) == 0 && t.size() >= n.size())
            continue;   // already holds its new bytes
        if (::fstat(dest, &st) != 0)
            return errorfromerrno(errno, target);
        if (Error e = writer.record(chunk, st.st_ctim, t))
            return e;
        if (const int code = pwriteall(dest, n, at, "copy-write")) {
            const Error error = errorfromerrno(code, target);
            // A write that failed part of the way has changed the file all the same.
            PageString now;
            touched = touched || !readat(dest, at, static_cast<std::size_t>(B), now) || now != t;
            return error;
        }
        touched = true;
    }
    if (::fstat(dest, &st) != 0)
        return errorfromerrno(errno, target);
    if (st.st_size != N) {
        if (Error e = writer.record(JournalStep::kTruncating, st.st_ctim, {}))
            return e;
        if (checked("truncate-target", [&] { return ::ftruncate(dest, N); }) != 0)
            return errorfromerrno(errno, target);
        touched = true;
    }
    if (checked("sync-target", [&] { return ::fdatasync(dest); }) != 0)
        return errorfromerrno(errno, target);
    return {};
}

}  // namespace brindlex
