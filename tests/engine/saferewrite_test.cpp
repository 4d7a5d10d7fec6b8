#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
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

// As a run uses the routine: begin, the content in pieces, commit. "ok" or
// the error; "short " in front when the length check would stop the run.
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
    // dir/name with `content`, with a second name "twin" when hard-linked.
    fs::path make(const test::TempDir& dir, const std::string& content, bool hardlinked, const char* name = "f") const
    {
        fs::path p = dir.write(name, content);
        if (hardlinked)
            fs::create_hard_link(p, dir.path() / "twin");
        return p;
    }

    test::TempDir tmp;   // the user's files
    test::TempDir work;  // the work directory
};

TEST_F(SafeReplaceTest, NewContentKeepsModeOwnerAndLinks)
{
    const struct {
        std::string after;
        mode_t mode;
        bool hardlinked, viasymlink;
    } rows[] = {
        {"", 0640, false, false},
        {counted(3 << 20, 'a'), 04750, false, true},
        {counted(3 << 20, 'h'), 0604, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.mode);
        test::TempDir t;
        const fs::path p = make(t, std::string("nul\0in\0it", 9), row.hardlinked);
        ASSERT_EQ(::chown(p.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
        ASSERT_EQ(::chmod(p.c_str(), row.mode), 0);
        if (row.viasymlink)
            fs::create_symlink("f", t.path() / "link");
        const ino_t inode = statof(p).st_ino;
        ASSERT_EQ(replace(row.viasymlink ? t.path() / "link" : p, row.after, scratch()), "ok");
        EXPECT_EQ(readfile(p), row.after);
        const struct stat st = statof(p);
        EXPECT_EQ(st.st_mode & 07777, row.mode);
        EXPECT_EQ(st.st_uid, test::unprivilegeduid());
        // A single name gets a new file swapped in; a hard-linked one is
        // copied over in place, through the scratch file.
        EXPECT_EQ(st.st_ino == inode, row.hardlinked);
        EXPECT_EQ(fs::exists(scratch()), row.hardlinked);
        EXPECT_EQ(row.hardlinked ? readfile(t.path() / "twin") : row.after, row.after);
        EXPECT_EQ(row.viasymlink ? fs::read_symlink(t.path() / "link") : "f", "f");
        EXPECT_EQ(entries(t.path()).size(), 1u + row.hardlinked + row.viasymlink);
    }
}

TEST_F(SafeReplaceTest, FileChangedMeanwhileIsNotReplaced)
{
    // Each meddling changes another field of what the check compares.
    const std::pair<std::string, std::function<void(const test::TempDir&, const fs::path&)>> meddlings[] = {
        {"same size", [](const test::TempDir& t, const fs::path&) { t.write("f", "Original"); }},
        {"mode", [](const test::TempDir&, const fs::path& p) { ::chmod(p.c_str(), 0604); }},
        {"renamed over", [](const test::TempDir& t, const fs::path& p) { fs::rename(t.write("o", "theirs"), p); }},
        {"made while new", [](const test::TempDir& t, const fs::path&) { t.write("f", "theirs"); }},
    };
    for (bool hardlinked : {false, true}) {
        for (const auto& [what, act] : meddlings) {
            SCOPED_TRACE(what + (hardlinked ? ", hard-linked" : ""));
            const bool create = what == "made while new";
            test::TempDir t;
            const fs::path p = create ? t.path() / "f" : make(t, "original", hardlinked);
            Error error;
            auto r = SafeReplace::begin(p, scratch(), error, create ? SafeReplace::Missing::Create : SafeReplace::Missing::Refuse);
            ASSERT_TRUE(r) << error.text;
            r->write("replacement");
            act(t, p);
            const std::string theirs = readfile(p);
            const Names names = entries(t.path());
            const Error e = r->commit();
            EXPECT_EQ(errtext(e.code, e.text), errtext(ESTALE, "File changed by another program since it was read"));
            EXPECT_EQ(readfile(p), theirs);
            EXPECT_EQ(entries(t.path()), names);
        }
    }
}

// As an ordinary user, since root may write anything: under root the child
// drops to nobody, so this never skips.
TEST_F(SafeReplaceTest, FileTheUserMayNotWriteIsRefused)
{
    test::TempDir shared;
    ASSERT_EQ(::chmod(shared.path().c_str(), 01777), 0);
    for (bool hardlinked : {false, true}) {
        SCOPED_TRACE(hardlinked ? "hard-linked" : "single");
        test::TempDir t;
        ASSERT_EQ(::chmod(t.path().c_str(), 0777), 0);
        const fs::path p = make(t, "keep me", hardlinked);
        ASSERT_EQ(::chmod(p.c_str(), 0444), 0);
        const fs::path s = shared.path() / (hardlinked ? "s1" : "s0");
        EXPECT_EQ(test::rununprivileged([&] { return replace(p, "overwritten", s); }), errtext(EACCES, "Permission denied"));
        EXPECT_EQ(readfile(p), "keep me");
        EXPECT_EQ(entries(t.path()).size(), hardlinked ? 2u : 1u);
    }
}

TEST_F(SafeReplaceTest, FailureAtEveryStepLeavesTheOriginal)
{
    // Each scenario runs once to learn its steps, then with each step failing
    // in turn; alwaysstep fails every time, to force the other route.
    const struct {
        std::string what;
        bool hardlinked, create;
        std::string alwaysstep;
    } scenarios[] = {
        {"same directory", false, false, ""},
        {"same directory, hidden name", false, false, "open-tmpfile"},
        {"hard-linked", true, false, ""},
        {"new file", false, true, ""},
    };
    // After these steps of the copy in place the file may hold part of the
    // new content; the scratch file then holds all of it.
    const Names inplacesteps = {"copy-read", "copy-write", "truncate-target", "sync-target"};
    const std::string original = counted(1500000, 'o'), after = counted(2500000, 'n');
    for (const auto& sc : scenarios) {
        test::TempDir t;
        const fs::path p = t.path() / "f";
        auto run = [&](int failat) {
            for (const auto& e : fs::directory_iterator(t.path()))
                fs::remove(e.path());
            if (!sc.create)
                make(t, original, sc.hardlinked);
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
        const Names names = sc.hardlinked ? Names{"f", "twin"} : Names{"f"};
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            SCOPED_TRACE(sc.what + ": step " + std::to_string(k) + " " + steps[k - 1]);
            const bool failed = run(static_cast<int>(k)).first != "ok";
            EXPECT_EQ(entries(t.path()), sc.create && failed ? Names{} : names) << "no stray file";
            // Some steps have a way around them, and the sync after the swap
            // can fail without harm.
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

// A tiny tmpfs in a mount namespace of a child's own where that can be had,
// else a file size limit in a child.
TEST_F(SafeReplaceTest, FullDiskLeavesTheOriginal)
{
    const std::string original = counted(40000, 'f'), after = counted(150000, 'g');
    for (bool hardlinked : {false, true}) {
        test::TempDir t;
        const fs::path mnt = t.path() / "mnt";
        fs::create_directory(mnt);
        const std::string seen = test::runinchild([&]() -> std::string {
            const bool tmpfs = ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0
                && ::mount("tmpfs", mnt.c_str(), "tmpfs", 0, "size=128k") == 0;
            std::ofstream(mnt / "f", std::ios::binary) << original;
            if (hardlinked)
                fs::create_hard_link(mnt / "f", mnt / "twin");
            if (!tmpfs) {
                ::signal(SIGXFSZ, SIG_IGN);
                rlimit limit{60000, 60000};
                ::setrlimit(RLIMIT_FSIZE, &limit);
            }
            // The copy in place takes its room before it starts: a full disk
            // shows there, not in a short write.
            const std::string expected = tmpfs ? (hardlinked ? "" : "short ") + errtext(ENOSPC, "No space left on device")
                                               : "short " + errtext(EFBIG, "File too large");
            const std::string outcome = replace(mnt / "f", after, scratch());
            return (outcome == expected ? "" : outcome + " ") + (readfile(mnt / "f") == original ? "" : "CHANGED ")
                + std::to_string(entries(mnt).size());
        });
        EXPECT_EQ(seen, hardlinked ? "2" : "1");
    }
}

}  // namespace
}  // namespace brindlex
