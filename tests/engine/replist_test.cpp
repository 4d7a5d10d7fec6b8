// The replacements menu and saving a set: the items built from a file, the
// numbering of new sets, the list run, the save rules.
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include <gtest/gtest.h>

#include "engine/replacements/replist.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::readfile;
using test::TempDir;
namespace fs = std::filesystem;
using namespace std::string_literals;

const std::string kDefault = "Apple-To-PC=%0D==>%0D%0A";

std::string captions(const std::vector<RepItem>& items)
{
    std::string text;
    for (const RepItem& item : items)
        text += item.caption + "=" + item.tag + ";";
    return text;
}

// Each step saves the boxes under the current name and rebuilds the menu, as
// the window does, which raises the count; `answer` nullopt: no question may come.
TEST(RepWorkedExample, FileGrowsLineByLine)
{
    TempDir dir;
    const fs::path ini = dir.path() / "config" / "brindlex" / "brindlex.ini";
    int nRepCount = 0;
    EXPECT_EQ(captions(loadreplist(ini, nRepCount)), kDefault + ";-=;&New=;") << "first start: no file, no directory";
    EXPECT_EQ(readfile(ini), "[Replacements]\r\n" + kDefault + "\r\n");
    const struct {
        const char* what;
        std::string sName, text2, text3;
        std::optional<std::string> answer;
        std::string offered;
        std::optional<std::string> tag;   // what saverep returns
        std::string lines;                // the file's, behind the default set
    } steps[] = {
        {"Find All", "", "old text", "new", {}, "", "Previous", "Previous=old%20text==>new"},
        {"&New, accepting the name offered", "Previous", "old text", "new", "User-1", "User-1", "User-1",
         "Previous=old%20text==>new\r\nUser-1=old%20text==>new"},
        {"Replace", "", "a=b", "new", {}, "", "Previous", "Previous=a=b==>new\r\nUser-1=old%20text==>new"},
        {"&New, answered x=y", "Previous", "a=b", "new", "x=y", "User-2", "x-y",
         "Previous=a=b==>new\r\nUser-1=old%20text==>new\r\nx-y=a=b==>new"},
        {"&New, cancelled", "x-y", "a", "b", "", "x-y", {}, "Previous=a=b==>new\r\nUser-1=old%20text==>new\r\nx-y=a=b==>new"},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.what);
        std::string prompt, offered;
        const auto ask = [&](const std::string& p, const std::string& d) {
            EXPECT_TRUE(step.answer) << "unexpected question";
            prompt = p, offered = d;
            return step.answer.value_or("");
        };
        EXPECT_EQ(saverep(step.sName, step.text2, step.text3, ini, nRepCount, ask), step.tag);
        EXPECT_EQ(offered, step.offered);
        EXPECT_EQ(prompt, step.answer ? "Name for \r\n\r\n" + step.text2 + "==>" + step.text3 + "\r\n\r\n?" : "");
        EXPECT_EQ(readfile(ini), "[Replacements]\r\n" + kDefault + "\r\n" + step.lines + "\r\n");
        loadreplist(ini, nRepCount);
    }
}

// The default file shows no "All of the Above" items, and only it takes a run's pair as Previous.
TEST(RepMenu, ItemsAndSavedRunForTheDefaultFileAndForAnOpenedFile)
{
    const std::string sets = "[Replacements]\nb=1==>2\nA=x==>y\nc=\n", all = "Replace &All of the Above=DoAllReps;"
                                                                          "Find &All of the Above=DoAllFinds;";
    const struct {
        const char* name;
        std::string content, menu;
        std::optional<std::string> tag;   // what saving a run with empty boxes returns
        std::string after;
    } rows[] = {
        {"my-brindlex.ini", sets, "b=1==>2;A=x==>y;c=;-=;&New=;", "Previous", sets + "Previous===>\n"},
        {"sets.ini", sets, "b=1==>2;A=x==>y;c=;-=;&New=;" + all, {}, sets},
        {"other.ini", "[Other]\nk=v\n", kDefault + ";-=;&New=;" + all, {}, "[Other]\nk=v\n\n[Replacements]\n" + kDefault + "\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        TempDir dir;
        int nRepCount = 0;
        const fs::path ini = dir.write(row.name, row.content);
        EXPECT_EQ(captions(loadreplist(ini, nRepCount)), row.menu);
        const auto ask = [](const std::string&, const std::string&) {
            ADD_FAILURE() << "unexpected question";
            return std::string();
        };
        EXPECT_EQ(saverep("", "", "", ini, nRepCount, ask), row.tag);
        EXPECT_EQ(readfile(ini), row.after);
    }
}

TEST(RepMenu, CountRaisedByUserKeysOnly)
{
    // Beyond an Integer counts nothing, and the count is never lowered.
    for (const auto& [keys, start, expected] : {std::tuple<std::string, int, int>{"User-3=a\nuser-7=b\nUSER-9abc=c\n", 0, 9},
                                                {"User-=a\nUser-x=b\nuser0=c\nUser--3=d\nUser4=e\nUsers-5=f\nUser-99999=g\n", 0, 0},
                                                {"User-2=a\n", 5, 5}}) {
        SCOPED_TRACE(keys);
        TempDir dir;
        int nRepCount = start;
        loadreplist(dir.write("sets.ini", "[Replacements]\n" + keys), nRepCount);
        EXPECT_EQ(nRepCount, expected);
    }
}

// Cancel is left to the sets command's interrupt test, which runs this same loop.
TEST(RepListRun, RunsTheSetsInMenuOrderUntilTheSeparatorOrItem100)
{
    TempDir dir;
    int nRepCount = 0;
    const std::vector<RepItem> menu = loadreplist(dir.write("sets.ini", "[Replacements]\na=a==>1==>2\nb=b\n"), nRepCount);
    std::string first101;
    for (int i = 0; i <= 100; ++i)
        first101 += "s:x>y ";
    for (const auto& [items, expected] : {std::pair{menu, "a:a>1==>2 b:b> "s}, {std::vector<RepItem>(150, {"s", "x==>y"}), first101}}) {
        std::string ran;
        std::size_t count = 0;
        EXPECT_EQ(listrun(items, [] { return false; }, [&](const RepItem& item, const RepPair& pair) {
                      ran += item.caption + ":" + pair.find + ">" + pair.replace + " ";
                      ++count;
                  }), count);
        EXPECT_EQ(ran, expected);
    }
}

}  // namespace
}  // namespace brindlex
