// Positions typed by the user and positions under the caret.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brindlex {

// The number at the start of a typed answer (goto, the row width), read the
// way the viewer's boxes read numbers, which is more than leadingnumber of
// the string tools knows:
// blanks (space, tab, LF) are ignored, "&H" introduces hexadecimal digits
// with an optional trailing "&", a decimal number may have a sign, a
// fraction and an exponent; a text without a number is 0. "  12 3x" is 123,
// "&H1A&" is 26, "-2.5" is -2.5, "1E3" is 1000, "abc" is 0.
double inputnumber(std::string_view s);

// A goto answer as a 1-based file position. The first rule that fits:
//   no "+", "-" or "."  the leading number, rounded (halves to even)
//   exactly "+" / "-"   lViewHit + nViewBlock / lViewHit - nViewBlock
//   holds "+"           split at the first "+", both sides trimmed of
//                       blanks, an empty left side is lViewHit: left + right
//   holds "-"           the same at the first "-": left - right
//   begins with "."     the number behind it times 512, rounded: ".2" 1024
//   other text with "." 0
// The right side is evaluated whole: "10-2-3" is 11, "1+2-3" is 0, "5-3+1" is
// 3; "+100" is lViewHit + 100. A hexadecimal number is never negative; a sum
// beyond the 64-bit range stops at its end. A text over 1000 characters is 0.
std::int64_t parseposition(std::string_view s, std::int64_t lViewHit, std::int64_t nViewBlock);

// 1-based place of the last `sFind` in `sText`; 0 if none or `sFind` is
// empty. lastinstr("abcabc", "bc") is 5.
std::int64_t lastinstr(std::string_view sText, std::string_view sFind);

// The file position of the byte under the caret (0-based offset `caret` in
// the page text), from the row's position column and the caret's distance
// from the row's first cell, 5 characters a byte, divided towards zero. Rows
// of 4 cells, format 0, "000001: <48> <69> <0D> <0A> \r\n000005: <00> <FF>
// <5A> ", caret 44 (second cell of the second row) gives 6. A caret in a
// position column gives the row's position or a little less; an empty page
// gives 0. The number means nothing in the text modes or in format 3.
std::int64_t clickposition(std::string_view pageText, std::int64_t caret, int nFormat);

// Label4's caption for a clicked position: "0x" and upper-case hexadecimal in
// formats 1 and 2, decimal in formats 0 and 3.
std::string clicklabel(std::int64_t position, int nFormat);

// Where the viewer opens. A file opens at its first byte, a hit (and a Goto
// target) stands two rows below the page's top: the page starts at lHit -
// 2 x nWidth, or at 1 before that. Until the user sets a row width, a file
// opens with 8 bytes a row and a hit with 10 (nWidth 0: never opened).
//   hittop(100, 10) is 80, hittop(15, 10) is 1; openingwidth(0, true) is 10,
//   openingwidth(16, true) is 16.
std::int64_t hittop(std::int64_t lHit, int nWidth);
int openingwidth(int nWidth, bool bHit);

// Goto's default answer: lViewHit in decimal in format 0, else "&H", upper-
// case hexadecimal, "&" ("&H3E8&" for 1000).
std::string gotodefault(std::int64_t lViewHit, int nFormat);

}  // namespace brindlex
