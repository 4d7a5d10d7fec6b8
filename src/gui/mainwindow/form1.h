// Form1, the main window: the file mask, the find and replace texts, the four
// command buttons, the file list List1 and the hit list List2, and the menus.
// Every control carries its program name as objectName (cmd(i) is "cmd_i",
// mnuOptLog(i) is "mnuOptLog0"/"mnuOptLog1", mnuRep(i) is "mnuRep0"...).
//
// Texts cross between the widgets and the engine's byte strings as
// ISO-8859-1 (gui/common/latin1.h).
//
// One thread: a walk or a run started here yields to the event loop through
// the window's host, and while it is under way only Cancel (the button or
// Esc) and Help can be used. A walk or run never starts inside another.
#pragma once

#include <QMainWindow>

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "engine/files/files.h"
#include "gui/common/latin1.h"
#include "gui/mainwindow/session.h"
#include "gui/viewer/viewer.h"

class QAction;
class QCheckBox;
class QGridLayout;
class QLabel;
class QLineEdit;
class QAbstractItemView;
class QListView;
class QMenu;
class QProgressBar;
class QPushButton;

namespace brindlex::gui {

class Designer;
class Form2;
class SessionListModel;
class WindowHost;

class Form1 : public QMainWindow, private ViewerHost {
    Q_OBJECT

public:
    // `exeDir`: where Form_Load looks for vellumix; empty for the
    // program's own directory.
    explicit Form1(std::filesystem::path exeDir = {}, QWidget* parent = nullptr);
    ~Form1() override;

    // Start-up. `sCommand` is the program's arguments joined by single
    // blanks; a non-empty one is the mask to list (tried a second time when
    // the first listing finds nothing), an empty one lists "*.*" of the
    // current directory.
    void Form_Load(const std::string& sCommand);

    // The command buttons cmd(0) Find All, cmd(1) Replace, cmd(2) Dir (the
    // listing), cmd(3) Cancel. Ignored while a walk or run is under way
    // (but Cancel).
    void cmdFindAll_Click() { cmdFind_Click(false); }
    void cmdReplace_Click() { cmdFind_Click(true); }
    void cmdDir_Click();
    void cmdCancel_Click();

    void chkIncludeSubs_Click();
    void lblDir_Click();

    void mnuConvertHex_Click();
    void mnuopt_Click();
    void mnuOptLog_Click(int Index);
    void mnuOptViewLog_Click();
    void mnuoptKillLog_Click();
    void mnuHelp_Click();
    void mnuExit_Click();

    // The replacement sets (loadreplist, saverep). mnuRep_Click
    // picks a set into the boxes, saves the pair ("&New"), or runs the sets
    // one after the other; mnuOpenRepFile_Click loads another file of sets.
    void mnuRep_Click(int Index);
    void mnuOpenRepFile_Click();

    // The outside editors and the integer dump. mnuFile_Click names the
    // current lines of List1 and List2 and the editor in the captions of
    // mnuEdit and mnuEdit2 ("&Edit a.txt using notepad", "E&dit a.txt using
    // vellumix -p") and switches them and mnuDumpInt4 on where a line is
    // current. The Edit items start sEditor on the file of that line, the
    // full path as one argument, and for vellumix on a hit "-p" and the
    // hit's position; a start that fails is told, naming the command line
    // ("vellumix /data/a.txt -p 1234"). mnuDumpInt4_Click asks for the
    // integer size and the columns, dumps the current file of List1 to the
    // next numbered sheet of the work directory (001.xls, 002.xls, ...) and
    // opens it with the desktop's program.
    void mnuFile_Click();
    void mnuEdit_Click();
    void mnuEdit2_Click();
    void mnuDumpInt4_Click();

    // Opening the viewer from a line of List1 or List2: the file is the real
    // file the line stands for (lblDir's caption and the line's name). From
    // List1 the page starts at the file's start; from List2 the hit stands
    // two rows below the page's top. List2_Click gives the focus back to
    // List2, so the arrow keys walk the hits and each shows its hit.
    void List1_DblClick();
    void List2_Click();
    void List2_DblClick();

    // The viewer, once it has been opened.
    Form2* viewer() const { return view.window(); }

    // Whether a walk or run is under way.
    bool busy() const { return nBusy > 0; }

    WindowHost& host() { return *windowHost; }

    // What the window holds: List1 and List2 show it.
    const Session& state() const { return session; }

