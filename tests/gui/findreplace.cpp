// Find All and Replace from the window: what List2, Label5 and List1 show,
// the files afterwards, the question at each hit, the messages, Cancel, the
// limit of the hit list, and the Enter chain from the mask to a replace.
#include <QMetaObject>
#include <QMenu>

#include "form1fixture.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

class FindReplace : public QObject {
    Q_OBJECT

private slots:
    void findAll_data();
    void findAll();
    void emptyPatternShowsNoneFound();
    void selectedLinesOnly();
    void findOnEmptyListListsFirst();
    void replace_data();
    void replace();
    void question_data();
    void question();
    void controlsDuringRun();
    void noSecondRunInsideARun();
    void errorOpening();
    void cannotReplace();
    void cancelDuringReplace();
    void cancelDuringFind_data();
    void cancelDuringFind();
    void hitListLimit_data();
    void hitListLimit();
    void enterChain();
};

namespace {

// The pattern and the options of a run, set through the window.
void setrun(Form1& form, const QString& find, const QString& replace = QString(), bool matchCase = false,
            bool ask = false)
{
    form.Text2->setText(find);
    form.Text3->setText(replace);
    form.chkCase->setChecked(matchCase);
    form.chkAsk->setChecked(ask);
}

}  // namespace

void FindReplace::findAll_data()
{
    QTest::addColumn<QString>("pattern");
    QTest::addColumn<bool>("matchCase");
    QTest::addColumn<bool>("convertHex");
    QTest::addColumn<QStringList>("hits");
    QTest::addColumn<QString>("status");

    // a.txt: "xaAx\r\n", b.txt: "AAAA", c.txt: "<0D>", d.txt: nothing to find
    QTest::newRow("letters in any case")
        << "a" << false << true
        << QStringList{hitline("a.txt", 2), hitline("a.txt", 3), hitline("b.txt", 1), hitline("b.txt", 2),
                       hitline("b.txt", 3), hitline("b.txt", 4)}
        << "6";
    QTest::newRow("overlapping hits") << "AA" << true << true
                                      << QStringList{hitline("b.txt", 1), hitline("b.txt", 2), hitline("b.txt", 3)}
                                      << "3";
    QTest::newRow("match case") << "a" << true << true << QStringList{hitline("a.txt", 2)} << "1";
    QTest::newRow("angle code") << "<0D>" << false << true << QStringList{hitline("a.txt", 5)} << "1";
    QTest::newRow("angle code taken literally") << "<0D>" << false << false << QStringList{hitline("c.txt", 1)}
                                                << "1";
    QTest::newRow("percent codes") << "%0d%0A" << false << true << QStringList{hitline("a.txt", 5)} << "1";
    // A code makes the compare exact whatever the box says.
    QTest::newRow("code forces match case") << "%41" << false << true
                                            << QStringList{hitline("a.txt", 3), hitline("b.txt", 1),
                                                           hitline("b.txt", 2), hitline("b.txt", 3),
                                                           hitline("b.txt", 4)}
                                            << "5";
    QTest::newRow("no hit anywhere") << "zzz" << false << true << QStringList{} << "0";
}

void FindReplace::findAll()
{
    QFETCH(QString, pattern);
    QFETCH(bool, matchCase);
    QFETCH(bool, convertHex);
    QFETCH(QStringList, hits);
    QFETCH(QString, status);
    World world;
    world.write(QStringLiteral("a.txt"), "xaAx\r\n");
    world.write(QStringLiteral("b.txt"), "AAAA");
    world.write(QStringLiteral("c.txt"), "<0D>");
    world.write(QStringLiteral("d.txt"), "nothing");
    auto form = world.start();
    if (!convertHex)
        form->mnuConvertHex->trigger();
    QCOMPARE(form->bConvertHex, convertHex);
    setrun(*form, pattern, QString(), matchCase);
    QTest::mouseClick(form->cmd[0], Qt::LeftButton);
    QCOMPARE(lines(form->List2), hits);
    QCOMPARE(form->Label5->text(), status);
    QCOMPARE(form->sLastFind, fromwidget(pattern));
    QVERIFY(idle(*form));
    QVERIFY(!form->host().bCancel);
    QCOMPARE(readfile(world.file(QStringLiteral("b.txt"))), QByteArray("AAAA"));
    QVERIFY(world.dialogs.records.empty());
}

