// The Options menu (the log's two switches, the angle notation, viewing and
// deleting the log), the log's lines after a run, the help box, the text
// boxes' selection on focus, the lists' tab stops, and leaving the program.
#include <QMenu>

#include "form1fixture.h"
#include "mainwindow/tabstopdelegate.h"
#include "pattern/notation.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

class Options : public QObject {
    Q_OBJECT

private slots:
    void logSwitches();
    void convertHexMarkFollowsWhenMenuOpens();
    void logLinesOfAReplace_data();
    void logLinesOfAReplace();
    void viewLog();
    void deleteLogItemStaysOff();
    void helpBox();
    void selectAllGuard_data();
    void selectAllGuard();
    void tabStops_data();
    void tabStops();
    void columnsLineUpUnderTheirLabels();
    void exitClosesTheWindow();
};

namespace {

QString marks(const Form1& form)
{
    return QStringLiteral("%1%2%3")
        .arg(int(form.mnuOptLog[0]->isChecked()))
        .arg(int(form.mnuOptLog[1]->isChecked()))
        .arg(int(form.mnuConvertHex->isChecked()));
}

void openoptions(Form1& form)
{
    emit form.mnuopt->aboutToShow();
}

}  // namespace

void Options::logSwitches()
{
    World world;
    auto form = world.start();
    struct Step {
        QAction* item;
        int mode;
        const char* marks;
    };
    const Step steps[] = {
        {form->mnuOptLog[0], 1, "101"},
        {form->mnuOptLog[1], 3, "111"},
        {form->mnuOptLog[0], 2, "011"},
        {form->mnuOptLog[1], 0, "001"},
    };
    for (const Step& step : steps) {
        openoptions(*form);
        step.item->trigger();
        QCOMPARE(form->nLogMode, step.mode);
        QCOMPARE(marks(*form), QLatin1String(step.marks));
    }
    // Any other index only refreshes the marks.
    form->mnuOptLog_Click(2);
    QCOMPARE(form->nLogMode, 0);
}

void Options::convertHexMarkFollowsWhenMenuOpens()
{
    World world;
    auto form = world.start();
    openoptions(*form);
    QCOMPARE(marks(*form), QStringLiteral("001"));
    form->mnuConvertHex->trigger();
    QVERIFY(!form->bConvertHex);
    QCOMPARE(marks(*form), QStringLiteral("001"));
    openoptions(*form);
    QCOMPARE(marks(*form), QStringLiteral("000"));
    form->mnuConvertHex->trigger();
    QVERIFY(form->bConvertHex);
    openoptions(*form);
    QCOMPARE(marks(*form), QStringLiteral("001"));
}

void Options::logLinesOfAReplace_data()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("nothing") << 0;
    QTest::newRow("finds") << 1;
    QTest::newRow("replaces") << 2;
    QTest::newRow("both") << 3;
}

void Options::logLinesOfAReplace()
{
    QFETCH(int, mode);
    World world;
    const QString path = world.write(QStringLiteral("a.txt"), "abcB e");
    auto form = world.start();
    for (int bit = 0; bit < 2; ++bit) {
        if (mode & (1 << bit)) {
            openoptions(*form);
            form->mnuOptLog[std::size_t(bit)]->trigger();
        }
    }
    QCOMPARE(form->nLogMode, mode);
    form->Text2->setText(QStringLiteral("b"));
    form->Text3->setText(QStringLiteral("X"));
    form->cmd_Click(1);
    QCOMPARE(readfile(path), QByteArray("aXcX e"));

    // Every line of a replace with both switches on, in order, with the bit
    // that turns it on. The pattern is logged folded, a hit with the file's
    // own bytes from the hit on, a replacement followed by the bytes behind
    // the match.
    struct Line {
        int bit;
        const char* label;
        int pos;   // -1: the short form
        const char* text;
    };
    const Line all[] = {
        {1, "find   ", -1, "B"},        {2, "replace with  ", -1, "X"}, {1, "found   ", 2, "bcB e"},
        {2, "replaced", 2, "XcB e"},    {1, "found   ", 4, "B e"},      {2, "replaced", 4, "X e"},
    };
    std::string expected;
    for (const Line& line : all) {
        if (!(mode & line.bit))
            continue;
        expected += line.label;
        expected += ' ';
        if (line.pos >= 0)
            expected += fromwidget(path) + QStringLiteral(" %1: ").arg(line.pos, 7, 10, QLatin1Char('0')).toStdString();
        expected += brindlex::encodebytes(line.text, 100, true) + "\r\n";
    }
    if (expected.empty())
        QVERIFY(!QFileInfo::exists(world.logfile()));
    else
        QCOMPARE(readfile(world.logfile()), QByteArray::fromStdString(expected));
}

