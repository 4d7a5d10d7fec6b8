// The integer dump: the sheet's bytes, its messages, its failures, and the
// streaming across the reader's blocks against a literal model.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "engine/dump/dump.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using namespace std::string_literals;

// Records the messages; asks to stop from the carryon() number `cancelAt`
// on (0: never).
struct RecordingHost final : DumpSink {
    int cancelAt = 0, yields = 0;
    std::vector<std::string> messages;
    bool carryon() override { return cancelAt == 0 || ++yields < cancelAt; }
    void message(const std::string& text) override { messages.push_back(text); }
};

// The sheet as the rows describe it, one value at a time, without blocks.
std::string modelsheet(int nSize, int nCols, const std::string& bytes)
{
    const std::size_t n = nSize == 2 ? 2 : 4;
    std::string out;
    std::size_t at = 0;
    for (long row = 1; at < bytes.size(); ++row) {
        out += " " + std::to_string(row) + " ";
        for (int c = 0; c < nCols; ++c, at += n) {
            out += '\t';
            if (at >= bytes.size())
                continue;
            long long v = 0;
            for (std::size_t i = 0; i < n && at + i < bytes.size(); ++i)
                v |= static_cast<long long>(static_cast<unsigned char>(bytes[at + i])) << (8 * i);
            if (at + n <= bytes.size())
                v = n == 2 ? static_cast<short>(v) : static_cast<int>(v);
            out += std::to_string(v);
        }
        out += "\r\n";
    }
    return out;
}

struct Dumped { DumpResult result; std::string sheet; std::vector<std::string> messages; std::int64_t lPos; };

Dumped dump(const test::TempDir& dir, int nSize, int nCols, const std::string& bytes, std::int64_t lPos = 1,
            int cancelAt = 0)
{
    const auto in = dir.write("in.bin", bytes);
    const auto out = dir.path() / "001.xls";
    RecordingHost host;
    host.cancelAt = cancelAt;
    Dumped d{dumpints(nSize, nCols, in, out, lPos, host), "", host.messages, lPos};
    d.sheet = std::filesystem::exists(out) ? test::readfile(out) : "<none>";
    return d;
}

class DumpTest : public testing::Test {
protected:
    void SetUp() override { ::setenv("BRINDLEX_TEMP", dir.path().c_str(), 1); }
    std::string created() const { return createdmessage((dir.path() / "001.xls").string()); }
    test::TempDir dir;
};

TEST_F(DumpTest, RowsOfTwoAndFourByteValues)
{
    const struct { int size, cols; std::string bytes, sheet; } rows[] = {
        {2, 1, "\x02\x01\xff\xff", " 1 \t258\r\n 2 \t-1\r\n"}, {2, 2, "\x00\x80\xff\x7f"s, " 1 \t-32768\t32767\r\n"},
        {4, 1, "\x00\x00\x00\x80"s, " 1 \t-2147483648\r\n"}, {2, 1, "", ""},
        // Any size but 2 reads four bytes.
        {3, 1, "\xff\xff\xff\xff", " 1 \t-1\r\n"}, {8, 2, "\x02\x01\x00\x00\xff\xff\xff\xff"s, " 1 \t258\t-1\r\n"},
        // Past the end: a cut value takes the bytes there are as its low
        // bytes, a value with none is an empty cell; every row is whole.
        {2, 1, "\x01\x00\xff"s, " 1 \t1\r\n 2 \t255\r\n"},
        {2, 3, "\x01\x00\xff"s, " 1 \t1\t255\t\r\n"},
        {4, 2, "\x01\x02\x03"s, " 1 \t197121\t\r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.size) + " x " + std::to_string(row.cols) + " of " +
                     std::to_string(row.bytes.size()) + " bytes");
        const Dumped d = dump(dir, row.size, row.cols, row.bytes);
        EXPECT_EQ(d.sheet, row.sheet);
        EXPECT_EQ(d.messages, std::vector<std::string>{created()});
        EXPECT_FALSE(d.result.failed);
        // Made private by the first row, then emptied for each next one.
        EXPECT_EQ(static_cast<int>(std::filesystem::status(dir.path() / "001.xls").permissions()), 0600);
    }
    // From a position on, which then stands behind the last value.
    const Dumped from3 = dump(dir, 2, 1, "\x01\x00\x02\x00\x03\x00"s, 3);
    EXPECT_EQ(from3.sheet + std::to_string(from3.lPos), " 1 \t2\r\n 2 \t3\r\n7");
}

