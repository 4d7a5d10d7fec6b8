#include "gui/viewer/form2.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFontDatabase>
#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QScreen>
#include <QScrollBar>
#include <QWindow>

#include <climits>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "engine/core/openbinary.h"
#include "engine/core/state.h"
#include "engine/viewer/detect.h"
#include "engine/viewer/page.h"
#include "engine/viewer/position.h"
#include "engine/viewer/save.h"
#include "engine/pattern/notation.h"
#include "gui/common/latin1.h"
#include "gui/seam/dialogs.h"
#include "gui/viewer/pagebox.h"
#include "gui/viewer/viewstate.h"

namespace brindlex::gui {

namespace {

constexpr std::size_t kBigPage = 1 << 20;

int pixels(int twips, int dpi) { return (twips * dpi + 720) / 1440; }
std::int64_t twips(int pixels, int dpi) { return static_cast<std::int64_t>(pixels) * 1440 / dpi; }

// The bold font is wider than the design's: a label grows to its caption.
void setcaption(QLabel* label, const QString& text)
{
    label->setText(text);
    label->resize(std::max(label->width(), label->sizeHint().width()), label->height());
}

}  // namespace

Form2::Form2(ViewState& state, ViewerHost& host) : state(state), host(host)
{
    setObjectName(QStringLiteral("Form2"));
    setWindowTitle(QStringLiteral("Form2"));
    QFont bold = QApplication::font();
    bold.setBold(true);
    setFont(bold);
    buildsurface();
    buildmenus();
    connect(qApp, &QGuiApplication::focusWindowChanged, this, &Form2::focuswindowchanged);
}

Form2::~Form2() = default;

void Form2::buildsurface()
{
    auto* client = new QWidget(this);
    setCentralWidget(client);
    const int dpiX = logicalDpiX();
    const int dpiY = logicalDpiY();
    auto place = [&](QWidget* w, const char* name, int left, int top, int width, int height) {
        w->setObjectName(QLatin1String(name));
        w->setGeometry(pixels(left, dpiX), pixels(top, dpiY), pixels(width, dpiX), pixels(height, dpiY));
        w->installEventFilter(this);
    };
    resize(pixels(9090, dpiX), pixels(3270, dpiY) + menuBar()->sizeHint().height());
    move(pixels(1755, dpiX), pixels(825, dpiY));

    Label1 = new QLabel(QStringLiteral("Indicate space with <20>"), client);
    place(Label1, "Label1", 225, 90, 4470, 240);
    Label2 = new QLabel(QStringLiteral("Indicate space with <20>"), client);
    place(Label2, "Label2", 225, 495, 5070, 240);
    Frame1 = new QFrame(client);
    Frame1->setFrameShape(QFrame::Box);
    place(Frame1, "Frame1", 4440, -100, 4575, 855);
    txtWidth = new QLineEdit(QStringLiteral("10"), Frame1);
    place(txtWidth, "txtWidth", 2280, 120, 375, 285);
    HScroll1 = new QScrollBar(Qt::Horizontal, Frame1);
    place(HScroll1, "HScroll1", 795, 450, 1455, 285);
    HScroll1->setSingleStep(1);
    HScroll1->setPageStep(4);
    HScroll1->setProperty("Tag", QString());
    Combo1 = new QComboBox(Frame1);
    place(Combo1, "Combo1", 2280, 450, 2040, 315);
    Label4 = new QLabel(QStringLiteral("0000"), Frame1);
    place(Label4, "Label4", 120, 120, 1590, 240);
    Label3 = new QLabel(QStringLiteral("wide"), Frame1);
    place(Label3, "Label3", 2880, 120, 1095, 255);
    Text1 = new PageBox(client);
    place(Text1, "Text1", 0, 840, 6495, 1845);
    Text1->viewport()->installEventFilter(this);
    QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    fixed.setBold(true);
    Text1->setFont(fixed);
    Text1->setTabStopDistance(8 * QFontMetricsF(fixed).horizontalAdvance(QLatin1Char(' ')));

    setTabOrder(txtWidth, HScroll1);
    setTabOrder(HScroll1, Combo1);
    setTabOrder(Combo1, Text1);
    connect(txtWidth, &QLineEdit::textChanged, this, [this] { txtWidth_Change(); });
    connect(HScroll1, &QScrollBar::valueChanged, this, [this] { HScroll1_Change(); });
    connect(Combo1, &QComboBox::activated, this, [this] { Combo1_Click(); });
}

void Form2::buildmenus()
{
    auto item = [this](QMenu* menu, const char* name, const char* caption, const QKeySequence& key, auto handler) {
        QAction* action = menu->addAction(QLatin1String(caption));
        action->setObjectName(QLatin1String(name));
        action->setShortcut(key);
        connect(action, &QAction::triggered, this, handler);
        return action;
    };
    mnuFile = menuBar()->addMenu(QStringLiteral("&File"));
    mnuFile->setObjectName(QStringLiteral("mnuFile"));
    mnuGoto = item(mnuFile, "mnuGoto", "&Goto", QKeySequence(Qt::CTRL | Qt::Key_G), [this] { mnuGoto_Click(); });
    mnuSave = item(mnuFile, "mnuSave", "&Save", QKeySequence(Qt::CTRL | Qt::Key_S), [this] { mnuSave_Click(); });
    mnuClose = item(mnuFile, "mnuClose", "&Close", QKeySequence(), [this] { mnuClose_Click(); });
    mnuExit = item(mnuFile, "mnuExit", "E&xit", QKeySequence(Qt::CTRL | Qt::Key_X), [this] { mnuExit_Click(); });
    mnuView = menuBar()->addMenu(QStringLiteral("&View"));
    mnuView->setObjectName(QStringLiteral("mnuView"));
    mnuHex = item(mnuView, "mnuHex", "Toggle &Hex", QKeySequence(Qt::CTRL | Qt::Key_H), [this] { mnuHex_Click(); });
    mnuMeta = item(mnuView, "mnuMeta", "Toggle &Meta", QKeySequence(Qt::CTRL | Qt::Key_M), [this] { mnuMeta_Click(); });
}

void Form2::open()
{
    if (!bLoaded)
        Form_Load();
    show();
    raise();
    activateWindow();
    // This is the activation: the focus arriving later must not read again.
    bFromMain = false;
    Form_Activate();
}

void Form2::Form_Load()
{
    bLoaded = true;
    Combo1->clear();
    Combo1->addItems({QStringLiteral("Pure Binary"), QStringLiteral("Binary/Text"), QStringLiteral("Pure Text"),
                      QStringLiteral("Full Text"), QStringLiteral("AutoDetect")});
    Text1->setpage({});
    setcombo(state.nViewMode);
    txtWidth->setText(QString::number(state.nViewWidth));
    placebesidemain();
}

void Form2::placebesidemain()
{
    const QWidget* main = host.mainwindow();
    const QRect outer = main->frameGeometry();
    const QScreen* screen = main->screen() ? main->screen() : QGuiApplication::primaryScreen();
    const int right = screen ? screen->geometry().right() + 1 : outer.right() + 1 + width();
    // The frame's extra width and height, once the window has a frame.
    const int extraW = frameGeometry().width() - width();
    const int extraH = frameGeometry().height() - height();
    const int left = outer.left() + outer.width();
    const int outerWidth = right - left - pixels(25, logicalDpiX());
    // Where the main window reaches the screen's edge the viewer keeps a
    // usable width and lies over the screen's edge.
    resize(std::max(outerWidth - extraW, pixels(4575, logicalDpiX())), std::max(outer.height() - extraH, 1));
    move(left, outer.top());
}

void Form2::focuswindowchanged(QWindow* window)
{
    if (!window)
        return;
    const QWidget* main = host.mainwindow();
    if (main && window == main->windowHandle()) {
        bFromMain = true;
    } else if (window == windowHandle() && bFromMain && isVisible()) {
        bFromMain = false;
        Form_Activate();
    }
}

void Form2::Form_Activate()
{
    // Hiding the box takes its focus away; it gets it back with the page.
    const bool focused = Text1->hasFocus();
    Text1->hide();
    bHidden = true;
    if (Combo1->currentIndex() == kModeAutoDetect)
        state.nViewMode = autodetect(state.sViewFile, AutoDetectAt::Activate);
    showpage();
    bHidden = false;
    Text1->show();
    if (focused)
        Text1->setFocus();
}

std::int64_t Form2::filelength() const
{
    std::error_code ec;
    const auto length = std::filesystem::file_size(state.sViewFile, ec);
    return ec ? 0 : static_cast<std::int64_t>(length);
}

std::int64_t Form2::twipsheight() const
{
    return twips(Text1->height(), logicalDpiY());
}

void Form2::message(const std::string& text)
{
    dialogs().messagebox(this, towidget(text), Buttons::Ok, Icon::None, towidget(sTitle));
}

// The page at lViewPos into the state: what the read gives, or what it says
// went wrong. A file that can't be opened leaves lViewLen and shows nothing.
void Form2::readintostate()
{
    const Page page = readpage(state.sViewFile, state.lViewPos, state.nViewBlock, state.nViewWidth,
                               state.nViewMode, nViewFormat);
    state.nViewBlock = page.nBlock;
    if (!page.opened) {
        message(openerrormessage(state.sViewFile, page.error));
        state.sViewText.clear();
        Text1->setpage({});
        return;
    }
    state.lViewPos = page.lPos;
    state.lViewLen = page.lViewLen;
    state.stamp = page.stamp;
    state.sViewText = state.nViewMode >= kModePureText ? page.sText : decodepage(page.sText);
    // Megabytes of Full Text take the box a moment to lay out.
    const bool big = page.sText.size() > kBigPage;
    if (big)
        QApplication::setOverrideCursor(Qt::WaitCursor);
    Text1->setpage(page.sText);
    if (big)
        QApplication::restoreOverrideCursor();
    if (page.error)
        message(page.error.text);
}

void Form2::showpage()
{
    state.nViewBlock = pageblock(twipsheight(), state.nViewWidth, state.nViewMode);
    readintostate();
    setcaption(Label1, QStringLiteral("<20>=space <0D>=CR <0A>=LF <09>=TAB"));
    Label1->setVisible(state.nViewMode < kModePureText);
    HScroll1->setVisible(state.nViewMode != kModeFullText);
    const std::int64_t length = filelength();
    setscrollbar(length);
    setWindowTitle(towidget(state.sViewFile + " (" + std::to_string(length) + " bytes)"));
    setcaption(Label2, towidget(pagerange(state.lViewPos, state.lViewLen)));
}

void Form2::setscrollbar(std::int64_t length)
{
    const std::int64_t q = state.nViewBlock / 4;
    HScroll1->setProperty("Tag", QStringLiteral("X"));
    HScroll1->setValue(0);
    // The bar counts in int, far beyond 32,767 quarter pages; a quotient
    // beyond that keeps what the bar had.
    if (q > 0) {
        if (length / q <= INT_MAX)
            HScroll1->setMaximum(static_cast<int>(length / q));
        if (state.lViewPos / q <= INT_MAX)
            HScroll1->setValue(static_cast<int>(state.lViewPos / q));
    }
    HScroll1->setProperty("Tag", QString());
}

void Form2::txtWidth_Change()
{
    const double width = std::nearbyint(inputnumber(fromwidget(txtWidth->text())));
    // Below 4 the box keeps what was typed; a width beyond an Integer is
    // refused the same way.
    if (width < 4 || width > 32767)
        return;
    state.nViewWidth = static_cast<int>(width);
    showpage();
    const QString written = QString::number(state.nViewWidth);
    if (txtWidth->text() != written) {
        const QSignalBlocker quiet(txtWidth);
        txtWidth->setText(written);
    }
}

void Form2::resizeEvent(QResizeEvent* event)
{
    QMainWindow::resizeEvent(event);
    Form_Resize();
}

void Form2::Form_Resize()
{
    const int dpiX = logicalDpiX();
    const int dpiY = logicalDpiY();
    const std::int64_t outerWidth = twips(frameGeometry().width(), dpiX);
    const std::int64_t outerHeight = twips(frameGeometry().height(), dpiY);
    const int textWidth = pixels(static_cast<int>(outerWidth - 150), dpiX);
    const std::int64_t textHeight = outerHeight - 840 - 710;
    Text1->setGeometry(pixels(10, dpiX), Text1->y(), std::max(textWidth, 0),
                       textHeight >= 0 ? pixels(static_cast<int>(textHeight), dpiY) : Text1->height());
    Frame1->move(pixels(static_cast<int>(outerWidth - 4575), dpiX), Frame1->y());
}

void Form2::closeEvent(QCloseEvent* event)
{
    Form_Unload();
    event->accept();
}

void Form2::Form_Unload()
{
    state.nViewMode = Combo1->currentIndex();
    bLoaded = false;
    if (QWidget* main = host.mainwindow()) {
        main->raise();
        main->activateWindow();
    }
}

void Form2::mnuClose_Click()
{
    close();
}

void Form2::mnuExit_Click()
{
    host.endprogram();
}

void Form2::mnuHex_Click()
{
    nViewFormat = (nViewFormat + 1) % 3;
    showpage();
}

void Form2::mnuMeta_Click()
{
    nViewFormat = nViewFormat == 3 ? 1 : 3;
    showpage();
}

void Form2::setcombo(int index)
{
    {
        const QSignalBlocker quiet(Combo1);
        Combo1->setCurrentIndex(index);
    }
    Combo1_Click();
}

void Form2::Combo1_Click()
{
    QTextCursor cursor = Text1->textCursor();
    const int anchor = cursor.anchor();
    const int position = cursor.position();
    const int old = state.nViewMode;
    const int chosen = Combo1->currentIndex();
    bool reload = chosen == kModeFullText || old == kModeFullText;
    std::string bytes;
    if (!reload) {
        bytes = pagebytes(Text1->page(), old);
        reload = bytes.empty();
    }
    state.nViewMode = chosen == kModeAutoDetect ? autodetect(state.sViewFile, AutoDetectAt::ComboClick) : chosen;
    if (bHidden)
        return;
    if (reload) {
        Form_Activate();
        return;
    }
    Text1->setpage(formatpage(bytes, state.lViewPos, state.nViewWidth, state.nViewMode, nViewFormat));
    const int end = static_cast<int>(Text1->document()->characterCount()) - 1;
    cursor = Text1->textCursor();
    cursor.setPosition(std::min(anchor, end));
    cursor.setPosition(std::min(position, end), QTextCursor::KeepAnchor);
    Text1->setTextCursor(cursor);
    Label1->setVisible(state.nViewMode < 2);
}

}  // namespace brindlex::gui
