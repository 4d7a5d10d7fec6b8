#include "gui/mainwindow/form1.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QShortcut>

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
#include "gui/mainwindow/tabstopdelegate.h"
#include "gui/mainwindow/windowhost.h"
#include "engine/replacements/profile.h"
#include "engine/replacements/replist.h"
#include "engine/viewer/page.h"
#include "gui/replacements/repmenu.h"
#include "gui/seam/dialogs.h"
#include "gui/seam/launch.h"
#include "gui/viewer/form2.h"

namespace brindlex::gui {

namespace {

const QColor kDarkRed(0xC0, 0x00, 0x00);
const char* const kTabStops = "180,190,200";

// Keeps a walk or run from starting inside another for as long as it lasts.
class BusyScope {
public:
    explicit BusyScope(int& counter) : counter(counter) { ++counter; }
    ~BusyScope() { --counter; }
    BusyScope(const BusyScope&) = delete;
    BusyScope& operator=(const BusyScope&) = delete;

private:
    int& counter;
};

double nowindays()
{
    return static_cast<double>(QDateTime::currentMSecsSinceEpoch()) / 86'400'000.0;
}

void setcolour(QWidget* widget, const QColor& colour)
{
    QPalette palette = widget->palette();
    palette.setColor(QPalette::WindowText, colour);
    widget->setPalette(palette);
}

}  // namespace

// Makes the controls of the client area at their design measures, in twips.
class Designer {
public:
    Designer(QWidget* client, QObject* filter)
        : client(client), filter(filter), dpiX(client->logicalDpiX()), dpiY(client->logicalDpiY())
    {
    }

    static int px(int twips, int dpi) { return (twips * dpi + 720) / 1440; }

    void place(QWidget* w, const char* name, int left, int top, int width, int height) const
    {
        w->setObjectName(QLatin1String(name));
        w->setGeometry(px(left, dpiX), px(top, dpiY), px(width, dpiX), px(height, dpiY));
    }

    QLabel* label(const char* name, const char* text, int left, int top, int width, int height,
                  Qt::Alignment align) const
    {
        auto* l = new QLabel(QLatin1String(text), client);
        place(l, name, left, top, width, height);
        l->setAlignment(align | Qt::AlignVCenter);
        return l;
    }

    // The three boxes share their column and size; the window watches
    // their keys and focus.
    QLineEdit* textbox(const char* name, const char* text, int top) const
    {
        auto* t = new QLineEdit(QLatin1String(text), client);
        place(t, name, 1125, top, 4000, 285);
        t->installEventFilter(filter);
        return t;
    }

    QPushButton* button(int index, const char* text, int top) const
    {
        auto* b = new QPushButton(QLatin1String(text), client);
        place(b, QByteArray("cmd_" + QByteArray::number(index)).constData(), 5355, top, 1050, 285);
        b->setAutoDefault(false);
        return b;
    }

    // A check box is never narrower or lower than its caption needs; every
    // one has room to its right and below in the design.
    QCheckBox* checkbox(const char* name, const char* text, int left, int top, int width) const
    {
        auto* c = new QCheckBox(QLatin1String(text), client);
        place(c, name, left, top, width, 195);
        const QSize hint = c->sizeHint();
        c->resize(std::max(c->width(), hint.width()), std::max(c->height(), hint.height()));
        return c;
    }

    QListWidget* listbox(const char* name, int left, int top, int width) const
    {
        auto* l = new QListWidget(client);
        place(l, name, left, top, width, 1980);
        l->setSelectionMode(QAbstractItemView::ExtendedSelection);
        l->setItemDelegate(new TabStopDelegate(l));
        return l;
    }

