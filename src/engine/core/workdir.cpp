#include "engine/core/workdir.h"

#include <cerrno>
#include <cstdlib>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace brindlex {

std::filesystem::path workdirpath()
{
    if (const char* own = std::getenv("BRINDLEX_TEMP"); own && *own)
        return own;
    const char* tmp = std::getenv("TMPDIR");
    std::filesystem::path base = (tmp && *tmp) ? tmp : "/tmp";
    return base / ("brindlex-" + std::to_string(::getuid()));
}

std::optional<std::filesystem::path> preparedworkdir()
{
    std::filesystem::path dir = workdirpath();
    if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)
        return std::nullopt;
    // lstat, not stat: a link planted at the name by someone else must not
    // lead our scratch file and log into a directory of theirs.
    struct stat st {};
    if (::lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid())
        return std::nullopt;
    return dir;
}

std::filesystem::path logfilepath()
{
    return workdirpath() / "brindlex.log.txt";
}

std::filesystem::path scratchfilepath()
{
    return workdirpath() / "brindlex.tmp";
}

}  // namespace brindlex
