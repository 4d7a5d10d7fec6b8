// The replacements menu and saving a set: the items built from a file, the
// numbering of new sets, the list run, the save rules.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "replacements/profile.h"
#include "replacements/replist.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::readfile;
using test::TempDir;
namespace fs = std::filesystem;

const std::string kAllOfTheAbove = "Replace &All of the Above=DoAllReps;Find &All of the Above=DoAllFinds;";

std::string captions(const std::vector<RepItem>& items)
{
    std::string text;
    for (const RepItem& item : items)
        text += item.caption + "=" + item.tag + ";";
    return text;
}

std::string noquestion(const std::string& prompt, const std::string&)
{
    ADD_FAILURE() << "unexpected question: " << prompt;
    return {};
}

TEST(RepWorkedExample, FileGrowsLineByLine)
{
    TempDir dir;
    const fs::path ini = dir.path() / "config" / "brindlex" / "brindlex.ini";
    int nRepCount = 0;
    std::string tag = "user0";

    // First start: no file, no directory.
    std::vector<RepItem> menu = loadreplist(ini, nRepCount);
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n");
    EXPECT_EQ(captions(menu), "Apple-To-PC=%0D==>%0D%0A;-=;&New=;");

    // Find All with "old text" / "new".
    tag = saverep("", "old text", "new", ini, nRepCount, noquestion).value_or(tag);
    menu = loadreplist(ini, nRepCount);
    EXPECT_EQ(tag, "Previous");
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\nPrevious=old%20text==>new\r\n");

    // "&New", accepting the name offered.
    ASSERT_EQ(repaction(menu.back().tag), RepAction::New);
    std::string prompt, offered;
    auto accept = [&](const std::string& p, const std::string& d) { prompt = p, offered = d; return d; };
    tag = saverep(tag, "old text", "new", ini, nRepCount, accept).value_or(tag);
    menu = loadreplist(ini, nRepCount);
    EXPECT_EQ(prompt, "Name for \r\n\r\nold text==>new\r\n\r\n?");
    EXPECT_EQ(offered, "User-1");
    EXPECT_EQ(tag, "User-1");
    EXPECT_EQ(nRepCount, 1);
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\nPrevious=old%20text==>new\r\n"
                             "User-1=old%20text==>new\r\n");

    // Replace with "a=b", then "&New" answered "x=y".
    tag = saverep("", "a=b", "new", ini, nRepCount, noquestion).value_or(tag);
    menu = loadreplist(ini, nRepCount);
    auto answer = [&](const std::string&, const std::string& d) { offered = d; return std::string("x=y"); };
    tag = saverep(tag, "a=b", "new", ini, nRepCount, answer).value_or(tag);
    menu = loadreplist(ini, nRepCount);
    EXPECT_EQ(offered, "User-2");
    EXPECT_EQ(tag, "x-y");
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\nPrevious=a=b==>new\r\n"
                             "User-1=old%20text==>new\r\nx-y=a=b==>new\r\n");
    EXPECT_EQ(captions(menu), "Apple-To-PC=%0D==>%0D%0A;Previous=a=b==>new;User-1=old%20text==>new;"
                              "x-y=a=b==>new;-=;&New=;");
}