    QWidget* client;
    QObject* filter;
    const int dpiX;
    const int dpiY;
};

Form1::Form1(QWidget* parent) : QMainWindow(parent), windowHost(std::make_unique<WindowHost>(*this))
{
    setObjectName(QStringLiteral("Form1"));
    setWindowTitle(towidget(std::string(sCaption)));
    QFont bold = QApplication::font();
    bold.setBold(true);
    setFont(bold);
    exeDir = QFile::encodeName(QCoreApplication::applicationDirPath()).toStdString();
    buildsurface();
    buildmenus();
    prgWork = new QProgressBar;
    prgWork->setObjectName(QStringLiteral("prgWork"));
    prgWork->hide();
    statusBar()->setSizeGripEnabled(false);
    statusBar()->addWidget(prgWork, 1);
}

Form1::~Form1() = default;

void Form1::buildsurface()
{
    auto* client = new QWidget(this);
    setCentralWidget(client);
    Designer d(client, this);
    client->setFixedSize(d.px(6855, d.dpiX), d.px(7035, d.dpiY));
    auto button = [&](int index, const char* text, int top) {
        QPushButton* b = d.button(index, text, top);
        connect(b, &QPushButton::clicked, this, [this, index] { cmd_Click(index); });
        cmd[static_cast<std::size_t>(index)] = b;
    };

    Label1 = d.label("Label1", "File(s)", -360, 315, 1410, 240, Qt::AlignRight);
    Text1 = d.textbox("Text1", "*.*", 270);
    button(2, "Dir", 270);
    chkIncludeSubs = d.checkbox("chkIncludeSubs", "Include Subdirectories", 1125, 600, 2250);
    Label6 = d.label("Label6", "Find", 450, 1005, 600, 240, Qt::AlignRight);
    setcolour(Label6, Qt::black);
    Text2 = d.textbox("Text2", "", 960);
    button(0, "Find All", 960);
    Label3 = d.label("Label3", "Replace", -360, 1455, 1410, 240, Qt::AlignRight);
    Text3 = d.textbox("Text3", "", 1410);
    button(1, "Replace", 1410);
    chkCase = d.checkbox("chkCase", "Match Case", 1125, 1770, 1995);
    chkAsk = d.checkbox("chkAsk", "Ask on Replace", 3150, 1770, 1995);
    button(3, "Cancel", 1860);
    cmd[3]->setEnabled(false);
    // The window's cancel button: Esc presses it at once (a button's own
    // shortcut clicks only after a delay), and only while it is on.
    auto* escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, cmd[3], &QPushButton::click);
    lblDir = d.label("lblDir", "____", 135, 2160, 435, 195, Qt::AlignLeft);
    QFont underlined = lblDir->font();
    underlined.setUnderline(true);
    lblDir->setFont(underlined);
    setcolour(lblDir, kDarkRed);
    lblDir->adjustSize();
    lblDir->installEventFilter(this);
    buildlists(d);
}

