// Test helpers for files: a temporary directory that removes itself, and
// reading and writing whole files.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

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

private:
    std::filesystem::path path_;
};

std::string readfile(const std::filesystem::path& path);

}  // namespace brindlex::test
