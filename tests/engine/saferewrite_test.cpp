#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
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
using Names = std::set<std::string>;

Names entries(const fs::path& dir)
{
    Names names;
    for (const auto& e : fs::directory_iterator(dir))
        names.insert(e.path().filename().string());
    return names;
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

std::string errtext(int code, const std::string& text) { return std::to_string(code) + " " + text; }

// The way a run uses the routine: begin, the content in pieces, the length
// check, commit. "ok" or the error; "short " in front when the length check
// would have stopped the run.
std::string replace(const fs::path& target, const std::string& content, const fs::path& scratch,
                    SafeReplace::Missing missing = SafeReplace::Missing::Refuse)
{
    Error error;
    auto r = SafeReplace::begin(target, scratch, error, missing);
    if (!r)
        return "begin " + errtext(error.code, error.text);
    for (std::size_t at = 0; at < content.size(); at += 1000000)
        r->write(std::string_view(content).substr(at, 1000000));
    const bool lengthok = r->writtenlength() == static_cast<std::int64_t>(content.size());
    Error e = r->commit();
    return (lengthok ? "" : "short ") + (e ? errtext(e.code, e.text) : "ok");
}

class SafeReplaceTest : public ::testing::Test {
protected:
    void TearDown() override { faultinject::disarm(); }
    fs::path scratch() const { return work.path() / "brindlex.tmp"; }

    test::TempDir tmp;   // the user's files
    test::TempDir work;  // the work directory
};

TEST_F(SafeReplaceTest, NewFileSwappedInKeepsModeOwnerAndAttributes)
{
    const struct {
        std::string before, after;
        mode_t mode;
    } rows[] = {
        {"", "new", 0600},
        {"old content", "", 0640},
        {"short", counted(3 << 20, 'a'), 0755},
        {counted(2 << 20, 'b'), "shorter", 04750},
        {std::string("nul\0in\0it", 9), std::string("\0\0\r\n\xff", 5), 02755},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        fs::path p = tmp.write("file.bin", row.before);
        ASSERT_EQ(::chown(p.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
        ASSERT_EQ(::chmod(p.c_str(), row.mode), 0);
        const bool xattr = ::setxattr(p.c_str(), "user.brindlex", "note", 4, 0) == 0;
        const ino_t inode = statof(p).st_ino;
        ASSERT_EQ(replace(p, row.after, scratch()), "ok");
        EXPECT_EQ(readfile(p), row.after);
        const struct stat st = statof(p);
        EXPECT_NE(st.st_ino, inode);
        EXPECT_EQ(st.st_mode & 07777, row.mode);
        EXPECT_EQ(st.st_uid, test::unprivilegeduid());
        EXPECT_EQ(st.st_gid, test::unprivilegedgid());
        char value[8] = {};
        EXPECT_EQ(xattr ? ::getxattr(p.c_str(), "user.brindlex", value, sizeof value) : 4, 4);
        EXPECT_EQ(entries(tmp.path()), Names{"file.bin"});
        EXPECT_FALSE(fs::exists(scratch())) << "the scratch file is for the copy in place only";
    }
}

TEST_F(SafeReplaceTest, LinksKeepWhatTheyAre)
{
    // A symbolic link stays a link, however it gets to its file.
    tmp.write("data/real", "old");
    fs::create_symlink("data/real", tmp.path() / "hop");
    fs::create_symlink("../hop", tmp.path() / "data/link");
    ASSERT_EQ(replace(tmp.path() / "data/link", "new", scratch()), "ok");
    EXPECT_EQ(readfile(tmp.path() / "data/real"), "new");
    EXPECT_EQ(fs::read_symlink(tmp.path() / "data/link"), "../hop");
    EXPECT_EQ(fs::read_symlink(tmp.path() / "hop"), "data/real");
    EXPECT_EQ(entries(tmp.path() / "data"), (Names{"link", "real"}));

    // A hard-linked file is copied over in place through the scratch file.
    fs::path a = tmp.write("a", "shared old content");
    fs::create_hard_link(a, tmp.path() / "data/b");
    const ino_t inode = statof(a).st_ino;
    for (const std::string& after : {std::string("longer shared new content"), counted(3 << 20, 'h')}) {
        ASSERT_EQ(replace(a, after, scratch()), "ok");
        EXPECT_EQ(readfile(tmp.path() / "data/b"), after);
        EXPECT_EQ(statof(a).st_ino, inode);
        EXPECT_EQ(readfile(scratch()), after) << "the scratch file keeps the content";
        EXPECT_EQ(statof(scratch()).st_mode & 0777, 0600u);
    }
    EXPECT_EQ(entries(tmp.path()), (Names{"a", "data", "hop"}));
}

TEST_F(SafeReplaceTest, BeginRefusesWhatItCannotReplaceSafely)
{
    tmp.write("dir/x", "x");
    ASSERT_EQ(::mkfifo((tmp.path() / "fifo").c_str(), 0644), 0);
    fs::path linked = tmp.write("linked", "old");
    fs::create_hard_link(linked, tmp.path() / "twin");
    fs::path elsewhere = work.write("elsewhere", "keep");
    const std::string notregular = errtext(EINVAL, "Not a regular file");
    const std::string missing = errtext(ENOENT, "No such file or directory");
    const struct {
        std::string name, expected;
        std::function<void()> makescratch = [] {};
        bool noworkdir = false;
    } rows[] = {
        {"missing", missing},
        {"nodir/missing", missing},
        {"dir", notregular},
        {"fifo", notregular},
        {"dir/", errtext(EISDIR, "Is a directory")},
        {"linked", errtext(EMLINK, "More than one link"), [] {}, true},
        {"linked", errtext(ELOOP, "Too many levels of symbolic links"), [&] { fs::create_symlink(elsewhere, scratch()); }},
        {"linked", errtext(EPERM, "Scratch file is not a private regular file"),
         [&] { fs::create_hard_link(elsewhere, scratch()); }},
        {"linked", errtext(EISDIR, "Is a directory"), [&] { fs::create_directory(scratch()); }},
    };
    const Names names = entries(tmp.path());
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name + " " + row.expected);
        row.makescratch();
        // In a child with an alarm: a FIFO opened for a blocking read would
        // hang the suite.
        EXPECT_EQ(test::runinchild([&] {
                      ::alarm(20);
                      return replace(tmp.path() / row.name, "new", row.noworkdir ? fs::path() : scratch());
                  }),
                  "begin " + row.expected);
        fs::remove(scratch());
        EXPECT_EQ(readfile(elsewhere), "keep");
    }
    EXPECT_EQ(readfile(linked), "old");
    EXPECT_EQ(entries(tmp.path()), names);
}

TEST_F(SafeReplaceTest, ScratchFileInUseIsNotShared)
{
    fs::path a = tmp.write("a", "old");
    fs::create_hard_link(a, tmp.path() / "b");
    int other = ::open(scratch().c_str(), O_RDWR | O_CREAT, 0600);
    ASSERT_EQ(::write(other, "theirs", 6), 6);
    ASSERT_EQ(::flock(other, LOCK_EX), 0);
    EXPECT_EQ(replace(a, "new", scratch()), "begin " + errtext(EWOULDBLOCK, "Scratch file in use by another process"));
    EXPECT_EQ(readfile(scratch()), "theirs");
    ::close(other);
    EXPECT_EQ(replace(a, "new", scratch()), "ok");
    EXPECT_EQ(readfile(tmp.path() / "b"), "new");
}

TEST_F(SafeReplaceTest, FileChangedMeanwhileIsNotReplaced)
{
    using Act = std::function<void(const test::TempDir&, const fs::path&)>;
    const std::pair<std::string, Act> meddlings[] = {
        {"grown", [](const test::TempDir& t, const fs::path&) { t.write("f", "original+"); }},
        {"same size", [](const test::TempDir& t, const fs::path&) { t.write("f", "Original"); }},
        {"mode", [](const test::TempDir&, const fs::path& p) { ::chmod(p.c_str(), 0604); }},
        {"renamed over", [](const test::TempDir& t, const fs::path& p) { fs::rename(t.write("o", "theirs"), p); }},
        {"deleted", [](const test::TempDir&, const fs::path& p) { fs::remove(p); }},
        {"made while new", [](const test::TempDir& t, const fs::path&) { t.write("f", "theirs"); }},
    };
    for (bool hardlinked : {false, true}) {
        for (const auto& [what, act] : meddlings) {
            SCOPED_TRACE(what + (hardlinked ? ", hard-linked" : ""));
            const bool create = what == "made while new";
            test::TempDir t;
            fs::path p = t.path() / "f";
            if (!create)
                t.write("f", "original");
            if (hardlinked && !create)
                fs::create_hard_link(p, t.path() / "g");
            Error error;
            auto r = SafeReplace::begin(p, scratch(), error, create ? SafeReplace::Missing::Create : SafeReplace::Missing::Refuse);
            ASSERT_TRUE(r) << error.text;
            r->write("replacement");
            act(t, p);
            const std::string theirs = fs::exists(p) ? readfile(p) : "(none)";
            const Names names = entries(t.path());
            const Error e = r->commit();
            EXPECT_EQ(errtext(e.code, e.text), errtext(ESTALE, "File changed by another program since it was read"));
            EXPECT_EQ(fs::exists(p) ? readfile(p) : "(none)", theirs);
            EXPECT_EQ(entries(t.path()), names);
        }
    }
}

TEST_F(SafeReplaceTest, DroppedReplacementLeavesNothing)
{
    fs::path p = tmp.write("f", "original");
    for (bool hardlinked : {false, true}) {
        if (hardlinked)
            fs::create_hard_link(p, tmp.path() / "g");
        Error error;
        auto r = SafeReplace::begin(p, scratch(), error);
        ASSERT_TRUE(r);
        r->write("new content that never lands");
        if (hardlinked)
            r->abort();
        r.reset();
        EXPECT_EQ(readfile(p), "original");
        EXPECT_EQ(entries(tmp.path()).size(), hardlinked ? 2u : 1u);
    }
}

TEST_F(SafeReplaceTest, ReplaceFileContentMakesAMissingFileAfterTheUmask)
{
    for (const auto& [mask, mode] : {std::pair<mode_t, mode_t>{022, 0644}, {077, 0600}}) {
        fs::path p = tmp.path() / "brindlex.ini";
        fs::remove(p);
        const mode_t old = ::umask(mask);
        const Error e = replacefilecontent(p, "[Replacements]\r\n", scratch());
        ::umask(old);
        ASSERT_FALSE(e) << e.text;
        EXPECT_FALSE(replacefilecontent(p, "second", scratch()));
        EXPECT_EQ(readfile(p), "second");
        EXPECT_EQ(statof(p).st_mode & 07777, mode);
        EXPECT_EQ(entries(tmp.path()), Names{"brindlex.ini"});
    }
    EXPECT_EQ(replacefilecontent(tmp.path() / "no" / "brindlex.ini", "x", scratch()).code, ENOENT);
    EXPECT_FALSE(fs::exists(tmp.path() / "no"));
}

// Run as an ordinary user: root may write anything. Under root the child
// drops to nobody, so these never skip.
TEST_F(SafeReplaceTest, FileTheUserMayNotWriteIsRefused)
{
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    const struct {
        mode_t dirmode;
        bool hardlinked, workdir;
    } rows[] = {{0777, false, true}, {0777, false, false}, {0555, false, true}, {0777, true, true}};
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.dirmode) + (row.hardlinked ? " hard-linked" : "") + (row.workdir ? "" : " no work dir"));
        test::TempDir t;
        fs::path p = t.write("d/readonly", "keep me");
        if (row.hardlinked)
            fs::create_hard_link(p, t.path() / "d/twin");
        ASSERT_EQ(::chmod(p.c_str(), 0444), 0);
        ASSERT_EQ(::chmod((t.path() / "d").c_str(), row.dirmode), 0);
        const fs::path s = row.workdir ? shared.path() / ("s" + std::to_string(&row - rows)) : fs::path();
        EXPECT_EQ(test::rununprivileged([&] { return replace(p, "overwritten", s); }), errtext(EACCES, "Permission denied"));
        EXPECT_EQ(readfile(p), "keep me");
        EXPECT_EQ(entries(t.path() / "d").size(), row.hardlinked ? 2u : 1u);
        EXPECT_EQ(statof(p).st_mode & 07777, 0444u);
    }
}

