// The private-profile ini store: requests, line order, in-place rewrite,
// buffer limits, line ends, what is kept as it is, failed writes.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>
#include <sched.h>

#include "replacements/profile.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using test::readfile;
using test::TempDir;
namespace fs = std::filesystem;
using namespace std::string_literals;

std::vector<std::string> listing(const std::string& list)
{
    std::vector<std::string> names;
    std::size_t start = 0;
    while (start < list.size()) {
        std::size_t nul = list.find('\0', start);
        if (nul == std::string::npos) {
            names.push_back(list.substr(start) + "<cut>");
            break;
        }
        names.push_back(list.substr(start, nul - start));
        start = nul + 1;
    }
    return names;
}

// One request against a file's bytes (nullopt: no file): the result, and
// the bytes afterwards (nullopt: the file must be unchanged).
struct RequestCase {
    const char* what;
    std::optional<std::string> before;
    int nMode;
    std::string request;
    std::string result;
    std::optional<std::string> after;
};

void runcases(const std::vector<RequestCase>& cases)
{
    for (const RequestCase& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        fs::path ini = dir.path() / "sets.ini";
        if (c.before)
            dir.write("sets.ini", *c.before);
        EXPECT_EQ(profilestring(c.nMode, c.request, ini), c.result);
        if (c.after)
            EXPECT_EQ(readfile(ini), *c.after);
        else if (c.before)
            EXPECT_EQ(readfile(ini), *c.before);
        else
            EXPECT_FALSE(fs::exists(ini));
    }
}

const std::string kThree = "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\n";

TEST(ProfileRead, ListsAndReadsAsThePlatformDoes)
{
    runcases({
        {"keys in the order of the lines", kThree, 0, "Replacements", "b\0Apple\0c\0"s, {}},
        {"section found in any case", kThree, 0, "rePLACEments", "b\0Apple\0c\0"s, {}},
        {"key found in any case", kThree, 1, "Replacements|APPLE", "2", {}},
        {"Latin-1 letters fold as well", "[R]\n\xE9t\xE9=x\n"s, 1, "R|\xC9T\xC9", "x", {}},
        {"missing key gives the default", kThree, 1, "Replacements|zz=dflt", "dflt", {}},
        {"missing section lists nothing", kThree, 0, "Other", "", {}},
        {"missing file lists nothing", std::nullopt, 0, "Replacements", "", {}},
        {"missing file reads the default", std::nullopt, 1, "Replacements|a=d", "d", {}},
        {"blanks around names and values go", "[R]\n \t k \t= \tv  v\t \n"s, 1, "R|k", "v  v", {}},
        {"blanks around the header go", "  [ R ]  \nk=1\n"s, 1, "R|k", "1", {}},
        {"a value keeps = and ==>", "[R]\nk=a=b==>new\n"s, 1, "R|k", "a=b==>new", {}},
        {"a key may hold |", "[R]\na|b=x\n"s, 1, "R|a|b", "x", {}},
        {"a key may begin with [", "[R]\n[x]=1\n"s, 0, "R", "[x]\0"s, {}},
        {"comment lines are no keys", "[R]\n;c=1\n  ; d=2\nk=3\n"s, 0, "R", "k\0"s, {}},
        {"odd lines are no keys", "[R]\nodd line\n=novalue\nk=3\n"s, 0, "R", "k\0"s, {}},
        {"keys before any section count nowhere", "k=0\n[R]\nk=1\n"s, 1, "R|k", "1", {}},
        {"a second section of the name counts on", "[R]\na=1\n[O]\nb=2\n[r]\nc=3\n"s, 0, "R", "a\0c\0"s, {}},
        {"a repeated key is listed once", "[R]\na=1\nA=2\nb=3\n"s, 0, "R", "a\0b\0"s, {}},
        {"the first of a repeated key counts", "[R]\na=1\nA=2\n"s, 1, "R|A", "1", {}},
        {"LF lines", "[R]\na=1\nb=2\n"s, 1, "R|b", "2", {}},
        {"CR LF lines keep no CR", "[R]\r\na=1\r\nb=2\r\n"s, 1, "R|a", "1", {}},
        {"a last line without line end", "[R]\r\na=1\r\nb=2"s, 1, "R|b", "2", {}},
        {"quotes are plain characters", "[R]\nq=\"x\"\n"s, 1, "R|q", "\"x\"", {}},
    });
}

