// List1 and List2 as views of the session: a line per file entry or hit,
// made only when the view paints it, so that a list of 100,000 files costs
// its entries and nothing more. Each line keeps the file's real name
// (bytes) in kRealNameRole: the line shows it, the name finds the file.
#pragma once

#include <QAbstractListModel>

#include <cstddef>
#include <functional>

#include "gui/mainwindow/session.h"

namespace brindlex::gui {

inline constexpr int kRealNameRole = Qt::UserRole;

class SessionListModel final : public QAbstractListModel {
public:
    enum class Which { Files, Hits };

    SessionListModel(Session& session, Which which, QObject* parent)
        : QAbstractListModel(parent), session(session), which(which)
    {
    }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;

    // The view shows the rows it was told of: the session's list may grow
    // meanwhile (a walk gathers its entries) until `append` shows them.
    // reset: the list changes as a whole (as a rule, it is emptied).
    void reset(const std::function<void()>& change);
    // `change` leaves `count` more rows in the list than the view shows
    // (the walk's entries, sorted; a batch of hits).
    void append(std::size_t count, const std::function<void()>& change);
    // Row `row` of the session's list changed.
    void changed(std::size_t row);

private:
    std::size_t size() const { return which == Which::Files ? session.files.size() : session.hits.size(); }

    Session& session;
    const Which which;
    std::size_t rows = 0;   // shown
};

}  // namespace brindlex::gui
