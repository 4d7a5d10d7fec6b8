#include "gui/viewer/form2.h"

#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QFontDatabase>
#include <QFrame>
#include <QGridLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QVBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QScreen>
#include <QScrollBar>
#include <QWindow>

#include <algorithm>
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
const char* const kModeNames[] = {"Pure Binary", "Binary/Text", "Pure Text", "Full Text", "AutoDetect"};

int pixels(int twips, int dpi) { return (twips * dpi + 720) / 1440; }
std::int64_t twips(int pixels, int dpi) { return static_cast<std::int64_t>(pixels) * 1440 / dpi; }

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
    follow.setInterval(50);
    connect(&follow, &QTimer::timeout, this, [this] { followmain(); });
}

Form2::~Form2() = default;

// From the top: the legend (Label1) over the page's range (Label2) at the
// left, the frame at the right with the caret's position (Label4), the
// width box and "wide" over the scroll bar and the mode box; the page box
// below takes the rest of the window.
void Form2::buildsurface()
{
    auto* client = new QWidget(this);
    setCentralWidget(client);
    auto named = [this](QWidget* w, const char* name) {
        w->setObjectName(QLatin1String(name));
        w->installEventFilter(this);
    };
    Label1 = new QLabel(QStringLiteral("Indicate space with <20>"));
    named(Label1, "Label1");
    Label2 = new QLabel(QStringLiteral("Indicate space with <20>"));
    named(Label2, "Label2");
    Frame1 = new QFrame;
    Frame1->setFrameShape(QFrame::Box);
    named(Frame1, "Frame1");
    txtWidth = new QLineEdit(QStringLiteral("10"));
    named(txtWidth, "txtWidth");
    // Five digits and the frame: the widest width the box takes.
    txtWidth->setMinimumWidth(txtWidth->fontMetrics().horizontalAdvance(QStringLiteral("000000")) + 8);
    txtWidth->setMaximumWidth(txtWidth->minimumWidth());
    HScroll1 = new QScrollBar(Qt::Horizontal);
    named(HScroll1, "HScroll1");
    HScroll1->setSingleStep(1);
    HScroll1->setPageStep(4);
    HScroll1->setMinimumWidth(pixels(1455, logicalDpiX()));
    HScroll1->setProperty("Tag", QString());
    Combo1 = new QComboBox;
    named(Combo1, "Combo1");
    Combo1->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    Label4 = new QLabel(QStringLiteral("0000"));
    named(Label4, "Label4");
    Label3 = new QLabel(QStringLiteral("wide"));
    named(Label3, "Label3");
    Text1 = new PageBox;
    named(Text1, "Text1");
    Text1->viewport()->installEventFilter(this);
    QFont fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont);
    fixed.setBold(true);
    // The page's font grows with the system's font.
    const qreal general = QFontDatabase::systemFont(QFontDatabase::GeneralFont).pointSizeF();
    if (general > 0 && fixed.pointSizeF() > 0 && QApplication::font().pointSizeF() > 0)
        fixed.setPointSizeF(fixed.pointSizeF() * QApplication::font().pointSizeF() / general);
    Text1->setFont(fixed);
    Text1->setTabStopDistance(8 * QFontMetricsF(fixed).horizontalAdvance(QLatin1Char(' ')));

    auto* frame = new QGridLayout(Frame1);
    frame->addWidget(Label4, 0, 0);
    frame->addWidget(txtWidth, 0, 1);
    frame->addWidget(Label3, 0, 2);
    frame->addWidget(HScroll1, 1, 0);
    frame->addWidget(Combo1, 1, 1, 1, 2);
    frame->setColumnStretch(0, 1);
    auto* captions = new QVBoxLayout;
    captions->addWidget(Label1);
    captions->addWidget(Label2);
    captions->addStretch();
    auto* header = new QHBoxLayout;
    header->addLayout(captions);
    header->addStretch();
    header->addWidget(Frame1);
    auto* page = new QVBoxLayout(client);
    page->setContentsMargins(2, 2, 2, 2);
    page->addLayout(header);
    page->addWidget(Text1, 1);

    // The design's size, or what the texts need where that is more.
    const int dpiX = logicalDpiX();
    const int dpiY = logicalDpiY();
    resize(pixels(9090, dpiX), pixels(3270, dpiY) + menuBar()->sizeHint().height());

    setTabOrder(txtWidth, HScroll1);
    setTabOrder(HScroll1, Combo1);
    setTabOrder(Combo1, Text1);
    connect(txtWidth, &QLineEdit::textChanged, this, [this] { txtWidth_Change(); });
    // A width that was refused gives way to the one in use when the user
    // leaves the box.
    connect(txtWidth, &QLineEdit::editingFinished, this, [this] {
        const QSignalBlocker quiet(txtWidth);
        txtWidth->setText(QString::number(nViewFormat == kFormatMeta && state.nViewMode < kModePureText ? 100 : state.nViewWidth));
    });
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
    // Ctrl+X is the page's Cut; the program ends with Ctrl+Q.
    mnuExit = item(mnuFile, "mnuExit", "E&xit", QKeySequence(Qt::CTRL | Qt::Key_Q), [this] { mnuExit_Click(); });
    mnuView = menuBar()->addMenu(QStringLiteral("&View"));
    mnuView->setObjectName(QStringLiteral("mnuView"));
    mnuHex = item(mnuView, "mnuHex", "Toggle &Hex", QKeySequence(Qt::CTRL | Qt::Key_H), [this] { mnuHex_Click(); });
    mnuMeta = item(mnuView, "mnuMeta", "Toggle &Meta", QKeySequence(Qt::CTRL | Qt::Key_M), [this] { mnuMeta_Click(); });
    mnuMeta->setCheckable(true);
}

