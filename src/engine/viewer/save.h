// Writing an edited page back into its file: a splice of the bytes before
// the page, the page's new bytes and the bytes behind the old page, streamed
// through the one safe replacement of a user's file. At every instant the
// file holds its old or its new content; only the page is held in memory.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "engine/core/error.h"
#include "engine/viewer/page.h"

namespace brindlex {

class SafeReplace;

// The new bytes of a page box's text: the text as it stands in the text
// modes, decodepage of it in the byte modes (position columns and cell
// notation fall away).
std::string pagebytes(std::string_view pageText, int nMode);

// What a save of the page box would write, decided before anything is asked.
struct PageEdit {
    std::string bytes;     // the new page bytes
    bool changed = false;  // differ from sViewText and are not empty
    Error refused;         // set when the page on show doesn't hold all the
                           // lViewLen bytes it was read from (bytes passed over
                           // by the metafile records, a text page with a NUL,
                           // Full Text refused): saving would lose bytes
};
PageEdit pageedit(std::string_view pageText, int nMode, int nFormat, std::string_view sViewText,
                  std::int64_t lViewLen);

struct SpliceRequest {
    std::filesystem::path sViewFile;
    std::int64_t lViewPos = 1;       // the page's first position
    std::int64_t lViewLen = 0;       // bytes of the file the old page took
    std::string_view bytes;          // the new page
    FileStamp stamp;                 // the file as its page was read
    std::filesystem::path sScratch;  // the work directory's scratch file
};

struct SpliceResult {
    bool opened = false;             // false: "Error opening " applies, nothing written
    Error error;                     // why nothing was written (the file is unchanged)
    FileStamp stamp;                 // after a save: the file as it now is
    std::string notice;              // after a save: what of the file could not be kept
};

// Puts `bytes` in place of the lViewLen bytes at lViewPos. A file whose stamp
// differs from `stamp` (changed on disk since the page was read) is not
// touched: ESTALE, "File changed by another program since its page was
// read". After a save the caller sets sViewText to `bytes`, lViewLen to its
// length and keeps the new stamp, so that a second save of the same page
// splices over what the first one wrote.
SpliceResult splicepage(const SpliceRequest& request);

// A save of the page box, as the viewer's Save and the command line's page
// --save do it: the page as it was read, the box's text now.
struct PageSave {
    std::filesystem::path sViewFile;
    std::int64_t lViewPos = 1;        // the page's first position
    std::int64_t lViewLen = 0;        // bytes of the file the page took
    std::string_view sViewText;       // the page's bytes as read (pagebytes of its text)
    FileStamp stamp;                  // the file as the page was read
    std::string_view pageText;        // the page box's text now
    int nMode = kModeBinaryText;
    int nFormat = kFormatDecimal;
    std::filesystem::path sScratch;   // the scratch file; empty: the work directory's,
                                      // prepared here once there is something to save
};

struct SavedPage {
    bool changed = false;   // the box holds an edit; false: nothing was done
    bool opened = true;     // false: the file couldn't be opened ("Error opening " applies)
    Error error;            // why nothing was saved: the edit refused (see PageEdit),
                            // the work directory, the file changed (splicepage)...
    std::string bytes;      // after a save: the page as the file now holds it, the
                            // next save's sViewText (its length the next lViewLen)
    FileStamp stamp;        // after a save: the file as it now is
    std::string notice;     // after a save: what of the file could not be kept
};

// The whole save: pageedit decides, splicepage writes. The file is touched
// only when the box holds an edit that loses no byte, and then only while
// it is still the file the page was read from.
SavedPage saveeditedpage(const PageSave& save);

// Copies up to lCount bytes of the open file `nFrom` from 0-based `position`
// to the end of `to`'s new content, never past the end of `nFrom`; `position`
// is left behind what was copied. A bounded buffer, whatever lCount.
Error copybytes(int nFrom, std::int64_t& position, std::int64_t lCount, SafeReplace& to);

}  // namespace brindlex
