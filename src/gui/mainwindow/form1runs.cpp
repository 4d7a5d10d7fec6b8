// Form1: the listing and the runs, from the session.
#include "gui/mainwindow/form1.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QProgressBar>
#include <QScreen>
#include <QPushButton>
#include <QStatusBar>
#include <QShortcut>
#include <QStyle>

#include <cstdlib>
#include <optional>
#include <system_error>

#include "engine/batch/run.h"
#include "engine/batch/runsetup.h"
#include "engine/batch/runlog.h"
#include "engine/core/inplace.h"
#include "engine/core/saferewrite.h"
#include "engine/core/state.h"
#include "engine/core/workdir.h"
#include "engine/dump/dump.h"
#include "engine/files/files.h"
#include "engine/pattern/stringtools.h"
#include "gui/mainwindow/listmodel.h"
#include "gui/mainwindow/tabstopdelegate.h"
#include "gui/mainwindow/windowhost.h"
#include "engine/replacements/profile.h"
#include "engine/replacements/replist.h"
#include "engine/viewer/page.h"
#include "gui/replacements/repmenu.h"
#include "gui/seam/dialogs.h"
#include "gui/seam/launch.h"
#include "gui/viewer/form2.h"

#include "gui/mainwindow/busyscope.h"

namespace brindlex::gui {

void Form1::cmdFind_Click(bool bReplace)
{
    if (busy())
        return;
    saverep(std::string());
    if (session.files.empty())
        cmdDir_Click();
    findinfiles(session.sFind, bReplace);
}

void Form1::cmdDir_Click()
{
    if (!busy())
        listing();
}

void Form1::cmdCancel_Click()
{
    windowHost->requestcancel();
}

void Form1::listing()
{
    BusyScope scope(nBusy);
    filesModel->reset([this] { session.files.clear(); });
    const MaskPlace place = placemask(fromwidget(Text1->text()));
    Text1->setText(towidget(place.mask));
    session.baseDir = place.baseDir;
    showbasedir();
    windowHost->beginwork();
    // The walk gathers the entries; the list shows them once, sorted. A run
    // may come much later: it opens the base directory anew.
    listmask(place, session.bIncludeSubs, *windowHost, session.files);
    filesModel->append(session.files.size(), [] {});
    windowHost->flush();
    List1->raise();
}

void Form1::findinfiles(const std::string& sFind, bool bReplace)
{
    if (busy())
        return;
    BusyScope scope(nBusy);
    std::vector<bool> selected(session.files.size());
    for (const QModelIndex& line : List1->selectionModel()->selectedIndexes())
        selected[static_cast<std::size_t>(line.row())] = true;
    const RunRequest request = session.request(sFind, bReplace, std::move(selected));
    if (!sFind.empty())
        session.sLastFind = sFind;
    windowHost->beginwork();
    brindlex::findinfiles(request, *windowHost);
    windowHost->flush();
}

void Form1::chkIncludeSubs_Click()
{
    cmdDir_Click();
}

void Form1::lblDir_Click()
{
    if (busy())
        return;
    std::string answer = fromwidget(dialogs().inputbox(this, QStringLiteral("Directory?"),
                                                       towidget(std::string(sTitle)), towidget(session.baseDir)));
    if (answer.empty())
        return;
    if (answer.back() != '/')
        answer += '/';
    Text1->setText(towidget(answer + filepart(fromwidget(Text1->text()))));
    cmdDir_Click();
}

}  // namespace brindlex::gui