void Options::viewLog()
{
    World world;
    world.write(QStringLiteral("a.txt"), "a");
    auto form = world.start();
    form->mnuOptViewLog->trigger();
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::ShellOpen), QStringList());
    openoptions(*form);
    form->mnuOptLog[0]->trigger();
    form->Text2->setText(QStringLiteral("a"));
    form->cmd_Click(0);
    QVERIFY(QFileInfo::exists(world.logfile()));
    form->mnuOptViewLog->trigger();
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::ShellOpen), QStringList({"|" + world.logfile()}));
}

void Options::deleteLogItemStaysOff()
{
    World world;
    world.write(QStringLiteral("a.txt"), "a");
    auto form = world.start();
    QVERIFY(!form->mnuoptKillLog->isEnabled());
    form->Text2->setText(QStringLiteral("a"));
    form->cmd_Click(0);  // a run switches the controls off and on
    openoptions(*form);
    QVERIFY(!form->mnuoptKillLog->isEnabled());

    form->mnuOptLog[0]->trigger();
    form->cmd_Click(0);
    QVERIFY(QFileInfo::exists(world.logfile()));
    form->mnuoptKillLog_Click();
    QVERIFY(!QFileInfo::exists(world.logfile()));
    form->mnuoptKillLog_Click();  // a second time: nothing there, nothing said
    QCOMPARE(form->nLogMode, 1);
    form->cmd_Click(0);
    QVERIFY(QFileInfo::exists(world.logfile()));
    QVERIFY(world.dialogs.records.empty());
}

void Options::helpBox()
{
    World world;
    auto form = world.start();
    form->mnuHelp->trigger();
    QCOMPARE(world.dialogs.records.size(), std::size_t(1));
    const DialogRecord& box = world.dialogs.records.front();
    QCOMPARE(box.kind, DialogRecord::Kind::Message);
    QCOMPARE(box.buttons, Buttons::Ok);
    QCOMPARE(box.title, QStringLiteral("brindlex"));
    QCOMPARE(box.text,
             QStringLiteral("Brindlex allows simple but effective direct batch editing of binary or ASCII files."
                            "\r\n\r\n"
                            "To indicate non-ASCII code, use standard WEB hexidecimal notation: "
                            "\r\n\r\n"
                            "%0D is <CR>, %0A is <LF>, so %0D%0A is <CR><LF>"
                            "\r\n\r\n"
                            "SHIFT-CLICK or CTRL-CLICK on the first list selects specific files to modify. "
                            "\r\n\r\n"
                            "Double-Clicking on either list allows editing of the file."));
}

void Options::selectAllGuard_data()
{
    QTest::addColumn<double>("lastFocus");   // days from now; 0: never
    QTest::addColumn<int>("length");
    QTest::addColumn<int>("selected");
    QTest::newRow("first call") << 0.0 << 12 << 12;
    QTest::newRow("long ago") << -1.0 << 1500 << 1000;
    QTest::newRow("within the guard") << 0.5 << 12 << 0;
}

