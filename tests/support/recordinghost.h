// A host that writes down every call a scan, run or walk makes, one line
// each, in the event format of the reference scanner, so that a run can be
// compared with the model or with another run as one text.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "engine/batch/host.h"

namespace brindlex::test {

class RecordingHost : public Host {
public:
    std::vector<Answer> answers;   // to the questions in turn; Yes behind the last
    std::int64_t cancelAtHit = -1;  // Cancel at the first yield after that many hits
    // How a line is written down (as it is when unset), and what a case does
    // at that moment of the run, after the line is written.
    std::function<std::string(const std::string&)> show;
    std::function<void(const std::string& line)> onEvent;
    std::string transcript;

    void showcontrols(bool bOn) override { record(bOn ? "controls on\n" : "controls off\n"); }
    void clearhits() override { record("clearhits\n"); }
    void status(const std::string& caption) override;
    void hit(const std::string& sName, std::int64_t lPos) override;
    Answer question(const std::string& title, const std::string& text) override;
    void message(const std::string& text, const Error& reason) override;
    void note(const std::string& text) override { record("note " + text + "\n"); }
    void lineupdated(std::size_t index, const FileEntry& entry) override;
    void yield() override;

private:
    void record(const std::string& line);

    std::size_t next_ = 0;
    std::int64_t hits_ = 0;
};

}  // namespace brindlex::test
