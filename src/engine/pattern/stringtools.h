// The two text tools through which list lines, ini values, page rows,
// position expressions and patterns all go. Both work on byte strings and
// compare exactly as to case. Strings of any length work.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace brindlex {

// `s` without the bytes of `blanks` at either end; by default only spaces,
// as nexttoken trims: trimblanks(" a b ") -> "a b", and with " \t" tabs go
// too.
std::string_view trimblanks(std::string_view s, std::string_view blanks = " ");

// The number at the head of `text`: spaces and tabs skipped, an optional
// sign, then decimal digits; 0 when there are none. It stops growing at
// 10^18, so it never overflows: "  -12ab" -> -12, "x1" -> 0, "+" -> 0.
std::int64_t leadingnumber(std::string_view text);

// The number at the head of `s` as a 16-bit Integer holds it (clamped to
// -32768..32767); `s` loses everything up to and including the first `ch`,
// or all of it when there is no `ch`: "180,,200" with "," gives 180, then
// 0, then 200, and `s` is empty.
int parsestringforinteger(std::string& s, const std::string& ch);

// `n` in decimal, padded with zeros in front to `width` digits; a longer
// number is written in full: zeropadded(12, 7) -> "0000012". `n` >= 0.
std::string zeropadded(std::int64_t n, int width);

// Returns the text before the first `delimiter` in `source` and shortens
// `source` to what follows. Token and rest lose the spaces (only spaces) at
// both ends. Without a delimiter the whole `source` is returned untrimmed and
// `source` becomes empty:
//   "a b  c " with " "  -> "a", rest "b  c"
//   "  abc  " with ":"  -> "  abc  ", rest ""
//   "a::b"    with ":"  -> "a", rest ":b"; then "", rest "b"
//   "a:"      with ":"  -> "a", rest "" (no empty token follows)
// An empty `delimiter` counts as absent, so a loop over `source` still ends.
std::string nexttoken(std::string& source, const std::string& delimiter);

// Replaces every `target` in `text` by `replacement`, searching again from
// the start after each replacement, so the result holds no `target` at all:
// "ab" by "b" turns "aab" into "b". When `replacement` contains `target` the
// byte 31 serves as a place-holder (target -> 31 -> replacement), which gives
// the result of a single pass; every byte 31 already in `text` then comes out
// as `replacement` too: "a" + 31 + "b<" with "<" by " <" gives "a <b <".
// An empty `target` changes nothing. Long texts cost linear time for every
// pair in use ("  " by " " over a megabyte of spaces is one pass).
void replaceall(std::string& text, const std::string& target, const std::string& replacement);

}  // namespace brindlex
