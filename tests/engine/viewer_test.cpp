// The viewer's page: reading a block, its page text in every mode and row
// format, the metafile record view on real metafiles, position expressions,
// the caret's position, AutoDetect, and saving an edited page.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include <sys/resource.h>

#include "engine/core/faultinject.h"
#include "engine/core/openbinary.h"
#include "engine/viewer/detect.h"
#include "engine/viewer/metafile.h"
#include "engine/viewer/page.h"
#include "engine/viewer/position.h"
#include "engine/viewer/save.h"
#include "support/privileges.h"
#include "support/tempdir.h"

namespace brindlex {
namespace {

using namespace std::string_literals;
namespace fs = std::filesystem;

const std::string kSeven = "\x48\x69\x0D\x0A\x00\xFF\x5A"s;

TEST(ViewerPage, RendersEachModeAndFormatAndSizesThePage)
{
    const struct { std::string block; std::int64_t lPos; int nWidth, nMode, nFormat; std::string text; } rows[] = {
        {kSeven, 1, 4, 0, 0, "000001: <48> <69> <0D> <0A> \r\n000005: <00> <FF> <5A> "},
        {kSeven, 1, 4, 1, 1, "000001:   H    i  <0D> <0A> \r\n000005: <00> <FF>   Z  "},
        {kSeven, 1, 4, 2, 0, ""},
        {"a\r\nb\rc\n"s, 9, 4, 2, 0, "a\r\nb\rc\n"},
        // The column is the row's first position in every format.
        {"xyz"s, 513, 2, 0, 2, "000201.1: <78> <79> \r\n000203.1: <7A> "},
        {"q"s, 16777216, 4, 0, 1, "000000: <71> "},
        {"q"s, (1LL << 32) + 1, 4, 0, 2, "000001.800000: <71> "},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.block) + " at " + std::to_string(row.lPos));
        EXPECT_EQ(formatpage(row.block, row.lPos, row.nWidth, row.nMode, row.nFormat), row.text);
    }
    // At the window's design height: a quarter page of whole rows, none when
    // a row is wider (the default block then), two twips a byte of text.
    for (const auto& [width, mode, block] :
         {std::tuple{10, 1, 160}, {16, 0, 128}, {4, 0, 176}, {50, 0, 0}, {0, 0, 184}, {10, 2, 922}})
        EXPECT_EQ(pageblock(1845, width, mode), block) << width << " mode " << mode;
    EXPECT_EQ(pagerange(1, 0), "0x00000001-0x00000000 (1-0)");
    EXPECT_EQ(pagerange(1LL << 32, 2), "0x100000000-0x100000001 (4294967296-4294967297)");
}

TEST(ViewerPage, ReadsOneBlockWhereverItStands)
{
    test::TempDir dir;
    const fs::path rows = dir.write("rows", std::string(160, 'D'));
    const fs::path crlf = dir.write("crlf", "abc\r\ndef\r");
    // tail: how the page text ends.
    const struct { fs::path file; std::int64_t lPos, nBlock; int nMode; std::int64_t pos, len; std::string tail; } cases[] = {
        {rows, 1, 160, 0, 1, 160, "<44> \r\n"},     // a full last row ends in CR LF
        {rows, 160, 160, 0, 160, 1, "000160: <44> "},
        {rows, 161, 160, 0, 161, 0, ""},           // behind the end: an empty block
        {rows, 1, 0, 1, 1, 160, "  D  \r\n"},
        {crlf, 1, 4, 2, 1, 5, "abc\r\n"},           // a CR takes its LF along
        {crlf, 5, 5, 2, 5, 5, "def\r"},            // ... but not at the file's end
        {crlf, 2, 2, 2, 2, 2, "bc"},
        {crlf, 5000, 2, 3, 1, 9, "abc\r\ndef\r"},  // Full Text starts at 1
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.file.filename().string() + " at " + std::to_string(c.lPos) + " mode " + std::to_string(c.nMode));
        const Page page = readpage(c.file, c.lPos, c.nBlock, 10, c.nMode, 0);
        ASSERT_TRUE(page.opened);
        EXPECT_FALSE(page.error) << page.error.text;
        EXPECT_EQ(page.lPos, c.pos);
        EXPECT_EQ(page.lViewLen, c.len);
        EXPECT_TRUE(page.sText.ends_with(c.tail)) << page.sText;
        EXPECT_EQ(page.lFileLen, static_cast<std::int64_t>(fs::file_size(c.file)));
    }
    const Page missing = readpage(dir.path() / "none", 1, 16, 10, 0, 0);
    EXPECT_FALSE(missing.opened);
    EXPECT_EQ(missing.error.code, ENOENT);
}

