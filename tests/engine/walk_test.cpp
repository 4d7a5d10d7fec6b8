#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "batch/host.h"
#include "files/files.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

// Records what a walk tells its host; raises the cancel flag at yield
// number `cancelAt` (1-based, 0 for never) and runs `atYield` at each yield.
class RecordingHost : public Host {
public:
    int cancelAt = 0;
    int yields = 0;
    std::vector<std::string> lines;
    std::string controls;  // one letter a call: "F" off, "T" on
    std::function<void(int)> atYield;

    void showcontrols(bool bOn) override { controls += bOn ? 'T' : 'F'; }
    void yield() override
    {
        ++yields;
        if (atYield)
            atYield(yields);
        if (yields == cancelAt)
            bCancel = true;
    }
    void addline(const std::string& line) override { lines.push_back(line); }

    std::vector<std::string> sorted() const
    {
        std::vector<std::string> out = lines;
        sortlist1(out);
        return out;
    }
};

void walk(const std::string& mask, bool subs, RecordingHost& host)
{
    listfiles(mask, subs, basedirfor(mask), host);
}

// A tree with every kind of entry a walk has to tell apart.
class WalkTree : public ::testing::Test {
protected:
    void SetUp() override
    {
        tmp.write("a.txt", "abc");
        tmp.write("b.bin", "");
        tmp.write(".dot.txt", "1");
        tmp.write("sp ace.txt", "12");
        tmp.write("sub/c.txt", "cc");
        tmp.write("sub/space.txt", "s");
        tmp.write("sub/Deep/D.txt", "dddd");
        tmp.write(".hidden/e.txt", "e");
        tmp.write("empty/inner/f.txt", "ffffff");
        tmp.write("matchdir.txt/g.txt", "g");
        const fs::path root = tmp.path();
        fs::create_symlink("a.txt", root / "link-to-a.txt");
        fs::create_symlink("missing", root / "dangling.txt");
        fs::create_symlink("selfloop.txt", root / "selfloop.txt");
        fs::create_symlink("/dev/null", root / "null.txt");
        fs::create_directory_symlink("sub", root / "linkdir");
        fs::create_directory_symlink(".", root / "loop");
        ASSERT_EQ(::mkfifo((root / "fifo.txt").c_str(), 0644), 0);
    }

    std::string mask(const std::string& name) const { return tmp.path().string() + "/" + name; }

    test::TempDir tmp;
};

TEST_F(WalkTree, ListsWhatTheMaskSelects)
{
    const struct {
        std::string name;
        bool subs;
        std::vector<std::string> lines;
    } cases[] = {
        {"*.txt", false,
         {".dot.txt\t00000001", "a.txt\t00000003", "link-to-a.txt\t00000003", "sp ace.txt\t00000002"}},
        {"*.txt", true,
         {".dot.txt\t00000001", "a.txt\t00000003", "empty/inner/f.txt\t00000006",
          "link-to-a.txt\t00000003", "matchdir.txt/g.txt\t00000001", "sp ace.txt\t00000002",
          "sub/Deep/D.txt\t00000004", "sub/c.txt\t00000002", "sub/space.txt\t00000001"}},
        {"*.bin", true, {"b.bin\t00000000"}},
        {"?.txt", true,
         {"a.txt\t00000003", "empty/inner/f.txt\t00000006", "matchdir.txt/g.txt\t00000001",
          "sub/Deep/D.txt\t00000004", "sub/c.txt\t00000002"}},
        {"d.txt", true, {}},
        {"sp ace.txt", true, {"sp ace.txt\t00000002", "sub/space.txt\t00000001"}},
        {"*.none", true, {}},
    };
    for (const auto& c : cases) {
        RecordingHost host;
        walk(mask(c.name), c.subs, host);
        EXPECT_EQ(host.sorted(), c.lines) << c.name << (c.subs ? " with subdirectories" : "");
    }
}

TEST_F(WalkTree, ControlsGoOffAndOnOncePerDirectory)
{
    // Directories walked: the top, sub, sub/Deep, empty, empty/inner,
    // matchdir.txt: six, nested as the calls are.
    RecordingHost host;
    walk(mask("*.txt"), true, host);
    std::string sorted = host.controls;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(sorted, "FFFFFFTTTTTT");
    EXPECT_EQ(host.controls.front(), 'F');
    EXPECT_EQ(host.controls.back(), 'T');
    EXPECT_FALSE(host.bCancel);
}

TEST(WalkMissing, MissingDirectoryListsNothingAndGivesControlsBack)
{
    test::TempDir tmp;
    RecordingHost host;
    walk((tmp.path() / "gone" / "*.*").string(), true, host);
    EXPECT_TRUE(host.lines.empty());
    EXPECT_EQ(host.controls, "FT");
    EXPECT_EQ(host.yields, 0);
}

