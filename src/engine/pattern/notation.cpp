#include "engine/pattern/notation.h"

#include <cstddef>

#include "engine/core/state.h"
#include "engine/pattern/stringtools.h"

namespace brindlex {
namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";

// The place of `c` in the digit table after upper-casing, or -1.
int percentdigit(char c)
{
    const std::size_t at = kDigits.find(static_cast<char>(uppercasebyte(static_cast<unsigned char>(c))));
    return at == std::string_view::npos ? -1 : static_cast<int>(at);
}

}  // namespace

unsigned char uppercasebyte(unsigned char c)
{
    if ((c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7))
        return static_cast<unsigned char>(c - 0x20);
    return c;
}

void uppercase(std::string& bytes)
{
    for (char& c : bytes)
        c = static_cast<char>(uppercasebyte(static_cast<unsigned char>(c)));
}

std::string decodepattern(const std::string& text, bool bConvertHex)
{
    const std::size_t p = text.find('>') + 1;  // 1-based, 0 when absent
    const std::size_t q = text.find('<') + 1;
    if (bConvertHex && p == q + 3)
        return decodeangle(text);
    return decodepercent(text);
}

std::string decodepercent(const std::string& text)
{
    // A made byte is never looked at again, so one pass over the typed text
    // decodes it. Where the decoding stops, at a "%" with fewer than two
    // characters behind it, only that short tail is left, and it stays.
    std::string result;
    result.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const char c = text[i];
        if (c != '%' || i + 2 >= text.size()) {
            result += c;
            ++i;
            continue;
        }
        const int d1 = percentdigit(text[i + 1]);
        const int d2 = percentdigit(text[i + 2]);
        if (d1 < 0) {
            result += c;
            ++i;
            continue;
        }
        result += static_cast<char>(d2 < 0 ? d1 : 16 * d1 + d2);
        i += 3;
    }
    return result;
}

std::string decodeangle(const std::string& text)
{
    std::string s = text;
    replaceall(s, std::string(sCRLF), " ");
    replaceall(s, "<", " <");
    replaceall(s, ">", "> ");
    replaceall(s, "  ", " ");

    // With no two spaces left in a row, taking tokens with nexttoken(s, " ")
    // until s is empty yields exactly the pieces between single spaces; an
    // empty piece adds nothing.
    std::string result;
    result.reserve(s.size());
    const std::string_view all = s;
    std::size_t from = 0;
    while (from < all.size()) {
        std::size_t to = all.find(' ', from);
        if (to == std::string_view::npos)
            to = all.size();
        const std::string_view token = all.substr(from, to - from);
        from = to + 1;
        if (token.size() == 4 && token.front() == '<' && token.back() == '>') {
            const double value = hexvalue(token.substr(1, 2));
            if (value < 0)
                return text;
            result += static_cast<char>(static_cast<int>(value));
        } else {
            result += token;
        }
    }
    return result;
}

double hexvalue(std::string_view digits)
{
    double value = 0;
    for (const char c : digits.substr(0, 8)) {
        if (c >= '0' && c <= '9')
            value = value * 16 + (c - '0');
        else if (c >= 'A' && c <= 'F')
            value = value * 16 + (c - 55);
        else
            return -1;
    }
    return value;
}

std::string encodebytes(std::string_view bytes, int width, bool showtext)
{
    const std::size_t rowlength = width < 1 ? 1 : static_cast<std::size_t>(width);
    std::string result;
    result.reserve(bytes.size() * 5 + (bytes.size() / rowlength) * sCRLF.size());
    std::size_t n = 0;
    for (const char c : bytes) {
        const auto v = static_cast<unsigned char>(c);
        if (showtext && v >= 33 && v <= 127) {
            result += "  ";
            result += c;
            result += ' ';
        } else {
            result += '<';
            result += kDigits[v >> 4];
            result += kDigits[v & 15];
            result += '>';
        }
        result += ' ';
        if (++n % rowlength == 0)
            result += sCRLF;
    }
    return result;
}

std::string decodepage(const std::string& text)
{
    // Walks the text as nexttoken(text, ":") and nexttoken(text, sCRLF) take
    // it apart, without copying the rest at every row: `work` is what the
    // work copy would hold.
    std::string result;
    std::string_view work = text;
    while (!work.empty()) {
        const std::size_t colon = work.find(':');
        if (colon == std::string_view::npos)
            break;
        work = trimblanks(work.substr(colon + 1));
        std::string_view row;
        if (const std::size_t end = work.find(sCRLF); end == std::string_view::npos) {
            row = work;
            work = {};
        } else {
            row = trimblanks(work.substr(0, end));
            work = trimblanks(work.substr(end + sCRLF.size()));
        }
        result += decodeangle(std::string(row));
    }
    return result;
}

std::int16_t bytestoint(std::string_view bytes)
{
    const auto low = static_cast<unsigned char>(bytes.size() > 0 ? bytes[0] : ' ');
    const auto high = static_cast<unsigned char>(bytes.size() > 1 ? bytes[1] : ' ');
    return static_cast<std::int16_t>(static_cast<std::uint16_t>(low | (high << 8)));
}

}  // namespace brindlex
