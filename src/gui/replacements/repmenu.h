// The Replacements menu as Qt actions: the engine's items (caption and tag)
// put on the actions of mnuRepl, and read back from them.
//
// Item i is the action mnuRep[i], objectName "mnuRep<i>", with its caption
// as text ("&" marks the mnemonic; a caption "-" is a separator line, which
// has no text) and its
// tag as the dynamic property "Tag" (a QString). Bytes cross as ISO-8859-1.
#pragma once

#include <QObject>

#include <functional>
#include <vector>

#include "engine/replacements/replist.h"

class QAction;
class QMenu;

namespace brindlex::gui {

// Makes `menu` show `items`. The actions that exist are reused in place, so
// that item i keeps its index and its connection; a new action i calls
// `onclick(i)` when triggered (in the thread of `context`). Actions left over
// come off the menu at once and are deleted later, since one of them may be
// the item whose click is being handled.
void fillrepmenu(QMenu* menu, std::vector<QAction*>& actions, const std::vector<RepItem>& items,
                 QObject* context, const std::function<void(int)>& onclick);

// What the menu shows, item by item.
std::vector<RepItem> repitems(const std::vector<QAction*>& actions);

// The caption and the tag of one item.
RepItem repitem(const QAction* action);

}  // namespace brindlex::gui
