#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <functional>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "core/faultinject.h"
#include "core/saferewrite.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;
using test::readfile;

std::set<std::string> entries(const fs::path& dir)
{
    std::set<std::string> names;
    for (const auto& e : fs::directory_iterator(dir))
        names.insert(e.path().filename().string());
    return names;
}

void appendto(const fs::path& p, const std::string& bytes)
{
    std::ofstream(p, std::ios::binary | std::ios::app) << bytes;
}

struct stat statof(const fs::path& p)
{
    struct stat st {};
    EXPECT_EQ(::lstat(p.c_str(), &st), 0) << p;
    return st;
}

// Content that shows where a piece went missing or came twice.
std::string counted(std::size_t size, char seed)
{
    std::string s(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
        s[i] = static_cast<char>(seed + i * 7 + i / 251);
    return s;
}

// The way a run uses the routine: begin, the new content in pieces, the
// length check, commit. "ok", or the error's errno and text; "short" in
// front when the length check would have stopped the run (commit() is
// still called, to see it refuse as well).
std::string replace(const fs::path& target, const std::string& content, const fs::path& scratch)
{
    Error error;
    auto r = SafeReplace::begin(target, scratch, error);
    if (!r)
        return "begin " + std::to_string(error.code) + " " + error.text;
    for (std::size_t at = 0; at < content.size(); at += 300000)
        r->write(std::string_view(content).substr(at, 300000));
    const bool lengthok = r->writtenlength() == static_cast<std::int64_t>(content.size());
    Error e = r->commit();
    return (lengthok ? "" : "short ") + (e ? std::to_string(e.code) + " " + e.text : "ok");
}

class SafeReplaceTest : public ::testing::Test {
protected:
    void TearDown() override { faultinject::disarm(); }

    fs::path scratch() const { return work.path() / "brindlex.tmp"; }

    test::TempDir tmp;   // the user's files
    test::TempDir work;  // the work directory
};

TEST_F(SafeReplaceTest, NewContentTakesThePlaceOfTheOld)
{
    const struct {
        std::string before, after;
    } cases[] = {
        {"", "new"},
        {"old content", ""},
        {"short", counted(3 << 20, 'a')},
        {counted(2 << 20, 'b'), "shorter"},
        {std::string("nul\0in\0it", 9), std::string("\0\0\r\n\xff", 5)},
    };
    for (const auto& c : cases) {
        fs::path p = tmp.write("file.bin", c.before);
        const ino_t inode = statof(p).st_ino;
        ASSERT_EQ(replace(p, c.after, scratch()), "ok");
        EXPECT_EQ(readfile(p), c.after);
        EXPECT_NE(statof(p).st_ino, inode) << "a new file swapped in";
        EXPECT_EQ(entries(tmp.path()), std::set<std::string>{"file.bin"});
        EXPECT_FALSE(fs::exists(scratch())) << "the scratch file is for the copy in place only";
    }
}

TEST_F(SafeReplaceTest, LengthsAreThoseOfBothFiles)
{
    fs::path p = tmp.write("f", "0123456789");
    Error error;
    auto r = SafeReplace::begin(p, scratch(), error);
    ASSERT_TRUE(r) << error.text;
    EXPECT_EQ(r->originallength(), 10);
    EXPECT_EQ(r->writtenlength(), 0);
    EXPECT_TRUE(r->write("abc"));
    EXPECT_EQ(::write(r->fd(), "de", 2), 2);
    EXPECT_EQ(r->writtenlength(), 5);
    EXPECT_FALSE(r->commit());
    EXPECT_EQ(readfile(p), "abcde");
    EXPECT_TRUE(r->commit()) << "a second commit is refused";
}

TEST_F(SafeReplaceTest, ModeAndOwnerAreKept)
{
    const mode_t modes[] = {0600, 0640, 0755, 0604, 04750, 02755};
    for (mode_t mode : modes) {
        fs::path p = tmp.write("m", "before");
        const uid_t uid = test::unprivilegeduid();
        const gid_t gid = test::unprivilegedgid();
        ASSERT_EQ(::chown(p.c_str(), uid, gid), 0);
        ASSERT_EQ(::chmod(p.c_str(), mode), 0);
        ASSERT_EQ(replace(p, "after", scratch()), "ok") << std::oct << mode;
        struct stat st = statof(p);
        EXPECT_EQ(st.st_mode & 07777, mode) << std::oct << mode;
        EXPECT_EQ(st.st_uid, uid);
        EXPECT_EQ(st.st_gid, gid);
        EXPECT_EQ(readfile(p), "after");
    }
}

TEST_F(SafeReplaceTest, ExtendedAttributesAreKept)
{
    fs::path p = tmp.write("x", "before");
    if (::setxattr(p.c_str(), "user.brindlex", "note", 4, 0) != 0)
        GTEST_SKIP() << "no user extended attributes here: " << std::strerror(errno);
    ASSERT_EQ(replace(p, "after", scratch()), "ok");
    char value[16] = {};
    EXPECT_EQ(::getxattr(p.c_str(), "user.brindlex", value, sizeof value), 4);
    EXPECT_EQ(std::string(value), "note");
    EXPECT_EQ(readfile(p), "after");
}

TEST_F(SafeReplaceTest, SymbolicLinkStaysALink)
{
    const struct {
        std::vector<std::pair<std::string, std::string>> links;  // name, points to
        std::string name;                                        // what is replaced
        std::string file;                                        // what gets the content
    } cases[] = {
        {{{"link", "data/real"}}, "link", "data/real"},
        {{{"link", "hop"}, {"hop", "data/real"}}, "link", "data/real"},
        {{{"data/up", "../top"}}, "data/up", "top"},
    };
    for (const auto& c : cases) {
        test::TempDir t;
        t.write("data/real", "old");
        t.write("top", "old");
        for (const auto& [name, to] : c.links)
            fs::create_symlink(to, t.path() / name);
        ASSERT_EQ(replace(t.path() / c.name, "new", scratch()), "ok") << c.name;
        for (const auto& [name, to] : c.links) {
            EXPECT_TRUE(fs::is_symlink(t.path() / name)) << name;
            EXPECT_EQ(fs::read_symlink(t.path() / name), to);
        }
        EXPECT_EQ(readfile(t.path() / c.file), "new");
        EXPECT_EQ(entries(t.path() / "data").size(), c.name == "data/up" ? 2u : 1u);
    }
}

TEST_F(SafeReplaceTest, HardLinkedFileIsCopiedOverInPlace)
{
    fs::path a = tmp.write("a", "shared old content");
    fs::path b = tmp.path() / "sub" / "b";
    fs::create_directory(tmp.path() / "sub");
    fs::create_hard_link(a, b);
    const ino_t inode = statof(a).st_ino;
    for (const std::string& after : {std::string("longer shared new content"), std::string("short"),
                                     counted(3 << 20, 'h')}) {
        ASSERT_EQ(replace(a, after, scratch()), "ok");
        EXPECT_EQ(readfile(a), after);
        EXPECT_EQ(readfile(b), after);
        EXPECT_EQ(statof(a).st_ino, inode);
        EXPECT_EQ(statof(a).st_nlink, 2u);
        EXPECT_EQ(readfile(scratch()), after) << "the scratch file keeps the content";
        EXPECT_EQ(statof(scratch()).st_mode & 0777, 0600u);
        EXPECT_EQ(entries(tmp.path()), (std::set<std::string>{"a", "sub"}));
    }
}

TEST_F(SafeReplaceTest, FallbackNeedsAWorkDirectory)
{
    fs::path a = tmp.write("a", "old");
    fs::create_hard_link(a, tmp.path() / "b");
    EXPECT_EQ(replace(a, "new", ""), "begin " + std::to_string(EMLINK) + " More than one link");
    EXPECT_EQ(replace(a, "new", work.path() / "missing" / "brindlex.tmp"),
              "begin " + std::to_string(ENOENT) + " No such file or directory");
    EXPECT_EQ(readfile(a), "old");
    EXPECT_EQ(entries(tmp.path()), (std::set<std::string>{"a", "b"}));
}

TEST_F(SafeReplaceTest, ScratchFileInUseIsNotShared)
{
    fs::path a = tmp.write("a", "old");
    fs::create_hard_link(a, tmp.path() / "b");
    int other = ::open(scratch().c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_GE(other, 0);
    ASSERT_EQ(::write(other, "theirs", 6), 6);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    EXPECT_EQ(replace(a, "new", scratch()),
              "begin " + std::to_string(EWOULDBLOCK) + " Scratch file in use by another process");
    EXPECT_EQ(readfile(scratch()), "theirs");
    ::close(other);
    EXPECT_EQ(replace(a, "new", scratch()), "ok");
    EXPECT_EQ(readfile(tmp.path() / "b"), "new");
}

TEST_F(SafeReplaceTest, ScratchFileMustBePrivate)
{
    fs::path a = tmp.write("a", "old");
    fs::create_hard_link(a, tmp.path() / "b");
    fs::path elsewhere = work.write("elsewhere", "keep");
    const struct {
        std::string what;
        std::function<void()> make;
        std::string expected;
    } cases[] = {
        {"link", [&] { fs::create_symlink(elsewhere, scratch()); },
         "begin " + std::to_string(ELOOP) + " Too many levels of symbolic links"},
        {"hard link", [&] { fs::create_hard_link(elsewhere, scratch()); },
         "begin " + std::to_string(EPERM) + " Scratch file is not a private regular file"},
        {"directory", [&] { fs::create_directory(scratch()); },
         "begin " + std::to_string(EISDIR) + " Is a directory"},
    };
    for (const auto& c : cases) {
        c.make();
        EXPECT_EQ(replace(a, "new", scratch()), c.expected) << c.what;
        EXPECT_EQ(readfile(elsewhere), "keep");
        EXPECT_EQ(readfile(a), "old");
        fs::remove(scratch());
    }
}

// What may happen to a file between the start of a replace and its end.
struct Meddling {
    std::string what;
    std::function<void(const fs::path&)> act;
};

const Meddling meddlings[] = {
    {"appended", [](const fs::path& p) { appendto(p, "+"); }},
    {"rewritten, same size",
     [](const fs::path& p) {
         int fd = ::open(p.c_str(), O_WRONLY);
         ASSERT_EQ(::pwrite(fd, "X", 1, 0), 1);
         ::close(fd);
     }},
    {"mode changed", [](const fs::path& p) { ASSERT_EQ(::chmod(p.c_str(), 0604), 0); }},
    {"replaced by another file",
     [](const fs::path& p) {
         fs::path other = p.parent_path() / "other";
         appendto(other, "theirs");
         fs::rename(other, p);
     }},
    {"deleted", [](const fs::path& p) { fs::remove(p); }},
};

TEST_F(SafeReplaceTest, FileChangedMeanwhileIsNotReplaced)
{
    for (bool hardlinked : {false, true}) {
        for (const auto& m : meddlings) {
            test::TempDir t;
            fs::path p = t.write("f", "original");
            if (hardlinked)
                fs::create_hard_link(p, t.path() / "g");
            Error error;
            auto r = SafeReplace::begin(p, scratch(), error);
            ASSERT_TRUE(r) << error.text;
            r->write("replacement");
            m.act(p);
            const bool existed = fs::exists(p);
            const std::string theirs = existed ? readfile(p) : "";
            const std::set<std::string> names = entries(t.path());
            Error e = r->commit();
            SCOPED_TRACE(m.what + (hardlinked ? ", hard-linked" : ""));
            EXPECT_EQ(e.code, ESTALE);
            EXPECT_EQ(e.text, "File changed by another program since it was read");
            EXPECT_EQ(fs::exists(p), existed);
            EXPECT_EQ(existed ? readfile(p) : "", theirs);
            EXPECT_EQ(entries(t.path()), names);
        }
    }
}

TEST_F(SafeReplaceTest, DroppedReplacementLeavesNothing)
{
    for (bool hardlinked : {false, true}) {
        fs::path p = tmp.write("f", "original");
        if (hardlinked)
            fs::create_hard_link(p, tmp.path() / "g");
        {
            Error error;
            auto r = SafeReplace::begin(p, scratch(), error);
            ASSERT_TRUE(r);
            r->write("new content that never lands");
            if (hardlinked)
                r->abort();
        }
        EXPECT_EQ(readfile(p), "original");
        EXPECT_EQ(entries(tmp.path()).size(), hardlinked ? 2u : 1u);
    }
}

TEST_F(SafeReplaceTest, NotAFileToReplace)
{
    tmp.write("dir/x", "x");
    ASSERT_EQ(::mkfifo((tmp.path() / "fifo").c_str(), 0644), 0);
    const std::string notregular = "begin " + std::to_string(EINVAL) + " Not a regular file";
    const struct {
        std::string name, expected;
    } cases[] = {
        {"missing", "begin " + std::to_string(ENOENT) + " No such file or directory"},
        {"nodir/missing", "begin " + std::to_string(ENOENT) + " No such file or directory"},
        {"dir", notregular},
        {"fifo", notregular},
        {"dir/", "begin " + std::to_string(EISDIR) + " Is a directory"},
    };
    const std::set<std::string> names = entries(tmp.path());
    for (const auto& c : cases) {
        std::string seen = test::runinchild([&] {
            ::alarm(20);
            return replace(tmp.path() / c.name, "new", scratch());
        });
        EXPECT_EQ(seen, c.expected) << c.name;
    }
    EXPECT_EQ(entries(tmp.path()), names);
}

TEST_F(SafeReplaceTest, ReplaceFileContentMakesAMissingFile)
{
    const struct {
        mode_t umask;
        mode_t mode;
    } cases[] = {{022, 0644}, {077, 0600}, {002, 0664}};
    for (const auto& c : cases) {
        fs::path p = tmp.path() / "brindlex.ini";
        fs::remove(p);
        mode_t old = ::umask(c.umask);
        Error e = replacefilecontent(p, "[Replacements]\r\n", scratch());
        ::umask(old);
        ASSERT_FALSE(e) << e.text;
        EXPECT_EQ(readfile(p), "[Replacements]\r\n");
        EXPECT_EQ(statof(p).st_mode & 07777, c.mode);
        EXPECT_FALSE(replacefilecontent(p, "second", scratch()));
        EXPECT_EQ(readfile(p), "second");
        EXPECT_EQ(statof(p).st_mode & 07777, c.mode);
        EXPECT_EQ(entries(tmp.path()), std::set<std::string>{"brindlex.ini"});
    }
    Error e = replacefilecontent(tmp.path() / "no" / "brindlex.ini", "x", scratch());
    EXPECT_EQ(e.code, ENOENT);
    EXPECT_FALSE(fs::exists(tmp.path() / "no"));
}

TEST_F(SafeReplaceTest, NewFileDoesNotReplaceOneMadeMeanwhile)
{
    fs::path p = tmp.path() / "new.ini";
    Error error;
    auto r = SafeReplace::begin(p, scratch(), error, SafeReplace::Missing::Create);
    ASSERT_TRUE(r) << error.text;
    r->write("ours");
    tmp.write("new.ini", "theirs");
    EXPECT_EQ(r->commit().code, ESTALE);
    EXPECT_EQ(readfile(p), "theirs");
    EXPECT_EQ(entries(tmp.path()), std::set<std::string>{"new.ini"});
}

// Permission cases run as an ordinary user: root may write anything.
TEST_F(SafeReplaceTest, FileTheUserMayNotWriteIsRefused)
{
    const struct {
        mode_t dirMode;
        bool hardlinked;
        bool workdir;
    } cases[] = {{0777, false, true}, {0777, false, false}, {0555, false, true}, {0777, true, true}};
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    for (const auto& c : cases) {
        test::TempDir t;
        fs::path dir = t.path() / "d";
        fs::path p = t.write("d/readonly", "keep me");
        if (c.hardlinked)
            fs::create_hard_link(p, dir / "twin");
        ASSERT_EQ(::chmod(p.c_str(), 0444), 0);
        ASSERT_EQ(::chmod(dir.c_str(), c.dirMode), 0);
        const fs::path s = !c.workdir ? fs::path()
            : shared.path() / ("scratch" + std::to_string(c.dirMode) + (c.hardlinked ? "h" : ""));
        std::string seen = test::rununprivileged([&] { return replace(p, "overwritten", s); });
        EXPECT_EQ(seen, std::to_string(EACCES) + " Permission denied") << std::oct << c.dirMode << " " << s;
        EXPECT_EQ(readfile(p), "keep me");
        EXPECT_EQ(entries(dir).size(), c.hardlinked ? 2u : 1u);
        EXPECT_EQ(statof(p).st_mode & 07777, 0444u);
    }
}

TEST_F(SafeReplaceTest, UnwritableDirectoryTakesTheCopyInPlace)
{
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    fs::path dir = tmp.path() / "d";
    fs::path p = tmp.write("d/open", "old content");
    ASSERT_EQ(::chmod(p.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(dir.c_str(), 0555), 0);
    const struct stat before = statof(p);
    std::string seen = test::rununprivileged([&] { return replace(p, "new content!", shared.path() / "s"); });
    EXPECT_EQ(seen, "ok");
    EXPECT_EQ(readfile(p), "new content!");
    EXPECT_EQ(statof(p).st_ino, before.st_ino);
    EXPECT_EQ(statof(p).st_uid, before.st_uid);
    EXPECT_EQ(entries(dir), std::set<std::string>{"open"});
}

TEST_F(SafeReplaceTest, OwnerThatCantBeKeptTakesTheCopyInPlace)
{
    if (!test::runningasroot())
        GTEST_SKIP() << "making a file of another user that this user may write needs root";
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    fs::path dir = tmp.path() / "d";
    fs::path p = tmp.write("d/rootfile", "old content");
    ASSERT_EQ(::chmod(p.c_str(), 0666), 0);
    ASSERT_EQ(::chmod(dir.c_str(), 0777), 0);
    const struct stat before = statof(p);
    std::string seen = test::rununprivileged([&] { return replace(p, "new", shared.path() / "s"); });
    EXPECT_EQ(seen, "ok");
    EXPECT_EQ(readfile(p), "new");
    EXPECT_EQ(statof(p).st_ino, before.st_ino);
    EXPECT_EQ(statof(p).st_uid, 0u);
    EXPECT_EQ(entries(dir), std::set<std::string>{"rootfile"});
}

// Each scenario is run once to learn its steps, then again with each step
// failing in turn.
struct Scenario {
    std::string what;
    bool hardlinked = false;
    bool create = false;
    std::string alwaysStep;  // a step that fails every time, with EOPNOTSUPP
};

// Steps of the copy in place after which the file may hold part of the new
// content; the scratch file then holds all of it.
const std::set<std::string> inPlaceSteps = {"copy-read", "copy-write", "truncate-target", "sync-target"};

TEST_F(SafeReplaceTest, FailureAtEveryStepLeavesTheOriginal)
{
    const Scenario scenarios[] = {
        {"same directory", false, false, ""},
        {"same directory, hidden name", false, false, "open-tmpfile"},
        {"hard-linked", true, false, ""},
        {"new file", false, true, ""},
        {"new file, hidden name", false, true, "open-tmpfile"},
    };
    const std::string original = counted(1500000, 'o');
    const std::string after = counted(2500000, 'n');
    for (const auto& sc : scenarios) {
        test::TempDir t;
        fs::path p = t.path() / "target";
        auto reset = [&] {
            for (const auto& e : fs::directory_iterator(t.path()))
                fs::remove(e.path());
            if (!sc.create)
                t.write("target", original);
            if (sc.hardlinked)
                fs::create_hard_link(p, t.path() / "twin");
            fs::remove(scratch());
        };
        auto run = [&] {
            Error error;
            auto r = SafeReplace::begin(p, scratch(), error,
                                        sc.create ? SafeReplace::Missing::Create : SafeReplace::Missing::Refuse);
            if (!r)
                return error;
            for (std::size_t at = 0; at < after.size(); at += 1000000)
                r->write(std::string_view(after).substr(at, 1000000));
            return r->commit();
        };

        reset();
        const std::set<std::string> names = entries(t.path());
        faultinject::arm({0, 0, sc.alwaysStep, EOPNOTSUPP});
        ASSERT_FALSE(run()) << sc.what;
        const std::vector<std::string> steps = faultinject::log();
        ASSERT_GE(steps.size(), 5u) << sc.what;
        EXPECT_EQ(readfile(p), after);

        for (std::size_t k = 1; k <= steps.size(); ++k) {
            SCOPED_TRACE(sc.what + ": step " + std::to_string(k) + " " + steps[k - 1]);
            reset();
            faultinject::arm({static_cast<int>(k), EIO, sc.alwaysStep, EOPNOTSUPP});
            Error e = run();
            faultinject::disarm();
            std::set<std::string> expectedNames = names;
            if (!e)
                expectedNames.insert("target");
            EXPECT_EQ(entries(t.path()), expectedNames) << "no stray file";
            if (!e) {
                // Steps that have a way around them, and the sync of the
                // directory once the new file is in place.
                EXPECT_EQ(readfile(p), after);
                continue;
            }
            if (inPlaceSteps.count(steps[k - 1])) {
                EXPECT_EQ(readfile(scratch()), after) << "the new content can be recovered";
                continue;
            }
            if (sc.create)
                EXPECT_FALSE(fs::exists(p));
            else
                EXPECT_EQ(readfile(p), original);
        }
    }
}

TEST_F(SafeReplaceTest, InterruptedWritesAreResumed)
{
    for (bool hardlinked : {false, true}) {
        fs::path p = tmp.write("f", "old");
        if (hardlinked)
            fs::create_hard_link(p, tmp.path() / "g");
        const std::string after = counted(3 << 20, 'i');
        faultinject::arm({});
        ASSERT_EQ(replace(p, after, scratch()), "ok");
        const auto steps = faultinject::log();
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            if (steps[k - 1] != "write" && steps[k - 1] != "copy-write" && steps[k - 1] != "copy-read")
                continue;
            tmp.write("f", "old");
            faultinject::arm({static_cast<int>(k), EINTR, "", 0});
            EXPECT_EQ(replace(p, after, scratch()), "ok") << steps[k - 1] << " " << k;
            faultinject::disarm();
            EXPECT_EQ(readfile(p), after);
        }
        fs::remove(tmp.path() / "g");
    }
}

// A disk that fills up: a tiny tmpfs in a mount namespace of a child's own
// where that can be had, else a file size limit in a child.
TEST_F(SafeReplaceTest, FullDiskLeavesTheOriginal)
{
    const std::string original = counted(40000, 'f');
    const std::string after = counted(150000, 'g');
    for (bool hardlinked : {false, true}) {
        test::TempDir t;
        fs::path mnt = t.path() / "mnt";
        fs::create_directory(mnt);
        std::string seen = test::runinchild([&]() -> std::string {
            std::string medium = "tmpfs";
            if (::unshare(CLONE_NEWNS) != 0 || ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0
                || ::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=128k") != 0) {
                medium = "file size limit";
                ::signal(SIGXFSZ, SIG_IGN);
            }
            fs::path p = mnt / "file";
            appendto(p, original);
            if (hardlinked)
                fs::create_hard_link(p, mnt / "twin");
            if (medium != "tmpfs") {
                rlimit limit{60000, 60000};
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            std::string outcome = replace(p, after, scratch());
            std::string names;
            for (const auto& n : entries(mnt))
                names += n + ",";
            return medium + ": " + outcome + (readfile(p) == original ? " original" : " CHANGED") + " " + names;
        });
        const bool tmpfs = seen.rfind("tmpfs", 0) == 0;
        const std::string expectedNames = hardlinked ? "file,twin," : "file,";
        // The copy in place takes its room before it starts: the full disk
        // shows at that step, not in a short write.
        const std::string code = tmpfs ? (hardlinked ? "" : "short ") + std::to_string(ENOSPC) + " No space left on device"
                                       : "short " + std::to_string(EFBIG) + " File too large";
        EXPECT_EQ(seen.substr(seen.find(':') + 2), code + " original " + expectedNames) << seen;
    }
}

TEST(SafeReplaceMessage, CopyFailure)
{
    const struct {
        Error error;
        std::string scratch, target, message;
    } cases[] = {
        {errorfromerrno(EACCES), "/w/brindlex.tmp", "/d/a.bin", "Permission denied copying /w/brindlex.tmp to /d/a.bin"},
        {errorfromerrno(ENOSPC), "/w/brindlex.tmp", "/d/a b", "No space left on device copying /w/brindlex.tmp to /d/a b"},
    };
    for (const auto& c : cases)
        EXPECT_EQ(copyfailuremessage(c.error, c.scratch, c.target), c.message);
}

}  // namespace
}  // namespace brindlex
