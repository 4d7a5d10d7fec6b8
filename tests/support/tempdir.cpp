#include "support/tempdir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
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

std::string TempDir::shown(std::string text) const
{
    const std::string root = path_.string() + "/";
    for (std::size_t at = 0; (at = text.find(root, at)) != std::string::npos;)
        text.replace(at, root.size(), "<dir>/");
    return text;
}

std::string readfile(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << in.rdbuf();
    return std::move(bytes).str();
}

long entrycount(const std::filesystem::path& dir)
{
    return static_cast<long>(std::distance(std::filesystem::directory_iterator(dir), std::filesystem::directory_iterator()));
}

std::filesystem::path deepfile(const std::filesystem::path& dir, const std::string& name, std::string_view content)
{
    const std::string level(200, 'd');
    std::filesystem::path p = dir;
    int at = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    for (int depth = 0; depth < 24; ++depth, p /= level) {
        ::mkdirat(at, level.c_str(), 0755);
        const int below = ::openat(at, level.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        ::close(at);
        at = below;
    }
    const int fd = ::openat(at, name.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const bool made = ::write(fd, content.data(), content.size()) == static_cast<ssize_t>(content.size());
    ::close(fd), ::close(at);
    return made ? p / name : std::filesystem::path();
}

bool sparsefile(const std::filesystem::path& path, std::int64_t size,
                const std::vector<std::pair<std::int64_t, std::string>>& pieces)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    bool ok = fd >= 0 && ::ftruncate(fd, size) == 0;
    for (const auto& [at, bytes] : pieces)
        ok = ok && ::pwrite(fd, bytes.data(), bytes.size(), at) == static_cast<ssize_t>(bytes.size());
    return ::close(fd) == 0 && ok;
}

}  // namespace brindlex::test
