#include "gui/mainwindow/listmodel.h"

#include <algorithm>

#include "gui/common/latin1.h"

namespace brindlex::gui {

int SessionListModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : static_cast<int>(rows);
}

QVariant SessionListModel::data(const QModelIndex& index, int role) const
{
    const auto row = static_cast<std::size_t>(index.row());
    if (!index.isValid() || row >= rows || row >= size() || (role != Qt::DisplayRole && role != kRealNameRole))
        return {};
    const std::string& name = which == Which::Files ? session.files[row].name : session.hits[row].sName;
    if (role == kRealNameRole)
        return QByteArray(name.data(), static_cast<qsizetype>(name.size()));
    return towidget(which == Which::Files ? list1line(session.files[row])
                                          : list2line(name, session.hits[row].lPos));
}

void SessionListModel::reset(const std::function<void()>& change)
{
    beginResetModel();
    change();
    rows = size();
    endResetModel();
}

void SessionListModel::append(std::size_t count, const std::function<void()>& change)
{
    if (count == 0)
        return;
    const auto first = static_cast<int>(rows);
    beginInsertRows({}, first, first + static_cast<int>(count) - 1);
    change();
    rows = std::min(size(), rows + count);
    endInsertRows();
}

void SessionListModel::changed(std::size_t row)
{
    const QModelIndex at = index(static_cast<int>(row));
    emit dataChanged(at, at, {Qt::DisplayRole});
}

}  // namespace brindlex::gui
