#include "pattern/notation.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

namespace brindlex {
namespace {

// "41 0D" -> the two bytes.
std::string bytes(std::string_view hex)
{
    std::string out;
    for (std::size_t i = 0; i < hex.size(); i += 3)
        out += static_cast<char>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16));
    return out;
}

std::string hexof(std::string_view b)
{
    std::string out;
    char cell[4];
    for (const char c : b) {
        std::snprintf(cell, sizeof cell, "%02X ", static_cast<unsigned char>(c));
        out += cell;
    }
    return out;
}

// ---- decodepattern: both notations and the choice between them -----------

constexpr const char* kAsTyped = "as typed";

struct PatternCase {
    std::string text;
    bool bConvertHex;
    std::string expected;  // hex bytes, or kAsTyped

    friend void PrintTo(const PatternCase& c, std::ostream* os)
    {
        *os << testing::PrintToString(c.text) << (c.bConvertHex ? "" : " without <nn>");
    }
};

class DecodePatternTest : public testing::TestWithParam<PatternCase> {};

TEST_P(DecodePatternTest, Decodes)
{
    const PatternCase& c = GetParam();
    const std::string expected = c.expected == kAsTyped ? c.text : bytes(c.expected);
    EXPECT_EQ(hexof(decodepattern(c.text, c.bConvertHex)), hexof(expected)) << "text '" << c.text << "'";
}

INSTANTIATE_TEST_SUITE_P(Percent, DecodePatternTest, testing::Values(
    PatternCase{"", true, kAsTyped},
    PatternCase{"%41", true, "41"},
    PatternCase{"%0D%0A", true, "0D 0A"},
    PatternCase{"%0d%0a", true, "0D 0A"},
    PatternCase{"%ff", true, "FF"},
    PatternCase{"%00", true, "00"},
    PatternCase{"a%20b", true, "61 20 62"},
    PatternCase{"100%", true, kAsTyped},
    PatternCase{"5%2", true, kAsTyped},
    PatternCase{"%%", true, kAsTyped},
    PatternCase{"%%%", true, kAsTyped},
    PatternCase{"%%41", true, "25 41"},
    PatternCase{"%25", true, "25"},
    PatternCase{"%2541", true, "25 34 31"},
    PatternCase{"%25%41", true, "25 41"},
    PatternCase{"%zz", true, kAsTyped},
    PatternCase{"%G1", true, kAsTyped},
    PatternCase{"%4G", true, "04"},
    PatternCase{"x%Ayz", true, "78 0A 7A"},
    PatternCase{"%9%9", true, "09 39"},
    PatternCase{"%41%4", true, "41 25 34"},
    PatternCase{"%41%", true, "41 25"},
    // A-F only: the upper-casing of other letters makes no digit of them.
    PatternCase{"%\xE1" "1", true, kAsTyped}));

INSTANTIATE_TEST_SUITE_P(Angle, DecodePatternTest, testing::Values(
    PatternCase{"<41>", true, "41"},
    PatternCase{"<41><42>", true, "41 42"},
    PatternCase{"<0D> <0A>", true, "0D 0A"},
    PatternCase{"<0D>\r\n<0A>", true, "0D 0A"},
    PatternCase{"ab <0D> cd", true, "61 62 0D 63 64"},
    PatternCase{"a b<20>c", true, "61 62 20 63"},
    PatternCase{"<41> <4>", true, "41 3C 34 3E"},
    PatternCase{"<41>%42", true, "41 25 34 32"},
    PatternCase{"%41<0D>", true, "25 34 31 0D"},
    PatternCase{"<0d>", true, kAsTyped},
    PatternCase{"<41> <GG>", true, kAsTyped},
    PatternCase{"<41>\r\n<G1>  ", true, kAsTyped},
    PatternCase{"ab>", true, kAsTyped},
    PatternCase{"ab> c", true, "61 62 3E 63"},
    PatternCase{"<FF><00>", true, "FF 00"},
    PatternCase{"<41><<42>", true, "41 3C 42"},
    PatternCase{"<41><4142>", true, "41 3C 34 31 34 32 3E"}));

INSTANTIATE_TEST_SUITE_P(Choice, DecodePatternTest, testing::Values(
    PatternCase{"<41>", false, kAsTyped},
    PatternCase{"<41>%42", false, "3C 34 31 3E 42"},
    PatternCase{"x>y<41>", true, kAsTyped},
    PatternCase{"<414>", true, kAsTyped},
    PatternCase{"<41", true, kAsTyped},
    PatternCase{"%41 <4>", true, "41 20 3C 34 3E"},
    PatternCase{"<4> <0D>", true, kAsTyped},
    PatternCase{"a<41>", true, "61 41"},
    PatternCase{"<41>a<", true, "41 61 3C"}));

// ---- decodeangle: separators and the byte 31 ------------------------------

struct AngleCase {
    std::string text;
    std::string expected;

