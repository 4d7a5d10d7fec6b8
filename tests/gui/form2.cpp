// The viewer driven through its real widgets, opened from the main window's
// lists as a user opens it. What a page shows, where a goto or a hit puts it
// and what AutoDetect picks are the engine's tests; these check the window.
#include <QtTest>
#include <QtWidgets>

#include <functional>
#include <string_view>
#include <tuple>

#include "gui/viewer/form2.h"
#include "gui/viewer/pagebox.h"
#include "support/guiworld.h"

using namespace brindlex::gui;
using namespace brindlex::gui::test;

namespace {

constexpr int kDesignHeight = 1845;   // Text1's height at design, in twips

// A world that keeps its window, for the viewer opened from it.
class ViewWorld : public World {
public:
    Form1& start() { return *(form = World::start()); }

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

    // Opens `name` from the file list, with the page box at its design height.
    Form2& open(const QString& name)
    {
        if (const int row = findrow(ui(*form).List1, name + '\t'); row >= 0)
            setcurrentrow(ui(*form).List1, row);
        form->List1_DblClick();
        setheight(*form->viewer(), kDesignHeight);
        return *form->viewer();
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
    void find(const QString& pattern) { ui(*form).Text2->setText(pattern), ui(*form).cmd[0]->click(); }

    ViewState& state() { return form->viewstate(); }

    std::unique_ptr<Form1> form;
};

void setmode(Form2& viewer, int mode) { viewer.Combo1->setCurrentIndex(mode), viewer.Combo1_Click(); }

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

struct AskRow { std::function<void(ViewWorld&, Form2&)> route; Reply reply; bool cut; };

}  // namespace

Q_DECLARE_METATYPE(AskRow)

class Form2Test : public QObject {
    Q_OBJECT

private slots:
    void pageboxRoundTrip()
    {
        // Bytes 1-255 among line ends of each kind, so that every byte meets
        // the box; every CR and LF, alone or paired, is a line break there,
        // and Enter types the page's usual line end.
        QByteArray every;
        for (int b = 1; b < 256; ++b)
            every += static_cast<char>(b);
        const std::tuple<QByteArray, int, QByteArray> rows[] = {
            {QByteArray("a\r\nb\r\n") + every + "\r\nz\r", 7, "\r\n"},   // a CR at the end too
            {QByteArray("a\nb\nc\n") + every + "\n\r\nz", 8, "\n"},
            {QByteArray("\r\r\n\n\r\r\t\n"), 7, "\n"},
        };
        for (const auto& [bytes, lines, end] : rows) {
            PageBox box;
            box.setpage(bytes.toStdString());
            QCOMPARE(QByteArray::fromStdString(box.page()), bytes);
            QCOMPARE(box.document()->toPlainText().count('\n') + 1, lines);
            QTextCursor cursor(box.document());
            cursor.movePosition(QTextCursor::End);
            box.setTextCursor(cursor);
            QTest::keyClick(&box, Qt::Key_Return);
            QCOMPARE(QByteArray::fromStdString(box.page()), bytes + end);
        }
    }

