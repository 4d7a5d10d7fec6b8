// The file list: the Dir button, the subdirectory box, a new directory from
// lblDir, the order of List1, the mask box clearing the list, and Cancel
// during a walk.
#include <QMetaObject>

#include "form1fixture.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

class Listing : public QObject {
    Q_OBJECT

private slots:
    void walk_data();
    void walk();
    void linesStandInByteOrder();
    void dirTwiceGivesTheSameList();
    void subdirectoryBoxListsAtOnce();
    void lblDirAsksForDirectory_data();
    void lblDirAsksForDirectory();
    void keyInMaskBoxClearsList_data();
    void keyInMaskBoxClearsList();
    void cancelDuringWalk_data();
    void cancelDuringWalk();
};

namespace {

void maketree(const World& world)
{
    world.write(QStringLiteral("a.txt"), "a");
    world.write(QStringLiteral("B.TXT"), "bb");
    world.write(QStringLiteral("notes.md"), "m");
    world.write(QStringLiteral("sub/c.txt"), "ccc");
    world.write(QStringLiteral("sub/deeper/d.txt"), "dddd");
    world.write(QStringLiteral("sub/deeper/skip.md"), "");
    world.write(QStringLiteral("nomatch/deeper/e.txt"), "eeeee");
    world.write(QStringLiteral(".hidden/h.txt"), "h");
    world.write(QStringLiteral(".dot.txt"), "");
}

}  // namespace

void Listing::walk_data()
{
    QTest::addColumn<QString>("mask");   // relative to the files directory
    QTest::addColumn<bool>("subdirs");
    QTest::addColumn<QString>("base");
    QTest::addColumn<QStringList>("list1");

    QTest::newRow("top only") << "*.txt" << false << ""
                              << QStringList{sized(".dot.txt", 0), sized("a.txt", 1)};
    QTest::newRow("with subdirectories")
        << "*.txt" << true << ""
        << QStringList{sized(".dot.txt", 0), sized("a.txt", 1), sized("nomatch/deeper/e.txt", 5),
                       sized("sub/c.txt", 3), sized("sub/deeper/d.txt", 4)};
    QTest::newRow("a directory by name") << "sub" << false << "sub/"
                                         << QStringList{sized("c.txt", 3)};
    QTest::newRow("case is kept") << "*.TXT" << true << "" << QStringList{sized("B.TXT", 2)};
    QTest::newRow("nothing matches") << "*.none" << true << "" << QStringList{};
}

void Listing::walk()
{
    QFETCH(QString, mask);
    QFETCH(bool, subdirs);
    QFETCH(QString, base);
    QFETCH(QStringList, list1);
    World world;
    maketree(world);
    auto form = world.start();
    list(*form, world.file(mask), subdirs);
    QCOMPARE(lines(form->List1), list1);
    QCOMPARE(form->lblDir->text(), world.files() + QLatin1Char('/') + base);
    QVERIFY(idle(*form));
    // The base directory label grows with its text.
    QVERIFY(form->lblDir->width() >= form->lblDir->fontMetrics().horizontalAdvance(form->lblDir->text()));
}

void Listing::linesStandInByteOrder()
{
    World world;
    // In byte order "Zeta" < "_z" < "alpha" < the UTF-8 bytes of "été",
    // which no locale's order gives.
    for (const QString& name : {QStringLiteral("alpha"), QStringLiteral("_z"), QStringLiteral("\u00e9t\u00e9"),
                                QStringLiteral("Zeta")})
        world.write(name, "1");
    auto form = world.start();
    const QString ete = QString::fromLatin1("\xc3\xa9t\xc3\xa9");
    QCOMPARE(lines(form->List1),
             QStringList({sized("Zeta", 1), sized("_z", 1), sized("alpha", 1), sized(ete, 1)}));
}

void Listing::dirTwiceGivesTheSameList()
{
    World world;
    maketree(world);
    auto form = world.start();
    list(*form, QStringLiteral("*.txt"), true);
    const QStringList first = lines(form->List1);
    const QString mask = form->Text1->text();
    QCOMPARE(mask, world.file(QStringLiteral("*.txt")));
    QTest::mouseClick(form->cmd[2], Qt::LeftButton);
    QCOMPARE(lines(form->List1), first);
    QCOMPARE(form->Text1->text(), mask);
}

