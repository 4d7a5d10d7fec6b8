#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <string>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "engine/core/faultinject.h"
#include "engine/core/journal.h"
#include "engine/core/rewrite.h"
#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"
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
std::string replace(const fs::path& target, const std::string& content, const fs::path& scratch)
{
    Error error;
    auto r = SafeReplace::begin(target, scratch, error);
    if (!r)
        return "begin " + errtext(error.code, error.text);
    for (std::size_t at = 0; at < content.size(); at += 1000000)
        r->write(std::string_view(content).substr(at, 1000000));
    const bool lengthok = r->writtenlength() == static_cast<std::int64_t>(content.size());
    Error e = r->commit();
    return (lengthok ? "" : "short ") + (e ? errtext(e.code, e.text) : "ok") + (e || r->notice().empty() ? "" : " " + r->notice());
}

// cap_net_raw+ep, as setcap(8) stores it.
const std::string kCapNetRaw("\x01\x00\x00\x02\x00\x20\x00\x00\0\0\0\0\0\0\0\0\0\0\0\0", 20);

class SafeReplaceTest : public ::testing::Test {
protected:
    void TearDown() override { faultinject::disarm(); }
    fs::path scratch() const { return work.path() / "brindlex.tmp"; }
    // dir/f, with a second name "twin" when hard-linked, which forces the
    // copy in place.
    static fs::path make(const test::TempDir& dir, const std::string& content, bool hardlinked)
    {
        fs::path p = dir.write("f", content);
        if (hardlinked)
            fs::create_hard_link(p, dir.path() / "twin");
        return p;
    }

    test::TempDir work;  // the work directory
};

// An ordinary user's write clears the set-id bits of the file written: the
// rows run as that user check that either route gives the mode back. Any
// write clears file capabilities: root gets them back, an ordinary user
// (who may not set them) is told they were dropped. (A replace through a
// symbolic link is the run's real-names case.)
TEST_F(SafeReplaceTest, NewContentKeepsModeOwnerAndLinks)
{
    const struct { mode_t mode; bool hardlinked, unprivileged; } rows[] = {
        {04750, false, false}, {0604, true, false}, {06755, false, true}, {06755, true, true}};
    const std::string after = counted(3 << 20, 'a');
    ASSERT_EQ(::chmod(work.path().c_str(), 01777), 0);
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.hardlinked ? "hard-linked" : "one name") + (row.unprivileged ? ", as an ordinary user" : ""));
        test::TempDir t;
        fs::remove(scratch());
        const fs::path p = make(t, std::string("nul\0in\0it", 9), row.hardlinked);
        for (const fs::path& owned : {t.path(), p})
            ASSERT_EQ(::chown(owned.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
        ASSERT_EQ(::chmod(p.c_str(), row.mode), 0);
        const bool caps = test::runningasroot();
        ASSERT_TRUE(!caps || ::setxattr(p.c_str(), "security.capability", kCapNetRaw.data(), kCapNetRaw.size(), 0) == 0);
        struct stat st {};
        ASSERT_EQ(::lstat(p.c_str(), &st), 0);
        const ino_t inode = st.st_ino;
        ASSERT_EQ(row.unprivileged ? test::rununprivileged([&] { return replace(p, after, scratch()); }) : replace(p, after, scratch()),
                  caps && row.unprivileged ? "ok File capabilities dropped (Operation not permitted): only root can set them"
                                           : "ok");
        char cap[64];
        const ssize_t n = ::getxattr(p.c_str(), "security.capability", cap, sizeof cap);
        EXPECT_EQ(n > 0 ? std::string(cap, static_cast<std::size_t>(n)) : "", caps && !row.unprivileged ? kCapNetRaw : "");
        EXPECT_EQ(readfile(p), after);
        ASSERT_EQ(::lstat(p.c_str(), &st), 0);
        EXPECT_EQ(st.st_mode & 07777, row.mode);
        EXPECT_EQ(st.st_uid, test::unprivilegeduid());
        // A single name gets a new file swapped in; a hard-linked one is
        // copied over in place, through the scratch file, so both names
        // see the new content.
        EXPECT_EQ(st.st_ino == inode, row.hardlinked);
        EXPECT_EQ(fs::exists(scratch()), row.hardlinked);
        if (row.hardlinked) {
            EXPECT_EQ(readfile(t.path() / "twin"), after);
        }
        EXPECT_EQ(entries(t.path()).size(), 1u + row.hardlinked);
    }
}

