// brindlex-cli find / replace: the window's Find All and Replace over a
// mask, with the hit list on stdout and the messages on stderr.
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "batch/run.h"
#include "cli/command.h"
#include "core/openbinary.h"
#include "core/workdir.h"
#include "files/files.h"

namespace brindlex::cli {
namespace {

constexpr const char* kFindUsage =
    "usage: brindlex-cli find [options] PATTERN MASK\n"
    "       brindlex-cli find [options] --files-from FILE PATTERN\n";
constexpr const char* kReplaceUsage =
    "usage: brindlex-cli replace [options] PATTERN REPLACEMENT MASK\n"
    "       brindlex-cli replace [options] --files-from FILE PATTERN REPLACEMENT\n";
constexpr const char* kOptions =
    "\n"
    "PATTERN and REPLACEMENT are typed text: %nn is the byte of hexadecimal\n"
    "value nn, and <nn> cells are read where the first '>' stands three\n"
    "places behind the first '<'. MASK is a file, a directory or a directory\n"
    "and a name with the wildcards * and ?. Without --match-case letters are\n"
    "found in either case, unless the pattern holds a code.\n"
    "\n"
    "stdout: one line per hit, the name relative to the mask's directory, a\n"
    "tab and the 1-based position (9 digits or more) in the file as it was.\n"
    "stderr: messages, one a line (a message's own line break becomes a\n"
    "blank), and a summary.\n"
    "\n"
    "  -s, --subdirs        take the files of every subdirectory too\n"
    "  -c, --match-case     compare bytes exactly\n"
    "  -a, --ask            ask on the terminal before each replacement: y, n or c\n"
    "      --no-angle       the <nn> notation is off\n"
    "      --log-finds      log the pattern and every hit\n"
    "      --log-replaces   log the replacement and every replaced hit\n"
    "      --log FILE       the log to append to (default: the work directory's\n"
    "                       brindlex.log.txt)\n"
    "      --files-from FILE  the files to take, one path a line ('-': stdin)\n"
    "      --help           this text\n"
    "\n"
    "Exit status: 0 hits, 1 no hit, 2 a file could not be opened, checked or\n"
    "rewritten, or bad usage; 130 interrupted or cancelled.\n";

volatile std::sig_atomic_t interrupted = 0;

extern "C" void oninterrupt(int) { interrupted = 1; }

// Messages may hold CR LF; on stderr each is one line.
std::string oneline(std::string text)
{
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r' && i + 1 < text.size() && text[i + 1] == '\n') {
            out += ' ';
            ++i;
        } else {
            out += text[i];
        }
    }
    return out;
}

class CliHost : public Host {
public:
    explicit CliHost(int tty) : tty_(tty) {}

    void yield() override
    {
        if (interrupted)
            bCancel = true;
    }

    void hit(const std::string& sName, std::int64_t lPos) override
    {
        char pos[32];
        const int n = std::snprintf(pos, sizeof pos, "\t%09lld\n", static_cast<long long>(lPos));
        std::fwrite(sName.data(), 1, sName.size(), stdout);
        std::fwrite(pos, 1, static_cast<std::size_t>(n), stdout);
    }

    void message(const std::string& text) override
    {
        std::fflush(stdout);
        const std::string line = oneline(text) + "\n";
        std::fwrite(line.data(), 1, line.size(), stderr);
    }

    Answer question(const std::string& title, const std::string& text) override
    {
        std::fflush(stdout);
        const std::string shown = title + "\n" + text + "\n[y]es, [n]o or [c]ancel? ";
        for (;;) {
            if (interrupted || !writeall(shown))
                return Answer::Cancel;
            std::string answer;
            char c = 0;
            for (;;) {
                const ssize_t r = ::read(tty_, &c, 1);
                if (r <= 0)
                    return Answer::Cancel;   // end of input, or an interrupt
                if (c == '\n')
                    break;
                answer += c;
            }
            if (answer == "y" || answer == "Y" || answer == "yes")
                return Answer::Yes;
            if (answer == "n" || answer == "N" || answer == "no")
                return Answer::No;
            if (answer == "c" || answer == "C" || answer == "cancel")
                return Answer::Cancel;
        }
    }

    void addline(const std::string& line) override { lines.push_back(line); }

    std::vector<std::string> lines;

private:
    bool writeall(const std::string& text)
    {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t r = ::write(tty_, text.data() + done, text.size() - done);
            if (r <= 0)
                return false;
            done += static_cast<std::size_t>(r);
        }
        return true;
    }

    int tty_;
};

struct Options {
    bool bIncludeSubs = false;
    bool bMatchCase = false;
    bool bAsk = false;
    bool bConvertHex = true;
    int nLogMode = 0;
    std::optional<std::string> log;
    std::optional<std::string> filesFrom;
    std::vector<std::string> operands;
};

