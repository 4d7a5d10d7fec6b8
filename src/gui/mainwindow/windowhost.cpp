#include "gui/mainwindow/windowhost.h"

#include <QApplication>
#include <QLabel>
#include <QListView>
#include <QMenu>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QCheckBox>
#include <QLineEdit>

#include <algorithm>
#include <climits>
#include <cstdio>

#include <time.h>

#include "engine/batch/run.h"
#include "engine/batch/runmessages.h"
#include "engine/core/state.h"
#include "engine/files/files.h"
#include "gui/mainwindow/form1.h"
#include "gui/seam/dialogs.h"

namespace brindlex::gui {
namespace {

std::chrono::nanoseconds coarsenow()
{
    timespec ts {};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &ts);
    return std::chrono::seconds(ts.tv_sec) + std::chrono::nanoseconds(ts.tv_nsec);
}

}  // namespace

void WindowHost::beginwork()
{
    lastYield = {};
    lastPaint = {};
}

void WindowHost::flush()
{
    if (form.cmd[3]->isEnabled())
        showprogress();
    if (!pendingHits.empty()) {
        hitsModel.append(pendingHits.size(), [this] {
            session.hits.insert(session.hits.end(), std::make_move_iterator(pendingHits.begin()),
                                std::make_move_iterator(pendingHits.end()));
        });
        pendingHits.clear();
    }
    if (pendingCount) {
        setstatus(std::to_string(*pendingCount));
        pendingCount.reset();
    } else if (pendingStatus) {
        setstatus(*pendingStatus);
        pendingStatus.reset();
    }
}

void WindowHost::filebegins(const FileBegins& file)
{
    status(file.sFile);
    ++nBegun;
    lFileDone = 0;
    lFileLen = file.lLength;
    if (file.error)
        runfailure(Failure{FailureKind::Open, file.sFile, file.error, {}});
}

void WindowHost::progress(std::int64_t lDone, std::int64_t lLen)
{
    lFileDone = lDone;
    lFileLen = lLen;
}

void WindowHost::showprogress()
{
    QProgressBar* bar = form.prgWork;
    if (nBegun == 0) {
        // A walk: the number of files is known only at its end.
        bar->setRange(0, 0);
        bar->setFormat(QStringLiteral("%1 files listed").arg(session.files.size()));
    } else {
        constexpr int kSteps = 1000;   // of one file
        constexpr std::int64_t kBigFile = std::int64_t{1} << 24;
        const auto inFile = lFileLen > 0 ? static_cast<int>(lFileDone * kSteps / lFileLen) : 0;
        bar->setRange(0, static_cast<int>(std::min<std::size_t>(nRunFiles, INT_MAX / kSteps)) * kSteps);
        bar->setValue(static_cast<int>(std::min<std::size_t>(nBegun - 1, INT_MAX / kSteps)) * kSteps + inFile);
        QString text = QStringLiteral("file %1 of %2").arg(nBegun).arg(nRunFiles);
        if (lFileLen >= kBigFile)
            text += QStringLiteral(", %1 of %2 MiB").arg(lFileDone >> 20).arg(lFileLen >> 20);
        bar->setFormat(text);
    }
    bar->show();
}

void WindowHost::enablecontrols(bool bOn)
{
    if (!bOn)
        cancel_ = false;
    showcontrols(bOn);
}

void WindowHost::showcontrols(bool bOn)
{
    // A walk switches the controls at every directory: the bar goes only
    // when the window is still idle once events come in again.
    if (bOn) {
        nBegun = 0;
        QTimer::singleShot(0, form.prgWork, [this] {
            if (!form.cmd[3]->isEnabled())
                form.prgWork->hide();
        });
    }
    // While the controls are off the focus rests on Cancel, so that Esc and
    // the space bar reach it; afterwards it goes back where it was.
    QWidget* focus = QApplication::focusWidget();
    const bool ours = focus && form.isAncestorOf(focus);
    form.cmd[3]->setEnabled(!bOn);
    if (!bOn && ours && focus != form.cmd[3]) {
        focusBefore = focus;
        form.cmd[3]->setFocus();
    }
    for (QMenu* menu : {form.mnuFile, form.mnuopt, form.mnuRepl})
        menu->menuAction()->setEnabled(bOn);
    form.mnuEdit->setEnabled(bOn);
    for (int i = 0; i < 3; ++i)
        form.cmd[i]->setEnabled(bOn);
    for (QWidget* w : std::initializer_list<QWidget*>{form.List1, form.List2, form.chkCase, form.chkAsk,
                                                      form.chkIncludeSubs, form.Text1, form.Text2, form.Text3})
        w->setEnabled(bOn);
    if (bOn && focusBefore) {
        focusBefore->setFocus();
        focusBefore = nullptr;
    }
}

