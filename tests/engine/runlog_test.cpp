// The run log as a file. The lines themselves are checked against the model
// of the scan (found, replaced) and by a logged run (the heads).
#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include <unistd.h>

#include <sys/stat.h>

#include "engine/batch/runlog.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

TEST(RunLogLine, PositionsPastSevenDigitsAreWrittenInFull)
{
    EXPECT_EQ(logline("found   ", "/f", 10000000, "x"), "found    /f 10000000:   x  \r\n");
}

TEST(RunLogFile, AppendsAndMakesAnewPrivately)
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
    EXPECT_FALSE(log.failure());
}

// A log that can't be had or written fails with its reason, and what is at
// the name (a link's target, another user's file) is left as it was.
TEST(RunLogFile, RefusesWhatIsNotTheUsersOwnAndKeepsTheFailure)
{
    test::TempDir dir;
    const auto victim = dir.write("victim", "precious");
    std::filesystem::create_symlink(victim, dir.path() / "link.log");
    ::chown(dir.write("theirs.log", "theirs").c_str(), test::unprivilegeduid(), test::unprivilegedgid());
    ::chmod((dir.path() / "theirs.log").c_str(), 0666);
    ASSERT_EQ(::mkfifo((dir.path() / "fifo.log").c_str(), 0600), 0);
    const struct { const char* name; int code; std::int64_t sizeLimit = 0; } rows[] = {
        {"link.log", ELOOP}, {"theirs.log", EPERM}, {"fifo.log", EINVAL}, {"missing/run.log", ENOENT},
        {"limited.log", EFBIG, 10},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(test::runinchild([&] {
                      if (row.sizeLimit)
                          test::limitfilesize(row.sizeLimit);
                      RunLog log(dir.path() / row.name);
                      log.writelog("find   ", "", -1, "A");
                      log.writelog("find   ", "", -1, "B");
                      return std::to_string(log.failure().code);
                  }),
                  std::to_string(row.code));
    }
    EXPECT_EQ(test::readfile(victim), "precious");
    EXPECT_EQ(test::readfile(dir.path() / "theirs.log"), "theirs");
    EXPECT_EQ(test::readfile(dir.path() / "limited.log"), "find      ");
    RunLog lost(dir.path() / "link.log");
    lost.writelog("find   ", "", -1, "A");
    EXPECT_EQ(lost.failuremessage(), "Error writing log " + (dir.path() / "link.log").string() +
                                         ":\r\nToo many levels of symbolic links");
}

}  // namespace
}  // namespace brindlex