    void openingAndHitWalk()
    {
        // A hit from List2, then the file from List1, by the file's real
        // name, blanks and tabs and all (the editor rows try more such names).
        ViewWorld world;
        const QString name = "c name\twith  blanks";
        world.write("a", "xxHITxxxxHIT");
        world.write("b", "HITxx");
        world.write(name, QByteArray(600, 'x').replace(499, 3, "HIT"));
        Form1& form = world.start();
        world.find("HIT");
        QTest::mouseClick(ui(form).List2->viewport(), Qt::LeftButton, {},
                          ui(form).List2->visualRect(ui(form).List2->model()->index(3, 0)).center());
        QTRY_VERIFY(ui(form).List2->hasFocus());
        for (const auto& [pos, hit] : {std::pair{480, 500}, {1, 500}}) {
            QVERIFY(form.viewer() && form.viewer()->isVisible());
            QCOMPARE(form.viewer()->windowTitle(), world.file(name) + " (600 bytes)");
            QCOMPARE(world.state().lViewPos, pos);
            QCOMPARE(world.state().lViewHit, hit);
            QCOMPARE(form.viewer()->txtWidth->text(), QStringLiteral("10"));
            setcurrentrow(ui(form).List1, findrow(ui(form).List1, name + '\t'));
            form.List1_DblClick();
        }
        setcurrentrow(ui(form).List2, 0);
        form.List2_Click();
        Form2& viewer = *form.viewer();
        // The arrow keys in List2 show each hit they reach.
        QTest::keyClick(ui(form).List2, Qt::Key_Down);
        QCOMPARE(form.viewstate().lViewHit, 10);
        QTest::keyClick(ui(form).List2, Qt::Key_Up);
        QCOMPARE(form.viewstate().lViewHit, 3);
        // F3 four times, the fourth past the last line (refused); Shift+F3
        // four times, the fourth up from the first line (none); F3.
        QStringList seen;
        for (const int shift : {0, 0, 0, 0, 1, 1, 1, 1, 0}) {
            QTest::keyPress(viewer.Text1, Qt::Key_F3, shift ? Qt::ShiftModifier : Qt::NoModifier);
            seen << QString::number(currentrow(ui(form).List2)) + ':' + QFileInfo(QString::fromStdString(form.viewstate().sViewFile)).fileName()
                        + '@' + QString::number(form.viewstate().lViewHit);
        }
        const QString c = "3:" + name + "@500";
        QCOMPARE(seen, (QStringList{"1:a@10", "2:b@1", c, c, "2:b@1", "1:a@10", "0:a@3", "-1:a@3", "0:a@3"}));
    }

    void modeBox()
    {
        // The box says what AutoDetect picked, picks anew when chosen again,
        // and is AutoDetect again at the next opening. An edit stays through
        // the byte modes; to Pure Text the NUL empties the box, and back, the
        // page comes from the file.
        ViewWorld world;
        world.write("big", QByteArray());
        QFile::resize(world.file("big"), qint64(16) * 1024 * 1024 + 1);
        Form2& viewer = world.view(QByteArray("ABCD\0EFG", 8) + sequence(100));
        QCOMPARE(viewer.Combo1->currentText(), QStringLiteral("AutoDetect: Binary/Text"));
        QCOMPARE(world.state().nViewMode, 1);
        QVERIFY(viewer.Label1->isVisibleTo(&viewer));
        edit(viewer, "  B  ", "<7A> ");
        setmode(viewer, 0);
        QVERIFY(viewer.Text1->page().starts_with("000001: <41> <7A> <43>"));
        setmode(viewer, 2);
        QCOMPARE(viewer.Text1->page(), std::string());
        QVERIFY(!viewer.Label1->isVisibleTo(&viewer));
        setmode(viewer, 0);
        QVERIFY(viewer.Text1->page().starts_with("000001: <41> <42> <43>"));
        setmode(viewer, 4);
        QCOMPARE(world.state().nViewMode, 1);
        viewer.mnuClose_Click();
        QCOMPARE(world.state().nViewMode, 4);
        // Full Text of a file too large is refused with a message, never shown
        // in part: the page stays as it was, and so do the mode box and the
        // range, also when the page was last read in another mode (here
        // Binary/Hex, from the file again after the empty Pure Text box).
        world.open("big");
        setmode(viewer, 2);
        setmode(viewer, 0);
        setmode(viewer, 1);
        const std::string page = viewer.Text1->page();
        const QString range = viewer.Label2->text();
        setmode(viewer, 3);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message).size(), 1);
        QCOMPARE(viewer.Combo1->currentIndex(), 1);
        QCOMPARE(world.state().nViewMode, 1);
        QCOMPARE(viewer.Label2->text(), range);
        QCOMPARE(viewer.Text1->page(), page);
        QCOMPARE(world.state().lViewPos, 1);
        // Ctrl+H cycles the position format, Ctrl+M turns the record view
        // on and off, which says it is on: rows of 100, whatever the box held.
        setmode(viewer, 4);
        world.open("f");
        QVERIFY(QTest::qWaitForWindowActive(&viewer));
        QList<int> seen;
        for (const Qt::Key key : {Qt::Key_H, Qt::Key_H, Qt::Key_H, Qt::Key_M, Qt::Key_M, Qt::Key_H}) {
            QTest::keyClick(viewer.Text1, key, Qt::ControlModifier);
            seen << viewer.nViewFormat;
        }
        QCOMPARE(seen, (QList<int>{1, 2, 0, 3, 1, 2}));
        QVERIFY(viewer.Text1->page().starts_with("000001.0: "));
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

