#include "gui/mainwindow/tabstopdelegate.h"

#include <QApplication>
#include <QPainter>
#include <QStyle>

namespace brindlex::gui {

int TabStopDelegate::nextstop(int x, int averageWidth) const
{
    for (int units : stops) {
        const int px = units * averageWidth / 4;
        if (px > x)
            return px;
    }
    const int last = stops.empty() ? 0 : stops.back();
    int units = last + 32;
    while (units * averageWidth / 4 <= x)
        units += 32;
    return units * averageWidth / 4;
}

std::vector<int> TabStopDelegate::fieldstarts(const QString& text, const QFontMetrics& metrics) const
{
    const int averageWidth = metrics.averageCharWidth();
    std::vector<int> starts{0};
    int x = 0;
    const QStringList fields = text.split(QLatin1Char('\t'));
    for (qsizetype i = 0; i < fields.size(); ++i) {
        if (i > 0) {
            x = nextstop(x, averageWidth);
            starts.push_back(x);
        }
        x += metrics.horizontalAdvance(fields[i]);
    }
    starts.push_back(x);
    return starts;
}

void TabStopDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QString text = opt.text;
    opt.text.clear();
    const QWidget* widget = option.widget;
    QStyle* style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);

    const QStringList fields = text.split(QLatin1Char('\t'));
    const std::vector<int> starts = fieldstarts(text, opt.fontMetrics);
    painter->save();
    painter->setFont(opt.font);
    const QPalette::ColorGroup group = !(opt.state & QStyle::State_Enabled) ? QPalette::Disabled
                                       : (opt.state & QStyle::State_Active) ? QPalette::Normal
                                                                           : QPalette::Inactive;
    painter->setPen(opt.palette.color(group, (opt.state & QStyle::State_Selected) ? QPalette::HighlightedText
                                                                                   : QPalette::Text));
    painter->setClipRect(opt.rect);
    const int left = opt.rect.left() + kTextMargin;
    for (qsizetype i = 0; i < fields.size(); ++i) {
        QRect cell = opt.rect;
        cell.setLeft(left + starts[static_cast<std::size_t>(i)]);
        painter->drawText(cell, Qt::AlignLeft | Qt::AlignVCenter | Qt::TextSingleLine, fields[i]);
    }
    painter->restore();
}

QSize TabStopDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    QSize size = QStyledItemDelegate::sizeHint(option, index);
    const std::vector<int> starts = fieldstarts(index.data(Qt::DisplayRole).toString(), option.fontMetrics);
    size.setWidth(starts.back() + 2 * kTextMargin);
    return size;
}

}  // namespace brindlex::gui