TEST_F(SafeReplaceTest, FileChangedSinceTheReaderOpenedItIsNotReplaced)
{
    // What another program does: a rewrite to the same size changes only the
    // times, one that sets the mtime back only the ctime, a rename over the
    // file only the inode, a replace of ours that came first both. When:
    // after the reader's open and before begin, or between begin and commit.
    enum What { SameSize, MtimeSetBack, RenamedOver, OursFirst };
    for (bool hardlinked : {false, true}) {
        for (bool beforebegin : {false, true}) {
            for (What what : {SameSize, MtimeSetBack, RenamedOver, OursFirst}) {
                SCOPED_TRACE(std::to_string(what) + (beforebegin ? " before begin" : " before commit")
                             + (hardlinked ? ", hard-linked" : ""));
                test::TempDir t;
                const fs::path p = make(t, "original", hardlinked);
                OpenedFile opened;
                ASSERT_FALSE(openbinary(p, opened));
                auto act = [&] {
                    if (what == SameSize || what == MtimeSetBack)
                        t.write("f", "Original");
                    if (what == MtimeSetBack) {
                        const timespec times[2] = {opened.st.st_atim, opened.st.st_mtim};
                        ::utimensat(AT_FDCWD, p.c_str(), times, 0);
                    }
                    else if (what == RenamedOver)
                        fs::rename(t.write("o", "theirs"), p);
                    else
                        EXPECT_EQ(replace(p, "ours", work.path() / "other.tmp"), "ok");
                };
                if (beforebegin)
                    act();
                Error e;
                auto r = SafeReplace::begin(p, scratch(), e, SafeReplace::Missing::Refuse, &opened);
                if (r) {
                    r->write("replacement");
                    if (!beforebegin)
                        act();
                }
                const std::string theirs = readfile(p);
                const Names names = entries(t.path());
                if (r)
                    e = r->commit();
                EXPECT_EQ(errtext(e.code, e.text), errtext(ESTALE, "File changed by another program since it was read"));
                EXPECT_EQ(readfile(p), theirs);
                EXPECT_EQ(entries(t.path()), names);
            }
        }
    }
}

// A process that dies between making its new file and the swap leaves it
// under a hidden name (without O_TMPFILE, or in the instant between naming
// and renaming); the next replace in that directory removes it, never the
// new file of a process still at work.
TEST_F(SafeReplaceTest, HiddenFilesOfDeadProcessesAreRemoved)
{
    test::TempDir t;
    make(t, "old", false);
    t.write("g", "old g");
    const faultinject::Plan nameless {0, 0, "open-tmpfile", EOPNOTSUPP};
    test::runinchild([&]() -> std::string {
        faultinject::arm(nameless);
        Error error;
        auto r = SafeReplace::begin(t.path() / "f", scratch(), error);
        if (r)
            r->write("half");
        std::_Exit(0);
    });
    ASSERT_EQ(entries(t.path()).size(), 3u) << "the dead process's file";
    faultinject::arm(nameless);
    Error error;
    auto working = SafeReplace::begin(t.path() / "f", scratch(), error);
    ASSERT_TRUE(working) << error.text;
    working->write("new f");
    EXPECT_EQ(replace(t.path() / "g", "new g", scratch()), "ok");
    EXPECT_FALSE(working->commit());
    EXPECT_EQ(entries(t.path()), (Names{"f", "g"}));
    EXPECT_EQ(readfile(t.path() / "f"), "new f");
}

