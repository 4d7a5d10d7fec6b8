// The rules of the replacements menu and of saving a set, free of any
// toolkit: the window builds its menu from loadreplist's items and the
// command line runs the same sets in the same order.
//
// A set is a key of the section "Replacements" whose value is
// find "==>" replace, in the notation typed into the boxes. Spaces of a pair
// are stored as "%20", so a value holds none.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "engine/core/error.h"

namespace brindlex {

// One item of the menu: its caption and the tag that decides what a click
// does (a set's value, "", "DoAllReps" or "DoAllFinds").
struct RepItem {
    std::string caption;
    std::string tag;

    bool operator==(const RepItem&) const = default;
};

inline constexpr std::string_view kRepSection = "Replacements";
inline constexpr std::string_view kDefaultSetKey = "Apple-To-PC";
inline constexpr std::string_view kDefaultSetValue = "%0D==>%0D%0A";   // each CR becomes CR LF
inline constexpr std::string_view kPreviousKey = "Previous";
inline constexpr std::string_view kFirstSetName = "user0";             // mnuRepl's Tag at start-up
inline constexpr std::string_view kDoAllReps = "DoAllReps";
inline constexpr std::string_view kDoAllFinds = "DoAllFinds";
inline constexpr std::string_view kFillInMessage = "First fill in the 'Find' and 'Replace' boxes";

// A list run looks at items 0 to kListRunLast, no further.
inline constexpr std::size_t kListRunLast = 100;

// The sets of `sIniFile`, as the menu shows them: the names of the 1000-byte
// key listing in the order of the file's lines, each with its value (at most
// 999 bytes; a name cut short by the listing reads as ""). Raises nRepCount
// to the highest n of a name "User-n", in any case of letters: n is the
// number at the head of the text behind the dash, blanks skipped, 0 when
// there is none, ignored above 32767 ("User-", "User-x" and "user0" count 0).
// nRepCount is never lowered. Writes nothing.
std::vector<RepItem> readsets(const std::filesystem::path& sIniFile, int& nRepCount);

// The whole menu, rebuilt: the sets (readsets), then "-" and "&New" with
// empty tags, then, unless the default file is in use, "Replace &All of the
// Above" (DoAllReps) and "Find &All of the Above" (DoAllFinds). A file whose
// section has no keys first gets the default set Apple-To-PC written; if
// that write fails the item is there all the same, with an empty tag.
// The window empties its hit list with each rebuild.
std::vector<RepItem> loadreplist(const std::filesystem::path& sIniFile, int& nRepCount);

// The message after opening a file: "3 replacements loaded from /s/dos.ini."
// `count` is the number of sets.
std::string loadedmessage(std::size_t count, const std::string& sIniFile);

// What a click on an item with `tag` does.
enum class RepAction {
    New,          // empty tag: save the pair in the boxes (needs a Find text)
    ReplaceAll,   // the list run with Replace
    FindAll,      // the list run with Find All
    Pick,         // a set: its pair goes into the boxes, nothing runs
};
RepAction repaction(const std::string& tag);

// A set's pair: the find text is what stands before the first "==>", the
// replace text what follows, both without spaces at their ends; a tag
// without "==>" is all find text: "a%20b ==> c" -> {"a%20b", "c"}.
struct RepPair {
    std::string find;
    std::string replace;
};
RepPair splitset(std::string tag);

// The list run: items 0, 1, ... up to kListRunLast, top first. It ends at the
// first item with an empty tag (the "-" below the sets, or a set without a
// value) or as soon as `cancelled` says so, tested before each set.
// `runset` runs one set to its end. Returns how many sets ran.
std::size_t listrun(const std::vector<RepItem>& items, const std::function<bool()>& cancelled,
                    const std::function<void(const RepItem& item, const RepPair& pair)>& runset);

// The name prompt of a save: "Name for " CR LF CR LF pair CR LF CR LF "?".
std::string nameprompt(const std::string& pair);

// Asks for a set's name with a prompt and a default answer; "" for Cancel.
using NameQuestion = std::function<std::string(const std::string& prompt, const std::string& defaultAnswer)>;

// Saves the pair sText2 "==>" sText3 into sIniFile and returns the key
// written, the new current name (mnuRepl's Tag); nullopt when nothing was
// written. The caller rebuilds the menu with loadreplist after a save.
//  - sName empty (a run): the key is "Previous", but only while the default
//    file is in use; a file the user opened gets nothing.
//  - sName given ("&New" with the current name): `ask` gets the prompt with
//    the pair as typed and sName as default answer, except that the current
//    name "Previous" offers "User-" nRepCount + 1 instead. An empty answer
//    saves nothing.
// Each " " of the pair is stored as "%20", each "=" of the key as "-": the
// answer "x=y" for "a b" and "c" writes "x-y=a%20b==>c" and returns "x-y".
// Blanks at the ends of the key are kept in the returned name, not in the file.
// A write that fails still returns the key; `failed`, when given, gets why
// (code 0 when the file was written), so that the caller can say so.
std::optional<std::string> saverep(std::string sName, const std::string& sText2, const std::string& sText3,
                                   const std::filesystem::path& sIniFile, int nRepCount, const NameQuestion& ask,
                                   Error* failed = nullptr);

// The message of a set that could not be saved: "The set NAME could not be
// saved in FILE" (the reason goes beside it).
std::string notsavedmessage(const std::string& key, const std::string& sIniFile);

}  // namespace brindlex
