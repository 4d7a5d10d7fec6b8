// The ini store behind the replacement sets: requests, line order, in-place
// rewrite, buffer limits, line ends, what is kept as it is, failed writes.
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
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
        {"Latin-1 letters fold as well", "[R]\n\xE9t\xE9=x\n"s, 1, "R|\xC9T\xC9", "x", {}},
        {"missing key gives the default", kThree, 1, "Replacements|zz=dflt", "dflt", {}},
        {"missing file lists nothing", std::nullopt, 0, "Replacements", "", {}},
        {"missing file reads the default", std::nullopt, 1, "Replacements|a=d", "d", {}},
        {"blanks around names, values and headers go", "  [ R ]  \n \t k \t= \tv  v\t \n"s, 1, "R|k", "v  v", {}},
        {"a value keeps = and ==>", "[R]\nk=a=b==>new\n"s, 1, "R|k", "a=b==>new", {}},
        {"a key may hold | and begin with [", "[R]\n[a|b]=x\n"s, 1, "R|[a|b]", "x", {}},
        {"comments, odd lines and empty names are no keys", "[R]\n;c=1\n  ; d=2\nodd line\n=novalue\nk=3\n"s, 0,
         "R", "k\0"s, {}},
        {"keys before any section count nowhere", "k=0\n[R]\nk=1\n"s, 1, "R|k", "1", {}},
        {"a second section of the name counts on", "[R]\na=1\n[O]\nb=2\n[r]\nc=3\n"s, 0, "R", "a\0c\0"s, {}},
        {"a repeated key is listed once", "[R]\na=1\nA=2\nb=3\n"s, 0, "R", "a\0b\0"s, {}},
        {"the first of a repeated key counts", "[R]\na=1\nA=2\n"s, 1, "R|A", "1", {}},
        {"CR LF lines keep no CR, a last line needs no end", "[R]\r\na=1\r\nb=2"s, 1, "R|a", "1", {}},
        {"existing key rewritten where it stands, in the file's spelling", kThree, 2, "Replacements|APPLE=9",
         "", "[Replacements]\r\nb=1\r\nApple=9\r\nc=3\r\n"},
        {"blanks around = go with the rewrite", "[R]\n  k  =  old \n"s, 2, "R|k=new", "", "[R]\nk=new\n"},
        {"new key behind the last key of its section", "[R]\na=1\n\n; about O\n[O]\nq=1\n"s, 2, "R|n=2",
         "", "[R]\na=1\nn=2\n\n; about O\n[O]\nq=1\n"},
        {"new key behind the header of an empty section", "[R]\r\n; c\r\n"s, 2, "R|n=2", "", "[R]\r\nn=2\r\n; c\r\n"},
        {"new key into the last section of the name", "[R]\na=1\n[O]\nb=2\n[R]\nc=3\n[P]\n"s, 2, "R|n=4",
         "", "[R]\na=1\n[O]\nb=2\n[R]\nc=3\nn=4\n[P]\n"},
        {"missing section added behind a blank line", "[O]\r\nq=1\r\n"s, 2, "R|n=2", "", "[O]\r\nq=1\r\n\r\n[R]\r\nn=2\r\n"},
        {"no second blank line before a new section", "[O]\nq=1\n\n"s, 2, "R|n=2", "", "[O]\nq=1\n\n[R]\nn=2\n"},
        {"a last line gets its line end", "[R]\na=1"s, 2, "R|n=2", "", "[R]\na=1\nn=2\n"},
        {"a last header gets its line end", "[R]"s, 2, "R|n=2", "", "[R]\r\nn=2\r\n"},
        {"missing file created with CR LF", std::nullopt, 2, "Replacements|Apple-To-PC=%0D==>%0D%0A", "", kOld},
        {"the first line end decides", "[R]\na=1\r\n"s, 2, "R|b=2", "", "[R]\na=1\r\nb=2\n"},
        {"key with |, value with = and ==>, blank ends go", "[R]\n"s, 2, "R|  a|b  =  c=d==>e f  ", "", "[R]\na|b=c=d==>e f\n"},
        {"empty value", "[R]\n"s, 2, "R|k=", "", "[R]\nk=\n"},
        {"empty key writes nothing", kThree, 2, "Replacements|=v", "", {}},
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

