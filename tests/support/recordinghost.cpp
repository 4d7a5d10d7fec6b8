#include "support/recordinghost.h"

#include "support/refscanner.h"

namespace brindlex::test {

void RecordingHost::status(const std::string& caption) { record(statusevent(caption)); }

void RecordingHost::hit(const std::string& sName, std::int64_t lPos)
{
    ++hits_;
    record(hitevent(sName, lPos));
}

Answer RecordingHost::question(const std::string& title, const std::string& text)
{
    record(questionevent(title, text));
    return next_ < answers.size() ? answers[next_++] : Answer::Yes;
}

void RecordingHost::message(const std::string& text, const Error& reason)
{
    record("message " + text + (reason ? " | " + reasontext(reason) : "") + "\n");
}

void RecordingHost::lineupdated(std::size_t index, const FileEntry& entry)
{
    record("line " + std::to_string(index) + " " + list1line(entry) + "\n");
}

void RecordingHost::yield()
{
    if (hits_ == cancelAtHit)
        bCancel = true;
}

void RecordingHost::record(const std::string& line)
{
    const std::string shown = show ? show(line.substr(0, line.size() - 1)) + "\n" : line;
    transcript += shown;
    if (onEvent)
        onEvent(shown.substr(0, shown.size() - 1));
}

}  // namespace brindlex::test
