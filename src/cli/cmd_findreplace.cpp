// brindlex-cli find / replace: the window's Find All and Replace over a
// mask, with the hit list on stdout and the messages on stderr.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "engine/batch/run.h"
#include "engine/pattern/notation.h"
#include "cli/command.h"
#include "cli/runcli.h"

namespace brindlex::cli {
namespace {

constexpr const char* kFindUsage =
    "usage: brindlex-cli find [options] PATTERN MASK\n"
    "       brindlex-cli find [options] --files-from FILE PATTERN\n";
constexpr const char* kReplaceUsage =
    "usage: brindlex-cli replace [options] PATTERN REPLACEMENT MASK\n"
    "       brindlex-cli replace [options] --files-from FILE PATTERN REPLACEMENT\n";
constexpr const char* kDryRunHelp =
    "      --dry-run        list the hits the replace would make (it restarts\n"
    "                       behind each, where a find restarts one byte on) and,\n"
    "                       on stderr, 'would rewrite NAME' for each file; no file\n"
    "                       is written\n";
constexpr const char* kFindExamples =
    "\n"
    "Examples:\n"
    "  brindlex-cli find '%00' data/              every NUL byte in data's files\n"
    "  brindlex-cli find -s -c TODO '*.c'         TODO, in this case, in a tree\n"
    "  brindlex-cli find '<0D> <0A>' notes.txt    every CR LF of one file\n"
    "  git ls-files | brindlex-cli find --files-from - -c FIXME\n";
constexpr const char* kReplaceExamples =
    "\n"
    "Examples:\n"
    "  brindlex-cli replace -s '%0D' '%0D%0A' 'texts/*.txt'   CR line ends to CR LF\n"
    "  brindlex-cli replace --dry-run -c OLD NEW '*.cfg'      what it would do\n"
    "  brindlex-cli replace -a -c '%09' '%20%20' src/         a tab to two blanks,\n"
    "                                                        asking at each\n";
constexpr const char* kOptions =
    "\n"
    "PATTERN and REPLACEMENT are typed text: %nn is the byte of hexadecimal\n"
    "value nn, and <nn> cells are read where the first '>' stands three\n"
    "places behind the first '<'. MASK is a file, a directory or a directory\n"
    "and a name with the wildcards * and ?. Without --match-case letters are\n"
    "found in either case, unless the pattern holds a code.\n"
    "\n"
    "stdout: one line per hit, the name relative to the mask's directory, a\n"
    "tab (a NUL with -0) and the 1-based position (9 digits or more) in the\n"
    "file as it was.\n"
    "stderr: messages, one a line (a message's own line break becomes a\n"
    "blank), what could not be searched, and a summary.\n"
    "\n";

int runfindreplace(const std::vector<std::string>& args, bool bReplace)
{
    const char* name = bReplace ? "replace" : "find";
    const char* usage = bReplace ? kReplaceUsage : kFindUsage;
    int status = 0;
    const std::optional<RunOptions> o =
        parserunoptions(args, name,
                        std::string(usage) + kOptions + kRunOptionsHelp + (bReplace ? kDryRunHelp : "") +
                            kRunExitHelp + (bReplace ? kReplaceExamples : kFindExamples),
                        status);
    if (!o)
        return status;

    const std::size_t patterns = bReplace ? 2 : 1;
    const std::size_t wanted = patterns + (o->filesFrom ? 0 : 1);
    if (o->operands.size() != wanted) {
        const std::string what = o->filesFrom ? (bReplace ? "PATTERN and REPLACEMENT" : "PATTERN")
                                              : (bReplace ? "PATTERN, REPLACEMENT and MASK" : "PATTERN and MASK");
        return usageerror(std::string(name) + ": expects " + what + ", not " + std::to_string(o->operands.size()) +
                          " operand" + (o->operands.size() == 1 ? "" : "s") + " (see brindlex-cli " + name + " --help)");
    }

    if (o->operands[0].empty())
        return usageerror(std::string(name) + ": PATTERN is empty");
    CliHost host;
    RunRequest request;
    request.sFind = o->operands[0];
    if (bReplace)
        request.sReplaceText = o->operands[1];
    request.bReplace = bReplace;
    if (int s = preparerun(*o, bReplace, o->operands.back(), name, host, request))
        return s;

    if (decodepattern(request.sFind, request.bConvertHex).size() > kLongestEverywhere)
        host.note("note: a pattern longer than " + std::to_string(kLongestEverywhere)
                  + " bytes is found only where it fits one 1000-byte block");
    bufferstdout();
    const RunResult result = findinfiles(request, host);
    const bool wrote = flushstdout();
    for (const std::string& sName : host.wouldRewrite)
        std::fprintf(stderr, "would rewrite %s\n", (request.baseDir + sName).c_str());
    printsummary(result, request.files.size(), {}, bReplace);
    return exitstatus(host, result.cancelled, result.failures, wrote, result.hits > 0);
}

int runfind(const std::vector<std::string>& args) { return runfindreplace(args, false); }
int runreplace(const std::vector<std::string>& args) { return runfindreplace(args, true); }

const RegisterCommand registeredfind({"find", "find [options] PATTERN MASK   list every hit, one line each", runfind});
const RegisterCommand registeredreplace(
    {"replace", "replace [options] PATTERN REPLACEMENT MASK   replace every hit in place", runreplace});

}  // namespace
}  // namespace brindlex::cli
