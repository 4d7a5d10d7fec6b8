// brindlex-cli sets: every set of a file of replacement sets over a mask, one
// run after the other, as the window's "All of the Above" items run them.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "engine/batch/run.h"
#include "cli/command.h"
#include "cli/runcli.h"
#include "engine/replacements/replist.h"

namespace brindlex::cli {
namespace {

constexpr const char* kUsage =
    "usage: brindlex-cli sets [options] --find|--replace INIFILE MASK\n"
    "       brindlex-cli sets [options] --find|--replace --files-from FILE INIFILE\n";
constexpr const char* kAbout =
    "\n"
    "Runs the sets of INIFILE's section [Replacements] over the files of MASK,\n"
    "a find or a replace each, in the order of the file's lines, and stops at\n"
    "the first set with an empty value. A set is a line NAME=FIND==>REPLACE,\n"
    "both patterns typed text as for find and replace. As in the menu, the\n"
    "names must fit a list of 998 bytes and at most 101 sets are run.\n"
    "INIFILE is only read. The files are listed once, before the first set.\n"
    "\n"
    "stdout: for each set a line '# NAME', then its hits as find prints them.\n"
    "stderr: messages, and for each set 'NAME: ' and a summary.\n"
    "\n"
    "      --find           find the sets' patterns\n"
    "      --replace        replace them\n";

constexpr const char* kExamples =
    "\n"
    "Examples:\n"
    "  brindlex-cli sets --find ~/.config/brindlex/brindlex.ini '*.*'\n"
    "                      every set of the window's menu, as finds, here\n"
    "  brindlex-cli sets --replace -s fixes.ini 'src/*.h'   a file of fixes over a tree\n";

// Takes --find and --replace, this command's own, out of `args` into
// `bReplace`; the rest are shared with find and replace. False after a
// usage error (reported).
bool takemode(const std::vector<std::string>& args, std::optional<bool>& bReplace, std::vector<std::string>& rest)
{
    bool options = true;
    for (const std::string& arg : args) {
        if (options && (arg == "--find" || arg == "--replace")) {
            bool replace = arg == "--replace";
            if (bReplace && *bReplace != replace)
                return usageerror("sets: --find and --replace exclude each other"), false;
            bReplace = replace;
            continue;
        }
        if (arg == "--")
            options = false;
        rest.push_back(arg);
    }
    return true;
}

int runsets(const std::vector<std::string>& args)
{
    std::optional<bool> bReplace;
    std::vector<std::string> rest;
    if (!takemode(args, bReplace, rest))
        return kExitTrouble;
    int status = 0;
    const std::optional<RunOptions> o =
        parserunoptions(rest, "sets", std::string(kUsage) + kAbout + kRunOptionsHelp + kRunExitHelp + kExamples, status);
    if (!o)
        return status;
    if (!bReplace)
        return usageerror("sets: needs --find or --replace (see brindlex-cli sets --help)");
    if (o->operands.size() != (o->filesFrom ? 1u : 2u)) {
        std::fputs(kUsage, stderr);
        return kExitTrouble;
    }

    // A missing file would read as no sets at all; a typing error deserves
    // a word instead.
    const std::string sIniFile = o->operands[0];
    const int fd = ::open(sIniFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return usageerror("sets: cannot read " + sIniFile + ": " + std::strerror(errno));
    ::close(fd);
    int nRepCount = 0;
    const std::vector<RepItem> sets = readsets(sIniFile, nRepCount);
    // A file that is no file of sets, or whose first set is empty, runs
    // nothing: said, rather than a silent "no hit".
    if (sets.empty() || sets.front().tag.empty()) {
        std::fprintf(stderr,
                     "brindlex-cli: sets: %s has no set to run: its section [Replacements] has none, or the first "
                     "has no value\n",
                     sIniFile.c_str());
        return kExitNoHits;
    }

    CliHost host;
    RunRequest request;
    request.bReplace = *bReplace;
    if (int s = preparerun(*o, *bReplace, o->operands.back(), "sets", host, request))
        return s;

    bufferstdout();
    bool wrote = true, failures = false, cancelled = false, hits = false;
    listrun(
        sets, [&] { return cancelled || interrupted(); },
        [&](const RepItem& item, const RepPair& pair) {
            std::fputs(("# " + item.caption + "\n").c_str(), stdout);
            request.sFind = pair.find;
            request.sReplaceText = pair.replace;
            const RunResult result = findinfiles(request, host);
            wrote = flushstdout() && wrote;
            printsummary(result, request.files.size(), item.caption + ": ", *bReplace);
            failures = failures || result.failures;
            cancelled = result.cancelled;
            hits = hits || result.hits > 0;
        });
    return exitstatus(host, cancelled, failures, wrote, hits);
}

const RegisterCommand registered(
    {"sets", "sets [options] --find|--replace INIFILE MASK   run every set of a file of sets", runsets});

}  // namespace
}  // namespace brindlex::cli