TEST_F(DumpTest, StreamsAcrossBlocksAsTheModelDoes)
{
    std::mt19937 random(12);
    // Lengths around the reader's 1 MiB block, widths that don't divide it.
    for (const std::size_t length : {std::size_t{1} << 20, (std::size_t{1} << 20) + 3, std::size_t{2} << 20 | 5}) {
        std::string bytes(length, '\0');
        for (char& c : bytes)
            c = static_cast<char>(random());
        for (const auto& [size, cols] : {std::pair{4, 3}, std::pair{2, 7}, std::pair{4, 1000}}) {
            SCOPED_TRACE(std::to_string(length) + " bytes, " + std::to_string(size) + " x " + std::to_string(cols));
            EXPECT_TRUE(dump(dir, size, cols, bytes).sheet == modelsheet(size, cols, bytes));
        }
    }
    // Cancel ends at a row, the sheet cut short there.
    const std::string bytes(std::size_t{4} << 20, '\x01');
    const Dumped d = dump(dir, 4, 1, bytes, 1, 2);
    EXPECT_TRUE(d.result.cancelled);
    EXPECT_LT(d.result.rows, std::int64_t{1} << 20);
    EXPECT_EQ(d.sheet, modelsheet(4, 1, bytes.substr(0, static_cast<std::size_t>(d.result.rows) * 4)));
    EXPECT_EQ(d.messages, std::vector<std::string>{created()});
}

// (Columns below 1 are refused in the window's dump test, which answers -3.)
TEST_F(DumpTest, FailuresAreToldAndTheSheetIsNeverFollowedThroughALink)
{
    RecordingHost host;
    std::int64_t lPos = 1;
    EXPECT_TRUE(dumpints(2, 1, dir.path() / "none", dir.path() / "001.xls", lPos, host).failed);
    EXPECT_EQ(host.messages, std::vector<std::string>{"No such file or directory"});
    EXPECT_FALSE(std::filesystem::exists(dir.path() / "001.xls"));

    // A sheet on a full disk: the error number, then the sheet's name.
    class FullDisk final : public SheetOutput {
    public:
        Error open() override { return fd_ = ::open("/dev/full", O_WRONLY | O_CLOEXEC), Error{}; }
        int fd() const override { return fd_; }
        Error close(bool) override { return ::close(fd_), Error{}; }
        int fd_ = -1;
    } full;
    RecordingHost fullhost;
    EXPECT_TRUE(dumpints(2, 1, dir.write("in.bin", "\x01\x00"s), full, "S", lPos, fullhost).failed);
    EXPECT_EQ(fullhost.messages, (std::vector<std::string>{std::to_string(ENOSPC), "File S was created."}));

    // The sheet is never followed through a link.
    const auto sheet = dir.path() / "001.xls";
    const auto victim = dir.write("victim", "keep");
    std::filesystem::create_symlink(victim, sheet);
    const Dumped linked = dump(dir, 2, 1, "\x05\x00"s);
    EXPECT_TRUE(linked.result.failed);
    EXPECT_EQ(linked.messages.size(), 1u);
    EXPECT_EQ(test::readfile(victim), "keep");
}

// The sheets' names are the editor window's dump test.
TEST(DumpNames, Answers)
{
    const std::pair<const char*, int> answers[] = {
        {" 2", 2}, {"2.5x", 2}, {"3.5", 4}, {"-7", -7}, {"four", 0}, {"", 0}, {"32767", 32767}, {"32768", 0},
    };
    for (const auto& [answer, value] : answers)
        EXPECT_EQ(dumpanswer(answer), value) << '"' << answer << '"';
    EXPECT_EQ(sheetname(7) + " " + sheetname(1000), "007.xls 1000.xls");
}

}  // namespace
}  // namespace brindlex
