// The viewer as the main window sees it: a file or a hit to open, an edit to
// settle before the program ends. It owns the viewer's state, which lasts
// from one opening to the next (the row width, the display mode), and the
// window, made at the first opening.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "gui/viewer/viewstate.h"

namespace brindlex::gui {

class Form2;

class Viewer {
public:
    explicit Viewer(ViewerHost& host);
    ~Viewer();

    // Opens the file `sFile` (its real name) at its first byte.
    void openfile(const std::string& sFile);

    // Opens the file `sFile` with the hit at lHit two rows below the page's
    // top.
    void openhit(const std::string& sFile, std::int64_t lHit);

    // An edit of the page on show is asked about (Form2::releaseedit);
    // false when the user cancelled. True when the viewer never opened.
    bool releaseedit();

    // The window, once it has been opened.
    Form2* window() const { return form_.get(); }

    ViewState& state() { return state_; }

    Viewer(const Viewer&) = delete;
    Viewer& operator=(const Viewer&) = delete;

private:
    void show();

    ViewerHost& host_;
    ViewState state_;
    std::unique_ptr<Form2> form_;
};

}  // namespace brindlex::gui
