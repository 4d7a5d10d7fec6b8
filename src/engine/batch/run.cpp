#include "engine/batch/run.h"

#include <map>
#include <memory>
#include <optional>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

#include "engine/batch/readahead.h"
#include "engine/batch/runlog.h"
#include "engine/batch/scanner.h"
#include "engine/core/filestamp.h"
#include "engine/core/inplace.h"
#include "engine/core/openbinary.h"
#include "engine/core/rewrite.h"
#include "engine/core/saferewrite.h"
#include "engine/core/state.h"
#include "engine/files/files.h"
#include "engine/files/openbelow.h"
#include "engine/pattern/notation.h"

namespace brindlex {
namespace {

// The new content of one file. The safe replacement begins only when the
// first byte is written, so a file without hits leaves no trace; if it can't
// begin, every write fails and the length check refuses the file with the
// reason kept here.
class ReplaceSink : public ByteSink {
public:
    // Most files of a tree have no hit: the paths are made only when the
    // first byte comes.
    ReplaceSink(const std::string& target, const std::filesystem::path& scratch, const OpenedFile& original)
        : target_(target), scratch_(scratch), original_(original)
    {
    }

    bool write(std::string_view bytes) override { return begun() && replace_->write(bytes); }
    bool positional() override { return begun() && replace_->positional(); }
    int writeat(std::string_view bytes, std::int64_t at) override { return replace_->writeat(bytes, at); }
    bool resume(std::int64_t end, int error) override { return replace_->resume(end, error); }

    bool begun()
    {
        if (!tried_) {
            tried_ = true;
            replace_ = SafeReplace::begin(target_, scratch_, beginError_, SafeReplace::Missing::Refuse, &original_);
        }
        return replace_ != nullptr;
    }

    SafeReplace* replace() { return replace_.get(); }
    const Error& beginerror() const { return beginError_; }

private:
    const std::string& target_;
    const std::filesystem::path& scratch_;
    const OpenedFile& original_;   // open until the commit
    std::unique_ptr<SafeReplace> replace_;
    Error beginError_;
    bool tried_ = false;
};

// The edits of a replace that keeps the file's length, written in place. As
// with ReplaceSink, the undo journal is made only at the first edit.
class InPlaceSink : public EditSink {
public:
    InPlaceSink(const std::string& target, const std::filesystem::path& workdir, const OpenedFile& original)
        : target_(target), workdir_(workdir), original_(original)
    {
    }

    void edit(std::int64_t lPos, std::string_view was, std::string_view becomes) override
    {
        if (!tried_) {
            tried_ = true;
            edit_ = InPlaceEdit::begin(target_, original_, workdir_, beginError_);
        }
        if (edit_)
            edit_->add(lPos - 1, was, becomes);
    }

    // Puts the edits in place, as commitrewrite does a new content: the
    // length check first (a file that grew or shrank since it was read is
    // left alone), then the commit.
    Rewrite commit(const std::string& sFile)
    {
        Rewrite rewrite;
        rewrite.copiedfrom = workdir_ / "brindlex.undo";
        struct stat now {};
        if (!edit_) {
            rewrite.failure = RewriteFailure::Length;
            rewrite.reason = beginError_;
            return rewrite;
        }
        if (unread_ || ::stat(target_.c_str(), &now) != 0 || now.st_size != original_.st.st_size) {
            rewrite.failure = RewriteFailure::Length;
            rewrite.reason = filechanged(sFile);
            return rewrite;
        }
        rewrite.reason = edit_->commit();
        rewrite.lLength = original_.size();
        if (rewrite.reason)
            rewrite.failure = RewriteFailure::Copy;
        return rewrite;
    }

    const struct stat& result() const { return edit_ ? edit_->result() : original_.st; }

