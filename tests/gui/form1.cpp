// The window driven through its real widgets, each test in a world of its own.
// Program starts and document openings go through the seam; where a start
// really happens, the editor is a stub script that writes down its arguments.
#include <QtTest>
#include <QtWidgets>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <tuple>
#include <vector>

#include <unistd.h>

#include "engine/core/faultinject.h"
#include "gui/commandline.h"
#include "gui/mainwindow/windowhost.h"
#include "gui/viewer/form2.h"
#include "gui/viewer/pagebox.h"
#include "support/guiworld.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

namespace {

// List lines built apart from the program's own formatting.
QString sized(const QString& name, int size) { return name + '\t' + QString::number(size).rightJustified(8, '0'); }
QString hitline(const QString& name, int pos) { return name + '\t' + QString::number(pos).rightJustified(9, '0'); }

// The default file of sets, a file of sets a test opens, and the run log.
QString defaultini(const World& world) { return world.at("config/brindlex/brindlex.ini"); }
QString setsini(const World& world) { return world.at("sets.ini"); }
QString logfile(const World& world) { return world.at("work/brindlex.log.txt"); }

void setrun(Form1& form, const QString& find, const QString& replace = {}, bool matchCase = false, bool ask = false)
{
    ui(form).Text2->setText(find);
    ui(form).Text3->setText(replace);
    ui(form).chkCase->setChecked(matchCase);
    ui(form).chkAsk->setChecked(ask);
}

// Queued, the press comes in at the next real yield of whatever runs then, as
// a user's click during a walk or run does.
void cancellater(Form1& form, bool byKey = false)
{
    QMetaObject::invokeMethod(&form, [&form, byKey] {
        byKey ? QTest::keyClick(&form, Qt::Key_Escape) : QTest::mouseClick(ui(form).cmd[3], Qt::LeftButton);
    }, Qt::QueuedConnection);
}

bool idle(const Form1& form)
{
    return ui(form).cmd[0]->isEnabled() && ui(form).cmd[2]->isEnabled() && !ui(form).cmd[3]->isEnabled()
           && ui(form).List1->isEnabled() && ui(form).Text1->isEnabled() && !form.busy();
}

// "caption|tag" per item; a misnamed item or a separator with text shows up,
// since the program finds its items by name.
QStringList shown(const Form1& form)
{
    QStringList out;
    const QList<QAction*> actions = ui(form).mnuRepl->actions();
    for (int i = 0; i < actions.size(); ++i) {
        const QAction* a = actions[i];
        if (a->objectName() != QStringLiteral("mnuRep%1").arg(i) || (a->isSeparator() && !a->text().isEmpty()))
            out << "bad item " + a->objectName();
        out << (a->isSeparator() ? QStringLiteral("-") : a->text()) + '|' + a->property("Tag").toString();
    }
    return out;
}

void click(const Form1& form, const QString& caption)
{
    for (QAction* a : ui(form).mnuRepl->actions())
        if (a->text() == caption)
            return a->trigger();
    QFAIL(qPrintable("no item " + caption));
}

QString current(const Form1& f) { return ui(f).mnuRepl->property("Tag").toString() + '|' + ui(f).Text2->text() + '|' + ui(f).Text3->text(); }

const QStringList kDefaultMenu{"Apple-To-PC|%0D==>%0D%0A", "-|", "&New|"};

void writebytes(const std::string& path, const std::string& bytes) { std::ofstream(path, std::ios::binary) << bytes; }

// A stub editor: its arguments, each ended by a NUL, go to `out`.
void writestub(const std::string& path, const std::string& out)
{
    writebytes(path, "#!/bin/sh\nprintf '%s\\0' \"$@\" > '" + out + ".part' && command -p mv '" + out + ".part' '" + out + "'\n");
    QFile::setPermissions(QString::fromStdString(path), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Stub editors beside the files: `exe` holds a vellumix when asked for,
// `bin` (first on PATH) a notepad. Paths as bytes, for names that aren't UTF-8.
// PATH and VISUAL are the test's to change: the world puts them back.
class EditorWorld : public World {
public:
    explicit EditorWorld(bool vellumix)
    {
        QDir(World::at({})).mkpath("exe");
        QDir(World::at({})).mkpath("bin");
        qputenv("PATH", (World::at("bin:") + path).toLocal8Bit());
        writestub(at("bin/notepad"), argsfile());
        if (vellumix)
            writestub(at("exe/vellumix"), argsfile());
    }
    ~EditorWorld()
    {
        qputenv("PATH", path);
        qputenv("VISUAL", visual);
        // Names that aren't UTF-8 are beyond QTemporaryDir's own removal.
        std::error_code ignored;
        std::filesystem::remove_all(at("files"), ignored);
    }

    std::string at(const std::string& relative) const { return World::at({}).toStdString() + relative; }
    std::string file(const std::string& name) const { return at("files/") + name; }
    std::string argsfile() const { return at("args"); }

    std::unique_ptr<Form1> start() { return World::start(true, {}, at("exe")); }

private:
    QByteArray path = qgetenv("PATH"), visual = qgetenv("VISUAL");
};

// Makes the line of `name` current in `list`; false when there is none.
bool makecurrent(QAbstractItemView* list, const std::string& name)
{
    setcurrentrow(list, findrow(list, towidget(name + '\t')));
    return currentrow(list) >= 0;
}

struct EditRow { QByteArray name; bool vellumix; int item; QString editor, message; bool gone = false; QByteArray visual = "vi"; QString others = {}; };
struct DumpStep { QStringList inputs; QString sheet; QByteArray content; QStringList messages; };

struct StartRow { QString command, text1; QStringList list1; int listings; };
struct ListRow { QString mask; bool subdirs, cancel; QString base; QStringList list1; };
struct AskRow { QList<Reply> replies; QByteArray first, second; QString star, bar; };

}  // namespace

Q_DECLARE_METATYPE(StartRow)
Q_DECLARE_METATYPE(ListRow)
Q_DECLARE_METATYPE(EditRow)

class Form1Test : public QObject {
    Q_OBJECT

private slots:
    // The window's command line: what is the program's own, what goes to
    // the toolkit, and what becomes the mask (as joined when the toolkit
    // takes nothing).
    void commandLine()
    {
        using A = CommandLine::Action;
        const std::tuple<std::vector<std::string>, A, std::string> rows[] = {
            {{}, A::Run, ""},
            {{"a b", "*.txt"}, A::Run, "a b *.txt"},
            {{"--help"}, A::Help, ""},
            {{"x", "--version"}, A::Version, "x"},
            {{"--", "-draft.bin"}, A::Run, "-draft.bin"},
            {{"--", "--help", "--"}, A::Run, "--help --"},
            {{"-odd", "--", "-x"}, A::Run, "-odd -x"},
        };
        for (const auto& [args, action, mask] : rows) {
            std::vector<std::string> storage = {"brindlex"};
            storage.insert(storage.end(), args.begin(), args.end());
            std::vector<char*> argv;
            for (std::string& arg : storage)
                argv.push_back(arg.data());
            const CommandLine line = readcommandline(static_cast<int>(argv.size()), argv.data());
            QVERIFY2(line.action == action && line.toolkitArgs.back() == nullptr, mask.c_str());
            QCOMPARE(joinmask(static_cast<int>(line.toolkitArgs.size()) - 1, line.toolkitArgs.data(), line.maskArgs), mask);
        }
    }

    void startup_data()
    {
        QTest::addColumn<StartRow>("row");
        QTest::newRow("no command") << StartRow{"", "*.*", {sized("a.txt", 1), sized("b.txt", 3)}, 1};
        QTest::newRow("one file") << StartRow{"b.txt", "b.txt", {sized("b.txt", 3)}, 1};
        // Blanks and quotes stay in the mask box as typed; finding nothing,
        // the start-up lists a second time.
        QTest::newRow("nothing by that name") << StartRow{"\"no such\" file", "\"no such\" file", {}, 2};
    }

    void startup()
    {
        QFETCH(StartRow, row);
        World world({{"a.txt", "a"}, {"b.txt", "bbb"}});
        writefile(logfile(world), "from the last start\r\n");
        auto form = world.start(false);
        // Every listing begins by emptying List1.
        QSignalSpy cleared(ui(*form).List1->model(), &QAbstractItemModel::modelReset);
        form->Form_Load(fromwidget(row.command));
        QCOMPARE(form->windowTitle(), QStringLiteral("Brindlex Version 2.0h"));
        QVERIFY(!QFileInfo::exists(logfile(world)));
        QCOMPARE(ui(*form).Text1->text() + '|' + ui(*form).lblDir->text(), world.file(row.text1) + '|' + world.file(""));
        QCOMPARE(lines(ui(*form).List1), row.list1);
        QCOMPARE(cleared.count(), row.listings);
        // Current but not selected: a selection would narrow the next run.
        QCOMPARE(currentrow(ui(*form).List1), row.command.isEmpty() || row.list1.isEmpty() ? -1 : 0);
        QVERIFY(!ui(*form).List1->selectionModel()->hasSelection());
        QCOMPARE(QApplication::focusWidget(), ui(*form).Text1);
        QVERIFY(idle(*form));
        // A file named on the command line opens in the viewer, rows of 8,
        // beside the window from its right edge, or as far right as the
        // screen lets it stand whole.
        QCOMPARE(form->viewer() && form->viewer()->isVisible(), row.command == "b.txt");
        if (row.command == "b.txt") {
            QVERIFY(form->viewstate().nViewWidth == 8 && form->viewer()->Text1->page() == "bbb");
            const QRect viewer = form->viewer()->frameGeometry(), screen = form->screen()->availableGeometry();
            QVERIFY(viewer.left() == form->frameGeometry().right() + 1 || viewer.right() == screen.right());
            QVERIFY(screen.contains(viewer) && viewer.top() == form->frameGeometry().top());
        }
        // At rest only Cancel and Delete Log File are off, and of the marks
        // only Convert is on.
        QSet<QString> off, checked;
        for (const QObject* o : form->findChildren<QObject*>()) {
            const QString name = o->objectName();
            if (!name.startsWith("cmd_") && !name.startsWith("mnu") && !name.startsWith("chk"))
                continue;
            if (!o->property("enabled").toBool())
                off << name;
            if (o->property("checked").toBool())
                checked << name;
        }
        QCOMPARE(off, QSet<QString>({"cmd_3", "mnuoptKillLog"}));
        QCOMPARE(checked, QSet<QString>({"mnuConvertHex"}));
        const QStringList order{"Text1", "Text2", "Text3", "cmd_0", "cmd_1", "cmd_2",
                                "List1", "List2", "chkCase", "chkAsk", "cmd_3", "chkIncludeSubs"};
        QStringList chain;
        for (QWidget* w = ui(*form).Text1; chain.size() < order.size(); w = w->nextInFocusChain())
            if (order.contains(w->objectName()))
                chain << w->objectName();
        QCOMPARE(chain, order);
    }

    void listing_data()
    {
        QTest::addColumn<ListRow>("row");
        QTest::newRow("a directory by name") << ListRow{"sub", false, false, "sub/", {sized("c.txt", 3)}};
        // Cancel comes in at the first yield, in the top directory: the
        // subdirectories are never walked.
        QTest::newRow("Cancel") << ListRow{"*.txt", true, true, "", {}};
    }

    void listing()
    {
        QFETCH(ListRow, row);
        World world({{"a.txt", "a"}, {"sub/c.txt", "ccc"}, {"sub/deeper/d.txt", "dddd"}});
        auto form = world.start();
        ui(*form).Text1->setText(world.file(row.mask));
        if (row.cancel)
            cancellater(*form);
        // The box lists at once when clicked; without it the Dir button lists.
        QTest::mouseClick(row.subdirs ? static_cast<QWidget*>(ui(*form).chkIncludeSubs) : ui(*form).cmd[2], Qt::LeftButton);
        QCOMPARE(ui(*form).chkIncludeSubs->isChecked(), row.subdirs);
        QCOMPARE(lines(ui(*form).List1), row.list1);
        QCOMPARE(ui(*form).lblDir->text(), world.file(row.base));
        QCOMPARE(form->host().cancelrequested(), row.cancel);
        QVERIFY(idle(*form));
    }

    void question()
    {
        const AskRow asks[] = {
            // A file with hits is rewritten (and starred) whatever the answers were.
            {{Reply::No, Reply::Yes, Reply::No, Reply::Yes}, "1a2z3A", "z", "*", "file 2 of 2"},
            // Cancel at the third hit: the file in hand stays as it was, its Yes
            // answers are lost, and the next file is never scanned.
            {{Reply::Yes, Reply::Yes, Reply::Cancel}, "1a2A3A", "A", "", "file 1 of 2"},
        };
        for (const AskRow& row : asks) {
            World world;
            const QString one = world.write("1.txt", "1a2A3A");
            const QString two = world.write("2.txt", "A");
            auto form = world.start();
            QTRY_VERIFY(!ui(*form).prgWork->isVisible());
            setrun(*form, "a", "z", false, true);
            world.dialogs.replies.assign(row.replies.begin(), row.replies.end());
            QStringList on;
            QString bar;   // how far the run is, as the bar below the surface says at the last question
            world.dialogs.onmessage = [&](const DialogRecord&) {
                bar = ui(*form).prgWork->isVisible() ? ui(*form).prgWork->text() : "hidden";
                if (world.dialogs.records.size() > 1)
                    return;
                for (QWidget* w : form->centralWidget()->findChildren<QWidget*>(Qt::FindDirectChildrenOnly))
                    if (w->isEnabled() && !qobject_cast<QLabel*>(w))
                        on << w->objectName();
                for (QAction* a : form->menuBar()->actions() + QList<QAction*>{ui(*form).mnuEdit})
                    if (a->isEnabled())
                        on << a->objectName();
            };
            ui(*form).cmd[1]->click();
            QCOMPARE(on, QStringList({"cmd_3", "mnuHelp"}));
            QCOMPARE(bar, row.bar);
            QTRY_VERIFY(!ui(*form).prgWork->isVisible());
            QCOMPARE(readfile(one), row.first);
            QCOMPARE(readfile(two), row.second);
            QCOMPARE(lines(ui(*form).List1), QStringList({sized("1.txt", 6) + row.star, sized("2.txt", 1) + row.star}));
            QCOMPARE(rows(ui(*form).List2), row.replies.size());
            QCOMPARE(form->host().cancelrequested(), row.star.isEmpty());
            QVERIFY(idle(*form));
            const QStringList asked = world.dialogs.seen(DialogRecord::Kind::Message);
            QCOMPARE(asked.size(), row.replies.size());
            // The engine's question, under the file and the hit's byte.
            QCOMPARE(asked[1], one + " byte 4|Replace \r\n2\r\n\r\nA? 3A");
            for (const DialogRecord& record : world.dialogs.records)
                QVERIFY(record.buttons == Buttons::YesNoCancel && record.icon == Icon::Question);
        }
    }

    void hitListLimit()
    {
        // Spread over two files, so the limit holds across files; hits behind
        // the list's end are replaced all the same.
        for (const int hits : {999, 1000, 1001}) {
            World world({{"a.txt", QByteArray(hits / 2, 'q')}, {"b.txt", QByteArray(hits - hits / 2, 'q')}});
            auto form = world.start();
            setrun(*form, "q", "Q", true);
            ui(*form).cmd[1]->click();
            QCOMPARE(rows(ui(*form).List2), std::min(hits, 1000));
            QCOMPARE(ui(*form).Label5->text(), hits < 1000 ? QString::number(hits) : QStringLiteral("more than 1000"));
            QCOMPARE(lines(ui(*form).List2).last(), hitline("b.txt", std::min(hits, 1000) - hits / 2));
            QCOMPARE(readfile(world.file("b.txt")), QByteArray(hits - hits / 2, 'Q'));
        }
    }

    // More files than a list box of 16-bit counts holds: a Replace rewrites
    // every file with a hit, the last of the list too.
    void replaceOverManyFiles()
    {
        World world;
        constexpr int kFiles = 40000, kEvery = 5000;
        // Links to one file without a hit (far faster made than files), and
        // a file of its own for each hit.
        const QByteArray none = QFile::encodeName(world.at("none"));
        writefile(world.at("none"), "none");
        for (int f = 0; f < kFiles; ++f) {
            const QString name = world.file(QStringLiteral("f%1").arg(f, 5, 10, QLatin1Char('0')));
            if (f % kEvery == kEvery - 1)
                writefile(name, "a hit");
            else
                QVERIFY(::link(none.constData(), QFile::encodeName(name).constData()) == 0);
        }
        auto form = world.start();
        QCOMPARE(rows(ui(*form).List1), kFiles);
        setrun(*form, "hit", "HIT", true);
        ui(*form).cmd[1]->click();
        QCOMPARE(ui(*form).Label5->text(), QString::number(kFiles / kEvery));
        for (int f = kEvery - 1; f < kFiles; f += kEvery)
            QCOMPARE(readfile(world.file(QStringLiteral("f%1").arg(f, 5, 10, QLatin1Char('0')))), QByteArray("a HIT"));
        QCOMPARE(lines(ui(*form).List1).last(), sized("f39999", 5) + '*');
        QCOMPARE(readfile(world.file("f39998")), QByteArray("none"));
    }

    void enterChainAndRuns()
    {
        World world({{"a.txt", "find me A"}, {"b.md", "find me"}, {"c.txt", "AaA"}});
        auto form = world.start();
        ui(*form).Text1->clear();
        QTest::keyClicks(ui(*form).Text1, "*.txt");
        QCOMPARE(rows(ui(*form).List1), 0);
        // An Enter within 86 ms of the focus's last move does its work but
        // keeps the focus where it is: Enter again until the focus moves on.
        auto enter = [](QLineEdit* box, QLineEdit* next) {
            return QTest::qWaitFor([&] {
                QTest::keyClick(box, Qt::Key_Return);
                return QApplication::focusWidget() == next;
            }, 5000);
        };
        QVERIFY(enter(ui(*form).Text1, ui(*form).Text2));
        QCOMPARE(lines(ui(*form).List1), QStringList({sized("a.txt", 9), sized("c.txt", 3)}));
        ui(*form).Text2->setText("me");
        QVERIFY(enter(ui(*form).Text2, ui(*form).Text3));
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("a.txt", 6)}));
        ui(*form).Text3->setText("you");
        QTest::keyClick(ui(*form).Text3, Qt::Key_Return);
        QCOMPARE(readfile(world.file("a.txt")), QByteArray("find you A"));
        QCOMPARE(readfile(world.file("b.md")), QByteArray("find me"));
        // With the case to match and a line selected, a run keeps to that file.
        ui(*form).List1->selectionModel()->select(ui(*form).List1->model()->index(1, 0), QItemSelectionModel::Select);
        setrun(*form, "A", {}, true);
        form->host().requestcancel();   // left over from before: the run forgets it
        QTest::mouseClick(ui(*form).cmd[0], Qt::LeftButton);
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("c.txt", 1), hitline("c.txt", 3)}));
        QCOMPARE(readfile(world.file("c.txt")), QByteArray("AaA"));
        QVERIFY(idle(*form));
        QVERIFY(world.dialogs.records.empty());
        // The log options, on that line's file.
        const QString path = world.file("c.txt");
        // With the menu open, which sets its marks: nLogMode and the marks of
        // Log Finds, Log Replaces and Convert.
        auto click = [&](int index) {
            emit ui(*form).mnuopt->aboutToShow();
            ui(*form).mnuOptLog[std::size_t(index)]->trigger();
            return QStringLiteral("%1 %2%3%4").arg(form->state().nLogMode).arg(ui(*form).mnuOptLog[0]->isChecked())
                .arg(ui(*form).mnuOptLog[1]->isChecked()).arg(ui(*form).mnuConvertHex->isChecked());
        };
        // The first word of each log line (the engine's tests check the rest).
        auto heads = [&] {
            QStringList out;
            for (const QByteArray& line : readfile(logfile(world)).split('\n'))
                if (!line.isEmpty())
                    out << line.left(line.indexOf(' '));
            return out.join(' ');
        };
        QCOMPARE(click(0), QStringLiteral("1 101"));
        QCOMPARE(click(1), QStringLiteral("3 111"));
        setrun(*form, "A", "X", true);
        ui(*form).cmd[1]->click();
        QCOMPARE(heads(), QStringLiteral("find replace found replaced found replaced"));
        QCOMPARE(click(0), QStringLiteral("2 011"));
        form->mnuoptKillLog_Click();
        QVERIFY(!QFileInfo::exists(logfile(world)));
        writefile(path, "AaA");
        ui(*form).cmd[1]->click();
        QCOMPARE(heads(), QStringLiteral("replace replaced replaced"));
    }

    void saveByName()
    {
        // The name offered and taken, and the menu's Tag after: at start and after a run.
        for (const auto& [run, name] : {std::pair{false, QStringLiteral("user0")}, {true, QStringLiteral("User-8")}}) {
            World world({{"a.txt", "old text"}});
            writefile(defaultini(world), "[Replacements]\r\nUser-7=q%20r\r\n");
            auto form = world.start();
            setrun(*form, "old text", "new");
            if (run)
                ui(*form).cmd[0]->click();
            QCOMPARE(rows(ui(*form).List2), int(run));
            click(*form, "&New");
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Input),
                     QStringList({"brindlex|Name for \r\n\r\nold text==>new\r\n\r\n?"}));
            QCOMPARE(world.dialogs.records.front().defaultText, name);
            QCOMPARE(current(*form), name + "|old text|new");
            QVERIFY(shown(*form).contains(name + "|old%20text==>new"));
            // The save rebuilt the menu, and the hits of the run went with it.
            QCOMPARE(rows(ui(*form).List2), 0);
            // A full disk: the pair saved before a run and the file's new content
            // both fail to be written, and each box says why in its detailed text.
            world.dialogs.records.clear();
            const QByteArray ini = readfile(defaultini(world));
            const QStringList menu = shown(*form);
            setrun(*form, "old", "XY");
            brindlex::faultinject::arm({.alwaysStep = "write", .alwaysCode = ENOSPC});
            ui(*form).cmd[1]->click();
            brindlex::faultinject::disarm();
            const QString full = QString::fromLatin1(std::strerror(ENOSPC));
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
                     QStringList({"brindlex|The set Previous could not be saved in " + defaultini(world) + '|'
                                      + defaultini(world) + ": " + full,
                                  "brindlex|Cannot replace! ERROR in file lengths for " + world.file("a.txt") + '|'
                                      + world.file("a.txt") + ": " + full}));
            QCOMPARE(readfile(defaultini(world)), ini);
            QCOMPARE(shown(*form), menu);
            QCOMPARE(readfile(world.file("a.txt")), QByteArray("old text"));
            QCOMPARE(lines(ui(*form).List1), QStringList({sized("a.txt", 8)}));
        }
    }

    // A file of sets makes the menu and runs in file order; back to the
    // default file, nothing of the longer menu stays.
    void setsMenuAndRun()
    {
        World world;
        const QString a = world.write("a.txt", "a b c");
        auto form = world.start();
        QCOMPARE(shown(*form), kDefaultMenu);
        world.dialogs.files = {writefile(setsini(world), "[Replacements]\r\nuser-7=x\r\nA=a==>1\r\nB=b==>2\r\nR&&D=c==>3&\r\nUser-3=\r\n")};
        ui(*form).mnuOpenRepFile->trigger();
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::OpenFile), QStringList({"*.ini|" + defaultini(world)}));
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
                 QStringList({"brindlex|5 replacements loaded from " + setsini(world) + "."}));
        QCOMPARE(shown(*form), QStringList({"user-7|x", "A|a==>1", "B|b==>2", "R&&D|c==>3&", "User-3|", "-|", "&New|",
                                            "Replace &All of the Above|DoAllReps", "Find &All of the Above|DoAllFinds"}));
        const QByteArray stored = readfile(setsini(world));
        form->host().requestcancel();   // a Cancel left over must not stop the next run
        click(*form, "Replace &All of the Above");
        QCOMPARE(readfile(a), QByteArray("1 2 3&"));
        QCOMPARE(current(*form), QStringLiteral("R&&D|c|3&"));
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("a.txt", 5)}));
        // Esc during b's run: b's file in hand stays as it was, c never runs.
        writefile(a, "a b c");
        ui(*form).chkAsk->setChecked(true);
        world.dialogs.onmessage = [&](const DialogRecord& record) {
            if (record.text.startsWith("Replace ") && ui(*form).Text2->text() == "b")
                cancellater(*form, true);
        };
        click(*form, "Replace &All of the Above");
        QCOMPARE(readfile(a), QByteArray("1 b c"));
        QCOMPARE(current(*form), QStringLiteral("B|b|2"));
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("a.txt", 3)}));
        QVERIFY(form->host().cancelrequested());
        QVERIFY(idle(*form));
        QCOMPARE(readfile(setsini(world)), stored);   // no run writes into a file the user opened
        world.dialogs.files = {defaultini(world)};
        ui(*form).mnuOpenRepFile->trigger();
        QCOMPARE(shown(*form), kDefaultMenu);
    }

    // Each name reaches the editor as one argument, byte for byte, and no
    // part of it runs; one row per reason a name could be taken apart or
    // run, or a start could go wrong. "@" stands for the world's directory.
    void editorstart_data()
    {
        QTest::addColumn<EditRow>("row");
        QTest::newRow("shell syntax, vellumix at a hit")
            << EditRow{"it's \"q\";touch pwned;$(touch pwned)`touch pwned`", true, 2, "vellumix", ""};
        QTest::newRow("blanks, inside and at the ends") << EditRow{" two  words ", false, 1, "notepad", ""};
        QTest::newRow("newline, in a subdirectory; notepad drops the position")
            << EditRow{"sub/line\nbreak", false, 2, "notepad", ""};
        QTest::newRow("not UTF-8") << EditRow{"\xff\xfe\x80.bin", true, 2, "vellumix", ""};
        // A file "x" stands beside it: the line's first field is another file.
        QTest::newRow("tab after x, vellumix on a file") << EditRow{"x\ty", true, 1, "vellumix", ""};
        QTest::newRow("an editor that is gone") << EditRow{"a.txt", true, 2, "vellumix",
            "brindlex|Error starting vellumix @/files/a.txt -p 7:\r\nNo such file or directory", true};
        // Without a notepad the menu names the editor that runs: a graphical
        // $VISUAL, else the first usual desktop editor (never a terminal one),
        // else xdg-open; without any, the message says what was looked for.
        QTest::newRow("a graphical VISUAL") << EditRow{"a.txt", false, 1, "mousepad", "", false, "mousepad", "kate vi"};
        QTest::newRow("kate before mousepad") << EditRow{"a.txt", false, 1, "kate", "", false, "vi", "mousepad vi"};
        QTest::newRow("xdg-open") << EditRow{"a.txt", false, 1, "xdg-open", ""};
        QTest::newRow("no editor") << EditRow{"a.txt", false, 1, "", "brindlex|No editor found to open @/files/a.txt:\r\n"
            "looked for notepad, $VISUAL (vi: not a desktop editor), gnome-text-editor, gedit, kate, kwrite, mousepad, "
            "pluma, xed, featherpad, leafpad, geany and xdg-open on PATH."};
    }

    void editorstart()
    {
        QFETCH(EditRow, row);
        EditorWorld world(row.vellumix);
        const std::string bytes = row.name.toStdString();
        QDir().mkpath(QString::fromStdString(world.file("sub")));
        writebytes(world.file(bytes), "abcdefHIT");
        writebytes(world.file("x"), "other");
        world.dialogs.launch = true;
        if (!row.vellumix && row.editor != "notepad") {
            QFile::remove(QString::fromStdString(world.at("bin/notepad")));
            qputenv("PATH", QByteArray::fromStdString(world.at("bin")));
            qputenv("VISUAL", row.visual);
            for (const QString& name : (row.editor + ' ' + row.others).split(' ', Qt::SkipEmptyParts))
                writestub(world.at("bin/") + name.toStdString(), world.argsfile());
        }
        auto form = world.start();
        ui(*form).chkIncludeSubs->click();
        ui(*form).Text2->setText("HIT");
        ui(*form).cmd[0]->click();
        QVERIFY(makecurrent(ui(*form).List1, bytes) && makecurrent(ui(*form).List2, bytes));
        if (row.gone)
            QFile::remove(QString::fromStdString(world.at("exe/vellumix")));
        emit ui(*form).mnuFile->aboutToShow();
        const std::string editor = (row.editor.isEmpty() ? "notepad" : row.editor.toStdString());
        QCOMPARE(fromwidget(ui(*form).mnuEdit->text()), "&Edit " + bytes + " using " + editor);
        QCOMPARE(fromwidget(ui(*form).mnuEdit2->text()), "E&dit " + bytes + " using " + editor + (row.vellumix ? " -p" : ""));
        (row.item == 1 ? ui(*form).mnuEdit : ui(*form).mnuEdit2)->trigger();
        const QString at = QString::fromStdString(world.at("")).chopped(1);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
                 row.message.isEmpty() ? QStringList() : QStringList({QString(row.message).replace('@', at)}));
        if (row.message.isEmpty()) {
            QTRY_VERIFY(QFileInfo::exists(QString::fromStdString(world.argsfile())));
            const bool position = row.vellumix && row.item == 2;
            QCOMPARE(readfile(QString::fromStdString(world.argsfile())).toStdString(),
                     world.file(bytes) + '\0' + (position ? std::string("-p\0" "7\0", 5) : ""));
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Start).size(), 1);
            QVERIFY(world.dialogs.records.back().title.endsWith('/' + row.editor));
        }
        QVERIFY(!QFileInfo::exists("pwned") && !QFileInfo::exists(QString::fromStdString(world.at("pwned"))));
    }

    // The numbers go on across dumps, also past one stopped at a prompt; a
    // sheet that was made opens, one stopped at a question opens nothing.
    void dump()
    {
        EditorWorld world(false);
        writebytes(world.file("a.bin"), std::string("\x02\x01\xff\xff", 4));
        auto form = world.start();
        const QString work = QString::fromStdString(world.at("work/"));
        const QString created = "brindlex|File " + work + "%1 was created.";
        const DumpStep steps[] = {
            {{"2", "1"}, "001.xls", QByteArray(" 1 \t258\r\n 2 \t-1\r\n"), {created.arg("001.xls")}},
            {{""}, "", {}, {}},
            {{"4", "zero"}, "", {}, {}},
            {{"4.4", "2"}, "004.xls", QByteArray(" 1 \t-65278\t\r\n"), {created.arg("004.xls")}},
            {{"2", "-3"}, "", {}, {"brindlex|The number of columns must be 1 or more."}},
            {{"2", "1"}, "", {}, {"brindlex|Another file has taken the name"}},   // a link at 006.xls
            {{"2", "2"}, "007.xls", QByteArray(" 1 \t258\t-1\r\n"), {created.arg("007.xls")}},
        };
        QVERIFY(makecurrent(ui(*form).List1, "a.bin"));
        writebytes((work + "other").toStdString(), "old");
        std::filesystem::create_hard_link((work + "other").toStdString(), (work + "006.xls").toStdString());
        for (const DumpStep& step : steps) {
            world.dialogs.records.clear();
            world.dialogs.inputs = {step.inputs.begin(), step.inputs.end()};
            ui(*form).mnuDumpInt4->trigger();
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Input).first(), QStringLiteral("brindlex|Integer size (2 or 4)?"));
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message), step.messages);
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::ShellOpen),
                     step.sheet.isEmpty() ? QStringList() : QStringList({'|' + work + step.sheet}));
            if (!step.content.isEmpty())
                QCOMPARE(readfile(work + step.sheet), step.content);
        }
        QVERIFY(!QFileInfo::exists(work + "002.xls") && !QFileInfo::exists(work + "005.xls"));

        // Cancel, pressed while a long dump yields, cuts its sheet short.
        writebytes(world.file("a.bin"), std::string(std::size_t{16} << 20, '\0'));
        world.dialogs.inputs = {"2", "1"};
        cancellater(*form);
        ui(*form).mnuDumpInt4->trigger();
        // The whole sheet, 8 Mi rows of at least 7 bytes, would be over 56 MiB.
        QVERIFY(QFileInfo(work + "008.xls").size() < qint64{8} << 20);
        QVERIFY(ui(*form).cmd[0]->isEnabled() && !ui(*form).cmd[3]->isEnabled() && !form->busy());

        // Without a current line the menu names no file, and nothing is asked.
        world.dialogs.records.clear();
        ui(*form).List1->setCurrentIndex(QModelIndex());
        emit ui(*form).mnuFile->aboutToShow();
        QCOMPARE(ui(*form).mnuEdit->text() + '|' + ui(*form).mnuEdit2->text(), "&Edit  using notepad|E&dit  using notepad");
        QVERIFY(!ui(*form).mnuEdit->isEnabled() && !ui(*form).mnuEdit2->isEnabled() && !ui(*form).mnuDumpInt4->isEnabled());
        form->mnuDumpInt4_Click();
        QVERIFY(world.dialogs.records.empty());
    }
};

QTEST_MAIN(Form1Test)
#include "form1.moc"
