#include "support/tempdir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace brindlex::test {

TempDir::TempDir()
{
    std::string tmpl = (std::filesystem::temp_directory_path() / "brindlex-test-XXXXXX").string();
    if (!::mkdtemp(tmpl.data()))
        throw std::runtime_error("mkdtemp failed");
    path_ = tmpl;
    // Tests that drop privileges must be able to reach the files below.
    ::chmod(path_.c_str(), 0755);
}

namespace {

// Empties the directory open as `dirfd`, each level relative to the one
// above, so that a tree deeper than PATH_MAX goes too; a directory a test
// made read-only is made removable first.
void removebelow(int dirfd)
{
    const int own = ::dup(dirfd);
    DIR* dir = own < 0 ? nullptr : ::fdopendir(own);
    if (!dir)
        return;
    while (const dirent* entry = ::readdir(dir)) {
        const std::string name = entry->d_name;
        struct stat st {};
        if (name == "." || name == ".." || ::fstatat(dirfd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        if (S_ISDIR(st.st_mode)) {
            ::fchmodat(dirfd, name.c_str(), 0755, 0);
            const int sub = ::openat(dirfd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub >= 0) {
                removebelow(sub);
                ::close(sub);
            }
        }
        ::unlinkat(dirfd, name.c_str(), S_ISDIR(st.st_mode) ? AT_REMOVEDIR : 0);
    }
    ::closedir(dir);
}

}  // namespace

TempDir::~TempDir()
{
    ::chmod(path_.c_str(), 0755);
    const int fd = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0) {
        removebelow(fd);
        ::close(fd);
    }
    ::rmdir(path_.c_str());
}

std::filesystem::path TempDir::write(const std::string& relative, std::string_view bytes) const
{
    std::filesystem::path p = path_ / relative;
    std::filesystem::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return p;
}

std::string readfile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace brindlex::test
