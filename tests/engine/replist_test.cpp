// The replacements menu and saving a set: the items built from a file, the
// numbering of new sets, the list run, the save rules.
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "replacements/profile.h"
#include "replacements/replist.h"
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
}

TEST(RepMenu, CountRaisedByUserKeysOnly)
{
    const struct {
        std::string keys;
        int start, expected;
    } rows[] = {
        {"User-3=a\nuser-7=b\n", 0, 7},
        {"User-2=a\n", 5, 5},
        {"User-=a\nUser-x=b\nuser0=c\nUser--3=d\nUser4=e\nUsers-5=f\n", 0, 0},
        {"USER-5abc=a\nuser-1x9=b\n", 0, 5},
        // Beyond an Integer counts nothing.
        {"User-99999=a\nUser-40=b\n", 0, 40},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.keys);
        TempDir dir;
        int nRepCount = row.start;
        loadreplist(dir.write("sets.ini", "[Replacements]\n" + row.keys), nRepCount);
        EXPECT_EQ(nRepCount, row.expected);
    }
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
        {"Cancel after the second; split at the first arrow", menuof({"a==>1==>2", "b", "c==>3"}), 2, "s0:a>1==>2 s1:b> "},
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
        {"an empty answer saves nothing", "brindlex.ini", "mine", "a", "b", 0, "", "mine", {}, ""},
        {"spaces are stored as %20, = as -", "sets.ini", "x", " a  b", "c d ", 0, "a=b", "x", "a-b",
         "a-b=%20a%20%20b==>c%20d%20"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TempDir dir;
        const fs::path ini = dir.path() / row.file;
        std::string offered;
        auto ask = [&](const std::string&, const std::string& d) {
            if (!row.answer)
                ADD_FAILURE() << "unexpected question";
            offered = d;
            return row.answer.value_or("");
        };
        EXPECT_EQ(saverep(row.sName, row.text2, row.text3, ini, row.nRepCount, ask), row.tag);
        EXPECT_EQ(offered, row.offered);
        EXPECT_EQ(readfile(ini), row.line.empty() ? "" : "[Replacements]\r\n" + row.line + "\r\n");
        EXPECT_EQ(fs::exists(ini), !row.line.empty());
    }
}

}  // namespace
}  // namespace brindlex
