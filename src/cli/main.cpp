// brindlex-cli: the engine for scripts and build steps.
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "cli/command.h"
#include "engine/core/startup.h"
#include "engine/core/state.h"
#include "engine/core/workdir.h"

namespace brindlex::cli {
namespace {

std::vector<Command>& commands()
{
    static std::vector<Command> all;
    return all;
}

void printhelp(std::FILE* out)
{
    std::fprintf(out, "usage: brindlex-cli COMMAND [options] ...\n\n"
                      "Finds and replaces bytes in files, as the Brindlex window does.\n\ncommands:\n");
    for (const Command& c : commands())
        std::fprintf(out, "  %s\n", c.synopsis);
    std::fprintf(out, "\nExamples:\n"
                      "  brindlex-cli find -s '%%0D%%0A' 'texts/*.txt'        every CR LF in a tree\n"
                      "  brindlex-cli replace -s '%%0D' '%%0D%%0A' 'texts/*.txt'   CR line ends to CR LF\n"
                      "  brindlex-cli replace --dry-run -c OLD NEW '*.cfg'     what a replace would do\n"
                      "  brindlex-cli sets --find sets.ini '*.*'              every set of a file of sets\n"
                      "  brindlex-cli decode '<0D> <0A>' | od -An -tx1        the bytes of a pattern\n"
                      "\n'brindlex-cli COMMAND --help' tells more of a command, with examples.\n"
                      "Exit status: 0 hits, 1 no hit, 2 trouble or bad usage, 130 interrupted.\n");
}

}  // namespace

RegisterCommand::RegisterCommand(Command command) { commands().push_back(command); }

int usageerror(const std::string& text)
{
    std::fprintf(stderr, "brindlex-cli: %s\n", text.c_str());
    return kExitTrouble;
}

}  // namespace brindlex::cli

int main(int argc, char** argv)
{
    using namespace brindlex::cli;
    // A file larger than the size limit fails its write (EFBIG) and is
    // reported, instead of ending the program.
    std::signal(SIGXFSZ, SIG_IGN);
    std::error_code ec;
    if (std::filesystem::exists(brindlex::workdirpath(), ec) && brindlex::preparedworkdir()) {
        for (const std::string& told : brindlex::recoveratstart())
            std::fprintf(stderr, "brindlex-cli: %s\n", told.c_str());
    }
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty())
        return printhelp(stderr), kExitTrouble;
    if (args[0] == "--help" || args[0] == "-h")
        return printhelp(stdout), 0;
    if (args[0] == "--version") {
        std::printf("brindlex-cli %s\n", std::string(brindlex::sVersion).c_str());
        return 0;
    }
    for (const Command& c : commands()) {
        if (args[0] == c.name)
            return c.run(std::vector<std::string>(args.begin() + 1, args.end()));
    }
    return usageerror("unknown command '" + args[0] + "' (see brindlex-cli --help)");
}