    friend void PrintTo(const AngleCase& c, std::ostream* os) { *os << testing::PrintToString(c.text); }
};

class DecodeAngleTest : public testing::TestWithParam<AngleCase> {};

TEST_P(DecodeAngleTest, Decodes)
{
    EXPECT_EQ(hexof(decodeangle(GetParam().text)), hexof(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Separators, DecodeAngleTest, testing::Values(
    AngleCase{"", ""},
    AngleCase{"   ", ""},
    AngleCase{" a  b\r\n\r\nc ", "abc"},
    AngleCase{"<41>\n<42>", "A\nB"},
    AngleCase{"<41>\r<42>", "A\rB"},
    AngleCase{"a\tb <41>", "a\tbA"},
    AngleCase{"%41", "%41"},
    AngleCase{"<4142>", "<4142>"},
    AngleCase{"<>", "<>"},
    AngleCase{"<<>>", "<<>>"},
    AngleCase{"a\x1f" "b", "a<b"},
    AngleCase{"<41>\x1f" "42>", "AB"}));

// ---- hexvalue -------------------------------------------------------------

struct HexCase {
    std::string digits;
    double value;

    friend void PrintTo(const HexCase& c, std::ostream* os) { *os << testing::PrintToString(c.digits); }
};

class HexValueTest : public testing::TestWithParam<HexCase> {};

TEST_P(HexValueTest, Reads)
{
    EXPECT_EQ(hexvalue(GetParam().digits), GetParam().value) << GetParam().digits;
}

INSTANTIATE_TEST_SUITE_P(Digits, HexValueTest, testing::Values(
    HexCase{"", 0}, HexCase{"0", 0}, HexCase{"9", 9}, HexCase{"A", 10}, HexCase{"F", 15},
    HexCase{"FF", 255}, HexCase{"0D", 13}, HexCase{"7fff", -1}, HexCase{"a", -1},
    HexCase{"G", -1}, HexCase{"1G", -1}, HexCase{"G1", -1}, HexCase{" 1", -1},
    HexCase{"FFFFFFFF", 4294967295.0}, HexCase{"123456789", 305419896},
    HexCase{"12345678Z", 305419896}, HexCase{"@", -1}, HexCase{"/", -1}, HexCase{":", -1}));

// ---- uppercasebyte --------------------------------------------------------

TEST(UpperCase, FoldsAsciiAndLatin1LettersOnly)
{
    const std::vector<std::pair<int, int>> table = {
        {'a', 'A'}, {'m', 'M'}, {'z', 'Z'}, {'A', 'A'}, {'`', '`'}, {'{', '{'}, {'@', '@'},
        {'0', '0'}, {0x00, 0x00}, {0xE0, 0xC0}, {0xEF, 0xCF}, {0xF6, 0xD6}, {0xF7, 0xF7},
        {0xF8, 0xD8}, {0xFE, 0xDE}, {0xFF, 0xFF}, {0xDF, 0xDF}, {0xC0, 0xC0}, {0xB5, 0xB5}};
    for (const auto& [from, to] : table)
        EXPECT_EQ(uppercasebyte(static_cast<unsigned char>(from)), to) << "byte " << from;

    std::string text = "abc\xE9\xF7\xFFxyz0";
    uppercase(text);
    EXPECT_EQ(text, "ABC\xC9\xF7\xFFXYZ0");
}

TEST(UpperCase, ChangesNoByteTwice)
{
    for (int c = 0; c < 256; ++c) {
        const unsigned char once = uppercasebyte(static_cast<unsigned char>(c));
        EXPECT_EQ(uppercasebyte(once), once) << "byte " << c;
    }
}

// ---- encodebytes ----------------------------------------------------------

struct EncodeCase {
    std::string bytes;
    int width;
    bool showtext;
    std::string expected;

    friend void PrintTo(const EncodeCase& c, std::ostream* os)
    {
        *os << c.bytes << " width " << c.width << (c.showtext ? " text" : "");
    }
};

class EncodeBytesTest : public testing::TestWithParam<EncodeCase> {};

TEST_P(EncodeBytesTest, Renders)
{
    const EncodeCase& c = GetParam();
    EXPECT_EQ(encodebytes(bytes(c.bytes), c.width, c.showtext), c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cells, EncodeBytesTest, testing::Values(
    EncodeCase{"", 16, true, ""},
    EncodeCase{"41 0D", 16, true, "  A  <0D> "},
    EncodeCase{"41 42", 1, false, "<41> \r\n<42> \r\n"},
    EncodeCase{"41 42 43", 2, false, "<41> <42> \r\n<43> "},
    EncodeCase{"20 21 7F 80", 8, true, "<20>   !    \x7f  <80> "},
    EncodeCase{"3C 3E 25", 8, true, "  <    >    %  "},
    EncodeCase{"00 FF 0a", 8, false, "<00> <FF> <0A> "},
    EncodeCase{"41", 0, false, "<41> \r\n"}));

// ---- the round trip decodeangle(encodebytes(b)) == b ---------------------

TEST(RoundTrip, EveryByteValueAtEveryWidth)
{
    std::string all;
    for (int c = 0; c < 256; ++c)
        all += static_cast<char>(c);
    for (int width = 1; width <= 260; ++width) {
        for (const bool showtext : {false, true})
            ASSERT_EQ(hexof(decodeangle(encodebytes(all, width, showtext))), hexof(all))
                << "width " << width << " showtext " << showtext;
    }
}

TEST(RoundTrip, RandomByteStrings)
{
    std::mt19937 rng(31337);
    std::uniform_int_distribution<int> byte(0, 255);
    // Bytes that the notation itself uses turn up often.
    const std::string special = "<> \r\n\x1f%:0AF";
    for (int round = 0; round < 3000; ++round) {
        std::string b(std::uniform_int_distribution<std::size_t>(0, 300)(rng), '\0');
        for (char& c : b)
            c = byte(rng) < 64 ? special[static_cast<std::size_t>(byte(rng)) % special.size()]
                               : static_cast<char>(byte(rng));
        const int width = 1 + round % 200;
        const bool showtext = round % 2 == 0;
        ASSERT_EQ(hexof(decodeangle(encodebytes(b, width, showtext))), hexof(b))
            << "width " << width << " showtext " << showtext;
    }
}

// ---- decodepage -----------------------------------------------------------

// A page as the viewer draws it: position column, ": ", the cells of one
// row, CR LF.
std::string renderpage(std::string_view b, int width, bool showtext)
{
    std::string page;
    char column[32];
    for (std::size_t at = 0; at < b.size(); at += static_cast<std::size_t>(width)) {
        std::snprintf(column, sizeof column, "%06zu", at);
        const std::string_view row = b.substr(at, static_cast<std::size_t>(width));
        page += column;
        page += ": ";
        page += encodebytes(row, static_cast<int>(row.size()), showtext);
    }
    return page;
}

TEST(DecodePage, GivesBackTheBytesOfRenderedPages)
{
    std::mt19937 rng(4711);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 500; ++round) {
        std::string b(std::uniform_int_distribution<std::size_t>(0, 400)(rng), '\0');
        for (char& c : b)
            c = static_cast<char>(round % 3 == 0 ? ":< >"[byte(rng) % 4] : byte(rng));
        const int width = 1 + round % 64;
        const bool showtext = round % 2 == 1;
        ASSERT_EQ(hexof(decodepage(renderpage(b, width, showtext))), hexof(b))
            << "width " << width << " showtext " << showtext;
    }
}

TEST(DecodePage, KeepsARowWithABadTokenAsText)
{
    std::string page = renderpage("ABCDEFGH", 4, false);  // two rows
    const std::string badrow = "<45> <GG> <47> <48>";
    page.replace(page.find("<45>"), badrow.size(), badrow);
    page += "000008: <49> \r\n";
    EXPECT_EQ(decodepage(page), "ABCD" + badrow + "I");
}

struct PageCase {
    std::string page;
    std::string expected;

    friend void PrintTo(const PageCase& c, std::ostream* os) { *os << testing::PrintToString(c.page); }
};

class DecodePageTest : public testing::TestWithParam<PageCase> {};

TEST_P(DecodePageTest, Decodes)
{
    EXPECT_EQ(hexof(decodepage(GetParam().page)), hexof(GetParam().expected));
}

INSTANTIATE_TEST_SUITE_P(Rows, DecodePageTest, testing::Values(
    PageCase{"", ""},
    PageCase{"000000: <41> <42>\r\n000002: <43>\r\n\r\n", "ABC"},
    PageCase{"000000: a:b", "a:b"},
    PageCase{"no colon at all <41>", ""},
    // The line without ":" goes with the next line's position column.
    PageCase{"000000: <41>\r\nstray <42>\r\n000002: <43>\r\n", "AC"},
    PageCase{"000000:<41>\r\n", "A"},
    PageCase{"000000: <41>\n000001: <42>\r\n", "A\n000001:B"},
    PageCase{"0: <GG>   \r\n1: <42>", "<GG>B"},
    PageCase{"0: <41>  <GG>", "<41>  <GG>"},
    PageCase{"0:\r\n1: <42>", "B"}));

// ---- bytestoint -----------------------------------------------------------

TEST(BytesToInt, ReadsLittleEndianPaddedWithBlanks)
{
    const std::vector<std::pair<std::string, int>> table = {
        {std::string("\x00\x00", 2), 0}, {"\x01\x02", 0x0201}, {"\xFF\x7F", 32767},
        {std::string("\x00\x80", 2), -32768}, {"\xFF\xFF", -1}, {"\x01\x80", -32767},
        {"A", 0x2041}, {"", 0x2020}, {"ABC", 0x4241}};
    for (const auto& [text, value] : table)
        EXPECT_EQ(bytestoint(text), value) << hexof(text);
}

}  // namespace
}  // namespace brindlex