TEST(WalkVanish, FileGoneBeforeItsLengthIsReadIsSkipped)
{
    test::TempDir tmp;
    for (const char* name : {"1.dat", "2.dat", "3.dat", "4.dat"})
        tmp.write(name, "data");
    RecordingHost host;
    // At the first file, every other file goes away; the directory
    // listing was read ahead already, so the walk still meets their names.
    host.atYield = [&](int n) {
        if (n != 1)
            return;
        for (const auto& entry : fs::directory_iterator(tmp.path()))
            fs::remove(entry.path());
    };
    walk((tmp.path() / "*.dat").string(), false, host);
    ASSERT_EQ(host.lines.size(), 1u);
    EXPECT_EQ(host.lines[0].substr(1), ".dat\t00000004");
    EXPECT_EQ(host.controls, "FT");
}

TEST(WalkPermissions, UnreadableDirectoryIsPassedOverSilently)
{
    test::TempDir tmp;
    tmp.write("open/a.txt", "a");
    tmp.write("locked/b.txt", "b");
    tmp.write("locked/inner/c.txt", "c");
    tmp.write("z.txt", "z");
    ASSERT_EQ(::chmod((tmp.path() / "locked").c_str(), 0), 0);
    const std::string m = (tmp.path() / "*.txt").string();
    std::string seen = test::rununprivileged([&] {
        RecordingHost host;
        walk(m, true, host);
        std::string out = host.controls + "|";
        for (const auto& line : host.sorted())
            out += line + ";";
        return out;
    });
    // Four directories: top, open, locked (an empty listing), none below.
    EXPECT_EQ(seen, "FFTFTT|open/a.txt\t00000001;z.txt\t00000001;");
}

// Cancel ends the listing of the directory in hand; a call further up goes
// on with its next subdirectory, whose start clears the flag.
TEST(WalkCancel, EndsTheDirectoryInHandOnly)
{
    test::TempDir tmp;
    for (const char* name : {"f1.x", "f2.x", "f3.x", "s1/a.x", "s1/b.x", "s2/c.x", "s2/d.x"})
        tmp.write(name, "1234");
    // Yields: 3 top files, then 7 top entries (".", "..", three files, two
    // directories); each subdirectory then 2 files and 4 entries.
    const struct {
        int cancelAt;
        std::size_t lines;
        std::string controls;
        int yields;
        bool oneSubdirWhole;
    } cases[] = {
        {0, 7, "FFTFTT", 22, false},
        {1, 0, "FT", 1, false},
        {3, 2, "FT", 3, false},
        {4, 3, "FT", 4, false},
        {10, 3, "FT", 10, false},
        {11, 5, "FFTFTT", 17, true},
        {13, 7, "FFTFTT", 19, false},
        {16, 7, "FFTFTT", 22, false},
        {17, 5, "FFTFTT", 17, true},
        {22, 7, "FFTFTT", 22, false},
    };
    for (const auto& c : cases) {
        RecordingHost host;
        host.cancelAt = c.cancelAt;
        walk((tmp.path() / "*.x").string(), true, host);
        SCOPED_TRACE("cancel at yield " + std::to_string(c.cancelAt));
        EXPECT_EQ(host.lines.size(), c.lines);
        EXPECT_EQ(host.controls, c.controls);
        EXPECT_EQ(host.yields, c.yields);
        if (c.oneSubdirWhole) {
            auto lines = host.sorted();
            const std::vector<std::string> top = {"f1.x\t00000004", "f2.x\t00000004", "f3.x\t00000004"};
            ASSERT_EQ(lines.size(), 5u);
            EXPECT_TRUE(std::equal(top.begin(), top.end(), lines.begin()));
            EXPECT_EQ(lines[3].substr(0, 3), lines[4].substr(0, 3));
        }
    }
}

TEST(WalkCancel, RaisedFlagBeforeTheWalkIsCleared)
{
    test::TempDir tmp;
    tmp.write("a.x", "1");
    tmp.write("s/b.x", "2");
    RecordingHost host;
    host.bCancel = true;
    walk((tmp.path() / "*.x").string(), true, host);
    EXPECT_EQ(host.sorted(), (std::vector<std::string>{"a.x\t00000001", "s/b.x\t00000001"}));
    EXPECT_FALSE(host.bCancel);
}

TEST(WalkCancel, FinishedWalkLeavesTheFlagAsItStands)
{
    test::TempDir tmp;
    tmp.write("a.x", "1");
    RecordingHost host;
    host.cancelAt = 1;
    walk((tmp.path() / "*.x").string(), false, host);
    EXPECT_TRUE(host.bCancel);
    EXPECT_EQ(host.controls, "FT");
}

}  // namespace
}  // namespace brindlex
