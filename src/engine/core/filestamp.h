// A file as it was read, and the one check that it still is: a write (a
// page save, a replace, an edit in place) refuses a file that another
// program changed since the program looked at it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string_view>

#include <sys/stat.h>

#include "engine/core/error.h"

namespace brindlex {

// What identifies a file's content as it was read: the same file (device,
// inode) of the same length, neither written (mtime) nor touched in any
// other way (ctime: a write that sets the mtime back still moves it).
struct FileStamp {
    dev_t dev = 0;
    ino_t ino = 0;
    std::int64_t size = -1;
    std::int64_t mtimeSec = 0;
    std::int64_t mtimeNsec = 0;
    std::int64_t ctimeSec = 0;
    std::int64_t ctimeNsec = 0;

    bool operator==(const FileStamp&) const = default;
};
FileStamp filestamp(const struct stat& st);

// ESTALE, "File changed by another program " and `when` ("since it was
// read", "since it was edited", ...), naming `file`.
Error filechanged(const std::filesystem::path& file, std::string_view when = "since it was read");

// Nothing when the name `file` still leads to the file `stamp` tells (any
// length of name); else filechanged(file, when), also when the name can't
// be looked at.
Error checkstamp(const std::filesystem::path& file, const FileStamp& stamp, std::string_view when = "since it was read");

}  // namespace brindlex
