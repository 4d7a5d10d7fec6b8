#include "pattern/stringtools.h"

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

namespace brindlex {
namespace {

// ---- nexttoken: trimming, missing delimiter, repeated delimiters ----------

struct TokenCase {
    std::string source;
    std::string delimiter;
    std::vector<std::string> tokens;  // successive results until source is empty
    std::vector<std::string> rests;   // source after each call

    friend void PrintTo(const TokenCase& c, std::ostream* os)
    {
        *os << testing::PrintToString(c.source) << " at " << testing::PrintToString(c.delimiter);
    }
};

class NextTokenTest : public testing::TestWithParam<TokenCase> {};

TEST_P(NextTokenTest, TakesTheSourceApart)
{
    const TokenCase& c = GetParam();
    std::string source = c.source;
    std::vector<std::string> tokens, rests;
    do {
        tokens.push_back(nexttoken(source, c.delimiter));
        rests.push_back(source);
    } while (!source.empty() && tokens.size() < 20);
    EXPECT_EQ(tokens, c.tokens);
    EXPECT_EQ(rests, c.rests);
}

INSTANTIATE_TEST_SUITE_P(Fields, NextTokenTest, testing::Values(
    TokenCase{"", " ", {""}, {""}},
    TokenCase{"a b  c ", " ", {"a", "b", "c"}, {"b  c", "c", ""}},
    TokenCase{" a", " ", {"", "a"}, {"a", ""}},
    TokenCase{"  abc  ", ":", {"  abc  "}, {""}},
    TokenCase{"a::b", ":", {"a", "", "b"}, {":b", "b", ""}},
    TokenCase{"a:", ":", {"a"}, {""}},
    TokenCase{"a:   ", ":", {"a"}, {""}},
    TokenCase{"x==>y", "==>", {"x", "y"}, {"y", ""}},
    TokenCase{"x=>y==>z", "==>", {"x=>y", "z"}, {"z", ""}},
    TokenCase{"name\t 12 *", "\t", {"name", "12 *"}, {"12 *", ""}},
    // Only spaces are trimmed: tabs and line ends stay with the token.
    TokenCase{"\t a \t| b\r\n", "|", {"\t a \t", "b\r\n"}, {"b\r\n", ""}},
    TokenCase{" 000010: <41> \r\n000011: <42>", "\r\n", {"000010: <41>", "000011: <42>"},
              {"000011: <42>", ""}},
    // Case is exact.
    TokenCase{"aXbxc", "x", {"aXb", "c"}, {"c", ""}}));

TEST(NextToken, FindsDelimitersFarIntoLongStrings)
{
    std::string source(70000, 'a');
    source += "|tail";
    EXPECT_EQ(nexttoken(source, "|"), std::string(70000, 'a'));
    EXPECT_EQ(source, "tail");
}

TEST(NextToken, KeepsNulBytes)
{
    std::string source("a\0b c", 5);
    EXPECT_EQ(nexttoken(source, " "), std::string("a\0b", 3));
    EXPECT_EQ(source, "c");
}

// ---- replaceall: repeated search, overwrite, the two-step path ------------

struct ReplaceCase {
    std::string text;
    std::string target;
    std::string replacement;
    std::string expected;

