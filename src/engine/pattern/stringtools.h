// The two text tools through which list lines, ini values, page rows,
// position expressions and patterns all go. Both work on byte strings and
// compare exactly as to case. Strings of any length work.
#pragma once

#include <string>

namespace brindlex {

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
