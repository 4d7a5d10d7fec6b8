#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "core/workdir.h"
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

TEST(WorkDir, PathFromTheEnvironment)
{
    const std::string own = "brindlex-" + std::to_string(::getuid());
    const struct {
        const char* temp;
        const char* tmpdir;
        std::string expected;
    } cases[] = {
        {"/w/here", "/elsewhere", "/w/here"},
        {"", "/t", "/t/" + own},
        {nullptr, "/t", "/t/" + own},
        {nullptr, "", "/tmp/" + own},
        {nullptr, nullptr, "/tmp/" + own},
    };
    for (const auto& c : cases) {
        EnvVar temp("BRINDLEX_TEMP", c.temp);
        EnvVar tmpdir("TMPDIR", c.tmpdir);
        EXPECT_EQ(workdirpath(), fs::path(c.expected));
        EXPECT_EQ(scratchfilepath(), fs::path(c.expected) / "brindlex.tmp");
        EXPECT_EQ(logfilepath(), fs::path(c.expected) / "brindlex.log.txt");
    }
}

TEST(WorkDir, CreatedPrivate)
{
    test::TempDir tmp;
    EnvVar temp("BRINDLEX_TEMP", nullptr);
    EnvVar tmpdir("TMPDIR", tmp.path().c_str());
    auto dir = preparedworkdir();
    ASSERT_TRUE(dir);
    struct stat st {};
    ASSERT_EQ(::lstat(dir->c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777, 0700u);
    EXPECT_EQ(*dir, tmp.path() / ("brindlex-" + std::to_string(::getuid())));
    EXPECT_EQ(preparedworkdir(), dir) << "an existing work directory is used again";
}

TEST(WorkDir, RefusedWhenNotSafe)
{
    test::TempDir tmp;
    tmp.write("file", "x");
    fs::create_directory(tmp.path() / "real");
    fs::create_directory_symlink("real", tmp.path() / "link");
    const struct {
        std::string name;
        bool usable;
    } cases[] = {
        {"real", true},
        {"link", false},
        {"file", false},
        {"missing-parent/dir", false},
    };
    for (const auto& c : cases) {
        EnvVar temp("BRINDLEX_TEMP", (tmp.path() / c.name).c_str());
        EXPECT_EQ(preparedworkdir().has_value(), c.usable) << c.name;
    }
}

TEST(WorkDir, RefusedWhenOwnedBySomeoneElse)
{
    test::TempDir tmp;
    // The child is nobody under root; otherwise "/" is someone else's.
    const fs::path foreign = test::runningasroot() ? tmp.path() : fs::path("/");
    std::string seen = test::rununprivileged([&] {
        ::setenv("BRINDLEX_TEMP", foreign.c_str(), 1);
        return std::string(preparedworkdir() ? "usable" : "refused");
    });
    EXPECT_EQ(seen, "refused");
}

}  // namespace
}  // namespace brindlex
