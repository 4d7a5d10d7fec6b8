#include "engine/viewer/save.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <unistd.h>

#include "engine/core/alignedbuffer.h"
#include "engine/core/filestamp.h"
#include "engine/core/holes.h"
#include "engine/core/inplace.h"
#include "engine/core/openbinary.h"
#include "engine/core/rewrite.h"
#include "engine/core/saferewrite.h"
#include "engine/core/workdir.h"
#include "engine/pattern/notation.h"

namespace brindlex {
namespace {

// Memory of a copy, whatever the file's length.
constexpr std::size_t kCopyBuffer = 256 * 1024;

constexpr std::string_view kChanged = "since its page was read; nothing was saved";

Error changedondisk(const std::filesystem::path& sFile)
{
    return filechanged(sFile, kChanged);
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
    AlignedBuffer<char> buffer(kCopyBuffer);
    const bool holes = hasholes(nFrom);
    while (lCount > 0) {
        const auto want = static_cast<std::size_t>(std::min<std::int64_t>(lCount, kCopyBuffer));
        const ssize_t got = preadholes(nFrom, holes, buffer.data(), want, position);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0)
            return errorfromerrno(errno);
        if (got == 0)
            break;
        if (!to.write(std::string_view(buffer.data(), static_cast<std::size_t>(got))))
            return to.writeerror();
        position += got;
        lCount -= got;
    }
    return {};
}

namespace {

// Streams before, page and after into `replace`; a failed read stops it
// with its error, a failed write is left to the commit's check.
Error splice(const SpliceRequest& request, int nFrom, std::int64_t lOld, SafeReplace& replace)
{
    std::int64_t position = 0;
    Error error = copybytes(nFrom, position, request.lViewPos - 1, replace);
    if (!error && !replace.write(request.bytes))
        error = replace.writeerror();
    position = request.lViewPos - 1 + request.lViewLen;
    if (!error)
        error = copybytes(nFrom, position, lOld, replace);
    return replace.writeerror() ? Error{} : error;
}

// A page that keeps its length in a big file: only the bytes that differ
// are written, in place (InPlaceEdit).
SpliceResult savepageinplace(const SpliceRequest& request, const OpenedFile& file)
{
    SpliceResult result;
    result.opened = true;
    Error begun;
    std::unique_ptr<InPlaceEdit> edit =
        InPlaceEdit::begin(request.sViewFile, file, request.sScratch.parent_path(), begun);
    if (!edit) {
        result.error = begun;
        return result;
    }
    std::string old;
    for (std::int64_t done = 0; done < request.lViewLen;) {
        old.clear();
        const std::int64_t want = std::min<std::int64_t>(request.lViewLen - done, kCopyBuffer);
        if (!readblock(file.fd.get(), request.lViewPos - 1 + done, want, old)
            || static_cast<std::int64_t>(old.size()) != want) {
            result.error = errorfromerrno(old.size() != static_cast<std::size_t>(want) ? EIO : errno, request.sViewFile);
            return result;
        }
        edit->add(request.lViewPos - 1 + done, old,
                  request.bytes.substr(static_cast<std::size_t>(done), static_cast<std::size_t>(want)));
        done += want;
    }
    result.error = edit->commit();
    if (result.error.code == ESTALE)
        result.error = changedondisk(request.sViewFile);
    if (result.error)
        return result;
    result.stamp = filestamp(edit->result());
    return result;
}

}  // namespace

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
    if (static_cast<std::int64_t>(request.bytes.size()) == request.lViewLen && !request.sScratch.empty()
        && file.size() >= inplacethreshold())
        return savepageinplace(request, file);
    Error begun;
    std::unique_ptr<SafeReplace> replace = SafeReplace::begin(request.sViewFile, request.sScratch, begun);
    if (replace) {
        // The replacement looked at the file by name after the check above: a
        // file put in its place meanwhile must not be overwritten either.
        result.error = checkstamp(request.sViewFile, request.stamp, kChanged);
        if (!result.error)
            result.error = splice(request, file.fd.get(), file.size(), *replace);
        if (result.error)
            return result;
    }
    file.fd.close();
    const std::string sFile = request.sViewFile.string();
    const Rewrite rewrite = commitrewrite(replace.get(), begun, sFile,
                                          static_cast<std::int64_t>(request.bytes.size()) - request.lViewLen);
    if (rewrite.failure == RewriteFailure::Copy)
        result.error = Error{rewrite.reason.code, rewritemessage(rewrite, sFile), request.sViewFile};
    else if (rewrite.failure == RewriteFailure::Length)
        result.error = rewrite.reason ? rewrite.reason : Error{EIO, rewritemessage(rewrite, sFile), request.sViewFile};
    if (result.error)
        return result;
    result.notice = rewrite.notice;
    struct stat st {};
    if (statlong(request.sViewFile, st) == 0)
        result.stamp = filestamp(st);
    return result;
}

SavedPage saveeditedpage(const PageSave& save)
{
    SavedPage saved;
    const PageEdit edit = pageedit(save.pageText, save.nMode, save.nFormat, save.sViewText, save.lViewLen);
    saved.changed = edit.changed;
    saved.error = edit.refused;
    if (!saved.changed || saved.error)
        return saved;
    std::filesystem::path scratch = save.sScratch;
    if (scratch.empty()) {
        if (!preparedworkdir()) {
            saved.error = Error{EACCES, "the work directory " + workdirpath().string() + " can't be used", {}};
            return saved;
        }
        scratch = scratchfilepath();
    }
    const SpliceResult spliced =
        splicepage({save.sViewFile, save.lViewPos, save.lViewLen, edit.bytes, save.stamp, scratch});
    saved.opened = spliced.opened;
    saved.error = spliced.error;
    if (saved.error)
        return saved;
    saved.bytes = edit.bytes;
    saved.stamp = spliced.stamp;
    saved.notice = spliced.notice;
    return saved;
}

}  // namespace brindlex
