// The work directory holds the program's own files: the run log, the scratch
// file and the integer sheets. It is $BRINDLEX_TEMP if set, else
// ${TMPDIR:-/tmp}/brindlex-<uid>, created with mode 0700. A directory that
// is a symbolic link, is not owned by the user or may be written by others
// (someone else made it first) is not used: a private directory
// ${TMPDIR:-/tmp}/brindlex-<uid>-XXXXXX of the user's own takes its place
// (the one an earlier run made, else a new one), and workdirnote() says so.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "engine/core/error.h"

namespace brindlex {

// Where the work directory is, whether or not it exists: the private one
// once preparedworkdir() has chosen it.
std::filesystem::path workdirpath();

// Creates the work directory if needed and checks that it may be used, else
// takes a private one in its place. Returns its path, or nullopt when
// neither can be had.
std::optional<std::filesystem::path> preparedworkdir();

// Once, after preparedworkdir() took a private directory: which directory
// couldn't be used, why, and which is used instead. Else empty.
std::string workdirnote();

// ${TMPDIR:-/tmp}
std::filesystem::path tempbase();

// <work dir>/brindlex.log.txt, <work dir>/brindlex.tmp
std::filesystem::path logfilepath();
std::filesystem::path scratchfilepath();

}  // namespace brindlex