TEST_F(SafeReplaceTest, FailureAtEveryStepLeavesTheOriginal)
{
    // Each scenario runs once to learn its steps, then with each step failing
    // in turn; alwaysstep fails every time, to force the other route. A file
    // emptied in place changes first at its cut, not at a write.
    const struct { const char* what; bool hardlinked; std::string alwaysstep; std::size_t newsize; } scenarios[] = {
        {"same directory", false, "", 1200000}, {"hidden name", false, "open-tmpfile", 1200000},
        {"hard-linked", true, "", 1200000}, {"hard-linked, emptied", true, "", 0}};
    const std::string original = counted(1100000, 'o');
    for (const auto& sc : scenarios) {
        const std::string after = counted(sc.newsize, 'n');
        test::TempDir t;
        auto run = [&](int failat) {
            for (const auto& e : fs::directory_iterator(t.path()))
                fs::remove(e.path());
            fs::remove(scratch());
            faultinject::arm({failat, EIO, sc.alwaysstep, EOPNOTSUPP});
            const std::string outcome = replace(make(t, original, sc.hardlinked), after, scratch());
            const auto steps = faultinject::log();
            faultinject::disarm();
            return std::pair(outcome, steps);
        };
        const auto [outcome, steps] = run(0);
        ASSERT_EQ(outcome, "ok") << sc.what;
        ASSERT_GE(steps.size(), 5u) << sc.what;
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            SCOPED_TRACE(sc.what + (": step " + std::to_string(k) + " " + steps[k - 1]));
            const std::string told = run(static_cast<int>(k)).first;
            EXPECT_EQ(entries(t.path()), (sc.hardlinked ? Names{"f", "twin"} : Names{"f"})) << "no stray file";
            // Some steps have a way around them, and the sync after the swap
            // can fail without harm. A copy in place that failed after its
            // first change is finished at the next start, and the run says
            // so; until then no other copy may take the scratch file.
            const bool failed = told != "ok", halfnew = failed && readfile(t.path() / "f") != original;
            EXPECT_EQ(told.find("at the next start") != std::string::npos, halfnew) << told;
            if (halfnew) {
                EXPECT_EQ(replace(t.path() / "twin", "other", scratch()),
                          "begin " + errtext(EBUSY, "Scratch file holds an unfinished copy"));
            }
            EXPECT_EQ(finishinterruptedcopy(scratch()).empty(), !halfnew);
            EXPECT_EQ(readfile(t.path() / "f"), failed && !halfnew ? original : after);
        }
    }
}

