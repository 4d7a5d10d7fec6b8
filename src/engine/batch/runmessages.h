// The words of a run's failures and notes, as both front ends show them:
// the window in its message boxes, the command line on stderr. The run
// itself tells only typed values (core/runsink.h).
#pragma once

#include <string>

#include "engine/core/error.h"
#include "engine/core/runsink.h"

namespace brindlex {

// A message box's text and the reason shown beside it (code 0: the text
// holds the reason already).
struct RunMessage {
    std::string text;
    Error reason;
};

// Open:   "Error opening " FILE ":" CR LF and the reason's text.
// Read:   "Error reading " FILE ":" CR LF and the reason's text, or "The
//         file became shorter while it was read" for code 0.
// Length: "Cannot replace! ERROR in file lengths for " FILE, the reason beside.
// Copy:   the reason's text, " copying ", the file copied from, " to " FILE.
// Log:    "Error writing log " LOG ":" CR LF and the reason's text.
RunMessage failuremessage(const Failure& failure);

// The title of the question at a hit: FILE " byte " and the position.
std::string questiontitle(const Question& question);

// "FILE: the same file as FIRST, rewritten once", "FILE: " what was not kept.
std::string notetext(const Note& note);

}  // namespace brindlex