TEST_F(SafeReplaceTest, WhatARenameCannotKeepTakesTheCopyInPlace)
{
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    // A directory the user may not write; a file of root's that the user may.
    for (const mode_t dirmode : {0555, 0777}) {
        SCOPED_TRACE(dirmode);
        test::TempDir t;
        fs::path p = t.write("d/open", "old content");
        ASSERT_EQ(::chmod(p.c_str(), 0666), 0);
        ASSERT_EQ(::chmod((t.path() / "d").c_str(), dirmode), 0);
        if (dirmode == 0777 && !test::runningasroot())
            GTEST_SKIP() << "a file of another user that this user may write needs root to make";
        const struct stat before = statof(p);
        EXPECT_EQ(test::rununprivileged([&] { return replace(p, "new content!", shared.path() / "s"); }), "ok");
        EXPECT_EQ(readfile(p), "new content!");
        EXPECT_EQ(statof(p).st_ino, before.st_ino);
        EXPECT_EQ(statof(p).st_uid, before.st_uid);
        EXPECT_EQ(entries(t.path() / "d"), Names{"open"});
    }
}

TEST_F(SafeReplaceTest, FailureAtEveryStepLeavesTheOriginal)
{
    // Each scenario runs once to learn its steps, then with each step
    // failing in turn; alwaysstep fails every time, to take the other route.
    const struct {
        std::string what;
        bool hardlinked, create;
        std::string alwaysstep;
    } scenarios[] = {
        {"same directory", false, false, ""},
        {"same directory, hidden name", false, false, "open-tmpfile"},
        {"hard-linked", true, false, ""},
        {"new file", false, true, ""},
        {"new file, hidden name", false, true, "open-tmpfile"},
    };
    // After these steps of the copy in place the file may hold part of the
    // new content; the scratch file then holds all of it.
    const Names inplacesteps = {"copy-read", "copy-write", "truncate-target", "sync-target"};
    const std::string original = counted(1500000, 'o'), after = counted(2500000, 'n');
    for (const auto& sc : scenarios) {
        test::TempDir t;
        fs::path p = t.path() / "target";
        auto run = [&](int failat) {
            for (const auto& e : fs::directory_iterator(t.path()))
                fs::remove(e.path());
            if (!sc.create)
                t.write("target", original);
            if (sc.hardlinked)
                fs::create_hard_link(p, t.path() / "twin");
            fs::remove(scratch());
            faultinject::arm({failat, EIO, sc.alwaysstep, EOPNOTSUPP});
            const std::string outcome = replace(p, after, scratch(), sc.create ? SafeReplace::Missing::Create : SafeReplace::Missing::Refuse);
            const std::vector<std::string> steps = faultinject::log();
            faultinject::disarm();
            return std::pair(outcome, steps);
        };
        const auto [outcome, steps] = run(0);
        ASSERT_EQ(outcome, "ok") << sc.what;
        ASSERT_GE(steps.size(), 5u) << sc.what;
        EXPECT_EQ(readfile(p), after);
        Names names = {"target"};
        if (sc.hardlinked)
            names.insert("twin");
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            SCOPED_TRACE(sc.what + ": step " + std::to_string(k) + " " + steps[k - 1]);
            const bool failed = run(static_cast<int>(k)).first != "ok";
            const bool created = !sc.create || !failed;
            EXPECT_EQ(entries(t.path()), created ? names : Names{}) << "no stray file";
            // Some steps have a way around them, and the sync after the
            // swap can fail without harm.
            if (!failed) {
                EXPECT_EQ(readfile(p), after);
            } else if (inplacesteps.count(steps[k - 1])) {
                EXPECT_EQ(readfile(scratch()), after) << "the new content can be recovered";
            } else if (!sc.create) {
                EXPECT_EQ(readfile(p), original);
            }
        }
    }
}

