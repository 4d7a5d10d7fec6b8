// The Replacements menu: its items for the default file and for a file of
// sets opened by the user, picking a set, saving one with "&New", the list
// runs with Cancel, and the rebuild that every run with the default file
// brings.
#include <QAction>
#include <QMenu>
#include <QMetaObject>

#include "form1fixture.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

class Replacements : public QObject {
    Q_OBJECT

private slots:
    void menuOfEachFile_data();
    void menuOfEachFile();
    void saveByName_data();
    void saveByName();
    void newNeedsFind();
    void listRun_data();
    void listRun();
    void runRebuildsMenu();
};

namespace {

const QString kTitle = QStringLiteral("brindlex");

// The menu as the user sees it, one "caption|tag" an item, a separator line
// as "-". A misnamed item, or a separator with text, shows up as such.
QStringList shown(const Form1& form)
{
    QStringList out;
    const QList<QAction*> actions = form.mnuRepl->actions();
    for (int i = 0; i < actions.size(); ++i) {
        const QAction* a = actions[i];
        if (a->objectName() != QStringLiteral("mnuRep%1").arg(i) || (a->isSeparator() && !a->text().isEmpty()))
            out << QStringLiteral("bad item ") + a->objectName();
        out << (a->isSeparator() ? QStringLiteral("-") : a->text()) + QLatin1Char('|') + a->property("Tag").toString();
    }
    return out;
}

// Triggers the item with `caption`, as a click on it does.
void click(const Form1& form, const QString& caption)
{
    for (QAction* a : form.mnuRepl->actions())
        if (a->text() == caption)
            return a->trigger();
    QFAIL(qPrintable("no item " + caption));
}

QString tag(const Form1& form)
{
    return form.mnuRepl->property("Tag").toString();
}

QString defaultini(const World& world)
{
    return QDir::cleanPath(world.files() + QStringLiteral("/../config/brindlex/brindlex.ini"));
}

// A file of sets beside the user's files, not among them.
QString setsfile(const World& world, const QByteArray& content)
{
    return writefile(QDir::cleanPath(world.files() + QStringLiteral("/../sets/sets.ini")), content);
}

const QStringList kDefaultMenu{"Apple-To-PC|%0D==>%0D%0A", "-|", "&New|"};
const QStringList kListRuns{"Replace &All of the Above|DoAllReps", "Find &All of the Above|DoAllFinds"};

}  // namespace

void Replacements::menuOfEachFile_data()
{
    QTest::addColumn<QByteArray>("ini");   // sets.ini; empty: the default file only
    QTest::addColumn<QStringList>("items");
    QTest::addColumn<int>("loaded");
    QTest::addColumn<int>("nRepCount");

    QTest::newRow("default file") << QByteArray() << kDefaultMenu << 1 << 0;
    QTest::newRow("sets.ini") << QByteArray("[Replacements]\r\na=1==>2\r\nuser-7=x\r\nR&&D=&==>\r\nUser-3=\r\n")
                              << QStringList({"a|1==>2", "user-7|x", "R&&D|&==>", "User-3|", "-|", "&New|"}) + kListRuns
                              << 4 << 7;
    QTest::newRow("no section") << QByteArray("[Other]\r\nk=v\r\n") << kDefaultMenu + kListRuns << 1 << 0;
}

void Replacements::menuOfEachFile()
{
    QFETCH(QByteArray, ini);
    QFETCH(QStringList, items);
    QFETCH(int, loaded);
    QFETCH(int, nRepCount);
    World world;
    auto form = world.start();
    // The first start writes the default set into a new default file.
    QCOMPARE(readfile(defaultini(world)), QByteArray("[Replacements]\r\nApple-To-PC=%0D==>%0D%0A\r\n"));
    QCOMPARE(world.dialogs.records.size(), std::size_t(0));
    QString file = defaultini(world);
    if (!ini.isEmpty()) {
        file = setsfile(world, ini);
        world.dialogs.files = {file};
        form->mnuOpenRepFile_Click();
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::OpenFile), QStringList({"*.ini|" + defaultini(world)}));
    }
    QCOMPARE(shown(*form), items);
    QCOMPARE(form->nRepCount, nRepCount);
    // A cancelled dialog gives back the file in use: it is loaded again, and
    // the count is told again.
    world.dialogs.records.clear();
    form->mnuOpenRepFile_Click();
    const QString message = kTitle + QStringLiteral("|%1 replacements loaded from %2.").arg(loaded).arg(file);
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message), QStringList({message}));
    QCOMPARE(shown(*form), items);
    // Back to the default file: nothing of the longer menu stays.
    world.dialogs.files = {defaultini(world)};
    form->mnuOpenRepFile_Click();
    QCOMPARE(shown(*form), kDefaultMenu);
    QCOMPARE(form->nRepCount, nRepCount);
}