void Form2::open()
{
    // The opener has set the state for the page it wants; an edit of the
    // page on show is asked about first, and Cancel keeps it.
    if (bLoaded && isVisible() && !releaseedit()) {
        restoreshown();
        raise();
        activateWindow();
        return;
    }
    if (!bLoaded)
        Form_Load();
    Label4->setText(QStringLiteral("0000"));
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
    for (const char* name : kModeNames)
        Combo1->addItem(QLatin1String(name));
    Text1->setpage({});
    shown = ViewState{};
    setcombo(state.nViewMode);
    txtWidth->setText(QString::number(state.nViewWidth));
    placebesidemain();
}

// The window manager frames and places the main window some time after it
// was shown: until its frame stands still (and for a few seconds at most),
// the viewer follows it.
void Form2::placebesidemain()
{
    mainFrame = QRect();
    followTicks = 0;
    stillTicks = 0;
    placeonce();
    follow.start();
}

void Form2::followmain()
{
    // Both windows are followed until they have stood still, framed, for a
    // second; a window manager on a busy machine may frame and place the
    // main window seconds after it was shown. Twenty seconds at most.
    const QWidget* main = host.mainwindow();
    ++followTicks;
    if (!main || followTicks > 400) {
        follow.stop();
        return;
    }
    auto framed = [](const QWidget* w) {
        return w->windowHandle() && w->windowHandle()->isExposed() && w->frameGeometry() != w->geometry();
    };
    // Until the viewer has a frame of its own, a move may have placed its
    // inside where its frame should be: it is placed again once it has one.
    if (main->frameGeometry() != mainFrame || (framed(this) && frameGeometry() != placed)) {
        placeonce();
        stillTicks = 0;
    } else if (framed(main) && framed(this) && ++stillTicks >= 20) {
        follow.stop();
    }
}

