// The ini store behind the replacement sets: requests, line order, in-place
// rewrite, buffer limits, what is kept as it is, failed writes.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "replacements/profile.h"
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
        {"missing key gives the default", kThree, 1, "Replacements|zz=dflt", "dflt", {}},
        {"missing file lists nothing", std::nullopt, 0, "Replacements", "", {}},
        {"a value keeps = and ==>", "[R]\nk=a=b==>new\n"s, 1, "R|k", "a=b==>new", {}},
        {"a key may hold | and begin with [", "[R]\n[a|b]=x\n"s, 1, "R|[a|b]", "x", {}},
        {"comments, odd lines and empty names are no keys", "[R]\n;c=1\n  ; d=2\nodd line\n=novalue\nk=3\n"s, 0,
         "R", "k\0"s, {}},
        {"a repeated key is listed once", "[R]\na=1\nA=2\nb=3\n"s, 0, "R", "a\0b\0"s, {}},
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
    // 99 names of 9 bytes and their NULs fill 990 bytes.
    std::string file = "[R]\r\n", names;
    for (int i = 0; i < 150; ++i) {
        const std::string name = "k" + std::string(8 - std::to_string(i).size(), '0') + std::to_string(i);
        file += name + "=v\r\n";
        names += i < 99 ? name + '\0' : "";
    }
    const std::string ninetynine = file.substr(0, file.find("k00000099"));
    // 7 bytes and a NUL fill the listing exactly; an eighth byte takes the NUL's place.
    const std::pair<std::string, std::string> rows[] = {
        {ninetynine + "seven77=v\r\n", "seven77\0"s},
        {ninetynine + "eight888=v\r\n", "eight888"},
        {file, "k0000009"},
    };
    for (const auto& [content, tail] : rows) {
        TempDir dir;
        EXPECT_EQ(profilestring(0, "R", dir.write("x.ini", content)), names + tail);
    }
    std::string pattern;
    for (int i = 0; pattern.size() < 1000; ++i)
        pattern += std::to_string(i) + "%20";
    for (std::size_t length : {998u, 999u, 1000u}) {
        SCOPED_TRACE(length);
        TempDir dir;
        const std::string value = pattern.substr(0, length);
        fs::path ini = dir.path() / "x.ini";
        profilestring(2, "R|k=" + value, ini);
        EXPECT_EQ(profilevalue(ini, "R", "k"), value) << "the file holds the whole value";
        EXPECT_EQ(profilestring(1, "R|k", ini), value.substr(0, 999));
        EXPECT_EQ(profilestring(1, "R|missing=" + value, ini), value.substr(0, 999)) << "the default too";
    }
}

std::string randomtext(std::mt19937& rng, const std::string& alphabet, std::size_t maxlength)
{
    std::uniform_int_distribution<std::size_t> length(0, maxlength), pick(0, alphabet.size() - 1);
    std::string s(length(rng), ' ');
    for (char& c : s)
        c = alphabet[pick(rng)];
    const std::size_t first = s.find_first_not_of(" \t"), last = s.find_last_not_of(" \t");
    return first == std::string::npos ? "" : s.substr(first, last - first + 1);
}

TEST(Profile, TenThousandRandomPairsRoundTrip)
{
    // Names hold no "=" and never begin with ";"; values hold anything on one
    // line; neither has blanks at its ends to lose. No letter of the names
    // comes in both cases, so names that differ are different keys.
    std::mt19937 rng(20240611);
    std::vector<std::string> pool;
    while (pool.size() < 150) {
        if (std::string key = randomtext(rng, "abcXYZ019 -_.|[]<>%#!\"'\xB0\xBF\xA7", 12); !key.empty())
            pool.push_back(key);
    }
    std::vector<std::pair<std::string, std::string>> model;  // in first-written order
    // In memory where there is room: ten thousand synced rewrites cost no disk time then.
    std::string base = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path().string()) + "/brindlex-XXXXXX";
    ASSERT_TRUE(::mkdtemp(base.data()));
    const fs::path ini = fs::path(base) / "round.ini";
    ASSERT_FALSE(writeprofilestring(ini, "Other", "k", "1"));
    const char* valuebytes = "abXY01 =|[];#%<>\t\"\xB0\xFF";
    for (int i = 0; i <= 10000; ++i) {
        const std::string key = i == 0 ? "Apple-To-PC" : pool[rng() % pool.size()];
        const std::string value = i == 0 ? "%0D==>%0D%0A" : randomtext(rng, valuebytes, 30) + "==>" + randomtext(rng, valuebytes, 10);
        profilestring(2, "Replacements|" + key + "=" + value, ini);
        auto it = std::find_if(model.begin(), model.end(), [&](const auto& kv) { return kv.first == key; });
        if (it == model.end())
            model.emplace_back(key, value);
        else
            it->second = value;
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

// A failed direct write and a failed write through a request, into a
// sets.ini that holds kOld: whether the first failed, how many names the
// directory holds afterwards (no stray file may stay) and the file's bytes.
std::string attemptwrite(const fs::path& dir)
{
    const fs::path ini = dir / "sets.ini";
    const std::string longvalue(4000, 'x');
    const Error error = writeprofilestring(ini, "Replacements", "Previous", longvalue);
    profilestring(2, "Replacements|User-1=" + longvalue, ini);
    const auto names = std::distance(fs::directory_iterator(dir), fs::directory_iterator());
    return (error ? "failed " : "written ") + std::to_string(names) + " | " + readfile(ini);
}

TEST(Profile, FailedWriteLeavesTheOldFile)
{
    for (const bool readonly : {true, false}) {
        SCOPED_TRACE(readonly ? "a file the user may not write" : "a file size limit");
        TempDir dir;
        const fs::path ini = dir.write("sets.ini", kOld);
        ::chmod(dir.path().c_str(), 0777);
        ::chmod(ini.c_str(), readonly ? 0444 : 0644);
        const auto limited = [&] {
            std::signal(SIGXFSZ, SIG_IGN);
            rlimit limit{1024, 1024};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            return attemptwrite(dir.path());
        };
        EXPECT_EQ(readonly ? test::rununprivileged([&] { return attemptwrite(dir.path()); }) : test::runinchild(limited),
                  "failed 1 | " + kOld);
        EXPECT_EQ(readfile(ini), kOld);
    }
}

}  // namespace
}  // namespace brindlex