TEST(ViewerPage, ShowsAPageBeyondFourGigabytesAndRefusesAHugeFullText)
{
    test::TempDir dir;
    const fs::path big = dir.path() / "sparse";
    ASSERT_TRUE(test::sparsefile(big, 5LL << 30, {{(4LL << 30) + 1, "EDGE"}}));
    const Page page = readpage(big, (4LL << 30) + 1, 8, 4, 1, 0);
    EXPECT_EQ(page.sText, "4294967297: <00>   E    D    G  \r\n4294967301:   E  <00> <00> <00> \r\n");
    EXPECT_EQ(page.lFileLen, 5LL << 30);
    const Page full = readpage(big, 1, 8, 4, kModeFullText, 0);
    EXPECT_TRUE(full.opened);
    EXPECT_EQ(full.error.code, EFBIG);
    EXPECT_EQ(full.sText, "");
    EXPECT_EQ(full.lViewLen, 5LL << 30);   // nothing of it can be saved back
}

// A page streamed in pieces is, piece by piece, the page read whole: rows
// and records across the pieces' seams, a text page in two passes, a CR
// that takes its LF along, wherever the page starts and however long it is.
TEST(ViewerPage, StreamsThePageThatIsReadWhole)
{
    test::TempDir dir;
    std::string bytes, text;
    for (int i = 0; i < 600000; ++i) {
        bytes += i % 97 < 3 ? '\0' : static_cast<char>(i * 7 % 251);   // record sizes every 97 bytes
        text += i % 41 == 40 ? '\r' : static_cast<char>('a' + i % 26);
    }
    text[262145] = '\r';   // the last byte of a page from 262143 with --block 3
    const fs::path files[] = {dir.write("bytes", bytes), dir.write("text", text)};
    constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();
    for (const fs::path& file : files) {
        for (const auto& [mode, format] : {std::pair{0, 0}, {1, 1}, {0, 2}, {0, 3}, {1, 3}, {2, 0}, {3, 0}}) {
            for (const auto& [pos, block] : {std::pair<std::int64_t, std::int64_t>{1, kAll}, {262143, 3}, {5, 300001}, {3, 0}}) {
                SCOPED_TRACE(file.filename().string() + " mode " + std::to_string(mode) + " format " +
                             std::to_string(format) + " at " + std::to_string(pos) + " block " + std::to_string(block));
                const Page whole = readpage(file, pos, std::min<std::int64_t>(block, kPageLimit), 16, mode, format);
                std::string streamed;
                const PageStream page = streampage(file, pos, block, 16, mode, format, [&](std::string_view piece) {
                    streamed += piece;
                    return true;
                });
                EXPECT_TRUE(page.opened && !page.error && page.written);
                EXPECT_EQ(page.lViewLen, whole.lViewLen);
                EXPECT_TRUE(streamed == whole.sText) << streamed.size() << " bytes, not " << whole.sText.size();
            }
        }
    }
}