TEST(RepMenu, ItemsForTheDefaultFileAndForAnOpenedFile)
{
    const std::string sets = "[Replacements]\nb=1==>2\nA=x==>y\nc=\n";
    const struct {
        const char* name;
        std::string content;  // "" : no file
        std::string menu, after;
    } rows[] = {
        {"my-brindlex.ini", sets, "b=1==>2;A=x==>y;c=;-=;&New=;", sets},
        {"sets.ini", sets, "b=1==>2;A=x==>y;c=;-=;&New=;" + kAllOfTheAbove, sets},
        {"BRINDLEX.INI", "", "Apple-To-PC=%0D==>%0D%0A;-=;&New=;" + kAllOfTheAbove, "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n"},
        {"other.ini", "[Other]\nk=v\n", "Apple-To-PC=%0D==>%0D%0A;-=;&New=;" + kAllOfTheAbove,
         "[Other]\nk=v\n\n[Replacements]\nApple-To-PC=%0D==>%0D%0A\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        if (!row.content.empty())
            dir.write(row.name, row.content);
        int nRepCount = 0;
        EXPECT_EQ(captions(loadreplist(dir.path() / row.name, nRepCount)), row.menu);
        EXPECT_EQ(readfile(dir.path() / row.name), row.after);
    }
    // A file that can't be written still shows the default set's name.
    TempDir dir;
    fs::create_directory(dir.path() / "locked");
    ::chmod((dir.path() / "locked").c_str(), 0555);
    EXPECT_EQ(test::rununprivileged([&] {
                  int nRepCount = 0;
                  return captions(loadreplist(dir.path() / "locked" / "sets.ini", nRepCount));
              }),
              "Apple-To-PC=;-=;&New=;" + kAllOfTheAbove);
    EXPECT_EQ(loadedmessage(3, "/sets/dos.ini"), "3 replacements loaded from /sets/dos.ini.");
}

TEST(RepMenu, ListingLimitShortensTheMenu)
{
    // 99 names of 9 bytes fill 990 of the 998 bytes; "Long-name" loses its
    // tail and so its value; "Beyond" is not listed at all.
    std::string file = "[Replacements]\r\n";
    for (int i = 0; i < 99; ++i)
        file += "set-" + std::to_string(10000 + i) + "=a==>b\r\n";
    file += "Long-name-x=c==>d\r\nBeyond=e==>f\r\n";
    TempDir dir;
    int nRepCount = 0;
    const std::vector<RepItem> menu = loadreplist(dir.write("sets.ini", file), nRepCount);
    ASSERT_EQ(menu.size(), 100u + 4u);
    EXPECT_EQ(menu[98], (RepItem{"set-10098", "a==>b"}));
    EXPECT_EQ(menu[99], (RepItem{"Long-nam", ""}));
    EXPECT_EQ(menu[100], (RepItem{"-", ""}));
}

TEST(RepMenu, CountRaisedByUserKeysOnly)
{
    const struct {
        std::vector<std::string> files;  // key lines of each file, loaded in turn
        int start, expected;
    } rows[] = {
        {{"User-3=a\nuser-7=b\n"}, 0, 7},
        {{"User-12=a\n", "Other=b\n"}, 0, 12},
        {{"User-2=a\n"}, 5, 5},
        {{"User-=a\nUser-x=b\nuser0=c\nUser--3=d\nUser4=e\nUsers-5=f\n"}, 0, 0},
        {{"USER-5abc=a\nuser-1x9=b\n"}, 0, 5},
        {{"User- 4=a\n"}, 0, 4},
        // Beyond an Integer counts nothing.
        {{"User-99999=a\nUser-40=b\n"}, 0, 40},
        {{"User-32767=a\n"}, 0, 32767},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.files));
        TempDir dir;
        int nRepCount = row.start;
        for (std::size_t i = 0; i < row.files.size(); ++i)
            loadreplist(dir.write(std::to_string(i) + ".ini", "[Replacements]\n" + row.files[i]), nRepCount);
        EXPECT_EQ(nRepCount, row.expected);
    }
}

TEST(RepSet, SplitAtTheFirstArrowAndClickAction)
{
    const struct {
        std::string tag, find, replace;
    } rows[] = {
        {" a  ==>  b ", "a", "b"}, {"a==>b==>c", "a", "b==>c"}, {"a=b==>new", "a=b", "new"},
        {"==>", "", ""}, {"no arrow ", "no arrow ", ""}, {"a=>b", "a=>b", ""},
    };
    for (const auto& row : rows) {
        const RepPair pair = splitset(row.tag);
        EXPECT_EQ(pair.find + "|" + pair.replace, row.find + "|" + row.replace) << row.tag;
    }
    EXPECT_EQ(repaction(""), RepAction::New);
    EXPECT_EQ(repaction("DoAllReps"), RepAction::ReplaceAll);
    EXPECT_EQ(repaction("DoAllFinds"), RepAction::FindAll);
    EXPECT_EQ(repaction("doallreps"), RepAction::Pick);
}

std::vector<RepItem> menuof(const std::vector<std::string>& tags)
{
    std::vector<RepItem> items;
    for (std::size_t i = 0; i < tags.size(); ++i)
        items.push_back({"s" + std::to_string(i), tags[i]});
    return items;
}

