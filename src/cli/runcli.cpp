#include "cli/runcli.h"

#include <cerrno>
#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/command.h"
#include "engine/batch/runlog.h"
#include "engine/batch/runmessages.h"
#include "engine/batch/runsetup.h"
#include "engine/core/openbinary.h"
#include "engine/core/workdir.h"
#include "engine/files/files.h"

namespace brindlex::cli {

const char* const kRunOptionsHelp =
    "  -s, --subdirs        take the files of every subdirectory too\n"
    "  -c, --match-case     compare bytes exactly\n"
    "  -i, --ignore-case    letters of a plain pattern in either case (the default)\n"
    "  -a, --ask            ask on the terminal before each replacement: y, n or c\n"
    "      --no-angle       the <nn> notation is off\n"
    "      --log-finds      log the pattern and every hit\n"
    "      --log-replaces   log the replacement and every replaced hit\n"
    "      --log FILE       the log to append to (default: the work directory's\n"
    "                       brindlex.log.txt)\n"
    "      --files-from FILE  the files to take, one path a line ('-': stdin)\n"
    "      --files0-from FILE the files to take, each path ended by a NUL\n"
    "  -0, --null           a NUL instead of the tab behind a hit's name\n"
    "      --no-progress    no progress line on a terminal's stderr\n"
    "      --help           this text\n";
const char* const kRunExitHelp =
    "\n"
    "Exit status: 0 hits, 1 no hit, 2 a file or directory could not be\n"
    "searched, checked or rewritten, or bad usage; 130 interrupted or cancelled.\n";

namespace {

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

// Limits of a list of names: whatever the list is (/dev/zero, /dev/urandom,
// a list that never ends), it is read in pieces and memory holds no more
// than the names worth keeping.
constexpr std::size_t kListPiece = 64 << 10;
constexpr std::size_t kMaxListName = 1 << 20;        // bytes of one name
constexpr int kMaxEmptyNames = 16;                   // empty names in a row
constexpr int kMaxMissingNames = 1000;               // names of no file in a row ...
constexpr std::size_t kMaxMissingBytes = 16 << 20;   // ... or this many bytes of them

// The list from --files-from (one path a line) or --files0-from (each path
// ended by a NUL): each a file of its own, by its real name, with an empty
// base directory. Returns what is wrong with the list, empty when it was
// read whole.
std::string readfilelist(const std::string& from, char end, CliHost& host)
{
    FileHandle owned;
    int fd = STDIN_FILENO;
    if (from != "-") {
        owned = FileHandle(::open(from.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
        if (!owned.valid())
            return std::strerror(errno);
        fd = owned.get();
    }
    const auto piece = std::make_unique_for_overwrite<char[]>(kListPiece);
    std::string path;
    int empties = 0, missing = 0;
    std::size_t missingBytes = 0;
    // One name complete: kept, or the reason the list is no list of names.
    auto take = [&]() -> std::string {
        if (path.empty())
            return ++empties > kMaxEmptyNames ? "more than " + std::to_string(kMaxEmptyNames) +
                                                    " empty names in a row: not a list of names"
                                              : "";
        empties = 0;
        // A path too long for stat is looked at by the run (openlong).
        struct stat st {};
        const bool there = ::stat(path.c_str(), &st) == 0 || (errno == ENAMETOOLONG && path.size() >= PATH_MAX);
        missing = there ? 0 : missing + 1;
        missingBytes = there ? 0 : missingBytes + path.size();
        if (missing > kMaxMissingNames || missingBytes > kMaxMissingBytes)
            return "more than " + std::to_string(kMaxMissingNames) + " names in a row lead to no file: not a list of names";
        host.entry(path, there ? static_cast<std::int64_t>(st.st_size) : 0);
        path.clear();
        return "";
    };
    for (;;) {
        const ssize_t got = ::read(fd, piece.get(), kListPiece);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return std::strerror(errno);
        if (got == 0)
            return path.empty() ? "" : take();
        for (std::string_view rest(piece.get(), static_cast<std::size_t>(got)); !rest.empty();) {
            const std::size_t at = rest.find(end);
            const std::string_view part = rest.substr(0, at);
            if (end != '\0' && part.find('\0') != std::string_view::npos)
                return "a name holds a NUL byte: not a list of names (--files0-from takes names ended by NUL)";
            if (path.size() + part.size() > kMaxListName)
                return "a name of more than " + std::to_string(kMaxListName) + " bytes: not a list of names";
            path.append(part);
            if (at == std::string_view::npos)
                break;
            rest.remove_prefix(at + 1);
            if (std::string trouble = take(); !trouble.empty())
                return trouble;
        }
    }
}

// -s, -c, -a, -0 (also bundled): false for any other letter.
bool shortoption(char c, RunOptions& o)
{
    if (c == 'i') {   // the default, given explicitly: the last of -c and -i holds
        o.bMatchCase = false;
        return true;
    }
    bool* flag = c == 's' ? &o.bIncludeSubs : c == 'c' ? &o.bMatchCase : c == 'a' ? &o.bAsk
        : c == '0' ? &o.nullAfterName : nullptr;
    if (flag)
        *flag = true;
    return flag != nullptr;
}

// The letter of a long flag: --subdirs is -s; 0 for no such flag.
char longletter(const std::string& arg)
{
    return arg == "--subdirs" ? 's' : arg == "--match-case" ? 'c' : arg == "--ignore-case" ? 'i' : arg == "--ask" ? 'a'
        : arg == "--null" ? '0' : 0;
}

}  // namespace

std::optional<RunOptions> parserunoptions(const std::vector<std::string>& args, const std::string& name,
                                          const std::string& help, int& status)
{
    RunOptions o;
    bool options = true;
    auto unknown = [&](const std::string& option) {
        status = usageerror(name + ": unknown option '" + option + "' (see brindlex-cli " + name + " --help)");
        return std::nullopt;
    };
    for (std::size_t i = 0; i < args.size(); ++i) {
        // --log=FILE as well as --log FILE.
        std::string arg = args[i];
        std::optional<std::string> given;
        if (const std::size_t eq = arg.find('='); options && arg.starts_with("--") && eq != std::string::npos) {
            given = arg.substr(eq + 1);
            arg.resize(eq);
        }
        auto value = [&](std::optional<std::string>& into) {
            if (given) {
                into = *given;
                return true;
            }
            if (i + 1 >= args.size())
                return false;
            into = args[++i];
            return true;
        };
        const bool valued = arg == "--log" || arg == "--files-from" || arg == "--files0-from";
        if (given && !valued) {
            status = usageerror(name + ": option '" + arg + "' takes no value (see brindlex-cli " + name + " --help)");
            return std::nullopt;
        }
        if (!options || arg.empty() || arg[0] != '-' || arg == "-") {
            o.operands.push_back(arg);
        } else if (arg == "--") {
            options = false;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(help.c_str(), stdout);
            status = 0;
            return std::nullopt;
        } else if (const char letter = longletter(arg)) {
            shortoption(letter, o);
        } else if (arg == "--no-progress") {
            o.bProgress = false;
        } else if (arg == "--dry-run" && name == "replace") {
            o.bDryRun = true;
        } else if (arg == "--no-angle") {
            o.bConvertHex = false;
        } else if (arg == "--log-finds") {
            o.nLogMode |= kLogFinds;
        } else if (arg == "--log-replaces") {
            o.nLogMode |= kLogReplaces;
        } else if (valued) {
            if (!value(arg == "--log" ? o.log : o.filesFrom)) {
                status = usageerror(name + ": " + arg + " needs a FILE");
                return std::nullopt;
            }
            o.filesNul = o.filesNul || arg == "--files0-from";
        } else if (arg[1] != '-') {
            // Short options may be bundled: -sc.
            for (char c : arg.substr(1)) {
                if (!shortoption(c, o))
                    return unknown(std::string("-") + c);
            }
        } else {
            return unknown(arg);
        }
    }
    return o;
}

// Lines made on a thread of their own only where they can't meet the
// progress line on a terminal.
CliHost::CliHost() : lines(::isatty(STDOUT_FILENO) == 0, [this] { meter.erase(); }) {}

CliHost::~CliHost()
{
    flushhits();
    if (tty_ >= 0)
        ::close(tty_);
}

bool CliHost::openterminal()
{
    tty_ = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    return tty_ >= 0;
}

void CliHost::showcontrols(bool bOn)
{
    if (bOn) {
        flushhits();
        meter.erase();
    } else {
        meter.begin(nFiles);
    }
}

bool CliHost::carryon() { return !interrupted(); }

void CliHost::runbegins(bool works)
{
    if (works)
        showcontrols(false);
}

void CliHost::filebegins(const FileBegins& file)
{
    meter.filebegins(file.sFile, file.lLength);
    if (file.error)
        runfailure(Failure{FailureKind::Open, file.sFile, file.error, {}});
}

void CliHost::progress(std::int64_t lDone, std::int64_t /*lLen*/) { meter.filepart(lDone); }

std::size_t CliHost::hits(const HitBatch& batch)
{
    if (bDryRun && batch.count != 0 && (wouldRewrite.empty() || wouldRewrite.back() != batch.sName)) [[unlikely]]
        wouldRewrite.push_back(batch.sName);
    lines.put(batch.sName, batch.lPos, batch.count);
    return batch.count;
}

void CliHost::filedone(const FileDone& file)
{
    if (file.failure)
        runfailure(file.failure);
}

void CliHost::runfailure(const Failure& failure)
{
    const RunMessage shown = failuremessage(failure);
    message(shown.text, shown.reason);
}

void CliHost::note(const Note& n) { note(notetext(n)); }

void CliHost::runfinished(const RunSummary& /*summary*/) { showcontrols(true); }

void CliHost::entry(const std::string& name, std::int64_t size)
{
    entries.push_back(FileEntry{name, size, false});
}

void CliHost::unreadable(const std::string& path, int code) { notsearched(errorfromerrno(code, path)); }

void CliHost::notsearched(const Error& why)
{
    note(reasontext(why));
    trouble = true;
}

void CliHost::note(const std::string& text)
{
    message("brindlex-cli: " + text, {});
}

void CliHost::flushhits()
{
    meter.erase();
    lines.flush();
}

void CliHost::message(const std::string& text, const Error& reason)
{
    flushhits();
    std::fflush(stdout);
    std::string line = oneline(text) + "\n";
    if (reason)
        line += "brindlex-cli: " + oneline(reasontext(reason)) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

Answer CliHost::question(const Question& q)
{
    flushhits();
    std::fflush(stdout);
    const std::string shown = questiontitle(q) + "\n" + q.text + "\n[y]es, [n]o or [c]ancel? ";
    for (;;) {
        if (interrupted() || !writeall(tty_, shown))
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

int preparerun(const RunOptions& o, bool bReplace, const std::string& mask, const std::string& name,
               CliHost& host, RunRequest& request)
{
    if (o.bAsk && bReplace && !host.openterminal())
        return usageerror(name + ": --ask needs a terminal (/dev/tty: " + std::strerror(errno) + ")");

    host.meter = ProgressMeter(o.bProgress);
    host.bDryRun = request.bDryRun = bReplace && o.bDryRun;
    request.bMatchCase = o.bMatchCase;
    request.bAsk = o.bAsk;
    request.bConvertHex = o.bConvertHex;
    request.nLogMode = o.nLogMode;
    request.bReadAhead = true;

    const RunPaths paths = runpaths(bReplace || (o.nLogMode && !o.log),
                                    o.log ? std::optional<std::filesystem::path>(*o.log) : std::nullopt);
    request.sLogFile = paths.sLogFile;
    request.sScratch = paths.sScratch;

    catchinterrupt();

    if (o.filesFrom) {
        const std::string trouble = readfilelist(*o.filesFrom, o.filesNul ? '\0' : '\n', host);
        if (!trouble.empty())
            return usageerror(name + ": cannot read the list " + *o.filesFrom + ": " + trouble);
        sortlist1(host.entries);
    } else {
        const MaskPlace place = placemask(mask);
        request.baseDir = place.baseDir;
        request.baseDirFd = listmask(place, o.bIncludeSubs, host, host.entries);
        request.bWalkedNow = true;
        // One file named without a wildcard that isn't listed: not there (a
        // dangling link included), as grep says it, or no regular file (a
        // FIFO, a device), which is never searched.
        struct stat st {};
        if (host.entries.empty() && !host.trouble && filepart(place.mask).find_first_of("*?") == std::string::npos) {
            if (::stat(place.mask.c_str(), &st) != 0)
                host.unreadable(mask, errno);
            else if (!S_ISREG(st.st_mode))
                host.notsearched(notregular(mask));
        }
    }
    if (o.nullAfterName)
        host.lines.separator = '\0';
    request.files = host.entries;
    host.nFiles = request.files.size();
    return 0;
}

void bufferstdout()
{
    static char outbuf[1 << 16];
    std::setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);
}

void printsummary(const RunResult& result, std::size_t files, const std::string& prefix, bool rewrites)
{
    auto counted = [](long long n, const char* one, const char* more) { return std::to_string(n) + (n == 1 ? one : more); };
    const std::string line = prefix + counted(result.hits, " hit", " hits") + " in "
        + std::to_string(result.filesWithHits) + " of " + counted(static_cast<long long>(files), " file", " files")
        + (rewrites ? ", " + counted(result.filesRewritten, " file rewritten", " files rewritten") : "")
        + (interrupted() ? ", interrupted" : "") + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

bool flushstdout()
{
    static bool told = false;
    if (std::fflush(stdout) == 0 && !std::ferror(stdout))
        return true;
    if (!told)
        std::fprintf(stderr, "brindlex-cli: write error on stdout: %s\n", std::strerror(errno));
    told = true;
    return false;
}

int exitstatus(const CliHost& host, bool cancelled, bool failures, bool wrote, bool hits)
{
    if (cancelled || interrupted())
        return kExitInterrupted;
    if (failures || !wrote || host.trouble)
        return kExitTrouble;
    return hits ? kExitHits : kExitNoHits;
}

}  // namespace brindlex::cli