// Memory stays flat whatever the page's size: a page of 40 MiB in the
// modes and formats that held it whole, in a child that measures what it
// adds to its peak.
TEST(ViewerPage, StreamsAPageOfAnySizeInLittleMemory)
{
    test::TempDir dir;
    const fs::path big = dir.path() / "sparse";
    ASSERT_TRUE(test::sparsefile(big, 40LL << 20, {{1, "x"}}));
    EXPECT_EQ(test::runinchild([&] {
                  // The child starts with the parent's peak: what it adds counts.
                  rusage usage {};
                  ::getrusage(RUSAGE_SELF, &usage);
                  const long before = usage.ru_maxrss;
                  std::string out;
                  for (const auto& [mode, format] : {std::pair{0, 0}, {1, 3}, {2, 0}}) {
                      std::int64_t written = 0;
                      const PageStream page = streampage(big, 1, std::numeric_limits<std::int64_t>::max(), 16, mode,
                                                         format, [&](std::string_view piece) {
                                                             written += static_cast<std::int64_t>(piece.size());
                                                             return true;
                                                         });
                      out += std::to_string(page.lViewLen >> 20) + (written > (40LL << 20) ? " rows; " : " none; ");
                  }
                  ::getrusage(RUSAGE_SELF, &usage);
                  const long added = usage.ru_maxrss - before;
                  return out + (added < 24 * 1024 ? "flat" : std::to_string(added) + " KiB more");
              }),
              "40 rows; 40 rows; 40 none; flat");
    EXPECT_EQ(readpage(big, 1, 600000000, 16, 0, 0).error.code, EFBIG);   // read whole: refused before reading
}

// Metafile record rows: the worked example and the rules of the lock-on.
TEST(ViewerMetafile, LocksOnRecordsByTheirSizeField)
{
    const struct { std::string block; int nMode; std::string text; } rows[] = {
        {"\x04\0\0\0\x02\x01\x01\0\x05\0\0\0\x13\x02\x0A\0\x14\0\x03\0\0\0\x1E\0"s, 1,
         "000013 = 04 SETBKMODE : <04> <00> <00> <00> <02> <01> <01> <00> \r\n"
         "00001B = 05 LINETO    000010    000020    : <05> <00> <00> <00> <13> <02> <0A> <00> <14> <00> \r\n"
         "000025 = 03 : <03> <00> <00> <00> <1E> <00> \r\n"},
        // Bytes ahead of a record are passed over; 0x1521 is TEXTOUT.
        {"ab\x03\0\0\0\x21\x15\x09\0"s, 1, "000013 = 03 TEXTOUT   : <03> <00> <00> <00> <21> <15> \r\n00001B: <09> <00> \r\n"},
        // NULs at the row's start, or a size of 2: plain rows, cells by mode.
        {"\0\0\0A"s, 1, "000013: <00> <00> <00>   A  \r\n"},
        {"\x02\0\0\0A"s, 0, "000013: <02> <00> <00> <00> <41> \r\n"},
        // MOVETO with its parameters behind the block: a missing byte is 32.
        {"\x05\0\0\0\x14\x02\xFB\xFF"s, 1,
         "000013 = 05 MOVETO    -000005    008224    : <05> <00> <00> <00> <14> <02> <FB> <FF> \r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.block));
        EXPECT_EQ(formatpage(row.block, 19, 8, row.nMode, kFormatMeta), row.text);
    }
    // A record that runs past the row is cut there; the next row takes the rest.
    const std::string longrecord = "\x40\0\0\0\x07\x09"s + std::string(122, 'x');
    const std::string text = formatpage(longrecord, 1, 8, 1, kFormatMeta);
    EXPECT_TRUE(text.starts_with("000001 = 64 : <40> <00> <00> <00> <07> <09> <78> ")) << text;
    // 100 cells end in a line end of their own, and the row in another.
    EXPECT_NE(text.find("<78> \r\n\r\n000065:   x    x  "), std::string::npos) << text;
    EXPECT_EQ(formatpage(longrecord, 1, 8, 2, kFormatMeta), "");   // a text mode: no records
}

TEST(ViewerMetafile, ShowsTheRecordsOfRealMetafilesByName)
{
    // The record names of the standard's function numbers that have a name here.
    const std::map<std::uint16_t, std::string> names = {
        {0x0521, "TEXTOUT"}, {0x0213, "LINETO"}, {0x0214, "MOVETO"}, {0x01F0, "DELETEOBJ"}, {0x012D, "SELECTOBJ"},
        {0x0104, "SETROP2"}, {0x0201, "SETBKCOLR"}, {0x0102, "SETBKMODE"}, {0x0209, "SETTXTCLR"}, {0x020A, "SETTXTJUS"},
        {0x0626, "ESCAPE"}, {0x00F7, "CREATEPAL"}, {0x00F8, "CREATBRSH"}, {0x02FA, "CREATPENI"}, {0x02FB, "CREATFNTI"},
        {0x02FC, "CREATEBRI"}};
    for (const char* name : {"lines-inkscape.wmf", "lines-libreoffice.wmf", "shapes-inkscape.wmf",
                             "shapes-libreoffice.wmf", "shapes-libreoffice-noheader.wmf"}) {
        const fs::path file = fs::path(BRINDLEX_TESTDATA) / "wmf" / name;
        // The record walk of the file from its header, as the reference the
        // record view must agree with wherever a page starts on a record.
        struct Record { std::int64_t pos; std::uint32_t words; std::uint16_t function; };   // pos 1-based
        const std::string bytes = test::readfile(file);
        auto u16 = [&](std::size_t at) { return static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[at]) |
                                                                         static_cast<unsigned char>(bytes[at + 1]) << 8); };
        std::vector<Record> records;
        std::size_t at = bytes.starts_with("\xD7\xCD\xC6\x9A") ? 22 : 0;
        for (at += u16(at + 2) * 2u; at + 6 <= bytes.size(); at += records.back().words * 2u) {   // past the header's own words
            records.push_back({static_cast<std::int64_t>(at) + 1, u16(at) | static_cast<std::uint32_t>(u16(at + 2)) << 16, u16(at + 4)});
            if (records.back().words < 3)
                break;
        }
        ASSERT_GT(records.size(), 10u) << name;
        int named = 0;
        for (std::size_t start = 0; start < records.size(); start += records.size() / 5) {
            const Page page = readpage(file, records[start].pos, 320, 8, 1, kFormatMeta);
            std::size_t line = 0;
            // Each short record is one row of the page, until one is too long for a row.
            for (std::size_t r = start; r < records.size() && records[r].words >= 3 && records[r].words < 50 &&
                                        records[r].pos + records[r].words * 2 <= records[start].pos + 320;
                 ++r) {
                SCOPED_TRACE(std::string(name) + " record at " + std::to_string(records[r].pos));
                const std::size_t end = page.sText.find("\r\n", line);
                ASSERT_NE(end, std::string::npos);
                const std::string row = page.sText.substr(line, end - line);
                const auto known = names.find(records[r].function & 0xFFF);
                char head[40];
                std::snprintf(head, sizeof head, "%06llX = %02u ", static_cast<unsigned long long>(records[r].pos),
                              records[r].words);
                const std::string expected = head + (known == names.end() ? "" : known->second);
                EXPECT_TRUE(row.starts_with(expected)) << row;
                EXPECT_EQ(std::count(row.begin(), row.end(), '<'), records[r].words * 2) << row;
                named += known != names.end();
                line = end + 2;
            }
        }
        EXPECT_GT(named, 3) << name;
    }
}

