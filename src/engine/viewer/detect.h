// Telling a binary file from a text file, and the AutoDetect display mode.
#pragma once

#include <cstdint>
#include <filesystem>

namespace brindlex {

// Only the file's head is tested for a NUL byte.
inline constexpr std::int64_t kBinaryTestBytes = 1000;
// A text file longer than this goes to Full Text when AutoDetect is picked
// in the mode box.
inline constexpr std::int64_t kAutoDetectLimit = 10000;

// True if a NUL byte stands among the file's first 1000 bytes; false for a
// file that can't be opened. No other byte value counts: a NUL as the 1000th
// byte makes a binary file, one at the 1001st doesn't.
bool isbinaryfile(const std::filesystem::path& sFile);

// Where AutoDetect is resolved; the two places differ for long text files.
enum class AutoDetectAt {
    Activate,     // the window's activation: binary 1, text 2
    ComboClick,   // the mode box set to AutoDetect: binary 1, text of at
                  // most 10,000 bytes 2, longer text 3
};

// The display mode AutoDetect stands for.
int autodetectmode(bool binary, std::int64_t fileLength, AutoDetectAt where);

// The same for a file, tested and measured here; a file that can't be opened
// is text of length 0 (mode 2).
int autodetect(const std::filesystem::path& sFile, AutoDetectAt where);

}  // namespace brindlex
