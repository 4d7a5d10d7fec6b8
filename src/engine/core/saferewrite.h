// The one route by which the program writes a user's file.
//
// At every instant the user's file holds either its old or its new content:
//  1. The file is resolved (a symbolic link stays a link: its target is what
//     is replaced), opened with O_NOFOLLOW and must be a regular file.
//  2. The new content goes into a new file in the same directory (O_TMPFILE,
//     named only at the swap; else O_CREAT|O_EXCL with a hidden name that
//     holds the process id, so that a later replace in that directory
//     removes what a dead process left). Owner, group and extended
//     attributes are copied; every write is checked; it is synced; the mode,
//     set-id bits included, and the file capabilities are applied after the
//     last write (a write by an ordinary user clears those bits, any write
//     the capabilities). Only root may set capabilities: for anyone else
//     they are dropped and notice() says so.
//  3. Just before the swap the original is checked again (inode, size,
//     modification and change time) against what the caller opened and read
//     (see begin); a file changed meanwhile is not replaced: begin() or
//     commit() gives ESTALE, "File changed by another program since it was
//     read". The check and the swap hold a lock on the file read, so two
//     programs of ours never both replace the same content.
//  4. renameat puts the new file in place and the directory is synced.
//  5. Where that route can't keep what the user has (a directory the user may
//     not write, more than one hard link, an owner that can't be kept), the
//     content is streamed into the work directory's scratch file, which is
//     locked, verified, and copied over the file in place; it stays until
//     the copy is complete, so the content can always be recovered. The
//     room for the copy is taken before its first byte, so a full disk
//     stops it while the file still holds its old content. A scratch file
//     that another process holds makes begin() fail (EWOULDBLOCK). While the
//     copy runs, SIGTERM, SIGHUP and SIGINT wait, and a journal beside the
//     scratch file (journal.h) names the target and proves what it holds:
//     should the process die all the same, finishinterruptedcopy() at the
//     next start completes the copy, or, in any doubt, writes nothing and
//     keeps the journal. The journal lives only while the file may
//     be half new: a copy that fails before its first change removes it
//     (the file keeps its old content); one that fails after keeps it, and
//     its error text adds "(the copy is finished from the kept scratch file
//     at the next start)". Until then begin() refuses the scratch file
//     (EBUSY, "Scratch file holds an unfinished copy").
//  6. A file that the user may not write is never replaced: begin() still
//     takes the new content, and commit() gives EACCES, "Permission denied".
// On any failure nothing is left in the user's directory but the file.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "engine/core/error.h"
#include "engine/core/openbinary.h"

namespace brindlex {

class SafeReplace {
public:
    // What begin() does with a target that doesn't exist: refuse it (ENOENT),
    // or make it, with mode 0666 less the umask, at commit() as long as no
    // other file has taken the name by then. CreateNoLink is Create for an
    // output of the program's own (a sheet): a symbolic link at the name is
    // refused (ELOOP), never followed.
    enum class Missing { Refuse, Create, CreateNoLink };

    // Prepares the replacement of `target`. `scratch` is the work
    // directory's scratch file, used by the fallback route (empty when the
    // work directory can't be used: the fallback route then fails).
    // `original` is the file as the caller opened it to read the old
    // content; it must stay open until commit(). The name must still hold
    // that file (device, inode, size, modification time) at begin and at
    // the swap: a file renamed over the original after the caller's open is
    // never overwritten. Without it the file as begin() finds it counts.
    static std::unique_ptr<SafeReplace> begin(const std::filesystem::path& target,
                                              const std::filesystem::path& scratch, Error& error,
                                              Missing missing = Missing::Refuse,
                                              const OpenedFile* original = nullptr);
    ~SafeReplace();  // aborts unless committed: no stray file is left

    // Where the new content is written, sequentially, by the caller.
    int fd() const;

    // Writes all of `bytes` to fd(); false after the first failed write (the
    // error is kept and commit() refuses). A new file beside a target that
    // has holes keeps them: its pages of zeros are passed over, not written.
    bool write(std::string_view bytes);

    // Writes by place, for threads that make the new content out of order:
    // possible unless pages of zeros are to be passed over, or a write has
    // failed. writeat() writes all of `bytes` at `at` and may run on many
    // threads at once: 0, or the errno of the failure, which resume() then
    // keeps (on the thread of write()); else resume() puts the next write()
    // at `end`.
    bool positional() const;
    int writeat(std::string_view bytes, std::int64_t at) const;
    bool resume(std::int64_t end, int error);

    // Length of what has been written so far, from the file itself.
    std::int64_t writtenlength() const;

    // Length of the original file as it was opened.
    std::int64_t originallength() const;

    // Length of what the name holds now, looked at in the directory opened
    // at begin(); -1 with errno set when there is nothing to look at.
    std::int64_t lengthnow() const;

    // The first failed write, kept for commit(); code 0 while none failed.
    const Error& writeerror() const;

    // The file the new content is copied from when it is put in place: the
    // scratch file on the fallback route, else the new file beside the
    // target (by its hidden name once it has one, else the directory).
    std::filesystem::path copiedfrom() const;

    // Puts the new content in place. On failure the original is unchanged
    // (save a copy in place that failed half done, which the next start
    // finishes, as its error says) and the error says why.
    Error commit();

    // Drops the new content; the original stays as it was.
    void abort();

    // After a commit() that succeeded: what of the old file could not be
    // kept (its file capabilities, which only root may set), else empty.
    const std::string& notice() const;

    // Device and inode of what the name holds after a successful commit().
    const struct stat& result() const;

    SafeReplace(const SafeReplace&) = delete;
    SafeReplace& operator=(const SafeReplace&) = delete;

    struct Impl;
private:
    explicit SafeReplace(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// Whether `name` in the directory `dirfd` is a stray: the hidden new file
// that one of the user's processes left when it died between making and
// swapping it. The next replace in the directory removes it, and no walk
// lists it; a process id that is alive (or not ours to ask about) keeps
// its file a file like any other.
bool isstray(int dirfd, const char* name);

// Replaces the whole content of `target` with `bytes` through SafeReplace; a
// target that doesn't exist yet is made.
Error replacefilecontent(const std::filesystem::path& target, std::string_view bytes,
                         const std::filesystem::path& scratch);

// At a program's start: finishes the copy in place that a process killed
// during it left half done, from the scratch file its journal names, when
// the journal proves that the target is still that file and holds what the
// cut-short copy left (see journal.h). Anything else writes nothing and
// keeps the journal and the scratch file, which then no copy in place
// reuses, and the message tells the user what to do. A journal that is not
// the user's own, or lies where others may write, is left alone. Another
// process copying through the scratch file is waited for up to `wait`, then
// named. The message is empty when there was nothing to do.
struct Recovery {
    enum class Outcome { None, Finished, Kept, Refused, Busy };
    Outcome outcome = Outcome::None;
    std::string message;
};
Recovery recoverinterruptedcopy(const std::filesystem::path& scratch,
                                std::chrono::milliseconds wait = std::chrono::seconds(5));

// The message of recoverinterruptedcopy(scratch).
std::string finishinterruptedcopy(const std::filesystem::path& scratch);

}  // namespace brindlex
