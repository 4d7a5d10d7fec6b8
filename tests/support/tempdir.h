// Test helpers for files: a temporary directory that removes itself, and
// reading and writing whole files.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace brindlex::test {

class TempDir {
public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::filesystem::path& path() const { return path_; }
    // Writes `bytes` to path()/relative, creating directories on the way.
    std::filesystem::path write(const std::string& relative, std::string_view bytes) const;
    // `text` with every "path()/" in it shown as "<dir>/", for expectations
    // that name files of the directory.
    std::string shown(std::string text) const;

private:
    std::filesystem::path path_;
};

std::string readfile(const std::filesystem::path& path);

// How many names the directory holds: a stray file of a run shows here.
long entrycount(const std::filesystem::path& dir);

// A file `name` of `content` below a path longer than PATH_MAX in `dir`, each
// level made from the one above; its path, empty when it could not be made.
std::filesystem::path deepfile(const std::filesystem::path& dir, const std::string& name, std::string_view content);

// A file of `size` bytes that are zeros (holes) but for `pieces`, each at its
// 0-based offset. False when it could not be made.
bool sparsefile(const std::filesystem::path& path, std::int64_t size,
                const std::vector<std::pair<std::int64_t, std::string>>& pieces);

}  // namespace brindlex::test
