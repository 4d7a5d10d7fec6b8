// The setting up of a run that the window and the command line share: the
// mask made whole against the current directory, its listing in List1
// order, and the paths of the run's log and scratch file.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/openbinary.h"
#include "engine/core/walksink.h"
#include "engine/files/files.h"

namespace brindlex {

// A mask as typed, made whole against the current directory (expandmask),
// and its base directory with its "/".
struct MaskPlace {
    std::string mask;
    std::string baseDir;
};
MaskPlace placemask(const std::string& typed);

// Walks `place` (into its subdirectories with bIncludeSubs): the entries are
// gathered into `entries`, which they follow, and sorted once in List1
// order at the end; `sink` hears the rest of the walk (the levels, what
// could not be read, carryon()) and says whether sizes are wanted. Returns
// the base directory as the walk opened it, for a run over the names.
std::shared_ptr<const FileHandle> listmask(const MaskPlace& place, bool bIncludeSubs, WalkSink& sink,
                                           std::vector<FileEntry>& entries);

// The log and scratch file of a run: the log `log` when given, else the
// work directory's; each empty when the work directory isn't wanted
// (`bWorkDir` false) or can't be used (preparedworkdir()).
struct RunPaths {
    std::filesystem::path sLogFile;
    std::filesystem::path sScratch;
};
RunPaths runpaths(bool bWorkDir, const std::optional<std::filesystem::path>& log = std::nullopt);

}  // namespace brindlex
