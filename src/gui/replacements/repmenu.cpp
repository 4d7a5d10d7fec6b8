#include "gui/replacements/repmenu.h"

#include <QAction>
#include <QMenu>

#include "gui/common/latin1.h"

namespace brindlex::gui {

void fillrepmenu(QMenu* menu, std::vector<QAction*>& actions, const std::vector<RepItem>& items,
                 QObject* context, const std::function<void(int)>& onclick)
{
    for (std::size_t i = 0; i < items.size(); ++i) {
        if (i == actions.size()) {
            QAction* action = menu->addAction(QString());
            const int index = static_cast<int>(i);
            action->setObjectName(QStringLiteral("mnuRep%1").arg(index));
            QObject::connect(action, &QAction::triggered, context, [onclick, index] { onclick(index); });
            actions.push_back(action);
        }
        QAction* action = actions[i];
        // A separator shows no text of its own (some styles would draw it).
        const bool line = items[i].caption == "-";
        action->setSeparator(line);
        action->setText(line ? QString() : towidget(items[i].caption));
        action->setProperty("Tag", towidget(items[i].tag));
    }
    while (actions.size() > items.size()) {
        QAction* spare = actions.back();
        actions.pop_back();
        menu->removeAction(spare);
        spare->setObjectName(QString());
        spare->disconnect();
        spare->deleteLater();
    }
}

RepItem repitem(const QAction* action)
{
    return {action->isSeparator() ? std::string("-") : fromwidget(action->text()),
            fromwidget(action->property("Tag").toString())};
}

std::vector<RepItem> repitems(const std::vector<QAction*>& actions)
{
    std::vector<RepItem> items;
    items.reserve(actions.size());
    for (const QAction* action : actions)
        items.push_back(repitem(action));
    return items;
}

}  // namespace brindlex::gui
