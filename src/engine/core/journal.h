// The journal of a copy in place: what a process that dies while it copies
// new content over a file in place leaves behind, so that the next start can
// finish the copy, and can prove before it writes a byte that the file is
// still the very one, holding exactly what the cut-short copy left.
//
// The journal holds the target's path (any length), its device, inode,
// length and times as the copy found it, a hash of each block of its old
// content, the scratch file's device, inode, length and a hash of the new
// content. Before each block of the target changes, a step is recorded: the
// block's number, the target's ctime and the block's bytes as they were.
// Steps go into two slots by turns, each with a hash of its own, so that a
// step cut short by the process's death leaves the one before it whole.
//
// At the next start the target then holds, block by block: new content
// before the step's block, the new bytes followed by the recorded ones in
// it, the old content (by hash) after it, at the length that leaves. Any
// other state, another inode, a ctime changed with nothing written, or a
// scratch file that no longer holds the new content is a doubt: nothing is
// written and the journal stays for the user to decide.
//
// The journal and the scratch file are read only from a directory owned by
// the user and writable by nobody else, opened without following a link and
// without blocking, and only when they are regular files of the user's own.
#pragma once

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/error.h"
#include "engine/core/openbinary.h"

namespace brindlex {

// A fast 64-bit hash of bytes: a check against accidents and stale state,
// not against someone who can write the user's own files.
std::uint64_t contenthash(std::string_view bytes, std::uint64_t seed = 0);

// What the copy found when it began.
struct CopyJournal {
    std::string target;                      // absolute path, as bytes
    std::uint64_t dev = 0, ino = 0;          // the target
    std::int64_t oldLength = 0;
    std::uint32_t mode = 0;                  // given back after the copy
    timespec mtime {}, ctime {};
    std::uint64_t scratchDev = 0, scratchIno = 0;
    std::int64_t newLength = 0;
    std::uint64_t newHash = 0;               // of the scratch file's content, blockwise
    std::int64_t block = 0;                  // bytes per block
    std::vector<std::uint64_t> oldHashes;    // of each block of the old content
};

// The last change begun: block `chunk`, bytes `before` as the block held
// them, the target's ctime just before the write. chunk -1: nothing written
// yet; kTruncating: every block written, the cut to the new length next.
struct JournalStep {
    static constexpr std::int64_t kTruncating = -2;
    std::uint64_t seq = 0;
    std::int64_t chunk = -1;
    timespec ctime {};
    std::string before;
};

// The block size for a file of `length` bytes: 1 MiB, larger for files
// over 256 GiB so that the hashes stay within 2 MiB.
std::int64_t journalblock(std::int64_t length);

// Hashes the old content of `target` (open for reading) and the new content
// of `scratch` by blocks into `journal`; all other fields are the caller's.
Error hashcontents(int target, int scratch, CopyJournal& journal);

// An open journal being written by the copy.
class JournalWriter {
public:
    // Creates `path` (which must not exist), writes `journal` and a first
    // step (chunk -1, `ctime`), syncs it and its directory.
    static Error create(const std::filesystem::path& path, const CopyJournal& journal, const timespec& ctime,
                        JournalWriter& out);
    // Opens the journal that `load` read, to record further steps after `last`.
    static Error reopen(const std::filesystem::path& path, const CopyJournal& journal, const JournalStep& last,
                        JournalWriter& out);
    // Records a step; it must be on disk as far as a crash of the process
    // goes (no sync: the kernel keeps it) before the block changes.
    Error record(std::int64_t chunk, const timespec& ctime, std::string_view before);

    bool valid() const { return fd_.valid(); }
    const std::filesystem::path& path() const { return path_; }

private:
    FileHandle fd_;
    std::filesystem::path path_;
    std::int64_t slots_ = 0;      // offset of the first slot
    std::int64_t slotSize_ = 0;
    std::uint64_t seq_ = 0;
};

// Why a journal can't be trusted or read: code 0 when it was read.
// `exists` is false when there is no journal at all (nothing to do).
struct JournalLoad {
    bool exists = false;
    Error error;
    CopyJournal journal;
    JournalStep step;
};

// Reads the journal at `path`: its directory must be owned by the user and
// writable by no one else; the journal a regular file of the user's own
// with one link, read whole up to a bound, with every hash right. Never
// blocks, never follows a link, never opens anything but a regular file.
JournalLoad loadjournal(const std::filesystem::path& path);

// What a look at the target and scratch file against a journal found.
enum class JournalVerdict {
    Complete,   // the target already holds the new content: nothing to write
    Resume,     // the target holds what the cut-short copy left: finish it
    Doubt       // anything else: write nothing, keep the journal
};
// Reads the target (open for reading) and the scratch file whole; `why`
// says what was out of place on a doubt.
JournalVerdict verifyjournal(const CopyJournal& journal, const JournalStep& step, int target, int scratch,
                             std::string& why);

// Copies the scratch file's content over `dest` (open for reading and
// writing) block by block, recording each change in `writer` first;
// blocks that already hold their new bytes are passed over. Cuts `dest` to
// the new length and syncs it. `touched` turns true with the first change.
Error copyjournaled(int from, int dest, const CopyJournal& journal, JournalWriter& writer,
                    const std::filesystem::path& scratch, const std::filesystem::path& target, bool& touched);

// Takes the disk room for `length` bytes of `dest` (its length stays), so
// that a full disk fails a copy before its first change. Before the
// journal is made: the room may change the file's ctime.
Error reserveroom(int dest, std::int64_t length, const std::filesystem::path& target);

}  // namespace brindlex
