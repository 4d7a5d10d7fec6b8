#include "support/tempdir.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include <sys/stat.h>

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

TempDir::~TempDir()
{
    std::error_code ec;
    // Make everything removable again, also what a test made read-only.
    for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
         !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
        if (it->is_directory(ec) && !it->is_symlink(ec))
            ::chmod(it->path().c_str(), 0755);
    }
    std::filesystem::remove_all(path_, ec);
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
