// The ini store behind the replacement sets: requests, line order, in-place
// rewrite, buffer limits, what is kept as it is, failed writes; the
// replacements menu built from it and the saving of a set.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/replacements/profile.h"
#include "engine/replacements/replist.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::readfile;
using test::TempDir;
namespace fs = std::filesystem;
using namespace std::string_literals;

const std::string kThree = "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\n";
const std::string kOld = "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n";

TEST(Profile, RequestsReadListAndWriteAsThePlatformDoesWithinItsBuffers)
{
    // after: nullopt when unchanged. (A file or a section made by a write is
    // the random round trip's first check.)
    const struct { const char* what; std::string before; int nMode; std::string request, result;
                   std::optional<std::string> after; } rows[] = {
        {"keys in the order of the lines, section in any case", kThree, 0, "rePLACEments", "b\0Apple\0c\0"s, {}},
        {"key found in any case", kThree, 1, "Replacements|APPLE", "2", {}},
        {"existing key rewritten where it stands, in the file's spelling", kThree, 2, "Replacements|APPLE=9",
         "", "[Replacements]\r\nb=1\r\nApple=9\r\nc=3\r\n"},
        {"new key behind the last key of its section", "[R]\na=1\n\n; about O\n[O]\nq=1\n"s, 2, "R|n=2",
         "", "[R]\na=1\nn=2\n\n; about O\n[O]\nq=1\n"},
        {"key with |, value with = and ==>, blank ends go", "[R]\n"s, 2, "R|  a|b  =  c=d==>e f  ", "", "[R]\na|b=c=d==>e f\n"},
        {"what is not understood stays byte for byte",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=1\r\n=x\r\n[O]\nz = 9 \n"s, 2, "R|a=2", "",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=2\r\n=x\r\n[O]\nz = 9 \n"s},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TempDir dir;
        const fs::path ini = dir.write("sets.ini", row.before);
        EXPECT_EQ(profilestring(row.nMode, row.request, ini), row.result);
        EXPECT_EQ(readfile(ini), row.after.value_or(row.before));
    }
    // 99 names of 9 bytes and their NULs fill 990 bytes; 7 bytes and a NUL
    // fill the listing exactly, and an eighth byte takes the NUL's place.
    std::string file = "[R]\r\n", names;
    for (int i = 0; i < 99; ++i) {
        const std::string name = "k" + std::string(8 - std::to_string(i).size(), '0') + std::to_string(i);
        file += name + "=v\r\n";
        names += name + '\0';
    }
    for (const auto& [last, listed] : {std::pair{"seven77"s, "seven77\0"s}, {"eight888"s, "eight888"s}}) {
        TempDir dir;
        EXPECT_EQ(profilestring(0, "R", dir.write("x.ini", file + last + "=v\r\nk=v\r\n")), names + listed);
    }
    std::string pattern;
    for (int i = 0; pattern.size() < 1000; ++i)
        pattern += std::to_string(i) + "%20";
    for (std::size_t length : {999u, 1000u}) {
        SCOPED_TRACE(length);
        TempDir dir;
        const std::string value = pattern.substr(0, length);
        const fs::path ini = dir.path() / "x.ini";
        profilestring(2, "R|k=" + value, ini);
        EXPECT_EQ(profilevalue(ini, "R", "k"), value) << "the file holds the whole value";
        EXPECT_EQ(profilestring(1, "R|k", ini), value.substr(0, 999));
        EXPECT_EQ(profilestring(1, "R|missing=" + value, ini), value.substr(0, 999)) << "the default too";
    }
}