void Form2::placeonce()
{
    QWidget* main = host.mainwindow();
    if (!main)
        return;
    mainFrame = main->frameGeometry();
    const QScreen* screen = main->screen() ? main->screen() : QGuiApplication::primaryScreen();
    const QRect area = screen ? screen->availableGeometry() : QRect(mainFrame.topLeft(), QSize(4096, 4096));
    // The viewer gets the frame the main window has, once that is known.
    const QMargins frame(main->geometry().left() - mainFrame.left(), main->geometry().top() - mainFrame.top(),
                         mainFrame.right() - main->geometry().right(), mainFrame.bottom() - main->geometry().bottom());
    const int extraW = frame.left() + frame.right();
    const int extraH = frame.top() + frame.bottom();
    const QSize least = minimumSizeHint().expandedTo(minimumSize()) + QSize(extraW, extraH);
    const int gap = pixels(25, logicalDpiX());
    int left = mainFrame.right() + 1;
    int outerWidth = area.right() + 1 - left - gap;
    // Where the window manager put the main window too far right for the
    // viewer, the main window moves left as far as it must and can.
    if (const int shift = std::min(least.width() - outerWidth, mainFrame.left() - area.left()); shift > 0) {
        mainFrame.translate(-shift, 0);
        main->move(mainFrame.topLeft());
        left -= shift;
        outerWidth += shift;
    }
    if (outerWidth < least.width()) {
        // No room to the right: as wide as it must be, moved left onto the screen.
        outerWidth = std::min(std::max(least.width(), pixels(9090, logicalDpiX()) + extraW), area.width());
        left = area.right() + 1 - outerWidth;
    }
    int top = mainFrame.top();
    int outerHeight = std::max(mainFrame.height(), least.height());
    outerHeight = std::min(outerHeight, area.height());
    top = std::clamp(top, area.top(), area.bottom() + 1 - outerHeight);
    left = std::max(left, area.left());
    resize(std::max(outerWidth - extraW, 1), std::max(outerHeight - extraH, 1));
    move(left, top);
    placed = QRect(left, top, outerWidth, outerHeight);
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
        // Back from the main window: the file is read anew, but an edit
        // stays as the user left it.
        if (!pendingedit())
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
// False when Full Text was refused: the page on show stays.
bool Form2::readintostate()
{
    const Page page = readpage(state.sViewFile, state.lViewPos, state.nViewBlock, state.nViewWidth,
                               state.nViewMode, nViewFormat);
    state.nViewBlock = page.nBlock;
    if (!page.opened) {
        message(openerrormessage(state.sViewFile, page.error));
        state.sViewText.clear();
        Text1->setpage({});
        shown = state;
        return true;
    }
    if (page.error && state.nViewMode == kModeFullText) {
        message(page.error.text);
        return false;
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
    shown = state;
    if (page.error)
        message(page.error.text);
    return true;
}

void Form2::showpage()
{
    state.nViewBlock = pageblock(twipsheight(), state.nViewWidth, state.nViewMode);
    if (!readintostate()) {
        // Full Text refused: the page on show stays in its mode; a file
        // that has none yet opens in Pure Text.
        if (shown.sViewFile == state.sViewFile && shown.nViewMode != kModeFullText && !shown.sViewFile.empty()) {
            state = shown;
        } else {
            state.nViewMode = kModePureText;
            state.lViewPos = 1;
            showpage();
        }
        if (Combo1->currentIndex() != kModeAutoDetect) {
            const QSignalBlocker quiet(Combo1);
            Combo1->setCurrentIndex(state.nViewMode);
            nComboIndex = state.nViewMode;
        }
        showstate();
        return;
    }
    Label1->setText(QStringLiteral("<20>=space <0D>=CR <0A>=LF <09>=TAB"));
    const std::int64_t length = filelength();
    setscrollbar(length);
    setWindowTitle(towidget(state.sViewFile + " (" + std::to_string(length) + " bytes)"));
    Label2->setText(towidget(pagerange(state.lViewPos, state.lViewLen)));
    showstate();
}

// What the screen says of the mode, the format and the width in use.
void Form2::showstate()
{
    const bool meta = nViewFormat == kFormatMeta;
    const bool bytes = state.nViewMode < kModePureText;
    Label1->setVisible(bytes);
    HScroll1->setVisible(state.nViewMode != kModeFullText);
    Combo1->setItemText(kModeAutoDetect, Combo1->currentIndex() == kModeAutoDetect && state.nViewMode < kModeAutoDetect
                                             ? QStringLiteral("AutoDetect: ") + QLatin1String(kModeNames[state.nViewMode])
                                             : QStringLiteral("AutoDetect"));
    mnuMeta->setChecked(meta);
    // Metafile records are rows of 100 bytes whatever the width says.
    const QString width = QString::number(meta && bytes ? 100 : state.nViewWidth);
    if (txtWidth->text() != width && (!txtWidth->hasFocus() || meta)) {
        const QSignalBlocker quiet(txtWidth);
        txtWidth->setText(width);
    }
    txtWidth->setEnabled(!(meta && bytes));
    Label3->setText(meta ? QStringLiteral("wide (metafile)") : QStringLiteral("wide"));
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
    // Below 4 the box keeps what was typed until the user leaves it; a width
    // beyond an Integer is refused the same way.
    if (width < 4 || width > 32767 || static_cast<int>(width) == state.nViewWidth)
        return;
    if (!releaseedit()) {
        const QSignalBlocker quiet(txtWidth);
        txtWidth->setText(QString::number(state.nViewWidth));
        return;
    }
    state.nViewWidth = static_cast<int>(width);
    showpage();
    const QString written = QString::number(state.nViewWidth);
    if (txtWidth->text() != written) {
        const QSignalBlocker quiet(txtWidth);
        txtWidth->setText(written);
    }
}

// The page follows the page box's height at once, where that changes the
// page's size and the page holds no edit.
void Form2::followresize()
{
    if (!bLoaded || bHidden || !isVisible() || state.nViewMode == kModeFullText || state.sViewFile.empty())
        return;
    if (pageblock(twipsheight(), state.nViewWidth, state.nViewMode) == state.nViewBlock || pendingedit())
        return;
    showpage();
}

void Form2::closeEvent(QCloseEvent* event)
{
    if (!releaseedit()) {
        event->ignore();
        return;
    }
    Form_Unload();
    event->accept();
}

void Form2::Form_Unload()
{
    state.nViewMode = Combo1->currentIndex();
    bLoaded = false;
    follow.stop();
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
    if (releaseedit())
        host.endprogram();
}

void Form2::mnuHex_Click()
{
    if (!releaseedit())
        return;
    nViewFormat = (nViewFormat + 1) % 3;
    showpage();
}

void Form2::mnuMeta_Click()
{
    if (!releaseedit()) {
        mnuMeta->setChecked(nViewFormat == kFormatMeta);
        return;
    }
    nViewFormat = nViewFormat == kFormatMeta ? 1 : kFormatMeta;
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
    const int mode = chosen == kModeAutoDetect ? autodetect(state.sViewFile, AutoDetectAt::ComboClick) : chosen;
    bool reload = chosen == kModeFullText || old == kModeFullText;
    std::string bytes;
    if (!reload && !bHidden) {
        bytes = pagebytes(Text1->page(), old);
        reload = bytes.empty();
    }
    // A mode that reads the page anew would drop an edit.
    if (reload && !bHidden && old != mode && !releaseedit()) {
        const QSignalBlocker quiet(Combo1);
        Combo1->setCurrentIndex(nComboIndex);
        showstate();
        return;
    }
    nComboIndex = chosen;
    state.nViewMode = mode;
    if (bHidden)
        return;
    if (reload) {
        Form_Activate();
        return;
    }
    Text1->setpage(formatpage(bytes, state.lViewPos, state.nViewWidth, state.nViewMode, nViewFormat));
    // The same page, shown in another mode: a refused Full Text comes back to it.
    shown.nViewMode = mode;
    const int end = static_cast<int>(Text1->document()->characterCount()) - 1;
    cursor = Text1->textCursor();
    cursor.setPosition(std::min(anchor, end));
    cursor.setPosition(std::min(position, end), QTextCursor::KeepAnchor);
    Text1->setTextCursor(cursor);
    showstate();
}

}  // namespace brindlex::gui
