// The command line's SIGINT: the first one is noted, as the window's Cancel
// is pressed, and the work in hand stops at its next look; a second one
// ends the program at once, as SIGINT does.
#pragma once

namespace brindlex::cli {

// From here on the first SIGINT is noted rather than ending the program.
// The handler is installed without SA_RESTART: a read waiting on the
// terminal (a question of --ask) ends at once.
void catchinterrupt();

// Whether a SIGINT came since catchinterrupt().
bool interrupted();

}  // namespace brindlex::cli