void FindReplace::emptyPatternShowsNoneFound()
{
    World world;
    world.write(QStringLiteral("a.txt"), "aaa");
    auto form = world.start();
    setrun(*form, QStringLiteral("a"));
    form->cmd_Click(0);
    QCOMPARE(form->List2->count(), 3);
    setrun(*form, QString());
    form->cmd_Click(0);
    QCOMPARE(form->List2->count(), 0);
    QCOMPARE(form->Label5->text(), QStringLiteral("none found"));
    QCOMPARE(form->sLastFind, std::string("a"));
}

void FindReplace::selectedLinesOnly()
{
    World world;
    for (const char* name : {"1.txt", "2.txt", "3.txt", "4.txt"})
        world.write(QLatin1String(name), "x");
    auto form = world.start();
    form->List1->item(1)->setSelected(true);
    form->List1->item(3)->setSelected(true);
    setrun(*form, QStringLiteral("x"));
    form->cmd_Click(0);
    QCOMPARE(lines(form->List2), QStringList({hitline("2.txt", 1), hitline("4.txt", 1)}));
}

void FindReplace::findOnEmptyListListsFirst()
{
    World world;
    world.write(QStringLiteral("a.txt"), "x");
    auto form = world.start();
    QTest::keyClick(form->Text1, Qt::Key_End);
    QTest::keyClicks(form->Text1, QStringLiteral("t"));  // "/*.*t": nothing listed yet
    QCOMPARE(form->List1->count(), 0);
    form->Text1->setText(QStringLiteral("*.txt"));
    setrun(*form, QStringLiteral("x"));
    form->cmd_Click(0);
    QCOMPARE(lines(form->List1), QStringList({sized("a.txt", 1)}));
    QCOMPARE(lines(form->List2), QStringList({hitline("a.txt", 1)}));
}

void FindReplace::replace_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("find");
    QTest::addColumn<QString>("replace");
    QTest::addColumn<QByteArray>("after");
    QTest::addColumn<QStringList>("hits");

    QTest::newRow("longer") << QByteArray("a-a") << "a" << "xyz" << QByteArray("xyz-xyz")
                            << QStringList{hitline("f.txt", 1), hitline("f.txt", 3)};
    QTest::newRow("shorter") << QByteArray("abcabc") << "abc" << "Q" << QByteArray("QQ")
                             << QStringList{hitline("f.txt", 1), hitline("f.txt", 4)};
    QTest::newRow("deleted") << QByteArray("1\r\n2\r\n") << "%0D" << "" << QByteArray("1\n2\n")
                             << QStringList{hitline("f.txt", 2), hitline("f.txt", 5)};
    QTest::newRow("restarts behind the match") << QByteArray("AAAA") << "AA" << "AAA" << QByteArray("AAAAAA")
                                               << QStringList{hitline("f.txt", 1), hitline("f.txt", 3)};
    QTest::newRow("bytes by code") << QByteArray("a\0b", 3) << "<00>" << "%FF%FE" << QByteArray("a\xff\xfe" "b")
                                   << QStringList{hitline("f.txt", 2)};
}

void FindReplace::replace()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, find);
    QFETCH(QString, replace);
    QFETCH(QByteArray, after);
    QFETCH(QStringList, hits);
    World world;
    world.write(QStringLiteral("f.txt"), content);
    world.write(QStringLiteral("untouched.txt"), "nothing here");
    auto form = world.start();
    setrun(*form, find, replace);
    QTest::mouseClick(form->cmd[1], Qt::LeftButton);
    QCOMPARE(readfile(world.file(QStringLiteral("f.txt"))), after);
    QCOMPARE(lines(form->List2), hits);
    QCOMPARE(lines(form->List1),
             QStringList({sized("f.txt", int(after.size())) + QLatin1Char('*'), sized("untouched.txt", 12)}));
    QCOMPARE(form->Label5->text(), QString::number(hits.size()));
    QVERIFY(world.dialogs.records.empty());
}