void WindowHost::yield()
{
    // The coarse clock (a few milliseconds of resolution) is read at every
    // call: the precise one would cost a run of a million hits more than its
    // hits, and the spacing is far coarser than the clock.
    if (coarsenow() - lastYield < kYieldSpacing)
        return;
    flush();
    QApplication::processEvents();
    lastYield = coarsenow();
    lastPaint = std::chrono::steady_clock::now();
}

bool WindowHost::carryon()
{
    yield();
    return !cancel_;
}

void WindowHost::runbegins(bool works)
{
    // A run begins: it goes over the selected lines, or all of them.
    const auto selected = static_cast<std::size_t>(form.List1->selectionModel()->selectedIndexes().size());
    nRunFiles = selected > 0 ? selected : session.files.size();
    nBegun = 0;
    lFileDone = lFileLen = 0;
    pendingHits.clear();
    hitsModel.reset([this] { session.hits.clear(); });
    listed = 0;
    status("none found");
    if (works)
        enablecontrols(false);
}

void WindowHost::status(const std::string& caption)
{
    // A count comes through hitcount() and waits for the next real yield.
    // A text (a file's path, "more than 1000") is painted at once, unless
    // the window was painted less than kYieldSpacing ago: then it waits for
    // the next real yield too, which the run makes at the latest behind
    // that file, so the path is still seen as soon as a person could see
    // it, and a run over thousands of small files doesn't paint each.
    pendingStatus = caption;
    pendingCount.reset();
    if (std::chrono::steady_clock::now() - lastPaint < kYieldSpacing)
        return;
    flush();
    form.Label5->repaint();
    lastPaint = std::chrono::steady_clock::now();
}

void WindowHost::hitcount(std::int64_t nHits)
{
    // As status() with the count: it waits for the next real yield.
    pendingCount = nHits;
    pendingStatus.reset();
}

void WindowHost::setstatus(const std::string& caption)
{
    form.Label5->setText(towidget(caption));
}

std::size_t WindowHost::hits(const HitBatch& batch)
{
    // Each hit is listed (the first kListLimit), counted and yielded at, as
    // one found alone would be, so a Cancel stops at the hit it came at.
    for (std::size_t k = 0; k < batch.count; ++k) {
        if (listed < kListLimit) {
            ++listed;
            pendingHits.push_back(List2Hit{batch.sName, batch.lPos[k]});
        }
        hitcount(batch.nHitsBefore + static_cast<std::int64_t>(k) + 1);
        yield();
        if (cancel_)
            return k + 1;
    }
    return batch.count;
}

Answer WindowHost::question(const Question& q)
{
    flush();
    const Reply reply = dialogs().messagebox(&form, towidget(q.text), Buttons::YesNoCancel, Icon::Question,
                                             towidget(questiontitle(q)));
    // Whoever just answered may press Cancel at once: the next yield is real.
    lastYield = {};
    switch (reply) {
    case Reply::Yes: return Answer::Yes;
    case Reply::No: return Answer::No;
    default:
        // The answer Cancel stops what follows the run too (a list of sets).
        cancel_ = true;
        return Answer::Cancel;
    }
}

void WindowHost::runfailure(const Failure& failure)
{
    const RunMessage shown = failuremessage(failure);
    showmessage(shown.text, shown.reason);
}

void WindowHost::runfinished(const RunSummary& summary)
{
    if (!summary.cancelled) {
        if (summary.capped)
            status("more than 1000");
        else
            hitcount(summary.listed);
    }
    enablecontrols(true);
}

void WindowHost::showmessage(const std::string& text, const Error& reason)
{
    flush();
    dialogs().messagebox(&form, towidget(text), Buttons::Ok, Icon::None, towidget(std::string(sTitle)),
                         reason ? towidget(reasontext(reason)) : QString());
}

void WindowHost::filedone(const FileDone& file)
{
    // The name stays: the run reads the names of the files behind it.
    if (file.lineChanged && file.index < session.files.size()) {
        session.files[file.index].size = file.lNewLength;
        session.files[file.index].rewritten = true;
        filesModel.changed(file.index);
    }
    if (file.failure)
        runfailure(file.failure);
}

}  // namespace brindlex::gui