    // The file could not be read to its end: its edits are refused as a new
    // content that came out short would be.
    void unread() { unread_ = true; }

private:
    const std::string& target_;
    std::filesystem::path workdir_;
    const OpenedFile& original_;
    std::unique_ptr<InPlaceEdit> edit_;
    Error beginError_;
    bool tried_ = false;
    bool unread_ = false;
};

// The new content of a dry run: the replace's steps without a file.
class DiscardSink : public ByteSink {
public:
    bool write(std::string_view /*bytes*/) override { return true; }
    bool positional() override { return true; }
    int writeat(std::string_view /*bytes*/, std::int64_t /*at*/) override { return 0; }
};

// The scratch output of a replace: the buffer in front of the sink.
struct FileOutput {
    FileOutput(const std::string& sFile, const std::filesystem::path& scratch, const OpenedFile& original)
        : sink(sFile, scratch, original), nOut(&sink)
    {
    }
    FileOutput(const FileOutput&) = delete;
    FileOutput& operator=(const FileOutput&) = delete;

    ReplaceSink sink;
    OutputBuffer nOut;
};

// The patterns as the whole run uses them.
struct Patterns {
    std::string sFind;       // decoded, upper-cased unless matched exactly
    std::string sReplace;    // decoded, as typed
    bool bMatchCase = false;
};

// One file in hand: what the scan found and what it wrote.
struct FileScan {
    std::size_t index = 0;   // its line in the list
    std::string sName;       // the real name, relative to the base directory
    std::string sFile;
    OpenedFile opened;       // open until the commit, which holds the name to it
    std::int64_t nHits = 0;
    std::int64_t lLenChange = 0;
    std::unique_ptr<FileOutput> output;   // a replace's new content
    std::unique_ptr<InPlaceSink> inplace; // or its edits in place
    bool stopped = false;    // the user stopped the run in this file
    bool lineChanged = false;
    std::int64_t lNewLength = 0;
    Failure failure;         // of its read, length check or commit
    std::string notice;      // what a rewrite could not keep
};

Patterns preparepatterns(const RunRequest& request)
{
    Patterns p;
    p.bMatchCase = request.bMatchCase;
    p.sFind = decodepattern(request.sFind, request.bConvertHex);
    // A pattern that held any code is compared exactly, whatever the box says.
    if (p.sFind != request.sFind)
        p.bMatchCase = true;
    if (!p.bMatchCase)
        uppercase(p.sFind);
    p.sReplace = decodepattern(request.sReplaceText, request.bConvertHex);
    return p;
}

void writeheadlines(RunLog& log, const RunRequest& request, const Patterns& p)
{
    if (request.nLogMode & kLogFinds)
        log.writelog(kLogFind, "", -1, p.sFind);
    if (request.bReplace && (request.nLogMode & kLogReplaces))
        log.writelog(kLogReplaceWith, "", -1, p.sReplace);
}

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

// The real name of line i, as the walk found it.
const std::string& realname(const RunRequest& request, std::size_t i)
{
    return request.files[i].name;
}

// The lines to run: the selected ones, or all when none is selected.
std::vector<std::size_t> filestorun(const RunRequest& request)
{
    std::vector<std::size_t> chosen;
    for (std::size_t i = 0; i < request.files.size(); ++i) {
        if (i < request.selected.size() && request.selected[i])
            chosen.push_back(i);
    }
    if (chosen.empty()) {
        for (std::size_t i = 0; i < request.files.size(); ++i)
            chosen.push_back(i);
    }
    return chosen;
}

// The opener of the names below the base directory: the walk's descriptor
// of it, or one opened now; none for names that are paths of their own.
std::optional<BelowOpener> belowbase(const RunRequest& request)
{
    if (request.baseDir.empty())
        return std::nullopt;
    if (request.baseDirFd && request.baseDirFd->valid())
        return std::optional<BelowOpener>(std::in_place, FileHandle(::fcntl(request.baseDirFd->get(), F_DUPFD_CLOEXEC, 0)));
    FileHandle base(openlong(request.baseDir, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
    const int code = base.valid() ? 0 : errno;
    return std::optional<BelowOpener>(std::in_place, std::move(base), code);
}

class BatchRun {
public:
    // Whether a replace writes its edits into `opened` where they stand:
    // every hit keeps its length and the file is big enough for a copy of
    // it to be the whole cost.
    bool inplace(const OpenedFile& opened) const
    {
        return patterns.sFind.size() == patterns.sReplace.size() && !request.sScratch.empty()
            && opened.size() >= inplacethreshold();
    }

    BatchRun(const RunRequest& request, RunSink& sink)
        : request(request), sink(sink), patterns(preparepatterns(request)), log(request.sLogFile),
          search(patterns.sFind, patterns.bMatchCase), below(belowbase(request))
    {
    }

    RunResult run();

private:
    void startreadahead(const std::vector<std::size_t>& order);
    bool takeahead(FileScan& file, std::size_t taken);
    bool scanfile(FileScan& file);
    void commitfile(FileScan& file);
    void tellfiledone(const FileScan& file);
    void tellloglost();
    void finish();

    const RunRequest& request;
    RunSink& sink;
    const Patterns patterns;
    RunLog log;
    const PatternSearch search;
    const std::optional<BelowOpener> below;
    RunResult result;
    Rewritten rewritten;
    bool logTold = false;
    std::optional<ReadAhead> ahead;   // declared behind search, stopped before it goes
};

RunResult BatchRun::run()
{
    writeheadlines(log, request, patterns);
    tellloglost();
    const std::vector<std::size_t> order = filestorun(request);
    startreadahead(order);
    for (std::size_t taken = 0; taken < order.size(); ++taken) {
        FileScan file;
        file.index = order[taken];
        file.sName = realname(request, file.index);
        file.sFile = request.baseDir + file.sName;
        const bool done = takeahead(file, taken);
        if (!done && !scanfile(file))
            continue;
        if (file.stopped) {
            // The file in hand keeps its bytes.
            if (file.failure)
                tellfiledone(file);
            result.cancelled = true;
            tellloglost();
            sink.runfinished(RunSummary{.hits = result.hits, .listed = std::min(result.hits, kListLimit),
                                        .capped = false, .cancelled = true});
            return result;
        }
        if ((file.output || file.inplace) && file.nHits > 0)
            commitfile(file);
        tellfiledone(file);
        if (!file.notice.empty())
            sink.note(Note{NoteKind::NotKept, file.sFile, file.notice});
        tellloglost();
    }
    finish();
    return result;
}

// Files may be opened and scanned ahead when the request allows it and no
// hit needs a question or a log line.
void BatchRun::startreadahead(const std::vector<std::size_t>& order)
{
    if (!request.bReadAhead ||
        !ReadAhead::fits(patterns.sFind.size(), request.bReplace && request.bAsk, request.nLogMode != 0, order.size()))
        return;
    std::vector<std::string> files;
    files.reserve(order.size());
    for (const std::size_t i : order)
        files.push_back(below ? realname(request, i) : request.baseDir + realname(request, i));
    ahead.emplace(std::move(files), search, request.bReplace, request.bWalkedNow, below ? &*below : nullptr);
}

// The file as a worker found it, told to the sink as the file loop tells
// it. False when it is left to scanfile. A replace's file whose name leads
// to one rewritten already was never hit: scanfile notes it.
bool BatchRun::takeahead(FileScan& file, std::size_t taken)
{
    if (!ahead)
        return false;
    const ReadAhead::Outcome outcome = ahead->take(taken);
    if (!outcome.done || (request.bReplace && rewritten.find(outcome.st)))
        return false;
    sink.filebegins(FileBegins{.index = file.index, .sName = file.sName, .sFile = file.sFile,
                               .lLength = static_cast<std::int64_t>(outcome.st.st_size), .error = {}});
    file.nHits = tellhits(sink, file.sName, outcome.lPos, file.stopped);
    result.hits += file.nHits;
    result.filesWithHits += file.nHits > 0;
    return true;
}

// Opens and scans one file; in a replace its new content is streamed into
// file.output. False when it can't be opened (reported) or a replace
// rewrote it already (noted).
bool BatchRun::scanfile(FileScan& file)
{
    OpenedFile& opened = file.opened;
    const Error error = below ? below->open(file.sName, file.sFile, opened, request.bWalkedNow)
                              : openbinary(file.sFile, opened, request.bWalkedNow);
    sink.filebegins(FileBegins{.index = file.index, .sName = file.sName, .sFile = file.sFile,
                               .lLength = error ? 0 : opened.size(), .error = error});
    if (error) {
        result.failures = true;
        return false;
    }
    // A file is rewritten once per run, whichever names lead to it.
    if (const std::string* first = request.bReplace ? rewritten.find(opened.st) : nullptr) {
        sink.note(Note{NoteKind::SameFile, file.sFile, *first});
        return false;
    }
    DiscardSink discard;
    std::optional<OutputBuffer> dry;
    if (request.bReplace && request.bDryRun)
        dry.emplace(&discard);
    else if (request.bReplace && inplace(opened))
        file.inplace = std::make_unique<InPlaceSink>(file.sFile, request.sScratch.parent_path(), opened);
    else if (request.bReplace)
        file.output = std::make_unique<FileOutput>(file.sFile, request.sScratch, opened);
    OutputBuffer* out = dry ? &*dry : file.output ? &file.output->nOut : nullptr;
    Scanner scanner(opened.fd.get(), opened.size(), search, out, sink);
    ScanFile scan {.scanner = scanner, .sFile = file.sFile, .sFind = patterns.sFind, .sReplace = patterns.sReplace,
                   .bAsk = request.bAsk, .nLogMode = request.nLogMode, .log = &log, .nOut = out,
                   .edits = file.inplace.get()};
    file.nHits = scanloop(scan, file.sName);
    file.lLenChange = scan.lLenChange;
    file.stopped = scanner.stopped();
    // A replace's commit refuses the short output and says why.
    if (scanner.readfailed() && file.inplace)
        file.inplace->unread();
    else if (scanner.readfailed() && !file.output)
        file.failure = Failure{FailureKind::Read, file.sFile,
                               scanner.readerrno() != 0 ? errorfromerrno(scanner.readerrno()) : Error{}, {}};
    result.hits += file.nHits;
    result.filesWithHits += file.nHits > 0;
    result.failures = result.failures || scanner.readfailed();
    return true;
}

// The length check and the commit of a scanned file, and its new List1
// line with the "*" unless the check refused it.
void BatchRun::commitfile(FileScan& file)
{
    // A failed write is kept by the SafeReplace, a failed begin by the sink:
    // either fails the check with its reason.
    Rewrite rewrite;
    if (file.inplace) {
        rewrite = file.inplace->commit(file.sFile);
    } else {
        FileOutput& output = *file.output;
        output.nOut.flush();
        output.sink.begun();   // a file that becomes empty gets no write at all
        rewrite = commitrewrite(output.sink.replace(), output.sink.beginerror(), file.sFile, file.lLenChange);
    }
    file.lineChanged = rewrite.failure != RewriteFailure::Length;
    file.lNewLength = rewrite.lLength;
    if (rewrite.failure == RewriteFailure::None) {
        // What of the file could not be kept (its capabilities, for an
        // ordinary user) stops nothing: the command line prints it.
        file.notice = rewrite.notice;
        ++result.filesRewritten;
        rewritten.add(file.inplace ? file.inplace->result() : file.output->sink.replace()->result(), file.sFile);
        return;
    }
    file.failure = Failure{rewrite.failure == RewriteFailure::Length ? FailureKind::Length : FailureKind::Copy,
                           file.sFile, rewrite.reason, rewrite.copiedfrom};
    result.failures = true;
}

void BatchRun::tellfiledone(const FileScan& file)
{
    sink.filedone(FileDone{.index = file.index, .sName = file.sName, .sFile = file.sFile, .nHits = file.nHits,
                           .lineChanged = file.lineChanged, .lNewLength = file.lNewLength, .failure = file.failure});
}

// The log's first failure, told once: the run goes on without its lines.
void BatchRun::tellloglost()
{
    if (!log.failure() || logTold)
        return;
    logTold = true;
    result.failures = true;
    sink.runfailure(Failure{FailureKind::Log, log.path().string(), log.failure(), {}});
}

void BatchRun::finish()
{
    tellloglost();
    const std::int64_t listed = std::min(result.hits, kListLimit);
    sink.runfinished(
        RunSummary{.hits = result.hits, .listed = listed, .capped = listed == kListLimit, .cancelled = false});
}

}  // namespace

RunResult findinfiles(const RunRequest& request, RunSink& sink)
{
    sink.runbegins(!request.sFind.empty());
    if (request.sFind.empty())
        return {};
    return BatchRun(request, sink).run();
}

}  // namespace brindlex
