// Form1: its construction, menus, start-up and end, and the wiring of keys
// and focus. Its jobs live beside it: form1layout.cpp (the grid),
// form1runs.cpp (listing and runs), form1options.cpp (the log options),
// form1sets.cpp (the replacement sets), form1editors.cpp (editors and the
// dump), form1viewer.cpp (opening the viewer).
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
#include "engine/batch/runsetup.h"
#include "engine/core/startup.h"
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

namespace {

const char* const kTabStops = "180,190,200";

double nowindays()
{
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 86'400'000.0;
}

}  // namespace

Form1::Form1(std::filesystem::path exeDir, QWidget* parent)
    : QMainWindow(parent), exeDir(std::move(exeDir)), filesModel(new SessionListModel(session, SessionListModel::Which::Files, this)),
      hitsModel(new SessionListModel(session, SessionListModel::Which::Hits, this)),
      windowHost(std::make_unique<WindowHost>(*this, session, *filesModel, *hitsModel))
{
    setObjectName(QStringLiteral("Form1"));
    setWindowTitle(towidget(std::string(sCaption)));
    QFont bold = QApplication::font();
    bold.setBold(true);
    setFont(bold);
    if (exeDir.empty())
        exeDir = QFile::encodeName(QCoreApplication::applicationDirPath()).toStdString();
    buildsurface();
    buildmenus();
    prgWork = new QProgressBar;
    prgWork->setObjectName(QStringLiteral("prgWork"));
    prgWork->hide();
    statusBar()->setSizeGripEnabled(false);
    statusBar()->addWidget(prgWork, 1);
    fitdesignsize();
}

Form1::~Form1() = default;

void Form1::buildmenus()
{
    auto item = [this](QMenu* menu, const char* name, const char* caption, auto handler) {
        QAction* action = menu->addAction(QLatin1String(caption));
        action->setObjectName(QLatin1String(name));
        connect(action, &QAction::triggered, this, handler);
        return action;
    };
    // A check mark tells a handler the state before the click, as the menu
    // showed it: the click's own toggle is taken back before the handler runs.
    auto checkitem = [this](QMenu* menu, const char* name, const char* caption, bool checked, auto handler) {
        QAction* action = menu->addAction(QLatin1String(caption));
        action->setObjectName(QLatin1String(name));
        action->setCheckable(true);
        action->setChecked(checked);
        connect(action, &QAction::triggered, this, [action, handler](bool now) {
            action->setChecked(!now);
            handler();
        });
        return action;
    };
    auto topmenu = [this](const char* name, const char* caption) {
        QMenu* menu = menuBar()->addMenu(QLatin1String(caption));
        menu->setObjectName(QLatin1String(name));
        menu->menuAction()->setObjectName(QLatin1String(name));
        return menu;
    };

    mnuFile = topmenu("mnuFile", "&File");
    connect(mnuFile, &QMenu::aboutToShow, this, [this] { mnuFile_Click(); });
    mnuOpenRepFile = item(mnuFile, "mnuOpenRepFile", "&Open Replacements File", [this] { mnuOpenRepFile_Click(); });
    mnuEdit = item(mnuFile, "mnuEdit", "&Edit Using Notepad", [this] { mnuEdit_Click(); });
    mnuEdit2 = item(mnuFile, "mnuEdit2", "E&dit Using Notepad", [this] { mnuEdit2_Click(); });
    mnuExit = item(mnuFile, "mnuExit", "E&xit", [this] { mnuExit_Click(); });

    mnuopt = topmenu("mnuopt", "&Options");
    connect(mnuopt, &QMenu::aboutToShow, this, [this] { mnuopt_Click(); });
    mnuConvertHex = checkitem(mnuopt, "mnuConvertHex", "&Convert \"<nn>\" to \"%nn\" in Search", true,
                              [this] { mnuConvertHex_Click(); });
    mnuOptLog[0] = checkitem(mnuopt, "mnuOptLog0", "Log &Finds", false, [this] { mnuOptLog_Click(0); });
    mnuOptLog[1] = checkitem(mnuopt, "mnuOptLog1", "Log &Replaces", false, [this] { mnuOptLog_Click(1); });
    mnuOptViewLog = item(mnuopt, "mnuOptViewLog", "&View Log File", [this] { mnuOptViewLog_Click(); });
    mnuoptKillLog = item(mnuopt, "mnuoptKillLog", "&Delete Log File", [this] { mnuoptKillLog_Click(); });
    mnuoptKillLog->setEnabled(false);
    mnuDumpInt4 = item(mnuopt, "mnuDumpInt4", "Dump &Int4 File", [this] { mnuDumpInt4_Click(); });

    mnuRepl = topmenu("mnuRepl", "&Replacements");
    mnuRep.push_back(item(mnuRepl, "mnuRep0", "&0", [this] { mnuRep_Click(0); }));
    mnuRep[0]->setProperty("Tag", QString());

    // A top-level item with nothing under it: a click on the bar runs it.
    mnuHelp = menuBar()->addAction(QStringLiteral("&Help"));
    mnuHelp->setObjectName(QStringLiteral("mnuHelp"));
    connect(mnuHelp, &QAction::triggered, this, [this] { mnuHelp_Click(); });
}