    friend void PrintTo(const ReplaceCase& c, std::ostream* os)
    {
        *os << testing::PrintToString(c.text) << ": " << testing::PrintToString(c.target) << " by "
            << testing::PrintToString(c.replacement);
    }
};

class ReplaceAllTest : public testing::TestWithParam<ReplaceCase> {};

TEST_P(ReplaceAllTest, Replaces)
{
    const ReplaceCase& c = GetParam();
    std::string text = c.text;
    replaceall(text, c.target, c.replacement);
    EXPECT_EQ(text, c.expected);
}

INSTANTIATE_TEST_SUITE_P(Repeated, ReplaceAllTest, testing::Values(
    ReplaceCase{"", "a", "b", ""},
    ReplaceCase{"xyz", "a", "", "xyz"},
    ReplaceCase{"aab", "ab", "b", "b"},
    ReplaceCase{"aaaab", "ab", "b", "b"},
    ReplaceCase{"a     b  c", "  ", " ", "a b c"},
    ReplaceCase{"        ", "  ", " ", " "},
    ReplaceCase{"a//b////c/", "//", "/", "a/b/c/"},
    ReplaceCase{"a b  c", " ", "%20", "a%20b%20%20c"},
    ReplaceCase{"k=v=w", "=", "-", "k-v-w"},
    ReplaceCase{"abab", "a", "x", "xbxb"},
    ReplaceCase{"<41>\r\n<42>\r\n", "\r\n", " ", "<41> <42> "},
    ReplaceCase{"\r\r\n\n", "\r\n", "", ""},
    ReplaceCase{"abcabc", "abc", "", ""},
    ReplaceCase{"aabcbc", "abc", "", ""},
    ReplaceCase{"ABab", "ab", "", "AB"},
    // Same length, search restarted: the text is sorted step by step.
    ReplaceCase{"aabb", "ab", "ba", "bbaa"},
    ReplaceCase{"xaab", "ab", "bb", "xbbb"}));

INSTANTIATE_TEST_SUITE_P(TwoStep, ReplaceAllTest, testing::Values(
    ReplaceCase{"x<y<", "<", " <", "x <y <"},
    ReplaceCase{"<41>", ">", "> ", "<41> "},
    ReplaceCase{"xyz", "<", " <", "xyz"},
    ReplaceCase{"aa", "a", "aa", "aaaa"},
    ReplaceCase{"abc", "b", "b", "abc"},
    // Every place-holder byte already in the text comes out as the replacement.
    ReplaceCase{"a\x1f" "b<", "<", " <", "a <b <"},
    ReplaceCase{"\x1f", "b", "b", "b"},
    ReplaceCase{"\x1f\x1f", "\x1f", "<\x1f", "<\x1f<\x1f"}));

TEST(ReplaceAll, WorksFarBeyondShortPositions)
{
    std::string text(100000, ' ');
    text[40000] = 'x';
    text += "ab";
    replaceall(text, "  ", " ");
    EXPECT_EQ(text, " x ab");

    std::string backslashes = "a" + std::string(50001, '/') + "b";
    replaceall(backslashes, "//", "/");
    EXPECT_EQ(backslashes, "a/b");
}

// The literal definition: find the leftmost occurrence, replace it, search
// again from the start; the two-step path when the replacement holds the
// target.
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

// Cases where the literal definition is known to end: the replacement is
// shorter, holds the target, or has no byte that the target has.
TEST(ReplaceAll, MatchesTheLiteralDefinitionOnRandomTexts)
{
    std::mt19937 rng(20261122);
    int checked = 0;
    for (int round = 0; round < 20000; ++round) {
        const std::string target = randomtext(rng, "ab ", 4);
        if (target.empty())
            continue;
        std::string replacement;
        switch (round % 3) {
        case 0:
            replacement = randomtext(rng, "ab ", target.size() - 1);
            break;
        case 1:
            replacement = randomtext(rng, "ab ", 2) + target + randomtext(rng, "ab ", 2);
            break;
        default:
            replacement = randomtext(rng, "xy", 6);
        }
        const std::string text = randomtext(rng, round % 7 == 0 ? "ab \x1f" : "ab ", 40);
        std::string expected = text;
        referencereplace(expected, target, replacement);
        std::string actual = text;
        replaceall(actual, target, replacement);
        ASSERT_EQ(actual, expected) << "text '" << text << "' target '" << target
                                    << "' replacement '" << replacement << "'";
        ++checked;
    }
    EXPECT_GT(checked, 15000);
}

}  // namespace
}  // namespace brindlex
