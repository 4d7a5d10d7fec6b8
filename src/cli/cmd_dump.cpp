// brindlex-cli dump: the window's integer dump, byte for byte the sheet that
// it writes, to stdout or to a file that is replaced as a whole.
#include <cerrno>
#include <cstring>
#include <charconv>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include "cli/command.h"
#include "cli/interrupt.h"
#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"
#include "engine/dump/dump.h"

namespace brindlex::cli {
namespace {

constexpr const char* kUsage =
    "usage: brindlex-cli dump --size 2|4 --cols N [-o SHEET] [--] FILE\n"
    "\n"
    "Reads FILE from its first byte as little-endian signed integers of 2 or\n"
    "4 bytes and writes them N to a row as the window's integer dump does: a\n"
    "blank, the row number and a blank, then a tab and a value for each\n"
    "column, CR LF. A row begins while a byte of FILE is left, and is written\n"
    "whole: a value wholly past the end of FILE is an empty cell, a value cut\n"
    "by the end takes the bytes there are as its low bytes.\n"
    "\n"
    "  --size 2|4       bytes per integer\n"
    "  --cols N         values per row, 1 to 32767, as in the window\n"
    "  -o, --output SHEET  the sheet to write (default: stdout); an existing\n"
    "                   SHEET is replaced only when the dump is complete; a\n"
    "                   symbolic link at SHEET is refused, never followed\n"
    "  --help           this text\n"
    "\n"
    "Exit status: 0 written, 2 FILE or SHEET failed, or bad usage; 130\n"
    "interrupted (an existing SHEET is left as it was).\n"
    "\n"
    "Examples:\n"
    "  brindlex-cli dump --size 4 --cols 8 counts.bin -o counts.xls\n"
    "  brindlex-cli dump --size 2 --cols 1 samples.raw | head     the first values\n";

// Messages on stderr, each naming the file it concerns and its role; the
// dump's closing word says nothing a script needs. The engine tells a
// failed open by the platform's text and a failed read or write by its
// number; which file it was, the sheet's state tells.
class DumpHost final : public DumpSink {
public:
    DumpHost(std::string created, std::string sIn, std::string sOut, const bool& sheetTried, const bool& sheetFailed)
        : created_(std::move(created)), sIn_(std::move(sIn)), sOut_(std::move(sOut)), sheetTried_(sheetTried),
          sheetFailed_(sheetFailed)
    {
    }
    bool carryon() override { return !interrupted(); }
    void message(const std::string& text) override
    {
        if (text == created_)
            return;
        const bool number = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
        const std::string why = number ? std::strerror(std::stoi(text)) : text;
        const std::string line = sheetFailed_ ? "cannot write sheet " + sOut_ + ": " + why
            : !sheetTried_                    ? "cannot read " + sIn_ + ": " + why
                                              : "cannot dump " + sIn_ + " into sheet " + sOut_ + ": " + why;
        std::fprintf(stderr, "brindlex-cli: dump: %s\n", line.c_str());
    }

private:
    std::string created_, sIn_, sOut_;
    const bool& sheetTried_;
    const bool& sheetFailed_;
};

// stdout as the sheet: nothing to make, nothing to keep back.
class StdoutSheet final : public SheetOutput {
public:
    Error open() override
    {
        tried = true;
        return {};
    }
    int fd() const override { return STDOUT_FILENO; }
    Error close(bool) override { return {}; }
    bool tried = false;
};

// A named sheet goes in place as a whole, through the one safe route for a
// user's file (a new file, then a rename in its directory), so that a failed
// or interrupted dump leaves the old one. A link at the name is refused: one
// planted in a shared directory must never lead the sheet elsewhere.
class ReplacedSheet final : public SheetOutput {
public:
    explicit ReplacedSheet(std::string target) : target_(std::move(target)) {}
    Error open() override
    {
        Error error;
        const std::optional<std::filesystem::path> dir = preparedworkdir();
        replace_ = SafeReplace::begin(target_, dir ? scratchfilepath() : std::filesystem::path(), error,
                                      SafeReplace::Missing::CreateNoLink);
        tried = true;
        failed = !replace_;
        return error;
    }
    int fd() const override { return replace_->fd(); }
    Error close(bool whole) override
    {
        if (!whole) {
            replace_->abort();
            return {};
        }
        Error error = replace_->commit();
        failed = static_cast<bool>(error);
        return error;
    }
    bool tried = false, failed = false;

private:
    std::string target_;
    std::unique_ptr<SafeReplace> replace_;
};

std::optional<int> number(const std::string& text)
{
    int value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

struct DumpOptions {
    std::optional<int> size, cols;
    std::optional<std::string> output;
    std::vector<std::string> files;
};

// Parses the options; an empty answer means stop with `status`.
std::optional<DumpOptions> parse(const std::vector<std::string>& args, int& status)
{
    DumpOptions o;
    bool options = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        // --cols=N as well as --cols N.
        std::string arg = args[i];
        std::optional<std::string> given;
        if (const std::size_t eq = arg.find('='); options && arg.starts_with("--") && eq != std::string::npos) {
            given = arg.substr(eq + 1);
            arg.resize(eq);
        }
        const bool valued = options && (arg == "--size" || arg == "--cols" || arg == "-o" || arg == "--output");
        if (given && !valued) {
            status = usageerror("dump: option '" + arg + "' takes no value (see brindlex-cli dump --help)");
            return std::nullopt;
        }
        if (valued && !given && i + 1 == args.size()) {
            status = usageerror("dump: " + arg + " needs a value (see brindlex-cli dump --help)");
            return std::nullopt;
        }
        auto value = [&] { return given ? *given : args[++i]; };
        if (options && arg == "--") {
            options = false;
        } else if (options && (arg == "--help" || arg == "-h")) {
            std::fputs(kUsage, stdout);
            status = 0;
            return std::nullopt;
        } else if (valued && (arg == "--size" || arg == "--cols")) {
            const std::string v = value();
            std::optional<int>& into = arg == "--size" ? o.size : o.cols;
            into = number(v);
            if (arg == "--size" ? into != 2 && into != 4 : !into || *into < 1 || *into > 32767) {
                status = usageerror("dump: bad value '" + v + "' for " + arg +
                                    (arg == "--size" ? " (2 or 4)" : " (1 to 32767)"));
                return std::nullopt;
            }
        } else if (valued) {
            o.output = value();
        } else if (options && arg.size() > 1 && arg[0] == '-') {
            status = usageerror("dump: unknown option '" + arg + "' (see brindlex-cli dump --help)");
            return std::nullopt;
        } else {
            o.files.push_back(arg);
        }
    }
    if (!o.size || !o.cols) {
        status = usageerror(std::string("dump: ") + (o.size ? "--cols N" : o.cols ? "--size 2|4" : "--size 2|4 and --cols N")
                            + " must be given (see brindlex-cli dump --help)");
        return std::nullopt;
    }
    if (o.files.size() != 1) {
        status = usageerror("dump: expects one FILE, not " + std::to_string(o.files.size()) +
                            " (see brindlex-cli dump --help)");
        return std::nullopt;
    }
    return o;
}

int rundump(const std::vector<std::string>& args)
{
    int status = 0;
    const std::optional<DumpOptions> o = parse(args, status);
    if (!o)
        return status;

    catchinterrupt();

    const std::string sOut = o->output.value_or("-");
    StdoutSheet toStdout;
    ReplacedSheet toFile(sOut);
    const bool never = false;
    DumpHost host(createdmessage(sOut), o->files.front(), o->output ? sOut : "stdout",
                  o->output ? toFile.tried : toStdout.tried, o->output ? toFile.failed : never);
    SheetOutput& sheet = o->output ? static_cast<SheetOutput&>(toFile) : toStdout;
    std::int64_t lPos = 1;
    const DumpResult result = dumpints(*o->size, *o->cols, o->files.front(), sheet, sOut, lPos, host);
    if (result.cancelled)
        return kExitInterrupted;
    return result.failed ? kExitTrouble : 0;
}

const RegisterCommand registered(
    {"dump", "dump --size 2|4 --cols N FILE [-o SHEET]   integers of FILE as a tab-separated sheet", rundump});

}  // namespace
}  // namespace brindlex::cli