TEST(ViewerPosition, EvaluatesGotoAnswersFindsTheByteUnderTheCaretAndPlacesAHit)
{
    const struct { std::string s; std::int64_t value; } rows[] = {
        {"", 0},        {"abc", 0},        {"0", 0},          {" 1 2 3x", 123},   {"&H1A&", 26},
        {"&h1a", 26},   {"&H100000000", 1LL << 32},            {"1E3", 1000},      {"12.5", 0},
        {".2", 1024},   {".1.5", 768},     {"+", 1160},       {"-", 840},         {"+100", 1100},
        {"-100", 900},  {"10-2-3", 11},    {"1+2-3", 0},      {"5-3+1", 3},       {" 7 + &H10& ", 23},
        {"5+", 5},      {"6442450944+1", 6442450945},                {".0.0009765625", 0}, {".0.0029296875", 2},
        {"99999999999999999999+99999999999999999999", std::numeric_limits<std::int64_t>::max()},
        {std::string(999, ' ') + "7", 7}, {std::string(1000, ' ') + "7", 0},
    };
    for (const auto& row : rows)
        EXPECT_EQ(parseposition(row.s, 1000, 160), row.value) << '"' << row.s << '"';
    // An empty left side stands for a negative base as a number, not as text.
    EXPECT_EQ(parseposition("+10", -5, 160), 5);
    EXPECT_EQ(inputnumber("2.5") + inputnumber("-1") + inputnumber("-x"), 1.5);
    // The byte under the caret, and its label.
    const std::string page = formatpage(kSeven, 1, 4, 0, 0);
    EXPECT_EQ(lastinstr("abcabc", "bc"), 5);
    EXPECT_EQ(lastinstr("abc", "x") + lastinstr("abc", ""), 0);
    const struct { std::string text; std::int64_t caret; int nFormat; std::int64_t position; } carets[] = {
        {page, 44, 0, 6}, {"", 0, 0, 0},                      // the second cell of the second row
        {page, 8, 0, 1},   {page, 27, 0, 4},   {page, 2, 0, 0},   // a column gives its row or less
        {formatpage(kSeven, 0x1000, 4, 0, 1), 44, 1, 0x1005}, {formatpage(kSeven, 0x1000, 4, 0, 2), 47, 2, 0x1005},
    };
    for (const auto& row : carets)
        EXPECT_EQ(clickposition(row.text, row.caret, row.nFormat), row.position) << row.text << " @" << row.caret;
    EXPECT_EQ(clicklabel(0x1005, 1) + " " + clicklabel(0x1005, 2) + " " + clicklabel(4101, 0) + " " + clicklabel(7, 3),
              "0x1005 0x1005 4101 7");
    // A hit opens two rows below the page's top; a width chosen earlier stays.
    for (const auto& [hit, width, top] : {std::tuple{5, 10, 1}, {20, 10, 1}, {22, 10, 2}, {500, 10, 480}, {500, 8, 484}})
        EXPECT_EQ(hittop(hit, width), top) << hit << " width " << width;
    for (const auto& [width, hit, opened] : {std::tuple{0, false, 8}, {0, true, 10}, {8, true, 8}, {16, false, 16}})
        EXPECT_EQ(openingwidth(width, hit), opened) << width << (hit ? " for a hit" : " for a file");
    EXPECT_EQ(gotodefault(1000, 0) + " " + gotodefault(1000, 1) + " " + gotodefault(1000, 3), "1000 &H3E8& &H3E8&");
}

