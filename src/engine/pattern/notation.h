// The byte notation of patterns: typed text to bytes (%nn and <nn>), bytes to
// display cells, and page text back to bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brindlex {

// Upper-casing of the scanner and of typed digits: a-z to A-Z and the
// ISO-8859-1 letters 0xE0-0xFE (but 0xF7) to 0xC0-0xDE; every other byte stays.
unsigned char uppercasebyte(unsigned char c);
void uppercase(std::string& bytes);

// Picks the notation: the angle notation when `bConvertHex` is set and the
// first ">" stands three places behind the first "<" (a text without "<"
// passes when ">" is its third character), else the percent notation.
std::string decodepattern(const std::string& text, bool bConvertHex);

// %nn with either case of digits; "%4G" gives 04 (the G goes with it); a "%"
// with fewer than two characters behind it ends the decoding.
std::string decodepercent(const std::string& text);

// <nn> tokens with upper-case digits, spaces and CR LF as separators; a bad
// <..> token of four characters hands back the argument unchanged.
std::string decodeangle(const std::string& text);

// Value of up to 8 upper-case hexadecimal digits, -1 for a bad digit, 0 for "".
double hexvalue(std::string_view digits);

// Each byte as a 4-character cell and a blank: "  A " for 33..127 when
// `showtext`, else "<0D>"; CR LF behind every `width` bytes. width >= 1.
std::string encodebytes(std::string_view bytes, int width, bool showtext);

// The bytes of a viewer page: for each row, what follows its first ":" up to
// CR LF, through decodeangle.
std::string decodepage(const std::string& text);

// Two bytes (cut or padded on the right with blanks) as a signed 16-bit
// little-endian number.
std::int16_t bytestoint(std::string_view bytes);

}  // namespace brindlex
