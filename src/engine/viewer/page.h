// One page of a file as the viewer shows it: the block read at a position,
// and its page text in one of the four display modes and four row formats.
//
// Display modes (nViewMode): 0 Pure Binary and 1 Binary/Text are the byte
// modes, rows of cells behind a position column; 2 Pure Text and 3 Full Text
// are the text modes, the bytes as they stand (empty if they hold a NUL).
// Row formats (nViewFormat) act in the byte modes only: 0 decimal positions,
// 1 hexadecimal positions, 2 hexadecimal positions with the 512-byte sector,
// 3 metafile records (see metafile.h).
//
// Worked example: the 7 bytes 48 69 0D 0A 00 FF 5A at position 1, width 4.
//   mode 0, format 0:  "000001: <48> <69> <0D> <0A> \r\n000005: <00> <FF> <5A> "
//   mode 1, format 1:  "000001:   H    i  <0D> <0A> \r\n000005: <00> <FF>   Z  "
//   mode 2 or 3:       ""  (a NUL is in the block)
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include <sys/stat.h>

#include "engine/core/error.h"
#include "engine/core/filestamp.h"

namespace brindlex {

inline constexpr int kModePureBinary = 0;
inline constexpr int kModeBinaryText = 1;
inline constexpr int kModePureText = 2;
inline constexpr int kModeFullText = 3;
inline constexpr int kModeAutoDetect = 4;   // only between windows, until resolved

inline constexpr int kFormatDecimal = 0;
inline constexpr int kFormatHex = 1;
inline constexpr int kFormatSector = 2;
inline constexpr int kFormatMeta = 3;

// The page size taken when nViewBlock is 0.
inline constexpr std::int64_t kDefaultBlock = 256;

// Full Text holds a whole file in the page box; a larger file is refused
// (EFBIG, with a text that names both sizes) rather than shown in part.
inline constexpr std::int64_t kFullTextLimit = 16 * 1024 * 1024;

// readpage holds a page whole, so it reads no more than this many bytes as
// one page (EFBIG before anything is read); streampage takes a page of any
// size.
inline constexpr std::int64_t kPageLimit = kFullTextLimit;

// Appends up to `count` bytes of the open file `fd` from 0-based `offset` to
// `into`; fewer only at the file's end. False on a read error (errno tells
// it), with what was read before it kept.
bool readblock(int fd, std::int64_t offset, std::int64_t count, std::string& into);

// One page as read: everything showpage and a later save need.
struct Page {
    bool opened = false;        // false: the file couldn't be opened, `error` says why;
                                // the caller keeps its lViewLen (nothing was read)
    Error error;                // the open failure, or the refusal of Full Text
    std::string sText;          // the page text
    std::int64_t lPos = 1;      // position of the block's first byte: the one asked
                                // for, 1 in Full Text (lViewPos follows it)
    std::int64_t lViewLen = 0;  // bytes of the file the page holds (the block's length)
    std::int64_t nBlock = 0;    // the block size asked for, 256 where 0 was given
    std::int64_t lFileLen = 0;  // the file's length as the page was read
    FileStamp stamp;            // the file as the page was read
};

// Reads the block at 1-based `lPos` and renders it by formatpage. The file is
// opened and closed here (one pread per page, any file size, 64-bit
// positions). The block is nBlock bytes (0 counts as 256), cut at the file's
// end; a position behind the end gives an empty block. Pure Text (mode 2)
// reads one byte more when the block ends in a CR, so that a CR is never cut
// from its LF (at the file's end the block stays as it is): lViewLen may then
// be nBlock + 1. Full Text (mode 3) reads the whole file from position 1; a
// file over kFullTextLimit gives `error` EFBIG, an empty page and lViewLen
// equal to the file's length, so that nothing of it can be saved back.
Page readpage(const std::filesystem::path& sFile, std::int64_t lPos, std::int64_t nBlock, int nWidth, int nMode,
              int nFormat);

// The page text readpage would give, handed to `write` in pieces, for a page
// of any size in constant memory: byte rows a stretch of whole rows at a
// time, metafile records a row at a time, and a text page in two passes
// over the file, the first of which looks for a NUL (a page with one is
// empty). Full Text keeps its limit. A false from `write` stops the page.
struct PageStream {
    bool opened = false;        // false: the file couldn't be opened, `error` says why
    Error error;                // a failed read, Full Text refused, or a text page
                                // that took a NUL between the passes
    bool written = true;        // false: `write` stopped it
    std::int64_t lViewLen = 0;  // bytes of the file the page took
    std::int64_t lFileLen = 0;
};
PageStream streampage(const std::filesystem::path& sFile, std::int64_t lPos, std::int64_t nBlock, int nWidth, int nMode,
                      int nFormat, const std::function<bool(std::string_view)>& write);

// Page text of the bytes `sBlock`, whose first byte stands at `lPos`. Text
// modes: the block itself, or "" if it holds a NUL. Byte modes: rows of
// nWidth bytes (100 in format 3), each "column: " and one 4-character cell
// and a blank per byte, CR LF behind every full row; a short last row has no
// line end. A width below 1 counts as 1.
std::string formatpage(std::string_view sBlock, std::int64_t lPos, int nWidth, int nMode, int nFormat);

// The position column of position `p` in `nFormat`:
//   513 -> "000513" (0), "000201" (1 and 3), "000201.1" (2).
// Format 0 keeps every digit of a longer number; formats 1-3 keep only the
// last six hexadecimal digits: 16,777,216 shows as "000000".
std::string positioncolumn(std::int64_t p, int nFormat);

// nViewBlock from the page box's height in twips (showpage's first step):
// byte modes (q - q mod nWidth) x 4 with q = height / 10 / 4, text modes
// height / 2. At the design height 1845: 160 (width 10 or 8), 128 (16), 922
// (text modes); 0 where the width exceeds q (readpage then takes 256).
std::int64_t pageblock(std::int64_t heightTwips, int nWidth, int nMode);

// Label2's caption: "0x00000001-0x000000A0 (1-160)" for lPos 1, lViewLen
// 160. More than eight hexadecimal digits are kept in full.
std::string pagerange(std::int64_t lPos, std::int64_t lViewLen);

}  // namespace brindlex
