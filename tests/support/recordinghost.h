// A sink that writes down every event a scan or run tells, one line each,
// in the event format of the reference scanner, so that a run can be
// compared with the model or with another run as one text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/core/runsink.h"

namespace brindlex::test {

class RecordingHost : public RunSink {
public:
    std::vector<Answer> answers;   // to the questions in turn; Yes behind the last
    std::int64_t cancelAtHit = -1;  // Cancel as soon as that many hits were told
    // How a line is written down (as it is when unset), and what a case does
    // at that moment of the run, after the line is written.
    std::function<std::string(const std::string&)> show;
    std::function<void(const std::string& line)> onEvent;
    std::string transcript;

    void runbegins(bool works) override;
    bool carryon() override;
    void filebegins(const FileBegins& file) override;
    std::size_t hits(const HitBatch& batch) override;
    void scanned(std::int64_t nHits) override;
    Answer question(const Question& q) override;
    void filedone(const FileDone& file) override;
    void note(const Note& note) override;
    void runfailure(const Failure& failure) override;
    void runfinished(const RunSummary& summary) override;

private:
    void record(const std::string& line);

    std::size_t next_ = 0;
    std::int64_t hits_ = 0;
    bool cancelled_ = false;
};

}  // namespace brindlex::test