// Names hold no "=" and never begin with ";"; values hold anything on one
// line; neither has blanks at its ends to lose. No letter of the names comes
// in both cases, so names that differ are different keys.
TEST(Profile, TenThousandRandomPairsRoundTrip)
{
    std::mt19937 rng(20240611);
    const auto randomtext = [&](const std::string& alphabet, std::size_t maxlength) {
        std::string s(rng() % (maxlength + 1), ' ');
        for (char& c : s)
            c = alphabet[rng() % alphabet.size()];
        const std::size_t first = s.find_first_not_of(" \t");
        return first == std::string::npos ? "" : s.substr(first, s.find_last_not_of(" \t") - first + 1);
    };
    std::vector<std::string> pool;
    while (pool.size() < 150)
        if (std::string key = randomtext("abcXYZ019 -_.|[]<>%#!\"'\xB0\xBF\xA7", 12); !key.empty())
            pool.push_back(key);
    // In memory where there is room: ten thousand synced rewrites cost no disk time then.
    std::string base = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path().string()) + "/brindlex-XXXXXX";
    ASSERT_TRUE(::mkdtemp(base.data()));
    const fs::path ini = fs::path(base) / "round.ini";
    ASSERT_FALSE(writeprofilestring(ini, "Other", "k", "1"));
    const char* valuebytes = "abXY01 =|[];#%<>\t\"\xB0\xFF";
    std::vector<std::pair<std::string, std::string>> model = {{"Apple-To-PC", "%0D==>%0D%0A"}};   // in first-written order
    profilestring(2, "Replacements|Apple-To-PC=%0D==>%0D%0A", ini);
    for (int i = 1; i <= 10000; ++i) {
        const std::string key = pool[rng() % pool.size()], value = randomtext(valuebytes, 30) + "==>" + randomtext(valuebytes, 10);
        profilestring(2, "Replacements|" + key + "=" + value, ini);
        const auto it = std::find_if(model.begin(), model.end(), [&](const auto& kv) { return kv.first == key; });
        (it == model.end() ? model.emplace_back(key, value) : *it).second = value;
        if (i % 1000 != 0)
            continue;
        std::vector<std::string> keys;
        for (const auto& [k, v] : model) {
            keys.push_back(k);
            ASSERT_EQ(profilevalue(ini, "Replacements", k), v) << i << " " << k;
        }
        ASSERT_EQ(profilekeys(ini, "Replacements"), keys) << i;
        ASSERT_EQ(profilevalue(ini, "Other", "k"), "1") << i;
    }
    EXPECT_EQ(readfile(ini).substr(0, 58), "[Other]\r\nk=1\r\n\r\n" + kOld);
    fs::remove_all(base);
}

// A child's answer: whether the write failed, how many names the directory
// holds afterwards (no stray file may stay) and the file's bytes.
TEST(Profile, FailedWriteLeavesTheOldFile)
{
    for (const bool readonly : {true, false}) {
        SCOPED_TRACE(readonly ? "a file the user may not write" : "a file size limit");
        TempDir dir;
        const fs::path ini = dir.write("sets.ini", kOld);
        ::chmod(dir.path().c_str(), 0777);
        ::chmod(ini.c_str(), readonly ? 0444 : 0644);
        const auto attempt = [&] {
            if (!readonly)
                test::limitfilesize(1024);
            const Error error = writeprofilestring(ini, "Replacements", "Previous", std::string(4000, 'x'));
            return (error ? "failed " : "written ") + std::to_string(test::entrycount(dir.path())) + " | " + readfile(ini);
        };
        EXPECT_EQ(readonly ? test::rununprivileged(attempt) : test::runinchild(attempt), "failed 1 | " + kOld);
    }
}

// The replacements menu and saving a set: the items built from a file, the
// numbering of new sets, the list run, the save rules.

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
    // tag: what saverep returns; lines: the file's, behind the default set.
    const struct { const char* what; std::string sName, text2, text3; std::optional<std::string> answer; std::string offered;
                   std::optional<std::string> tag; std::string lines; } steps[] = {
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
TEST(RepMenu, ItemsSavedRunAndCountForTheDefaultFileAndForAnOpenedFile)
{
    const std::string sets = "[Replacements]\nb=1==>2\nA=x==>y\nc=\n", all = "Replace &All of the Above=DoAllReps;"
                                                                          "Find &All of the Above=DoAllFinds;";
    // tag: what saving a run with empty boxes returns.
    const struct { const char* name; std::string content, menu; std::optional<std::string> tag; std::string after; } rows[] = {
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
    // Only User-n keys raise the count; beyond an Integer counts nothing, and the count is never lowered.
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
