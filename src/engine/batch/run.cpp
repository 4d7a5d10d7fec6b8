#include "engine/batch/run.h"

#include <memory>
#include <optional>

#include <sys/stat.h>

#include "engine/batch/readahead.h"
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
    ReplaceSink(const std::string& target, const std::filesystem::path& scratch) : target_(target), scratch_(scratch)
    {
    }

    bool write(std::string_view bytes) override { return begun() && replace_->write(bytes); }

    bool begun()
    {
        if (!tried_) {
            tried_ = true;
            Error error;
            replace_ = SafeReplace::begin(target_, scratch_, error);
        }
        return replace_ != nullptr;
    }

    SafeReplace* replace() { return replace_.get(); }

private:
    const std::string& target_;
    const std::filesystem::path& scratch_;
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

// The lines a run takes: the selected ones, or all when none is selected.
std::vector<std::size_t> linestaken(const RunRequest& request)
{
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < request.lines.size(); ++i) {
        if (i < request.selected.size() && request.selected[i])
            order.push_back(i);
    }
    if (order.empty()) {
        for (std::size_t i = 0; i < request.lines.size(); ++i)
            order.push_back(i);
    }
    return order;
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
    const std::vector<std::size_t> order = linestaken(request);
    std::optional<ReadAhead> ahead;
    if (request.bReadAhead &&
        ReadAhead::fits(sFind.size(), bReplace && bAsk, request.nLogMode != 0, order.size())) {
        std::vector<std::string> files;
        files.reserve(order.size());
        for (std::size_t i : order)
            files.push_back(request.baseDir + firstfield(request.lines[i]));
        ahead.emplace(std::move(files), search, bReplace);
    }

    for (std::size_t taken = 0; taken < order.size(); ++taken) {
        const std::size_t i = order[taken];
        const std::string sName = firstfield(request.lines[i]);
        const std::string sFile = request.baseDir + sName;
        host.status(sFile);
        ++result.filesScanned;
        auto cancelled = [&](std::int64_t nHits) {
            result.hits += nHits;
            result.filesWithHits += nHits > 0;
            if (!host.bCancel)
                return false;
            result.listed = std::min(result.hits, kListLimit);
            result.cancelled = true;
            host.enablecontrols(true);
            return true;
        };
        if (ahead) {
            const ReadAhead::Outcome outcome = ahead->take(taken);
            if (outcome.done) {
                if (cancelled(tellhits(host, sName, outcome.lPos)))
                    return result;
                continue;
            }
        }

        OpenedFile file;
        if (Error error = openbinary(sFile, file)) {
            host.message(openerrormessage(sFile, error));
            result.failures = true;
            continue;
        }

        std::optional<ReplaceSink> sink;
        std::optional<OutputBuffer> nOut;
        if (bReplace) {
            sink.emplace(sFile, request.sScratch);
            nOut.emplace(&*sink);
        }
        OutputBuffer* out = nOut ? &*nOut : nullptr;
        Scanner scanner(file.fd.get(), file.size(), search, out, host);
        ScanFile scan {.scanner = scanner, .sFile = sFile, .sFind = sFind, .sReplace = sReplace, .bAsk = bAsk,
                       .nLogMode = request.nLogMode, .log = &log, .nOut = out, .host = host};
        const std::int64_t nHits = scanloop(scan, sName);
        file.fd.close();

        if (scanner.readfailed())
            result.failures = true;
        if (cancelled(nHits))
            return result;
        if (!bReplace || nHits == 0)
            continue;

        // The rewrite: the new content must be exactly as long as the old
        // one plus what the hits added or took away.
        const bool written = nOut->flush() && sink->begun();
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
