// The viewer driven through its real widgets, opened from the main window's
// lists as a user opens it, each test in a world of its own.
#include <QtTest>
#include <QtWidgets>

#include "gui/viewer/form2.h"
#include "gui/viewer/pagebox.h"
#include "support/guiworld.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

namespace {

constexpr int kDesignHeight = 1845;   // Text1's height at design, in twips

// Bytes 1-255 and a few line-end mixtures, so that every byte meets the box.
QByteArray allbytes()
{
    QByteArray bytes;
    for (int b = 1; b < 256; ++b)
        bytes += static_cast<char>(b);
    return bytes;
}

// A world that keeps its window, for the viewer opened from it.
class ViewWorld : public World {
public:
    Form1& start(const std::string& command = {})
    {
        form = World::start(true, command);
        return *form;
    }

    // The window on a file "f" of `bytes`, opened from the file list with
    // rows of `width` when given.
    Form2& view(const QByteArray& bytes, int width = 0)
    {
        write("f", bytes);
        start();
        if (width)
            form->viewstate().nViewWidth = width;
        return open("f");
    }

    // Opens `name` from the file list, with the page box at `heightTwips`.
    Form2& open(const QString& name, int heightTwips = kDesignHeight)
    {
        if (const int row = findrow(ui(*form).List1, name + '\t'); row >= 0)
            setcurrentrow(ui(*form).List1, row);
        form->List1_DblClick();
        Form2& viewer = *form->viewer();
        setheight(viewer, heightTwips);
        return viewer;
    }

    // The window made as high as gives the page box `heightTwips`.
    static void setheight(Form2& viewer, int heightTwips)
    {
        const int want = (heightTwips * viewer.logicalDpiY() + 720) / 1440;
        viewer.resize(viewer.width(), viewer.height() + want - viewer.Text1->height());
        viewer.layout()->activate();
        viewer.centralWidget()->layout()->activate();
        QCOMPARE(viewer.Text1->height(), want);
        viewer.showpage();
    }

    // A find from the main window: List2 holds its hits.
    void find(const QString& pattern)
    {
        ui(*form).Text2->setText(pattern);
        ui(*form).cmd[0]->click();
    }

    std::unique_ptr<Form1> form;
};

void setmode(Form2& viewer, int mode)
{
    viewer.Combo1->setCurrentIndex(mode);
    viewer.Combo1_Click();
}

// The page box's text as bytes, edited by replacing `from` with `to`.
void edit(Form2& viewer, const QByteArray& from, const QByteArray& to)
{
    QByteArray page = QByteArray::fromStdString(viewer.Text1->page());
    QVERIFY2(page.contains(from), page.constData());
    page.replace(page.indexOf(from), from.size(), to);
    viewer.Text1->setpage(page.toStdString());
}

QByteArray sequence(int length)
{
    QByteArray bytes;
    for (int i = 0; i < length; ++i)
        bytes += static_cast<char>('A' + i % 26);
    return bytes;
}

struct OpenRow { QString from, name; int firstWidth; qint64 hit, pos; int width; };
struct DetectRow { QByteArray bytes; int mode, picked; };   // picked: by AutoDetect picked in the box
struct SizeRow { int mode; QString width; int block; QString label2; int cells; };   // cells: of a byte row, 0 unchecked
struct ScrollRow { qint64 length, start; Qt::Key key; qint64 pos; Qt::KeyboardModifiers modifiers = {}; };
struct CellRow { QByteArray bytes; int mode, format, at; QString label; };
struct GotoRow { QString lastFind; int format; QStringList answers, defaults; qint64 pos, hit; bool open; };
struct SaveRow { int mode; QByteArray file, from, to, expected; };
struct AskRow { QString route; Reply reply; };

}  // namespace

Q_DECLARE_METATYPE(OpenRow)
Q_DECLARE_METATYPE(DetectRow)
Q_DECLARE_METATYPE(SizeRow)
Q_DECLARE_METATYPE(ScrollRow)
Q_DECLARE_METATYPE(CellRow)
Q_DECLARE_METATYPE(GotoRow)
Q_DECLARE_METATYPE(SaveRow)
Q_DECLARE_METATYPE(AskRow)

