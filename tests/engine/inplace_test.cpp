// Equal-length edits written in place: whatever stops the commit (a failed
// step, a kill), the file is old or new once the next start has rolled the
// undo journal back, and a journal that can't be proven is never applied.
#include <gtest/gtest.h>

#include <csignal>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <unistd.h>

#include "engine/core/faultinject.h"
#include "engine/core/inplace.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;
using test::readfile;

// Edits: two bytes close together, one longer than the journal's piece of the
// file, one at the end.
constexpr std::int64_t kSize = 5 << 18;
struct Edit { std::int64_t at; std::string bytes; };
const std::vector<Edit> kEdits = {{10, "X"}, {20, "W"}, {5000, std::string(1100000, 'Y')}, {kSize - 3, "ZZZ"}};
std::string content(bool edited)
{
    std::string s(kSize, '\0');
    for (std::size_t i = 0; i < s.size(); ++i)
        s[i] = static_cast<char>('a' + i % 23);
    for (const Edit& e : edited ? kEdits : std::vector<Edit>())
        s.replace(static_cast<std::size_t>(e.at), e.bytes.size(), e.bytes);
    return s;
}
const std::string kOriginal = content(false), kEdited = content(true);

// The edits of `file`, journalled in `work`: "ok" or the commit's error.
std::string editfile(const fs::path& file, const fs::path& work)
{
    OpenedFile opened;
    if (Error e = openbinary(file, opened))
        return "open " + e.text;
    Error error;
    auto edit = InPlaceEdit::begin(file, opened, work, error);
    if (!edit)
        return "begin " + error.text;
    for (const Edit& e : kEdits)
        edit->add(e.at, std::string_view(kOriginal).substr(static_cast<std::size_t>(e.at), e.bytes.size()), e.bytes);
    const Error e = edit->commit();
    return e ? e.text : "ok";
}

// Runs the edits in a child armed with `plan`; what they said, or "killed".
std::string editinchild(const fs::path& file, const fs::path& work, const faultinject::Plan& plan)
{
    return test::runinchild([&] {
        faultinject::arm(plan);
        return editfile(file, work);
    });
}

struct World {
    test::TempDir dir;
    fs::path file = dir.write("data/f", kOriginal), work = dir.path() / "work";
    World()
    {
        fs::create_directories(work);
        fs::permissions(work, fs::perms::owner_all, fs::perm_options::replace);
    }
};

// The steps of a whole edit that no fault stops.
std::vector<std::string> editsteps()
{
    World probe;
    faultinject::arm({});
    EXPECT_EQ(editfile(probe.file, probe.work), "ok");
    const std::vector<std::string> steps = faultinject::log();
    faultinject::disarm();
    EXPECT_EQ(readfile(probe.file), kEdited);
    return steps;
}

TEST(InPlaceEdit, FailedOrKilledAtEveryStepTheFileEndsOldOrNew)
{
    const std::vector<std::string> steps = editsteps();
    ASSERT_GE(steps.size(), 8u);
    int half = 0;
    for (const bool kill : {false, true}) {
        for (std::size_t k = 1; k <= steps.size(); ++k) {
            SCOPED_TRACE((kill ? "killed at step " : "failed at step ") + std::to_string(k) + " " + steps[k - 1]);
            World w;
            const faultinject::Plan plan = kill ? faultinject::Plan{0, 0, "", 0, static_cast<int>(k), SIGKILL}
                                                : faultinject::Plan{static_cast<int>(k), EIO, "", 0, 0, 0};
            const std::string told = editinchild(w.file, w.work, plan);
            const std::string left = readfile(w.file);
            const bool mixed = left != kOriginal && left != kEdited;
            half += mixed;
            // A failure undoes its writes at once, or says the next start will.
            EXPECT_TRUE(kill || !mixed || told.find("at the next start") != std::string::npos) << told;
            const std::string undone = rollbackinplaceedits(w.work);
            EXPECT_TRUE(!mixed || !undone.empty()) << "a half new file must be rolled back";
            EXPECT_TRUE(readfile(w.file) == kOriginal || (readfile(w.file) == kEdited && (kill || told == "ok")));
            EXPECT_EQ(test::entrycount(w.work), 0) << "no journal left";
        }
    }
    EXPECT_GT(half, 0) << "no kill came between the first write and the last";
}

// A journal left by a kill midway, then something is off: it is never
// applied, it stays, and the user is told.
TEST(InPlaceEdit, JournalThatCannotBeProvenIsLeftAlone)
{
    // The step whose kill leaves the file half new: after the first write.
    const std::vector<std::string> steps = editsteps();
    const int firstwrite = static_cast<int>(std::find(steps.begin(), steps.end(), "inplace-write") - steps.begin()) + 1;
    struct Row { const char* what; std::function<void(World&, const fs::path& journal)> spoil; bool asuser; const char* said; };
    const Row rows[] = {
        {"another user's journal", [](World&, const fs::path& j) { ASSERT_EQ(::chown(j.c_str(), 4242, 4242), 0); },
         false, "not this user's own"},
        {"a journal others may read", [](World&, const fs::path& j) { fs::permissions(j, fs::perms::others_read, fs::perm_options::add); },
         false, "not this user's own"},
        {"a truncated journal", [](World&, const fs::path& j) { fs::resize_file(j, fs::file_size(j) - 1); }, false,
         "incomplete or damaged"},
        {"the file changed at an edit", [](World& w, const fs::path&) {
             std::fstream(w.file, std::ios::in | std::ios::out | std::ios::binary).seekp(10).put('#');
         }, false, "changed by another program"},
        {"another file in its place", [](World& w, const fs::path&) {
             const std::string now = readfile(w.file);
             fs::remove(w.file);
             w.dir.write("data/f", now);
         }, false, "changed by another program"},
        {"a file the user may not write", [](World& w, const fs::path&) {
             fs::permissions(w.file, fs::perms::owner_read, fs::perm_options::replace);
         }, true, "Permission denied"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        World w;
        auto body = [&] {
            const std::string told = editinchild(w.file, w.work, {0, 0, "", 0, firstwrite + 1, SIGKILL});
            if (told.find("child failed") == std::string::npos)
                return "not killed: " + told;
            fs::path journal;
            for (const auto& e : fs::directory_iterator(w.work))
                journal = e.path();
            if (journal.empty())
                return std::string("no journal");
            row.spoil(w, journal);
            const std::string before = readfile(w.file);
            const std::string said = rollbackinplaceedits(w.work);
            return std::string(said.find(row.said) != std::string::npos ? "told" : "not told: " + said)
                + (fs::exists(journal) ? ", kept" : ", removed") + (readfile(w.file) == before ? ", untouched" : ", WRITTEN");
        };
        if (row.asuser) {
            for (const fs::path& p : {w.dir.path(), w.dir.path() / "data", w.work, w.file})
                ASSERT_EQ(::chown(p.c_str(), test::unprivilegeduid(), test::unprivilegedgid()), 0);
        }
        EXPECT_EQ(row.asuser ? test::rununprivileged(body) : body(), "told, kept, untouched");
    }
}

}  // namespace
}  // namespace brindlex
