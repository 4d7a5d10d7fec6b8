#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/batch/host.h"
#include "engine/files/files.h"

namespace brindlex {

namespace {

// Closes the directory stream whichever way a listing ends.
class DirStream {
public:
    explicit DirStream(const std::string& path)
    {
        int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK);
        if (fd >= 0 && !(dir_ = ::fdopendir(fd)))
            ::close(fd);
    }
    ~DirStream()
    {
        if (dir_)
            ::closedir(dir_);
    }
    DirStream(const DirStream&) = delete;
    DirStream& operator=(const DirStream&) = delete;

    DIR* get() const { return dir_; }
    int fd() const { return ::dirfd(dir_); }

private:
    DIR* dir_ = nullptr;
};

// A real directory: a link to one is never entered, so that a walk can't
// run in circles or leave the tree it was given.
bool isrealdir(int dirfd, const dirent* entry)
{
    if (entry->d_type == DT_DIR)
        return true;
    if (entry->d_type != DT_UNKNOWN)
        return false;
    struct stat st {};
    return ::fstatat(dirfd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(st.st_mode);
}

// The files of one directory, then (with `bIncludeSubs`) the names of its
// subdirectories. False when the user cancelled on the way.
bool listlevel(const std::string& dirpath, std::string_view typedname, const std::string& prefix,
               bool bIncludeSubs, Host& host, std::vector<std::string>& subdirs)
{
    DirStream dir(dirpath);
    if (!dir.get())
        return true;

    const bool sizes = host.wantsizes();
    std::string relname;
    while (const dirent* entry = ::readdir(dir.get())) {
        if (entry->d_type != DT_REG && entry->d_type != DT_LNK && entry->d_type != DT_UNKNOWN)
            continue;
        if (!wildcardmatch(typedname, entry->d_name))
            continue;
        // Following a link lists a link to a regular file with the size of
        // what it points to; a name gone since readdir is passed over.
        struct stat st {};
        if ((sizes || entry->d_type != DT_REG)
            && (::fstatat(dir.fd(), entry->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)))
            continue;
        host.yield();
        if (host.bCancel)
            return false;
        relname.assign(prefix).append(entry->d_name);
        host.addline(list1line(relname, static_cast<std::int64_t>(st.st_size)));
    }

    if (!bIncludeSubs)
        return true;
    ::rewinddir(dir.get());
    while (const dirent* entry = ::readdir(dir.get())) {
        host.yield();
        if (host.bCancel)
            return false;
        if (entry->d_name[0] != '.' && isrealdir(dir.fd(), entry))
            subdirs.emplace_back(entry->d_name);
    }
    return true;
}

}  // namespace

void listfiles(const std::string& mask, bool bIncludeSubs, const std::string& baseDir, Host& host)
{
    host.enablecontrols(false);

    // The name part as typed, blanks included, selects in this directory;
    // the levels below get filepart's version without blanks.
    const std::size_t slash = mask.rfind('/');
    const std::string_view typedname = slash == std::string::npos
        ? std::string_view(mask) : std::string_view(mask).substr(slash + 1);
    const std::string d = dirpart(mask);

    std::string prefix = d + "/";
    if (prefix.compare(0, baseDir.size(), baseDir) == 0)
        prefix.erase(0, baseDir.size());

    // The subdirectories are gathered first and walked once the listing of
    // this level has ended and its directory is closed, so a deep tree holds
    // one open directory at a time.
    std::vector<std::string> subdirs;
    const std::string dirpath = slash == std::string::npos ? "." : (d.empty() ? "/" : d);
    if (listlevel(dirpath, typedname, prefix, bIncludeSubs, host, subdirs)) {
        const std::string m = filepart(mask);
        for (const std::string& f : subdirs)
            listfiles(d + "/" + f + "/" + m, bIncludeSubs, baseDir, host);
    }

    host.enablecontrols(true);
}

}  // namespace brindlex
