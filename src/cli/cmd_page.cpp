// brindlex-cli page: the page text the viewer shows for a file, from the same
// readpage, so that scripts and tests see what the window would show; and,
// with --save, the viewer's Save of an edited page.
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "engine/core/openbinary.h"
#include "engine/viewer/page.h"
#include "engine/viewer/save.h"

namespace brindlex::cli {
namespace {

constexpr const char* kUsage =
    "usage: brindlex-cli page [--mode 0|1|2|3] [--width N] [--format 0|1|2|3] [--pos N] [--block N]\n"
    "                         [--save TEXTFILE] [--] FILE\n"
    "\n"
    "Writes to stdout the page text that the viewer shows for FILE, CR LF row\n"
    "ends included.\n"
    "\n"
    "  --mode M     0 Pure Binary, 1 Binary/Text (default), 2 Pure Text, 3 Full Text\n"
    "  --width N    bytes per row in modes 0 and 1 (default 16)\n"
    "  --format F   position column: 0 decimal (default), 1 hexadecimal,\n"
    "               2 hexadecimal and sector, 3 metafile records\n"
    "  --pos N      1-based position of the page's first byte (default 1)\n"
    "  --block N    read one page of N bytes, as the viewer does (Pure Text takes\n"
    "               one byte more after a CR); without it the page runs to the\n"
    "               file's end. A page of any size is written as it is read\n"
    "  --save TEXTFILE  instead of writing the page, put TEXTFILE's page text in\n"
    "               its place in FILE, as the viewer's Save does (read in the\n"
    "               mode and format given; the rest of FILE is kept). The page\n"
    "               is then at most 16 MiB, and TEXTFILE a regular file at most\n"
    "               1 MiB longer than the page's text\n"
    "  --help       this text\n"
    "\n"
    "Exit status: 0 done, 1 --pos past the end of FILE, 2 FILE could not be read\n"
    "or saved, or bad usage. --opt=value is taken as well as --opt value.\n"
    "\n"
    "Examples:\n"
    "  brindlex-cli page --mode 0 --block 256 image.bin      the first 256 bytes\n"
    "  brindlex-cli page --format 3 drawing.wmf              the metafile's records\n"
    "  brindlex-cli page --mode 0 --block 64 --save p.txt f.bin   patch f.bin\n";

struct PageOptions {
    int nMode = kModeBinaryText;
    int nWidth = 16;
    int nFormat = kFormatDecimal;
    std::int64_t lPos = 1;
    std::optional<std::int64_t> nBlock;
    std::optional<std::string> save;
    std::string file;
};

std::optional<std::int64_t> number(const std::string& text, std::int64_t low, std::int64_t high)
{
    std::int64_t value = 0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (ec != std::errc() || end != text.data() + text.size() || value < low || value > high)
        return std::nullopt;
    return value;
}

// Fills `o`; an empty answer with `status` set means "stop here".
std::optional<PageOptions> parsepageoptions(const std::vector<std::string>& args, int& status)
{
    constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
    PageOptions o;
    std::vector<std::string> files;
    bool options = true;
    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string arg = args[i];
        if (!options || arg.size() < 2 || arg[0] != '-') {
            files.push_back(arg);
            continue;
        }
        // --pos=N as well as --pos N.
        std::optional<std::string> given;
        if (const std::size_t eq = arg.find('='); arg.starts_with("--") && eq != std::string::npos) {
            given = arg.substr(eq + 1);
            arg.resize(eq);
        }
        const bool valued = arg == "--mode" || arg == "--width" || arg == "--format" || arg == "--pos" ||
                            arg == "--block" || arg == "--save";
        if (given && !valued)
            return status = usageerror("page: option '" + arg + "' takes no value (see brindlex-cli page --help)"),
                   std::nullopt;
        if (arg == "--") {
            options = false;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            status = 0;
            return std::nullopt;
        } else if (valued) {
            if (!given && i + 1 >= args.size())
                return status = usageerror("page: " + arg + " needs a value"), std::nullopt;
            const std::string value = given ? *given : args[++i];
            const std::optional<std::int64_t> n = arg == "--mode" || arg == "--format" ? number(value, 0, 3)
                                                  : arg == "--width"                   ? number(value, 1, 32767)
                                                  : arg == "--save"                    ? std::optional<std::int64_t>(0)
                                                                                       : number(value, 0, kMax);
            if (!n || (arg == "--pos" && *n < 1))
                return status = usageerror("page: bad value '" + value + "' for " + arg), std::nullopt;
            if (arg == "--mode") o.nMode = static_cast<int>(*n);
            if (arg == "--width") o.nWidth = static_cast<int>(*n);
            if (arg == "--format") o.nFormat = static_cast<int>(*n);
            if (arg == "--pos") o.lPos = *n;
            if (arg == "--block") o.nBlock = *n;
            if (arg == "--save") o.save = value;
        } else {
            return status = usageerror("page: unknown option '" + arg + "' (see brindlex-cli page --help)"), std::nullopt;
        }
    }
    if (files.size() != 1)
        return status = usageerror("page: expects one FILE (see brindlex-cli page --help)"), std::nullopt;
    o.file = files.front();
    return o;
}

// "brindlex-cli: page: " and `text` on one line: a CR LF of the engine's
// messages becomes a blank.
int trouble(const std::string& text)
{
    std::string line = "brindlex-cli: page: " + text;
    for (std::size_t at = line.find("\r\n"); at != std::string::npos; at = line.find("\r\n", at))
        line.replace(at, 2, " ");
    std::fprintf(stderr, "%s\n", line.c_str());
    return kExitTrouble;
}

int cannotread(const std::string& file, const Error& error)
{
    return trouble("cannot read " + file + ": " + error.text);
}

int cannotsave(const std::string& file, const std::string& why)
{
    return trouble("cannot save " + file + ": " + why);
}

// The page as the viewer reads it; without --block, from --pos to the end.
Page readoptionspage(const PageOptions& o)
{
    const std::int64_t nBlock = o.nBlock ? *o.nBlock : std::numeric_limits<std::int64_t>::max();
    return readpage(o.file, o.lPos, nBlock == 0 ? kDefaultBlock : nBlock, o.nWidth, o.nMode, o.nFormat);
}

// Bytes an edited page's text may hold beyond the page's own text.
constexpr std::size_t kEditSlack = 1 << 20;

// TEXTFILE whole, when it is a regular file no longer than `most` bytes;
// else what is wrong with it.
std::optional<std::string> readedit(const std::string& path, std::size_t most, std::string& trouble)
{
    OpenedFile file;
    if (const Error error = openbinary(path, file)) {
        trouble = error.text;
        return std::nullopt;
    }
    if (file.size() > static_cast<std::int64_t>(most)) {
        trouble = "longer than the page it edits (" + std::to_string(file.size()) + " bytes, at most " +
                  std::to_string(most) + ")";
        return std::nullopt;
    }
    std::string text;
    // One byte more than allowed tells a file that grew meanwhile.
    if (!readblock(file.fd.get(), 0, static_cast<std::int64_t>(most) + 1, text)) {
        trouble = std::strerror(errno);
        return std::nullopt;
    }
    if (text.size() > most) {
        trouble = "longer than the page it edits";
        return std::nullopt;
    }
    return text;
}

int saveedit(const PageOptions& o, const Page& page)
{
    std::string why;
    const std::optional<std::string> text = readedit(*o.save, page.sText.size() + kEditSlack, why);
    if (!text)
        return trouble("cannot read edited page " + *o.save + ": " + why);
    const std::string sViewText = pagebytes(page.sText, o.nMode);
    const SavedPage saved = saveeditedpage({.sViewFile = o.file,
                                            .lViewPos = page.lPos,
                                            .lViewLen = page.lViewLen,
                                            .sViewText = sViewText,
                                            .stamp = page.stamp,
                                            .pageText = *text,
                                            .nMode = o.nMode,
                                            .nFormat = o.nFormat,
                                            .sScratch = {}});   // the work directory's, made only for a save
    if (saved.error)
        return cannotsave(o.file, saved.error.text);
    if (!saved.notice.empty())
        std::fprintf(stderr, "brindlex-cli: page: %s: %s\n", o.file.c_str(), saved.notice.c_str());
    return 0;
}

// The page, of any size, written as it is read.
int writepage(const PageOptions& o)
{
    const std::int64_t nBlock = o.nBlock ? *o.nBlock : std::numeric_limits<std::int64_t>::max();
    bool failed = false;
    const PageStream page = streampage(o.file, o.lPos, nBlock, o.nWidth, o.nMode, o.nFormat, [&](std::string_view text) {
        failed = std::fwrite(text.data(), 1, text.size(), stdout) != text.size();
        return !failed;
    });
    if (!page.opened)
        return cannotread(o.file, page.error);
    if (page.error)
        return cannotread(o.file, page.error);
    if (failed || std::fflush(stdout) != 0) {
        std::perror("brindlex-cli: page: cannot write the page to stdout");
        return kExitTrouble;
    }
    if (o.nMode != kModeFullText && o.lPos > page.lFileLen) {
        std::fprintf(stderr, "brindlex-cli: page: position %lld is past the end of %s (%lld bytes)\n",
                     static_cast<long long>(o.lPos), o.file.c_str(), static_cast<long long>(page.lFileLen));
        return kExitNoHits;
    }
    return 0;
}

int runpage(const std::vector<std::string>& args)
{
    int status = 0;
    const std::optional<PageOptions> o = parsepageoptions(args, status);
    if (!o)
        return status;
    if (!o->save)
        return writepage(*o);
    const Page page = readoptionspage(*o);
    if (!page.opened)
        return cannotread(o->file, page.error);
    if (page.error)
        return cannotread(o->file, page.error);
    return saveedit(*o, page);
}

const RegisterCommand registered({"page", "page [options] FILE        the viewer's page text of a file", runpage});

}  // namespace
}  // namespace brindlex::cli
