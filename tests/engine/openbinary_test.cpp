#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/openbinary.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

// "<size> <first bytes read>" or "<errno> <text>".
std::string outcome(const fs::path& p)
{
    OpenedFile f;
    const Error e = openbinary(p, f);
    char buffer[4] = {};
    const ssize_t n = e ? 0 : ::read(f.fd.get(), buffer, sizeof buffer);
    return e ? std::to_string(e.code) + " " + e.text : std::to_string(f.size()) + " " + std::string(buffer, n > 0 ? n : 0);
}

TEST(OpenBinary, OpensRegularFilesOnly)
{
    test::TempDir tmp;
    tmp.write("plain.bin", std::string("a\0b", 3));
    tmp.write("dir/x", "x");
    fs::path secret = tmp.write("secret", "s");
    ASSERT_EQ(::chmod(secret.c_str(), 0200), 0);
    fs::create_symlink("plain.bin", tmp.path() / "link");
    fs::create_symlink("nowhere", tmp.path() / "dangling");
    ASSERT_EQ(::mkfifo((tmp.path() / "fifo").c_str(), 0644), 0);
    const std::string notregular = std::to_string(EINVAL) + " Not a regular file";
    const std::pair<std::string, std::string> rows[] = {
        {"plain.bin", std::string("3 a\0b", 5)},
        {"link", std::string("3 a\0b", 5)},
        {"dangling", std::to_string(ENOENT) + " No such file or directory"},
        {"dir", notregular},
        {"fifo", notregular},
        {"secret", std::to_string(EACCES) + " Permission denied"},
    };
    // As an ordinary user, for the file it may not read; with an alarm, so
    // that a FIFO opened for a blocking read kills the child, not the suite.
    for (const auto& [name, expected] : rows) {
        EXPECT_EQ(test::rununprivileged([&, name = name] { ::alarm(20); return outcome(tmp.path() / name); }), expected) << name;
    }
    EXPECT_EQ(outcome("/dev/null"), notregular);
}

}  // namespace
}  // namespace brindlex