// A signal that comes during the copy in place of a hard-linked file, at
// its second write: SIGTERM and SIGHUP wait for the copy's end; after
// SIGKILL the next start finishes the copy from the scratch file, unless
// the file is no longer what the copy left: then nothing is written, the
// journal stays (no copy in place may take the scratch file) and the user
// is told. A start that can't get at the file keeps it all for a later one.
// A journal is applied only when it and the scratch file are regular files
// of the user's own in a directory no one else may write; else it is left
// alone, and a start never blocks on it. As in the attack where another
// user plants both in a shared directory that root uses. A start that finds
// another process copying waits for it, then says which file may be half new.
TEST_F(SafeReplaceTest, CopyInPlaceUnderSignals)
{
    using Outcome = Recovery::Outcome;
    const std::string original = counted(1100000, 'o'), after = counted(1200000, 'n'), anew = "23 bytes of a new file";
    const fs::path journal = scratch().string() + ".journal";
    test::TempDir elsewhere;
    const fs::path other = make(elsewhere, "other", true);
    FileHandle holder;
    // meanwhile: done to t (f and twin) before the next start; starts: what each following start does;
    // end: f at the end, "" for after, "half" for as the signal left it.
    const struct { const char* what; int sig; std::function<void(const test::TempDir& t)> meanwhile;
                   std::vector<Outcome> starts; std::string end; } rows[] = {
        {"", SIGTERM, nullptr, {Outcome::None}, ""}, {"", SIGHUP, nullptr, {Outcome::None}, ""},
        {"", SIGKILL, nullptr, {Outcome::Finished, Outcome::None}, ""},
        {"restored from a backup", SIGKILL, [&](const test::TempDir& t) { t.write("f", original); },
         {Outcome::Kept, Outcome::Kept}, original},
        {"deleted and made anew", SIGKILL,
         [&](const test::TempDir& t) { fs::remove(t.path() / "f"), fs::remove(t.path() / "twin"), t.write("f", anew); },
         {Outcome::Kept}, anew},
        {"its directory moved away for one start", SIGKILL,
         [](const test::TempDir& t) { fs::rename(t.path(), t.path().string() + ".away"); },
         {Outcome::Kept, Outcome::Finished, Outcome::None}, ""},
        {"a FIFO as the journal", SIGKILL, [&](const test::TempDir&) { fs::remove(journal), ::mkfifo(journal.c_str(), 0600); },
         {Outcome::Refused}, "half"},
        {"a FIFO as the scratch file", SIGKILL,
         [&](const test::TempDir&) { fs::remove(scratch()), ::mkfifo(scratch().c_str(), 0600); }, {Outcome::Refused}, "half"},
        {"a journal of another user's", SIGKILL,
         [&](const test::TempDir&) { ASSERT_EQ(::chown(journal.c_str(), test::kOtherUid, test::kOtherGid), 0); },
         {Outcome::Refused}, "half"},
        {"a journal cut short", SIGKILL, [&](const test::TempDir&) { fs::resize_file(journal, 200); }, {Outcome::Refused}, "half"},
        {"planted by another user in a shared directory", SIGKILL,
         [&](const test::TempDir&) {
             const std::string forged = readfile(journal);
             fs::rename(journal, work.path() / "mine.journal");
             fs::rename(scratch(), work.path() / "mine.tmp");
             ASSERT_EQ(::chmod(work.path().c_str(), 01777), 0);
             ASSERT_EQ(test::runas(test::kOtherUid, test::kOtherGid, [&] {
                 std::ofstream(journal, std::ios::binary) << forged;
                 std::ofstream(scratch(), std::ios::binary) << "owned by attacker\n";
                 return std::string("planted");
             }), "planted");
         },
         {Outcome::Refused}, "half"},
        {"another process copying through the scratch file", SIGKILL,
         [&](const test::TempDir&) { holder = FileHandle(::open(scratch().c_str(), O_RDONLY)), ::flock(holder.get(), LOCK_EX); },
         {Outcome::Busy}, "half"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.sig) + " " + row.what);
        if (std::string_view(row.what).find("another user") != std::string_view::npos && !test::runningasroot())
            continue;   // the other user's files need root to make
        ASSERT_EQ(::chmod(work.path().c_str(), 0700), 0);
        for (const auto& e : fs::directory_iterator(work.path()))
            fs::remove(e.path());
        test::TempDir t;
        const fs::path p = make(t, original, true), away = t.path().string() + ".away";
        // In a child that gets the signal at the copy's second write: it
        // learns the steps, then runs for real.
        const std::string died = test::runinchild([&]() -> std::string {
            faultinject::arm({0, 0, "", 0, 0, row.sig});
            replace(p, after, scratch());
            const auto steps = faultinject::log();
            int second = 0;
            for (std::size_t k = 0, writes = 0; k < steps.size() && !second; ++k)
                second = steps[k] == "copy-write" && ++writes == 2 ? static_cast<int>(k) + 1 : 0;
            std::ofstream(p, std::ios::binary) << original;
            faultinject::arm({0, 0, "", 0, second, row.sig});
            replace(p, after, scratch());
            return "lived";
        });
        const std::string half = readfile(p);
        EXPECT_EQ(died.rfind("child failed: status " + std::to_string(row.sig) + " ", 0), 0u) << died;
        EXPECT_EQ(half != after, row.sig == SIGKILL);
        if (row.meanwhile)
            row.meanwhile(t);
        for (const Outcome expected : row.starts) {
            const std::string told = test::runinchild([&] {
                ::alarm(20);
                const Recovery r = recoverinterruptedcopy(scratch(), std::chrono::milliseconds(50));
                return std::to_string(static_cast<int>(r.outcome)) + " " + r.message;
            });
            EXPECT_EQ(told.rfind(std::to_string(static_cast<int>(expected)) + " ", 0), 0u) << told;
            if (expected != Outcome::Finished && expected != Outcome::None) {
                EXPECT_NE(told.find(expected == Outcome::Busy ? p.string() : journal.string()), std::string::npos) << told;
            }
            if (expected == Outcome::Kept) {
                EXPECT_EQ(replace(other, "x", scratch()), "begin " + errtext(EBUSY, "Scratch file holds an unfinished copy"));
            }
            if (fs::exists(away))
                fs::rename(away, t.path());
        }
        EXPECT_EQ(readfile(p), row.end == "half" ? half : row.end.empty() ? after : row.end);
        EXPECT_EQ(row.end.empty(), readfile(t.path() / "twin") == after);
        EXPECT_EQ(fs::exists(fs::symlink_status(journal)), row.end != "");
        holder.close();
    }
}

