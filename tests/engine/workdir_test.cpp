#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

#include "engine/core/workdir.h"
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

}  // namespace
}  // namespace brindlex