void Options::selectAllGuard()
{
    QFETCH(double, lastFocus);
    QFETCH(int, length);
    QFETCH(int, selected);
    World world;
    auto form = world.start();
    form->Text3->setText(QString(length, QLatin1Char('x')));
    form->Text3->deselect();
    const double now = double(QDateTime::currentMSecsSinceEpoch()) / 86'400'000.0;
    form->dLastFocus = lastFocus == 0 ? 0 : now + lastFocus;
    form->selectalltext(form->Text3);
    QCOMPARE(form->Text3->selectedText().size(), selected);
    QCOMPARE(form->Text3->selectionStart(), selected ? 0 : -1);
}

void Options::tabStops_data()
{
    QTest::addColumn<QString>("stops");
    QTest::addColumn<QList<int>>("parsed");
    QTest::newRow("three") << "180,190,200" << QList<int>{180, 190, 200};
    QTest::newRow("none") << "" << QList<int>{};
    QTest::newRow("an empty one") << "180,,200" << QList<int>{180, 0, 200};
    QTest::newRow("a trailing comma") << "5,6," << QList<int>{5, 6};
    QTest::newRow("text counts as 0") << "x,7" << QList<int>{0, 7};
    QString many;
    QList<int> first21;
    for (int i = 1; i <= 25; ++i) {
        many += QString::number(i * 10) + QLatin1Char(',');
        if (i <= 21)
            first21 << i * 10;
    }
    QTest::newRow("at most 21") << many << first21;
}

void Options::tabStops()
{
    QFETCH(QString, stops);
    QFETCH(QList<int>, parsed);
    World world;
    auto form = world.start();
    form->settabstops(form->List2, fromwidget(stops));
    auto* delegate = dynamic_cast<TabStopDelegate*>(form->List2->itemDelegate());
    QVERIFY(delegate);
    QCOMPARE(QList<int>(delegate->tabstops().begin(), delegate->tabstops().end()), parsed);
}

void Options::columnsLineUpUnderTheirLabels()
{
    World world;
    world.write(QStringLiteral("short"), "1");
    world.write(QStringLiteral("a rather longer name.txt"), "1234567890");
    auto form = world.start();
    QCOMPARE(form->List1->count(), 2);
    for (QListWidget* list : {form->List1, form->List2}) {
        auto* delegate = dynamic_cast<TabStopDelegate*>(list->itemDelegate());
        QVERIFY(delegate);
        QCOMPARE(QList<int>(delegate->tabstops().begin(), delegate->tabstops().end()), QList<int>({180, 190, 200}));
    }
    // The second field of every line starts at the same place, the first
    // stop: 45 average characters in.
    const QFontMetrics metrics(form->List1->font());
    auto* delegate = dynamic_cast<TabStopDelegate*>(form->List1->itemDelegate());
    for (int i = 0; i < form->List1->count(); ++i)
        QCOMPARE(delegate->fieldstarts(form->List1->item(i)->text(), metrics).at(1), 45 * metrics.averageCharWidth());
    // ... which is under the heading label, within a character.
    const int column = form->List1->viewport()->mapTo(form->centralWidget(), QPoint(0, 0)).x()
                       + 45 * metrics.averageCharWidth();
    QVERIFY2(std::abs(column - form->Label2->x()) <= metrics.averageCharWidth(),
             qPrintable(QStringLiteral("column %1, label %2").arg(column).arg(form->Label2->x())));
    const int column2 = form->List2->viewport()->mapTo(form->centralWidget(), QPoint(0, 0)).x()
                        + 45 * metrics.averageCharWidth();
    QVERIFY(std::abs(column2 - form->Label4->x()) <= metrics.averageCharWidth());
}

void Options::exitClosesTheWindow()
{
    World world;
    auto form = world.start();
    QVERIFY(form->isVisible());
    form->mnuExit->trigger();
    QTRY_VERIFY(!form->isVisible());
}

QTEST_MAIN(Options)
#include "options.moc"