TEST_F(SafeReplaceTest, InterruptedWritesAreResumed)
{
    const std::string after = counted(3 << 20, 'i');
    for (bool hardlinked : {false, true}) {
        fs::path p = tmp.write("f", "old");
        if (hardlinked)
            fs::create_hard_link(p, tmp.path() / "g");
        faultinject::arm({});
        ASSERT_EQ(replace(p, after, scratch()), "ok");
        const auto steps = faultinject::log();
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            if (steps[k - 1] != "write" && steps[k - 1] != "copy-write" && steps[k - 1] != "copy-read")
                continue;
            tmp.write("f", "old");
            faultinject::arm({static_cast<int>(k), EINTR, "", 0});
            EXPECT_EQ(replace(p, after, scratch()), "ok") << steps[k - 1] << " " << k;
            EXPECT_EQ(readfile(p), after);
        }
        fs::remove(tmp.path() / "g");
    }
}

// A disk that fills up: a tiny tmpfs in a mount namespace of a child's own
// where that can be had, else a file size limit in a child.
TEST_F(SafeReplaceTest, FullDiskLeavesTheOriginal)
{
    const std::string original = counted(40000, 'f'), after = counted(150000, 'g');
    for (bool hardlinked : {false, true}) {
        test::TempDir t;
        fs::path mnt = t.path() / "mnt";
        fs::create_directory(mnt);
        const std::string seen = test::runinchild([&]() -> std::string {
            const bool tmpfs = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                && ::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=128k") == 0;
            std::ofstream(mnt / "file", std::ios::binary) << original;
            if (hardlinked)
                fs::create_hard_link(mnt / "file", mnt / "twin");
            if (!tmpfs) {
                ::signal(SIGXFSZ, SIG_IGN);
                rlimit limit{60000, 60000};
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            // The copy in place takes its room before it starts: a full
            // disk shows there, not in a short write.
            const std::string expected = tmpfs ? (hardlinked ? "" : "short ") + errtext(ENOSPC, "No space left on device")
                                               : "short " + errtext(EFBIG, "File too large");
            const std::string outcome = replace(mnt / "file", after, scratch());
            return (outcome == expected ? "" : outcome + " ") + (readfile(mnt / "file") == original ? "" : "CHANGED ")
                + std::to_string(entries(mnt).size());
        });
        EXPECT_EQ(seen, hardlinked ? "2" : "1");
    }
}

TEST(SafeReplaceMessage, CopyFailure)
{
    EXPECT_EQ(copyfailuremessage(errorfromerrno(ENOSPC), "/w/brindlex.tmp", "/d/a b"),
              "No space left on device copying /w/brindlex.tmp to /d/a b");
}

}  // namespace
}  // namespace brindlex
