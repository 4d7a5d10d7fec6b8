// Edits that keep a file's length, written where they stand.
//
// A replace whose every hit keeps its length, or a page save that keeps the
// page's length, in a file of at least inplacethreshold() bytes changes only
// the bytes that differ: copying gigabytes to change a few would be the
// whole cost of the edit. Below the threshold the new content goes through
// SafeReplace as a whole, so that readers see the old or the new file.
//
// At every instant the file holds its old content, its new content, or -
// only while the process is writing, or after it died there - a mix that
// the undo journal turns back into the old content:
//  1. add() gathers the edits (offset, old bytes, new bytes) in the undo
//     journal, a nameless file of the work directory (O_TMPFILE): nothing
//     of the user's file changes while the scan goes on, and a cancelled
//     scan leaves no trace.
//  2. commit() takes a lock on the file as read, checks it is still what
//     was read (device, inode, size, modification and change time) and
//     that the user may write it, closes the journal with a count and a
//     checksum, syncs it and gives it a name (brindlex.undo.<pid>-<n>) in
//     the work directory, which is synced too.
//  3. The new bytes are written over the old ones from the journal, the
//     file is synced, then the journal's name is removed.
// SIGTERM, SIGHUP and SIGINT wait during 2 and 3. Should the process die
// all the same, rollbackinplaceedits() at the next start writes the old
// bytes back - once it has proved that the journal is this user's own,
// unlinked elsewhere, complete, and that the file it names is the same file
// (device, inode, length) holding at each edit either its old or its new
// bytes. Any doubt keeps the journal and tells the user what to do;
// nothing is written.
//   "xaxa", "a" -> "b" at 2 and 4: the journal holds (1, "a", "b") and
//   (3, "a", "b"); killed after the first write the file reads "xbxa";
//   the next start writes "a" at 1 back: "xaxa".
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "engine/core/error.h"
#include "engine/core/openbinary.h"

namespace brindlex {

// Files of at least this many bytes take equal-length edits in place:
// 16 MiB, or $BRINDLEX_INPLACE_MIN when set (tests use small files).
std::int64_t inplacethreshold();

class InPlaceEdit {
public:
    // Prepares edits of `original`, the file as the caller opened and read it
    // under the name `target`; the undo journal is made in `workdir`. Null
    // with the reason in `error` when the journal can't be made.
    static std::unique_ptr<InPlaceEdit> begin(const std::filesystem::path& target, const OpenedFile& original,
                                              const std::filesystem::path& workdir, Error& error);
    ~InPlaceEdit();   // uncommitted: the file was never touched, the journal goes

    // At 0-based `offset` the bytes `oldBytes` become `newBytes`, of the same
    // length; offsets come in ascending order and never overlap. Equal bytes
    // are no edit. False after the first failure, which commit() reports.
    bool add(std::int64_t offset, std::string_view oldBytes, std::string_view newBytes);

    // Puts the edits in place (see above). On failure the file holds its old
    // content, save a write that failed midway which the next start undoes,
    // as the error says.
    Error commit();

    // The file as it is after a successful commit().
    const struct stat& result() const;

    std::int64_t edits() const;

    InPlaceEdit(const InPlaceEdit&) = delete;
    InPlaceEdit& operator=(const InPlaceEdit&) = delete;

    struct Impl;

private:
    explicit InPlaceEdit(std::unique_ptr<Impl> impl);
    std::unique_ptr<Impl> impl_;
};

// At a program's start: undoes the in-place edits that a process killed
// while writing them left half done, from the undo journals of `workdir`
// whose process is gone. Returns what the user is told, a line a journal;
// empty when there was nothing to undo.
std::string rollbackinplaceedits(const std::filesystem::path& workdir);

}  // namespace brindlex
