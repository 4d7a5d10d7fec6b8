// The File menu's outside editors and the integer dump, driven through the
// real window. Program starts and document openings go through the seam;
// where a test lets a start really happen, the editor is a stub script that
// writes its arguments to a file.
#include <QtTest>
#include <QtWidgets>

#include <filesystem>
#include <fstream>
#include <memory>

#include "gui/seam/launch.h"
#include "support/guiworld.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

namespace {

void writebytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::string readbytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// A stub editor: its arguments, each ended by a NUL, go to `out`.
void writestub(const std::string& path, const std::string& out)
{
    writebytes(path, "#!/bin/sh\nprintf '%s\\0' \"$@\" > '" + out + ".part' && command -p mv '" + out + ".part' '" + out + "'\n");
    QFile::setPermissions(QString::fromStdString(path), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

// Stub editors beside the files: `exe` holds a vellumix when asked for,
// `bin` (first on PATH) a notepad. Paths as bytes, for names that aren't UTF-8.
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
        // Names that aren't UTF-8 are beyond QTemporaryDir's own removal.
        std::error_code ignored;
        std::filesystem::remove_all(at("files"), ignored);
    }

    std::string at(const std::string& relative) const { return World::at({}).toStdString() + relative; }
    std::string file(const std::string& name) const { return at("files/") + name; }
    std::string argsfile() const { return at("args"); }

    // Loaded without being shown: no test here needs the window active.
    std::unique_ptr<Form1> start()
    {
        auto form = std::make_unique<Form1>(at("exe"));
        form->Form_Load({});
        return form;
    }

private:
    QByteArray path = qgetenv("PATH");
};

// Makes the line of `name` current in `list`; false when there is none.
bool makecurrent(QAbstractItemView* list, const std::string& name)
{
    const int row = findrow(list, towidget(name + '\t'));
    if (row >= 0)
        setcurrentrow(list, row);
    return row >= 0;
}

QString shownmenu(const Form1& form)
{
    emit ui(form).mnuFile->aboutToShow();
    auto state = [](const QAction* a) { return a->text() + (a->isEnabled() ? "|on" : "|off"); };
    return state(ui(form).mnuEdit) + "; " + state(ui(form).mnuEdit2) + "; " + state(ui(form).mnuDumpInt4);
}

struct EditRow { QByteArray name; bool vellumix; int item; QString editor, message; bool gone = false; };
struct DumpStep { QStringList inputs; QString sheet; QByteArray content; QStringList messages; };

}  // namespace

Q_DECLARE_METATYPE(EditRow)

class EditorsTest : public QObject {
    Q_OBJECT

private slots:
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
        QTest::newRow("a dash in front") << EditRow{"-p", false, 2, "notepad", ""};
        // A file "x" stands beside it: the line's first field is another file.
        QTest::newRow("tab after x, vellumix on a file") << EditRow{"x\ty", true, 1, "vellumix", ""};
        QTest::newRow("an editor that is gone") << EditRow{"a.txt", true, 2, "vellumix",
            "brindlex|Error starting vellumix @/files/a.txt -p 7:\r\nNo such file or directory", true};
        // Without a notepad the menu names the editor that runs; without
        // any, the message says what was looked for.
        QTest::newRow("another editor") << EditRow{"a.txt", false, 1, "kate", ""};
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
        const QByteArray path = qgetenv("PATH"), visual = qgetenv("VISUAL");
        if (!row.vellumix && row.editor != "notepad") {
            QFile::remove(QString::fromStdString(world.at("bin/notepad")));
            qputenv("PATH", QByteArray::fromStdString(world.at("bin")));
            qputenv("VISUAL", "vi");
            if (!row.editor.isEmpty())
                writestub(world.at("bin/") + row.editor.toStdString(), world.argsfile());
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
        qputenv("PATH", path);
        qputenv("VISUAL", visual);
        const QString at = QString::fromStdString(world.at("")).chopped(1);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message),
                 row.message.isEmpty() ? QStringList() : QStringList({QString(row.message).replace('@', at)}));
        if (row.message.isEmpty()) {
            QTRY_VERIFY(QFileInfo::exists(QString::fromStdString(world.argsfile())));
            const bool position = row.vellumix && row.item == 2;
            QCOMPARE(readbytes(world.argsfile()), world.file(bytes) + '\0' + (position ? std::string("-p\0" "7\0", 5) : ""));
            QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Start).size(), 1);
            QVERIFY(world.dialogs.records.back().title.endsWith('/' + row.editor));
        }
        QVERIFY(!QFileInfo::exists("pwned") && !QFileInfo::exists(QString::fromStdString(world.at("pwned"))));
    }

    // notepad: one on PATH, else a graphical $VISUAL, else the first usual
    // desktop editor, else xdg-open; never a terminal editor.
    void editorresolution()
    {
        QTemporaryDir bin;
        const QByteArray path = qgetenv("PATH"), visual = qgetenv("VISUAL");
        qputenv("PATH", bin.path().toLocal8Bit());
        QStringList resolved;
        for (const auto& [put, visualvalue] : {std::pair{"", ""}, {"xdg-open", "vi"}, {"mousepad kate vi", "vi"},
                                               {"", "mousepad"}, {"notepad", "mousepad"}}) {
            for (const QString& name : QString(put).split(' ', Qt::SkipEmptyParts))
                writestub((bin.path() + '/' + name).toStdString(), "/dev/null");
            qputenv("VISUAL", visualvalue);
            resolved << QString::fromStdString(editorprogram("notepad", "/nowhere")).remove(bin.path() + '/');
        }
        qputenv("PATH", path);
        qputenv("VISUAL", visual);
        QCOMPARE(resolved, QStringList({"", "xdg-open", "kate", "mousepad", "notepad"}));
        QCOMPARE(QString::fromStdString(editorprogram("vellumix", "/opt/b")), QStringLiteral("/opt/b/vellumix"));
    }

    // One program run: the numbers go on across dumps, also past one that
    // stopped at a prompt; a sheet that was made opens, whatever the dump
    // said, and a dump stopped at a question opens nothing.
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
                QCOMPARE(QByteArray::fromStdString(readbytes((work + step.sheet).toStdString())), step.content);
        }
        QVERIFY(!QFileInfo::exists(work + "002.xls") && !QFileInfo::exists(work + "005.xls"));

        // Cancel, pressed while a long dump yields, cuts its sheet short.
        writebytes(world.file("a.bin"), std::string(std::size_t{16} << 20, '\0'));
        world.dialogs.inputs = {"2", "1"};
        QMetaObject::invokeMethod(form.get(), [&form] { QTest::mouseClick(ui(*form).cmd[3], Qt::LeftButton); },
                                  Qt::QueuedConnection);
        ui(*form).mnuDumpInt4->trigger();
        // The whole sheet, 8 Mi rows of at least 7 bytes, would be over 56 MiB.
        QVERIFY(QFileInfo(work + "008.xls").size() < qint64{8} << 20);
        QVERIFY(ui(*form).cmd[0]->isEnabled() && !ui(*form).cmd[3]->isEnabled() && !form->busy());

        // Without a current line the menu names no file, and nothing is asked.
        world.dialogs.records.clear();
        ui(*form).List1->setCurrentIndex(QModelIndex());
        QCOMPARE(shownmenu(*form), "&Edit  using notepad|off; E&dit  using notepad|off; Dump &Int4 File|off");
        form->mnuDumpInt4_Click();
        QVERIFY(world.dialogs.records.empty());
    }
};

QTEST_MAIN(EditorsTest)
#include "editors.moc"
