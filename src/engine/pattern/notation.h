// The byte notation of patterns: typed text to bytes (%nn and <nn>), bytes to
// display cells, and page text back to bytes. Every routine is a plain
// function of its arguments; none reports anything, and a text that is no
// valid notation comes back as plain bytes.
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
// Nothing else is looked at, and the two notations never mix in one text:
//   "<41>%42" -> 41 25 34 32 (angle)    "%41<0D>" -> 25 34 31 0D (angle)
//   "x>y<41>" -> as typed (percent)     "ab> c"   -> 61 62 3E 63 (angle)
std::string decodepattern(const std::string& text, bool bConvertHex);

// %nn with either case of digits; "%4G" gives 04 (the G goes with it); a "%"
// with fewer than two characters behind it ends the decoding. A made byte is
// never read again: "%2541" gives 25 34 31, "%%41" gives 25 41, "%9%9" gives
// 09 39.
std::string decodepercent(const std::string& text);

// <nn> tokens with upper-case digits, spaces and CR LF as separators (a lone
// CR or LF, or a tab, is none); other tokens are kept as text and all are
// joined with nothing between: "ab <0D> cd" gives 61 62 0D 63 64. A bad
// <..> token of four characters hands back the argument unchanged, spaces
// included: "<41> <GG>" and "<0d>" stay as typed. A byte 31 in the argument
// comes out as "<", as the place-holder of replaceall makes it.
std::string decodeangle(const std::string& text);

// Value of up to 8 upper-case hexadecimal digits (what follows is ignored),
// -1 for a bad digit (lower case included), 0 for "".
double hexvalue(std::string_view digits);

// Each byte as a 4-character cell and a blank: "  A " for 33..127 when
// `showtext`, else "<0D>"; CR LF behind every `width` bytes, none behind a
// last short row. 41 0D at width 16 with text: "  A  <0D> ". A width below 1
// counts as 1. decodeangle gives back the bytes for every width and mode.
std::string encodebytes(std::string_view bytes, int width, bool showtext);

// The bytes of a viewer page: for each row, what follows its first ":" up to
// CR LF, through decodeangle. The ":" is searched across line ends, so a
// line without one is dropped with the next line's position column; a row
// with a bad token gives its text (trimmed of spaces at the ends) and the
// other rows are still decoded. "000000: <41> <42>\r\n000002: <43>\r\n"
// gives 41 42 43; "000000: a:b" gives 61 3A 62.
std::string decodepage(const std::string& text);

// Two bytes (cut or padded on the right with blanks) as a signed 16-bit
// little-endian number: "\x01\x80" is -32767, "A" is 0x2041.
std::int16_t bytestoint(std::string_view bytes);

}  // namespace brindlex
