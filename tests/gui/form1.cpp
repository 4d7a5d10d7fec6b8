// The window driven through its real widgets, each test in a world of its own.
#include <QtTest>
#include <QtWidgets>

#include <cerrno>
#include <cstring>

#include <unistd.h>

#include "engine/core/faultinject.h"
#include "gui/mainwindow/windowhost.h"
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

void opensets(World& world, Form1& form, const QByteArray& sets)
{
    world.dialogs.files = {writefile(setsini(world), sets)};
    ui(form).mnuOpenRepFile->trigger();
}

QString current(const Form1& form)
{
    return ui(form).mnuRepl->property("Tag").toString() + '|' + ui(form).Text2->text() + '|' + ui(form).Text3->text();
}

const QStringList kDefaultMenu{"Apple-To-PC|%0D==>%0D%0A", "-|", "&New|"};

struct StartRow { QString command, text1; QStringList list1; int listings; };
struct ListRow { QString mask; bool subdirs, cancel; QString base; QStringList list1; };
struct AskRow { QList<Reply> replies; QByteArray first, second; QString star, bar; };

}  // namespace

Q_DECLARE_METATYPE(StartRow)
Q_DECLARE_METATYPE(ListRow)
Q_DECLARE_METATYPE(AskRow)

class Form1Test : public QObject {
    Q_OBJECT

private slots:
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
        QCOMPARE(ui(*form).Text1->text(), world.file(row.text1));
        QCOMPARE(lines(ui(*form).List1), row.list1);
        QCOMPARE(cleared.count(), row.listings);
        // Current but not selected: a selection would narrow the next run.
        QCOMPARE(currentrow(ui(*form).List1), row.command.isEmpty() || row.list1.isEmpty() ? -1 : 0);
        QVERIFY(!ui(*form).List1->selectionModel()->hasSelection());
        QCOMPARE(QApplication::focusWidget(), ui(*form).Text1);
        QVERIFY(idle(*form));
    }

    void surface()
    {
        World world;
        auto form = world.start();
        // At rest only Cancel and Delete Log File are off, and of the marks
        // only Convert is on; the boxes show the mask and the directory.
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
        QCOMPARE(ui(*form).Text1->text() + '|' + ui(*form).lblDir->text(), world.file("*.*") + '|' + world.file(""));

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
        QTest::newRow("subdirectories, hidden ones passed over") << ListRow{"*.txt", true, false, "",
            {sized(".dot.txt", 0), sized("a.txt", 1), sized("sub/c.txt", 3), sized("sub/deeper/d.txt", 4)}};
        QTest::newRow("a directory by name") << ListRow{"sub", false, false, "sub/", {sized("c.txt", 3)}};
        // Cancel comes in at the first yield, in the top directory: the
        // subdirectories are never walked.
        QTest::newRow("Cancel") << ListRow{"*.txt", true, true, "", {}};
    }

    void listing()
    {
        QFETCH(ListRow, row);
        World world({{"a.txt", "a"}, {"B.TXT", "bb"}, {"notes.md", "m"}, {"sub/c.txt", "ccc"},
                     {"sub/deeper/d.txt", "dddd"}, {".hidden/h.txt", "h"}, {".dot.txt", ""}});
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

    void findAll()
    {
        World world({{"a.txt", "xaAx"}, {"b.txt", "AaA"}});
        auto form = world.start();
        // With the case to match and a line selected, the run keeps to that file.
        ui(*form).List1->selectionModel()->select(ui(*form).List1->model()->index(1, 0), QItemSelectionModel::Select);
        setrun(*form, "A", {}, true);
        form->host().requestcancel();   // left over from before: the run forgets it
        QTest::mouseClick(ui(*form).cmd[0], Qt::LeftButton);
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("b.txt", 1), hitline("b.txt", 3)}));
        QCOMPARE(ui(*form).Label5->text(), QStringLiteral("2"));
        QCOMPARE(readfile(world.file("b.txt")), QByteArray("AaA"));
        QVERIFY(idle(*form));
        QVERIFY(world.dialogs.records.empty());
    }

    void question_data()
    {
        QTest::addColumn<AskRow>("row");
        // A file with hits is rewritten (and starred) whatever the answers were.
        QTest::newRow("yes and no") << AskRow{{Reply::No, Reply::Yes, Reply::No, Reply::Yes}, "1a2z3A", "z", "*", "file 2 of 2"};
        // Cancel at the third hit: the file in hand stays as it was, its Yes
        // answers are lost, and the next file is never scanned.
        QTest::newRow("cancel") << AskRow{{Reply::Yes, Reply::Yes, Reply::Cancel}, "1a2A3A", "A", "", "file 1 of 2"};
    }

    void question()
    {
        QFETCH(AskRow, row);
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
        // The text ahead of the hit reaches back to the end of the last hit,
        // not to the file's start; the pattern shows as prepared (upper case).
        QCOMPARE(asked[1], one + " byte 4|Replace \r\n2\r\n\r\nA? 3A");
        for (const DialogRecord& record : world.dialogs.records)
            QVERIFY(record.buttons == Buttons::YesNoCancel && record.icon == Icon::Question);
    }

    // A full disk: the pair saved before the run and the file's new content
    // both fail to be written, and each box says why in its detailed text.
    void failureReasons()
    {
        World world({{"a.txt", "abc"}});
        auto form = world.start();
        const QByteArray ini = readfile(defaultini(world));
        const QStringList menu = shown(*form);
        setrun(*form, "b", "XY");
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
        QCOMPARE(readfile(world.file("a.txt")), QByteArray("abc"));
        QCOMPARE(lines(ui(*form).List1), QStringList({sized("a.txt", 3)}));
    }

    void hitListLimit_data()
    {
        QTest::addColumn<int>("hits");
        for (int hits : {999, 1000, 1001})
            QTest::newRow(qPrintable(QString::number(hits))) << hits;
    }

    void hitListLimit()
    {
        QFETCH(int, hits);
        // Spread over two files, so the limit holds across files.
        World world({{"a.txt", QByteArray(hits / 2, 'q')}, {"b.txt", QByteArray(hits - hits / 2, 'q')}});
        auto form = world.start();
        setrun(*form, "q", "Q", true);
        ui(*form).cmd[1]->click();
        QCOMPARE(rows(ui(*form).List2), std::min(hits, 1000));
        QCOMPARE(ui(*form).Label5->text(), hits < 1000 ? QString::number(hits) : QStringLiteral("more than 1000"));
        QCOMPARE(lines(ui(*form).List2).last(), hitline("b.txt", std::min(hits, 1000) - hits / 2));
        // Hits behind the list's end are replaced all the same.
        QCOMPARE(readfile(world.file("b.txt")), QByteArray(hits - hits / 2, 'Q'));
    }

    // More files than a list box of 16-bit counts holds: a Replace rewrites
    // every file with a hit, the last of the list too.
    void replaceOverManyFiles()
    {
        World world;
        constexpr int kFiles = 40000, kEvery = 5000;
        // Names of one file without a hit (links are made far faster than
        // files), and a file of its own for each hit.
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

    void enterChain()
    {
        World world({{"a.txt", "find me"}, {"b.md", "find me"}});
        auto form = world.start();
        ui(*form).Text1->clear();
        QTest::keyClicks(ui(*form).Text1, "*.txt");
        QCOMPARE(rows(ui(*form).List1), 0);
        // An Enter within 86 ms of the last move of the focus does its work
        // but leaves the focus where it is, as a key pressed at once after
        // another: Enter again until the focus moves on.
        auto enter = [](QLineEdit* box, QLineEdit* next) {
            return QTest::qWaitFor([&] {
                QTest::keyClick(box, Qt::Key_Return);
                return QApplication::focusWidget() == next;
            }, 5000);
        };
        QVERIFY(enter(ui(*form).Text1, ui(*form).Text2));
        QCOMPARE(lines(ui(*form).List1), QStringList({sized("a.txt", 7)}));
        ui(*form).Text2->setText("me");
        QVERIFY(enter(ui(*form).Text2, ui(*form).Text3));
        QCOMPARE(lines(ui(*form).List2), QStringList({hitline("a.txt", 6)}));
        ui(*form).Text3->setText("you");
        QTest::keyClick(ui(*form).Text3, Qt::Key_Return);
        QCOMPARE(readfile(world.file("a.txt")), QByteArray("find you"));
        QCOMPARE(readfile(world.file("b.md")), QByteArray("find me"));
    }

    void logOptions()
    {
        World world;
        const QString path = world.write("a.txt", "abcBe");
        auto form = world.start();
        // With the menu open, as a user clicks, since it sets its marks when
        // it opens. Gives nLogMode and the marks of Log Finds, Log Replaces
        // and Convert.
        auto click = [&](int index) {
            emit ui(*form).mnuopt->aboutToShow();
            ui(*form).mnuOptLog[std::size_t(index)]->trigger();
            return QStringLiteral("%1 %2%3%4").arg(form->state().nLogMode).arg(ui(*form).mnuOptLog[0]->isChecked())
                .arg(ui(*form).mnuOptLog[1]->isChecked()).arg(ui(*form).mnuConvertHex->isChecked());
        };
        // The first word of each log line; the lines themselves are checked
        // where the run is.
        auto heads = [&] {
            QStringList out;
            for (const QByteArray& line : readfile(logfile(world)).split('\n'))
                if (!line.isEmpty())
                    out << line.left(line.indexOf(' '));
            return out.join(' ');
        };
        QCOMPARE(click(0), QStringLiteral("1 101"));
        QCOMPARE(click(1), QStringLiteral("3 111"));
        setrun(*form, "b", "X");
        ui(*form).cmd[1]->click();
        QCOMPARE(readfile(path), QByteArray("aXcXe"));
        QCOMPARE(heads(), QStringLiteral("find replace found replaced found replaced"));
        QCOMPARE(click(0), QStringLiteral("2 011"));
        form->mnuoptKillLog_Click();
        QVERIFY(!QFileInfo::exists(logfile(world)));
        writefile(path, "abcBe");
        ui(*form).cmd[1]->click();
        QCOMPARE(heads(), QStringLiteral("replace replaced replaced"));
    }

    void menuOfEachFile()
    {
        World world;
        auto form = world.start();
        QCOMPARE(shown(*form), kDefaultMenu);
        opensets(world, *form, "[Replacements]\r\na=1==>2\r\nuser-7=x\r\nR&&D=&==>\r\nUser-3=\r\n");
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::OpenFile), QStringList({"*.ini|" + defaultini(world)}));
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
                 QStringList({"brindlex|4 replacements loaded from " + setsini(world) + "."}));
        QCOMPARE(shown(*form), QStringList({"a|1==>2", "user-7|x", "R&&D|&==>", "User-3|", "-|", "&New|",
                                            "Replace &All of the Above|DoAllReps",
                                            "Find &All of the Above|DoAllFinds"}));
        // Back to the default file: nothing of the longer menu stays.
        world.dialogs.files = {defaultini(world)};
        ui(*form).mnuOpenRepFile->trigger();
        QCOMPARE(shown(*form), kDefaultMenu);
    }

    void saveByName_data()
    {
        QTest::addColumn<bool>("run");
        QTest::addColumn<QString>("name");   // offered, taken, and the menu's Tag after
        QTest::newRow("at start") << false << "user0";
        QTest::newRow("after a run") << true << "User-8";
    }

    void saveByName()
    {
        QFETCH(bool, run);
        QFETCH(QString, name);
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
        QVERIFY(readfile(defaultini(world)).contains("\r\n" + name.toLatin1() + "=old%20text==>new\r\n"));
        QVERIFY(shown(*form).contains(name + "|old%20text==>new"));
        // The save rebuilt the menu, and the hits of the run went with it.
        QCOMPARE(rows(ui(*form).List2), 0);
    }

    void listRun()
    {
        World world;
        const QString a = world.write("a.txt", "a b c");
        auto form = world.start();
        opensets(world, *form, "[Replacements]\r\nA=a==>1\r\nB=b==>2\r\nC=c==>3\r\n");
        const QByteArray stored = readfile(setsini(world));
        form->host().requestcancel();   // a Cancel left over must not stop the next run
        click(*form, "Replace &All of the Above");
        QCOMPARE(readfile(a), QByteArray("1 2 3"));
        QCOMPARE(current(*form), QStringLiteral("C|c|3"));
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
    }
};

QTEST_MAIN(Form1Test)
#include "form1.moc"
