// The work directory holds the program's own files: the run log, the scratch
// file and the integer sheets. It is $BRINDLEX_TEMP if set, else
// ${TMPDIR:-/tmp}/brindlex-<uid>, created with mode 0700. A directory that is
// a symbolic link, or is not owned by the user, is not used: logging,
// replacing through the scratch file and dumping then fail.
#pragma once

#include <filesystem>
#include <optional>

#include "engine/core/error.h"

namespace brindlex {

// Where the work directory is, whether or not it exists.
std::filesystem::path workdirpath();

// Creates the work directory if needed and checks that it may be used.
// Returns its path, or nullopt when it can't be used.
std::optional<std::filesystem::path> preparedworkdir();

// <work dir>/brindlex.log.txt, <work dir>/brindlex.tmp
std::filesystem::path logfilepath();
std::filesystem::path scratchfilepath();

}  // namespace brindlex
