// The viewer's state, which Viewer keeps from one opening to the next, and
// the few things the viewer asks of the main window.
#pragma once

#include <cstdint>
#include <string>

#include "engine/viewer/page.h"

class QWidget;

namespace brindlex::gui {

// The viewer's state: the page asked for, and how it is shown.
struct ViewState {
    std::string sViewFile;        // the real name of the file on show, as bytes
    std::int64_t lViewPos = 0;    // 1-based position of the page's first byte
    std::int64_t lViewHit = 0;    // the last hit or Goto target
    std::int64_t lViewLen = 0;    // bytes of the file the page on show holds
    int nViewWidth = 0;           // bytes per row; 0 until the first opening
    int nViewMode = 0;            // 0-3, or 4 (AutoDetect) between windows
    std::int64_t nViewBlock = 0;  // bytes per page, worked out for each page
    std::string sViewText;        // the page's bytes as last read and shown
    FileStamp stamp;              // the file as the page on show was read
};

// The main window as the viewer sees it.
class ViewerHost {
public:
    virtual ~ViewerHost() = default;

    // The window the viewer stands beside and raises when it closes.
    virtual QWidget* mainwindow() = 0;

    // The hit list: its number of lines, the current line (-1 for none),
    // and a new current line; a line (not -1) opens its hit in the viewer.
    virtual int hitcount() const = 0;
    virtual int currenthit() const = 0;
    virtual void sethit(int row) = 0;

    // The last find text of a run.
    virtual std::string lastfind() const = 0;

    // Puts `pattern` into the find box and runs a find over the main
    // window's files; a hit found opens the first one in the viewer.
    virtual void findfromviewer(const std::string& pattern) = 0;

    // Ends the program at once, asking nothing.
    virtual void endprogram() = 0;
};

}  // namespace brindlex::gui
