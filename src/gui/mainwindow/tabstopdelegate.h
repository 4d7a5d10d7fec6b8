// Draws a list line whose fields are separated by tabs so that each field
// after a tab starts at the next tab stop, as the platform list box does.
// Stops are in list units: 4 units are one average character width of the
// list's font, so the stops 180,190,200 put the second field 45 average
// characters from the start of the line. Past the last stop, stops follow
// every 32 units (8 characters).
#pragma once

#include <QStyledItemDelegate>

#include <vector>

namespace brindlex::gui {

class TabStopDelegate final : public QStyledItemDelegate {
public:
    // Between the line's left edge and its text, in pixels.
    static constexpr int kTextMargin = 2;

    using QStyledItemDelegate::QStyledItemDelegate;

    void setstops(std::vector<int> units) { stops = std::move(units); }
    const std::vector<int>& tabstops() const { return stops; }

    // Where each field of `text` starts, in pixels from the start of the line,
    // in the font of `metrics`; and, as the last entry, where the text ends.
    // With the stops 180,190,200 and an average width of 7 pixels,
    // "a.txt\t00000012" gives {0, 315, 315 + width of "00000012"}.
    std::vector<int> fieldstarts(const QString& text, const QFontMetrics& metrics) const;

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;

private:
    int nextstop(int x, int averageWidth) const;

    std::vector<int> stops;
};

}  // namespace brindlex::gui
