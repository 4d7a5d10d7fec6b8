#include "engine/batch/run.h"

#include <memory>
#include <optional>

#include <sys/stat.h>

#include "engine/batch/runlog.h"
#include "engine/batch/scanner.h"
#include "engine/core/openbinary.h"
#include "engine/core/saferewrite.h"
#include "engine/files/files.h"
#include "engine/pattern/notation.h"

namespace brindlex {
namespace {

// The new content of one file. The safe replacement begins only when the
// first byte is written, so a file without hits leaves no trace; if it can't
// begin, every write fails and the length check refuses the file.
class ReplaceSink : public ByteSink {
public:
    // Most files of a tree have no hit: the paths are made only when the
    // first byte comes.
    ReplaceSink(const std::string& target, const std::filesystem::path& scratch, const OpenedFile& original)
        : target_(target), scratch_(scratch), original_(original)
    {
    }

    bool write(std::string_view bytes) override { return begun() && replace_->write(bytes); }

    bool begun()
    {
        if (!tried_) {
            tried_ = true;
            replace_ = SafeReplace::begin(target_, scratch_, error_, SafeReplace::Missing::Refuse, &original_);
        }
        return replace_ != nullptr;
    }

    SafeReplace* replace() { return replace_.get(); }

    // Why the new content could not be made: begin's error or a write's.
    Error failure() const { return replace_ ? replace_->writeerror() : error_; }

private:
    const std::string& target_;
    const std::filesystem::path& scratch_;
    const OpenedFile& original_;
    Error error_;
    std::unique_ptr<SafeReplace> replace_;
    bool tried_ = false;
};

std::optional<std::int64_t> lengthof(const std::string& sFile)
{
    struct stat st {};
    if (::stat(sFile.c_str(), &st) != 0)
        return std::nullopt;
    return static_cast<std::int64_t>(st.st_size);
}

}  // namespace

RunResult findinfiles(const RunRequest& request, Host& host)
{
    RunResult result;
    host.clearhits();
    host.status("none found");
    if (request.sFind.empty())
        return result;
    result.ran = true;
    host.enablecontrols(false);

    bool bMatchCase = request.bMatchCase;
    std::string sFind = decodepattern(request.sFind, request.bConvertHex);
    if (sFind != request.sFind)
        bMatchCase = true;
    if (!bMatchCase)
        uppercase(sFind);
    const std::string sReplace = decodepattern(request.sReplaceText, request.bConvertHex);
    const bool bReplace = request.bReplace;

    RunLog log(request.sLogFile);
    if (request.nLogMode & 1)
        log.writelog("find   ", "", -1, sFind);
    if (bReplace && (request.nLogMode & 2))
        log.writelog("replace with  ", "", -1, sReplace);

    const PatternSearch search(sFind, bMatchCase);
    const bool bAsk = request.bAsk;
    bool bAll = true;
    for (std::size_t i = 0; i < request.lines.size(); ++i) {
        if (i < request.selected.size() && request.selected[i])
            bAll = false;
    }

    for (std::size_t i = 0; i < request.lines.size(); ++i) {
        const bool selected = i < request.selected.size() && request.selected[i];
        if (!selected && !bAll)
            continue;
        const std::string sName = firstfield(request.lines[i]);
        const std::string sFile = request.baseDir + sName;
        host.status(sFile);
        ++result.filesScanned;

        OpenedFile file;
        if (Error error = openbinary(sFile, file)) {
            host.message(openerrormessage(sFile, error));
            result.failures = true;
            continue;
        }

        std::optional<ReplaceSink> sink;
        std::optional<OutputBuffer> nOut;
        if (bReplace) {
            sink.emplace(sFile, request.sScratch, file);
            nOut.emplace(&*sink);
        }
        OutputBuffer* out = nOut ? &*nOut : nullptr;
        Scanner scanner(file.fd.get(), file.size(), search, out, host);
        ScanFile scan {.scanner = scanner, .sFile = sFile, .sFind = sFind, .sReplace = sReplace, .bAsk = bAsk,
                       .nLogMode = request.nLogMode, .log = &log, .nOut = out, .host = host};
        const std::int64_t nHits = scanloop(scan, sName);

        result.hits += nHits;
        result.filesWithHits += nHits > 0;
        if (scanner.readfailed())
            result.failures = true;
        if (host.bCancel) {
            result.listed = std::min(result.hits, kListLimit);
            result.cancelled = true;
            host.enablecontrols(true);
            return result;
        }
        if (!bReplace || nHits == 0)
            continue;

        // The rewrite: the new content must be exactly as long as the old
        // one plus what the hits added or took away.
        const bool written = nOut->flush() && sink->begun();
        // A file that changed its length since it was read fails the length
        // check; any other failure to make the new content says why.
        if (!written && sink->failure() && lengthof(sFile) == file.size()) {
            host.message(copyfailuremessage(sink->failure(), request.sScratch.string(), sFile));
            result.failures = true;
            continue;
        }
        const std::optional<std::int64_t> lOld = lengthof(sFile);
        const std::int64_t lNew = written ? sink->replace()->writtenlength() : -1;
        if (!written || !lOld || lNew - *lOld - scan.lLenChange != 0) {
            host.message("Cannot replace! ERROR in file lengths for " + sFile);
            result.failures = true;
            continue;
        }
        const Error copied = sink->replace()->commit();
        // In place, the file is as long as its new content; after a failure
        // it is looked at again.
        host.lineupdated(i, list1line(sName, copied ? lengthof(sFile).value_or(0) : lNew, true));
        if (copied) {
            host.message(copyfailuremessage(copied, request.sScratch.string(), sFile));
            result.failures = true;
        } else {
            ++result.filesRewritten;
        }
    }

    result.listed = std::min(result.hits, kListLimit);
    const std::string caption = std::to_string(result.listed);
    host.status(caption == "1000" ? "more than 1000" : caption);
    host.enablecontrols(true);
    return result;
}

}  // namespace brindlex
