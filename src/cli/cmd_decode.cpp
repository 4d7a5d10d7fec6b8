// brindlex-cli decode: the bytes that a typed pattern stands for, as a run
// would search for them, written raw so that scripts can compare or pipe them.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "engine/pattern/notation.h"

namespace brindlex::cli {
namespace {

constexpr const char* kUsage =
    "usage: brindlex-cli decode [--no-angle] [--] TEXT\n"
    "\n"
    "Writes the bytes that TEXT decodes to, raw, to stdout: %nn is the byte\n"
    "of hexadecimal value nn, and a text whose first '<' stands three places\n"
    "ahead of its first '>' is read as <nn> cells instead, spaces and CR LF\n"
    "being separators there.\n"
    "\n"
    "  --no-angle   the <nn> notation is off: '<' and '>' are plain characters\n"
    "  --help       this text\n"
    "\n"
    "Examples:\n"
    "  brindlex-cli decode '%0D%0A' | od -An -tx1      0d 0a\n"
    "  brindlex-cli decode '<41> <42>'                  AB\n"
    "  brindlex-cli decode --no-angle '<41>'            <41>\n";

int rundecode(const std::vector<std::string>& args)
{
    bool bConvertHex = true;
    std::vector<std::string> texts;
    bool options = true;
    for (const std::string& arg : args) {
        if (options && arg == "--") {
            options = false;
        } else if (options && (arg == "--help" || arg == "-h")) {
            std::fputs(kUsage, stdout);
            return 0;
        } else if (options && arg == "--no-angle") {
            bConvertHex = false;
        } else if (options && arg.size() > 1 && arg[0] == '-') {
            return usageerror("decode: unknown option '" + arg + "' (see brindlex-cli decode --help)");
        } else {
            texts.push_back(arg);
        }
    }
    if (texts.size() != 1)
        return usageerror("decode: expects one TEXT (see brindlex-cli decode --help)");

    const std::string bytes = decodepattern(texts.front(), bConvertHex);
    if (std::fwrite(bytes.data(), 1, bytes.size(), stdout) != bytes.size() || std::fflush(stdout) != 0) {
        std::perror("brindlex-cli: decode: writing to stdout");
        return kExitTrouble;
    }
    return 0;
}

const RegisterCommand registered({"decode", "decode [--no-angle] TEXT   the bytes of a typed pattern, raw", rundecode});

}  // namespace
}  // namespace brindlex::cli