void Replacements::saveByName_data()
{
    QTest::addColumn<QByteArray>("ini");        // the default file before start; empty: none
    QTest::addColumn<QStringList>("before");    // "run" or the caption of a set to pick
    QTest::addColumn<QString>("answer");        // to the name prompt; "*": the offered name
    QTest::addColumn<QString>("pair");          // as the prompt shows it
    QTest::addColumn<QString>("offered");
    QTest::addColumn<QString>("key");           // mnuRepl's Tag afterwards
    QTest::addColumn<QString>("line");          // written into the file; empty: the file unchanged

    QTest::newRow("user0 at start") << QByteArray() << QStringList() << "*" << "old text==>new" << "user0"
                                    << "user0" << "user0=old%20text==>new";
    QTest::newRow("Previous after a run")
        << QByteArray("[Replacements]\r\nUser-7=q\r\n") << QStringList({"run"}) << "*" << "old text==>new"
        << "User-8" << "User-8" << "User-8=old%20text==>new";
    QTest::newRow("Previous picked") << QByteArray() << QStringList({"run", "Previous"}) << "*"
                                     << "old%20text==>new" << "User-1" << "User-1" << "User-1=old%20text==>new";
    QTest::newRow("a picked set") << QByteArray() << QStringList({"Apple-To-PC"}) << "x=y " << "%0D==>%0D%0A"
                                  << "Apple-To-PC" << "x-y " << "x-y=%0D==>%0D%0A";
    QTest::newRow("cancelled") << QByteArray() << QStringList() << "" << "old text==>new" << "user0" << "user0"
                               << QString();
}

void Replacements::saveByName()
{
    QFETCH(QByteArray, ini);
    QFETCH(QStringList, before);
    QFETCH(QString, answer);
    QFETCH(QString, pair);
    QFETCH(QString, offered);
    QFETCH(QString, key);
    QFETCH(QString, line);
    World world;
    if (!ini.isEmpty())
        writefile(defaultini(world), ini);
    auto form = world.start();
    form->Text2->setText(QStringLiteral("old text"));
    form->Text3->setText(QStringLiteral("new"));
    for (const QString& step : before) {
        if (step == QStringLiteral("run"))
            form->cmd_Click(0);
        else
            click(*form, step);
    }
    // A picked set stands in the boxes as stored.
    QCOMPARE(form->Text2->text() + "==>" + form->Text3->text(), pair);
    const QByteArray file = readfile(defaultini(world));
    if (answer != QStringLiteral("*"))
        world.dialogs.inputs = {answer};
    click(*form, QStringLiteral("&New"));
    QCOMPARE(world.dialogs.records.size(), std::size_t(1));
    const DialogRecord& asked = world.dialogs.records.front();
    QCOMPARE(asked.kind, DialogRecord::Kind::Input);
    QCOMPARE(asked.title, kTitle);
    QCOMPARE(asked.text, "Name for \r\n\r\n" + pair + "\r\n\r\n?");
    QCOMPARE(asked.defaultText, offered);
    QCOMPARE(tag(*form), key);
    if (line.isEmpty()) {
        QCOMPARE(readfile(defaultini(world)), file);
        return;
    }
    QVERIFY(readfile(defaultini(world)).contains("\r\n" + line.toLatin1() + "\r\n"));
    const QString item = line.section(QLatin1Char('='), 0, 0) + QLatin1Char('|') + line.section(QLatin1Char('='), 1);
    QVERIFY2(shown(*form).contains(item), qPrintable(shown(*form).join(QLatin1Char(' '))));
}

void Replacements::newNeedsFind()
{
    World world;
    auto form = world.start();
    const QByteArray file = readfile(defaultini(world));
    form->Text3->setText(QStringLiteral("anything"));
    click(*form, QStringLiteral("&New"));
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
             QStringList({kTitle + "|First fill in the 'Find' and 'Replace' boxes"}));
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Input), QStringList());
    QCOMPARE(readfile(defaultini(world)), file);
    QCOMPARE(tag(*form), QStringLiteral("user0"));
}

