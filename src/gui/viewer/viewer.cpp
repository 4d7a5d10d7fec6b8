#include "gui/viewer/viewer.h"

#include "engine/viewer/page.h"
#include "engine/viewer/position.h"
#include "gui/viewer/form2.h"

namespace brindlex::gui {

Viewer::Viewer(ViewerHost& host) : host_(host)
{
    // The first opening looks at the file to pick its mode.
    state_.nViewMode = kModeAutoDetect;
}

Viewer::~Viewer() = default;

void Viewer::openfile(const std::string& sFile)
{
    state_.sViewFile = sFile;
    state_.nViewWidth = openingwidth(state_.nViewWidth, false);
    state_.lViewPos = 1;
    show();
}

void Viewer::openhit(const std::string& sFile, std::int64_t lHit)
{
    state_.sViewFile = sFile;
    state_.nViewWidth = openingwidth(state_.nViewWidth, true);
    state_.lViewHit = lHit;
    state_.lViewPos = hittop(lHit, state_.nViewWidth);
    show();
}

bool Viewer::releaseedit()
{
    return !form_ || form_->releaseedit();
}

void Viewer::show()
{
    if (!form_)
        form_ = std::make_unique<Form2>(state_, host_);
    form_->open();
}

}  // namespace brindlex::gui
