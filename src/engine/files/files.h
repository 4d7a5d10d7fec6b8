// From the typed mask to the file list. Paths use "/" only; case is kept as
// typed and as the file system gives it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace brindlex {

class FileHandle;
class WalkSink;

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

// The lines of the two lists are shared by the window, the command line and
// the viewer: they are made and read here only.
//
// A List1 line: relative name, tab, size as "00000000" (longer in full),
// and "*" once a run has rewritten the file: "sub/a.txt\t00001234*".
std::string list1line(std::string_view relname, std::int64_t size, bool rewritten = false);

// A file of the list: its real name relative to the base directory (bytes),
// its size as listed, and whether a run has rewritten it. Its line is
// list1line(name, size, rewritten).
struct FileEntry {
    std::string name;
    std::int64_t size = 0;
    bool rewritten = false;
};
inline std::string list1line(const FileEntry& e) { return list1line(e.name, e.size, e.rewritten); }

// The order of List1: ascending by the bytes of the entries' lines, as
// unsigned values (a byte above 127 sorts behind "z"; "a\t1" before "a.b"
// before "a/z"), equal lines in the order they came. One sort of the whole
// list, O(n log n): the first eight bytes of each line settle most
// comparisons without a look at the names, which lie all over the heap, and
// no line is ever made.
void sortlist1(std::vector<FileEntry>& entries);

// A List2 line (a hit): the name relative to the base directory, tab, the
// 1-based position as "000000000", longer numbers in full:
// "sub/a.txt\t000000480". The command line prints the same line for each
// hit, with LF.
std::string list2line(std::string_view sName, std::int64_t lPos);

// The part of a List2 line behind the name, tab and digits, written at
// `out` (room for kList2Tail bytes); returns its end. For a writer that
// makes millions of lines without a string each.
inline constexpr std::size_t kList2Tail = 21;
char* putlist2tail(char* out, std::int64_t lPos);

// A hit of List2: the file's real name and the hit's position.
struct List2Hit {
    std::string sName;
    std::int64_t lPos = 0;
};

// The walk: lists the regular files (and links to regular files) of
// dirpart(mask) that match filepart(mask), then, with `bIncludeSubs`, every
// real subdirectory whose name doesn't begin with "." in full, depth first.
// Gives each file to sink.entry() by its real name. Calls sink.level(true)
// at the start of each directory and (false) at its end, and sink.carryon()
// before each file and each directory entry; its answer false ends the
// listing of the directory in hand. FIFOs, sockets, devices and links to
// directories are passed over silently; a directory that can't be opened,
// read or searched is passed over and told to sink.unreadable(), and the
// walk goes on with the rest. Directories are entered one
// from another (openat), so the depth of a tree has no limit. For a sink
// that allows it (parallelwalk()), the subdirectories of the mask's
// directory are walked on several threads; the sink is still told
// everything from the calling thread, in the same order.
// With `keepBase`, it receives a descriptor of the mask's directory as the
// walk opened it (invalid when it could not be), for a run over the names.
void listfiles(const std::string& mask, bool bIncludeSubs, const std::string& baseDir, WalkSink& sink,
               FileHandle* keepBase = nullptr);

}  // namespace brindlex
