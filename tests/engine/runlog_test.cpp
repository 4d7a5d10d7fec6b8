// The run log's lines, and how the file takes them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <sys/stat.h>

#include "batch/runlog.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

TEST(RunLogLine, ShortAndLongForms)
{
    struct Case {
        const char* what;
        std::string label;
        std::string file;
        std::int64_t pos;
        std::string text;
        std::string line;
    };
    const std::vector<Case> cases = {
        {"a hit with CR LF", "found   ", "/data/a.txt", 12, "A\r\n", "found    /data/a.txt 0000012:   A  <0D> <0A> \r\n"},
        {"the head of a find", "find   ", "", -1, "AB", "find      A    B  \r\n"},
        {"the head of a replace, empty text", "replace with  ", "", -1, "", "replace with   \r\n"},
        {"a blank is a code, 127 prints, 128 doesn't", "replaced", "/f", 1, " \x7F\x80",
         "replaced /f 0000001: <20>   \x7F  <80> \r\n"},
        {"eight digits are written in full", "found   ", "/f", 10000000, "x", "found    /f 10000000:   x  \r\n"},
        {"a NUL byte", "found   ", "/f", 7, std::string("\0", 1), "found    /f 0000007: <00> \r\n"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(logline(c.label, c.file, c.pos, c.text), c.line);
    }
}

TEST(RunLogLine, ShowsOnlyTheFirstFiftyBytes)
{
    const std::string text(60, 'z');
    const std::string line = logline("found   ", "/f", 1, text);
    std::size_t cells = 0;
    for (std::size_t at = 0; (at = line.find("  z ", at)) != std::string::npos; at += 4)
        ++cells;
    EXPECT_EQ(cells, 50u);
    EXPECT_EQ(line.find("\r\n"), line.size() - 2);   // always one line
}

TEST(RunLogFile, AppendsMakesAnewAndIgnoresFailures)
{
    test::TempDir dir;
    const auto path = dir.path() / "brindlex.log.txt";
    dir.write("brindlex.log.txt", "old\r\n");
    RunLog log(path);
    log.writelog("find   ", "", -1, "A");
    EXPECT_EQ(test::readfile(path), "old\r\nfind      A  \r\n");

    std::filesystem::remove(path);   // deleted between two lines of a run
    log.writelog("found   ", "/f", 2, "a");
    EXPECT_EQ(test::readfile(path), "found    /f 0000002:   a  \r\n");

    RunLog nowhere(dir.path() / "missing" / "brindlex.log.txt");
    nowhere.writelog("find   ", "", -1, "A");   // no directory: no line, no failure
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "missing"));

    RunLog none("");
    none.writelog("find   ", "", -1, "A");
}

TEST(RunLogFile, NewLogIsPrivate)
{
    test::TempDir dir;
    const auto path = dir.path() / "brindlex.log.txt";
    RunLog log(path);
    log.writelog("find   ", "", -1, "A");
    struct stat st {};
    ASSERT_EQ(::stat(path.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600u);
}

}  // namespace
}  // namespace brindlex
