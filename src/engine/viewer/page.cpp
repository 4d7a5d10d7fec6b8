#include "engine/viewer/page.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <utility>
#include <algorithm>

#include <unistd.h>

#include "engine/core/openbinary.h"
#include "engine/pattern/notation.h"
#include "engine/viewer/metafile.h"

namespace brindlex {
namespace {

std::string fulltexttoolarge(std::int64_t length)
{
    return "File too large for Full Text: " + std::to_string(length) + " bytes, at most " +
           std::to_string(kFullTextLimit) + " can be shown as text; use Pure Text to page through it";
}

std::string pagetoolarge(std::int64_t length)
{
    return "Page too large: " + std::to_string(length) + " bytes, at most " + std::to_string(kPageLimit) +
           " are read as one page";
}

// Bytes of a file read a piece at a time, for a page streamed.
constexpr std::int64_t kStreamPiece = 256 << 10;

// The bytes a page takes: in Full Text the whole file, else the block of
// nBlock bytes (0: the default) at lPos, cut at the file's end; none from a
// position behind it. The first position and the count.
std::pair<std::int64_t, std::int64_t> pagespan(int nMode, std::int64_t lPos, std::int64_t nBlock,
                                               std::int64_t lFileLen)
{
    if (nMode == kModeFullText)
        return {1, lFileLen};
    if (lPos < 1 || lPos > lFileLen)
        return {lPos, 0};
    return {lPos, std::min(nBlock == 0 ? kDefaultBlock : nBlock, lFileLen - lPos + 1)};
}

}  // namespace

PageStream streampage(const std::filesystem::path& sFile, std::int64_t lPos, std::int64_t nBlock, int nWidth, int nMode,
                      int nFormat, const std::function<bool(std::string_view)>& write)
{
    PageStream out;
    OpenedFile file;
    out.error = openbinary(sFile, file);
    if (out.error)
        return out;
    out.opened = true;
    out.lFileLen = file.size();
    auto [first, count] = pagespan(nMode, lPos, nBlock, out.lFileLen);
    if (nMode == kModeFullText && count > kFullTextLimit) {
        out.error = Error{EFBIG, fulltexttoolarge(count), sFile};
        out.lViewLen = count;
        return out;
    }
    std::string piece;
    // Reads `n` bytes at 0-based `offset` into piece; fewer at the end.
    auto read = [&](std::int64_t offset, std::int64_t n) {
        piece.clear();
        if (!readblock(file.fd.get(), offset, n, piece)) {
            out.error = errorfromerrno(errno, sFile);
            return false;
        }
        return true;
    };
    // Pure Text never cuts a CR from the LF behind it.
    if (nMode == kModePureText && count > 0 && first - 1 + count < out.lFileLen && read(first - 2 + count, 1) &&
        piece == "\r")
        ++count;
    if (out.error)
        return out;

    std::string text;
    auto put = [&](std::string_view bytes) { return bytes.empty() || (out.written = write(bytes)); };
    if (nMode >= kModePureText) {
        // First pass: a NUL anywhere makes the page empty. A page of one
        // piece is written from the first pass.
        for (std::int64_t at = 0; at < count; at += kStreamPiece) {
            const std::int64_t want = std::min(kStreamPiece, count - at);
            if (!read(first - 1 + at, want))
                return out;
            out.lViewLen = at + static_cast<std::int64_t>(piece.size());
            if (piece.find('\0') != std::string::npos) {
                out.lViewLen = std::max(out.lViewLen, count);   // the block, as readpage tells it
                return out;
            }
            if (static_cast<std::int64_t>(piece.size()) < want)
                break;   // the file is shorter now: its page ends here
        }
        if (count <= kStreamPiece) {
            put(piece);
            return out;
        }
        for (std::int64_t at = 0; at < out.lViewLen; at += kStreamPiece) {
            if (!read(first - 1 + at, std::min(kStreamPiece, out.lViewLen - at)))
                return out;
            if (piece.find('\0') != std::string::npos) {
                out.error = filechanged(sFile, "while its page was written");
                return out;
            }
            if (!put(piece))
                return out;
        }
        return out;
    }

    // Byte rows: stretches of whole rows, so the pieces' texts are the
    // page's text. Metafile records: the rows a piece settles, the rest
    // carried into the next.
    const std::int64_t width = nWidth < 1 ? 1 : nWidth;
    const std::int64_t stretch = nFormat == kFormatMeta ? kStreamPiece : std::max<std::int64_t>(1, kStreamPiece / width) * width;
    std::string carried;
    std::int64_t p = first;
    for (std::int64_t at = 0; at < count;) {
        if (!read(first - 1 + at, std::min(stretch, count - at)))
            return out;
        at += static_cast<std::int64_t>(piece.size());
        const bool end = at >= count || piece.empty();
        if (piece.empty())
            count = at;
        text.clear();
        if (nFormat == kFormatMeta) {
            carried += piece;
            const std::size_t taken = formatmetarows(carried, p, nMode, end, text);
            carried.erase(0, taken);
            p += static_cast<std::int64_t>(taken);
        } else {
            text = formatpage(piece, p, nWidth, nMode, nFormat);
            p += static_cast<std::int64_t>(piece.size());
        }
        out.lViewLen = at;
        if (!put(text))
            return out;
    }
    return out;
}

bool readblock(int fd, std::int64_t offset, std::int64_t count, std::string& into)
{
    const std::size_t start = into.size();
    into.resize(start + static_cast<std::size_t>(count));
    std::int64_t got = 0;
    while (got < count) {
        const ssize_t n = ::pread(fd, into.data() + start + got, static_cast<std::size_t>(count - got), offset + got);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            into.resize(start + static_cast<std::size_t>(got));
            return n == 0;
        }
        got += n;
    }
    return true;
}

