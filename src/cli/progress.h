// The one-line progress meter of a long run on stderr:
//
//   3/40 files  12.5 MiB  41.2 MiB/s  sub/big.bin
//
// It shows only when stderr is a terminal and the run has taken half a
// second, is redrawn at most ten times a second, cut to the terminal's width,
// and erased before anything else is written to the terminal and at the end,
// so that no trace of it stays in the output.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace brindlex::cli {

// Writes all of `text` to `fd`, however the writes split it; false when a
// write fails.
bool writeall(int fd, const std::string& text);

class ProgressMeter {
public:
    // Off for good unless `wanted` and stderr (fd `fd`) is a terminal.
    explicit ProgressMeter(bool wanted, int fd = 2);

    // A run over `nFiles` files begins now.
    void begin(std::size_t nFiles);
    // The file `sName` begins, of `lLen` bytes.
    void filebegins(const std::string& sName, std::int64_t lLen);
    // `lDone` bytes of the file in hand are read.
    void filepart(std::int64_t lDone);
    // Takes the line off the terminal (before other output, and at the end).
    void erase();

    bool on() const { return on_; }

private:
    void maybedraw();
    std::string line() const;

    bool on_ = false;
    int fd_;
    bool shown_ = false;
    std::int64_t start_ = 0, lastDraw_ = 0;   // milliseconds
    std::size_t nFiles_ = 0, nBegun_ = 0;
    std::int64_t lBefore_ = 0;   // bytes of the files done
    std::int64_t lLen_ = 0, lDone_ = 0;   // the file in hand
    std::string sName_;
};

}  // namespace brindlex::cli
