// Form1: the options menu (log, hex notation) and the help box.
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

void Form1::mnuConvertHex_Click()
{
    session.bConvertHex = !session.bConvertHex;
}

void Form1::mnuopt_Click()
{
    mnuOptLog[0]->setChecked((session.nLogMode & kLogFinds) != 0);
    mnuOptLog[1]->setChecked((session.nLogMode & kLogReplaces) != 0);
    mnuConvertHex->setChecked(session.bConvertHex);
}

void Form1::mnuOptLog_Click(int Index)
{
    if (Index == 0 || Index == 1) {
        const int bit = Index == 0 ? kLogFinds : kLogReplaces;
        if (mnuOptLog[static_cast<std::size_t>(Index)]->isChecked())
            session.nLogMode &= ~bit;
        else
            session.nLogMode |= bit;
    }
    mnuopt_Click();
}

void Form1::mnuOptViewLog_Click()
{
    // A log that doesn't exist opens nothing, and says nothing.
    std::error_code ec;
    if (!session.sLogFile.empty() && std::filesystem::is_regular_file(session.sLogFile, ec))
        dialogs().shellopen(QString::fromStdString(session.sLogFile.string()));
}

void Form1::mnuoptKillLog_Click()
{
    std::error_code ignored;
    if (!session.sLogFile.empty())
        std::filesystem::remove(session.sLogFile, ignored);
}

void Form1::mnuHelp_Click()
{
    const std::string crlf2 = std::string(sCRLF) + std::string(sCRLF);
    const std::string text =
        "Brindlex allows simple but effective direct batch editing of binary or ASCII files." + crlf2 +
        "To indicate non-ASCII code, use standard WEB hexadecimal notation: " + crlf2 +
        "%0D is <CR>, %0A is <LF>, so %0D%0A is <CR><LF>" + crlf2 +
        "SHIFT-CLICK or CTRL-CLICK on the first list selects specific files to modify. " + crlf2 +
        "Double-Clicking on either list allows editing of the file.";
    dialogs().messagebox(this, towidget(text), Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
}

}  // namespace brindlex::gui