void Replacements::listRun_data()
{
    QTest::addColumn<QString>("item");
    QTest::addColumn<QByteArray>("sets");
    QTest::addColumn<bool>("cancelAtB");
    QTest::addColumn<QByteArray>("after");     // a.txt
    QTest::addColumn<QString>("last");         // the set in the boxes afterwards
    QTest::addColumn<QStringList>("hits");

    const QByteArray abc("[Replacements]\r\nA=a==>1\r\nB=b==>2\r\nC=c==>3\r\n");
    const QString replaceAll = QStringLiteral("Replace &All of the Above");
    QTest::newRow("replace a, b, c") << replaceAll << abc << false << QByteArray("1 2 3") << "C|c|3"
                                     << QStringList({hitline("a.txt", 5)});
    QTest::newRow("find a, b, c") << "Find &All of the Above" << abc << false << QByteArray("a b c") << "C|c|3"
                                  << QStringList({hitline("a.txt", 5)});
    QTest::newRow("Cancel during b") << replaceAll << abc << true << QByteArray("1 b c") << "B|b|2"
                                     << QStringList({hitline("a.txt", 3)});
    QTest::newRow("a set without a value ends it")
        << replaceAll << QByteArray("[Replacements]\r\nA=a==>1\r\nE=\r\nB=b==>2\r\n") << false
        << QByteArray("1 b c") << "A|a|1" << QStringList({hitline("a.txt", 1)});
}

void Replacements::listRun()
{
    QFETCH(QString, item);
    QFETCH(QByteArray, sets);
    QFETCH(bool, cancelAtB);
    QFETCH(QByteArray, after);
    QFETCH(QString, last);
    QFETCH(QStringList, hits);
    World world;
    const QString a = world.write(QStringLiteral("a.txt"), "a b c");
    auto form = world.start();
    const QString file = setsfile(world, sets);
    world.dialogs.files = {file};
    form->mnuOpenRepFile_Click();
    const QByteArray stored = readfile(file);
    form->chkAsk->setChecked(cancelAtB);
    // Cancel, pressed while b's question is up, comes in at the next yield.
    world.dialogs.onmessage = [&](const DialogRecord& record) {
        if (record.text.startsWith(QStringLiteral("Replace ")) && form->Text2->text() == QStringLiteral("b"))
            QMetaObject::invokeMethod(
                form.get(), [&form] { QTest::mouseClick(form->cmd[3], Qt::LeftButton); }, Qt::QueuedConnection);
    };
    form->host().bCancel = true;   // cleared by the click, before the first set
    click(*form, item);
    QCOMPARE(readfile(a), after);
    QCOMPARE(tag(*form) + '|' + form->Text2->text() + '|' + form->Text3->text(), last);
    QCOMPARE(lines(form->List2), hits);
    QCOMPARE(form->host().bCancel, cancelAtB);
    QVERIFY(idle(*form));
    // No run writes into a file the user opened.
    QCOMPARE(readfile(file), stored);
}

void Replacements::runRebuildsMenu()
{
    World world;
    world.write(QStringLiteral("a.txt"), "x-x");
    auto form = world.start();
    form->Text2->setText(QStringLiteral("x"));
    form->cmd_Click(0);
    QCOMPARE(shown(*form), QStringList({"Apple-To-PC|%0D==>%0D%0A", "Previous|x==>", "-|", "&New|"}));
    QCOMPARE(tag(*form), QStringLiteral("Previous"));
    QCOMPARE(lines(form->List2), QStringList({hitline("a.txt", 1), hitline("a.txt", 3)}));
    // A save rebuilds the menu, and the hits go with the rebuild.
    click(*form, QStringLiteral("&New"));
    QCOMPARE(form->List2->count(), 0);
    QCOMPARE(tag(*form), QStringLiteral("User-1"));
    QCOMPARE(form->nRepCount, 1);
    // A second run rewrites "Previous" where it stands.
    form->Text2->setText(QStringLiteral("a b"));
    form->cmd_Click(1);
    QCOMPARE(shown(*form), QStringList({"Apple-To-PC|%0D==>%0D%0A", "Previous|a%20b==>", "User-1|x==>", "-|",
                                        "&New|"}));
    QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message), QStringList());
}

QTEST_MAIN(Replacements)
#include "replacements.moc"
