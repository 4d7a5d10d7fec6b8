// Start-up: what Form_Load leaves behind, with and without a command line,
// and the window's surface as it opens.
#include <QCoreApplication>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>

#include "form1fixture.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

class Startup : public QObject {
    Q_OBJECT

private slots:
    void emptyCommandListsTheCurrentDirectory();
    void commandLine_data();
    void commandLine();
    void oldLogIsDeletedAndWorkDirectoryMade();
    void editorDependsOnProgramBesideExecutable_data();
    void editorDependsOnProgramBesideExecutable();
    void stateAtStart();
    void captionsAndStates_data();
    void captionsAndStates();
    void coloursAndFont();
    void geometryFollowsTwips_data();
    void geometryFollowsTwips();
    void keyboardOrder();
};

void Startup::emptyCommandListsTheCurrentDirectory()
{
    World world;
    world.write(QStringLiteral("b.txt"), "12345");
    world.write(QStringLiteral("a.bin"), "");
    world.write(QStringLiteral("sub/c.txt"), "x");
    auto form = world.start();
    QCOMPARE(form->Text1->text(), world.files() + QStringLiteral("/*.*"));
    QCOMPARE(form->lblDir->text(), world.files() + QLatin1Char('/'));
    QCOMPARE(lines(form->List1), QStringList({sized("a.bin", 0), sized("b.txt", 5)}));
    QVERIFY(idle(*form));
    QVERIFY(!form->host().bCancel);
    QCOMPARE(form->List2->count(), 0);
    QVERIFY(world.dialogs.records.empty());
}

void Startup::commandLine_data()
{
    QTest::addColumn<QString>("command");
    QTest::addColumn<QString>("text1");     // relative to the files directory
    QTest::addColumn<QStringList>("list1");
    QTest::addColumn<int>("current");

    QTest::newRow("one existing file") << "b.txt" << "/b.txt" << QStringList{sized("b.txt", 3)} << 0;
    QTest::newRow("a directory") << "sub" << "/sub/*.*" << QStringList{sized("deep.txt", 4)} << 0;
    QTest::newRow("a mask") << "*.txt" << "/*.txt" << QStringList{sized("a.txt", 1), sized("b.txt", 3)} << 0;
    // The text goes into the mask box as it stands, blanks and quotes
    // included; it names nothing, so both listings find nothing.
    QTest::newRow("nothing by that name") << "\"no such\" file" << "/\"no such\" file" << QStringList{} << -1;
}

void Startup::commandLine()
{
    QFETCH(QString, command);
    QFETCH(QString, text1);
    QFETCH(QStringList, list1);
    QFETCH(int, current);
    World world;
    world.write(QStringLiteral("a.txt"), "a");
    world.write(QStringLiteral("b.txt"), "bbb");
    world.write(QStringLiteral("sub/deep.txt"), "dddd");
    auto form = world.start(fromwidget(command));
    QCOMPARE(form->Text1->text(), world.files() + text1);
    QCOMPARE(lines(form->List1), list1);
    QCOMPARE(form->List1->currentRow(), current);
    // The current line is no selection: a run still takes every file.
    QVERIFY(form->List1->selectedItems().isEmpty());
    QVERIFY(idle(*form));
}

void Startup::oldLogIsDeletedAndWorkDirectoryMade()
{
    World world;
    QVERIFY(!QFileInfo::exists(world.workdir()));
    auto first = world.start();
    QFileInfo dir(world.workdir());
    QVERIFY(dir.isDir());
    QCOMPARE(dir.permissions() & (QFile::ReadGroup | QFile::ReadOther | QFile::WriteOther), QFile::Permissions());

    writefile(world.logfile(), "from the last start\r\n");
    auto second = world.start();
    QVERIFY(!QFileInfo::exists(world.logfile()));
    QCOMPARE(QString::fromStdString(second->sLogFile.string()), world.logfile());
}

void Startup::editorDependsOnProgramBesideExecutable_data()
{
    QTest::addColumn<bool>("place");
    QTest::addColumn<QFile::Permissions>("mode");
    QTest::addColumn<QString>("editor");
    QTest::newRow("none") << false << QFile::Permissions() << "notepad";
    QTest::newRow("an executable file") << true << (QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner)
                                        << "vellumix";
    QTest::newRow("a file that can't run") << true << (QFile::ReadOwner | QFile::WriteOwner) << "notepad";
}

