// From the typed mask to the file list. Paths use "/" only; case is kept as
// typed and as the file system gives it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace brindlex {

class Host;

// The name part: behind the last "/", with every blank removed.
//   "/data/a b.txt" -> "ab.txt", "/data/" -> "", "*.*" -> "*.*"
std::string filepart(std::string_view path);

// The directory part, trimmed of blanks at the ends, up to the "/" in front
// of the name part: "/data/*.txt" -> "/data", "/*.*" -> "", "*.*" -> "".
std::string dirpart(std::string_view path);

// Steps of the Dir button before the walk: an empty text lists the current
// directory, a text without "/" is looked up in `cwd`, an existing directory
// gets "/*.*", and every "//" becomes "/". Returns the new text of the mask box.
std::string expandmask(const std::string& text, const std::filesystem::path& cwd);

// The base directory caption for an expanded mask: dirpart and "/".
std::string basedirfor(const std::string& mask);

// Whether `name` matches the wildcard `mask` (* and ? only, case-sensitive;
// "*.*" matches every name, with or without a dot).
bool wildcardmatch(std::string_view mask, std::string_view name);

// A List1 line: relative name, tab, size as "00000000" (longer in full),
// and "*" once a run has rewritten the file.
std::string list1line(std::string_view relname, std::int64_t size, bool rewritten = false);

// The first field of a list line (nexttoken at the tab).
std::string firstfield(const std::string& line);

// Sorts lines the way the sorted list keeps them: ascending by their bytes.
void sortlist1(std::vector<std::string>& lines);

// The walk: lists the regular files (and links to regular files) of
// dirpart(mask) that match filepart(mask), then, with `bIncludeSubs`, every
// real subdirectory whose name doesn't begin with "." in full, depth first.
// Adds each file through host.addentry() by its real name. Calls host.enablecontrols(false) at the
// start of each directory and (true) at its end, and host.yield() before
// each file and each directory entry; a raised cancel flag ends the listing
// of the directory in hand. FIFOs, sockets, devices and links to
// directories are passed over silently; a directory that can't be opened is
// passed over and told to host.unreadable(). Directories are entered one
// from another (openat), so the depth of a tree has no limit.
void listfiles(const std::string& mask, bool bIncludeSubs, const std::string& baseDir, Host& host);

}  // namespace brindlex