// The two lists and their captions, below the boxes and buttons.
void Form1::buildlists(Designer& d)
{
    Label2 = d.label("Label2", "Size", 4850, 2160, 1410, 240, Qt::AlignLeft);
    setcolour(Label2, kDarkRed);
    List1 = d.listbox("List1", 135, 2385, 6480);
    Label5 = d.label("Label5", "____", 120, 4560, 435, 195, Qt::AlignLeft);
    setcolour(Label5, kDarkRed);
    Label5->adjustSize();
    Label4 = d.label("Label4", "Location", 4850, 4560, 1410, 240, Qt::AlignLeft);
    setcolour(Label4, kDarkRed);
    List2 = d.listbox("List2", 120, 4785, 6495);
    List2->installEventFilter(this);

    connect(chkIncludeSubs, &QCheckBox::clicked, this, [this] { chkIncludeSubs_Click(); });
    connect(List1, &QListWidget::itemDoubleClicked, this, [this] { List1_DblClick(); });
    connect(List2, &QListWidget::itemClicked, this, [this] { List2_Click(); });
    connect(List2, &QListWidget::itemDoubleClicked, this, [this] { List2_DblClick(); });

    // The keyboard order of the design's tab indexes.
    const std::initializer_list<QWidget*> order{Text1, Text2, Text3, cmd[0], cmd[1], cmd[2],
                                               List1, List2, chkCase, chkAsk, cmd[3], chkIncludeSubs};
    QWidget* previous = nullptr;
    for (QWidget* w : order) {
        if (previous)
            setTabOrder(previous, w);
        previous = w;
    }
    Text1->setFocus();
}

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
    view.nViewMode = kModeAutoDetect;
    mnuRepl->setProperty("Tag", QStringLiteral("user0"));
    bConvertHex = true;
    if (preparedworkdir()) {
        sLogFile = logfilepath();
        sScratch = scratchfilepath();
        std::error_code ignored;
        std::filesystem::remove(sLogFile, ignored);
        if (const std::string finished = finishinterruptedcopy(sScratch); !finished.empty())
            dialogs().messagebox(this, towidget(finished), Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
        if (const std::string undone = rollbackinplaceedits(sScratch.parent_path()); !undone.empty())
            dialogs().messagebox(this, towidget(undone), Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
    }
    settabstops(List1, kTabStops);
    settabstops(List2, kTabStops);
    loadreplist(false);
    if (!sCommand.empty()) {
        Text1->setText(towidget(sCommand));
        cmd_Click(2);
        if (List1->count() == 0)
            chkIncludeSubs_Click();
        if (List1->count() > 0) {
            // The first line becomes the current one without being selected:
            // a selection would narrow the next run to that file.
            List1->setCurrentIndex(List1->model()->index(0, 0));
            List1->selectionModel()->clearSelection();
            List1_DblClick();
        }
    } else {
        cmd_Click(2);
    }
}

void Form1::closeEvent(QCloseEvent* event)
{
    Form_Unload();
    event->accept();
}

void Form1::Form_Unload()
{
    // The program ends at once; a walk or run in hand stops at its next
    // yield, leaving the file in hand as it was.
    windowHost->bCancel = true;
    QCoreApplication::quit();
}

void Form1::mnuExit_Click()
{
    close();
}

void Form1::cmd_Click(int Index)
{
    switch (Index) {
    case 0:
    case 1:
        if (busy())
            return;
        saverep(std::string());
        if (List1->count() == 0)
            cmd_Click(2);
        findinfiles(fromwidget(Text2->text()), Index == 1);
        break;
    case 2:
        if (!busy())
            listing();
        break;
    case 3:
        windowHost->bCancel = true;
        break;
    default:
        break;
    }
}

void Form1::listing()
{
    BusyScope scope(nBusy);
    List1->clear();
    std::error_code ec;
    const std::filesystem::path cwd = std::filesystem::current_path(ec);
    const std::string mask = expandmask(fromwidget(Text1->text()), cwd);
    Text1->setText(towidget(mask));
    const std::string baseDir = basedirfor(mask);
    lblDir->setText(towidget(baseDir));
    lblDir->adjustSize();
    windowHost->beginwork();
    listfiles(mask, chkIncludeSubs->isChecked(), baseDir, *windowHost);
    windowHost->flush();
    List1->raise();
}

void Form1::findinfiles(const std::string& sFind, bool bReplace)
{
    if (busy())
        return;
    BusyScope scope(nBusy);
    RunRequest request;
    request.sFind = sFind;
    request.sReplaceText = fromwidget(Text3->text());
    request.bReplace = bReplace;
    request.bMatchCase = chkCase->isChecked();
    request.bAsk = chkAsk->isChecked();
    request.bConvertHex = bConvertHex;
    request.nLogMode = nLogMode;
    request.sLogFile = sLogFile;
    request.sScratch = sScratch;
    request.baseDir = fromwidget(lblDir->text());
    request.bReadAhead = true;
    const int count = List1->count();
    request.lines.reserve(static_cast<std::size_t>(count));
    request.selected.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i) {
        const QListWidgetItem* line = List1->item(i);
        request.lines.push_back(fromwidget(line->text()));
        request.names.push_back(line->data(kRealNameRole).toByteArray().toStdString());
        request.selected.push_back(line->isSelected());
    }
    if (!sFind.empty())
        sLastFind = sFind;
    windowHost->beginwork();
    brindlex::findinfiles(request, *windowHost);
    windowHost->flush();
}

void Form1::chkIncludeSubs_Click()
{
    cmd_Click(2);
}

