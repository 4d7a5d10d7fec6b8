// The run log as a file. The lines themselves are checked against the model
// of the scan (found, replaced) and by a logged run (the heads).
#include <gtest/gtest.h>

#include <string>

#include <sys/stat.h>

#include "engine/batch/runlog.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

TEST(RunLogLine, PositionsPastSevenDigitsAreWrittenInFull)
{
    EXPECT_EQ(logline("found   ", "/f", 10000000, "x"), "found    /f 10000000:   x  \r\n");
}

TEST(RunLogFile, AppendsMakesAnewPrivatelyAndIgnoresFailures)
{
    test::TempDir dir;
    const auto path = dir.path() / "run.log";
    dir.write("run.log", "old\r\n");
    RunLog log(path);
    log.writelog("find   ", "", -1, "A");
    EXPECT_EQ(test::readfile(path), "old\r\nfind      A  \r\n");

    std::filesystem::remove(path);   // deleted between two lines of a run
    log.writelog("found   ", "/f", 2, "a");
    EXPECT_EQ(test::readfile(path), "found    /f 0000002:   a  \r\n");
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);

    RunLog nowhere(dir.path() / "missing" / "run.log");
    nowhere.writelog("find   ", "", -1, "A");
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "missing"));
}

}  // namespace
}  // namespace brindlex
