#include "support/recordinghost.h"

#include "engine/batch/runmessages.h"
#include "engine/files/files.h"
#include "support/refscanner.h"

namespace brindlex::test {

void RecordingHost::scanned(std::int64_t nHits) { record(statusevent(std::to_string(nHits))); }

void RecordingHost::runbegins(bool works)
{
    record("clearhits\n");
    record(statusevent("none found"));
    if (works)
        record("controls off\n");
}

bool RecordingHost::carryon()
{
    cancelled_ = cancelled_ || hits_ == cancelAtHit;
    return !cancelled_;
}

void RecordingHost::filebegins(const FileBegins& file)
{
    record(statusevent(file.sFile));
    if (file.error)
        runfailure(Failure{FailureKind::Open, file.sFile, file.error, {}});
}

std::size_t RecordingHost::hits(const HitBatch& batch)
{
    for (std::size_t k = 0; k < batch.count; ++k) {
        ++hits_;
        record(hitevent(batch.sName, batch.lPos[k]));
        record(statusevent(std::to_string(batch.nHitsBefore + static_cast<std::int64_t>(k) + 1)));
        if (!carryon())
            return k + 1;
    }
    return batch.count;
}

Answer RecordingHost::question(const Question& q)
{
    record(questionevent(questiontitle(q), q.text));
    return next_ < answers.size() ? answers[next_++] : Answer::Yes;
}

void RecordingHost::filedone(const FileDone& file)
{
    if (file.lineChanged)
        record("line " + std::to_string(file.index) + " " + list1line(FileEntry{file.sName, file.lNewLength, true}) + "\n");
    if (file.failure)
        runfailure(file.failure);
}

void RecordingHost::note(const Note& n) { record("note " + notetext(n) + "\n"); }

void RecordingHost::runfailure(const Failure& failure)
{
    const RunMessage shown = failuremessage(failure);
    record("message " + shown.text + (shown.reason ? " | " + reasontext(shown.reason) : "") + "\n");
}

void RecordingHost::runfinished(const RunSummary& summary)
{
    if (!summary.cancelled)
        record(statusevent(summary.capped ? "more than 1000" : std::to_string(summary.listed)));
    record("controls on\n");
}

void RecordingHost::record(const std::string& line)
{
    const std::string shown = show ? show(line.substr(0, line.size() - 1)) + "\n" : line;
    transcript += shown;
    if (onEvent)
        onEvent(shown.substr(0, shown.size() - 1));
}

}  // namespace brindlex::test