TEST(ProfileWrite, RewritesInPlaceAndAppendsWhereAUserExpects)
{
    runcases({
        {"existing key rewritten where it stands", kThree, 2, "Replacements|Apple=9",
         "", "[Replacements]\r\nb=1\r\nApple=9\r\nc=3\r\n"},
        {"the file's spelling of a name stays", kThree, 2, "Replacements|APPLE=9",
         "", "[Replacements]\r\nb=1\r\nApple=9\r\nc=3\r\n"},
        {"blanks around = go with the rewrite", "[R]\n  k  =  old \n"s, 2, "R|k=new",
         "", "[R]\nk=new\n"},
        {"new key behind the last key of its section", "[R]\na=1\n\n; about O\n[O]\nq=1\n"s, 2, "R|n=2",
         "", "[R]\na=1\nn=2\n\n; about O\n[O]\nq=1\n"},
        {"new key behind the header of an empty section", "[R]\r\n; c\r\n"s, 2, "R|n=2",
         "", "[R]\r\nn=2\r\n; c\r\n"},
        {"new key into the last section of the name", "[R]\na=1\n[O]\nb=2\n[R]\nc=3\n[P]\n"s, 2, "R|n=4",
         "", "[R]\na=1\n[O]\nb=2\n[R]\nc=3\nn=4\n[P]\n"},
        {"missing section added behind a blank line", "[O]\r\nq=1\r\n"s, 2, "R|n=2",
         "", "[O]\r\nq=1\r\n\r\n[R]\r\nn=2\r\n"},
        {"no second blank line before a new section", "[O]\nq=1\n\n"s, 2, "R|n=2",
         "", "[O]\nq=1\n\n[R]\nn=2\n"},
        {"a last line gets its line end", "[R]\na=1"s, 2, "R|n=2", "", "[R]\na=1\nn=2\n"},
        {"a last header gets its line end", "[R]"s, 2, "R|n=2", "", "[R]\r\nn=2\r\n"},
        {"missing file created with CR LF", std::nullopt, 2, "Replacements|Apple-To-PC=%0D==>%0D%0A",
         "", "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n"},
        {"empty file treated as new", "", 2, "R|k=v", "", "[R]\r\nk=v\r\n"},
        {"LF file stays LF", "[R]\na=1\n"s, 2, "R|b=2", "", "[R]\na=1\nb=2\n"},
        {"the first line end decides", "[R]\na=1\r\n"s, 2, "R|b=2", "", "[R]\na=1\r\nb=2\n"},
        {"key with | survives", kThree, 2, "Replacements|a|b=x",
         "", "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\na|b=x\r\n"},
        {"value with = and ==> survives", kThree, 2, "Replacements|k=a=b==>new",
         "", "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\nk=a=b==>new\r\n"},
        {"spaces at the ends of key and value go", kThree, 2, "Replacements|  k  =  v w  ",
         "", "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\nk=v w\r\n"},
        {"empty value", kThree, 2, "Replacements|k=",
         "", "[Replacements]\r\nb=1\r\nApple=2\r\nc=3\r\nk=\r\n"},
        {"empty key writes nothing", kThree, 2, "Replacements|=v", "", {}},
        {"what is not understood stays byte for byte",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=1\r\n=x\r\n[O]\nz = 9 \n"s, 2, "R|a=2", "",
         "; head\r\nstray=1\r\n[R]  \r\n  odd\tline \r\n;k=no\r\na=2\r\n=x\r\n[O]\nz = 9 \n"s},
    });
}

TEST(ProfileWrite, CreatesTheConfigDirectory)
{
    TempDir dir;
    fs::path ini = dir.path() / "cfg" / "brindlex" / "brindlex.ini";
    profilestring(2, "Replacements|k=v", ini);
    EXPECT_EQ(readfile(ini), "[Replacements]\r\nk=v\r\n");
}