TEST(Profile, WriteMakesTheDirectoryAndLeavesASameValueAlone)
{
    TempDir dir;
    fs::path ini = dir.path() / "cfg" / "brindlex" / "brindlex.ini";
    profilestring(2, "Replacements|Apple=2", ini);
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nApple=2\r\n");
    struct stat before {}, after {};
    ASSERT_EQ(::stat(ini.c_str(), &before), 0);
    EXPECT_FALSE(writeprofilestring(ini, "Replacements", "apple", "2"));
    ASSERT_EQ(::stat(ini.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
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
    const std::pair<std::string, std::string> rows[] = {
        {ninetynine, ""},
        {ninetynine + "seven77=v\r\n", "seven77\0"s},
        {ninetynine + "eight888=v\r\n", "eight888"},
        {ninetynine + "a-name-of-twenty-one=v\r\n", "a-name-o"},
        {file, "k0000009"},
    };
    for (const auto& [content, tail] : rows) {
        TempDir dir;
        EXPECT_EQ(profilestring(0, "R", dir.write("x.ini", content)), names + tail);
    }
    std::string pattern;
    for (int i = 0; pattern.size() < 5000; ++i)
        pattern += std::to_string(i) + "%20";
    for (std::size_t length : {998u, 999u, 1000u, 5000u}) {
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
    // Names may begin with anything but ";" and hold no "="; values hold
    // anything on one line. Neither has blanks at its ends to lose.
    std::mt19937 rng(20240611);
    std::vector<std::string> pool;
    while (pool.size() < 150) {
        const std::string key = randomtext(rng, "abcXYZ019 -_.|[]<>%#!\"'\xB0\xBF\xA7", 12);
        if (key.empty())
            continue;
        pool.push_back(key);
        // Every fifth name comes again in other letters: the same key.
        if (pool.size() % 5 == 0) {
            std::string other = pool[rng() % pool.size()];
            for (char& c : other)
                c = std::isalpha(static_cast<unsigned char>(c)) ? static_cast<char>(c ^ 0x20) : c;
            pool.push_back(other);
        }
    }
    // Keys in first-written order, found regardless of ASCII case.
    std::vector<std::pair<std::string, std::string>> model;
    auto folded = [](std::string s) {
        for (char& c : s)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        return s;
    };
    // In memory where there is room, so that ten thousand synced rewrites
    // cost no disk time.
    std::string base = (::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path().string()) + "/brindlex-XXXXXX";
    ASSERT_TRUE(::mkdtemp(base.data()));
    const fs::path ini = fs::path(base) / "round.ini";
    ASSERT_FALSE(writeprofilestring(ini, "Other", "k", "1"));
    for (int i = 0; i <= 10000; ++i) {
        const std::string key = i == 0 ? "Apple-To-PC" : pool[rng() % pool.size()];
        const std::string value = i == 0 ? "%0D==>%0D%0A"
            : randomtext(rng, "abXY01 =|[];#%<>\t\"\xB0\xFF", 30) + "==>" + randomtext(rng, "abXY01 =|[];#%<>\t\"\xB0\xFF", 10);
        profilestring(2, "Replacements|" + key + "=" + value, ini);
        auto it = std::find_if(model.begin(), model.end(), [&](const auto& kv) { return folded(kv.first) == folded(key); });
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

// Two writes of a long value into dir/sets.ini, which holds kOld: whether
// the direct write failed, the names in the directory afterwards (no stray
// file may stay) and the bytes of the file as the writer can read them.
std::string attemptwrite(const fs::path& dir)
{
    const fs::path ini = dir / "sets.ini";
    const std::string longvalue(4000, 'x');
    const Error error = writeprofilestring(ini, "Replacements", "Previous", longvalue);
    profilestring(2, "Replacements|User-1=" + longvalue, ini);
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    std::string answer = error ? "failed |" : "written |";
    for (const std::string& name : names)
        answer += " " + name;
    return answer + " | " + readfile(ini);
}

TEST(Profile, FailedWriteLeavesTheOldFile)
{
    const struct {
        const char* what;
        mode_t mode;
        bool unprivileged;
        std::string (*attempt)(const fs::path&);
        std::string answer;
    } faults[] = {
        {"a file the user may not write", 0444, true, attemptwrite, "failed | sets.ini | " + kOld},
        {"a file the user may not read", 0200, true, attemptwrite, "failed | sets.ini | "},
        {"a file size limit", 0644, false,
         [](const fs::path& dir) {
             std::signal(SIGXFSZ, SIG_IGN);
             rlimit limit{1024, 1024};
             ::setrlimit(RLIMIT_FSIZE, &limit);
             return attemptwrite(dir);
         },
         "failed | sets.ini | " + kOld},
        // The work directory stays off the full file system, or the fallback
        // route could not even start.
        {"a full file system", 0644, false,
         [](const fs::path& dir) {
             TempDir work;
             ::setenv("BRINDLEX_TEMP", work.path().c_str(), 1);
             if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
                 || ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k") != 0)
                 return "no tmpfs: "s + std::strerror(errno);
             if (writeprofilestring(dir / "sets.ini", "Replacements", "Apple-To-PC", "%0D==>%0D%0A"))
                 return "no ini file on the tmpfs"s;
             const std::string block(4096, 'f');
             const int fd = ::open((dir / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
             while (fd >= 0 && ::write(fd, block.data(), block.size()) > 0) {
             }
             ::close(fd);
             return attemptwrite(dir);
         },
         "failed | filler sets.ini | " + kOld},
    };
    for (const auto& fault : faults) {
        SCOPED_TRACE(fault.what);
        if (std::string(fault.what) == "a full file system" && !test::runningasroot())
            GTEST_SKIP() << "mounting a small file system to fill needs root";
        TempDir dir;
        const fs::path ini = dir.write("sets.ini", kOld);
        ::chmod(ini.c_str(), fault.mode);
        const auto body = [&] { return fault.attempt(dir.path()); };
        EXPECT_EQ(fault.unprivileged ? test::rununprivileged(body) : test::runinchild(body), fault.answer);
        EXPECT_EQ(readfile(ini), kOld);
    }
}

TEST(Profile, DefaultFileIsFoundByName)
{
    for (const auto& [path, isdefault] : {std::pair<std::string, bool>{"/x/my-brindlex.ini", true},
                                          {"/brindlex.ini/sets.ini", true}, {"/x/BRINDLEX.INI", false}, {"", false}})
        EXPECT_EQ(isdefaultfile(path), isdefault) << path;

    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    const std::string home = std::getenv("HOME") ? std::getenv("HOME") : "";
    const std::optional<std::string> oldxdg = xdg ? std::optional<std::string>(xdg) : std::nullopt;
    ::setenv("HOME", "/home/u", 1);
    for (const auto& [value, expected] : {std::pair<const char*, std::string>{"/cfg", "/cfg/brindlex/brindlex.ini"},
                                          {nullptr, "/home/u/.config/brindlex/brindlex.ini"},
                                          {"relative/cfg", "/home/u/.config/brindlex/brindlex.ini"}}) {
        value ? ::setenv("XDG_CONFIG_HOME", value, 1) : ::unsetenv("XDG_CONFIG_HOME");
        EXPECT_EQ(defaultinifile(), fs::path(expected)) << (value ? value : "(unset)");
    }
    oldxdg ? ::setenv("XDG_CONFIG_HOME", oldxdg->c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME");
    ::setenv("HOME", home.c_str(), 1);
}

}  // namespace
}  // namespace brindlex