void FindReplace::question_data()
{
    QTest::addColumn<QList<int>>("replies");   // Reply values, in order
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<QString>("list1");
    QTest::addColumn<int>("hitlines");
    QTest::addColumn<QString>("status");
    QTest::addColumn<bool>("cancelled");

    const int yes = int(Reply::Yes), no = int(Reply::No), cancel = int(Reply::Cancel);
    QTest::newRow("yes to all") << QList<int>{yes, yes, yes, yes} << QByteArray("1z2z3z") << QByteArray("z")
                                << "1.txt\t00000006*" << 4 << "4" << false;
    QTest::newRow("no keeps the file's bytes") << QList<int>{no, yes, no, no} << QByteArray("1a2z3A")
                                               << QByteArray("A") << "1.txt\t00000006*" << 4 << "4" << false;
    // Cancel at the third hit: the file in hand stays as it was, its two
    // Yes answers are lost, and the next file is never scanned.
    QTest::newRow("cancel") << QList<int>{yes, yes, cancel} << QByteArray("1a2A3A") << QByteArray("A")
                            << "1.txt\t00000006" << 3 << "3" << true;
}

void FindReplace::question()
{
    QFETCH(QList<int>, replies);
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(QString, list1);
    QFETCH(int, hitlines);
    QFETCH(QString, status);
    QFETCH(bool, cancelled);
    World world;
    const QString one = world.write(QStringLiteral("1.txt"), "1a2A3A");
    const QString two = world.write(QStringLiteral("2.txt"), "A");
    auto form = world.start();
    setrun(*form, QStringLiteral("a"), QStringLiteral("z"), false, true);
    for (int r : replies)
        world.dialogs.replies.push_back(Reply(r));
    form->cmd_Click(1);
    QCOMPARE(readfile(one), first);
    QCOMPARE(readfile(two), second);
    QCOMPARE(form->List1->item(0)->text(), list1);
    QCOMPARE(form->List2->count(), hitlines);
    QCOMPARE(form->Label5->text(), status);
    QCOMPARE(form->host().bCancel, cancelled);
    QVERIFY(idle(*form));

    // The text ahead of the hit reaches back to the end of the last hit; the
    // pattern is shown as prepared (upper case), with what follows it.
    const QStringList asked = world.dialogs.seen(DialogRecord::Kind::Message);
    const QStringList expected{
        one + " byte 2|Replace \r\n1\r\n\r\nA? 2A3A",
        one + " byte 4|Replace \r\n2\r\n\r\nA? 3A",
        one + " byte 6|Replace \r\n3\r\n\r\nA? ",
        two + " byte 1|Replace \r\n\r\n\r\nA? ",
    };
    QCOMPARE(asked, expected.mid(0, replies.size()));
    for (const DialogRecord& record : world.dialogs.records) {
        QCOMPARE(record.buttons, Buttons::YesNoCancel);
        QCOMPARE(record.icon, Icon::Question);
    }
}

void FindReplace::controlsDuringRun()
{
    World world;
    world.write(QStringLiteral("a.txt"), "a");
    auto form = world.start();
    setrun(*form, QStringLiteral("a"), QStringLiteral("b"), false, true);
    QStringList on;
    QStringList off;
    world.dialogs.onmessage = [&](const DialogRecord&) {
        const QList<QObject*> all{form->Text1, form->Text2, form->Text3, form->cmd[0], form->cmd[1], form->cmd[2],
                                  form->cmd[3], form->List1, form->List2, form->chkCase, form->chkAsk,
                                  form->chkIncludeSubs, form->mnuFile->menuAction(), form->mnuEdit,
                                  form->mnuopt->menuAction(), form->mnuRepl->menuAction(), form->mnuHelp};
        for (QObject* o : all)
            (o->property("enabled").toBool() ? on : off) << o->objectName();
    };
    form->cmd_Click(1);
    QCOMPARE(on, QStringList({"cmd_3", "mnuHelp"}));
    QCOMPARE(off.size(), 15);
    QVERIFY(idle(*form));
    QVERIFY(form->mnuFile->menuAction()->isEnabled() && form->mnuEdit->isEnabled()
            && form->mnuRepl->menuAction()->isEnabled() && form->mnuopt->menuAction()->isEnabled());
}

