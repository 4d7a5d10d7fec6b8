// The run log: what a run looked for and what it did, one line per event,
// with patterns and file bytes shown in display cells. Lines end in CR LF.
//
// Short form (the head of a run): the label, a blank, the display text.
//   "find    " + "  A   B  <20> " for the pattern "AB "
// Long form (a hit): the label, a blank, the full path, a blank, the
// position as "0000000" (longer in full), ": " and the display text.
//   "found    /data/a.txt 0000012:   A  <0D> <0A> "
// The display text is the first 50 bytes through encodebytes (width 100,
// showtext on), so a line never breaks.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "engine/core/error.h"
#include "engine/core/openbinary.h"

namespace brindlex {

// The bits of nLogMode, the two items of the log menu.
inline constexpr int kLogFinds = 1;      // the lines kLogFind and kLogFound
inline constexpr int kLogReplaces = 2;   // the lines kLogReplaceWith and kLogReplaced

// The labels, trailing blanks included: the hit labels line up at 8.
inline constexpr std::string_view kLogFind = "find   ";
inline constexpr std::string_view kLogFound = "found   ";
inline constexpr std::string_view kLogReplaceWith = "replace with  ";
inline constexpr std::string_view kLogReplaced = "replaced";

// The text of a log line shows at most this many bytes.
inline constexpr std::size_t kLogTextBytes = 50;

// One log line with its CR LF. A negative `lPos` gives the short form.
std::string logline(std::string_view sLabel, std::string_view sFile, std::int64_t lPos, std::string_view sText);

// The log of one run. The file is opened for appending (created with mode
// 0600 if missing) at the first line and kept open for the run; each line
// goes out with one write, so it is in the file before a question shows.
// The name is never followed as a link, and the file must be a regular file
// of this user's own: another user's log (one made ready in a shared
// directory, say) is refused, never written to. The first failure (the
// open, the check or a write) ends the logging of the run and is kept for
// failure(), which the run reports; the run itself goes on.
class RunLog {
public:
    explicit RunLog(std::filesystem::path sLogFile) : sLogFile_(std::move(sLogFile)) {}

    void writelog(std::string_view sLabel, std::string_view sFile, std::int64_t lPos, std::string_view sText);

    // The first failure, code 0 while there was none.
    const Error& failure() const { return failure_; }

    const std::filesystem::path& path() const { return sLogFile_; }

private:
    bool openlog();

    std::filesystem::path sLogFile_;
    FileHandle fd_;
    Error failure_;
};

}  // namespace brindlex