// What a start finds against a journal, with blocks of 4 bytes: old
// "AAAABBBBCC", new "aaaabbbbccdd"; `chunk` the step's block, `before` its
// bytes before the write, the target's ctime the step's or a later one.
TEST_F(SafeReplaceTest, JournalFinishesOnlyWhatTheCutShortCopyLeft)
{
    using V = JournalVerdict;
    const struct { const char* target; std::int64_t chunk; const char* before; bool newctime; V verdict; } rows[] = {
        {"AAAABBBBCC", -1, "", false, V::Resume},           // nothing written yet
        {"AAAABBBBCC", -1, "", true, V::Doubt},             // ... but written by someone: restored
        {"aaaaBBBBCC", 1, "BBBB", false, V::Resume},        // block 1 about to change
        {"aaaabbBBCC", 1, "BBBB", true, V::Resume},         // ... half written
        {"aaaabbbbCC", 1, "BBBB", true, V::Resume},         // ... written
        {"aaaaBBBBCC", 1, "BBBB", true, V::Doubt},          // ... as it was, yet the ctime moved
        {"AAAABBBBCC", 1, "BBBB", true, V::Doubt},          // restored from a backup
        {"aaaaBBBBCX", 1, "BBBB", false, V::Doubt},         // a later block changed
        {"aaaXBBBBCC", 1, "BBBB", false, V::Doubt},         // an earlier block not as written
        {"aaaaBBBB", 1, "BBBB", true, V::Doubt},            // cut
        {"aaaaBBBBCC!", 1, "BBBB", true, V::Doubt},         // grown
        {"aaaabbbbccd", 2, "CC", true, V::Resume},          // the last block, growing
        {"aaaabbbbcCd", 2, "CC", true, V::Doubt},
        {"aaaabbbbccdd", 2, "CC", true, V::Complete},
        {"aaaabbbbccdd", -1, "", true, V::Complete},
        {"23 bytes of a new file.", -1, "", true, V::Doubt},
    };
    test::TempDir t;
    const fs::path target = t.write("f", "AAAABBBBCC"), from = t.write("new", "aaaabbbbccdd");
    FileHandle oldfd(::open(target.c_str(), O_RDWR)), newfd(::open(from.c_str(), O_RDONLY));
    struct stat st {}, sst {};
    ASSERT_TRUE(::fstat(oldfd.get(), &st) == 0 && ::fstat(newfd.get(), &sst) == 0);
    CopyJournal journal{target.string(), st.st_dev, st.st_ino, 10, 0644, {}, {}, sst.st_dev, sst.st_ino, 12, 0, 4, {}};
    ASSERT_FALSE(hashcontents(oldfd.get(), newfd.get(), journal));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.target + std::string(" at ") + std::to_string(row.chunk));
        ASSERT_EQ(::ftruncate(oldfd.get(), 0), 0);
        ASSERT_EQ(::pwrite(oldfd.get(), row.target, std::strlen(row.target), 0), static_cast<ssize_t>(std::strlen(row.target)));
        ASSERT_EQ(::fstat(oldfd.get(), &st), 0);
        const JournalStep step{0, row.chunk, row.newctime ? timespec{} : st.st_ctim, row.before};
        std::string why;
        EXPECT_EQ(verifyjournal(journal, step, oldfd.get(), newfd.get(), why), row.verdict) << why;
    }
    // A target's name of any length is read back whole, with the last step.
    journal.target = "/" + std::string(100000, 'p');
    JournalWriter writer;
    ASSERT_FALSE(JournalWriter::create(work.path() / "j", journal, st.st_ctim, writer));
    ASSERT_FALSE(writer.record(1, st.st_ctim, "BBBB"));
    const JournalLoad back = loadjournal(work.path() / "j");
    EXPECT_EQ(back.error.text, "");
    EXPECT_TRUE(back.journal.target == journal.target && back.journal.oldHashes == journal.oldHashes);
    EXPECT_EQ(back.step.chunk, 1);
    EXPECT_EQ(back.step.before, "BBBB");
}