// Parses the options; an empty optional with `status` set means "stop here".
std::optional<Options> parse(const std::vector<std::string>& args, const char* name, const char* usage, int& status)
{
    Options o;
    bool options = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&](std::optional<std::string>& into) {
            if (i + 1 >= args.size())
                return false;
            into = args[++i];
            return true;
        };
        if (!options || arg.empty() || arg[0] != '-' || arg == "-") {
            o.operands.push_back(arg);
        } else if (arg == "--") {
            options = false;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(usage, stdout);
            std::fputs(kOptions, stdout);
            status = 0;
            return std::nullopt;
        } else if (arg == "-s" || arg == "--subdirs") {
            o.bIncludeSubs = true;
        } else if (arg == "-c" || arg == "--match-case") {
            o.bMatchCase = true;
        } else if (arg == "-a" || arg == "--ask") {
            o.bAsk = true;
        } else if (arg == "--no-angle") {
            o.bConvertHex = false;
        } else if (arg == "--log-finds") {
            o.nLogMode |= 1;
        } else if (arg == "--log-replaces") {
            o.nLogMode |= 2;
        } else if (arg == "--log") {
            if (!value(o.log)) {
                status = usageerror(std::string(name) + ": --log needs a FILE");
                return std::nullopt;
            }
        } else if (arg == "--files-from") {
            if (!value(o.filesFrom)) {
                status = usageerror(std::string(name) + ": --files-from needs a FILE");
                return std::nullopt;
            }
        } else if (arg.size() > 2 && arg[1] != '-') {
            // Short options may be bundled: -sc.
            for (char c : arg.substr(1)) {
                if (c == 's')
                    o.bIncludeSubs = true;
                else if (c == 'c')
                    o.bMatchCase = true;
                else if (c == 'a')
                    o.bAsk = true;
                else {
                    status = usageerror(std::string(name) + ": unknown option '-" + c + "' (see brindlex-cli " + name +
                                        " --help)");
                    return std::nullopt;
                }
            }
        } else {
            status = usageerror(std::string(name) + ": unknown option '" + arg + "' (see brindlex-cli " + name +
                                " --help)");
            return std::nullopt;
        }
    }
    return o;
}

// The list from --files-from: one path a line, each a List1 line of its own
// with an empty base directory.
bool readfilelist(const std::string& from, std::vector<std::string>& lines)
{
    std::ifstream file;
    std::istream* in = &std::cin;
    if (from != "-") {
        file.open(from, std::ios::binary);
        if (!file)
            return false;
        in = &file;
    }
    std::string path;
    while (std::getline(*in, path)) {
        if (path.empty())
            continue;
        struct stat st {};
        const std::int64_t size = ::stat(path.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_size) : 0;
        lines.push_back(list1line(path, size));
    }
    return !in->bad();
}

int runfindreplace(const std::vector<std::string>& args, bool bReplace)
{
    const char* name = bReplace ? "replace" : "find";
    const char* usage = bReplace ? kReplaceUsage : kFindUsage;
    int status = 0;
    const std::optional<Options> o = parse(args, name, usage, status);
    if (!o)
        return status;

    const std::size_t patterns = bReplace ? 2 : 1;
    const std::size_t wanted = patterns + (o->filesFrom ? 0 : 1);
    if (o->operands.size() != wanted) {
        std::fputs(usage, stderr);
        return kExitTrouble;
    }

    int tty = -1;
    if (o->bAsk && bReplace) {
        tty = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
        if (tty < 0)
            return usageerror(std::string(name) + ": --ask needs a terminal (/dev/tty: " + std::strerror(errno) + ")");
    }

    CliHost host(tty);
    RunRequest request;
    request.sFind = o->operands[0];
    if (bReplace)
        request.sReplaceText = o->operands[1];
    request.bReplace = bReplace;
    request.bMatchCase = o->bMatchCase;
    request.bAsk = o->bAsk;
    request.bConvertHex = o->bConvertHex;
    request.nLogMode = o->nLogMode;

    const std::optional<std::filesystem::path> workdir =
        (bReplace || (o->nLogMode && !o->log)) ? preparedworkdir() : std::nullopt;
    if (o->log)
        request.sLogFile = *o->log;
    else if (workdir)
        request.sLogFile = logfilepath();
    if (workdir)
        request.sScratch = scratchfilepath();

    // The first interrupt cancels, as the window's Cancel does; a second one
    // ends the program. Without SA_RESTART a question's read ends at once.
    struct sigaction sa {};
    sa.sa_handler = oninterrupt;
    sa.sa_flags = SA_RESETHAND;
    sigemptyset(&sa.sa_mask);
    ::sigaction(SIGINT, &sa, nullptr);

    if (o->filesFrom) {
        if (!readfilelist(*o->filesFrom, request.lines))
            return usageerror(std::string(name) + ": cannot read " + *o->filesFrom);
    } else {
        std::error_code ec;
        const std::filesystem::path cwd = std::filesystem::current_path(ec);
        const std::string mask = expandmask(o->operands.back(), cwd);
        request.baseDir = basedirfor(mask);
        listfiles(mask, o->bIncludeSubs, request.baseDir, host);
        request.lines = std::move(host.lines);
    }
    sortlist1(request.lines);

    static char outbuf[1 << 16];
    std::setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);
    const RunResult result = findinfiles(request, host);
    const bool wrote = std::fflush(stdout) == 0;

    std::fprintf(stderr, "%lld hits in %lld of %lld files, %lld files rewritten\n",
                 static_cast<long long>(result.hits), static_cast<long long>(result.filesWithHits),
                 static_cast<long long>(request.lines.size()), static_cast<long long>(result.filesRewritten));
    if (tty >= 0)
        ::close(tty);
    if (result.cancelled || interrupted)
        return kExitInterrupted;
    if (result.failures || !wrote)
        return kExitTrouble;
    return result.hits > 0 ? kExitHits : kExitNoHits;
}

int runfind(const std::vector<std::string>& args) { return runfindreplace(args, false); }
int runreplace(const std::vector<std::string>& args) { return runfindreplace(args, true); }

const RegisterCommand registeredfind({"find", "find [options] PATTERN MASK   list every hit, one line each", runfind});
const RegisterCommand registeredreplace(
    {"replace", "replace [options] PATTERN REPLACEMENT MASK   replace every hit in place", runreplace});

}  // namespace
}  // namespace brindlex::cli
