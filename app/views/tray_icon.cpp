#include "tray_icon.h"

#include <QImage>
#include <QPainter>
#include <QPixmap>
#include <QSvgRenderer>

#include "symbol_icons.h"

namespace {

struct TrayPicture {
    const char* symbol;
    const char* resource;
};

constexpr TrayPicture kTrayPictures[] = {
    {"arrow.clockwise", ":/tray/arrow.clockwise.svg"},
    {"internaldrive", ":/tray/internaldrive.svg"},
};

// A status-notifier host takes one picture per listed size and picks the nearest to
// its own; an embedding tray asks for its slot's size. Rendering each size from the
// drawing keeps the rim one pixel wide even at 16 pixels.
constexpr int kTraySides[] = {16, 22, 24, 32, 48, 64};

QPixmap render(QSvgRenderer& renderer, int side) {
    QImage image(side, side, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    renderer.render(&painter, QRectF(0, 0, side, side));
    painter.end();
    return QPixmap::fromImage(image);
}

}  // namespace

QIcon TrayIcon(const QString& symbolName) {
    for (const TrayPicture& picture : kTrayPictures) {
        if (symbolName == QLatin1String(picture.symbol)) {
            QSvgRenderer renderer(QString::fromLatin1(picture.resource));
            QIcon icon;
            for (const int side : kTraySides) {
                icon.addPixmap(render(renderer, side));
            }
            return icon;
        }
    }
    return SymbolIcon(symbolName);
}
