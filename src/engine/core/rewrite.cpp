#include "engine/core/rewrite.h"

#include <algorithm>
#include <cerrno>

#include "engine/core/filestamp.h"
#include "engine/core/saferewrite.h"

namespace brindlex {
namespace {

// The file's length now, or -1 with the reason in `error`.
std::int64_t lengthof(const SafeReplace& replace, const std::string& sFile, Error& error)
{
    const std::int64_t length = replace.lengthnow();
    if (length < 0)
        error = errorfromerrno(errno, sFile);
    return length;
}

// Why the lengths differ: a failed write says so itself; with every write
// done, the file changed under the scan.
Error lengthreason(const SafeReplace& replace, const std::string& sFile)
{
    if (replace.writeerror())
        return replace.writeerror();
    return filechanged(sFile);
}

}  // namespace

Rewrite commitrewrite(SafeReplace* replace, const Error& begun, const std::string& sFile, std::int64_t lLenChange)
{
    Rewrite rewrite;
    if (!replace) {
        rewrite.failure = RewriteFailure::Length;
        rewrite.reason = begun;
        return rewrite;
    }
    const std::int64_t lOld = lengthof(*replace, sFile, rewrite.reason);
    const std::int64_t lNew = replace->writtenlength();
    if (lOld < 0 || replace->writeerror() || lNew - lOld - lLenChange != 0) {
        if (lOld >= 0)
            rewrite.reason = lengthreason(*replace, sFile);
        rewrite.failure = RewriteFailure::Length;
        replace->abort();
        return rewrite;
    }
    rewrite.reason = replace->commit();
    rewrite.copiedfrom = replace->copiedfrom();   // named, if at all, during the commit
    rewrite.lLength = lNew;
    rewrite.notice = replace->notice();
    if (rewrite.reason) {
        // The file is looked at again: a failed copy may have changed it.
        Error ignored;
        rewrite.failure = RewriteFailure::Copy;
        rewrite.lLength = std::max<std::int64_t>(lengthof(*replace, sFile, ignored), 0);
    }
    return rewrite;
}

std::string rewritemessage(const Rewrite& rewrite, const std::string& sFile)
{
    switch (rewrite.failure) {
    case RewriteFailure::Length: return "Cannot replace! ERROR in file lengths for " + sFile;
    case RewriteFailure::Copy:
        return rewrite.reason.text + " copying " + rewrite.copiedfrom.string() + " to " + sFile;
    case RewriteFailure::None: break;
    }
    return {};
}

}  // namespace brindlex
