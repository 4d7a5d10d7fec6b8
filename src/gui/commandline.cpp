#include "gui/commandline.h"

#include <string_view>

namespace brindlex::gui {

const char* const kWindowHelp =
    "usage: brindlex [Qt options] [--] [MASK]\n"
    "\n"
    "Finds and replaces bytes in the files that MASK names: a file, a\n"
    "directory, or a directory and a name with the wildcards * and ?. The\n"
    "arguments are joined by single blanks into the mask; without one the\n"
    "window lists *.* of the current directory. A mask that names files opens\n"
    "the first of them in the viewer.\n"
    "\n"
    "  --help      this text\n"
    "  --version   the version\n"
    "  --          the end of the options: what follows is the mask, even\n"
    "              when it begins with '-'\n"
    "\n"
    "brindlex-cli runs the same engine from scripts; see brindlex(1).\n";

CommandLine readcommandline(int argc, char** argv)
{
    CommandLine line;
    int i = 0;
    for (; i < argc; ++i) {
        const std::string_view arg = argv[i];
        if (i > 0 && arg == "--")
            break;
        const bool help = i > 0 && arg == "--help", version = i > 0 && arg == "--version";
        if ((help || version) && line.action == CommandLine::Action::Run)
            line.action = help ? CommandLine::Action::Help : CommandLine::Action::Version;
        if (!help && !version)
            line.toolkitArgs.push_back(argv[i]);
    }
    for (++i; i < argc; ++i)
        line.maskArgs.emplace_back(argv[i]);
    line.toolkitArgs.push_back(nullptr);   // argv[argc], as the toolkit expects
    return line;
}

std::string joinmask(int argc, char* const* argv, const std::vector<std::string>& maskArgs)
{
    std::string sCommand;
    bool first = true;
    auto append = [&](std::string_view part) {
        if (!first)
            sCommand += ' ';
        first = false;
        sCommand += part;
    };
    for (int i = 1; i < argc; ++i)
        append(argv[i]);
    for (const std::string& arg : maskArgs)
        append(arg);
    return sCommand;
}

}  // namespace brindlex::gui