void Startup::editorDependsOnProgramBesideExecutable()
{
    QFETCH(bool, place);
    QFETCH(QFile::Permissions, mode);
    QFETCH(QString, editor);
    World world;
    const QString beside = QCoreApplication::applicationDirPath() + QStringLiteral("/vellumix");
    QVERIFY2(!QFileInfo::exists(beside), "a vellumix stands beside the test program already");
    if (place) {
        writefile(beside, "#!/bin/true\n");
        QFile::setPermissions(beside, mode);
    }
    auto form = world.start();
    QFile::remove(beside);
    QCOMPARE(QString::fromStdString(form->sEditor), editor);
}

void Startup::stateAtStart()
{
    World world;
    auto form = world.start();
    QCOMPARE(form->windowTitle(), QStringLiteral("Brindlex for Windows Version 2.0h"));
    QCOMPARE(form->mnuRepl->property("Tag").toString(), QStringLiteral("user0"));
    QCOMPARE(form->nViewMode, 4);
    QVERIFY(form->bConvertHex);
    QCOMPARE(form->nLogMode, 0);
    QVERIFY(form->sLastFind.empty());
    QCOMPARE(QString::fromStdString(form->sIniFile.string()),
             world.files().section(QLatin1Char('/'), 0, -2) + QStringLiteral("/config/brindlex/brindlex.ini"));
    QCOMPARE(QString::fromStdString(form->sScratch.string()), world.workdir() + QStringLiteral("/brindlex.tmp"));
    QCOMPARE(QApplication::focusWidget(), form->Text1);
}

void Startup::captionsAndStates_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("caption");
    QTest::addColumn<bool>("enabled");
    QTest::addColumn<int>("checked");  // -1: not checkable

    QTest::newRow("Label1") << "Label1" << "File(s)" << true << -1;
    QTest::newRow("Text2") << "Text2" << "" << true << -1;
    QTest::newRow("Text3") << "Text3" << "" << true << -1;
    QTest::newRow("cmd_0") << "cmd_0" << "Find All" << true << -1;
    QTest::newRow("cmd_1") << "cmd_1" << "Replace" << true << -1;
    QTest::newRow("cmd_2") << "cmd_2" << "Dir" << true << -1;
    QTest::newRow("cmd_3") << "cmd_3" << "Cancel" << false << -1;
    QTest::newRow("chkIncludeSubs") << "chkIncludeSubs" << "Include Subdirectories" << true << 0;
    QTest::newRow("chkCase") << "chkCase" << "Match Case" << true << 0;
    QTest::newRow("chkAsk") << "chkAsk" << "Ask on Replace" << true << 0;
    QTest::newRow("Label6") << "Label6" << "Find" << true << -1;
    QTest::newRow("Label3") << "Label3" << "Replace" << true << -1;
    QTest::newRow("Label2") << "Label2" << "Size" << true << -1;
    QTest::newRow("Label4") << "Label4" << "Location" << true << -1;
    QTest::newRow("mnuFile") << "mnuFile" << "&File" << true << -1;
    QTest::newRow("mnuOpenRepFile") << "mnuOpenRepFile" << "&Open Replacements File" << true << -1;
    QTest::newRow("mnuEdit") << "mnuEdit" << "&Edit Using Notepad" << true << -1;
    QTest::newRow("mnuEdit2") << "mnuEdit2" << "E&dit Using Notepad" << true << -1;
    QTest::newRow("mnuExit") << "mnuExit" << "E&xit" << true << -1;
    QTest::newRow("mnuopt") << "mnuopt" << "&Options" << true << -1;
    QTest::newRow("mnuConvertHex") << "mnuConvertHex" << "&Convert \"<nn>\" to \"%nn\" in Search" << true << 1;
    QTest::newRow("mnuOptLog0") << "mnuOptLog0" << "Log &Finds" << true << 0;
    QTest::newRow("mnuOptLog1") << "mnuOptLog1" << "Log &Replaces" << true << 0;
    QTest::newRow("mnuOptViewLog") << "mnuOptViewLog" << "&View Log File" << true << -1;
    QTest::newRow("mnuoptKillLog") << "mnuoptKillLog" << "&Delete Log File" << false << -1;
    QTest::newRow("mnuDumpInt4") << "mnuDumpInt4" << "Dump &Int4 File" << true << -1;
    QTest::newRow("mnuRepl") << "mnuRepl" << "&Replacements" << true << -1;
    QTest::newRow("mnuRep0") << "mnuRep0" << "Apple-To-PC" << true << -1;
    QTest::newRow("mnuHelp") << "mnuHelp" << "&Help" << true << -1;
}