void Listing::subdirectoryBoxListsAtOnce()
{
    World world;
    maketree(world);
    auto form = world.start();
    list(*form, world.file(QStringLiteral("*.txt")));
    QCOMPARE(form->List1->count(), 2);
    QTest::mouseClick(form->chkIncludeSubs, Qt::LeftButton);
    QVERIFY(form->chkIncludeSubs->isChecked());
    QCOMPARE(form->List1->count(), 5);
    QTest::mouseClick(form->chkIncludeSubs, Qt::LeftButton);
    QCOMPARE(form->List1->count(), 2);
}

void Listing::lblDirAsksForDirectory_data()
{
    QTest::addColumn<QString>("answer");   // "@" stands for the files directory
    QTest::addColumn<QString>("text1");
    QTest::addColumn<QStringList>("list1");

    QTest::newRow("a directory") << "@/sub" << "@/sub/*.txt" << QStringList{sized("c.txt", 3)};
    QTest::newRow("with its slash") << "@/sub/deeper/" << "@/sub/deeper/*.txt" << QStringList{sized("d.txt", 4)};
    QTest::newRow("cancel") << "" << "@/*. txt" << QStringList{};
}

void Listing::lblDirAsksForDirectory()
{
    QFETCH(QString, answer);
    QFETCH(QString, text1);
    QFETCH(QStringList, list1);
    World world;
    maketree(world);
    auto form = world.start();
    // The name mask goes over to the new directory without its blank.
    list(*form, QStringLiteral("*. txt"));
    QCOMPARE(form->List1->count(), 0);
    world.dialogs.inputs.push_back(answer.replace(QLatin1Char('@'), world.files()));
    QTest::mouseClick(form->lblDir, Qt::LeftButton);
    QCOMPARE(world.dialogs.records.size(), std::size_t(1));
    const DialogRecord& asked = world.dialogs.records.front();
    QCOMPARE(asked.kind, DialogRecord::Kind::Input);
    QCOMPARE(asked.text, QStringLiteral("Directory?"));
    QCOMPARE(asked.title, QStringLiteral("brindlex"));
    QCOMPARE(asked.defaultText, world.files() + QLatin1Char('/'));
    QCOMPARE(form->Text1->text(), text1.replace(QLatin1Char('@'), world.files()));
    QCOMPARE(lines(form->List1), list1);
}

void Listing::keyInMaskBoxClearsList_data()
{
    QTest::addColumn<int>("key");
    QTest::addColumn<bool>("clears");
    QTest::newRow("a letter") << int(Qt::Key_X) << true;
    QTest::newRow("backspace") << int(Qt::Key_Backspace) << true;
    QTest::newRow("shift alone") << int(Qt::Key_Shift) << false;
    QTest::newRow("an arrow") << int(Qt::Key_Left) << false;
}

void Listing::keyInMaskBoxClearsList()
{
    QFETCH(int, key);
    QFETCH(bool, clears);
    World world;
    maketree(world);
    auto form = world.start();
    const int listed = form->List1->count();
    QCOMPARE(listed, 4);
    QTest::keyClick(form->Text1, Qt::Key(key));
    QCOMPARE(form->List1->count(), clears ? 0 : listed);
}

void Listing::cancelDuringWalk_data()
{
    QTest::addColumn<bool>("subdirs");
    QTest::newRow("top directory") << false;
    QTest::newRow("with subdirectories") << true;
}

void Listing::cancelDuringWalk()
{
    QFETCH(bool, subdirs);
    World world;
    maketree(world);
    auto form = world.start();
    // A press of Cancel that waits in the event queue comes in at the first
    // yield of the walk, while the top directory is being read: the whole
    // listing ends there.
    QMetaObject::invokeMethod(
        form.get(), [&form] { QTest::mouseClick(form->cmd[3], Qt::LeftButton); }, Qt::QueuedConnection);
    list(*form, QStringLiteral("*.txt"), subdirs);
    QVERIFY(form->host().bCancel);
    QCOMPARE(form->List1->count(), 0);
    QVERIFY(idle(*form));
    // The next listing is whole again.
    form->cmd_Click(2);
    QVERIFY(!form->host().bCancel);
    QCOMPARE(form->List1->count(), subdirs ? 5 : 2);
}

QTEST_MAIN(Listing)
#include "listing.moc"
