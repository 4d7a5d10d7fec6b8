// The window's side of a walk or a run: the walk's entries go into the
// session (sorted once, by the window, when the walk ends), hits into the
// session's hit list and List2 (the first 1000), the status into Label5,
// questions and messages into the dialog seam.
//
// The engine calls yield() very often (after every hit); only a call at
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

#include "engine/batch/host.h"
#include "gui/mainwindow/listmodel.h"

namespace brindlex::gui {

class Form1;

class WindowHost final : public Host {
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

    void showcontrols(bool bOn) override;
    void yield() override;
    void addentry(const std::string& name, std::int64_t size) override;
    void clearhits() override;
    void status(const std::string& caption) override;
    void hitcount(std::int64_t nHits) override;
    void hit(const std::string& sName, std::int64_t lPos) override;
    Answer question(const std::string& title, const std::string& text) override;
    void message(const std::string& text, const Error& reason) override;
    void lineupdated(std::size_t index, const FileEntry& entry) override;
    void progress(bool bBegins, std::int64_t lDone, std::int64_t lLen) override;

private:
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
};

}  // namespace brindlex::gui
