// Form2, the viewer: one page of one file in the page box Text1, in one of
// four display modes (Combo1) and, in the two byte modes, one of four row
// formats; the user moves through the file with the keys, the scroll bar and
// Goto, and patches the page in place with Save. Every control carries its
// program name as objectName; the controls stand in layouts, so that each
// text has the room it needs at any size, scale and font, and the page box
// takes whatever the window has to spare.
//
// The viewer works on the ViewState that Viewer owns and sets for each
// opening, and asks the main window for nothing but what ViewerHost offers. The file is never
// held: each page is read anew, from a file opened and closed for the read.
//
// An edit of the page is never dropped without a question: whatever would
// read another page over it (a move, Goto, F3, another file or hit, a width,
// mode or format that reads anew, closing, Exit) first asks "Save changes to
// FILE?" with Yes, No and Cancel, and Cancel leaves the page as it is. The
// viewer keeps the page on show (file, position, bytes read, stamp) apart
// from the state, which may already be set for the next file.
//
// Form_Activate runs when the viewer is shown by its opener and when the
// user comes back to it from the main window (not when a dialog of its own
// closes); it reads the page anew unless the page holds an edit.
//
// Beyond the design's 16-bit limits: the scroll bar counts quarter pages up
// to 2^31 - 1, so it follows the page through files of many gigabytes; a
// row width above 32,767 is refused like one below 4; Full Text of a file
// beyond the engine's limit is refused with a message and the page stays in
// the mode it was in. A click in a text mode shows the file position of the
// byte at the caret (lViewPos plus the caret's place in the page), at any
// offset. F3 opens the next hit without taking the focus to the main window.
#pragma once

#include <QMainWindow>

#include <QRect>
#include <QTimer>

#include <cstdint>
#include <string>

#include "gui/viewer/viewstate.h"

class QAction;
class QComboBox;
class QFrame;
class QLabel;
class QLineEdit;
class QMenu;
class QScrollBar;
class QWindow;

namespace brindlex::gui {

class PageBox;

class Form2 final : public QMainWindow {
    Q_OBJECT

public:
    Form2(ViewState& state, ViewerHost& host);
    ~Form2() override;

    // What the opener's "show" does: loads the window if it is closed, brings
    // it up, and reads the page of the state's file (Form_Activate). An
    // edit of the page on show is asked about first; Cancel keeps that page
    // and sets the state back to it.
    void open();

    void Form_Load();
    void Form_Activate();
    void Form_Unload();
    void showpage();
    void txtWidth_Change();
    void Combo1_Click();
    void mnuClose_Click();
    void mnuExit_Click();
    void mnuHex_Click();
    void mnuMeta_Click();

    // Input, on the key's press: KeyCode and Shift as the toolkit's codes of
    // the platform the window was designed on (Page Up 33, Page Down 34, End
    // 35, Home 36, B 66, F3 114; Shift 1, Ctrl 2, Alt 4). True when the key
    // was the viewer's.
    bool Form_KeyDown(int KeyCode, int Shift);
    void HScroll1_Change();
    void HScroll1_Scroll();
    void mnuGoto_Click();
    // Label4 shows the position of the byte at the caret.
    void Text1_Click();

    // Writes the page in the box back into the file of the page on show if
    // it has changed; false when the save was refused or failed (a message
    // said why).
    bool savepage();
    void mnuSave_Click();

    // True when the page holds an edit that no save has written.
    bool pendingedit() const;
    // Before the page is left: with an edit pending, asks "Save changes to
    // FILE?"; Yes saves, No drops the edit. False for Cancel or a failed
    // save: the caller stays where it is.
    bool releaseedit();

    // Stands the window right of the main window, at its top and height,
    // wholly on the main window's screen; again while the window manager
    // is still framing and placing the main window.
    void placebesidemain();

    // The row format of the byte modes: 0 decimal, 1 hexadecimal, 2 with
    // sector, 3 metafile records. It survives a closing of the window.
    int nViewFormat = 0;

    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QLabel* Label3 = nullptr;
    QLabel* Label4 = nullptr;
    QFrame* Frame1 = nullptr;
    QLineEdit* txtWidth = nullptr;
    QScrollBar* HScroll1 = nullptr;
    QComboBox* Combo1 = nullptr;
    PageBox* Text1 = nullptr;

    QMenu* mnuFile = nullptr;
    QAction* mnuGoto = nullptr;
    QAction* mnuSave = nullptr;
    QAction* mnuClose = nullptr;
    QAction* mnuExit = nullptr;
    QMenu* mnuView = nullptr;
    QAction* mnuHex = nullptr;
    QAction* mnuMeta = nullptr;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildsurface();
    void buildmenus();
    void setcombo(int index);
    void showstate();
    void placeonce();
    void followmain();
    void followresize();
    void restoreshown();
    void focuswindowchanged(QWindow* window);
    std::int64_t filelength() const;
    std::int64_t twipsheight() const;
    void setscrollbar(std::int64_t length);
    bool readintostate();
    void message(const std::string& text);
    void nexthit(bool bDown);
    void gotoposition(const std::string& answer);
    void gotofind(const std::string& answer);
    void gotoend(bool last);

    ViewState& state;
    ViewerHost& host;
    bool bLoaded = false;
    // The main window was the program's active window since the viewer last
    // was: a return to the viewer is then an activation.
    bool bFromMain = false;
    // Text1 is hidden while Form_Activate is under way.
    bool bHidden = false;
    // The mode box's line as last taken, for a Cancel to go back to.
    int nComboIndex = 0;
    // The page on show: what a save writes back to, and where Cancel stays.
    ViewState shown;
    // Placing beside the main window until its frame and place settle.
    QTimer follow;
    QRect mainFrame;
    QRect placed;   // the frame the viewer was given
    int followTicks = 0;
    int stillTicks = 0;     // ticks since the windows last moved
};

}  // namespace brindlex::gui
