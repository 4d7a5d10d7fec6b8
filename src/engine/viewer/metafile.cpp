#include "engine/viewer/metafile.h"

#include <cinttypes>
#include <cstdio>

#include "engine/pattern/notation.h"
#include "engine/viewer/page.h"

namespace brindlex {
namespace {

// The known records: the number key and the name at the same offset.
constexpr std::string_view kNumbers =
    "&H521     &H213     &H214     &H1F0     &H12D     &H104     &H201     &H102     "
    "&H209     &H20A     &H626     &H0F7     &H0F8     &H2FA     &H2FB     &H2FC     ";
constexpr std::string_view kNames =
    "TEXTOUT   LINETO    MOVETO    DELETEOBJ SELECTOBJ SETROP2   SETBKCOLR SETBKMODE "
    "SETTXTCLR SETTXTJUS ESCAPE    CREATEPAL CREATBRSH CREATPENI CREATFNTI CREATEBRI ";
constexpr std::size_t kEntry = 10;
constexpr std::size_t kLineTo = 10;   // 0-based offsets of the two records with parameters
constexpr std::size_t kMoveTo = 20;

std::size_t tableoffset(std::uint16_t function)
{
    char key[8];
    std::snprintf(key, sizeof key, "&H%03X", static_cast<unsigned>(function & 0xFFFu));
    for (std::size_t at = 0; at < kNumbers.size(); at += kEntry) {
        if (kNumbers.substr(at, 5) == key)
            return at;
    }
    return std::string_view::npos;
}

std::string parameterfield(std::string_view bytes)
{
    const int value = bytestoint(bytes);
    char field[16];
    std::snprintf(field, sizeof field, value < 0 ? "-%06d    " : "%06d    ", value < 0 ? -value : value);
    return field;
}

std::string_view from(std::string_view row, std::size_t at)
{
    return at < row.size() ? row.substr(at) : std::string_view();
}

// The record part of a record row that starts at `record` with `n` words;
// returns the bytes of the row it took.
std::size_t recordrow(std::string_view row, std::size_t record, unsigned n, std::string& text)
{
    const std::size_t offset = tableoffset(static_cast<std::uint16_t>(bytestoint(from(row, record + 4))));
    char size[16];
    std::snprintf(size, sizeof size, " = %02u ", n);
    text += size;
    if (offset != std::string_view::npos) {
        text += kNames.substr(offset, kEntry);
        if (offset == kLineTo || offset == kMoveTo) {
            text += parameterfield(from(row, record + 6));
            text += parameterfield(from(row, record + 8));
        }
    }
    text += ": ";
    const std::string_view bytes = row.substr(record, std::size_t{n} * 2);
    text += encodebytes(bytes, kMetaRowBytes, false);
    return record + bytes.size();
}

}  // namespace

std::string formatmetapage(std::string_view sBlock, std::int64_t lPos, int nMode)
{
    std::string text;
    formatmetarows(sBlock, lPos, nMode, true, text);
    return text;
}

std::size_t formatmetarows(std::string_view sBlock, std::int64_t lPos, int nMode, bool bEnd, std::string& text)
{
    const std::size_t size = sBlock.size();
    std::int64_t p = lPos;
    while (sBlock.size() >= static_cast<std::size_t>(kMetaRowBytes) || (bEnd && !sBlock.empty())) {
        const std::string_view row = sBlock.substr(0, kMetaRowBytes);
        text += positioncolumn(p, kFormatMeta);
        const std::size_t nuls = row.find(std::string_view("\0\0\0", 3));
        const unsigned n = nuls == std::string_view::npos || nuls == 0 ? 0u : static_cast<unsigned char>(row[nuls - 1]);
        std::size_t taken = row.size();
        if (n > 2) {
            taken = recordrow(row, nuls - 1, n, text);
        } else {
            text += ": ";
            text += encodebytes(row, kMetaRowBytes, nMode == kModeBinaryText);
        }
        text += "\r\n";
        sBlock.remove_prefix(taken);
        p += static_cast<std::int64_t>(taken);
    }
    return size - sBlock.size();
}

}  // namespace brindlex