    // The viewer's state.
    ViewState& viewstate() { return view.state(); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    friend class WindowHost;
    // Controls.
    QLabel* Label1 = nullptr;
    QLabel* Label2 = nullptr;
    QLabel* Label3 = nullptr;
    QLabel* Label4 = nullptr;
    QLabel* Label5 = nullptr;
    QLabel* Label6 = nullptr;
    QLabel* lblDir = nullptr;
    // How far a long walk or run is, in the status bar below the client
    // area, so that no control of the surface moves; shown only while busy.
    QProgressBar* prgWork = nullptr;
    QLineEdit* Text1 = nullptr;
    QLineEdit* Text2 = nullptr;
    QLineEdit* Text3 = nullptr;
    std::array<QPushButton*, 4> cmd{};
    QCheckBox* chkIncludeSubs = nullptr;
    QCheckBox* chkCase = nullptr;
    QCheckBox* chkAsk = nullptr;
    QListView* List1 = nullptr;
    QListView* List2 = nullptr;

    // Menus. mnuRepl and every mnuRep item carry the dynamic property "Tag"
    // (a QString): the current set's name on mnuRepl ("user0" at start),
    // what a click does on an item.
    QMenu* mnuFile = nullptr;
    QAction* mnuOpenRepFile = nullptr;
    QAction* mnuEdit = nullptr;
    QAction* mnuEdit2 = nullptr;
    QAction* mnuExit = nullptr;
    QMenu* mnuopt = nullptr;
    QAction* mnuConvertHex = nullptr;
    std::array<QAction*, 2> mnuOptLog{};
    QAction* mnuOptViewLog = nullptr;
    QAction* mnuoptKillLog = nullptr;
    QAction* mnuDumpInt4 = nullptr;
    QMenu* mnuRepl = nullptr;
    std::vector<QAction*> mnuRep;
    QAction* mnuHelp = nullptr;

    // Program state.
    std::filesystem::path sIniFile;
    std::string sRepList;
    int nRepCount = 0;
    std::string sEditor;
    std::filesystem::path exeDir;     // where Form_Load looks for vellumix
    int nDumpCount = 0;               // the number of the last sheet
    double dLastFocus = 0;            // days, see selectalltext

    Viewer view{*this};

    void cmdFind_Click(bool bReplace);

    // One run over the selected lines of List1 (all when none is selected).
    // Also what the viewer's Goto starts. Returns at once while another walk
    // or run is under way.
    void findinfiles(const std::string& sFind, bool bReplace);

    // Selects the first 1000 characters of `box` and gives it the focus,
    // unless the last call that did so was less than 0.000001 day (86.4 ms)
    // ago: giving the focus calls this again through the focus event, and
    // that second call must leave the selection alone.
    void selectalltext(QLineEdit* box);

    // Gives `lstList` up to 21 tab stops from a list like "180,190,200", in
    // list units (4 units = one average character width of the list's font).
    void settabstops(QAbstractItemView* lstList, const std::string& sStops);

    // The replacement sets. loadreplist rebuilds mnuRep from sIniFile and
    // empties List2 (with bShowMessage it tells how many sets it loaded).
    // saverep stores the pair of Text2/Text3: with an empty name (before each
    // run) as "Previous", and only into the default file; with a name under
    // the user's answer to the name prompt, that name offered.
    void loadreplist(bool bShowMessage);
    void saverep(const std::string& sName);
    void openhit();

    void buildsurface();
    void buildlists(Designer& d, QGridLayout& grid);
    void fitdesignsize();
    void showbasedir();
    void alignlistcaptions(int stopUnits);
    void buildmenus();
    void Form_Unload();
    void listing();
    // The file of the current line of List1 or List2 and, for a hit, its
    // position; an empty name when no line is current.
    List2Hit currententry(const QListView* list) const;
    int currentrow(const QListView* list) const;
    // lblDir's caption and `sName`.
    std::string fullname(const std::string& sName) const;
    void startedit(const std::string& sPath, const std::string& sPosition);
    // Opens the current line of List1 (its file) or List2 (its hit) in the viewer.
    void openline(const QListView* list);
    void List2_KeyWalk(const QEvent* event);

    // What the viewer asks of this window.
    QWidget* mainwindow() override { return this; }
    int hitcount() const override;
    int currenthit() const override;
    void sethit(int row) override;
    std::string lastfind() const override { return session.sLastFind; }
    void findfromviewer(const std::string& pattern) override;
    void endprogram() override { Form_Unload(); }

    Session session;
    SessionListModel* filesModel = nullptr;
    SessionListModel* hitsModel = nullptr;
    std::unique_ptr<WindowHost> windowHost;
    int nBusy = 0;
    int captionIndent = 0;    // of "Size" and "Location", in pixels
    int nRowBeforeKey = -1;   // List2's current line as a key went down
};

}  // namespace brindlex::gui
