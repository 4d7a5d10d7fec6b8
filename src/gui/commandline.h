// The window's command line, read before the toolkit starts so that --help
// and --version need no display. Up to a "--", "--help" and "--version" are
// the program's own and the rest goes to the toolkit, which takes its own
// options (-style, -platform ...) out; what is left of it, and everything
// behind the "--", is joined by single blanks into the one mask. So
// `brindlex -- -draft.bin` lists "-draft.bin", and `brindlex a b` the mask
// "a b".
#pragma once

#include <string>
#include <vector>

namespace brindlex::gui {

struct CommandLine {
    enum class Action { Run, Help, Version } action = Action::Run;
    std::vector<char*> toolkitArgs;   // argv[0] and the arguments before "--"
    std::vector<std::string> maskArgs;   // the arguments behind "--"
};

CommandLine readcommandline(int argc, char** argv);

// The arguments the toolkit left (argv[1..]) and those behind "--", joined
// by single blanks.
std::string joinmask(int argc, char* const* argv, const std::vector<std::string>& maskArgs);

extern const char* const kWindowHelp;

}  // namespace brindlex::gui
