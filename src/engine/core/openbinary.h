// Opening a user's file. A name that doesn't exist must never leave an empty
// file behind, and a FIFO, socket or device must never be opened for a scan
// (opening a FIFO would hang the run), so the file is opened read-only,
// without blocking, and checked to be a regular file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "engine/core/error.h"

namespace brindlex {

// An open file descriptor that closes itself.
class FileHandle {
public:
    FileHandle() = default;
    explicit FileHandle(int fd) : fd_(fd) {}
    FileHandle(FileHandle&& other) noexcept : fd_(other.release()) {}
    FileHandle& operator=(FileHandle&& other) noexcept;
    FileHandle(const FileHandle&) = delete;
    FileHandle& operator=(const FileHandle&) = delete;
    ~FileHandle();

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    int release();
    void close();

private:
    int fd_ = -1;
};

struct OpenedFile {
    FileHandle fd;
    struct stat st {};         // of the file as opened
    std::int64_t size() const { return static_cast<std::int64_t>(st.st_size); }
};

// open(2) of `path` with `flags` (and mode 0 for a new file), also when the
// path is longer than PATH_MAX: its directories are then opened a piece at a
// time, each relative to the one before. Returns the descriptor or -1 with
// errno set.
int openlong(const std::filesystem::path& path, int flags);

// stat(2) of `path`, also when the path is longer than PATH_MAX.
int statlong(const std::filesystem::path& path, struct stat& st);

// A file without a name in the directory `dirfd` (O_TMPFILE), for reading
// and writing, to be named by linknameless() once it is whole: dying before
// that, a process leaves nothing behind. -1 with errno; EOPNOTSUPP where
// the kernel or the file system can't make one, or /proc isn't there to
// name it by.
int opennameless(int dirfd, mode_t mode);
// Gives the nameless file `fd` the name `name` in `dirfd`: -1 with errno
// EEXIST when the name is taken.
int linknameless(int fd, int dirfd, const char* name);

// Writes all of `bytes` at `at` in `fd`, each pwrite(2) a checked step named
// `step` (none when null): 0, or the errno of the failure, which errno also
// holds (ENOSPC for a write that took nothing).
int pwriteall(int fd, std::string_view bytes, std::int64_t at, const char* step);

// Opens the existing regular file `sFile` for reading. On failure the
// Error carries errno and its text; a file that is not a regular file gives
// EINVAL with a text that says so. A path of any length is opened.
// The name is looked at before it is opened, so that a device is never
// opened at all, unless `bSeenRegular`: a walk of this process has just seen
// the name as a regular file, and the look would cost a second lookup of the
// path for nothing but a name changed since. Either way the open descriptor
// is checked.
Error openbinary(const std::filesystem::path& sFile, OpenedFile& out, bool bSeenRegular = false);

// The same for the name `name` in the directory open as `dirfd` (AT_FDCWD:
// the current one); `sFile` is what errors name, made a path only for one.
Error openbinaryat(int dirfd, const char* name, const std::string& sFile, OpenedFile& out,
                   bool bSeenRegular = false);

// The message a failed open shows: "Error opening " sFile ":" CR LF text.
std::string openerrormessage(const std::string& sFile, const Error& error);

}  // namespace brindlex
