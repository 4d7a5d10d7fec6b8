// The metafile record view (row format 3 of the byte modes): each row is one
// record of a Windows metafile, found by the pattern of its size field, so
// that a page may start anywhere in a file.
//
// A row takes up to 100 bytes. The first run of three NUL bytes that is not
// the row's first byte marks a size field: the byte before it is the size's
// low byte n (in 16-bit words). With n above 2 the row is a record row: the
// bytes before the record are passed over (shown nowhere), then
//   column " = " n (2 digits at least) " " name ": " the record's n x 2 cells
// where the name comes from the table of 16 known function numbers (low 12
// bits of the word behind the size), "LINETO" and "MOVETO" followed by their
// first two parameters as signed words ("000010    ", "-000005    "); the
// record is cut at the row's end, and what the row holds behind it begins
// the next row. Otherwise the row is a plain row of the byte modes' cells.
//
// Example, page at 19 (0x13):
//   04 00 00 00 02 01 01 00 05 00 00 00 13 02 0A 00 14 00 03 00 00 00 1E 00
// gives (each row ends in a blank and CR LF):
//   000013 = 04 SETBKMODE : <04> <00> <00> <00> <02> <01> <01> <00>
//   00001B = 05 LINETO    000010    000020    : <05> <00> ... <14> <00>
//   000025 = 03 : <03> <00> <00> <00> <1E> <00>
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace brindlex {

// Bytes a row of the record view takes at most, whatever the row width.
inline constexpr int kMetaRowBytes = 100;

// The page text of `sBlock` at `lPos` in the record view; `nMode` (0 or 1)
// decides the cells of plain rows, record cells are always hexadecimal.
std::string formatmetapage(std::string_view sBlock, std::int64_t lPos, int nMode);

// The same a piece at a time, for a page streamed in pieces: appends to
// `text` the rows of `sBlock` (at `lPos`) that its bytes settle, those with
// kMetaRowBytes in hand or all of them at the page's end (`bEnd`), and
// returns the bytes they took; the rest begins the next piece.
std::size_t formatmetarows(std::string_view sBlock, std::int64_t lPos, int nMode, bool bEnd, std::string& text);

}  // namespace brindlex
