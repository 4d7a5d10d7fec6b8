#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "files/files.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

struct SplitCase {
    std::string path, file, dir;
};

TEST(FilesSplit, NamePartAndDirectoryPart)
{
    const SplitCase cases[] = {
        {"/data/*.txt", "*.txt", "/data"},
        {"/*.*", "*.*", ""},
        {"/my dir/a.txt", "a.txt", "/my dir"},
        {"/data/", "", "/data"},
        {"*.*", "*.*", ""},
        {"/data/a b.txt", "ab.txt", "/data"},
        {"  /data/x  ", "x", "/data"},
        {"/a/b/c:d.txt", "c:d.txt", "/a/b"},
        {"", "", ""},
        {"/data/ a b ", "ab", "/data"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(filepart(c.path), c.file) << c.path;
        EXPECT_EQ(dirpart(c.path), c.dir) << c.path;
    }
}

TEST(FilesSplit, BaseDirectoryHasTrailingSlash)
{
    const std::pair<std::string, std::string> cases[] = {
        {"/data/*.txt", "/data/"},
        {"/*.*", "/"},
        {"/a b/c/x?.bin", "/a b/c/"},
    };
    for (const auto& [mask, base] : cases)
        EXPECT_EQ(basedirfor(mask), base) << mask;
}

struct ExpandCase {
    std::string text;
    std::string expected;  // "@" stands for the temporary directory
};

std::string substitute(std::string s, const std::string& root)
{
    for (std::size_t at; (at = s.find('@')) != std::string::npos;)
        s.replace(at, 1, root);
    return s;
}

TEST(FilesExpandMask, DirButtonSteps)
{
    test::TempDir tmp;
    tmp.write("Sub Dir/a.txt", "x");
    tmp.write("plain.txt", "x");
    const std::string root = tmp.path().string();
    const ExpandCase cases[] = {
        {"", "@/*.*"},
        {"*.txt", "@/*.txt"},
        {"plain.txt", "@/plain.txt"},
        {"Sub Dir", "@/Sub Dir/*.*"},
        {"@/Sub Dir", "@/Sub Dir/*.*"},
        {"@/Sub Dir/", "@/Sub Dir/*.*"},
        {"@//Sub Dir//*.TXT", "@/Sub Dir/*.TXT"},
        {"@/missing", "@/missing"},
        {"@/missing/*.*", "@/missing/*.*"},
        {"///", "/*.*"},
        {"MiXeD.Case", "@/MiXeD.Case"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(expandmask(substitute(c.text, root), tmp.path()), substitute(c.expected, root)) << c.text;
}

TEST(FilesExpandMask, RootAsCurrentDirectory)
{
    EXPECT_EQ(expandmask("", "/"), "/*.*");
    EXPECT_EQ(expandmask("etc", "/"), "/etc/*.*");
}

struct MatchCase {
    std::string mask, name;
    bool match;
};

TEST(FilesWildcard, StarAndQuestionMarkOnly)
{
    const MatchCase cases[] = {
        {"*.*", "readme", true},
        {"*.*", "a.b.c", true},
        {"*.*", ".hidden", true},
        {"*", "", true},
        {"*", "anything", true},
        {"*.txt", "a.txt", true},
        {"*.txt", "a.TXT", false},
        {"*.txt", "a.txt.bak", false},
        {"*.txt", ".txt", true},
        {"a?c", "abc", true},
        {"a?c", "ac", false},
        {"a?c", "abbc", false},
        {"??", "ab", true},
        {"??", "a", false},
        {"[ab]", "a", false},
        {"[ab]", "[ab]", true},
        {"a\\*", "a\\xyz", true},
        {"*a*b", "xaxxb", true},
        {"*a*b", "xaxxbx", false},
        {"a*", "a", true},
        {"*.", "abc", false},
        {"*.", "abc.", true},
        {"", "", true},
        {"", "a", false},
        {"ab", "a", false},
        {"a", "ab", false},
        {"**a**", "bab", true},
        {"*?", "", false},
        {"*a*a*a*a*a*a*a*a*a*a*b", std::string(200, 'a'), false},
        {"*a*a*a*a*a*a*a*a*a*a*b", std::string(200, 'a') + "b", true},
        {"\xe4*", "\xe4rger", true},
        {"\xc4*", "\xe4rger", false},
    };
    for (const auto& c : cases)
        EXPECT_EQ(wildcardmatch(c.mask, c.name), c.match) << "'" << c.mask << "' vs '" << c.name << "'";
}

TEST(FilesLines, List1LineFormat)
{
    const struct {
        std::string name;
        std::int64_t size;
        bool rewritten;
        std::string line;
    } cases[] = {
        {"a.txt", 0, false, "a.txt\t00000000"},
        {"sub/readme.txt", 1234, false, "sub/readme.txt\t00001234"},
        {"big", 123456789, false, "big\t123456789"},
        {"huge", 5368709120LL, true, "huge\t5368709120*"},
        {"x", 7, true, "x\t00000007*"},
        {"", 99999999, false, "\t99999999"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(list1line(c.name, c.size, c.rewritten), c.line) << c.name;
}

TEST(FilesLines, FirstFieldIsTheTrimmedName)
{
    const std::pair<std::string, std::string> cases[] = {
        {"a.txt\t00000001", "a.txt"},
        {"sub/b c.txt\t00000001*", "sub/b c.txt"},
        {" padded \t00000001", "padded"},
        {"no tab ", "no tab "},
        {"\t00000001", ""},
        {"a\tb\tc", "a"},
    };
    for (const auto& [line, field] : cases)
        EXPECT_EQ(firstfield(line), field) << line;
}

TEST(FilesLines, SortedByUnsignedBytes)
{
    std::vector<std::string> lines = {
        list1line("b", 1), list1line("\xe4", 1), list1line("B", 1), list1line("a/z", 1),
        list1line("a", 2), list1line("a.txt", 1), list1line("a", 1),
    };
    sortlist1(lines);
    const std::vector<std::string> expected = {
        "B\t00000001", "a\t00000001", "a\t00000002", "a.txt\t00000001", "a/z\t00000001",
        "b\t00000001", "\xe4\t00000001",
    };
    EXPECT_EQ(lines, expected);
}

}  // namespace
}  // namespace brindlex