    void pageSize()
    {
        // A typed width sizes the page at once (rows wider than a quarter
        // page get the default block); under 4 it is refused, and the box,
        // left, shows the width in use. The page follows the window's
        // height at once; one that holds an edit waits.
        ViewWorld world;
        Form2& viewer = world.view(sequence(5000), 10);
        ViewState& state = world.state();
        setmode(viewer, 0);
        for (const auto& [typed, width, block] : {std::tuple{"16", 16, 128}, {"3", 16, 128}, {"50", 50, 256}}) {
            viewer.txtWidth->setText(typed);
            emit viewer.txtWidth->editingFinished();
            QCOMPARE(viewer.txtWidth->text(), QString::number(width));
            QCOMPARE(state.nViewBlock, block);
            QVERIFY(viewer.Label2->text().endsWith(QString("(1-%1)").arg(block)));
            QCOMPARE(QByteArray::fromStdString(viewer.Text1->page()).split('\n').first().count('<'), width);
        }
        setmode(viewer, 2);
        viewer.showpage();
        QCOMPARE(state.nViewBlock, 922);
        viewer.txtWidth->setText("10");
        setmode(viewer, 1);
        viewer.showpage();
        QCOMPARE(state.nViewBlock, 160);
        viewer.resize(viewer.width(), viewer.height() + 200);
        QTRY_VERIFY(state.nViewBlock > 160 && state.nViewBlock % (4 * state.nViewWidth) == 0);
        QVERIFY(viewer.Label2->text().endsWith(QString("(1-%1)").arg(state.nViewBlock)));
        const qint64 block = state.nViewBlock;
        const std::string page = viewer.Text1->page();
        edit(viewer, "  A  ", "<7A> ");
        viewer.resize(viewer.width(), viewer.height() - 100);
        QTest::qWait(50);
        QCOMPARE(state.nViewBlock, block);
        QVERIFY(viewer.Text1->page().starts_with("000001: <7A>"));
        // Back from the main window an edit stays too; without one the file
        // is read anew.
        auto visit = [&] {
            world.form->activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(world.form.get()));
            viewer.activateWindow();
            QVERIFY(QTest::qWaitForWindowActive(&viewer));
        };
        visit();
        QTest::qWait(20);
        QVERIFY(viewer.Text1->page().starts_with("000001: <7A>"));
        viewer.Text1->setpage(page);
        world.write("f", "changed");
        visit();
        QTRY_VERIFY(viewer.Text1->page().starts_with("000001:   c    h    a  "));
        QVERIFY(world.dialogs.records.empty());
    }

    void scrolling()
    {
        // Zeros: the file opens in Binary/Text, width 10, a quarter page of 40.
        // The page moves on the press, before any key is let go, and asks nothing.
        const struct { const char* what; qint64 length, start; Qt::Key key; qint64 pos; Qt::KeyboardModifiers modifiers = {}; } rows[] = {
            {"Page Down from 1005", 2000, 1005, Qt::Key_PageDown, 1041},
            {"Page Up from 1005", 2000, 1005, Qt::Key_PageUp, 961},
            {"Page Up at the start", 2000, 1, Qt::Key_PageUp, 1},
            {"Page Down at the end", 2000, 1961, Qt::Key_PageDown, 1961},
            {"Page Down onto the end", 2000, 1921, Qt::Key_PageDown, 1961},
            // Far beyond 32,767 quarter pages the bar still follows the page.
            {"far", 40 * 40000, 40 * 39000 + 1, Qt::Key_PageDown, 40 * 39001 + 1},
            {"Ctrl+End", 2005, 1, Qt::Key_End, 1881, Qt::ControlModifier},
            {"Ctrl+Home", 2005, 1005, Qt::Key_Home, 1, Qt::ControlModifier},
        };
        QStringList got, want;
        for (const auto& row : rows) {
            ViewWorld world;
            Form2& viewer = world.view(QByteArray(row.length, '\0'), 10);
            world.state().lViewPos = row.start;
            viewer.showpage();
            QTest::keyPress(viewer.Text1, row.key, row.modifiers);
            got << row.what + QString(": %1").arg(world.state().lViewPos) + (world.dialogs.records.empty() ? "" : " asked");
            want << row.what + QString(": %1").arg(row.pos);
        }
        QCOMPARE(got, want);
    }

    void gotoAnswers()
    {
        // The page opened from the file list (width 8) at 481, the last hit
        // 500: the defaults the boxes offered, where the page and the hit
        // went, and whether the viewer stays open.
        const QStringList plain{"500"}, twice{"500", "=KLM"};
        const struct { const char* what; QString lastFind; int format; QStringList answers, defaults; qint64 pos, hit; bool open; } rows[] = {
            {"the length", "KLM", 0, {"2000"}, plain, 1984, 2000, true},
            {"past the length", "KLM", 0, {"2001"}, plain, 481, 500, true},
            {"cancelled second box", "KLM", 0, {"=", ""}, twice, 481, 500, true},
            {"another find", "KLM", 0, {"=CDE"}, plain, 1, 3, true},
            {"no last find", "", 1, {"="}, {"&H1F4&", "="}, 481, 500, false},
        };
        QStringList got, want;
        for (const auto& row : rows) {
            ViewWorld world;
            world.write("f", sequence(2000));
            world.start();
            if (!row.lastFind.isEmpty())
                world.find(row.lastFind);
            Form2& viewer = world.open("f");
            setmode(viewer, 1);
            viewer.nViewFormat = row.format;
            world.state().lViewHit = 500;
            world.state().lViewPos = 481;
            ViewWorld::setheight(viewer, kDesignHeight);
            world.dialogs.inputs = std::deque<QString>(row.answers.begin(), row.answers.end());
            viewer.mnuGoto_Click();
            QStringList defaults;
            for (const DialogRecord& asked : world.dialogs.records)
                defaults << asked.defaultText;
            auto said = [&](const QStringList& offered, qint64 pos, qint64 hit, bool open) {
                return QString("%1: %2 at %3 hit %4 %5").arg(row.what, offered.join(',')).arg(pos).arg(hit).arg(open);
            };
            got << said(defaults, world.state().lViewPos, world.state().lViewHit, viewer.isVisible());
            want << said(row.defaults, row.pos, row.hit, row.open);
        }
        QCOMPARE(got, want);
    }

    // Every way off a page with an edit asks first; Yes saves, No drops,
    // Cancel stays with the edit. The edit is "xyz" over "ABC", or "ABC"
    // cut with Ctrl+X and the program left with Ctrl+Q. To a way off, Yes
    // and No are both "go on": each way gets Cancel and one of them.
    void unsavedEdit_data()
    {
        QTest::addColumn<AskRow>("row");
        using Route = std::function<void(ViewWorld&, Form2&)>;
        const std::pair<const char*, Route> routes[] = {
            {"close", [](ViewWorld&, Form2& v) { v.mnuClose->trigger(); }},
            {"Exit", [](ViewWorld&, Form2& v) { v.mnuExit->trigger(); }},
            {"quit", [](ViewWorld& w, Form2&) { ui(*w.form).mnuExit->trigger(); }},
            {"Goto", [](ViewWorld&, Form2& v) { v.mnuGoto->trigger(); }},
            {"F3", [](ViewWorld&, Form2& v) { QTest::keyPress(v.Text1, Qt::Key_F3); }},
            {"Page Down", [](ViewWorld&, Form2& v) { QTest::keyPress(v.Text1, Qt::Key_PageDown); }},
            {"another file", [](ViewWorld& w, Form2&) { setcurrentrow(ui(*w.form).List1, 1), w.form->List1_DblClick(); }},
            {"width", [](ViewWorld&, Form2& v) { v.txtWidth->setText("12"); }},
            {"Full Text", [](ViewWorld&, Form2& v) { setmode(v, 3); }},
            {"Ctrl+X cut", [](ViewWorld&, Form2& v) { QTest::keyClick(v.Text1, Qt::Key_Q, Qt::ControlModifier); }},
        };
        bool yes = true;
        for (const auto& [name, route] : routes) {
            const bool cut = std::string_view(name) == "Ctrl+X cut";
            QTest::addRow("%s, %s", name, yes ? "Yes" : "No") << AskRow{route, yes ? Reply::Yes : Reply::No, cut};
            QTest::addRow("%s, Cancel", name) << AskRow{route, Reply::Cancel, cut};
            yes = !yes;
        }
    }

    void unsavedEdit()
    {
        QFETCH(AskRow, row);
        ViewWorld world;
        const QByteArray bytes = sequence(921) + "\r\n" + sequence(77) + "HIT" + sequence(500) + "HIT";
        world.write("g", "other");
        world.write("f", bytes);
        Form1& form = world.start();
        world.find("HIT");
        Form2& viewer = world.open("f");
        if (row.cut) {
            QTextCursor cursor(viewer.Text1->document());   // at the start
            cursor.setPosition(3, QTextCursor::KeepAnchor);
            viewer.Text1->setTextCursor(cursor);
            QVERIFY(QTest::qWaitForWindowActive(&viewer));
            viewer.Text1->setFocus();
            QTest::keyClick(viewer.Text1, Qt::Key_X, Qt::ControlModifier);
        } else {
            edit(viewer, "ABC", "xyz");
        }
        const std::string edited = viewer.Text1->page();
        world.dialogs.replies = {row.reply};
        world.dialogs.inputs = {"1200"};
        row.route(world, viewer);
        QCOMPARE(world.dialogs.seen(DialogRecord::Kind::Message), QStringList{"Save Changes|Save changes to " + world.file("f") + "?"});
        QCOMPARE(world.dialogs.records.back().buttons, Buttons::YesNoCancel);
        const QByteArray saved = (row.cut ? QByteArray() : QByteArray("xyz")) + bytes.mid(3);
        QCOMPARE(readfile(world.file("f")), row.reply == Reply::Yes ? saved : bytes);
        if (row.reply == Reply::Cancel) {
            QVERIFY(viewer.isVisible() && form.isVisible());
            QCOMPARE(viewer.Text1->page(), edited);
            QCOMPARE(world.state().sViewFile, world.file("f").toStdString());
            QCOMPARE(world.state().lViewPos, 1);
            QCOMPARE(viewer.Combo1->currentText(), QStringLiteral("AutoDetect: Pure Text"));
        }
        // Asked once: whatever comes next has no edit to ask about.
        QVERIFY(row.reply == Reply::Cancel || !viewer.pendingedit());
    }

    void saves()
    {
        // An edit in Binary/Text: Page Down at the end goes nowhere and asks
        // nothing. Saved, the page is 41 bytes long in the file, as the
        // window's state says: a second save, from Binary/Hex, splices there.
        ViewWorld world;
        const QByteArray abc = sequence(40);
        world.write("h", QByteArray("\x48\x69\x0D\x0A\x00\xFF\x5A", 7));
        Form2& viewer = world.view(abc);
        setmode(viewer, 1);
        viewer.showpage();
        edit(viewer, "  A  ", "<61> <61> ");
        QTest::keyClick(viewer.Text1, Qt::Key_PageDown);
        QVERIFY(world.dialogs.records.empty());
        QCOMPARE(readfile(world.file("f")), abc);
        viewer.mnuSave_Click();
        QCOMPARE(readfile(world.file("f")), QByteArray(abc).replace(0, 1, "aa"));
        QCOMPARE(world.state().lViewLen, 41);
        setmode(viewer, 0);
        edit(viewer, "<61> <61> ", "");
        viewer.mnuSave_Click();
        QCOMPARE(readfile(world.file("f")), abc.mid(1));

        // A click on a cell: rows of 4 cells of 48 69 0D 0A 00 FF 5A, the
        // row's CR LF one character in the box, so box position 43 is the
        // page text's 44. Each opening starts without a clicked position.
        world.state().nViewWidth = 4;
        world.open("h");
        setmode(viewer, 0);
        QTextCursor cursor = viewer.Text1->textCursor();
        cursor.setPosition(43);
        viewer.Text1->setTextCursor(cursor);
        QTest::mouseRelease(viewer.Text1->viewport(), Qt::LeftButton);
        QCOMPARE(viewer.Label4->text(), QStringLiteral("6"));
        world.open("h");
        QCOMPARE(viewer.Label4->text(), QStringLiteral("0000"));
    }
};

QTEST_MAIN(Form2Test)
#include "form2.moc"