void FindReplace::noSecondRunInsideARun()
{
    World world;
    world.write(QStringLiteral("a.txt"), "a-a");
    world.write(QStringLiteral("b.txt"), "b");
    auto form = world.start();
    setrun(*form, QStringLiteral("a"), QStringLiteral("z"), false, true);
    bool tried = false;
    world.dialogs.onmessage = [&](const DialogRecord&) {
        if (tried)
            return;
        tried = true;
        // What a viewer's Goto or a stray event could start at a yield.
        form->Text2->setText(QStringLiteral("b"));
        form->findinfiles("b", false);
        form->cmd_Click(0);
        form->cmd_Click(2);
        form->lblDir_Click();
    };
    form->cmd_Click(1);
    QVERIFY(tried);
    QCOMPARE(readfile(world.file(QStringLiteral("a.txt"))), QByteArray("z-z"));
    QCOMPARE(lines(form->List2), QStringList({hitline("a.txt", 1), hitline("a.txt", 3)}));
    QCOMPARE(form->List1->count(), 2);
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Input), QStringList());
}

void FindReplace::errorOpening()
{
    World world;
    const QString gone = world.write(QStringLiteral("a.txt"), "x");
    world.write(QStringLiteral("b.txt"), "x");
    auto form = world.start();
    QFile::remove(gone);
    setrun(*form, QStringLiteral("x"), QStringLiteral("y"));
    form->cmd_Click(1);
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
             QStringList({"brindlex|Error opening " + gone + ":\r\nNo such file or directory"}));
    QVERIFY(!QFileInfo::exists(gone));
    QCOMPARE(readfile(world.file(QStringLiteral("b.txt"))), QByteArray("y"));
    QCOMPARE(lines(form->List2), QStringList({hitline("b.txt", 1)}));
}

void FindReplace::cannotReplace()
{
    World world;
    const QString grows = world.write(QStringLiteral("a.txt"), "x-x");
    auto form = world.start();
    setrun(*form, QStringLiteral("x"), QStringLiteral("y"), false, true);
    // The file changes under the run while the question is up: the new
    // content no longer fits what the run read, and the file is kept.
    world.dialogs.onmessage = [&](const DialogRecord& record) {
        if (record.text.startsWith(QStringLiteral("Replace ")))
            writefile(grows, "x-x and more");
    };
    world.dialogs.replies = {Reply::Yes, Reply::Yes, Reply::Ok};
    form->cmd_Click(1);
    const QStringList seen = world.dialogs.seen(DialogRecord::Kind::Message);
    QVERIFY2(!seen.isEmpty(), "no message");
    QCOMPARE(seen.last(), "brindlex|Cannot replace! ERROR in file lengths for " + grows);
    QCOMPARE(readfile(grows), QByteArray("x-x and more"));
}

void FindReplace::cancelDuringFind_data()
{
    QTest::addColumn<bool>("byKey");
    QTest::newRow("Cancel button") << false;
    QTest::newRow("Esc key") << true;
}

void FindReplace::cancelDuringFind()
{
    QFETCH(bool, byKey);
    World world;
    world.write(QStringLiteral("a.txt"), "x-x-x");
    world.write(QStringLiteral("b.txt"), "x");
    auto form = world.start();
    QVERIFY(QTest::qWaitForWindowActive(form.get()));
    setrun(*form, QStringLiteral("x"));
    // Waiting in the event queue, the press comes in at the run's first
    // yield: behind the first hit of the first file.
    QMetaObject::invokeMethod(
        form.get(),
        [&form, byKey] {
            if (byKey)
                QTest::keyClick(form.get(), Qt::Key_Escape);
            else
                QTest::mouseClick(form->cmd[3], Qt::LeftButton);
        },
        Qt::QueuedConnection);
    form->cmd_Click(0);
    QVERIFY(form->host().bCancel);
    QCOMPARE(lines(form->List2), QStringList({hitline("a.txt", 1)}));
    QCOMPARE(form->Label5->text(), QStringLiteral("1"));
    QVERIFY(idle(*form));
    // Esc does nothing while Cancel is off.
    form->host().bCancel = false;
    QTest::keyClick(form.get(), Qt::Key_Escape);
    QVERIFY(!form->host().bCancel);
}

