// What every start of the window or of brindlex-cli does once the work
// directory is prepared: put right what a run killed midway left behind.
#pragma once

#include <string>
#include <vector>

namespace brindlex {

// The lines the user is told, in order: that a private work directory took
// the place of ours, how an interrupted copy in place was finished (or why
// it was kept), and which interrupted in-place edits were undone (or why
// their journals were kept). Empty when there was nothing to tell.
std::vector<std::string> recoveratstart();

}  // namespace brindlex
