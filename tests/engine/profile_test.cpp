// The ini store behind the replacement sets: requests, line order, in-place
// rewrite, buffer limits, what is kept as it is, failed writes.
#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "engine/replacements/profile.h"
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

TEST(Profile, RequestsReadListAndWriteAsThePlatformDoes)
{
    const struct {
        const char* what;
        std::optional<std::string> before;  // nullopt: no file
        int nMode;
        std::string request, result;
        std::optional<std::string> after;   // nullopt: unchanged, or still no file
    } rows[] = {
        {"keys in the order of the lines, section in any case", kThree, 0, "rePLACEments", "b\0Apple\0c\0"s, {}},
        {"key found in any case", kThree, 1, "Replacements|APPLE", "2", {}},
        {"existing key rewritten where it stands, in the file's spelling", kThree, 2, "Replacements|APPLE=9",
         "", "[Replacements]\r\nb=1\r\nApple=9\r\nc=3\r\n"},
        {"new key behind the last key of its section", "[R]\na=1\n\n; about O\n[O]\nq=1\n"s, 2, "R|n=2",
         "", "[R]\na=1\nn=2\n\n; about O\n[O]\nq=1\n"},
        {"missing section added behind a blank line", "[O]\r\nq=1\r\n"s, 2, "R|n=2", "", "[O]\r\nq=1\r\n\r\n[R]\r\nn=2\r\n"},
        {"missing file created with CR LF", std::nullopt, 2, "Replacements|Apple-To-PC=%0D==>%0D%0A", "", kOld},
        {"key with |, value with = and ==>, blank ends go", "[R]\n"s, 2, "R|  a|b  =  c=d==>e f  ", "", "[R]\na|b=c=d==>e f\n"},
        {"what is not understood stays byte for byte",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=1\r\n=x\r\n[O]\nz = 9 \n"s, 2, "R|a=2", "",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=2\r\n=x\r\n[O]\nz = 9 \n"s},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        TempDir dir;
        fs::path ini = dir.path() / "sets.ini";
        if (row.before)
            dir.write("sets.ini", *row.before);
        EXPECT_EQ(profilestring(row.nMode, row.request, ini), row.result);
        EXPECT_EQ(fs::exists(ini), row.after || row.before);
        EXPECT_EQ(readfile(ini), row.after.value_or(row.before.value_or("")));
    }
}

TEST(Profile, ListingIsCutAt998BytesAndValuesAt999)
{
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

}  // namespace
}  // namespace brindlex