void Startup::captionsAndStates()
{
    QFETCH(QString, name);
    QFETCH(QString, caption);
    QFETCH(bool, enabled);
    QFETCH(int, checked);
    World world;
    auto form = world.start();
    if (auto* action = form->findChild<QAction*>(name)) {
        QCOMPARE(action->text(), caption);
        QCOMPARE(action->isEnabled(), enabled);
        QCOMPARE(action->isCheckable() ? int(action->isChecked()) : -1, checked);
        QVERIFY(action->shortcut().isEmpty());
        return;
    }
    auto* widget = form->findChild<QWidget*>(name);
    QVERIFY2(widget, qPrintable(name));
    QCOMPARE(widget->property("text").toString(), caption);
    QCOMPARE(widget->isEnabled(), enabled);
    auto* box = qobject_cast<QCheckBox*>(widget);
    QCOMPARE(box ? int(box->isChecked()) : -1, checked);
}

void Startup::coloursAndFont()
{
    World world;
    auto form = world.start();
    const QColor darkRed(0xC0, 0, 0);
    for (QLabel* label : {form->lblDir, form->Label2, form->Label4, form->Label5})
        QCOMPARE(label->palette().color(QPalette::WindowText), darkRed);
    QCOMPARE(form->Label6->palette().color(QPalette::WindowText), QColor(Qt::black));
    QVERIFY(form->lblDir->font().underline());
    for (QWidget* w : std::initializer_list<QWidget*>{form->Text1, form->List1, form->cmd[0], form->Label1,
                                                      form->chkAsk}) {
        QVERIFY(w->font().bold());
        QCOMPARE(w->font().family(), QApplication::font().family());
    }
    for (QLabel* label : {form->Label1, form->Label3, form->Label6})
        QVERIFY(label->alignment() & Qt::AlignRight);
    // The menu bar's items in their order, Help last and with nothing under it.
    QStringList bar;
    for (QAction* action : form->menuBar()->actions())
        bar << action->objectName();
    QCOMPARE(bar, QStringList({"mnuFile", "mnuopt", "mnuRepl", "mnuHelp"}));
    QVERIFY(form->mnuHelp->menu() == nullptr);
}

void Startup::geometryFollowsTwips_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QRect>("twips");
    QTest::newRow("Text1") << "Text1" << QRect(1125, 270, 4000, 285);
    QTest::newRow("Text3") << "Text3" << QRect(1125, 1410, 4000, 285);
    QTest::newRow("cmd_3") << "cmd_3" << QRect(5355, 1860, 1050, 285);
    QTest::newRow("Label1") << "Label1" << QRect(-360, 315, 1410, 240);
    QTest::newRow("List1") << "List1" << QRect(135, 2385, 6480, 1980);
    QTest::newRow("List2") << "List2" << QRect(120, 4785, 6495, 1980);
    QTest::newRow("Label4") << "Label4" << QRect(4850, 4560, 1410, 240);
}

void Startup::geometryFollowsTwips()
{
    QFETCH(QString, name);
    QFETCH(QRect, twips);
    World world;
    auto form = world.start();
    auto* widget = form->findChild<QWidget*>(name);
    QVERIFY(widget);
    const int dx = form->logicalDpiX();
    const int dy = form->logicalDpiY();
    auto px = [](int t, int dpi) { return (t * dpi + 720) / 1440; };
    QCOMPARE(widget->geometry(),
             QRect(px(twips.x(), dx), px(twips.y(), dy), px(twips.width(), dx), px(twips.height(), dy)));
    QCOMPARE(form->centralWidget()->size(), QSize(px(6855, dx), px(7035, dy)));
}

void Startup::keyboardOrder()
{
    World world;
    auto form = world.start();
    const QStringList expected{"Text1", "Text2", "Text3", "cmd_0", "cmd_1", "cmd_2",
                               "List1", "List2", "chkCase", "chkAsk", "cmd_3", "chkIncludeSubs"};
    QStringList order;
    QWidget* w = form->Text1;
    do {
        if (expected.contains(w->objectName()))
            order << w->objectName();
        w = w->nextInFocusChain();
    } while (w != form->Text1 && order.size() < expected.size());
    QCOMPARE(order, expected);
}

QTEST_MAIN(Startup)
#include "startup.moc"
