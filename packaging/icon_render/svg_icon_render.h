#pragma once

// Renders the application's SVG icon into the fixed-size PNGs of the hicolor theme, for
// desktops that cannot draw SVG icons themselves.

#include <QByteArray>
#include <QImage>
#include <optional>

inline constexpr int kLargestIconSize = 1024;

// A size x size image on a transparent background, the drawing scaled to fit and centred
// without changing its proportions. Nothing when svg is not a drawing Qt can render or when
// size is outside 1 .. kLargestIconSize.
std::optional<QImage> RenderSvgIcon(const QByteArray& svg, int size);