TEST(ViewerDetect, TellsBinaryFromTextAtTheEdges)
{
    test::TempDir dir;
    const struct { std::string name; std::string bytes; int atActivate, atCombo; } rows[] = {
        {"nul1000", std::string(999, 'a') + '\0', 1, 1},
        {"nul1001", std::string(1000, 'a') + '\0', 2, 2},
        {"text10000", std::string(10000, '\xFF'), 2, 2},
        {"text10001", std::string(10001, 'a'), 2, 3},
        {"empty", "", 2, 2},
    };
    for (const auto& row : rows) {
        const fs::path file = dir.write(row.name, row.bytes);
        EXPECT_EQ(autodetect(file, AutoDetectAt::Activate), row.atActivate) << row.name;
        EXPECT_EQ(autodetect(file, AutoDetectAt::ComboClick), row.atCombo) << row.name;
    }
    EXPECT_EQ(autodetect(dir.path() / "none", AutoDetectAt::ComboClick), kModePureText);
}

const std::string kFile = "0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";

// The viewer's page state from a read to a save.
struct Viewer {
    fs::path file, scratch;
    int nMode, nFormat = kFormatDecimal;
    Page page {};
    std::string sViewText {};

    void show(std::int64_t lPos, std::int64_t nBlock)
    {
        page = readpage(file, lPos, nBlock, 4, nMode, nFormat);
        sViewText = pagebytes(page.sText, nMode);
    }
    // Saves `text` as the page box's text; "" when saved, else why not.
    std::string save(const std::string& text)
    {
        const SavedPage r =
            saveeditedpage({file, page.lPos, page.lViewLen, sViewText, page.stamp, text, nMode, nFormat, scratch});
        return r.error ? r.error.text : r.changed ? "" : "unchanged";
    }
};

