#include "engine/core/workdir.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlex {

namespace fs = std::filesystem;

namespace {

// The private directory used in place of one that can't be, for the
// directory that was asked for.
struct Fallback {
    fs::path asked, used;
    std::string note;
};
std::mutex fallbackMutex;
Fallback fallback;

fs::path askedworkdir()
{
    if (const char* own = std::getenv("BRINDLEX_TEMP"); own && *own)
        return own;
    return tempbase() / ("brindlex-" + std::to_string(::getuid()));
}

// Why `dir` may not hold the program's files; empty when it may. lstat,
// not stat: a link planted at the name by someone else must not lead our
// scratch file and log into a directory of theirs.
std::string unusable(const fs::path& dir)
{
    struct stat st {};
    if (::lstat(dir.c_str(), &st) != 0)
        return std::strerror(errno);
    if (!S_ISDIR(st.st_mode))
        return "it is not a directory";
    if (st.st_uid != ::geteuid())
        return "it belongs to another user";
    if ((st.st_mode & 022) != 0)
        return "others may write to it";
    return {};
}

// A private directory of this user's from an earlier fallback, so that what
// a run left in it (a journal) is found again; else a new one.
fs::path privatedir()
{
    const fs::path base = tempbase();
    const std::string prefix = "brindlex-" + std::to_string(::getuid()) + "-";
    if (DIR* d = ::opendir(base.c_str())) {
        fs::path found;
        while (const dirent* e = ::readdir(d)) {
            const std::string name = e->d_name;
            if (name.size() == prefix.size() + 6 && name.starts_with(prefix) && unusable(base / name).empty()
                && (found.empty() || name < found.filename().string()))
                found = base / name;
        }
        ::closedir(d);
        if (!found.empty())
            return found;
    }
    std::string tmpl = (base / (prefix + "XXXXXX")).string();
    return ::mkdtemp(tmpl.data()) ? fs::path(tmpl) : fs::path();
}

}  // namespace

fs::path tempbase()
{
    const char* tmp = std::getenv("TMPDIR");
    return (tmp && *tmp) ? tmp : "/tmp";
}

fs::path workdirpath()
{
    const fs::path asked = askedworkdir();
    std::lock_guard lock(fallbackMutex);
    return fallback.asked == asked && !fallback.used.empty() ? fallback.used : asked;
}

std::optional<fs::path> preparedworkdir()
{
    const fs::path asked = askedworkdir();
    std::lock_guard lock(fallbackMutex);
    if (fallback.asked == asked && !fallback.used.empty() && unusable(fallback.used).empty())
        return fallback.used;
    const std::string why =
        ::mkdir(asked.c_str(), 0700) != 0 && errno != EEXIST ? std::string(std::strerror(errno)) : unusable(asked);
    if (why.empty())
        return asked;
    const fs::path used = privatedir();
    if (used.empty())
        return std::nullopt;
    fallback = {asked, used,
                "The work directory " + asked.string() + " can't be used (" + why + "): using " + used.string()
                    + " instead"};
    return used;
}

std::string workdirnote()
{
    std::lock_guard lock(fallbackMutex);
    return std::exchange(fallback.note, std::string());
}

fs::path logfilepath()
{
    return workdirpath() / "brindlex.log.txt";
}

fs::path scratchfilepath()
{
    return workdirpath() / "brindlex.tmp";
}

}  // namespace brindlex
