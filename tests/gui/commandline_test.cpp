// The window's command line: what is the program's own, what goes to the
// toolkit, and what becomes the mask.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "gui/commandline.h"

namespace brindlex::gui {
namespace {

struct Row {
    std::vector<std::string> args;   // behind the program's name
    CommandLine::Action action;
    std::string mask;                // as joined when the toolkit takes nothing
};

TEST(WindowCommandLine, OwnOptionsAndMask)
{
    using A = CommandLine::Action;
    const std::vector<Row> rows = {
        {{}, A::Run, ""},
        {{"a b", "*.txt"}, A::Run, "a b *.txt"},
        {{"--help"}, A::Help, ""},
        {{"x", "--version"}, A::Version, "x"},
        {{"--", "-draft.bin"}, A::Run, "-draft.bin"},
        {{"--", "--help", "--"}, A::Run, "--help --"},
        {{"-odd", "--", "-x"}, A::Run, "-odd -x"},
    };
    for (const Row& row : rows) {
        std::vector<std::string> storage = {"brindlex"};
        storage.insert(storage.end(), row.args.begin(), row.args.end());
        std::vector<char*> argv;
        for (std::string& s : storage)
            argv.push_back(s.data());
        const CommandLine line = readcommandline(static_cast<int>(argv.size()), argv.data());
        const int toolkitArgc = static_cast<int>(line.toolkitArgs.size()) - 1;
        EXPECT_EQ(line.action, row.action) << row.mask;
        EXPECT_EQ(line.toolkitArgs.back(), nullptr);
        EXPECT_EQ(joinmask(toolkitArgc, line.toolkitArgs.data(), line.maskArgs), row.mask);
    }
}

}  // namespace
}  // namespace brindlex::gui