TEST(ViewerSave, SplicesTheEditedPageAndGivesBackAnUneditedOne)
{
    // from is replaced by to in the page text; after: the file afterwards.
    const struct { const char* what; int nMode; std::int64_t lPos, nBlock; std::string from, to, after; } rows[] = {
        {"a changed cell", 0, 5, 8, "<34>", "<7E>", "0123~56789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"a deleted row", 0, 5, 8, "000009: <38> <39> <41> <42> ", "", "01234567CDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"an added cell", 1, 5, 8, "  4 ", "  4  <0D> ", "01234\r56789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"typed characters", 1, 1, 8, "000001:", "000001: ab", "ab0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"the last page", 0, 33, 8, "<59> <5A>", "<00>", "0123456789ABCDEFGHIJKLMNOPQRSTUVWX\0"s},
        {"a change in a position column only", 0, 5, 8, "000009", "000010", kFile},
        {"an emptied byte page", 0, 5, 8, "", "", kFile},
        {"a text page", 2, 3, 4, "2345", "a\r\nb\rc\n", "01a\r\nb\rc\n6789ABCDEFGHIJKLMNOPQRSTUVWXYZ"},
        {"Full Text", 3, 9, 4, kFile, "all\n", "all\n"},
    };
    for (bool deep : {false, true}) {
        for (const auto& row : rows) {
            SCOPED_TRACE(row.what + std::string(deep ? ", below a path over PATH_MAX" : ""));
            test::TempDir dir;
            Viewer v{deep ? test::deepfile(dir.path(), "f", kFile) : dir.write("f", kFile), dir.path() / "brindlex.tmp", row.nMode};
            v.show(row.lPos, row.nBlock);
            std::string text = row.from.empty() ? "" : v.page.sText.replace(v.page.sText.find(row.from), row.from.size(), row.to);
            EXPECT_EQ(v.save(text), row.after == kFile ? "unchanged" : "");
            // Read back whole, whatever the path's length.
            OpenedFile opened;
            std::string bytes;
            EXPECT_TRUE(!openbinary(v.file, opened) && readblock(opened.fd.get(), 0, opened.size(), bytes));
            EXPECT_EQ(bytes, row.after);
        }
    }
    // An unedited byte page gives back exactly the bytes it shows, or every
    // save would change what the user never touched.
    std::mt19937 rng(5);
    for (int round = 0; round < 300; ++round) {
        std::string block(rng() % 300, '\0');
        for (char& c : block)
            c = static_cast<char>(rng() % 4 == 0 ? "<>: \r\n"[rng() % 6] : rng());
        const int nMode = static_cast<int>(rng() % 2), nFormat = static_cast<int>(rng() % 3);
        const std::string text = formatpage(block, 1 + rng() % 100000, 1 + static_cast<int>(rng() % 40), nMode, nFormat);
        ASSERT_EQ(pagebytes(text, nMode), block) << text;
    }
}

// Every way a save can't be done right leaves the file as it was, with the reason.
TEST(ViewerSave, LeavesTheFileAsItWasWithTheReason)
{
    // Text pages; meanwhile: after the read, before the save. (A page of
    // metafile records is refused in the command line's page rows.)
    const struct { const char* what; std::string content; std::function<void(const fs::path&)> meanwhile;
                   std::string reason; } rows[] = {
        {"a text page with a NUL", "a\0b"s, nullptr, "NUL"},
        {"a file changed since its page was read", kFile,
         [](const fs::path& f) { std::ofstream(f, std::ios::app) << "more"; }, "changed by another program"},
        {"a failing write", kFile, [](const fs::path&) { faultinject::arm({0, 0, "write", ENOSPC}); }, "No space left on device"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::TempDir dir;
        Viewer v(dir.write("f", row.content), dir.path() / "brindlex.tmp", kModePureText);
        v.show(1, 64);
        if (row.meanwhile)
            row.meanwhile(v.file);
        const std::string before = test::readfile(v.file);
        const std::string why = v.save("typed");
        faultinject::disarm();
        EXPECT_NE(why.find(row.reason), std::string::npos) << why;
        EXPECT_EQ(test::readfile(v.file), before);
    }
    test::TempDir dir;
    const SavedPage gone = saveeditedpage({dir.path() / "none", 1, 3, "old", FileStamp{}, "new", 2, 0, dir.path() / "brindlex.tmp"});
    EXPECT_FALSE(gone.opened);
    EXPECT_FALSE(fs::exists(dir.path() / "none"));
}

}  // namespace
}  // namespace brindlex
