// Opening the files of a list below the directory they were listed in, so
// that no directory between it and a file is ever taken through a symbolic
// link: a directory swapped for a link after the listing is refused (ELOOP),
// never followed, whoever runs the program over a tree that others may
// write. The file's own name may be a link to a regular file, as the walk
// lists it: that link is followed where it stands, in the directory opened.
//
// Example: base /t, names "sub/a" and "sub/b". "sub" is opened once below /t
// (openat2 with RESOLVE_NO_SYMLINKS in one call where the kernel has it,
// else one openat with O_NOFOLLOW|O_DIRECTORY a component), kept while the
// names that follow need it, and "a" and "b" are opened in it. If an
// attacker renames "sub" away and puts a link to /root in its place, "sub/a"
// fails with ELOOP.
#pragma once

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "engine/core/error.h"
#include "engine/core/openbinary.h"

namespace brindlex {

// Opens the directory `rel` ("a/b/c"; "" or "." is `base` itself) below
// the open directory `base` without following a link in any component,
// ".." included as a component of its own. Returns the descriptor or -1 with
// errno set (ELOOP where a component is a link). A path of any length.
int opendirbelow(int base, std::string_view rel);

// The same, one component at a time: what opendirbelow falls back on where
// openat2 is missing (ENOSYS) or the path is longer than it takes.
int opendirbycomponents(int base, std::string_view rel);

class BelowOpener {
public:
    // `base`: the directory the names were listed in, open; an invalid one
    // makes every open fail with `baseError`.
    explicit BelowOpener(FileHandle base, int baseError = 0);

    // Opens the regular file at `name` below the base directory as
    // openbinary opens a path (`bSeenRegular` alike); `sFile` is the path
    // the errors name. Leading slashes of `name` count for nothing. May be
    // called from several threads at once.
    Error open(std::string_view name, const std::string& sFile, OpenedFile& out, bool bSeenRegular = false) const;

private:
    // The directory `dir` below the base, from the few kept or opened now.
    std::shared_ptr<const FileHandle> directory(std::string_view dir, int& code) const;

    FileHandle base_;
    int baseError_;
    static constexpr std::size_t kKept = 16;
    mutable std::mutex lock_;
    mutable std::vector<std::pair<std::string, std::shared_ptr<const FileHandle>>> kept_;   // latest last
};

}  // namespace brindlex
