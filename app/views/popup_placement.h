#pragma once

// Where the panel drops from the tray icon.

#include <QPoint>
#include <QRect>
#include <QSize>

struct PopupAnchor {
    // The tray icon's rectangle when the tray host tells it, else empty.
    QRect iconGeometry;
    // The pointer at the click, used when the icon's place is unknown.
    QPoint cursor;
    // The whole screen under the anchor, and the part of it panels leave free.
    QRect screenGeometry;
    QRect availableGeometry;
};

// The panel's top-left corner: beside the anchor on the side away from the nearest
// screen edge (below a top panel, above a bottom one, right of a left one, ...),
// aligned with the anchor along that edge, and kept inside the free area.
QPoint PopupPosition(const PopupAnchor& anchor, QSize panelSize);
