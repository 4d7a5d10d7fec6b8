// Form1: the replacement sets and their menu.
#include "gui/mainwindow/form1.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QDateTime>
#include <QFile>
#include <QFileInfo>
#include <QGridLayout>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListView>
#include <QMenu>
#include <QMenuBar>
#include <QMouseEvent>
#include <QProgressBar>
#include <QScreen>
#include <QPushButton>
#include <QStatusBar>
#include <QShortcut>
#include <QStyle>

#include <cstdlib>
#include <optional>
#include <system_error>

#include "engine/batch/run.h"
#include "engine/batch/runlog.h"
#include "engine/core/inplace.h"
#include "engine/core/saferewrite.h"
#include "engine/core/state.h"
#include "engine/core/workdir.h"
#include "engine/dump/dump.h"
#include "engine/files/files.h"
#include "engine/pattern/stringtools.h"
#include "gui/mainwindow/listmodel.h"
#include "gui/mainwindow/tabstopdelegate.h"
#include "gui/mainwindow/windowhost.h"
#include "engine/replacements/profile.h"
#include "engine/replacements/replist.h"
#include "engine/viewer/page.h"
#include "gui/replacements/repmenu.h"
#include "gui/seam/dialogs.h"
#include "gui/seam/launch.h"
#include "gui/viewer/form2.h"

#include "gui/mainwindow/busyscope.h"

namespace brindlex::gui {

void Form1::loadreplist(bool bShowMessage)
{
    const std::vector<RepItem> items = brindlex::loadreplist(sIniFile, nRepCount);
    // The hit list is the rebuild's working list: what it showed is gone.
    hitsModel->reset([this] { session.hits.clear(); });
    fillrepmenu(mnuRepl, mnuRep, items, this, [this](int Index) { mnuRep_Click(Index); });
    if (bShowMessage) {
        // Below the sets stand "-" and "&New", and for a file of the user's
        // the two list runs.
        const std::size_t below = isdefaultfile(sIniFile.string()) ? 2 : 4;
        dialogs().messagebox(this, towidget(loadedmessage(items.size() - below, sIniFile.string())), Buttons::Ok,
                             Icon::None, towidget(std::string(sTitle)));
    }
}

void Form1::saverep(const std::string& sName)
{
    const NameQuestion ask = [this](const std::string& prompt, const std::string& defaultAnswer) {
        return fromwidget(dialogs().inputbox(this, towidget(prompt), towidget(std::string(sTitle)),
                                             towidget(defaultAnswer)));
    };
    Error failed;
    const std::optional<std::string> key = brindlex::saverep(
        sName, session.sFind, session.sReplace, sIniFile, nRepCount, ask, &failed);
    if (!key)
        return;
    mnuRepl->setProperty("Tag", towidget(*key));
    // The menu comes from what the file holds: a set not saved isn't there.
    loadreplist(false);
    if (failed)
        dialogs().messagebox(this, towidget(notsavedmessage(*key, sIniFile.string())), Buttons::Ok, Icon::None,
                             towidget(std::string(sTitle)), towidget(reasontext(failed)));
}

void Form1::mnuRep_Click(int Index)
{
    if (busy() || Index < 0 || static_cast<std::size_t>(Index) >= mnuRep.size())
        return;
    const RepItem clicked = repitem(mnuRep[static_cast<std::size_t>(Index)]);
    const RepAction action = repaction(clicked.tag);
    if (action == RepAction::New) {
        if (session.sFind.empty())
            dialogs().messagebox(this, towidget(std::string(kFillInMessage)), Buttons::Ok, Icon::None,
                                 towidget(std::string(sTitle)));
        else
            saverep(fromwidget(mnuRepl->property("Tag").toString()));
        return;
    }
    windowHost->forgetcancel();
    // The pair of a set goes into the boxes, and its name becomes current.
    auto takeset = [this](const RepItem& item, const RepPair& pair) {
        mnuRepl->setProperty("Tag", towidget(item.caption));
        Text2->setText(towidget(pair.find));
        Text3->setText(towidget(pair.replace));
    };
    if (action == RepAction::Pick) {
        takeset(clicked, splitset(clicked.tag));
        return;
    }
    // A list run over the sets above "-": each runs to its end before the
    // next; Cancel ends the run in hand and the list with it.
    const int button = action == RepAction::ReplaceAll ? 1 : 0;
    listrun(
        repitems(mnuRep), [this] { return windowHost->cancelrequested(); },
        [&](const RepItem& item, const RepPair& pair) {
            takeset(item, pair);
            cmdFind_Click(button == 1);
        });
}

void Form1::mnuOpenRepFile_Click()
{
    if (busy())
        return;
    // File names go to and from the dialog in the file system's encoding.
    const QString chosen = dialogs().openfile(this, QFile::decodeName(QByteArray::fromStdString(sIniFile.string())),
                                              QStringLiteral("*.ini"), QStringLiteral("ini"));
    if (chosen.isEmpty())
        return;
    sIniFile = QFile::encodeName(chosen).toStdString();
    loadreplist(true);
}

}  // namespace brindlex::gui
