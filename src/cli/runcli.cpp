#include "cli/runcli.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli/command.h"
#include "engine/core/workdir.h"
#include "engine/files/files.h"

namespace brindlex::cli {

const char* const kRunOptionsHelp =
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

namespace {

volatile std::sig_atomic_t gInterrupted = 0;

extern "C" void oninterrupt(int) { gInterrupted = 1; }

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
            std::fputs(help.c_str(), stdout);
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
        } else if (arg == "--log" || arg == "--files-from") {
            if (!value(arg == "--log" ? o.log : o.filesFrom)) {
                status = usageerror(name + ": " + arg + " needs a FILE");
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
                else
                    return unknown(std::string("-") + c);
            }
        } else {
            return unknown(arg);
        }
    }
    return o;
}

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
    if (bOn)
        flushhits();
}

void CliHost::yield()
{
    if (gInterrupted)
        bCancel = true;
}

namespace {

// Writes lPos as the hit list shows it, in nine digits or more, and LF at
// `out`, which has room for kPositionBytes; returns the end.
constexpr std::size_t kPositionBytes = 24;
char* writeposition(char* out, std::int64_t lPos)
{
    static constexpr char kPairs[] =
        "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
        "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
        "8081828384858687888990919293949596979899";
    auto v = static_cast<std::uint64_t>(lPos);
    std::size_t len = 9;
    for (std::uint64_t t = v / 1000000000; t != 0; t /= 10)
        ++len;
    std::memcpy(out, "0000000000000000", 16);
    char* const end = out + len;
    char* p = end;
    // Two digits a step.
    while (v >= 100) {
        p -= 2;
        std::memcpy(p, kPairs + 2 * (v % 100), 2);
        v /= 100;
    }
    if (v >= 10) {
        p -= 2;
        std::memcpy(p, kPairs + 2 * v, 2);
    } else {
        *--p = static_cast<char>('0' + v);
    }
    *end = '\n';
    return end + 1;
}

}  // namespace

// A file with millions of hits prints millions of lines: no printf, and no
// stdio call or copy of unknown length per line either.
void CliHost::hit(const std::string& sName, std::int64_t lPos)
{
    putlines(sName, &lPos, 1);
}

std::size_t CliHost::hits(const std::string& sName, const std::int64_t* lPos, std::size_t count,
                          std::int64_t /*nHitsBefore*/)
{
    putlines(sName, lPos, count);
    CliHost::yield();
    return count;
}

void CliHost::putlines(const std::string& sName, const std::int64_t* lPos, std::size_t count)
{
    // The name and the tab go in as one copy of fixed length.
    constexpr std::size_t kPrefix = 64;
    char prefix[kPrefix] = {};
    const std::size_t nPrefix = sName.size() + 1;
    if (nPrefix <= kPrefix) {
        std::memcpy(prefix, sName.data(), sName.size());
        prefix[sName.size()] = '\t';
    }
    if (!hits_)
        hits_ = std::make_unique_for_overwrite<char[]>(kHitBuffer);
    for (std::size_t k = 0; k < count; ++k) {
        if (kHitBuffer - hitsUsed_ < kPrefix + kPositionBytes)
            flushhits();
        char* out = hits_.get() + hitsUsed_;
        if (nPrefix <= kPrefix) {
            std::memcpy(out, prefix, kPrefix);
            out += nPrefix;
        } else {
            flushhits();   // a long name goes straight out
            fwrite_unlocked(sName.data(), 1, sName.size(), stdout);
            out = hits_.get();
            *out++ = '\t';
        }
        out = writeposition(out, lPos[k]);
        hitsUsed_ = static_cast<std::size_t>(out - hits_.get());
    }
}

void CliHost::flushhits()
{
    if (hitsUsed_ != 0)
        fwrite_unlocked(hits_.get(), 1, hitsUsed_, stdout);
    hitsUsed_ = 0;
}

void CliHost::message(const std::string& text)
{
    flushhits();
    std::fflush(stdout);
    const std::string line = oneline(text) + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

Answer CliHost::question(const std::string& title, const std::string& text)
{
    flushhits();
    std::fflush(stdout);
    const std::string shown = title + "\n" + text + "\n[y]es, [n]o or [c]ancel? ";
    for (;;) {
        if (gInterrupted || !writeall(shown))
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

bool CliHost::writeall(const std::string& text)
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

int preparerun(const RunOptions& o, bool bReplace, const std::string& mask, const std::string& name,
               CliHost& host, RunRequest& request)
{
    if (o.bAsk && bReplace && !host.openterminal())
        return usageerror(name + ": --ask needs a terminal (/dev/tty: " + std::strerror(errno) + ")");

    request.bMatchCase = o.bMatchCase;
    request.bAsk = o.bAsk;
    request.bConvertHex = o.bConvertHex;
    request.nLogMode = o.nLogMode;
    request.bReadAhead = true;

    const std::optional<std::filesystem::path> workdir =
        (bReplace || (o.nLogMode && !o.log)) ? preparedworkdir() : std::nullopt;
    if (o.log)
        request.sLogFile = *o.log;
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

    if (o.filesFrom) {
        if (!readfilelist(*o.filesFrom, request.lines))
            return usageerror(name + ": cannot read " + *o.filesFrom);
    } else {
        std::error_code ec;
        const std::filesystem::path cwd = std::filesystem::current_path(ec);
        const std::string expanded = expandmask(mask, cwd);
        request.baseDir = basedirfor(expanded);
        listfiles(expanded, o.bIncludeSubs, request.baseDir, host);
        request.lines = std::move(host.lines);
    }
    sortlist1(request.lines);
    return 0;
}

bool interrupted() { return gInterrupted != 0; }

void bufferstdout()
{
    static char outbuf[1 << 16];
    std::setvbuf(stdout, outbuf, _IOFBF, sizeof outbuf);
}

void printsummary(const RunResult& result, std::size_t files, const std::string& prefix)
{
    std::fprintf(stderr, "%s%lld hits in %lld of %lld files, %lld files rewritten\n", prefix.c_str(),
                 static_cast<long long>(result.hits), static_cast<long long>(result.filesWithHits),
                 static_cast<long long>(files), static_cast<long long>(result.filesRewritten));
}

int exitstatus(bool cancelled, bool failures, bool wrote, bool hits)
{
    if (cancelled || gInterrupted)
        return kExitInterrupted;
    if (failures || !wrote)
        return kExitTrouble;
    return hits ? kExitHits : kExitNoHits;
}

}  // namespace brindlex::cli
