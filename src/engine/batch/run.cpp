#include "engine/batch/run.h"

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <tuple>

#include <fcntl.h>
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
    const FileHandle fd(openlong(sFile, O_PATH | O_CLOEXEC));
    struct stat st {};
    if (!fd.valid() || ::fstat(fd.get(), &st) != 0)
        return std::nullopt;
    return static_cast<std::int64_t>(st.st_size);
}

// One line of the list in hand: the file as found and as opened.
struct FileInHand {
    std::size_t index = 0;
    std::string sName {};   // the real name, relative to the base directory
    std::string sFile {};
    OpenedFile file {};
};

// The files a replace has rewritten, as their names now hold them (device,
// inode, size and modification time), with the path that rewrote each:
// whichever of its names a later line takes, it is the same file. The
// inode a file had before its swap is free and may be any new file's.
class Rewritten {
public:
    void add(const struct stat& st, const std::string& sFile) { files_.emplace(key(st), sFile); }
    const std::string* find(const struct stat& st) const
    {
        const auto it = files_.find(key(st));
        return it == files_.end() ? nullptr : &it->second;
    }

private:
    using Key = std::tuple<dev_t, ino_t, off_t, time_t, long>;
    static Key key(const struct stat& st) { return {st.st_dev, st.st_ino, st.st_size, st.st_mtim.tv_sec, st.st_mtim.tv_nsec}; }
    std::map<Key, std::string> files_;
};

// Puts a scanned file's new content in place. It must be exactly as long
// as the old one plus what the hits added or took away; a file that changed
// its length since it was read fails that check, any other failure to make
// the new content says why.
void rewrite(const FileInHand& f, ReplaceSink& sink, OutputBuffer& nOut, std::int64_t lLenChange,
             const RunRequest& request, Host& host, RunResult& result, Rewritten& rewritten)
{
    const bool written = nOut.flush() && sink.begun();
    const std::optional<std::int64_t> lOld = lengthof(f.sFile);
    if (!written && sink.failure() && lOld == f.file.size()) {
        host.message(copyfailuremessage(sink.failure(), request.sScratch.string(), f.sFile));
        result.failures = true;
        return;
    }
    const std::int64_t lNew = written ? sink.replace()->writtenlength() : -1;
    if (!written || !lOld || lNew - *lOld - lLenChange != 0) {
        host.message("Cannot replace! ERROR in file lengths for " + f.sFile);
        result.failures = true;
        return;
    }
    const Error copied = sink.replace()->commit();
    // In place, the file is as long as its new content; after a failure
    // it is looked at again.
    host.lineupdated(f.index, list1line(f.sName, copied ? lengthof(f.sFile).value_or(0) : lNew, true));
    if (copied) {
        host.message(copyfailuremessage(copied, request.sScratch.string(), f.sFile));
        result.failures = true;
        return;
    }
    ++result.filesRewritten;
    rewritten.add(sink.replace()->result(), f.sFile);
}

// The find and replace texts decoded; a find text that holds a code is
// compared exactly, a plain one follows bMatchCase (upper-cased without it).
struct Patterns {
    std::string sFind, sReplace;
    bool bMatchCase;
};

Patterns preparepatterns(const RunRequest& request)
{
    Patterns p {decodepattern(request.sFind, request.bConvertHex),
                decodepattern(request.sReplaceText, request.bConvertHex), request.bMatchCase};
    if (p.sFind != request.sFind)
        p.bMatchCase = true;
    if (!p.bMatchCase)
        uppercase(p.sFind);
    return p;
}

}  // namespace

namespace {

// What every file of a run shares.
struct RunState {
    const RunRequest& request;
    Host& host;
    const Patterns& p;
    const PatternSearch& search;
    RunLog& log;
    RunResult& result;
    Rewritten rewritten {};
};

// Opens, scans and (in a replace) rewrites the file of line i. False when
// the user cancelled during its scan: it stays as it was.
bool runfile(RunState& r, std::size_t i)
{
    const RunRequest& request = r.request;
    Host& host = r.host;
    FileInHand f {.index = i, .sName = i < request.names.size() && !request.names[i].empty()
                                           ? request.names[i] : firstfield(request.lines[i])};
    f.sFile = request.baseDir + f.sName;
    host.status(f.sFile);
    ++r.result.filesScanned;
    if (Error error = openbinary(f.sFile, f.file)) {
        host.message(openerrormessage(f.sFile, error));
        r.result.failures = true;
        return true;
    }
    const bool bReplace = request.bReplace;
    if (const std::string* first = bReplace ? r.rewritten.find(f.file.st) : nullptr) {
        host.note(f.sFile + ": the same file as " + *first + ", rewritten once");
        return true;
    }

    std::optional<ReplaceSink> sink;
    std::optional<OutputBuffer> nOut;
    if (bReplace) {
        sink.emplace(f.sFile, request.sScratch, f.file);
        nOut.emplace(&*sink);
    }
    OutputBuffer* out = nOut ? &*nOut : nullptr;
    Scanner scanner(f.file.fd.get(), f.file.size(), r.search, out, host);
    ScanFile scan {.scanner = scanner, .sFile = f.sFile, .sFind = r.p.sFind, .sReplace = r.p.sReplace,
                   .bAsk = request.bAsk, .nLogMode = request.nLogMode, .log = &r.log, .nOut = out, .host = host};
    const std::int64_t nHits = scanloop(scan, f.sName);
    r.result.hits += nHits;
    r.result.filesWithHits += nHits > 0;
    r.result.failures = r.result.failures || scanner.readfailed();
    if (host.bCancel)
        return false;
    if (bReplace && nHits > 0)
        rewrite(f, *sink, *nOut, scan.lLenChange, request, host, r.result, r.rewritten);
    return true;
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

    const Patterns p = preparepatterns(request);
    RunLog log(request.sLogFile);
    if (request.nLogMode & 1)
        log.writelog("find   ", "", -1, p.sFind);
    if (request.bReplace && (request.nLogMode & 2))
        log.writelog("replace with  ", "", -1, p.sReplace);

    const PatternSearch search(p.sFind, p.bMatchCase);
    RunState state {.request = request, .host = host, .p = p, .search = search, .log = log, .result = result};
    const bool bAll = std::find(request.selected.begin(), request.selected.end(), true) == request.selected.end();
    for (std::size_t i = 0; i < request.lines.size(); ++i) {
        const bool selected = i < request.selected.size() && request.selected[i];
        if (!selected && !bAll)
            continue;
        if (!runfile(state, i)) {
            result.listed = std::min(result.hits, kListLimit);
            result.cancelled = true;
            host.enablecontrols(true);
            return result;
        }
    }

    result.listed = std::min(result.hits, kListLimit);
    const std::string caption = std::to_string(result.listed);
    host.status(caption == "1000" ? "more than 1000" : caption);
    host.enablecontrols(true);
    return result;
}

}  // namespace brindlex