TEST(ProfileWrite, SameValueLeavesTheFileAlone)
{
    TempDir dir;
    fs::path ini = dir.write("sets.ini", kThree);
    struct stat before {}, after {};
    ASSERT_EQ(::stat(ini.c_str(), &before), 0);
    EXPECT_FALSE(writeprofilestring(ini, "Replacements", "apple", "2"));
    ASSERT_EQ(::stat(ini.c_str(), &after), 0);
    EXPECT_EQ(before.st_ino, after.st_ino);
    EXPECT_EQ(readfile(ini), kThree);
}

// Keys of `count` names "k" followed by digits, each `width` bytes long.
std::string keyfile(int count, int width, const std::string& last = {})
{
    std::string file = "[R]\r\n";
    for (int i = 0; i < count; ++i) {
        std::string digits = std::to_string(i);
        file += "k" + std::string(static_cast<std::size_t>(width) - 1 - digits.size(), '0') + digits + "=v\r\n";
    }
    if (!last.empty())
        file += last + "=v\r\n";
    return file;
}

TEST(ProfileLimits, ListingIsCutAtTheBuffer)
{
    // 99 names of 9 bytes and their NULs fill 990 bytes.
    struct Case {
        const char* what;
        std::string file;
        std::size_t size;
        std::size_t names;
        std::string lastname;   // "<cut>" behind a name that lost its NUL
    } cases[] = {
        {"990 bytes fit", keyfile(99, 9), 990, 99, "k00000098"},
        {"998 bytes fit", keyfile(99, 9, "seven77"), 998, 100, "seven77"},
        {"999 bytes lose the last NUL", keyfile(99, 9, "eight888"), 998, 100, "eight888<cut>"},
        {"a long last name is cut short", keyfile(99, 9, "a-name-of-twenty-one"), 998, 100, "a-name-o<cut>"},
        {"names beyond are lost", keyfile(150, 9), 998, 100, "k0000009<cut>"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        TempDir dir;
        fs::path ini = dir.write("x.ini", c.file);
        std::string list = profilestring(0, "R", ini);
        EXPECT_EQ(list.size(), c.size);
        std::vector<std::string> names = listing(list);
        ASSERT_EQ(names.size(), c.names);
        EXPECT_EQ(names.front(), "k00000000");
        EXPECT_EQ(names.back(), c.lastname);
    }
}

TEST(ProfileLimits, ValueComesBackCutTo999Bytes)
{
    std::string pattern;
    for (int i = 0; pattern.size() < 5000; ++i)
        pattern += std::to_string(i) + "%20";
    for (std::size_t length : {1u, 998u, 999u, 1000u, 5000u}) {
        SCOPED_TRACE(length);
        TempDir dir;
        std::string value = pattern.substr(0, length);
        fs::path ini = dir.path() / "x.ini";
        profilestring(2, "R|k=" + value, ini);
        EXPECT_EQ(profilevalue(ini, "R", "k"), value) << "the file holds the whole value";
        EXPECT_EQ(profilestring(1, "R|k", ini), value.substr(0, 999));
        EXPECT_EQ(profilestring(1, "R|missing=" + value, ini), value.substr(0, 999)) << "the default too";
    }
}

// A reference store: keys in first-written order, found without regard to
// ASCII case. Generated keys hold no other letters.
struct Model {
    std::vector<std::pair<std::string, std::string>> sets;

    static std::string folded(std::string s)
    {
        for (char& c : s)
            c = (c >= 'a' && c <= 'z') ? static_cast<char>(c - 32) : c;
        return s;
    }
    void write(const std::string& key, const std::string& value)
    {
        for (auto& [k, v] : sets) {
            if (folded(k) == folded(key)) {
                v = value;
                return;
            }
        }
        sets.emplace_back(key, value);
    }
};

std::string randomtext(std::mt19937& rng, const std::string& alphabet, std::size_t maxlength)
{
    std::uniform_int_distribution<std::size_t> length(0, maxlength), pick(0, alphabet.size() - 1);
    std::string s(length(rng), ' ');
    for (char& c : s)
        c = alphabet[pick(rng)];
    return s;
}

std::string withoutblankends(std::string s)
{
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
        s.erase(0, 1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t'))
        s.pop_back();
    return s;
}

// A directory in memory where there is one, so that ten thousand synced
// rewrites cost no disk time.
class MemoryDir {
public:
    MemoryDir()
    {
        std::string base = ::access("/dev/shm", W_OK | X_OK) == 0 ? "/dev/shm" : fs::temp_directory_path().string();
        std::string name = base + "/brindlex-test-XXXXXX";
        if (::mkdtemp(name.data()))
            path_ = name;
    }
    ~MemoryDir()
    {
        std::error_code ec;
        fs::remove_all(path_, ec);
    }
    const fs::path& path() const { return path_; }

private:
    fs::path path_;
};

TEST(ProfileRoundTrip, TenThousandRandomPairs)
{
    // Names may begin with anything but ";" and hold no "="; values hold
    // anything on one line. Both lose blanks at their ends on the way.
    const std::string keychars = "abcXYZ019 -_.|[]<>%#!\"'\xB0\xBF\xA7";
    const std::string valuechars = "abXY01 =|[];#%<>\t\"\xB0\xFF";
    std::mt19937 rng(20240611);
    std::vector<std::string> pool;
    while (pool.size() < 150) {
        std::string key = withoutblankends(randomtext(rng, keychars, 12));
        if (key.empty())
            continue;
        pool.push_back(key);
        // Every fifth name comes again in other letters: the same key.
        if (pool.size() % 5 == 0) {
            std::string other = pool[rng() % pool.size()];
            for (char& c : other) {
                if (std::isalpha(static_cast<unsigned char>(c)))
                    c = static_cast<char>(c ^ 0x20);
            }
            pool.push_back(other);
        }
    }
    std::uniform_int_distribution<std::size_t> pickkey(0, pool.size() - 1);
    Model model;

    MemoryDir dir;
    ASSERT_FALSE(dir.path().empty());
    fs::path ini = dir.path() / "round.ini";
    ASSERT_FALSE(writeprofilestring(ini, "Other", "k", "1"));
    ASSERT_FALSE(writeprofilestring(ini, "Replacements", "Apple-To-PC", "%0D==>%0D%0A"));
    model.write("Apple-To-PC", "%0D==>%0D%0A");
    auto check = [&] {
        std::vector<std::string> keys;
        for (const auto& [k, v] : model.sets) {
            keys.push_back(k);
            ASSERT_EQ(profilevalue(ini, "Replacements", k), v) << k;
        }
        ASSERT_EQ(profilekeys(ini, "Replacements"), keys);
        ASSERT_EQ(profilevalue(ini, "Other", "k"), "1");
    };
    for (int i = 1; i <= 10000; ++i) {
        const std::string& key = pool[pickkey(rng)];
        std::string value = withoutblankends(randomtext(rng, valuechars, 30)) + "==>" +
                            withoutblankends(randomtext(rng, valuechars, 10));
        profilestring(2, "Replacements|" + key + "=" + value, ini);
        model.write(key, value);
        if (i % 1000 == 0) {
            SCOPED_TRACE(i);
            ASSERT_NO_FATAL_FAILURE(check());
        }
    }
    EXPECT_EQ(readfile(ini).substr(0, 58), "[Other]\r\nk=1\r\n\r\n[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n");
}

const std::string kOld = "[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n";

// Tries two writes of a long value into dir/sets.ini. The answer: whether
// the direct write failed, the names in the directory afterwards (no stray
// file may stay) and the file's bytes as the writer sees them.
std::string attemptwrite(const fs::path& dir)
{
    fs::path ini = dir / "sets.ini";
    const std::string longvalue(4000, 'x');
    Error error = writeprofilestring(ini, "Replacements", "Previous", longvalue);
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

std::string fillfilesystem(const fs::path& dir)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", dir.c_str(), "tmpfs", 0, "size=64k") != 0)
        return "child failed: no tmpfs: "s + std::strerror(errno);
    // The work directory must not be on the full file system, or the
    // fallback route could not even start.
    TempDir work;
    ::setenv("BRINDLEX_TEMP", work.path().c_str(), 1);
    if (writeprofilestring(dir / "sets.ini", "Replacements", "Apple-To-PC", "%0D==>%0D%0A"))
        return "child failed: no ini file on the tmpfs";
    std::string block(4096, 'f');
    int fd = ::open((dir / "filler").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    while (fd >= 0 && ::write(fd, block.data(), block.size()) > 0) {
    }
    ::close(fd);
    return attemptwrite(dir);
}

std::string limitfilesize(const fs::path& dir)
{
    std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit{1024, 1024};
    ::setrlimit(RLIMIT_FSIZE, &limit);
    return attemptwrite(dir);
}

// Runs `attempt` on a directory holding sets.ini (kOld, with `mode`) and
// returns the child's answer; the file must hold kOld afterwards.
std::string faultyattempt(mode_t mode, std::string (*run)(const std::function<std::string()>&),
                          std::string (*attempt)(const fs::path& dir))
{
    TempDir dir;
    fs::path ini = dir.write("sets.ini", kOld);
    ::chmod(ini.c_str(), mode);
    std::string answer = run([&] { return attempt(dir.path()); });
    ::chmod(ini.c_str(), 0644);
    EXPECT_EQ(readfile(ini), kOld);
    return answer;
}

TEST(ProfileFaults, FailedWriteLeavesTheOldFile)
{
    struct Fault {
        const char* what;
        mode_t mode;
        std::string (*run)(const std::function<std::string()>&);
        std::string (*attempt)(const fs::path& dir);
        std::string answer;
    } faults[] = {
        {"a file the user may not write", 0444, test::rununprivileged, attemptwrite, "failed | sets.ini | " + kOld},
        {"a file the user may not read", 0200, test::rununprivileged, attemptwrite, "failed | sets.ini | "},
        {"a file size limit", 0644, test::runinchild, limitfilesize, "failed | sets.ini | " + kOld},
    };
    for (const Fault& fault : faults) {
        SCOPED_TRACE(fault.what);
        EXPECT_EQ(faultyattempt(fault.mode, fault.run, fault.attempt), fault.answer);
    }
}

TEST(ProfileFaults, FullFileSystemLeavesTheOldFile)
{
    if (!test::runningasroot())
        GTEST_SKIP() << "mounting a small file system to fill needs root";
    EXPECT_EQ(faultyattempt(0644, test::runinchild, fillfilesystem), "failed | filler sets.ini | " + kOld);
}

TEST(ProfileFile, DefaultFileIsASubstringTest)
{
    struct Case {
        std::string path;
        bool isdefault;
    } cases[] = {
        {"/home/u/.config/brindlex/brindlex.ini", true},
        {"/x/my-brindlex.ini", true},
        {"/x/brindlex.ini.bak", true},
        {"/brindlex.ini/sets.ini", true},
        {"/x/BRINDLEX.INI", false},
        {"/x/Brindlex.ini", false},
        {"/x/sets.ini", false},
        {"", false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(isdefaultfile(c.path), c.isdefault) << c.path;
}

TEST(ProfileFile, DefaultFileLivesInTheConfigDirectory)
{
    struct Case {
        const char* xdg;    // nullptr: unset
        const char* home;
        const char* expected;
    } cases[] = {
        {"/cfg", "/home/u", "/cfg/brindlex/brindlex.ini"},
        {nullptr, "/home/u", "/home/u/.config/brindlex/brindlex.ini"},
        {"", "/home/u", "/home/u/.config/brindlex/brindlex.ini"},
        {"relative/cfg", "/home/u", "/home/u/.config/brindlex/brindlex.ini"},
    };
    std::optional<std::string> xdg, home;
    if (const char* v = std::getenv("XDG_CONFIG_HOME"))
        xdg = v;
    if (const char* v = std::getenv("HOME"))
        home = v;
    for (const Case& c : cases) {
        if (c.xdg)
            ::setenv("XDG_CONFIG_HOME", c.xdg, 1);
        else
            ::unsetenv("XDG_CONFIG_HOME");
        ::setenv("HOME", c.home, 1);
        EXPECT_EQ(defaultinifile(), fs::path(c.expected)) << (c.xdg ? c.xdg : "(unset)");
    }
    xdg ? ::setenv("XDG_CONFIG_HOME", xdg->c_str(), 1) : ::unsetenv("XDG_CONFIG_HOME");
    home ? ::setenv("HOME", home->c_str(), 1) : ::unsetenv("HOME");
}

}  // namespace
}  // namespace brindlex
