// Form1: the outside editors and the integer dump.
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

int Form1::currentrow(const QListView* list) const
{
    const QModelIndex current = list->currentIndex();
    return current.isValid() ? current.row() : -1;
}

List2Hit Form1::currententry(const QListView* list) const
{
    const int row = currentrow(list);
    if (row < 0)
        return {};
    const auto at = static_cast<std::size_t>(row);
    if (list == List1)
        return at < session.files.size() ? List2Hit{session.files[at].name, 0} : List2Hit{};
    return at < session.hits.size() ? session.hits[at] : List2Hit{};
}

void Form1::mnuFile_Click()
{
    // The items name the program that will run.
    const std::string editor = editorname(sEditor, exeDir);
    const std::string s = sEditor == "vellumix" ? "vellumix -p" : editor;
    const std::string name1 = currententry(List1).sName;
    const std::string name2 = currententry(List2).sName;
    mnuEdit->setText(towidget("&Edit " + name1 + " using " + editor));
    mnuEdit2->setText(towidget("E&dit " + name2 + " using " + s));
    mnuEdit->setEnabled(!name1.empty());
    mnuEdit2->setEnabled(!name2.empty());
    mnuDumpInt4->setEnabled(mnuEdit->isEnabled());
}

void Form1::mnuEdit_Click()
{
    const List2Hit entry = currententry(List1);
    if (!entry.sName.empty())
        startedit(fullname(entry.sName), std::string());
}

void Form1::mnuEdit2_Click()
{
    const List2Hit hit = currententry(List2);
    if (!hit.sName.empty())
        startedit(fullname(hit.sName), std::to_string(hit.lPos));
}

// The command line is built as one string for the message; the program gets
// the path as one argument, whatever bytes it holds.
void Form1::startedit(const std::string& sPath, const std::string& sPosition)
{
    std::string commandline = editorname(sEditor, exeDir) + " " + sPath;
    std::vector<std::string> args{sPath};
    if (sEditor == "vellumix" && !sPosition.empty()) {
        commandline += " -p " + sPosition;
        args.insert(args.end(), {"-p", sPosition});
    }
    const std::string program = editorprogram(sEditor, exeDir);
    if (program.empty()) {
        dialogs().messagebox(this, towidget("No editor found to open " + sPath + ":" + std::string(sCRLF)
                                            + "looked for " + editorsearch(sEditor, exeDir) + "."),
                             Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
        return;
    }
    const Error error = dialogs().startprogram(program, args);
    if (error)
        dialogs().messagebox(this, towidget("Error starting " + commandline + ":" + std::string(sCRLF) + error.text),
                             Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
}

void Form1::mnuDumpInt4_Click()
{
    const std::string sName = currententry(List1).sName;
    if (busy() || sName.empty())
        return;
    const std::string sIn = fullname(sName);
    ++nDumpCount;
    const std::filesystem::path sOut = workdirpath() / sheetname(nDumpCount);
    const QString title = towidget(std::string(sTitle));
    const int nSize = dumpanswer(fromwidget(dialogs().inputbox(this, QStringLiteral("Integer size (2 or 4)?"), title,
                                                                 QStringLiteral("4"))));
    if (nSize == 0)
        return;
    const int nCols = dumpanswer(fromwidget(dialogs().inputbox(this, QStringLiteral("How many columns of integers?"),
                                                                 title, QStringLiteral("1"))));
    if (nCols == 0)
        return;
    DumpResult result;
    {
        // A long dump yields like a run, and Cancel ends it with the sheet
        // cut short.
        BusyScope scope(nBusy);
        windowHost->beginwork();
        windowHost->enablecontrols(false);
        std::int64_t lPos = 1;
        result = dumpints(nSize, nCols, sIn, sOut, lPos, *windowHost);
        windowHost->enablecontrols(true);
    }
    // A dump stopped at a question, or before its sheet could be opened, has
    // no sheet to open (a file that holds the name is another's).
    std::error_code ec;
    if ((result.failed && result.rows == 0) || !std::filesystem::is_regular_file(sOut, ec))
        return;
    dialogs().shellopen(QFile::decodeName(QByteArray::fromStdString(sOut.string())));
}

std::string Form1::fullname(const std::string& sName) const
{
    return session.baseDir + sName;
}

}  // namespace brindlex::gui