class Form2Test : public QObject {
    Q_OBJECT

private slots:
    void pageboxRoundTrip_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("lines");
        QTest::newRow("every byte") << allbytes() << 3;
        QTest::newRow("every byte, CR LF lines") << QByteArray("a\r\nb\r\n") + allbytes() + "\r\nz" << 6;
        QTest::newRow("every byte, LF lines") << QByteArray("a\nb\nc\n") + allbytes() + "\n\r\nz" << 8;
        QTest::newRow("lone ends") << QByteArray("\r\r\n\n\r\r\t\n") << 7;
        QTest::newRow("a CR at the end") << QByteArray("ab\r") << 2;
        QTest::newRow("no-break space and controls") << QByteArray("\xA0\x01\x7F\x85\xFF") << 1;
    }

    void pageboxRoundTrip()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(int, lines);
        PageBox box;
        box.setpage(bytes.toStdString());
        QCOMPARE(QByteArray::fromStdString(box.page()), bytes);
        // Every CR and LF, alone or paired, is seen as a line break.
        QCOMPARE(box.document()->toPlainText().count('\n') + 1, lines);
        // Enter types the page's usual line end.
        QTextCursor cursor(box.document());
        cursor.movePosition(QTextCursor::End);
        box.setTextCursor(cursor);
        QTest::keyClick(&box, Qt::Key_Return);
        const bool lf = usuallineend(bytes.toStdString()) == LineEnd::Lf;
        QCOMPARE(QByteArray::fromStdString(box.page()), bytes + (lf ? "\n" : "\r\n"));
    }

    void opening_data()
    {
        QTest::addColumn<OpenRow>("row");
        // A name is the file's real name, blanks and tabs and all. More names
        // that a trimmed or split list line would miss are the editor tests'
        // rows, on the same lookup of the current line's file.
        QTest::newRow("file list") << OpenRow{"List1", "a name\twith tab", 0, 0, 1, 8};
        QTest::newRow("hit at 5") << OpenRow{"List2", "a name with  blanks", 0, 5, 1, 10};
        QTest::newRow("hit at 500") << OpenRow{"List2", "a name with  blanks", 0, 500, 480, 10};
        QTest::newRow("hit keeps a width of 8") << OpenRow{"List2", "a name with  blanks", 8, 500, 484, 8};
        QTest::newRow("file keeps a width of 10") << OpenRow{"List1", "a name\twith tab", 10, 0, 1, 10};
    }

    void opening()
    {
        QFETCH(OpenRow, row);
        ViewWorld world;
        QByteArray bytes(600, 'x');
        if (row.hit > 0)
            bytes.replace(row.hit - 1, 3, "HIT");
        const QString& name = row.name;
        world.write(name, bytes);
        Form1& form = world.start();
        form.viewstate().nViewWidth = row.firstWidth;
        if (row.from == "List1") {
            setcurrentrow(ui(form).List1, findrow(ui(form).List1, name + '\t'));
            form.List1_DblClick();
        } else {
            world.find("HIT");
            QCOMPARE(rows(ui(form).List2), 1);
            QTest::mouseClick(ui(form).List2->viewport(), Qt::LeftButton, {},
                              ui(form).List2->visualRect(ui(form).List2->model()->index(0, 0)).center());
            QTRY_VERIFY(ui(form).List2->hasFocus());
        }
        QVERIFY(form.viewer() && form.viewer()->isVisible());
        QCOMPARE(form.viewer()->windowTitle(), world.file(name) + " (600 bytes)");
        QCOMPARE(form.viewstate().lViewPos, row.pos);
        QCOMPARE(form.viewstate().lViewHit, row.hit);
        QCOMPARE(form.viewstate().nViewWidth, row.width);
        QCOMPARE(form.viewer()->txtWidth->text(), QString::number(row.width));
    }

    void startWithCommandLine()
    {
        ViewWorld world;
        world.write("b.bin", QByteArray("\x00\x01", 2));
        Form1& form = world.start("b.bin");
        QVERIFY(form.viewer() && form.viewer()->isVisible());
        QCOMPARE(form.viewstate().nViewWidth, 8);
        QCOMPARE(form.viewer()->Text1->page(), std::string("000001: <00> <01> "));
        // Beside the main window, from its right edge, or as far right as
        // the screen lets it stand whole.
        const QRect viewer = form.viewer()->frameGeometry(), screen = form.screen()->availableGeometry();
        QVERIFY(viewer.left() == form.frameGeometry().right() + 1 || viewer.right() == screen.right());
        QVERIFY(screen.contains(viewer));
        QCOMPARE(viewer.top(), form.frameGeometry().top());
    }

    void autodetect_data()
    {
        QTest::addColumn<DetectRow>("row");
        QTest::newRow("text") << DetectRow{"plain\r\ntext", 2, 2};
        QTest::newRow("binary") << DetectRow{QByteArray("bin\0ary", 7), 1, 1};
    }

    void autodetect()
    {
        QFETCH(DetectRow, row);
        ViewWorld world;
        Form2& viewer = world.view(row.bytes);
        Form1& form = *world.form;
        // The box says what AutoDetect picked.
        QCOMPARE(viewer.Combo1->currentText(), QStringLiteral("AutoDetect: ") + (row.mode == 1 ? "Binary/Text" : "Pure Text"));
        QCOMPARE(form.viewstate().nViewMode, row.mode);
        QCOMPARE(viewer.Label1->isVisibleTo(&viewer), row.mode < 2);
        setmode(viewer, 0);
        setmode(viewer, 4);
        QCOMPARE(form.viewstate().nViewMode, row.picked);
        viewer.mnuClose_Click();
        QCOMPARE(form.viewstate().nViewMode, 4);
    }

    void formatCycles()
    {
        ViewWorld world;
        Form2& viewer = world.view(QByteArray(600, '\0'));
        QVERIFY(QTest::qWaitForWindowActive(&viewer));
        QList<int> seen;
        for (const Qt::Key key : {Qt::Key_H, Qt::Key_H, Qt::Key_H, Qt::Key_M, Qt::Key_M, Qt::Key_H}) {
            QTest::keyClick(viewer.Text1, key, Qt::ControlModifier);
            seen << viewer.nViewFormat;
        }
        QCOMPARE(seen, (QList<int>{1, 2, 0, 3, 1, 2}));
        QVERIFY(viewer.Text1->page().starts_with("000001.0: <00>"));
        // The record view says it is on: rows of 100, whatever the box held.
        QTest::keyClick(viewer.Text1, Qt::Key_M, Qt::ControlModifier);
        QVERIFY(viewer.txtWidth->text() == "100" && !viewer.txtWidth->isEnabled() && viewer.mnuMeta->isChecked());
        QTest::keyClick(viewer.Text1, Qt::Key_M, Qt::ControlModifier);
        QVERIFY(viewer.txtWidth->text() == "8" && viewer.txtWidth->isEnabled() && !viewer.mnuMeta->isChecked());
        // Ctrl+B flips between the byte modes, from AutoDetect to Binary/Text.
        QList<int> modes;
        for (const Qt::KeyboardModifiers modifiers :
             {Qt::KeyboardModifiers(Qt::ControlModifier), Qt::ControlModifier | Qt::ShiftModifier,
              Qt::KeyboardModifiers(Qt::ControlModifier)}) {
            QTest::keyPress(viewer.Text1, Qt::Key_B, modifiers);
            modes << viewer.Combo1->currentIndex();
        }
        QCOMPARE(modes, (QList<int>{1, 1, 0}));
    }

    void pageSize_data()
    {
        QTest::addColumn<SizeRow>("row");
        QTest::newRow("width 10") << SizeRow{1, "10", 160, "0x00000001-0x000000A0 (1-160)", 0};
        QTest::newRow("width 16") << SizeRow{0, "16", 128, "0x00000001-0x00000080 (1-128)", 16};
        QTest::newRow("width 3 is refused") << SizeRow{0, "3", 160, "0x00000001-0x000000A0 (1-160)", 10};
        QTest::newRow("width 4") << SizeRow{0, "4", 176, "0x00000001-0x000000B0 (1-176)", 4};
        // Rows wider than a quarter page: the default block.
        QTest::newRow("width 50") << SizeRow{0, "50", 256, "0x00000001-0x00000100 (1-256)", 50};
        QTest::newRow("text") << SizeRow{2, "10", 922, "0x00000001-0x0000039A (1-922)", 0};
    }

    void pageSize()
    {
        QFETCH(SizeRow, row);
        ViewWorld world;
        Form2& viewer = world.view(sequence(5000), 10);
        Form1& form = *world.form;
        setmode(viewer, row.mode);
        viewer.showpage();
        viewer.txtWidth->setText(row.width);
        QCOMPARE(form.viewstate().nViewBlock, row.block);
        QCOMPARE(viewer.Label2->text(), row.label2);
        // Left, the box shows the width in use.
        emit viewer.txtWidth->editingFinished();
        QCOMPARE(viewer.txtWidth->text(), QString::number(form.viewstate().nViewWidth));
        if (row.cells)
            QCOMPARE(QByteArray::fromStdString(viewer.Text1->page()).split('\n').first().count('<'), row.cells);
    }

    void resize()
    {
        ViewWorld world;
        Form2& viewer = world.view(sequence(5000));
        Form1& form = *world.form;
        setmode(viewer, 1);
        ViewWorld::setheight(viewer, kDesignHeight);
        QCOMPARE(form.viewstate().nViewBlock, 160);
        // The page follows the window at once; one that holds an edit waits.
        viewer.resize(viewer.width(), viewer.height() + 200);
        QTRY_VERIFY(form.viewstate().nViewBlock > 160 && form.viewstate().nViewBlock % (4 * form.viewstate().nViewWidth) == 0);
        QVERIFY(viewer.Label2->text().endsWith(QString("(1-%1)").arg(form.viewstate().nViewBlock)));
        const qint64 block = form.viewstate().nViewBlock;
        edit(viewer, "  A  ", "<7A> ");
        viewer.resize(viewer.width(), viewer.height() - 100);
        QTest::qWait(50);
        QCOMPARE(form.viewstate().nViewBlock, block);
        QVERIFY(viewer.Text1->page().starts_with("000001: <7A>"));
        QVERIFY(world.dialogs.records.empty());
    }

    void modeChangeKeepsEdit()
    {
        ViewWorld world;
        Form2& viewer = world.view(QByteArray("ABCD\0EFG", 8) + sequence(100));
        Form1& form = *world.form;
        QCOMPARE(form.viewstate().nViewMode, 1);
        edit(viewer, "  B  ", "<7A> ");
        setmode(viewer, 0);
        QVERIFY(viewer.Text1->page().starts_with("000001: <41> <7A> <43>"));
        // To Pure Text the NUL empties the box; back, the page comes from the file.
        setmode(viewer, 2);
        QCOMPARE(viewer.Text1->page(), std::string());
        setmode(viewer, 0);
        QVERIFY(viewer.Text1->page().starts_with("000001: <41> <42> <43>"));
    }

    void returnFromMainWindowKeepsEdit()
    {
        ViewWorld world;
        Form2& viewer = world.view(sequence(40));
        Form1& form = *world.form;
        auto visit = [&](QWidget& other) {
            other.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&other));
            viewer.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&viewer));
        };
        // Back from the main window an edit stays; without one the file is
        // read anew.
        edit(viewer, "ABC", "xyz");
        visit(form);
        QTest::qWait(20);
        QVERIFY(viewer.Text1->page().starts_with("xyz"));
        viewer.Text1->setpage(sequence(40).toStdString());
        world.write("f", "changed");
        visit(form);
        QTRY_COMPARE(viewer.Text1->page(), std::string("changed"));
        QVERIFY(world.dialogs.records.empty());
    }

    void scrolling_data()
    {
        // Zeros: the file opens in Binary/Text, width 10, a quarter page of 40.
        QTest::addColumn<ScrollRow>("row");
        QTest::newRow("Page Down from 1") << ScrollRow{2000, 1, Qt::Key_PageDown, 41};
        QTest::newRow("Page Down from 1005") << ScrollRow{2000, 1005, Qt::Key_PageDown, 1041};
        QTest::newRow("Page Up from 1005") << ScrollRow{2000, 1005, Qt::Key_PageUp, 961};
        QTest::newRow("Page Up at the start") << ScrollRow{2000, 1, Qt::Key_PageUp, 1};
        QTest::newRow("Page Down at the end") << ScrollRow{2000, 1961, Qt::Key_PageDown, 1961};
        QTest::newRow("Page Down onto the end") << ScrollRow{2000, 1921, Qt::Key_PageDown, 1961};
        // Far beyond 32,767 quarter pages the bar still follows the page.
        QTest::newRow("far") << ScrollRow{40 * 40000, 40 * 39000 + 1, Qt::Key_PageDown, 40 * 39001 + 1};
        QTest::newRow("Ctrl+End") << ScrollRow{2005, 1, Qt::Key_End, 1881, Qt::ControlModifier};
        QTest::newRow("Ctrl+Home") << ScrollRow{2005, 1005, Qt::Key_Home, 1, Qt::ControlModifier};
    }

    void scrolling()
    {
        QFETCH(ScrollRow, row);
        ViewWorld world;
        Form2& viewer = world.view(QByteArray(row.length, '\0'), 10);
        Form1& form = *world.form;
        form.viewstate().lViewPos = row.start;
        viewer.showpage();
        // On the press, before any key is let go.
        QTest::keyPress(viewer.Text1, row.key, row.modifiers);
        QCOMPARE(form.viewstate().lViewPos, row.pos);
        QVERIFY(world.dialogs.records.empty());
    }

    void hitWalk()
    {
        ViewWorld world;
        world.write("a", "xxHITxxxxHIT");
        world.write("b", "HITxx");
        Form1& form = world.start();
        world.find("HIT");
        QCOMPARE(rows(ui(form).List2), 3);
        setcurrentrow(ui(form).List2, 0);
        form.List2_Click();
        Form2& viewer = *form.viewer();
        // The arrow keys in List2 show each hit they reach.
        QTest::keyClick(ui(form).List2, Qt::Key_Down);
        QCOMPARE(form.viewstate().lViewHit, 10);
        QTest::keyClick(ui(form).List2, Qt::Key_Up);
        QCOMPARE(form.viewstate().lViewHit, 3);
        // F3 three times, the third past the last line (refused); Shift+F3
        // three times, the third up from the first line (none); F3.
        QStringList seen;
        for (const int shift : {0, 0, 0, 1, 1, 1, 0}) {
            QTest::keyPress(viewer.Text1, Qt::Key_F3, shift ? Qt::ShiftModifier : Qt::NoModifier);
            seen << QString::number(currentrow(ui(form).List2)) + ':' + QFileInfo(QString::fromStdString(form.viewstate().sViewFile)).fileName()
                        + '@' + QString::number(form.viewstate().lViewHit);
        }
        QCOMPARE(seen, (QStringList{"1:a@10", "2:b@1", "2:b@1", "1:a@10", "0:a@3", "-1:a@3", "0:a@3"}));
    }

    void gotoAnswers_data()
    {
        // The page opened from the file list (width 8) at 481, the last hit 500.
        QTest::addColumn<GotoRow>("row");
        const QStringList plain{"500"};
        const QStringList twice{"500", "=KLM"};
        QTest::newRow("the length") << GotoRow{"KLM", 0, {"2000"}, plain, 1984, 2000, true};
        QTest::newRow("past the length") << GotoRow{"KLM", 0, {"2001"}, plain, 481, 500, true};
        QTest::newRow("two rows and one") << GotoRow{"KLM", 0, {"17"}, plain, 1, 17, true};
        QTest::newRow("cancelled second box") << GotoRow{"KLM", 0, {"=", ""}, twice, 481, 500, true};
        QTest::newRow("find the last find") << GotoRow{"KLM", 0, {"="}, twice, 1, 11, true};
        QTest::newRow("another find") << GotoRow{"KLM", 0, {"=CDE"}, plain, 1, 3, true};
        QTest::newRow("no last find") << GotoRow{"", 1, {"="}, {"&H1F4&", "="}, 481, 500, false};
    }

    void gotoAnswers()
    {
        QFETCH(GotoRow, row);
        ViewWorld world;
        world.write("f", sequence(2000));
        Form1& form = world.start();
        if (!row.lastFind.isEmpty())
            world.find(row.lastFind);
        Form2& viewer = world.open("f");
        setmode(viewer, 1);
        viewer.nViewFormat = row.format;
        form.viewstate().lViewHit = 500;
        form.viewstate().lViewPos = 481;
        ViewWorld::setheight(viewer, kDesignHeight);
        world.dialogs.inputs = std::deque<QString>(row.answers.begin(), row.answers.end());
        viewer.mnuGoto_Click();
        QStringList defaults;
        for (const DialogRecord& asked : world.dialogs.records)
            defaults << asked.defaultText;
        QCOMPARE(defaults, row.defaults);
        QCOMPARE(form.viewstate().lViewPos, row.pos);
        QCOMPARE(form.viewstate().lViewHit, row.hit);
        QCOMPARE(viewer.isVisible(), row.open);
    }

    void fullTextTooLarge()
    {
        // Refused with a message, never shown in part: the page stays as it
        // was, and so do the mode box and the range.
        ViewWorld world;
        world.write("big", QByteArray());
        QFile::resize(world.file("big"), qint64(16) * 1024 * 1024 + 1);
        Form1& form = world.start();
        Form2& viewer = world.open("big");
        setmode(viewer, 1);
        const std::string page = viewer.Text1->page();
        const QString range = viewer.Label2->text();
        setmode(viewer, 3);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message).size(), 1);
        QCOMPARE(viewer.Combo1->currentIndex(), 1);
        QCOMPARE(form.viewstate().nViewMode, 1);
        QCOMPARE(viewer.Label2->text(), range);
        QCOMPARE(viewer.Text1->page(), page);
        QCOMPARE(form.viewstate().lViewPos, 1);
    }

    // Every way off a page with an edit asks first; Yes saves, No drops,
    // Cancel stays with the edit. The edit is "xyz" over "ABC", or "ABC"
    // cut with Ctrl+X and the program left with Ctrl+Q.
    void unsavedEdit_data()
    {
        QTest::addColumn<AskRow>("row");
        for (const char* route : {"close", "Exit", "quit", "Goto", "F3", "Page Down", "another file", "width", "Full Text", "Ctrl+X cut"})
            for (const auto& [name, reply] : {std::pair{"Yes", Reply::Yes}, {"No", Reply::No}, {"Cancel", Reply::Cancel}})
                QTest::addRow("%s, %s", route, name) << AskRow{route, reply};
    }

    void unsavedEdit()
    {
        QFETCH(AskRow, row);
        ViewWorld world;
        const QByteArray bytes = sequence(1000) + "HIT" + sequence(500) + "HIT";
        world.write("g", "other");
        world.write("f", bytes);
        Form1& form = world.start();
        world.find("HIT");
        Form2& viewer = world.open("f");
        const bool cut = row.route == "Ctrl+X cut";
        QTextCursor cursor = viewer.Text1->textCursor();
        if (cut) {
            cursor.setPosition(0);
            cursor.setPosition(3, QTextCursor::KeepAnchor);
            viewer.Text1->setTextCursor(cursor);
            QVERIFY(QTest::qWaitForWindowActive(&viewer));
            viewer.Text1->setFocus();
            QTest::keyClick(viewer.Text1, Qt::Key_X, Qt::ControlModifier);
        } else {
            edit(viewer, "ABC", "xyz");
        }
        const std::string edited = viewer.Text1->page();
        QVERIFY(edited != bytes.left(edited.size()).toStdString());
        world.dialogs.replies = {row.reply};
        world.dialogs.inputs = {"1200"};
        if (row.route == "close")
            viewer.mnuClose->trigger();
        else if (row.route == "Exit")
            viewer.mnuExit->trigger();
        else if (row.route == "quit")
            ui(form).mnuExit->trigger();
        else if (row.route == "Goto")
            viewer.mnuGoto->trigger();
        else if (row.route == "F3")
            QTest::keyPress(viewer.Text1, Qt::Key_F3);
        else if (row.route == "Page Down")
            QTest::keyPress(viewer.Text1, Qt::Key_PageDown);
        else if (row.route == "another file")
            setcurrentrow(ui(form).List1, findrow(ui(form).List1, "g\t")), form.List1_DblClick();
        else if (row.route == "width")
            viewer.txtWidth->setText("12");
        else if (row.route == "Full Text")
            setmode(viewer, 3);
        else
            QTest::keyClick(viewer.Text1, Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message), QStringList{"Save Changes|Save changes to " + world.file("f") + "?"});
        QCOMPARE(world.dialogs.records.back().buttons, Buttons::YesNoCancel);
        const QByteArray saved = (cut ? QByteArray() : QByteArray("xyz")) + bytes.mid(3);
        QCOMPARE(readfile(world.file("f")), row.reply == Reply::Yes ? saved : bytes);
        if (row.reply == Reply::Cancel) {
            QVERIFY(viewer.isVisible() && form.isVisible());
            QCOMPARE(viewer.Text1->page(), edited);
            QCOMPARE(form.viewstate().sViewFile, world.file("f").toStdString());
            QCOMPARE(form.viewstate().lViewPos, 1);
            QCOMPARE(viewer.Combo1->currentText(), QStringLiteral("AutoDetect: Pure Text"));
        }
        // Asked once: whatever comes next has no edit to ask about.
        QVERIFY(row.reply == Reply::Cancel || !viewer.pendingedit());
    }

    void clickOnCell_data()
    {
        // Rows of 4 cells of 48 69 0D 0A 00 FF 5A; the row's CR LF is one
        // character in the box, so box position 43 is the page text's 44.
        const QByteArray example("\x48\x69\x0D\x0A\x00\xFF\x5A", 7);
        QTest::addColumn<CellRow>("row");
        QTest::newRow("worked example") << CellRow{example, 0, 0, 43, "6"};
    }

    void clickOnCell()
    {
        QFETCH(CellRow, row);
        ViewWorld world;
        Form2& viewer = world.view(row.bytes, 4);
        viewer.nViewFormat = row.format;
        setmode(viewer, row.mode);
        QTextCursor cursor = viewer.Text1->textCursor();
        cursor.setPosition(row.at);
        viewer.Text1->setTextCursor(cursor);
        QTest::mouseRelease(viewer.Text1->viewport(), Qt::LeftButton);
        QCOMPARE(viewer.Label4->text(), row.label);
        // Each opening starts without a clicked position.
        world.open("f");
        QCOMPARE(viewer.Label4->text(), QStringLiteral("0000"));
    }

    void saves_data()
    {
        QTest::addColumn<SaveRow>("row");
        const QByteArray abc = sequence(40);
        auto with = [&](int at, int cut, const QByteArray& put) { return QByteArray(abc).replace(at, cut, put); };
        QTest::newRow("changed cell") << SaveRow{0, abc, "<42>", "<5A>", with(1, 1, "Z")};
        QTest::newRow("added cell") << SaveRow{1, abc, "  B  ", "  B  <00> ", with(2, 0, QByteArray(1, '\0'))};
        QTest::newRow("full text") << SaveRow{3, abc, "DEF", "d\r\ne\rf\n", with(3, 3, "d\r\ne\rf\n")};
        const QByteArray crlf = QByteArray(921, 'x') + "\r\n" + sequence(10);
        QTest::newRow("pure text took a byte more") << SaveRow{2, crlf, "xx", "y", QByteArray(crlf).replace(0, 2, "y")};
    }

    void saves()
    {
        QFETCH(SaveRow, row);
        ViewWorld world;
        Form2& viewer = world.view(row.file);
        Form1& form = *world.form;
        setmode(viewer, row.mode);
        edit(viewer, row.from, row.to);
        viewer.mnuSave_Click();
        QCOMPARE(readfile(world.file("f")), row.expected);
        QVERIFY(world.dialogs.seen(DialogRecord::Kind::Message).isEmpty());
        QCOMPARE(form.viewstate().lViewLen, qint64(form.viewstate().sViewText.size()));
        // Saving again changes nothing more.
        viewer.mnuSave_Click();
        QCOMPARE(readfile(world.file("f")), row.expected);
    }

    void saveAfterModeChangeAndTwice()
    {
        ViewWorld world;
        const QByteArray abc = sequence(40);
        Form2& viewer = world.view(abc);
        Form1& form = *world.form;
        setmode(viewer, 1);
        viewer.showpage();
        edit(viewer, "  A  ", "<61> <61> ");
        setmode(viewer, 0);
        // Page Down at the end goes nowhere and asks nothing.
        QTest::keyClick(viewer.Text1, Qt::Key_PageDown);
        QVERIFY(world.dialogs.records.empty());
        QCOMPARE(readfile(world.file("f")), abc);
        form.viewstate().lViewPos = 1;
        viewer.showpage();
        edit(viewer, "<41>", "<61> <61>");
        viewer.mnuSave_Click();
        QByteArray expected = QByteArray(abc).replace(0, 1, "aa");
        QCOMPARE(readfile(world.file("f")), expected);
        // The page is now 41 bytes long in the file: a second save splices there.
        edit(viewer, "<61> <61>", "");
        viewer.mnuSave_Click();
        QCOMPARE(readfile(world.file("f")), abc.mid(1));
    }
};

QTEST_MAIN(Form2Test)
#include "form2.moc"
