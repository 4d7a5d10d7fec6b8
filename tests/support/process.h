// Runs a program for a test, without a shell: argv goes to posix_spawn as it
// is, so no character of an argument is ever interpreted.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace brindlex::test {

struct ProcessOptions {
    std::string input;                               // the child's stdin
    std::optional<std::filesystem::path> directory;  // working directory of the child
    std::vector<std::pair<std::string, std::string>> setenv;  // added to or replacing the environment
    std::vector<std::string> unsetenv;
};

struct ProcessResult {
    int exitstatus = -1;  // exit status, or -1 when killed by a signal
    int termsignal = 0;   // the signal that ended it, 0 when it exited
    std::string out;      // everything written to stdout
    std::string err;      // everything written to stderr
    std::string failure;  // why it could not be started, empty when it ran

    bool exited(int status) const { return failure.empty() && termsignal == 0 && exitstatus == status; }
};

// Starts argv[0] (a path; PATH is not searched) and waits for it to end.
// Stdin and both outputs are files in memory, never a terminal or a pipe, so
// a child can neither block on the test nor get SIGPIPE from it; SIGPIPE is
// back to its default in the child, whatever the test process does with it.
ProcessResult runprocess(const std::vector<std::string>& argv, const ProcessOptions& options = {});

}  // namespace brindlex::test
