#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

namespace fs = std::filesystem;

// Sets or clears an environment variable for one test and puts it back.
class EnvVar {
public:
    EnvVar(const char* name, const char* value) : name_(name)
    {
        if (const char* old = std::getenv(name))
            old_ = old;
        value ? ::setenv(name, value, 1) : ::unsetenv(name);
    }
    ~EnvVar() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

private:
    const char* name_;
    std::optional<std::string> old_;
};

TEST(WorkDir, FromTheEnvironmentPrivateAndRefusedWhenNotSafe)
{
    test::TempDir tmp;
    {
        EnvVar temp("BRINDLEX_TEMP", nullptr);
        EnvVar tmpdir("TMPDIR", tmp.path().c_str());
        const fs::path own = tmp.path() / ("brindlex-" + std::to_string(::getuid()));
        EXPECT_EQ(scratchfilepath(), own / "brindlex.tmp");
        EXPECT_EQ(preparedworkdir().value_or(""), own);
        struct stat st {};
        ASSERT_EQ(::lstat(own.c_str(), &st), 0);
        EXPECT_TRUE(S_ISDIR(st.st_mode));
        EXPECT_EQ(st.st_mode & 07777, 0700u);
    }
    tmp.write("file", "x");
    fs::create_directory_symlink(tmp.path(), tmp.path() / "link");
    EnvVar tmpdir("TMPDIR", "/elsewhere");
    for (const char* name : {"link", "file"}) {
        EnvVar temp("BRINDLEX_TEMP", (tmp.path() / name).c_str());
        EXPECT_EQ(scratchfilepath(), tmp.path() / name / "brindlex.tmp") << "BRINDLEX_TEMP comes before TMPDIR";
        EXPECT_FALSE(preparedworkdir()) << name;
    }
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
    EnvVar temp("BRINDLEX_TEMP", nullptr);
    EnvVar tmpdir("TMPDIR", tmp.path().c_str());
    const fs::path taken = tmp.path() / ("brindlex-" + std::to_string(test::unprivilegeduid()));
    ASSERT_EQ(test::runas(test::kOtherUid, test::kOtherGid, [&] {
        return std::to_string(::mkdir(taken.c_str(), 0777) + ::chmod(taken.c_str(), 0777));
    }), "0");
    const std::string seen = test::rununprivileged([&] {
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
