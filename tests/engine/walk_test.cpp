#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/walksink.h"
#include "engine/files/files.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

// Records what a walk tells its sink; asks to stop from carryon() number
// `cancelAt` on (1-based, 0 for never), until a level begins, as the
// window's host does.
class RecordingHost : public WalkSink {
public:
    int cancelAt = 0;
    int yields = 0;
    bool stopAsked = false;
    std::vector<FileEntry> lines;
    std::string controls;  // one letter a level's start or end: "F" off, "T" on

    void level(bool begins) override
    {
        controls += begins ? 'F' : 'T';
        stopAsked = stopAsked && !begins;
    }
    bool carryon() override
    {
        stopAsked = stopAsked || ++yields == cancelAt;
        return !stopAsked;
    }
    void entry(const std::string& name, std::int64_t size) override { lines.push_back({name, size}); }

    std::string walk(const fs::path& dir, const std::string& name, bool subs)
    {
        const std::string mask = (dir / name).string();
        listfiles(mask, subs, basedirfor(mask), *this);
        sortlist1(lines);
        std::string out;
        for (const auto& line : lines)
            out += list1line(line) + ";";
        return out;
    }
};

TEST(Walk, ListsWhatTheMaskSelectsAndNoOtherKindOfEntry)
{
    test::TempDir tmp;
    for (const char* name : {"a.txt", "b.bin", ".dot.txt", "sub/c.txt", "sub/Deep/D.txt", ".hidden/e.txt", "matchdir.txt/g.txt"})
        tmp.write(name, "12");
    const fs::path root = tmp.path();
    for (const auto& [link, target] : {std::pair{"link-to-a.txt", "a.txt"}, {"dangling.txt", "missing"},
                                       {"selfloop.txt", "selfloop.txt"}, {"null.txt", "/dev/null"}})
        fs::create_symlink(target, root / link);
    fs::create_directory_symlink("sub", root / "linkdir");
    fs::create_directory_symlink(".", root / "loop");
    ASSERT_EQ(::mkfifo((root / "fifo.txt").c_str(), 0644), 0);
    // Dot files count, dot directories and links to directories are not
    // entered, and only regular files, directly or through a link, are listed.
    RecordingHost flat, deep;
    EXPECT_EQ(flat.walk(root, "*.txt", false), ".dot.txt\t00000002;a.txt\t00000002;link-to-a.txt\t00000002;");
    EXPECT_EQ(deep.walk(root, "*.txt", true),
              ".dot.txt\t00000002;a.txt\t00000002;link-to-a.txt\t00000002;matchdir.txt/g.txt\t00000002;"
              "sub/Deep/D.txt\t00000002;sub/c.txt\t00000002;");
}

// A directory that can't be read, or read but not searched, is told to the
// host, and the walk goes on with every other one (its neighbours on either
// side in readdir's order included).
TEST(Walk, PassesOverAnUnreadableDirectoryAndGoesOn)
{
    for (const mode_t mode : {0000, 0644, 0311}) {
        SCOPED_TRACE("mode " + std::to_string(mode));
        test::TempDir tmp;
        for (const char* name : {"d1/a.txt", "d2/a.txt", "d3/a.txt", "d4/a.txt", "d5/a.txt", "d3/inner/c.txt", "z.txt"})
            tmp.write(name, "a");
        ASSERT_EQ(::chmod((tmp.path() / "d3").c_str(), mode), 0);
        EXPECT_EQ(test::rununprivileged([&] {
                      struct Told : RecordingHost {
                          std::string told;
                          void unreadable(const std::string& path, int code) override
                          {
                              told += fs::path(path).filename().string() + ":" + std::to_string(code) + ";";
                          }
                      } host;
                      const std::string listed = host.walk(tmp.path(), "*.txt", true);
                      return listed + host.told + std::to_string(host.controls.size());
                  }),
                  "d1/a.txt\t00000001;d2/a.txt\t00000001;d4/a.txt\t00000001;d5/a.txt\t00000001;z.txt\t00000001;"
                  "d3:13;12");
        ::chmod((tmp.path() / "d3").c_str(), 0755);
    }
}

// Cancel ends the listing of the directory in hand; a call further up goes
// on with its next subdirectory, whose start clears the flag.
TEST(Walk, CancelEndsTheDirectoryInHandOnly)
{
    test::TempDir tmp;
    for (const char* name : {"f1.x", "f2.x", "f3.x", "s1/a.x", "s1/b.x", "s2/c.x", "s2/d.x"})
        tmp.write(name, "1234");
    // Yields: 3 top files, then the 2 directories; each subdirectory then
    // its 2 files. flag: as the walk leaves it.
    const struct { int cancelAt; std::size_t lines; std::string controls; int yields; bool flag; } rows[] = {
        {0, 7, "FFTFTT", 9, false}, {1, 0, "FT", 1, true}, {4, 3, "FT", 4, true},
        {6, 5, "FFTFTT", 8, false}, {8, 5, "FFTFTT", 8, true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE("cancel at yield " + std::to_string(row.cancelAt));
        RecordingHost host;
        host.cancelAt = row.cancelAt;
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
    // A flag raised before the walk is cleared.
    RecordingHost host;
    host.stopAsked = true;
    host.walk(tmp.path(), "*.x", true);
    EXPECT_EQ(host.lines.size(), 7u);
    EXPECT_FALSE(host.stopAsked);
}

}  // namespace
}  // namespace brindlex
