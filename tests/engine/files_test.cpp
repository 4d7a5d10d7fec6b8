#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>

#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/files/files.h"
#include "engine/files/openbelow.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

TEST(Files, SplitsAMaskIntoDirectoryAndName)
{
    // Blanks go from the name part, and only from the ends of the path.
    const struct { std::string path, file, dir; } rows[] = {
        {"/data/*.txt", "*.txt", "/data"}, {"/*.*", "*.*", ""}, {"  /my dir/ a b ", "ab", "/my dir"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(filepart(row.path), row.file) << row.path;
        EXPECT_EQ(dirpart(row.path), row.dir) << row.path;
    }
    EXPECT_EQ(basedirfor("/*.*"), "/");
    EXPECT_EQ(basedirfor("/a b/c/x?.bin"), "/a b/c/");
}

TEST(Files, ExpandsWhatTheDirButtonIsGiven)
{
    test::TempDir tmp;
    tmp.write("Sub Dir/a.txt", "x");
    const std::string root = tmp.path().string();
    const std::pair<std::string, std::string> rows[] = {
        {"", "/*.*"}, {"*.txt", "/*.txt"}, {"Sub Dir", "/Sub Dir/*.*"}, {"@/Sub Dir/", "/Sub Dir/*.*"}, {"@/missing", "/missing"},
    };
    for (const auto& [text, expected] : rows) {
        const std::string typed = text.starts_with("@") ? root + text.substr(1) : text;
        EXPECT_EQ(expandmask(typed, tmp.path()), root + expected) << text;
    }
    EXPECT_EQ(expandmask("etc", "/"), "/etc/*.*");
}

TEST(Files, WildcardsAreStarAndQuestionMarkOnly)
{
    const struct { std::string mask, name; bool match; } rows[] = {
        {"*.*", "readme", true}, {"*.*", ".hidden", true}, {"*.txt", "a.TXT", false}, {"a?c", "ac", false},
        {"[ab]", "[ab]", true}, {"a\\*", "a\\xyz", true}, {"*a*b", "xaxxbx", false}, {"*?", "", false},
        {"*a*a*a*a*a*a*a*a*a*a*b", std::string(200, 'a'), false}, {"\xc4*", "\xe4rger", false},
    };
    for (const auto& row : rows)
        EXPECT_EQ(wildcardmatch(row.mask, row.name), row.match) << "'" << row.mask << "' vs '" << row.name << "'";
}

TEST(Files, ListLinesAreWrittenReadAndSortedByUnsignedBytes)
{
    EXPECT_EQ(list1line("sub/readme.txt", 1234, false), "sub/readme.txt\t00001234");
    EXPECT_EQ(list1line("huge", 5368709120LL, true), "huge\t5368709120*");
    EXPECT_EQ(firstfield(" sub/b c.txt \t00000001*"), "sub/b c.txt");
    // By the bytes of the whole line, as unsigned: past the first eight
    // bytes, across the end of a name (a tab or a byte below it), by size,
    // and with the mark.
    std::vector<FileEntry> entries = {
        {"b", 1}, {"\xe4", 1}, {"B", 1}, {"a/z", 1}, {"a", 2}, {"a.txt", 1}, {"a", 1}, {"a\x01", 5},
        {"longname9.txt", 3}, {"longname1.txt", 3}, {"longname1.txt", 3, true}, {"longname1.txt", 1234567890},
        {"longname1.tx", 3}, {"longname1.tx\x01", 3}};
    sortlist1(entries);
    std::string sorted;
    for (const FileEntry& e : entries)
        sorted += list1line(e) + ";";
    EXPECT_EQ(sorted, "B\t00000001;a\x01\t00000005;a\t00000001;a\t00000002;a.txt\t00000001;a/z\t00000001;b\t00000001;"
                      "longname1.tx\x01\t00000003;longname1.tx\t00000003;longname1.txt\t00000003;longname1.txt\t00000003*;"
                      "longname1.txt\t1234567890;longname9.txt\t00000003;\xe4\t00000001;");

    // A hit line and what the viewer's opener reads back from it.
    const struct { std::string name; std::int64_t lPos; std::string line; } hits[] = {
        {"sub/a b.txt", 480, "sub/a b.txt\t000000480"}, {"big", 98765432109876LL, "big\t98765432109876"},
        {"nine", 123456789, "nine\t123456789"}, {"top", 999999999, "top\t999999999"}, {" x\ty ", 7, " x\ty \t000000007"}};
    for (const auto& hit : hits) {
        EXPECT_EQ(list2line(hit.name, hit.lPos), hit.line);
        const List2Hit back = readlist2line(hit.line);
        EXPECT_EQ(back.sName + "@" + std::to_string(back.lPos), hit.name + "@" + std::to_string(hit.lPos));
    }
}

}  // namespace
}  // namespace brindlex

namespace brindlex {
namespace {

// Below the base nothing is taken through a link but a file's own name,
// whichever way the directories are opened.
TEST(OpenBelow, NeverTakesADirectoryThroughALink)
{
    test::TempDir tmp;
    tmp.write("base/d/e/f.txt", "f");
    tmp.write("victim/e/f.txt", "victim");
    const std::filesystem::path base = tmp.path() / "base";
    std::filesystem::create_directory_symlink(tmp.path() / "victim", base / "link");
    std::filesystem::create_directory_symlink("e", base / "d/e2");
    std::filesystem::create_symlink("f.txt", base / "d/e/flink");
    ASSERT_EQ(::mkfifo((base / "d/fifo").c_str(), 0644), 0);
    const FileHandle fd(::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    const struct { const char* dir; int code; } dirs[] = {
        {"d/e", 0}, {"", 0}, {"d/../d/./e", 0}, {"link/e", ELOOP}, {"d/e2", ELOOP}, {"d/missing", ENOENT},
        {"d/e/f.txt", ENOTDIR},
    };
    for (const auto open : {opendirbelow, opendirbycomponents}) {
        for (const auto& row : dirs) {
            SCOPED_TRACE(row.dir);
            errno = 0;
            const FileHandle dir(open(fd.get(), row.dir));
            EXPECT_EQ(dir.valid() ? 0 : errno, row.code);
        }
    }
    const BelowOpener below(FileHandle(::dup(fd.get())));
    const struct { const char* name; std::string got; } names[] = {
        {"d/e/f.txt", "f"}, {"//d/e/flink", "f"}, {"d/e2/f.txt", "A directory on its path is a symbolic link now: not followed"},
        {"link/e/f.txt", "A directory on its path is a symbolic link now: not followed"},
        {"d/fifo", "Not a regular file"}, {"d/none", "No such file or directory"},
    };
    for (const auto& row : names) {
        SCOPED_TRACE(row.name);
        OpenedFile file;
        const Error error = below.open(row.name, "shown", file);
        std::string got(16, '\0');
        got.resize(error ? 0 : static_cast<std::size_t>(std::max<ssize_t>(0, ::read(file.fd.get(), got.data(), got.size()))));
        EXPECT_EQ(error ? error.text : got, row.got);
    }
}

}  // namespace
}  // namespace brindlex
