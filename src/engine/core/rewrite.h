// The last step of a rewrite: the new content of a file, streamed by the
// caller into a SafeReplace, is checked against the length the edits call
// for and put in place. The batch run ends each replaced file here; the
// viewer's save ends a spliced page here.
//
// The check: the new content must be exactly as long as the file is now
// plus `lLenChange`, the sum of what each edit added or took away. A file
// that grew or shrank since it was read, or a write of the new content that
// failed (a full disk, a file too large), fails it, and the file keeps its
// bytes. Otherwise the SafeReplace commits.
//   "xax" with "a" -> "bc" at 2: lLenChange 1, new content "xbcx" (4 bytes),
//   3 + 1 = 4: in place. Had "xax" grown to "xaxmore" meanwhile, 7 + 1 != 4:
//   refused, RewriteFailure::Length.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "engine/core/error.h"

namespace brindlex {

class SafeReplace;

enum class RewriteFailure {
    None,     // the new content is in place
    Length,   // the length check refused it: the file is untouched
    Copy,     // putting it in place failed: the file is as SafeReplace left it
};

struct Rewrite {
    RewriteFailure failure = RewriteFailure::None;
    Error reason;                        // why it failed; code 0 when it didn't
    std::int64_t lLength = -1;           // the file's length afterwards; -1 after a Length failure
    std::filesystem::path copiedfrom;    // where the new content came from (see SafeReplace::copiedfrom)
    std::string notice;                  // after a commit: what of the file could not be kept (SafeReplace::notice)
};

// Checks and commits the new content of `sFile` held by `replace`. A caller
// whose SafeReplace::begin failed passes null and the error `begun`, and
// gets a Length failure with that reason. After a Length failure `replace`
// is aborted.
Rewrite commitrewrite(SafeReplace* replace, const Error& begun, const std::string& sFile, std::int64_t lLenChange);

// The message a failed rewrite shows: for Length "Cannot replace! ERROR in
// file lengths for " and sFile (the reason goes beside it); for Copy the
// reason's text, " copying ", the file copied from, " to " and sFile.
std::string rewritemessage(const Rewrite& rewrite, const std::string& sFile);

}  // namespace brindlex
