#include "engine/viewer/save.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include "engine/core/openbinary.h"
#include "engine/core/saferewrite.h"
#include "engine/pattern/notation.h"

namespace brindlex {
namespace {

// Memory of a copy, whatever the file's length.
constexpr std::size_t kCopyBuffer = 256 * 1024;

Error changedondisk(const std::filesystem::path& sFile)
{
    return Error{ESTALE, "File changed by another program since its page was read; nothing was saved", sFile};
}

Error notwholepage(const std::string_view shown, std::int64_t lViewLen, int nFormat)
{
    const std::string counts = std::to_string(shown.size()) + " of the " + std::to_string(lViewLen) + " bytes";
    if (nFormat == kFormatMeta)
        return Error{EINVAL, "Cannot save a page shown as metafile records: it shows " + counts +
                                 " it was read from, the bytes between the records are left out. "
                                 "Toggle Meta off, then edit and save the page.",
                     {}};
    return Error{EINVAL, "Cannot save this page: it shows " + counts +
                             " it was read from (a text page with a NUL byte, or a file too large for Full "
                             "Text, is not shown). Use a byte mode to edit it.",
                 {}};
}

bool samefile(const std::filesystem::path& sFile, const FileStamp& stamp)
{
    struct stat st {};
    return ::stat(sFile.c_str(), &st) == 0 && filestamp(st) == stamp;
}

}  // namespace

std::string pagebytes(std::string_view pageText, int nMode)
{
    return nMode >= kModePureText ? std::string(pageText) : decodepage(std::string(pageText));
}

PageEdit pageedit(std::string_view pageText, int nMode, int nFormat, std::string_view sViewText, std::int64_t lViewLen)
{
    PageEdit edit;
    edit.bytes = pagebytes(pageText, nMode);
    edit.changed = !edit.bytes.empty() && edit.bytes != sViewText;
    if (edit.changed && static_cast<std::int64_t>(sViewText.size()) != lViewLen)
        edit.refused = notwholepage(sViewText, lViewLen, nFormat);
    return edit;
}

Error copybytes(int nFrom, std::int64_t& position, std::int64_t lCount, SafeReplace& to)
{
    std::string buffer;
    buffer.reserve(kCopyBuffer);
    while (lCount > 0) {
        buffer.clear();
        if (!readblock(nFrom, position, std::min<std::int64_t>(lCount, kCopyBuffer), buffer))
            return errorfromerrno(errno);
        if (buffer.empty())
            break;
        if (!to.write(buffer))
            return Error{EIO, "Write failed", {}};
        position += static_cast<std::int64_t>(buffer.size());
        lCount -= static_cast<std::int64_t>(buffer.size());
    }
    return {};
}

SpliceResult splicepage(const SpliceRequest& request)
{
    SpliceResult result;
    OpenedFile file;
    result.error = openbinary(request.sViewFile, file);
    if (result.error)
        return result;
    result.opened = true;
    if (request.lViewPos < 1 || request.lViewLen < 0 || request.lViewPos - 1 > file.size() - request.lViewLen) {
        result.error = Error{EINVAL, "The page lies outside the file; nothing was saved", request.sViewFile};
        return result;
    }
    if (filestamp(file.st) != request.stamp) {
        result.error = changedondisk(request.sViewFile);
        return result;
    }
    std::unique_ptr<SafeReplace> replace = SafeReplace::begin(request.sViewFile, request.sScratch, result.error);
    if (!replace)
        return result;
    // The replacement looked at the file by name after the check above: a
    // file put in its place meanwhile must not be overwritten either.
    if (!samefile(request.sViewFile, request.stamp)) {
        result.error = changedondisk(request.sViewFile);
        return result;
    }
    const std::int64_t lOld = file.size();
    std::int64_t position = 0;
    result.error = copybytes(file.fd.get(), position, request.lViewPos - 1, *replace);
    if (!result.error && !replace->write(request.bytes))
        result.error = Error{EIO, "Write failed", request.sViewFile};
    position = request.lViewPos - 1 + request.lViewLen;
    if (!result.error)
        result.error = copybytes(file.fd.get(), position, lOld, *replace);
    file.fd.close();
    const std::int64_t lLenChange = static_cast<std::int64_t>(request.bytes.size()) - request.lViewLen;
    const std::int64_t lNew = replace->writtenlength();
    if (!result.error && lNew - lOld - lLenChange != 0)
        result.error = Error{EIO, "Cannot replace! ERROR in file lengths for " + request.sViewFile.string(),
                             request.sViewFile};
    if (!result.error)
        result.error = replace->commit();
    if (result.error)
        return result;
    result.lNewLength = lNew;
    struct stat st {};
    if (::stat(request.sViewFile.c_str(), &st) == 0)
        result.stamp = filestamp(st);
    return result;
}

}  // namespace brindlex