// A file with holes keeps them where its new content has pages of zeros,
// whichever way the writes cut those pages; one without holes is written
// whole. The content is exact either way, a hole at its end included.
TEST_F(SafeReplaceTest, ASparseFileKeepsItsHoles)
{
    test::TempDir t;
    const fs::path probe = t.path() / "probe";
    ASSERT_TRUE(test::sparsefile(probe, 1 << 20, {}));
    struct stat st {};
    ASSERT_EQ(::stat(probe.c_str(), &st), 0);
    if (st.st_blocks != 0)
        GTEST_SKIP() << t.path() << " has no holes";
    constexpr std::size_t kSize = 3 << 20;
    std::string islands(kSize, '\0');   // data here and there, at no page's edge
    for (const std::size_t at : {std::size_t {0}, std::size_t {5000}, std::size_t {1 << 20} - 3, std::size_t {2 << 20} + 4095})
        islands.replace(at, 6, "island");
    const struct { const char* what; std::string content; std::size_t blocksAtMost; } contents[] = {
        {"islands", islands, 6 * 4096},
        {"zeros to the end", counted(70000, 'z') + std::string(kSize, '\0'), 20 * 4096},
        {"zeros only", std::string(kSize, '\0'), 0},
        {"no zeros", counted(kSize, 'n'), kSize},
    };
    for (const bool sparse : {true, false}) {
        for (const auto& [what, content, blocksAtMost] : contents) {
            for (const std::size_t cut : {std::size_t {1000}, std::size_t {4096}, std::size_t {1} << 20}) {
                SCOPED_TRACE(std::string(sparse ? "sparse, " : "whole, ") + what + ", writes of " + std::to_string(cut));
                const fs::path p = t.path() / "f";
                fs::remove(p);
                if (sparse)
                    ASSERT_TRUE(test::sparsefile(p, kSize, {{0, "old"}}));
                else
                    t.write("f", std::string(kSize, '\0'));
                Error error;
                auto r = SafeReplace::begin(p, scratch(), error);
                ASSERT_TRUE(r) << error.text;
                for (std::size_t at = 0; at < content.size(); at += cut)
                    ASSERT_TRUE(r->write(std::string_view(content).substr(at, cut)));
                EXPECT_EQ(r->writtenlength(), static_cast<std::int64_t>(content.size()));
                ASSERT_FALSE(r->commit());
                EXPECT_TRUE(readfile(p) == content);
                ASSERT_EQ(::stat(p.c_str(), &st), 0);
                const auto allocated = static_cast<std::size_t>(st.st_blocks) * 512;
                if (sparse)
                    EXPECT_LE(allocated, blocksAtMost);
                else
                    EXPECT_GE(allocated, content.size() / 4096 * 4096);
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
            const bool tmpfs = test::mountsmalldisk(mnt);
            std::ofstream(mnt / "f", std::ios::binary) << original;
            if (hardlinked)
                fs::create_hard_link(mnt / "f", mnt / "twin");
            if (!tmpfs)
                test::limitfilesize(60000);
            // The copy in place takes its room before it starts: a full disk
            // shows there, not in a short write.
            const std::string expected = tmpfs ? (hardlinked ? "" : "short ") + errtext(ENOSPC, "No space left on device")
                                               : "short " + errtext(EFBIG, "File too large");
            const std::string outcome = replace(mnt / "f", after, scratch());
            return (outcome == expected ? "" : outcome + " ") + (readfile(mnt / "f") == original ? "" : "CHANGED ")
                + (finishinterruptedcopy(scratch()).empty() ? "" : "FINISHED ") + std::to_string(entries(mnt).size());
        });
        EXPECT_EQ(seen, hardlinked ? "2" : "1");
    }
}

