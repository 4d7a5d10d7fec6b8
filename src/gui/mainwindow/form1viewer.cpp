// Form1: opening the viewer from either list, and what the viewer asks of
// the window.
#include "gui/mainwindow/form1.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QListView>

#include "gui/mainwindow/listmodel.h"
#include "gui/viewer/viewer.h"

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
