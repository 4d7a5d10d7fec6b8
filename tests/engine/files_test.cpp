// Masks, List1 and List2 lines, the walk of a mask over a tree, and how a
// listed name is opened again.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/openbinary.h"
#include "engine/core/walksink.h"
#include "engine/files/files.h"
#include "engine/files/openbelow.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

TEST(Files, SplitsAMaskAndExpandsWhatTheDirButtonIsGiven)
{
    // Blanks go from the name part, and only from the ends of the path.
    const struct { std::string path, file, dir, base; } rows[] = {
        {"/data/*.txt", "*.txt", "/data", "/data/"}, {"/*.*", "*.*", "", "/"}, {"  /my dir/ a b ", "ab", "/my dir", "/my dir/"},
        {"/a b/c/x?.bin", "x?.bin", "/a b/c", "/a b/c/"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(filepart(row.path) + "|" + dirpart(row.path) + "|" + basedirfor(row.path), row.file + "|" + row.dir + "|" + row.base);
    test::TempDir tmp;
    tmp.write("Sub Dir/a.txt", "x");
    const std::string root = tmp.path().string();
    const std::pair<std::string, std::string> typed[] = {
        {"", "/*.*"}, {"*.txt", "/*.txt"}, {"Sub Dir", "/Sub Dir/*.*"}, {"@/Sub Dir/", "/Sub Dir/*.*"}, {"@/missing", "/missing"},
    };
    for (const auto& [text, expected] : typed) {
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

    const struct { std::string name; std::int64_t lPos; std::string line; } hits[] = {
        {"sub/a b.txt", 480, "sub/a b.txt\t000000480"}, {"big", 98765432109876LL, "big\t98765432109876"},
        {"nine", 123456789, "nine\t123456789"}, {"top", 999999999, "top\t999999999"}, {" x\ty ", 7, " x\ty \t000000007"}};
    for (const auto& hit : hits)
        EXPECT_EQ(list2line(hit.name, hit.lPos), hit.line);
}

// "<size> <first bytes read>" or "<errno> <text>".
std::string outcome(const Error& e, const OpenedFile& f)
{
    char buffer[4] = {};
    const ssize_t n = e ? 0 : ::read(f.fd.get(), buffer, sizeof buffer);
    return e ? std::to_string(e.code) + " " + e.text : std::to_string(f.size()) + " " + std::string(buffer, n > 0 ? n : 0);
}

// A listed name opens only as a regular file, through a link of its own;
// below the base never through a link on a directory of its path,
// whichever way the directories are opened.
TEST(OpenBelow, RegularFilesOnlyAndNeverADirectoryThroughALink)
{
    test::TempDir tmp;
    tmp.write("base/d/e/f.txt", std::string("a\0b", 3));
    tmp.write("victim/e/f.txt", "victim");
    const fs::path base = tmp.path() / "base";
    ASSERT_EQ(::chmod(tmp.write("base/d/secret", "s").c_str(), 0200), 0);
    fs::create_directory_symlink(tmp.path() / "victim", base / "link");
    fs::create_directory_symlink("e", base / "d/e2");
    fs::create_symlink("f.txt", base / "d/e/flink");
    fs::create_symlink("nowhere", base / "d/dangling");
    fs::create_symlink("/dev/null", base / "d/null");
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
    const std::string f("3 a\0b", 5), notregular = std::to_string(EINVAL) + " Not a regular file",
                      missing = std::to_string(ENOENT) + " No such file or directory",
                      linked = std::to_string(ELOOP) + " A directory on its path is a symbolic link now: not followed";
    // below: opened below the base; path: opened by its whole path.
    const struct { const char* name; std::string below, path; } names[] = {
        {"d/e/f.txt", f, f}, {"//d/e/flink", f, f}, {"d/e2/f.txt", linked, f}, {"link/e/f.txt", linked, "6 vict"},
        {"d/fifo", notregular, notregular}, {"d/null", notregular, notregular}, {"d", notregular, notregular},
        {"d/none", missing, missing}, {"d/dangling", missing, missing},
        {"d/secret", std::to_string(EACCES) + " Permission denied", std::to_string(EACCES) + " Permission denied"},
    };
    // As an ordinary user, for the file it may not read; with an alarm, so
    // that a FIFO opened for a blocking read kills the child, not the suite.
    for (const auto& row : names) {
        EXPECT_EQ(test::rununprivileged([&] {
                      ::alarm(20);
                      OpenedFile file, byPath;
                      const Error e = below.open(row.name, "shown", file);
                      return outcome(e, file) + " | " + outcome(openbinary(base.string() + "/" + row.name, byPath), byPath);
                  }),
                  row.below + " | " + row.path) << row.name;
    }
}

// Records what a walk tells its sink; asks to stop from carryon() number
// `cancelAt` on (1-based, 0 for never), until a level begins, as the
// window's host does, or for good (`sticky`, as the command line's does,
// which lets `parallel` walk the subdirectories on several threads).
class RecordingHost : public WalkSink {
public:
    int cancelAt = 0, yields = 0;
    bool stopAsked = false, sticky = false, parallel = false;
    std::vector<FileEntry> lines;
    std::string controls;  // one letter a level's start or end: "F" off, "T" on
    std::string told;      // "name:errno;" of each place that could not be read

    void level(bool begins) override
    {
        controls += begins ? 'F' : 'T';
        stopAsked = stopAsked && (sticky || !begins);
    }
    bool carryon() override
    {
        stopAsked = stopAsked || ++yields == cancelAt;
        return !stopAsked;
    }
    bool parallelwalk() const override { return parallel; }
    void entry(const std::string& name, std::int64_t size) override { lines.push_back({name, size}); }
    void unreadable(const std::string& path, int code) override
    {
        told += fs::path(path).filename().string() + ":" + std::to_string(code) + ";";
    }

    std::string walk(const fs::path& dir, const std::string& name, bool subs)
    {
        const std::string mask = (dir / name).string();
        listfiles(mask, subs, basedirfor(mask), *this);
        std::vector<FileEntry> sorted = lines;
        sortlist1(sorted);
        std::string out;
        for (const auto& line : sorted)
            out += list1line(line) + ";";
        return out;
    }
    // The names in the order they came, with what else was told.
    std::string toldinorder() const
    {
        std::string out;
        for (const auto& line : lines)
            out += line.name + ";";
        return out + " " + told + " " + controls;
    }
};

// Dot files count, dot directories and links to directories are not
// entered, and only regular files, directly or through a link, are listed.
// A directory that can't be read, or read but not searched, is told to the
// host, and the walk goes on with every other one (its neighbours on either
// side in readdir's order included).
TEST(Walk, ListsWhatTheMaskSelectsAndPassesOverWhatCannotBeRead)
{
    test::TempDir tmp;
    const fs::path root = tmp.path();
    for (const char* name : {"a.txt", "b.bin", ".dot.txt", "sub/c.txt", "sub/Deep/D.txt", ".hidden/e.txt", "matchdir.txt/g.txt",
                             "d1/a.txt", "d2/a.txt", "d3/a.txt", "d4/a.txt", "d5/a.txt", "d3/inner/c.txt"})
        tmp.write(name, "12");
    for (const auto& [link, target] : {std::pair{"link-to-a.txt", "a.txt"}, {"dangling.txt", "missing"},
                                       {"selfloop.txt", "selfloop.txt"}, {"null.txt", "/dev/null"}})
        fs::create_symlink(target, root / link);
    fs::create_directory_symlink("sub", root / "linkdir");
    fs::create_directory_symlink(".", root / "loop");
    ASSERT_EQ(::mkfifo((root / "fifo.txt").c_str(), 0644), 0);
    const std::string top = ".dot.txt\t00000002;a.txt\t00000002;";
    for (const mode_t mode : {0755, 0000, 0644, 0311}) {
        SCOPED_TRACE("d3 of mode " + std::to_string(mode));
        ASSERT_EQ(::chmod((root / "d3").c_str(), mode), 0);
        const bool readable = mode == 0755;
        EXPECT_EQ(test::rununprivileged([&] {
                      RecordingHost flat, deep, split;
                      split.parallel = true;
                      const std::string listed = flat.walk(root, "*.txt", false) + " | " + deep.walk(root, "*.txt", true);
                      // Walked on several threads, everything is told as one thread tells it.
                      split.walk(root, "*.txt", true);
                      if (split.toldinorder() != deep.toldinorder())
                          return split.toldinorder() + " against " + deep.toldinorder();
                      return listed + deep.told + std::to_string(deep.controls.size());
                  }),
                  top + "link-to-a.txt\t00000002; | " + top + "d1/a.txt\t00000002;d2/a.txt\t00000002;"
                      + (readable ? "d3/a.txt\t00000002;d3/inner/c.txt\t00000002;" : "")
                      + "d4/a.txt\t00000002;d5/a.txt\t00000002;link-to-a.txt\t00000002;matchdir.txt/g.txt\t00000002;"
                        "sub/Deep/D.txt\t00000002;sub/c.txt\t00000002;" + (readable ? "20" : "d3:13;18"));
    }
    ::chmod((root / "d3").c_str(), 0755);
}

// Cancel ends the listing of the directory in hand; a call further up goes
// on with its next subdirectory, whose start clears the flag, as the walk's
// start clears one raised before it.
TEST(Walk, CancelEndsTheDirectoryInHandOnly)
{
    test::TempDir tmp;
    for (const char* name : {"f1.x", "f2.x", "f3.x", "s1/a.x", "s1/b.x", "s2/c.x", "s2/d.x"})
        tmp.write(name, "1234");
    // Yields: 3 top files, then the 2 directories; each subdirectory then
    // its 2 files. flag: as the walk leaves it; raised: before the walk.
    const struct { int cancelAt; std::size_t lines; std::string controls; int yields; bool flag, raised = false; } rows[] = {
        {0, 7, "FFTFTT", 9, false}, {1, 0, "FT", 1, true}, {4, 3, "FT", 4, true},
        {6, 5, "FFTFTT", 8, false}, {8, 5, "FFTFTT", 8, true}, {0, 7, "FFTFTT", 9, false, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("cancel at yield " + std::to_string(row.cancelAt) + (row.raised ? ", raised before" : ""));
        RecordingHost host;
        host.cancelAt = row.cancelAt;
        host.stopAsked = row.raised;
        const std::string listed = host.walk(tmp.path(), "*.x", true);
        EXPECT_EQ(host.lines.size(), row.lines);
        EXPECT_EQ(host.controls, row.controls);
        EXPECT_EQ(host.yields, row.yields);
        EXPECT_EQ(host.stopAsked, row.flag);
        // Where one subdirectory was cut short, the other came whole.
        if (row.lines == 5) {
            EXPECT_EQ(listed.substr(0, 42), "f1.x\t00000004;f2.x\t00000004;f3.x\t00000004;");
            EXPECT_EQ(host.lines[3].name.substr(0, 3), host.lines[4].name.substr(0, 3));
        }
    }
}

// A stop for good while subdirectories are walked on several threads: what
// was told is what one thread tells up to some file, then nothing but the
// ends of the levels begun.
TEST(Walk, AStopEndsAWalkOnSeveralThreadsAsOnOne)
{
    test::TempDir tmp;
    for (int d = 0; d < 6; ++d)
        for (const char* name : {"/a.x", "/b.x", "/in/c.x"})
            tmp.write("s" + std::to_string(d) + name, "1");
    RecordingHost whole;
    whole.walk(tmp.path(), "*.x", true);
    ASSERT_EQ(whole.lines.size(), 18u);
    // Yields: one for each of the 6 subdirectories, then one before each file.
    const struct { int cancelAt; std::size_t lines; } rows[] = {{1, 0}, {7, 0}, {8, 1}, {15, 8}, {24, 17}, {0, 18}};
    for (const auto& row : rows) {
        SCOPED_TRACE("stop at yield " + std::to_string(row.cancelAt));
        RecordingHost host;
        host.sticky = host.parallel = true;
        host.cancelAt = row.cancelAt;
        host.walk(tmp.path(), "*.x", true);
        EXPECT_EQ(host.lines.size(), row.lines);
        for (std::size_t i = 0; i < host.lines.size(); ++i)
            EXPECT_EQ(host.lines[i].name, whole.lines[i].name);
        EXPECT_EQ(std::count(host.controls.begin(), host.controls.end(), 'F'),
                  std::count(host.controls.begin(), host.controls.end(), 'T'));
        EXPECT_EQ(host.controls.back(), 'T');
    }
}

}  // namespace
}  // namespace brindlex
