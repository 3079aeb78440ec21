#include "symbol_icons.h"

#include <QGuiApplication>
#include <QHash>
#include <QIconEngine>
#include <QImage>
#include <QPainter>
#include <QPalette>
#include <QPixmap>
#include <QSet>
#include <QSvgRenderer>
#include <QtDebug>
#include <memory>
#include <utility>

namespace {

struct SymbolFile {
    const char* name;
    const char* resource;
};

constexpr SymbolFile kSymbolFiles[] = {
    {"arrow.clockwise", ":/symbols/arrow.clockwise.svg"},
    {"internaldrive", ":/symbols/internaldrive.svg"},
    {"network", ":/symbols/network.svg"},
    {"list.dash", ":/symbols/list.dash.svg"},
    {"square.and.pencil", ":/symbols/square.and.pencil.svg"},
    {"icloud.slash", ":/symbols/icloud.slash.svg"},
    {"folder.badge.plus", ":/symbols/folder.badge.plus.svg"},
    {"person.crop.rectangle.badge.plus", ":/symbols/person.crop.rectangle.badge.plus.svg"},
    {"trash", ":/symbols/trash.svg"},
};

constexpr const char* kPlaceholderResource = ":/symbols/placeholder.svg";

// Sizes offered to callers that pick from a list, such as the status-notifier tray, which
// hands the tray host one picture for each listed size.
const QList<QSize> kOfferedSizes = {{16, 16}, {22, 22}, {24, 24}, {32, 32}, {48, 48}, {64, 64}};

// A handful of sizes in two or three colours is all a panel uses; anything beyond that is
// left over from an earlier palette.
constexpr qsizetype kMaxCachedPixmaps = 24;

QColor symbolColour(QIcon::Mode mode) {
    const QPalette palette = QGuiApplication::palette();
    switch (mode) {
        case QIcon::Disabled:
            return palette.color(QPalette::Disabled, QPalette::WindowText);
        case QIcon::Selected:
            // Selected items sit on the highlight colour, where the ordinary text colour may
            // vanish.
            return palette.color(QPalette::Active, QPalette::HighlightedText);
        case QIcon::Normal:
        case QIcon::Active:
            break;
    }
    return palette.color(QPalette::Active, QPalette::WindowText);
}

// The size is in device pixels, so it already tells a high-density rendering apart.
struct PixmapKey {
    QSize pixelSize;
    QRgb colour;

    friend bool operator==(const PixmapKey&, const PixmapKey&) = default;
    friend size_t qHash(const PixmapKey& key, size_t seed = 0) {
        return qHashMulti(seed, key.pixelSize.width(), key.pixelSize.height(), key.colour);
    }
};

// Draws one SVG as a single-colour symbol in the palette's text colour. The colour is
// looked up at every paint, so a palette switch shows at the next repaint without anyone
// creating the icon again.
class SymbolIconEngine : public QIconEngine {
public:
    explicit SymbolIconEngine(QString resource) : resource_(std::move(resource)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        // Drawn at the device's resolution and scaled back into the logical rectangle, so a
        // high-density screen gets every pixel rather than a stretched low-resolution copy.
        const qreal ratio = painter->device()->devicePixelRatio();
        painter->drawPixmap(rect, pixmap(rect.size() * ratio, mode, state));
    }

    // QIcon asks for device pixels here and sets the pixel ratio on the result itself.
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State) override {
        if (size.isEmpty()) {
            return {};
        }
        const PixmapKey key{size, symbolColour(mode).rgba()};
        if (const auto cached = cache_.constFind(key); cached != cache_.cend()) {
            return *cached;
        }
        if (cache_.size() >= kMaxCachedPixmaps) {
            cache_.clear();
        }
        const QPixmap rendered = QPixmap::fromImage(render(key));
        cache_.insert(key, rendered);
        return rendered;
    }

    QList<QSize> availableSizes(QIcon::Mode, QIcon::State) override { return kOfferedSizes; }

    // No iconName() on purpose: a tray that is given a name looks it up in the icon theme,
    // where these symbols do not exist, instead of taking the pixels.

    QIconEngine* clone() const override { return new SymbolIconEngine(resource_); }

    QString key() const override { return QStringLiteral("SymbolIconEngine"); }

private:
    QImage render(const PixmapKey& key) {
        if (!renderer_) {
            renderer_ = std::make_unique<QSvgRenderer>(resource_);
        }
        QImage image(key.pixelSize, QImage::Format_ARGB32_Premultiplied);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        // Symbols are square; a wider or taller request keeps the shape and centres it.
        const int side = qMin(image.width(), image.height());
        const QRectF square((image.width() - side) / 2.0, (image.height() - side) / 2.0, side,
                            side);
        renderer_->render(&painter, square);
        // Keep the drawing's coverage, take the colour from the palette.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), QColor::fromRgba(key.colour));
        painter.end();
        return image;
    }

    QString resource_;
    std::unique_ptr<QSvgRenderer> renderer_;
    QHash<PixmapKey, QPixmap> cache_;
};

QString resourceFor(const QString& symbolName) {
    for (const SymbolFile& file : kSymbolFiles) {
        if (symbolName == QLatin1String(file.name)) {
            return QString::fromLatin1(file.resource);
        }
    }
    // Views ask for the same icon on every repaint; one warning per name is enough to
    // find the typo or the new name.
    static QSet<QString> reported;
    if (!reported.contains(symbolName)) {
        reported.insert(symbolName);
        qWarning("No icon for the symbol \"%s\"; showing a placeholder",
                 qUtf8Printable(symbolName));
    }
    return QString::fromLatin1(kPlaceholderResource);
}

}  // namespace

QIcon SymbolIcon(const QString& symbolName) {
    return QIcon(new SymbolIconEngine(resourceFor(symbolName)));
}

QStringList KnownSymbolNames() {
    QStringList names;
    for (const SymbolFile& file : kSymbolFiles) {
        names.append(QString::fromLatin1(file.name));
    }
    return names;
}