Page readpage(const std::filesystem::path& sFile, std::int64_t lPos, std::int64_t nBlock, int nWidth, int nMode,
              int nFormat)
{
    Page page;
    page.nBlock = nBlock == 0 ? kDefaultBlock : nBlock;
    page.lPos = lPos;
    OpenedFile file;
    page.error = openbinary(sFile, file);
    if (page.error)
        return page;
    page.opened = true;
    page.stamp = filestamp(file.st);
    page.lFileLen = file.size();

    const auto [first, count] = pagespan(nMode, lPos, page.nBlock, page.lFileLen);
    page.lPos = first;
    if (nMode == kModeFullText && count > kFullTextLimit) {
        page.error = Error{EFBIG, fulltexttoolarge(count), sFile};
        page.lViewLen = count;
        return page;
    }
    if (count > kPageLimit) {
        page.error = Error{EFBIG, pagetoolarge(count), sFile};
        return page;
    }
    std::string block;
    if (count > 0)
        block.reserve(static_cast<std::size_t>(count) + 1);
    bool read = count <= 0 || readblock(file.fd.get(), page.lPos - 1, count, block);
    if (read && nMode == kModePureText && !block.empty() && block.back() == '\r')
        read = readblock(file.fd.get(), page.lPos - 1 + static_cast<std::int64_t>(block.size()), 1, block);
    if (!read)
        page.error = errorfromerrno(errno, sFile);
    page.lViewLen = static_cast<std::int64_t>(block.size());
    // A text page is its block: a whole file in Full Text is not copied again.
    if (nMode >= kModePureText && block.find('\0') == std::string::npos)
        page.sText = std::move(block);
    else
        page.sText = formatpage(block, page.lPos, nWidth, nMode, nFormat);
    return page;
}

std::string positioncolumn(std::int64_t p, int nFormat)
{
    char column[40];
    if (nFormat == kFormatDecimal) {
        std::snprintf(column, sizeof column, "%06" PRId64, p);
        return column;
    }
    std::snprintf(column, sizeof column, "%06" PRIX64, static_cast<std::uint64_t>(p) & 0xFFFFFFu);
    if (nFormat != kFormatSector)
        return column;
    char sector[24];
    std::snprintf(sector, sizeof sector, ".%" PRIX64, static_cast<std::uint64_t>(p / 512));
    return std::string(column) + sector;
}

std::string formatpage(std::string_view sBlock, std::int64_t lPos, int nWidth, int nMode, int nFormat)
{
    if (nMode >= kModePureText)
        return sBlock.find('\0') == std::string_view::npos ? std::string(sBlock) : std::string();
    if (nFormat == kFormatMeta)
        return formatmetapage(sBlock, lPos, nMode);
    const std::size_t width = nWidth < 1 ? 1 : static_cast<std::size_t>(nWidth);
    std::string text;
    text.reserve(sBlock.size() * 5 + (sBlock.size() / width + 1) * 12);
    std::int64_t p = lPos;
    for (std::size_t at = 0; at < sBlock.size(); at += width) {
        text += positioncolumn(p, nFormat);
        text += ": ";
        text += encodebytes(sBlock.substr(at, width), static_cast<int>(width), nMode == kModeBinaryText);
        p += static_cast<std::int64_t>(width);
    }
    return text;
}

std::int64_t pageblock(std::int64_t heightTwips, int nWidth, int nMode)
{
    if (nMode >= kModePureText)
        return heightTwips / 2;
    const std::int64_t q = heightTwips / 10 / 4;
    const std::int64_t width = nWidth < 1 ? 1 : nWidth;
    return (q - q % width) * 4;
}

std::string pagerange(std::int64_t lPos, std::int64_t lViewLen)
{
    const std::int64_t last = lPos + lViewLen - 1;
    char range[120];
    std::snprintf(range, sizeof range, "0x%08" PRIX64 "-0x%08" PRIX64 " (%" PRId64 "-%" PRId64 ")",
                  static_cast<std::uint64_t>(lPos), static_cast<std::uint64_t>(last), lPos, last);
    return range;
}

}  // namespace brindlex