void FindReplace::cancelDuringReplace()
{
    World world;
    const QString one = world.write(QStringLiteral("1.txt"), "a-a");
    const QString two = world.write(QStringLiteral("2.txt"), "a-a-a");
    const QString three = world.write(QStringLiteral("3.txt"), "a");
    auto form = world.start();
    setrun(*form, QStringLiteral("a"), QStringLiteral("b"), false, true);
    // Yes to every question; at the first question of the second file a
    // press of Cancel waits in the queue and comes in at the next yield.
    world.dialogs.onmessage = [&](const DialogRecord& record) {
        if (record.title == two + QStringLiteral(" byte 1"))
            QMetaObject::invokeMethod(
                form.get(), [&form] { QTest::mouseClick(form->cmd[3], Qt::LeftButton); }, Qt::QueuedConnection);
    };
    form->cmd_Click(1);
    QVERIFY(form->host().bCancel);
    QCOMPARE(readfile(one), QByteArray("b-b"));   // finished before: rewritten
    QCOMPARE(readfile(two), QByteArray("a-a-a")); // in hand: as it was
    QCOMPARE(readfile(three), QByteArray("a"));   // never reached
    QCOMPARE(lines(form->List1), QStringList({sized("1.txt", 3) + QLatin1Char('*'), sized("2.txt", 5),
                                              sized("3.txt", 1)}));
    QCOMPARE(lines(form->List2), QStringList({hitline("1.txt", 1), hitline("1.txt", 3), hitline("2.txt", 1)}));
    QCOMPARE(form->Label5->text(), QStringLiteral("1"));
    QVERIFY(idle(*form));
}

void FindReplace::hitListLimit_data()
{
    QTest::addColumn<int>("hits");
    QTest::addColumn<int>("listed");
    QTest::addColumn<QString>("status");
    QTest::newRow("999") << 999 << 999 << "999";
    QTest::newRow("1000") << 1000 << 1000 << "more than 1000";
    QTest::newRow("1500") << 1500 << 1000 << "more than 1000";
}

void FindReplace::hitListLimit()
{
    QFETCH(int, hits);
    QFETCH(int, listed);
    QFETCH(QString, status);
    World world;
    // The hits spread over two files, so the limit holds across files.
    world.write(QStringLiteral("a.txt"), QByteArray(hits / 2, 'q'));
    world.write(QStringLiteral("b.txt"), QByteArray(hits - hits / 2, 'q'));
    auto form = world.start();
    setrun(*form, QStringLiteral("q"), QStringLiteral("Q"), true);
    form->cmd_Click(1);
    QCOMPARE(form->List2->count(), listed);
    QCOMPARE(form->Label5->text(), status);
    QCOMPARE(form->List2->item(listed - 1)->text(),
             listed <= hits / 2 ? hitline("a.txt", listed) : hitline("b.txt", listed - hits / 2));
    // Hits behind the list's end are replaced all the same.
    QCOMPARE(readfile(world.file(QStringLiteral("b.txt"))), QByteArray(hits - hits / 2, 'Q'));
}

void FindReplace::enterChain()
{
    World world;
    world.write(QStringLiteral("a.txt"), "find me");
    world.write(QStringLiteral("b.md"), "find me");
    auto form = world.start();
    QVERIFY(QTest::qWaitForWindowActive(form.get()));
    form->Text1->setFocus();
    form->Text1->clear();
    QTest::keyClicks(form->Text1, QStringLiteral("*.txt"));
    QCOMPARE(form->List1->count(), 0);
    // Each Enter moves on to the next box; the guard of selectalltext is
    // cleared first, as the time a person takes between two keys would.
    form->dLastFocus = 0;
    QTest::keyClick(form->Text1, Qt::Key_Return);
    QCOMPARE(lines(form->List1), QStringList({sized("a.txt", 7)}));
    QTRY_COMPARE(QApplication::focusWidget(), form->Text2);

    form->Text2->setText(QStringLiteral("me"));
    form->dLastFocus = 0;
    QTest::keyClick(form->Text2, Qt::Key_Return);
    QCOMPARE(lines(form->List2), QStringList({hitline("a.txt", 6)}));
    QTRY_COMPARE(QApplication::focusWidget(), form->Text3);

    form->Text3->setText(QStringLiteral("you"));
    QTest::keyClick(form->Text3, Qt::Key_Return);
    QCOMPARE(readfile(world.file(QStringLiteral("a.txt"))), QByteArray("find you"));
    QCOMPARE(readfile(world.file(QStringLiteral("b.md"))), QByteArray("find me"));
}

QTEST_MAIN(FindReplace)
#include "findreplace.moc"
