// The replacement store: a private-profile ini file with the section
// "Replacements", one line a set: key "=" find "==>" replace.
//
// The file format, as read and written here:
//  - Lines end in LF or CR LF; a file is written with the line end it already
//    uses (that of its first line), a new file with CR LF. A line that is not
//    touched keeps its bytes, its own line end included.
//  - "[name]" (blanks around it allowed, no "=" in it) opens a section.
//  - A line whose first non-blank is ";" is a comment, never a key; so a key
//    that begins with ";" can be written but never read back.
//  - Any other line of a section with a "=" is a key line: the name is what
//    stands before its first "=", the value what follows; both lose blanks
//    (spaces and tabs) at their ends. A line with an empty name, lines before
//    the first section and every other odd line are kept as they are and
//    otherwise ignored. Quotes are ordinary characters.
//  - Section and key names are found without regard to case (ISO-8859-1
//    letters included), as the platform's profile functions do. A section
//    that appears twice counts as one, read in file order; of a key that
//    appears twice, the first line counts.
//  - Writing an existing key rewrites its line where it stands: the name as
//    the file spells it, "=", the new value. A new key goes right behind the
//    last key line of its section (behind the header if it has none), so
//    blank lines and comments that close the section stay below it. A
//    missing section is added at the end of the file, behind a blank line;
//    a missing file is created, and its directory with it.
//  - Every write goes through the engine's safe file replacement, so a
//    failed write leaves the old file as it was, byte for byte.
//
// Names and values hold no line end; a name holds no "=".
#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/error.h"

namespace brindlex {

// The platform's answer buffer: 1000 bytes, closing NULs included.
inline constexpr std::size_t kProfileBuffer = 1000;

// The key names of `section`, each once, in the order of the file's lines.
// A missing or unreadable file, or a missing section, has none.
std::vector<std::string> profilekeys(const std::filesystem::path& file, std::string_view section);

// The value of `key` in `section`; nullopt when the key, the section or the
// file is missing.
std::optional<std::string> profilevalue(const std::filesystem::path& file, std::string_view section,
                                        std::string_view key);

// Writes `key` = `value` into `section` (see the rules above). A file that
// can't be read is not written, so that nothing of it is lost; an empty key
// is refused. Writing what the file already holds leaves it untouched.
Error writeprofilestring(const std::filesystem::path& file, std::string_view section, std::string_view key,
                         std::string_view value);

// One request to the ini file, in the form section "|" key "=" value, split
// with nexttoken: only the first "|" and the first "=" behind it separate,
// so "Replacements|a|b=x=y==>z" is key "a|b", value "x=y==>z".
//  Mode 0 lists the keys of the section, each followed by a NUL, as they fit
//    a 1000-byte buffer that ends in two NULs: a list longer than 998 bytes
//    is cut to its first 998, so the last name may be cut short and lose its
//    NUL. Mode 1 reads a key; the request's value is the default; at most
//    999 bytes come back. Mode 2 writes a key and returns "".
// Never reports a failure: a missing file lists as empty and reads as the
// default, and a failed write goes unnoticed.
std::string profilestring(int nMode, const std::string& sRepList, const std::filesystem::path& sIniFile);

// The default file is in use when the path holds "brindlex.ini", anywhere, in
// these lower-case letters: "/x/my-brindlex.ini" is, "/x/BRINDLEX.INI" isn't.
bool isdefaultfile(const std::string& sIniFile);

// ${XDG_CONFIG_HOME:-~/.config}/brindlex/brindlex.ini (a relative
// XDG_CONFIG_HOME is ignored, as the XDG rules say).
std::filesystem::path defaultinifile();

}  // namespace brindlex