void Form1::lblDir_Click()
{
    if (busy())
        return;
    std::string answer = fromwidget(dialogs().inputbox(this, QStringLiteral("Directory?"),
                                                       towidget(std::string(sTitle)), lblDir->text()));
    if (answer.empty())
        return;
    if (answer.back() != '/')
        answer += '/';
    Text1->setText(towidget(answer + filepart(fromwidget(Text1->text()))));
    cmd_Click(2);
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
        List1->clear();
    if (!enter)
        return false;
    if (box == Text1) {
        cmd_Click(2);
        selectalltext(Text2);
    } else if (box == Text2) {
        cmd_Click(0);
        selectalltext(Text3);
    } else {
        cmd_Click(1);
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

void Form1::settabstops(QListWidget* lstList, const std::string& sStops)
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

void Form1::mnuConvertHex_Click()
{
    bConvertHex = !bConvertHex;
}

void Form1::mnuopt_Click()
{
    mnuOptLog[0]->setChecked((nLogMode & kLogFinds) != 0);
    mnuOptLog[1]->setChecked((nLogMode & kLogReplaces) != 0);
    mnuConvertHex->setChecked(bConvertHex);
}

void Form1::mnuOptLog_Click(int Index)
{
    if (Index == 0 || Index == 1) {
        const int bit = Index == 0 ? kLogFinds : kLogReplaces;
        if (mnuOptLog[static_cast<std::size_t>(Index)]->isChecked())
            nLogMode &= ~bit;
        else
            nLogMode |= bit;
    }
    mnuopt_Click();
}

void Form1::mnuOptViewLog_Click()
{
    // A log that doesn't exist opens nothing, and says nothing.
    std::error_code ec;
    if (!sLogFile.empty() && std::filesystem::is_regular_file(sLogFile, ec))
        dialogs().shellopen(QString::fromStdString(sLogFile.string()));
}

void Form1::mnuoptKillLog_Click()
{
    std::error_code ignored;
    if (!sLogFile.empty())
        std::filesystem::remove(sLogFile, ignored);
}

void Form1::mnuHelp_Click()
{
    const std::string crlf2 = std::string(sCRLF) + std::string(sCRLF);
    const std::string text =
        "Brindlex allows simple but effective direct batch editing of binary or ASCII files." + crlf2 +
        "To indicate non-ASCII code, use standard WEB hexidecimal notation: " + crlf2 +
        "%0D is <CR>, %0A is <LF>, so %0D%0A is <CR><LF>" + crlf2 +
        "SHIFT-CLICK or CTRL-CLICK on the first list selects specific files to modify. " + crlf2 +
        "Double-Clicking on either list allows editing of the file.";
    dialogs().messagebox(this, towidget(text), Buttons::Ok, Icon::None, towidget(std::string(sTitle)));
}

void Form1::loadreplist(bool bShowMessage)
{
    const std::vector<RepItem> items = brindlex::loadreplist(sIniFile, nRepCount);
    // The hit list is the rebuild's working list: what it showed is gone.
    List2->clear();
    fillrepmenu(mnuRepl, mnuRep, items, this, [this](int Index) { mnuRep_Click(Index); });
    if (bShowMessage) {
        // Below the sets stand "-" and "&New", and for a file of the user's
        // the two list runs.
        const std::size_t below = isdefaultfile(sIniFile.string()) ? 2 : 4;
        dialogs().messagebox(this, towidget(loadedmessage(items.size() - below, sIniFile.string())), Buttons::Ok,
                             Icon::None, towidget(std::string(sTitle)));
    }
}

void Form1::saverep(const std::string& sName)
{
    const NameQuestion ask = [this](const std::string& prompt, const std::string& defaultAnswer) {
        return fromwidget(dialogs().inputbox(this, towidget(prompt), towidget(std::string(sTitle)),
                                             towidget(defaultAnswer)));
    };
    Error failed;
    const std::optional<std::string> key = brindlex::saverep(
        sName, fromwidget(Text2->text()), fromwidget(Text3->text()), sIniFile, nRepCount, ask, &failed);
    if (!key)
        return;
    mnuRepl->setProperty("Tag", towidget(*key));
    // The menu comes from what the file holds: a set not saved isn't there.
    loadreplist(false);
    if (failed)
        dialogs().messagebox(this, towidget(notsavedmessage(*key, sIniFile.string())), Buttons::Ok, Icon::None,
                             towidget(std::string(sTitle)), towidget(reasontext(failed)));
}

void Form1::mnuRep_Click(int Index)
{
    if (busy() || Index < 0 || static_cast<std::size_t>(Index) >= mnuRep.size())
        return;
    const RepItem clicked = repitem(mnuRep[static_cast<std::size_t>(Index)]);
    const RepAction action = repaction(clicked.tag);
    if (action == RepAction::New) {
        if (Text2->text().isEmpty())
            dialogs().messagebox(this, towidget(std::string(kFillInMessage)), Buttons::Ok, Icon::None,
                                 towidget(std::string(sTitle)));
        else
            saverep(fromwidget(mnuRepl->property("Tag").toString()));
        return;
    }
    windowHost->bCancel = false;
    // The pair of a set goes into the boxes, and its name becomes current.
    auto takeset = [this](const RepItem& item, const RepPair& pair) {
        mnuRepl->setProperty("Tag", towidget(item.caption));
        Text2->setText(towidget(pair.find));
        Text3->setText(towidget(pair.replace));
    };
    if (action == RepAction::Pick) {
        takeset(clicked, splitset(clicked.tag));
        return;
    }
    // A list run over the sets above "-": each runs to its end before the
    // next; Cancel ends the run in hand and the list with it.
    const int button = action == RepAction::ReplaceAll ? 1 : 0;
    listrun(
        repitems(mnuRep), [this] { return windowHost->bCancel; },
        [&](const RepItem& item, const RepPair& pair) {
            takeset(item, pair);
            cmd_Click(button);
        });
}

void Form1::mnuOpenRepFile_Click()
{
    if (busy())
        return;
    // File names go to and from the dialog in the file system's encoding.
    const QString chosen = dialogs().openfile(this, QFile::decodeName(QByteArray::fromStdString(sIniFile.string())),
                                              QStringLiteral("*.ini"), QStringLiteral("ini"));
    if (chosen.isEmpty())
        return;
    sIniFile = QFile::encodeName(chosen).toStdString();
    loadreplist(true);
}

List2Hit Form1::currententry(const QListWidget* list) const
{
    const QListWidgetItem* line = list->currentRow() < 0 ? nullptr : list->currentItem();
    if (!line)
        return {};
    List2Hit entry = readlist2line(fromwidget(line->text()));
    const QVariant real = line->data(kRealNameRole);
    if (real.isValid())
        entry.sName = real.toByteArray().toStdString();
    return entry;
}

void Form1::mnuFile_Click()
{
    const std::string s = sEditor == "vellumix" ? "vellumix -p" : sEditor;
    const std::string name1 = currententry(List1).sName;
    const std::string name2 = currententry(List2).sName;
    mnuEdit->setText(towidget("&Edit " + name1 + " using " + sEditor));
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
    std::string commandline = sEditor + " " + sPath;
    std::vector<std::string> args{sPath};
    if (sEditor == "vellumix" && !sPosition.empty()) {
        commandline += " -p " + sPosition;
        args.insert(args.end(), {"-p", sPosition});
    }
    const Error error = dialogs().startprogram(editorprogram(sEditor, exeDir), args);
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
    {
        // A long dump yields like a run, and Cancel ends it with the sheet
        // cut short.
        BusyScope scope(nBusy);
        windowHost->beginwork();
        windowHost->enablecontrols(false);
        std::int64_t lPos = 1;
        dumpints(nSize, nCols, sIn, sOut, lPos, *windowHost);
        windowHost->enablecontrols(true);
    }
    dialogs().shellopen(QFile::decodeName(QByteArray::fromStdString(sOut.string())));
}

std::string Form1::fullname(const std::string& sName) const
{
    return fromwidget(lblDir->text()) + sName;
}

void Form1::showviewer()
{
    if (!form2) {
        ViewerHost& host = *this;
        form2 = std::make_unique<Form2>(view, host);
    }
    form2->open();
}

void Form1::List1_DblClick()
{
    const List2Hit entry = currententry(List1);
    if (entry.sName.empty())
        return;
    view.sViewFile = fullname(entry.sName);
    if (view.nViewWidth == 0)
        view.nViewWidth = 8;
    view.lViewPos = 1;
    showviewer();
}

void Form1::openhit()
{
    const List2Hit hit = currententry(List2);
    if (hit.sName.empty())
        return;
    view.sViewFile = fullname(hit.sName);
    if (view.nViewWidth == 0)
        view.nViewWidth = 10;
    view.lViewHit = hit.lPos;
    view.lViewPos = std::max<std::int64_t>(1, view.lViewHit - 2 * static_cast<std::int64_t>(view.nViewWidth));
    showviewer();
}

void Form1::List2_Click()
{
    if (List2->currentRow() < 0)
        return;
    openhit();
    activateWindow();
    List2->setFocus();
}

void Form1::List2_DblClick()
{
    if (List2->currentRow() >= 0)
        openhit();
}

// The arrow keys and their kin in List2 are clicks on the line they reach.
void Form1::List2_KeyWalk(const QEvent* event)
{
    if (event->type() == QEvent::KeyPress)
        nRowBeforeKey = List2->currentRow();
    else if (event->type() == QEvent::KeyRelease && !static_cast<const QKeyEvent*>(event)->isAutoRepeat()
             && List2->currentRow() != nRowBeforeKey)
        List2_Click();
}

int Form1::hitcount() const
{
    return List2->count();
}

int Form1::currenthit() const
{
    return List2->currentRow();
}

void Form1::sethit(int row)
{
    List2->setCurrentRow(row);
    if (row >= 0)
        openhit();
}

void Form1::findfromviewer(const std::string& pattern)
{
    Text2->setText(towidget(pattern));
    findinfiles(pattern, false);
    if (List2->count() == 0)
        return;
    List2->setCurrentRow(-1);
    List2->setCurrentRow(0);
    List2_Click();
}

}  // namespace brindlex::gui
