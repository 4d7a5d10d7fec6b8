// Form1: opening the viewer from either list, and what the viewer asks of
// the window.
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

void Form1::openline(const QListView* list)
{
    const List2Hit entry = currententry(list);
    if (entry.sName.empty())
        return;
    if (list == List2)
        view.openhit(fullname(entry.sName), entry.lPos);
    else
        view.openfile(fullname(entry.sName));
}

void Form1::List1_DblClick()
{
    openline(List1);
}

void Form1::openhit()
{
    openline(List2);
}

void Form1::List2_Click()
{
    if (currentrow(List2) < 0)
        return;
    openhit();
    activateWindow();
    List2->setFocus();
}

void Form1::List2_DblClick()
{
    if (currentrow(List2) >= 0)
        openhit();
}

// The arrow keys and their kin in List2 are clicks on the line they reach.
void Form1::List2_KeyWalk(const QEvent* event)
{
    if (event->type() == QEvent::KeyPress)
        nRowBeforeKey = currentrow(List2);
    else if (event->type() == QEvent::KeyRelease && !static_cast<const QKeyEvent*>(event)->isAutoRepeat()
             && currentrow(List2) != nRowBeforeKey)
        List2_Click();
}

int Form1::hitcount() const
{
    return static_cast<int>(session.hits.size());
}

int Form1::currenthit() const
{
    return currentrow(List2);
}

void Form1::sethit(int row)
{
    List2->setCurrentIndex(hitsModel->index(row));
    if (row >= 0)
        openhit();
}

void Form1::findfromviewer(const std::string& pattern)
{
    Text2->setText(towidget(pattern));
    findinfiles(pattern, false);
    if (session.hits.empty())
        return;
    List2->setCurrentIndex(QModelIndex());
    List2->setCurrentIndex(hitsModel->index(0));
    List2_Click();
}

}  // namespace brindlex::gui
