#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/openbinary.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

// What openbinary made of a name: "ok <size>" or "<errno> <text>", and
// whether the name exists afterwards.
std::string outcome(const fs::path& p)
{
    OpenedFile f;
    Error e = openbinary(p, f);
    std::string out = e ? std::to_string(e.code) + " " + e.text : "ok " + std::to_string(f.size());
    if (!e && !f.fd.valid())
        out += " without a descriptor";
    std::error_code ec;
    return out + (fs::exists(fs::symlink_status(p, ec)) ? " exists" : " absent");
}

TEST(OpenBinary, OpensRegularFilesOnly)
{
    test::TempDir tmp;
    tmp.write("plain.bin", std::string("a\0b", 3));
    tmp.write("empty", "");
    tmp.write("dir/x", "x");
    fs::create_symlink("plain.bin", tmp.path() / "link");
    fs::create_symlink("nowhere", tmp.path() / "dangling");
    ASSERT_EQ(::mkfifo((tmp.path() / "fifo").c_str(), 0644), 0);
    const std::string notregular = std::to_string(EINVAL) + " Not a regular file";
    const std::string missing = std::to_string(ENOENT) + " No such file or directory";
    const struct {
        std::string name;
        std::string expected;
    } cases[] = {
        {"plain.bin", "ok 3 exists"},
        {"empty", "ok 0 exists"},
        {"link", "ok 3 exists"},
        {"missing", missing + " absent"},
        {"dir/missing", missing + " absent"},
        {"nodir/missing", missing + " absent"},
        {"dangling", missing + " exists"},
        {"dir", notregular + " exists"},
        {"fifo", notregular + " exists"},
    };
    // A child with an alarm: should the FIFO ever be opened for a
    // blocking read, the child dies instead of the suite hanging.
    for (const auto& c : cases) {
        std::string seen = test::runinchild([&] {
            ::alarm(20);
            return outcome(tmp.path() / c.name);
        });
        EXPECT_EQ(seen, c.expected) << c.name;
    }
    EXPECT_EQ(outcome("/dev/null"), notregular + " exists");
    EXPECT_FALSE(fs::exists(tmp.path() / "dangling"));
}

TEST(OpenBinary, UnreadableFileGivesThePlatformText)
{
    test::TempDir tmp;
    fs::path p = tmp.write("secret", "s");
    ASSERT_EQ(::chmod(p.c_str(), 0200), 0);
    std::string seen = test::rununprivileged([&] { return outcome(p); });
    EXPECT_EQ(seen, std::to_string(EACCES) + " Permission denied exists");
}

TEST(OpenBinary, DescriptorReadsTheFile)
{
    test::TempDir tmp;
    fs::path p = tmp.write("data", "hello");
    OpenedFile f;
    ASSERT_FALSE(openbinary(p, f));
    char buf[8] = {};
    EXPECT_EQ(::read(f.fd.get(), buf, sizeof buf), 5);
    EXPECT_EQ(std::string(buf, 5), "hello");
    int fd = f.fd.get();
    FileHandle moved = std::move(f.fd);
    EXPECT_FALSE(f.fd.valid());
    EXPECT_EQ(moved.get(), fd);
    moved.close();
    EXPECT_EQ(::fcntl(fd, F_GETFD), -1);
}

TEST(OpenBinary, ErrorMessage)
{
    const struct {
        std::string file;
        Error error;
        std::string message;
    } cases[] = {
        {"/data/a.txt", errorfromerrno(ENOENT), "Error opening /data/a.txt:\r\nNo such file or directory"},
        {"/x y/z", errorfromerrno(EACCES), "Error opening /x y/z:\r\nPermission denied"},
        {"/d", Error{EINVAL, "Not a regular file", {}}, "Error opening /d:\r\nNot a regular file"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(openerrormessage(c.file, c.error), c.message);
}

}  // namespace
}  // namespace brindlex
