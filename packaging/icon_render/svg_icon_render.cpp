#include "svg_icon_render.h"

#include <QPainter>
#include <QRectF>
#include <QSvgRenderer>

std::optional<QImage> RenderSvgIcon(const QByteArray& svg, int size) {
    if (size < 1 || size > kLargestIconSize) {
        return std::nullopt;
    }
    QSvgRenderer renderer(svg);
    const QSizeF drawing = renderer.viewBoxF().size();
    if (!renderer.isValid() || drawing.isEmpty()) {
        return std::nullopt;
    }

    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    const QSizeF fitted = drawing.scaled(size, size, Qt::KeepAspectRatio);
    const QRectF target((size - fitted.width()) / 2, (size - fitted.height()) / 2, fitted.width(),
                        fitted.height());
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, target);
    painter.end();
    return image;
}
