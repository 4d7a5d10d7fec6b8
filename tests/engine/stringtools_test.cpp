#include "engine/pattern/stringtools.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace brindlex {
namespace {

using namespace std::string_literals;

TEST(NextToken, TakesTheSourceApart)
{
    const struct {
        std::string source, delimiter;
        std::vector<std::string> tokens;  // successive results until the source is empty
        std::string rest;                 // the source after the first call
    } rows[] = {
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
}

// The number at a text's head, as an Integer takes it from a list of stops.
TEST(LeadingNumber, ReadsTheHeadAndCutsAtTheDelimiter)
{
    const struct {
        std::string text;
        std::vector<int> numbers;   // parsestringforinteger at "," until the text is empty
        std::int64_t head;          // leadingnumber of the whole text
    } rows[] = {
        {"180,,200", {180, 0, 200}, 180}, {" \t-12ab,+7", {-12, 7}, -12}, {"x1", {0}, 0},
        {"99999,-99999", {32767, -32768}, 99999},
        {"99999999999999999999999", {32767}, 1'000'000'000'000'000'000},
    };
    for (const auto& row : rows) {
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

TEST(ReplaceAll, RepeatsTheSearchAndTakesTwoStepsWhenTheReplacementHoldsTheTarget)
{
    const struct { std::string text, target, replacement, expected; } rows[] = {
        {"aaaab", "ab", "b", "b"}, {"aabcbc", "abc", "", ""}, {"aabb", "ab", "ba", "bbaa"}, {"aa", "a", "aa", "aaaa"},
        // Every place-holder byte already in the text comes out as the
        // replacement, and a target that is the place-holder takes one pass.
        {"a\x1f" "b<", "<", " <", "a <b <"},
        {"\x1f\x1f", "\x1f", "<\x1f", "<\x1f<\x1f"},
        {std::string(40000, ' ') + "x" + std::string(60000, ' ') + "ab", "  ", " ", " x ab"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row.text.substr(0, 20)) + ": " + row.target + " by " + row.replacement);
        std::string text = row.text;
        replaceall(text, row.target, row.replacement);
        EXPECT_EQ(text, row.expected);
    }
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

// Only cases where the literal definition is known to end: the replacement
// is shorter, holds the target, or shares no byte with it.
TEST(ReplaceAll, MatchesTheLiteralDefinitionOnRandomTexts)
{
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
