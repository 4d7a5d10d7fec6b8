// brindlex-cli page: the page text the viewer shows for a file, from the same
// readpage, so that scripts and tests see what the window would show; and,
// with --save, the viewer's Save of an edited page.
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "cli/command.h"
#include "engine/core/openbinary.h"
#include "engine/core/workdir.h"
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
    "               file's end\n"
    "  --save TEXTFILE  instead of writing the page, put TEXTFILE's page text in\n"
    "               its place in FILE, as the viewer's Save does (read in the\n"
    "               mode and format given; the rest of FILE is kept)\n"
    "  --help       this text\n"
    "\n"
    "Exit status: 0 done, 2 FILE could not be read or saved, or bad usage.\n"
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
        const std::string& arg = args[i];
        if (!options || arg.size() < 2 || arg[0] != '-') {
            files.push_back(arg);
            continue;
        }
        if (arg == "--") {
            options = false;
        } else if (arg == "--help" || arg == "-h") {
            std::fputs(kUsage, stdout);
            status = 0;
            return std::nullopt;
        } else if (arg == "--mode" || arg == "--width" || arg == "--format" || arg == "--pos" || arg == "--block" ||
                   arg == "--save") {
            if (i + 1 >= args.size())
                return status = usageerror("page: " + arg + " needs a value"), std::nullopt;
            const std::string& value = args[++i];
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

int trouble(const std::string& text)
{
    std::fprintf(stderr, "%s\n", text.c_str());
    return kExitTrouble;
}

// The page as the viewer reads it; without --block, from --pos to the end.
Page readoptionspage(const PageOptions& o)
{
    const std::int64_t nBlock = o.nBlock ? *o.nBlock : std::numeric_limits<std::int64_t>::max();
    return readpage(o.file, o.lPos, nBlock == 0 ? kDefaultBlock : nBlock, o.nWidth, o.nMode, o.nFormat);
}

int savepage(const PageOptions& o, const Page& page)
{
    std::ifstream in(*o.save, std::ios::binary);
    if (!in)
        return trouble("brindlex-cli: page: cannot read " + *o.save);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string sViewText = o.nMode >= kModePureText ? page.sText : pagebytes(page.sText, o.nMode);
    const PageEdit edit = pageedit(text, o.nMode, o.nFormat, sViewText, page.lViewLen);
    if (!edit.changed)
        return 0;
    if (edit.refused)
        return trouble(edit.refused.text);
    if (!preparedworkdir())
        return trouble("brindlex-cli: page: the work directory " + workdirpath().string() + " can't be used");
    const SpliceResult saved =
        splicepage({o.file, page.lPos, page.lViewLen, edit.bytes, page.stamp, scratchfilepath()});
    if (!saved.opened)
        return trouble(openerrormessage(o.file, saved.error));
    if (saved.error)
        return trouble(saved.error.text);
    if (!saved.notice.empty())
        std::fprintf(stderr, "brindlex-cli: page: %s: %s\n", o.file.c_str(), saved.notice.c_str());
    return 0;
}

bool writeout(const std::string& text)
{
    if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size())
        return true;
    std::perror("brindlex-cli: page: writing to stdout");
    return false;
}

// Without --block, rows of the byte modes go out a stretch at a time, so a
// file of any size is written in bounded memory; the record view and the
// text modes need their page whole, which the limit of Full Text bounds.
int writewhole(PageOptions o)
{
    const bool rows = o.nMode < kModePureText && o.nFormat != kFormatMeta;
    const std::int64_t stretch = rows ? std::int64_t{o.nWidth} * 16384 : std::numeric_limits<std::int64_t>::max();
    for (;;) {
        o.nBlock = stretch;
        const Page page = readoptionspage(o);
        if (!page.opened)
            return trouble(openerrormessage(o.file, page.error));
        if (page.error)
            return trouble(page.error.text);
        if (!rows && o.nMode != kModeFullText && page.lViewLen > kFullTextLimit)
            return trouble("brindlex-cli: page: the page from --pos to the end is over " +
                           std::to_string(kFullTextLimit) + " bytes: give --block");
        if (!writeout(page.sText))
            return kExitTrouble;
        if (page.lViewLen < stretch || !rows)
            return 0;
        o.lPos += page.lViewLen;
    }
}

int runpage(const std::vector<std::string>& args)
{
    int status = 0;
    const std::optional<PageOptions> o = parsepageoptions(args, status);
    if (!o)
        return status;
    if (!o->nBlock && !o->save)
        return writewhole(*o);
    const Page page = readoptionspage(*o);
    if (!page.opened)
        return trouble(openerrormessage(o->file, page.error));
    if (page.error)
        return trouble(page.error.text);
    if (o->save)
        return savepage(*o, page);
    return writeout(page.sText) ? 0 : kExitTrouble;
}

const RegisterCommand registered({"page", "page [options] FILE        the viewer's page text of a file", runpage});

}  // namespace
}  // namespace brindlex::cli
