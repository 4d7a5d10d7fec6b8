// Form2, the viewer: one page of one file in the page box Text1, in one of
// four display modes (Combo1) and, in the two byte modes, one of four row
// formats; the user moves through the file with the keys, the scroll bar and
// Goto, and patches the page in place with Save. Every control carries its
// program name as objectName.
//
// The viewer works on a ViewState that its opener owns and sets, and asks
// the main window for nothing but what ViewerHost offers. The file is never
// held: each page is read anew, from a file opened and closed for the read.
//
// Form_Activate runs when the viewer is shown by its opener and when the
// user comes back to it from the main window (not when a dialog of its own
// closes); it reads the page anew, so an unsaved edit is dropped then.
//
// Beyond the design's 16-bit limits: the scroll bar counts quarter pages up
// to 2^31 - 1, so it follows the page through files of many gigabytes; a
// row width above 32,767 is refused like one below 4; Full Text of a file
// beyond the engine's limit shows an empty page and says why, and its edit
// can't be saved. A click in a text mode shows the file position of the byte
// at the caret (lViewPos plus the caret's place in the page), at any offset.
// F3 opens the next hit without taking the focus to the main window.
#pragma once

#include <QMainWindow>

#include <cstdint>
#include <string>

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
struct ViewState;
class ViewerHost;

class Form2 final : public QMainWindow {
    Q_OBJECT

public:
    Form2(ViewState& state, ViewerHost& host);
    ~Form2() override;

    // What the opener's "show" does: loads the window if it is closed, brings
    // it up, and reads the page of the state's file (Form_Activate).
    void open();

    void Form_Load();
    void Form_Activate();
    void Form_Unload();
    void Form_Resize();
    void showpage();
    void txtWidth_Change();
    void Combo1_Click();
    void mnuClose_Click();
    void mnuExit_Click();
    void mnuHex_Click();
    void mnuMeta_Click();

    // Input: KeyCode and Shift as the toolkit's codes of the platform the
    // window was designed on (Page Up 33, Page Down 34, B 66, F3 114; Shift
    // 1, Ctrl 2, Alt 4).
    void Form_KeyUp(int KeyCode, int Shift);
    void HScroll1_Change();
    void HScroll1_Scroll();
    void mnuGoto_Click();
    // Label4 shows the position of the byte at the caret.
    void Text1_Click();

    // Writes the page in the box back into the file if it has changed; with
    // bAsk the user is asked first.
    void savepage(bool bAsk);
    void mnuSave_Click();

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
    void resizeEvent(QResizeEvent* event) override;

private:
    void buildsurface();
    void buildmenus();
    void setcombo(int index);
    void placebesidemain();
    void focuswindowchanged(QWindow* window);
    std::int64_t filelength() const;
    std::int64_t twipsheight() const;
    void setscrollbar(std::int64_t length);
    void readintostate();
    void message(const std::string& text);
    void nexthit(bool bDown);
    void gotoposition(const std::string& answer);
    void gotofind(const std::string& answer);

    ViewState& state;
    ViewerHost& host;
    bool bLoaded = false;
    // The main window was the program's active window since the viewer last
    // was: a return to the viewer is then an activation.
    bool bFromMain = false;
    // Text1 is hidden while Form_Activate is under way.
    bool bHidden = false;
};

}  // namespace brindlex::gui