// The check and commit that ends a batch rewrite and the viewer's save: each
// outcome with its reason, its message and what the file holds afterwards.
TEST(CommitRewrite, EachOutcomeWithItsReasonAndMessage)
{
    // outcome: failure, length, reason ("<dir>/" for the directory), then the message.
    const struct { const char* what; std::int64_t lLenChange; faultinject::Plan plan; bool begins;
                   std::string outcome, after; } rows[] = {
        {"a change the edits don't account for", 0, {}, true,
         "1 -1 f: File changed by another program since it was read|Cannot replace! ERROR in file lengths for <dir>/f",
         "xax"},
        {"a SafeReplace that could not begin", 1, {}, false,
         "1 -1 scratch: in use|Cannot replace! ERROR in file lengths for <dir>/f", "xax"},
        // The usual route copies from the new file beside the user's, by the
        // hidden name it had when the swap failed.
        {"the swap fails", 1, {.alwaysStep = "rename", .alwaysCode = EIO}, true,
         "2 3 f: " + std::string(std::strerror(EIO)) + "|" + std::strerror(EIO) + " copying <dir>/.f", "xax"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        const std::string f = dir.write("f", "xax").string();
        faultinject::arm(row.plan);
        Error begun{EBUSY, "in use", "scratch"};
        std::unique_ptr<SafeReplace> replace = row.begins ? SafeReplace::begin(f, dir.path() / "scratch", begun) : nullptr;
        if (replace)
            replace->write("xbcx");
        const Rewrite r = commitrewrite(replace.get(), begun, f, row.lLenChange);
        faultinject::disarm();
        std::string message = dir.shown(rewritemessage(r, f));
        // A hidden name ends in a unique tag: only its head is compared.
        if (const std::size_t at = message.find("/.f."); at != std::string::npos)
            message.resize(at + 3);
        const std::string reason = r.reason ? r.reason.path.filename().string() + ": " + r.reason.text : "";
        EXPECT_EQ(std::to_string(static_cast<int>(r.failure)) + " " + std::to_string(r.lLength) + " " + reason + "|" + message,
                  row.outcome);
        EXPECT_EQ(test::readfile(f), row.after);
    }
}

// In a child, whose environment needs no putting back.
TEST(WorkDir, FromTheEnvironmentPrivateAndRefusedWhenNotSafe)
{
    test::TempDir tmp;
    tmp.write("file", "x");
    fs::create_directory_symlink(tmp.path(), tmp.path() / "link");
    const fs::path own = tmp.path() / ("brindlex-" + std::to_string(::getuid()));
    EXPECT_EQ(test::runinchild([&] {
        ::unsetenv("BRINDLEX_TEMP");
        ::setenv("TMPDIR", tmp.path().c_str(), 1);
        std::string seen = scratchfilepath() == own / "brindlex.tmp" && preparedworkdir() == own ? "own" : "not own";
        struct stat st {};
        seen += ::lstat(own.c_str(), &st) == 0 && S_ISDIR(st.st_mode) ? " " + std::to_string(st.st_mode & 07777) : " none";
        // BRINDLEX_TEMP comes before TMPDIR; what is not a directory of the user's own is refused.
        ::setenv("TMPDIR", "/elsewhere", 1);
        for (const char* name : {"link", "file"}) {
            ::setenv("BRINDLEX_TEMP", (tmp.path() / name).c_str(), 1);
            seen += scratchfilepath() == tmp.path() / name / "brindlex.tmp" && !preparedworkdir() ? " refused" : " taken";
        }
        return seen;
    }), "own " + std::to_string(0700) + " refused refused");
}

// Another user makes the victim's work directory first, open to all, in the
// shared TMPDIR: the victim's runs take a private directory of their own,
// say so, and keep to it; a replace through the scratch file still works.
TEST(WorkDir, TakenByAnotherUserGivesWayToAPrivateOne)
{
    if (!test::runningasroot())
        GTEST_SKIP() << "two users need root to switch between";
    test::TempDir tmp;
    ASSERT_EQ(::chmod(tmp.path().c_str(), 01777), 0);
    const fs::path taken = tmp.path() / ("brindlex-" + std::to_string(test::unprivilegeduid()));
    ASSERT_EQ(test::runas(test::kOtherUid, test::kOtherGid, [&] {
        return std::to_string(::mkdir(taken.c_str(), 0777) + ::chmod(taken.c_str(), 0777));
    }), "0");
    const std::string seen = test::rununprivileged([&] {
        ::unsetenv("BRINDLEX_TEMP");
        ::setenv("TMPDIR", tmp.path().c_str(), 1);
        const fs::path used = preparedworkdir().value_or("");
        struct stat st {};
        if (used.empty() || used == taken || ::lstat(used.c_str(), &st) != 0)
            return "no private directory: " + used.string();
        const std::string note = workdirnote();
        const fs::path f = used / "f";
        std::ofstream(f) << "old";
        fs::create_hard_link(f, used / "twin");
        const Error replaced = replacefilecontent(f, "new", scratchfilepath());
        return std::to_string(st.st_mode & 07777) + (st.st_uid == ::geteuid() ? " mine" : " theirs")
            + (note == "The work directory " + taken.string() + " can't be used (it belongs to another user): using "
                           + used.string() + " instead" ? " told" : " [" + note + "]")
            + (workdirnote().empty() ? " once" : "") + (preparedworkdir() == used ? " kept" : "")
            + (scratchfilepath() == used / "brindlex.tmp" ? " scratch" : "") + " " + test::readfile(used / "twin")
            + (replaced ? " " + replaced.text : "");
    });
    EXPECT_EQ(seen, std::to_string(0700) + " mine told once kept scratch new");
}

}  // namespace
}  // namespace brindlex