void Form1::Form_Load(const std::string& sCommand)
{
    setWindowTitle(towidget(std::string(sCaption) + " Version " + std::string(sVersion)));
    sIniFile = defaultinifile();
    const QFileInfo editor(QFile::decodeName(QByteArray::fromStdString((exeDir / "vellumix").string())));
    sEditor = editor.isFile() && editor.isExecutable() ? "vellumix" : "notepad";
    mnuRepl->setProperty("Tag", QStringLiteral("user0"));
    session.bConvertHex = true;
    if (const RunPaths paths = runpaths(true); !paths.sScratch.empty()) {
        session.sLogFile = paths.sLogFile;
        session.sScratch = paths.sScratch;
        std::error_code ignored;
        std::filesystem::remove(session.sLogFile, ignored);
        for (const std::string& told : recoveratstart())
            dialogs().messagebox(this, towidget(told), Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
    }
    settabstops(List1, kTabStops);
    settabstops(List2, kTabStops);
    alignlistcaptions(std::atoi(kTabStops));
    loadreplist(false);
    if (!sCommand.empty()) {
        Text1->setText(towidget(sCommand));
        cmdDir_Click();
        if (session.files.empty())
            chkIncludeSubs_Click();
        if (!session.files.empty()) {
            // The first line becomes the current one without being selected:
            // a selection would narrow the next run to that file.
            List1->setCurrentIndex(List1->model()->index(0, 0));
            List1->selectionModel()->clearSelection();
            List1_DblClick();
        }
    } else {
        cmdDir_Click();
    }
}

void Form1::closeEvent(QCloseEvent* event)
{
    // An edit in the viewer is asked about first; Cancel keeps the program.
    if (!view.releaseedit()) {
        event->ignore();
        return;
    }
    Form_Unload();
    event->accept();
}

void Form1::Form_Unload()
{
    // The program ends at once; a walk or run in hand stops at its next
    // yield, leaving the file in hand as it was.
    windowHost->requestcancel();
    QCoreApplication::quit();
}

void Form1::mnuExit_Click()
{
    close();
}

bool Form1::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == List2) {
        List2_KeyWalk(event);
        return false;
    }
    if (watched == lblDir) {
        if (event->type() == QEvent::MouseButtonRelease
            && static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton)
            lblDir_Click();
        return false;
    }
    auto* box = qobject_cast<QLineEdit*>(watched);
    if (!box || (box != Text1 && box != Text2 && box != Text3))
        return QMainWindow::eventFilter(watched, event);
    if (event->type() == QEvent::FocusIn) {
        // While the controls go off the focus wanders from box to box; that
        // is no user's doing and must not start the guard of selectalltext.
        if (!busy())
            selectalltext(box);
        return false;
    }
    if (event->type() != QEvent::KeyPress)
        return false;
    const auto* key = static_cast<QKeyEvent*>(event);
    // A key press is a key that gives a character; Enter gives CR.
    const bool enter = key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter;
    if (box == Text1 && (enter || !key->text().isEmpty()))
        filesModel->reset([this] { session.files.clear(); });
    if (!enter)
        return false;
    if (box == Text1) {
        cmdDir_Click();
        selectalltext(Text2);
    } else if (box == Text2) {
        cmdFindAll_Click();
        selectalltext(Text3);
    } else {
        cmdReplace_Click();
    }
    return false;
}

void Form1::selectalltext(QLineEdit* box)
{
    const double now = nowindays();
    if (dLastFocus != 0 && now - dLastFocus < 0.000001)
        return;
    dLastFocus = now;
    box->setSelection(0, static_cast<int>(std::min<qsizetype>(1000, box->text().size())));
    box->setFocus();
}

void Form1::settabstops(QAbstractItemView* lstList, const std::string& sStops)
{
    std::string copy = sStops;
    std::vector<int> stops;
    while (!copy.empty() && stops.size() <= 20)
        stops.push_back(parsestringforinteger(copy, ","));
    if (auto* delegate = dynamic_cast<TabStopDelegate*>(lstList->itemDelegate()))
        delegate->setstops(std::move(stops));
    lstList->doItemsLayout();
    lstList->viewport()->update();
}

}  // namespace brindlex::gui
