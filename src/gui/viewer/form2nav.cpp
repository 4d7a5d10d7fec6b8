// The viewer's input: keys, the scroll bar, Goto, a click in the page, and
// saving the page back into its file.
#include <QComboBox>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QScrollBar>

#include <climits>
#include <utility>

#include "engine/core/openbinary.h"
#include "engine/core/state.h"
#include "engine/core/workdir.h"
#include "engine/viewer/page.h"
#include "engine/viewer/position.h"
#include "engine/viewer/save.h"
#include "gui/common/latin1.h"
#include "gui/seam/dialogs.h"
#include "gui/viewer/form2.h"
#include "gui/viewer/pagebox.h"
#include "gui/viewer/viewstate.h"

namespace brindlex::gui {

namespace {

constexpr int kKeyPageUp = 33;
constexpr int kKeyPageDown = 34;
constexpr int kKeyEnd = 35;
constexpr int kKeyHome = 36;
constexpr int kKeyB = 66;
constexpr int kKeyF3 = 114;
constexpr int kShiftCtrl = 2;

// The key codes and modifier bits the handlers are written in.
int keycode(int qtKey)
{
    switch (qtKey) {
    case Qt::Key_PageUp: return kKeyPageUp;
    case Qt::Key_PageDown: return kKeyPageDown;
    case Qt::Key_End: return kKeyEnd;
    case Qt::Key_Home: return kKeyHome;
    case Qt::Key_B: return kKeyB;
    case Qt::Key_F3: return kKeyF3;
    default: return 0;
    }
}

int shiftbits(Qt::KeyboardModifiers modifiers)
{
    return (modifiers & Qt::ShiftModifier ? 1 : 0) | (modifiers & Qt::ControlModifier ? 2 : 0)
           | (modifiers & Qt::AltModifier ? 4 : 0);
}

const char* const kGotoPrompt = "File position to go to (or '=...' for find)?";

}  // namespace

bool Form2::eventFilter(QObject* watched, QEvent* event)
{
    switch (event->type()) {
    case QEvent::ShortcutOverride: {
        // The menu's Ctrl+H and Ctrl+M come before the boxes' own use of
        // the keys; Ctrl+X stays the boxes' Cut.
        const auto* key = static_cast<QKeyEvent*>(event);
        if (key->modifiers() == Qt::ControlModifier && (key->key() == Qt::Key_H || key->key() == Qt::Key_M)) {
            event->ignore();
            return true;
        }
        return false;
    }
    case QEvent::KeyPress: {
        // Every key pressed in the window comes here first, wherever the
        // focus is; the viewer's keys act on the press, whatever is let go
        // first afterwards.
        const auto* key = static_cast<QKeyEvent*>(event);
        return watched != this && Form_KeyDown(keycode(key->key()), shiftbits(key->modifiers()));
    }
    case QEvent::Resize:
        if (watched == Text1)
            QMetaObject::invokeMethod(this, [this] { followresize(); }, Qt::QueuedConnection);
        return false;
    case QEvent::MouseButtonRelease:
        if (watched == Text1->viewport())
            Text1_Click();
        return false;
    default:
        return QMainWindow::eventFilter(watched, event);
    }
}

bool Form2::Form_KeyDown(int KeyCode, int Shift)
{
    switch (KeyCode) {
    case kKeyPageUp:
        if (HScroll1->value() > INT_MIN)
            HScroll1->setValue(HScroll1->value() - 1);
        return true;
    case kKeyPageDown:
        if (HScroll1->value() < INT_MAX)
            HScroll1->setValue(HScroll1->value() + 1);
        return true;
    case kKeyHome:
    case kKeyEnd:
        // Ctrl+Home and Ctrl+End: the file's first and last page (Full Text
        // holds the whole file: there the box moves its caret).
        if (Shift != kShiftCtrl || state.nViewMode == kModeFullText)
            return false;
        gotoend(KeyCode == kKeyEnd);
        Text1->moveCursor(KeyCode == kKeyEnd ? QTextCursor::End : QTextCursor::Start);
        return true;
    case kKeyB:
        if (Shift != kShiftCtrl)
            return false;
        setcombo((Combo1->currentIndex() + 1) % 2);
        return true;
    case kKeyF3:
        nexthit(Shift == 0);
        return true;
    default:
        return false;
    }
}

void Form2::gotoend(bool last)
{
    const std::int64_t q = state.nViewBlock / 4;
    const std::int64_t length = filelength();
    // The last page begins on the quarter page that shows the file's end.
    std::int64_t position = 1;
    if (last && q > 0 && length > state.nViewBlock)
        position = ((length - state.nViewBlock + q - 1) / q) * q + 1;
    if (position == state.lViewPos || !releaseedit())
        return;
    state.lViewPos = position;
    showpage();
}

void Form2::nexthit(bool bDown)
{
    const int count = host.hitcount();
    if (count == 0 || !releaseedit())
        return;
    if (count == 1) {
        host.sethit(-1);
        host.sethit(0);
    } else {
        const int row = host.currenthit() + (bDown ? 1 : -1);
        // Past the last line the move is refused; up from the first the
        // list is left without a current line.
        if (row >= -1 && row < count)
            host.sethit(row);
    }
    showpage();
}

void Form2::HScroll1_Change()
{
    HScroll1_Scroll();
}

void Form2::HScroll1_Scroll()
{
    if (HScroll1->property("Tag").toString() == QStringLiteral("X"))
        return;
    const std::int64_t q = state.nViewBlock / 4;
    const std::int64_t position = q * HScroll1->value() + 1;
    if (q <= 0 || position > filelength() || !releaseedit()) {
        // The bar goes back to the page on show.
        setscrollbar(filelength());
        return;
    }
    state.lViewPos = position;
    showpage();
}

void Form2::mnuGoto_Click()
{
    auto ask = [this](const std::string& defaultAnswer) {
        return fromwidget(dialogs().inputbox(this, QLatin1String(kGotoPrompt), QStringLiteral("Goto"),
                                             towidget(defaultAnswer)));
    };
    std::string answer = ask(gotodefault(state.lViewHit, nViewFormat));
    if (answer.empty())
        return;
    if (answer == "=")
        answer = ask("=" + host.lastfind());
    if (!answer.empty() && answer.front() == '=')
        gotofind(answer);
    else
        gotoposition(answer);
}

void Form2::gotoposition(const std::string& answer)
{
    const std::int64_t p = parseposition(answer, state.lViewHit, state.nViewBlock);
    if (p == 0 || p > filelength() || !releaseedit())
        return;
    state.lViewHit = p;
    state.lViewPos = hittop(p, state.nViewWidth);
    showpage();
}

void Form2::gotofind(const std::string& answer)
{
    if (!releaseedit())
        return;
    close();
    host.findfromviewer(answer.substr(1));
}

void Form2::Text1_Click()
{
    const std::int64_t caret = Text1->pageoffset(Text1->textCursor().position());
    // In the text modes a page is the file's bytes as they stand, so the
    // caret's place is the byte's position; a page of any length has one.
    const std::int64_t position = state.nViewMode >= kModePureText
                                      ? state.lViewPos + caret
                                      : clickposition(Text1->page(), caret, nViewFormat);
    Label4->setText(towidget(clicklabel(position, nViewFormat)));
}

void Form2::mnuSave_Click()
{
    savepage();
}

bool Form2::pendingedit() const
{
    if (!bLoaded || shown.sViewFile.empty())
        return false;
    return pageedit(Text1->page(), state.nViewMode, nViewFormat, shown.sViewText, shown.lViewLen).changed;
}

bool Form2::releaseedit()
{
    if (!pendingedit())
        return true;
    const Reply reply = dialogs().messagebox(this, towidget("Save changes to " + shown.sViewFile + "?"),
                                             Buttons::YesNoCancel, Icon::Question, QStringLiteral("Save Changes"));
    if (reply == Reply::Cancel)
        return false;
    if (reply == Reply::Yes)
        return savepage();
    // No: the page in the box is the one read, so nothing asks again.
    Text1->setpage(formatpage(shown.sViewText, shown.lViewPos, shown.nViewWidth, state.nViewMode, nViewFormat));
    return true;
}

// Cancel of an opening: the state goes back to the page on show.
void Form2::restoreshown()
{
    state.sViewFile = shown.sViewFile;
    state.lViewPos = shown.lViewPos;
    state.lViewHit = shown.lViewHit;
    state.nViewWidth = shown.nViewWidth;
    state.nViewBlock = shown.nViewBlock;
    state.lViewLen = shown.lViewLen;
    state.sViewText = shown.sViewText;
    state.stamp = shown.stamp;
}

bool Form2::savepage()
{
    const std::string page = Text1->page();
    SavedPage saved = saveeditedpage({.sViewFile = shown.sViewFile,
                                      .lViewPos = shown.lViewPos,
                                      .lViewLen = shown.lViewLen,
                                      .sViewText = shown.sViewText,
                                      .stamp = shown.stamp,
                                      .pageText = page,
                                      .nMode = state.nViewMode,
                                      .nFormat = nViewFormat,
                                      .sScratch = scratchfilepath()});
    if (saved.error) {
        message(saved.opened ? saved.error.text : openerrormessage(shown.sViewFile, saved.error));
        return false;
    }
    if (!saved.changed)
        return true;
    // The page now stands in the file as the box holds it: a second save
    // splices over what this one wrote.
    shown.sViewText = std::move(saved.bytes);
    shown.lViewLen = static_cast<std::int64_t>(shown.sViewText.size());
    shown.stamp = saved.stamp;
    if (state.sViewFile == shown.sViewFile && state.lViewPos == shown.lViewPos) {
        state.sViewText = shown.sViewText;
        state.lViewLen = shown.lViewLen;
        state.stamp = shown.stamp;
    }
    return true;
}

}  // namespace brindlex::gui