TEST(RepListRun, RunsTheSetsInMenuOrderUntilAStop)
{
    TempDir dir;
    int nRepCount = 0;
    const auto opened = loadreplist(dir.write("sets.ini", "[Replacements]\na=a==>1\nb=b==>2\n"), nRepCount);
    std::string first101;
    for (int i = 0; i <= 100; ++i)
        first101 += "s" + std::to_string(i) + ":x>y ";
    const struct {
        const char* what;
        std::vector<RepItem> items;
        int cancelafter;  // sets run before Cancel is pressed; -1: never
        std::string ran;
    } rows[] = {
        {"the sets above the separator of a menu", opened, -1, "a:a>1 b:b>2 "},
        {"a set without value stops", menuof({"a==>1", "", "b==>2"}), -1, "s0:a>1 "},
        {"Cancel after the second", menuof({"a==>1", "b==>2", "c==>3"}), 2, "s0:a>1 s1:b>2 "},
        {"Cancel before any", menuof({"a==>1"}), 0, ""},
        {"a set without arrow is all find", menuof({"abc", "d==>"}), -1, "s0:abc> s1:d> "},
        {"items 0 to 100 only", menuof(std::vector<std::string>(150, "x==>y")), -1, first101},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        std::string ran;
        int count = 0;
        const std::size_t n = listrun(
            row.items, [&] { return count == row.cancelafter; },
            [&](const RepItem& item, const RepPair& pair) {
                ran += item.caption + ":" + pair.find + ">" + pair.replace + " ";
                ++count;
            });
        EXPECT_EQ(ran, row.ran);
        EXPECT_EQ(n, static_cast<std::size_t>(count));
    }
}

TEST(RepSave, KeyAndValueFollowTheRules)
{
    const struct {
        const char* what;
        const char* file;
        std::string sName, text2, text3;
        int nRepCount;
        std::optional<std::string> answer;  // nullopt: no question may come
        std::string offered;
        std::optional<std::string> tag;     // what saverep returns
        std::string line;                   // the set's line in the file; "" none
    } rows[] = {
        {"a run with empty boxes saves Previous", "brindlex.ini", "", "", "", 0, {}, "", "Previous", "Previous===>"},
        {"a run into an opened file saves nothing", "sets.ini", "", "a", "b", 0, {}, "", {}, ""},
        {"Previous offers a new number", "brindlex.ini", "Previous", "a", "b", 7, "User-8", "User-8", "User-8", "User-8=a==>b"},
        {"the answer Previous", "brindlex.ini", "Previous", "a", "b", 0, "Previous", "User-1", "Previous", "Previous=a==>b"},
        {"a picked name is offered", "sets.ini", "mine", "a", "", 0, "mine", "mine", "mine", "mine=a==>"},
        {"an empty answer saves nothing", "brindlex.ini", "mine", "a", "b", 0, "", "mine", {}, ""},
        {"blanks at the ends stay in the name only", "sets.ini", "mine", "a", "b", 0, "  n m  ", "mine", "  n m  ", "n m=a==>b"},
        {"spaces are stored as %20, = as -", "sets.ini", "x", " a  b", "c d ", 0, "a=b", "x", "a-b",
         "a-b=%20a%20%20b==>c%20d%20"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TempDir dir;
        const fs::path ini = dir.path() / row.file;
        std::string offered, prompt;
        auto ask = [&](const std::string& p, const std::string& d) {
            if (!row.answer)
                ADD_FAILURE() << "unexpected question";
            prompt = p, offered = d;
            return row.answer.value_or("");
        };
        EXPECT_EQ(saverep(row.sName, row.text2, row.text3, ini, row.nRepCount, ask), row.tag);
        EXPECT_EQ(offered, row.offered);
        EXPECT_EQ(prompt, row.answer ? "Name for \r\n\r\n" + row.text2 + "==>" + row.text3 + "\r\n\r\n?" : "");
        EXPECT_EQ(readfile(ini), row.line.empty() ? "" : "[Replacements]\r\n" + row.line + "\r\n");
        EXPECT_EQ(fs::exists(ini), !row.line.empty());
    }
    // Saving a name that is there replaces its set where it stands.
    TempDir dir;
    const fs::path ini = dir.write("sets.ini", "[Replacements]\nfirst=1==>2\nmine=old==>x\nlast=3==>4\n");
    EXPECT_EQ(saverep("mine", "new", "y", ini, 0, [](const std::string&, const std::string& d) { return d; }), "mine");
    EXPECT_EQ(readfile(ini), "[Replacements]\nfirst=1==>2\nmine=new==>y\nlast=3==>4\n");
}

}  // namespace
}  // namespace brindlex
