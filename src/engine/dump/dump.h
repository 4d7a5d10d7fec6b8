// The integer dump: any file read from a position as a stream of
// little-endian signed integers of 2 bytes (size 2) or 4 bytes (any other
// size), written in rows of `nCols` values to a tab-separated sheet.
//
// A row: a blank, the row number from 1, a blank; then for each value a tab
// and the value in decimal ("-" in front of a negative one, no blanks); CR LF.
// Size 2, 1 column, bytes 02 01 FF FF:        " 1 \t258\r\n 2 \t-1\r\n"
// Size 4, 2 columns, bytes 02 01 00 00 FF FF FF FF: " 1 \t258\t-1\r\n"
//
// A row begins while its first byte lies in the file, and every row is
// written whole. Values that reach past the file's end are settled so:
//   - a value none of whose bytes is in the file is an empty cell (the tab
//     alone), so the sheet never shows a number the file doesn't hold;
//   - a value cut by the end takes the bytes there are as its low bytes and
//     zeros above them: a last lone byte FF of a size 2 dump reads 255.
// Size 2, 2 columns, bytes 01 00 02 00 FF:   " 1 \t1\t2\r\n 2 \t255\t\r\n"
//
// The file is streamed: memory stays the same whatever its length, and the
// sink's carryon() is asked at least every megabyte; a false ends the dump
// at the next row with the sheet cut short.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "engine/core/error.h"

namespace brindlex {

// Where a dump tells its messages, and asks whether to go on.
class DumpSink {
public:
    virtual ~DumpSink() = default;
    // Lets events in; false when the user asked to stop.
    virtual bool carryon() { return true; }
    virtual void message(const std::string& /*text*/) {}
};

// Where a sheet goes: opened (made, or emptied) when the dump starts,
// written sequentially through fd(), closed when it ends.
class SheetOutput {
public:
    virtual ~SheetOutput() = default;
    virtual Error open() = 0;
    virtual int fd() const = 0;
    // The sheet is complete (`whole`) or cut short by a failure or Cancel.
    virtual Error close(bool whole) = 0;
};

// The window's sheet, a file of the program's own in the work directory:
// made with O_CREAT|O_EXCL|O_NOFOLLOW and mode 0600, or, when one of that
// name is there, emptied without a question if it is a regular file of the
// user's own with no other link (a link planted at the name is refused).
// The work directory must be usable (see workdir.h).
class WorkSheet final : public SheetOutput {
public:
    explicit WorkSheet(std::filesystem::path sOut) : sOut_(std::move(sOut)) {}
    ~WorkSheet() override;
    Error open() override;
    int fd() const override { return fd_; }
    Error close(bool whole) override;

private:
    std::filesystem::path sOut_;
    int fd_ = -1;
};

// The sheet's name for dump number `nDumpCount`: at least three digits,
// then ".xls": 1 -> "001.xls", 1000 -> "1000.xls".
std::string sheetname(int nDumpCount);

// The whole number an answer of the dump's input boxes stands for: the
// number at its head (blanks skipped, a sign, digits, a fraction), rounded
// half to even; 0 when there is none or when it lies outside -32768..32767.
// "4" -> 4, " 2.5x" -> 2, "3.5" -> 4, "-7" -> -7, "four" -> 0, "" -> 0.
int dumpanswer(std::string_view answer);

// The message at the end of a dump that got as far as writing the sheet.
std::string createdmessage(const std::string& sOut);

// How a dump ended.
struct DumpResult {
    bool failed = false;     // an open, a read or a write failed
    bool cancelled = false;  // carryon() ended it
    std::int64_t rows = 0;
};

// Dumps `sIn` from the 1-based position `lPos` (below 1 counts as 1) into
// `out`; `lPos` ends behind the last value read. `sOut` names the sheet in
// the messages, which go to sink.message():
//   - the input or the sheet can't be opened: the platform's text for the
//     error (e.g. "No such file or directory"), and nothing more;
//   - fewer than 1 column: "The number of columns must be 1 or more.", and
//     nothing more: such a row would hold no value and never reach the end;
//   - a read or write fails: the rows stop, the error's number (errno in
//     decimal) shows, then the created message;
//   - otherwise, Cancel included: "File " sOut " was created.".
DumpResult dumpints(int nSize, int nCols, const std::filesystem::path& sIn, SheetOutput& out,
                    const std::string& sOut, std::int64_t& lPos, DumpSink& sink);

// The window's form: the sheet `sOut` in the work directory.
DumpResult dumpints(int nSize, int nCols, const std::filesystem::path& sIn, const std::filesystem::path& sOut,
                    std::int64_t& lPos, DumpSink& sink);

}  // namespace brindlex
