#include "popup_placement.h"

#include <algorithm>
#include <array>

namespace {

enum class Edge { top, bottom, left, right };

Edge nearestEdge(QPoint point, const QRect& screen) {
    const std::array<std::pair<int, Edge>, 4> distances{{
        {point.y() - screen.top(), Edge::top},
        {screen.bottom() - point.y(), Edge::bottom},
        {point.x() - screen.left(), Edge::left},
        {screen.right() - point.x(), Edge::right},
    }};
    return std::min_element(distances.begin(), distances.end(),
                            [](const auto& a, const auto& b) { return a.first < b.first; })
        ->second;
}

int clamped(int value, int low, int high) {
    // A panel larger than the area keeps its top-left corner visible.
    return std::max(low, std::min(value, high));
}

}  // namespace

QPoint PopupPosition(const PopupAnchor& anchor, QSize panelSize) {
    const QRect iconRect =
        anchor.iconGeometry.isValid() ? anchor.iconGeometry : QRect(anchor.cursor, QSize(1, 1));
    const QRect screen =
        anchor.screenGeometry.isValid() ? anchor.screenGeometry : anchor.availableGeometry;
    const QPoint centre = iconRect.center();
    const bool rightHalf = centre.x() > screen.center().x();
    const bool bottomHalf = centre.y() > screen.center().y();

    QPoint position;
    switch (nearestEdge(centre, screen)) {
        case Edge::top:
        case Edge::bottom:
            position.setX(rightHalf ? iconRect.right() + 1 - panelSize.width() : iconRect.left());
            position.setY(bottomHalf ? iconRect.top() - panelSize.height() : iconRect.bottom() + 1);
            break;
        case Edge::left:
        case Edge::right:
            position.setX(rightHalf ? iconRect.left() - panelSize.width() : iconRect.right() + 1);
            position.setY(bottomHalf ? iconRect.bottom() + 1 - panelSize.height() : iconRect.top());
            break;
    }

    const QRect area = anchor.availableGeometry;
    position.setX(clamped(position.x(), area.left(), area.right() + 1 - panelSize.width()));
    position.setY(clamped(position.y(), area.top(), area.bottom() + 1 - panelSize.height()));
    return position;
}
