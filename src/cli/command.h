// Subcommands of brindlex-cli register themselves here, each from its own file.
#pragma once

#include <string>
#include <vector>

namespace brindlex::cli {

struct Command {
    const char* name;
    const char* synopsis;   // one line for the general help
    int (*run)(const std::vector<std::string>& args);  // args after the subcommand's name
};

struct RegisterCommand {
    explicit RegisterCommand(Command command);
};

// Exit statuses of every subcommand.
inline constexpr int kExitHits = 0;
inline constexpr int kExitNoHits = 1;
inline constexpr int kExitTrouble = 2;   // a file failed, or bad usage
inline constexpr int kExitInterrupted = 130;

// Prints "brindlex-cli: " and `text` to stderr and returns kExitTrouble.
int usageerror(const std::string& text);

}  // namespace brindlex::cli
