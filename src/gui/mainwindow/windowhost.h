// The window's side of a walk, a run or a dump: the walk's entries go into the
// session (sorted once, by the window, when the walk ends), hits into the
// session's hit list and List2 (the first 1000), the status into Label5,
// questions and messages into the dialog seam.
//
// The engine asks carryon() very often (after every hit); only a call at
// least kYieldSpacing after the last real one lets events in, so the window
// repaints and a Cancel takes effect well within a tenth of a second while a
// run of a million hits costs little more than the engine's own work. The
// first yield of a walk or run is always real. Hit lines and hit counts wait
// for the next real yield (or the end) and go in as one batch; so does the
// status line when the window was painted very recently.
#pragma once

#include <QPointer>
#include <QWidget>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "engine/core/runsink.h"
#include "engine/core/walksink.h"
#include "engine/dump/dump.h"
#include "gui/mainwindow/listmodel.h"

namespace brindlex::gui {

class Form1;

class WindowHost final : public RunSink, public WalkSink, public DumpSink {
public:
    static constexpr std::chrono::milliseconds kYieldSpacing{30};

    WindowHost(Form1& form, Session& session, SessionListModel& files, SessionListModel& hits)
        : form(form), session(session), filesModel(files), hitsModel(hits)
    {
    }

    // A walk or run begins: the next yield is a real one.
    void beginwork();
    // Puts what waits (hit lines, a hit count) on the window.
    void flush();

    // The user's request to stop the work in hand (Cancel, Esc, closing the
    // window). It holds until the next walk or run begins, or forgetcancel().
    void requestcancel() { cancel_ = true; }
    bool cancelrequested() const { return cancel_; }
    void forgetcancel() { cancel_ = false; }

    // Switches the window's controls for a walk, run or dump: off (which
    // forgets a Cancel left over) and back on.
    void enablecontrols(bool bOn);

    // Lets events in, at most every kYieldSpacing; false once Cancel came.
    bool carryon() override;

    void level(bool begins) override { enablecontrols(!begins); }

    void runbegins(bool works) override;
    void filebegins(const FileBegins& file) override;
    std::size_t hits(const HitBatch& batch) override;
    void scanned(std::int64_t nHits) override { hitcount(nHits); }
    Answer question(const Question& q) override;
    void filedone(const FileDone& file) override;
    void progress(std::int64_t lDone, std::int64_t lLen) override;
    void runfailure(const Failure& failure) override;
    void runfinished(const RunSummary& summary) override;

    void message(const std::string& text) override { showmessage(text, {}); }

private:
    void showcontrols(bool bOn);
    void yield();
    void status(const std::string& caption);
    void hitcount(std::int64_t nHits);
    void showmessage(const std::string& text, const Error& reason);
    void setstatus(const std::string& caption);
    // The progress bar: the files of a run (and the bytes of a big file in
    // hand), or the files a walk has listed; painted with the rest at a yield.
    void showprogress();

    std::size_t nRunFiles = 0;    // the files the run goes over
    std::size_t nBegun = 0;       // of them taken in hand; 0 in a walk
    std::int64_t lFileDone = 0, lFileLen = 0;

    Form1& form;
    Session& session;
    SessionListModel& filesModel;
    SessionListModel& hitsModel;
    std::vector<List2Hit> pendingHits;
    std::optional<std::string> pendingStatus;
    // A hit count waiting to be painted; formatted only then.
    std::optional<std::int64_t> pendingCount;
    // Lines of List2 since the run cleared it, those waiting included.
    std::int64_t listed = 0;
    // The coarse monotonic time of the last real yield; 0 makes the next
    // yield real.
    std::chrono::nanoseconds lastYield{};
    std::chrono::steady_clock::time_point lastPaint{};
    QPointer<QWidget> focusBefore;
    bool cancel_ = false;
};

}  // namespace brindlex::gui
