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
        const char *temp, *tmpdir;
        std::string expected;
    } rows[] = {
        {"/w/here", "/elsewhere", "/w/here"},
        {"", "/t", "/t/" + own},
        {nullptr, "", "/tmp/" + own},
        {nullptr, nullptr, "/tmp/" + own},
    };
    for (const auto& row : rows) {
        EnvVar temp("BRINDLEX_TEMP", row.temp);
        EnvVar tmpdir("TMPDIR", row.tmpdir);
        EXPECT_EQ(scratchfilepath(), fs::path(row.expected) / "brindlex.tmp");
        EXPECT_EQ(logfilepath(), fs::path(row.expected) / "brindlex.log.txt");
    }
}

TEST(WorkDir, CreatedPrivateAndRefusedWhenNotSafe)
{
    test::TempDir tmp;
    {
        EnvVar temp("BRINDLEX_TEMP", nullptr);
        EnvVar tmpdir("TMPDIR", tmp.path().c_str());
        const auto dir = preparedworkdir();
        ASSERT_TRUE(dir);
        struct stat st {};
        ASSERT_EQ(::lstat(dir->c_str(), &st), 0);
        EXPECT_TRUE(S_ISDIR(st.st_mode));
        EXPECT_EQ(st.st_mode & 07777, 0700u);
        EXPECT_EQ(preparedworkdir(), dir) << "an existing work directory is used again";
    }
    tmp.write("file", "x");
    fs::create_directory_symlink(tmp.path(), tmp.path() / "link");
    for (const char* name : {"link", "file", "missing-parent/dir"}) {
        EnvVar temp("BRINDLEX_TEMP", (tmp.path() / name).c_str());
        EXPECT_FALSE(preparedworkdir()) << name;
    }
    // The child is nobody under root; otherwise "/" is someone else's.
    const fs::path foreign = test::runningasroot() ? tmp.path() : fs::path("/");
    EXPECT_EQ(test::rununprivileged([&] {
                  ::setenv("BRINDLEX_TEMP", foreign.c_str(), 1);
                  return std::string(preparedworkdir() ? "usable" : "refused");
              }),
              "refused");
}

}  // namespace
}  // namespace brindlex
