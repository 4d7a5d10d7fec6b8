#include "engine/viewer/position.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>

#include "engine/pattern/stringtools.h"
#include "engine/viewer/page.h"

namespace brindlex {
namespace {

constexpr std::size_t kLongestPosition = 1000;

bool isblank(char c) { return c == ' ' || c == '\t' || c == '\n'; }
bool isdigit(char c) { return c >= '0' && c <= '9'; }

int hexdigit(char c)
{
    if (isdigit(c))
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

std::int64_t clamped(double value)
{
    constexpr double limit = 9.2e18;
    if (std::isnan(value))
        return 0;
    return static_cast<std::int64_t>(std::nearbyint(std::fmax(-limit, std::fmin(limit, value))));
}

// Decimal digits with a fraction and an exponent ("1.5E3"): the digits are
// gathered as text and converted once, so that no rounding creeps in.
double decimalnumber(const std::string& digits)
{
    std::string number;
    std::size_t at = 0;
    if (!digits.empty() && (digits[0] == '+' || digits[0] == '-'))
        number += digits[at++];
    auto take = [&](bool (*accept)(char)) {
        while (at < digits.size() && accept(digits[at]))
            number += digits[at++];
    };
    take(isdigit);
    if (at < digits.size() && digits[at] == '.') {
        number += digits[at++];
        take(isdigit);
    }
    const bool exponent = at + 1 < digits.size() && (digits[at] == 'E' || digits[at] == 'e' || digits[at] == 'D' ||
                                                     digits[at] == 'd');
    if (exponent && (isdigit(digits[at + 1]) || digits[at + 1] == '+' || digits[at + 1] == '-')) {
        number += 'E';
        ++at;
        number += digits[at++];
        take(isdigit);
    }
    if (number.find_first_of("0123456789") == std::string::npos)
        return 0;
    return std::strtod(number.c_str(), nullptr);
}

}  // namespace

double inputnumber(std::string_view s)
{
    std::string compact;
    for (const char c : s) {
        if (!isblank(c))
            compact += c;
    }
    if (compact.size() >= 2 && compact[0] == '&' && (compact[1] == 'H' || compact[1] == 'h')) {
        double value = 0;
        for (std::size_t at = 2; at < compact.size() && hexdigit(compact[at]) >= 0; ++at)
            value = value * 16 + hexdigit(compact[at]);
        return value;
    }
    return decimalnumber(compact);
}

std::int64_t parseposition(std::string_view s, std::int64_t lViewHit, std::int64_t nViewBlock)
{
    // Each sign is a level of evaluation over the rest of the text: a text
    // no one types stops here instead of taking quadratic time.
    if (s.size() > kLongestPosition)
        return 0;
    const std::string text(s);
    const bool plus = text.find('+') != std::string::npos;
    const bool minus = text.find('-') != std::string::npos;
    if (!plus && !minus && text.find('.') == std::string::npos)
        return clamped(inputnumber(text));
    if (text == "+")
        return lViewHit + nViewBlock;
    if (text == "-")
        return lViewHit - nViewBlock;
    if (plus || minus) {
        std::string right = text;
        const std::string left = nexttoken(right, plus ? "+" : "-");
        // An empty left side is lViewHit itself, taken as a number: as text
        // a negative lViewHit would be split again, without end.
        const std::int64_t a = left.empty() ? lViewHit : parseposition(left, lViewHit, nViewBlock);
        const std::int64_t b = parseposition(right, lViewHit, nViewBlock);
        std::int64_t sum = 0;
        if (plus ? __builtin_add_overflow(a, b, &sum) : __builtin_sub_overflow(a, b, &sum))
            return (plus ? b > 0 : b < 0) ? std::numeric_limits<std::int64_t>::max()
                                          : std::numeric_limits<std::int64_t>::min();
        return sum;
    }
    if (text[0] == '.')
        return clamped(inputnumber(std::string_view(text).substr(1)) * 512);
    return 0;
}

std::int64_t lastinstr(std::string_view sText, std::string_view sFind)
{
    if (sFind.empty())
        return 0;
    const std::size_t at = sText.rfind(sFind);
    return at == std::string_view::npos ? 0 : static_cast<std::int64_t>(at) + 1;
}

std::int64_t clickposition(std::string_view pageText, std::int64_t caret, int nFormat)
{
    if (caret < 0)
        return 0;
    const std::size_t head = std::min(pageText.size(), static_cast<std::size_t>(caret) + 1);
    std::int64_t r = lastinstr(pageText.substr(0, head), "\r\n");
    if (r == 0)
        r = -1;
    const std::size_t rowstart = static_cast<std::size_t>(r + 1);
    const std::string_view s = rowstart < pageText.size() ? pageText.substr(rowstart, 10) : std::string_view();
    const std::size_t colon = s.find(':');
    const std::int64_t k = colon == std::string_view::npos ? 0 : static_cast<std::int64_t>(colon) + 1;
    double b = 0;
    if (nFormat == kFormatDecimal)
        b = inputnumber(s);
    else if (nFormat == kFormatSector)
        b = inputnumber("&H" + std::string(s.substr(0, s.find('.'))) + "&");
    else
        b = inputnumber("&H" + std::string(s) + "&");
    const std::int64_t o = caret - r - k - 2;
    return clamped(b) + o / 5;
}

std::string clicklabel(std::int64_t position, int nFormat)
{
    char label[40];
    if (nFormat == kFormatHex || nFormat == kFormatSector)
        std::snprintf(label, sizeof label, "0x%" PRIX64, static_cast<std::uint64_t>(position));
    else
        std::snprintf(label, sizeof label, "%" PRId64, position);
    return label;
}

std::string gotodefault(std::int64_t lViewHit, int nFormat)
{
    if (nFormat == kFormatDecimal)
        return std::to_string(lViewHit);
    char answer[40];
    std::snprintf(answer, sizeof answer, "&H%" PRIX64 "&", static_cast<std::uint64_t>(lViewHit));
    return answer;
}

std::int64_t hittop(std::int64_t lHit, int nWidth)
{
    const std::int64_t rows = 2 * static_cast<std::int64_t>(nWidth);
    return lHit > rows ? lHit - rows : 1;
}

int openingwidth(int nWidth, bool bHit)
{
    return nWidth != 0 ? nWidth : bHit ? 10 : 8;
}

}  // namespace brindlex
