#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "engine/pattern/notation.h"
#include "engine/pattern/stringtools.h"

namespace brindlex {
namespace {

using namespace std::string_literals;

TEST(Decode, PercentAndAngleNotationsAndTheChoiceBetweenThem)
{
    // How: 'p' decodepattern, 'n' the same without <nn>, 'a' decodeangle.
    // An expected "=" means the text comes back as typed.
    const struct { char how; std::string text, expected; } rows[] = {
        {'p', "%0d%0a", "\r\n"}, {'p', "%ff%00", "\xff\0"s}, {'p', "100%", "="}, {'p', "%41%4", "A%4"}, {'p', "%G1", "="},
        {'p', "%%41", "%A"},
        // A made byte is not read again.
        {'p', "%2541", "%41"},
        // One digit makes a byte and still takes three characters.
        {'p', "%9%9", "\t9"},
        // Upper-casing makes no digit of a letter beyond F.
        {'p', "%\xE1" "1", "="},
        {'p', "<0D>\r\n<0A>", "\r\n"}, {'p', "a b<20>c", "ab c"}, {'p', "<41> <4>", "A<4>"}, {'p', "%41<0D>", "%41\r"},
        {'p', "ab> c", "ab>c"}, {'p', "<41><<42>", "A<B"}, {'p', "<41><4142>", "A<4142>"},
        // One bad token leaves the whole text as typed.
        {'p', "<0d>", "="},
        // Angle notation only when the first ">" is three behind the first "<".
        {'n', "<41>%42", "<41>B"}, {'p', "x>y<41>", "="}, {'p', "<414>", "="}, {'p', "<4> <0D>", "="}, {'p', "a<41>", "aA"},
        {'a', "   ", ""}, {'a', " a  b\r\n\r\nc ", "abc"}, {'a', "<41>\n<42>\r\t<43>", "A\nB\r\tC"}, {'a', "%41", "%41"},
        {'a', "a\x1f" "b", "a<b"}, {'a', "<41>\x1f" "42>", "AB"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(1, row.how) + " " + testing::PrintToString(row.text));
        const std::string decoded = row.how == 'a' ? decodeangle(row.text) : decodepattern(row.text, row.how == 'p');
        EXPECT_EQ(decoded, row.expected == "=" ? row.text : row.expected);
    }
}

// Up to eight upper-case hex digits; two bytes little-endian, padded with blanks.
TEST(Bytes, ReadAsHexDigitsOrTwoBytesAndFoldedToUpperCase)
{
    const std::pair<std::string, double> rows[] = {
        {"", 0}, {"9", 9}, {"FF", 255}, {"0D", 13}, {"a", -1}, {"G", -1}, {"1G", -1}, {" 1", -1},
        {"@", -1}, {"/", -1}, {":", -1}, {"FFFFFFFF", 4294967295.0}, {"12345678Z", 305419896},
    };
    for (const auto& [digits, value] : rows)
        EXPECT_EQ(hexvalue(digits), value) << digits;
    const std::pair<std::string, int> twobytes[] = {
        {"\x01\x02", 0x0201}, {"\xFF\x7F", 32767}, {"\0\x80"s, -32768}, {"A", 0x2041}, {"", 0x2020}, {"ABC", 0x4241},
    };
    for (const auto& [text, value] : twobytes)
        EXPECT_EQ(bytestoint(text), value) << testing::PrintToString(text);
    // Only ASCII and Latin-1 letters fold, and no byte twice.
    const std::pair<int, int> folds[] = {{'a', 'A'}, {'z', 'Z'}, {'`', '`'}, {'{', '{'}, {0xE0, 0xC0},
                                         {0xF7, 0xF7}, {0xFE, 0xDE}, {0xFF, 0xFF}, {0xDF, 0xDF}, {0xB5, 0xB5}};
    for (const auto& [from, to] : folds)
        EXPECT_EQ(uppercasebyte(static_cast<unsigned char>(from)), to) << "byte " << from;
    for (int c = 0; c < 256; ++c) {
        const unsigned char once = uppercasebyte(static_cast<unsigned char>(c));
        EXPECT_EQ(uppercasebyte(once), once) << "byte " << c;
    }
    std::string text = "abc\xE9\xF7\xFFxyz0";
    uppercase(text);
    EXPECT_EQ(text, "ABC\xC9\xF7\xFFXYZ0");
}

TEST(Cells, RenderedAndDecodedBackAloneOrAsPageRows)
{
    const struct { std::string bytes; int width; bool showtext; std::string expected; } rows[] = {
        {"A\r", 16, true, "  A  <0D> "}, {"ABC", 2, false, "<41> <42> \r\n<43> "}, {"A", 0, false, "<41> \r\n"},
        {" !\x7f\x80", 8, true, "<20>   !    \x7f  <80> "}, {"\0\xff\n"s, 8, false, "<00> <FF> <0A> "},
    };
    for (const auto& row : rows)
        EXPECT_EQ(encodebytes(row.bytes, row.width, row.showtext), row.expected) << row.width;
    // Random bytes decode back at every width; the bytes that the notation
    // itself uses turn up often.
    const std::string special = "<> \r\n\x1f%:0AF";
    std::mt19937 rng(31337);
    std::uniform_int_distribution<int> byte(0, 255);
    for (int round = 0; round < 3000; ++round) {
        std::string b(std::uniform_int_distribution<std::size_t>(0, 300)(rng), '\0');
        for (char& c : b)
            c = byte(rng) < 64 ? special[static_cast<std::size_t>(byte(rng)) % special.size()] : static_cast<char>(byte(rng));
        ASSERT_EQ(decodeangle(encodebytes(b, 1 + round % 200, round % 2 == 0)), b) << round;
    }
    // Page rows: the cells after each row's position column.
    const std::pair<std::string, std::string> pages[] = {
        {"000000: <41> <42>\r\n000002: <43>\r\n\r\n", "ABC"}, {"000000: a:b", "a:b"}, {"no colon at all <41>", ""},
        // A line without ":" goes with the next line's position column.
        {"000000: <41>\r\nstray <42>\r\n000002: <43>\r\n", "AC"},
        // A row with a bad token stays as it is.
        {"0: <GG>   \r\n1: <42>", "<GG>B"}, {"0: <41>  <GG>", "<41>  <GG>"},
    };
    for (const auto& [page, expected] : pages)
        EXPECT_EQ(decodepage(page), expected) << testing::PrintToString(page);
}

TEST(StringTools, TakesTheSourceApartAndReadsLeadingNumbers)
{
    // tokens: successive results until the source is empty; rest: the source after the first call.
    const struct { std::string source, delimiter; std::vector<std::string> tokens; std::string rest; } rows[] = {
        {"a b  c ", " ", {"a", "b", "c"}, "b  c"}, {"a::b", ":", {"a", "", "b"}, ":b"}, {"x=>y==>z", "==>", {"x=>y", "z"}, "z"},
        // Without a delimiter nothing is trimmed.
        {"  abc  ", ":", {"  abc  "}, ""},
        // Only spaces are trimmed, and case is exact.
        {"\t a \t| b\r\n", "|", {"\t a \t", "b\r\n"}, "b\r\n"},
        {"a\0b c"s, " ", {"a\0b"s, "c"}, "c"},
        {std::string(70000, 'a') + "|tail", "|", {std::string(70000, 'a'), "tail"}, "tail"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.source.substr(0, 20)) + " at " + row.delimiter);
        std::string source = row.source;
        std::vector<std::string> tokens = {nexttoken(source, row.delimiter)};
        EXPECT_EQ(source, row.rest);
        while (!source.empty() && tokens.size() < 20)
            tokens.push_back(nexttoken(source, row.delimiter));
        EXPECT_EQ(tokens, row.tokens);
    }
    // The number at a text's head, as an Integer takes it from a list of stops.
    // numbers: parsestringforinteger at "," until the text is empty; head: leadingnumber of the whole text.
    const struct { std::string text; std::vector<int> numbers; std::int64_t head; } heads[] = {
        {"180,,200", {180, 0, 200}, 180}, {" \t-12ab,+7", {-12, 7}, -12}, {"x1", {0}, 0},
        {"99999,-99999", {32767, -32768}, 99999},
        {"99999999999999999999999", {32767}, 1'000'000'000'000'000'000},
    };
    for (const auto& row : heads) {
        SCOPED_TRACE(row.text);
        EXPECT_EQ(leadingnumber(row.text), row.head);
        std::string s = row.text;
        std::vector<int> numbers;
        while (!s.empty() && numbers.size() < 10)
            numbers.push_back(parsestringforinteger(s, ","));
        EXPECT_EQ(numbers, row.numbers);
    }
    EXPECT_EQ(trimblanks(" \ta b \t "), "\ta b \t");
    EXPECT_EQ(trimblanks(" \ta b \t ", " \t"), "a b");
    EXPECT_EQ(zeropadded(12, 7) + " " + zeropadded(12345678, 7), "0000012 12345678");
}

// The literal definition: find the leftmost occurrence, replace it, search
// again from the start; two steps through byte 31 when the replacement holds
// the target.
void referencereplace(std::string& text, const std::string& target, const std::string& replacement)
{
    if (replacement.find(target) != std::string::npos) {
        referencereplace(text, target, "\x1f");
        referencereplace(text, "\x1f", replacement);
        return;
    }
    for (std::size_t i = text.find(target); i != std::string::npos; i = text.find(target))
        text = text.substr(0, i) + replacement + text.substr(i + target.size());
}

std::string randomtext(std::mt19937& rng, std::string_view alphabet, std::size_t maxlength)
{
    std::string s(std::uniform_int_distribution<std::size_t>(0, maxlength)(rng), ' ');
    for (char& c : s)
        c = alphabet[std::uniform_int_distribution<std::size_t>(0, alphabet.size() - 1)(rng)];
    return s;
}

TEST(ReplaceAll, RepeatsTheSearchAndMatchesTheLiteralDefinition)
{
    const struct { std::string text, target, replacement, expected; } rows[] = {
        {"aaaab", "ab", "b", "b"}, {"aabcbc", "abc", "", ""}, {"aabb", "ab", "ba", "bbaa"}, {"aa", "a", "aa", "aaaa"},
        // A target that is the place-holder takes one pass (the random texts
        // below hold place-holders, each of which comes out as the replacement).
        {"\x1f\x1f", "\x1f", "<\x1f", "<\x1f<\x1f"},
        {std::string(40000, ' ') + "x" + std::string(60000, ' ') + "ab", "  ", " ", " x ab"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text.substr(0, 20)) + ": " + row.target + " by " + row.replacement);
        std::string text = row.text;
        replaceall(text, row.target, row.replacement);
        EXPECT_EQ(text, row.expected);
    }
    // Random texts, where the literal definition is known to end: the replacement
    // is shorter, holds the target, or shares no byte with it.
    std::mt19937 rng(20261122);
    for (int round = 0; round < 20000; ++round) {
        const std::string target = randomtext(rng, "ab ", 4);
        if (target.empty())
            continue;
        const std::string replacement = round % 3 == 0 ? randomtext(rng, "ab ", target.size() - 1)
            : round % 3 == 1 ? randomtext(rng, "ab ", 2) + target + randomtext(rng, "ab ", 2)
                             : randomtext(rng, "xy", 6);
        const std::string text = randomtext(rng, round % 7 == 0 ? "ab \x1f" : "ab ", 40);
        std::string expected = text, actual = text;
        referencereplace(expected, target, replacement);
        replaceall(actual, target, replacement);
        ASSERT_EQ(actual, expected) << "text '" << text << "' target '" << target << "' replacement '"
                                    << replacement << "'";
    }
}

}  // namespace
}  // namespace brindlex
