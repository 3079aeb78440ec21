#include "symbol_icons.h"

#include <QGuiApplication>
#include <QImage>
#include <QPalette>
#include <QPixmap>
#include <QRegularExpression>
#include <QTest>

namespace {

// The names the views and the model hand to SymbolIcon.
const QStringList kSymbolsTheViewsUse = {
    "arrow.clockwise",
    "internaldrive",
    "network",
    "list.dash",
    "square.and.pencil",
    "icloud.slash",
    "folder.badge.plus",
    "person.crop.rectangle.badge.plus",
    "trash",
};

const QColor kLightText(0x1e, 0x1e, 0x1e);
const QColor kDarkText(0xec, 0xec, 0xec);
const QColor kDisabledText(0x8a, 0x7a, 0x9a);
const QColor kHighlightedText(0xf0, 0xe0, 0x10);

void usePaletteWithText(const QColor& windowText) {
    QPalette palette;
    palette.setColor(QPalette::WindowText, windowText);
    palette.setColor(QPalette::Disabled, QPalette::WindowText, kDisabledText);
    palette.setColor(QPalette::HighlightedText, kHighlightedText);
    QGuiApplication::setPalette(palette);
}

struct PixelCensus {
    int opaque = 0;   // fully covered
    int painted = 0;  // any coverage
    int foreign = 0;  // painted, but not the expected colour at its coverage
    QRect paintedBounds;
};

// Antialiased edges are partly transparent; such a pixel is in the expected colour when its
// premultiplied value is that colour scaled by its own coverage.
PixelCensus census(const QImage& source, const QColor& colour) {
    const QImage image = source.convertToFormat(QImage::Format_ARGB32_Premultiplied);
    PixelCensus result;
    for (int y = 0; y < image.height(); ++y) {
        const auto* line = reinterpret_cast<const QRgb*>(image.constScanLine(y));
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = line[x];
            const int alpha = qAlpha(pixel);
            if (alpha == 0) {
                continue;
            }
            ++result.painted;
            result.opaque += alpha == 255 ? 1 : 0;
            result.paintedBounds |= QRect(x, y, 1, 1);
            const QRgb expected =
                qPremultiply(qRgba(colour.red(), colour.green(), colour.blue(), alpha));
            const bool same = qAbs(qRed(pixel) - qRed(expected)) <= 1 &&
                              qAbs(qGreen(pixel) - qGreen(expected)) <= 1 &&
                              qAbs(qBlue(pixel) - qBlue(expected)) <= 1;
            result.foreign += same ? 0 : 1;
        }
    }
    return result;
}

PixelCensus drawn(const QIcon& icon, int side, const QColor& colour,
                  QIcon::Mode mode = QIcon::Normal) {
    return census(icon.pixmap(QSize(side, side), mode).toImage(), colour);
}

}  // namespace

class SymbolIconsTest : public QObject {
    Q_OBJECT

private slots:
    void init() { usePaletteWithText(kLightText); }
    void cleanup() { QGuiApplication::setPalette(startPalette_); }

    // Every name has its own picture: two table rows sharing a file, or a name falling
    // through to the placeholder, shows up here.
    void eachViewSymbolHasItsOwnPicture() {
        QStringList known = KnownSymbolNames();
        known.sort();
        QStringList expected = kSymbolsTheViewsUse;
        expected.sort();
        QCOMPARE(known, expected);

        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("not\\.a\\.symbol"));
        QList<QImage> pictures{SymbolIcon("not.a.symbol").pixmap(32, 32).toImage()};
        for (const QString& name : kSymbolsTheViewsUse) {
            const QImage picture = SymbolIcon(name).pixmap(32, 32).toImage();
            QVERIFY2(!pictures.contains(picture), qPrintable(name));
            pictures.append(picture);
        }
    }

    void symbolIsAnOutlineInTheTextColour_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QColor>("text");
        for (const QString& name : kSymbolsTheViewsUse) {
            QTest::addRow("%s light", qPrintable(name)) << name << kLightText;
            QTest::addRow("%s dark", qPrintable(name)) << name << kDarkText;
        }
    }
    void symbolIsAnOutlineInTheTextColour() {
        QFETCH(QString, name);
        QFETCH(QColor, text);
        usePaletteWithText(text);
        QTest::failOnWarning(QRegularExpression("symbol"));
        const QIcon icon = SymbolIcon(name);
        QVERIFY(!icon.isNull());
        const PixelCensus pixels = drawn(icon, 32, text);
        // Solid strokes, but an outline rather than a filled block.
        QVERIFY2(pixels.opaque >= 40, qPrintable(QString::number(pixels.opaque)));
        QVERIFY2(pixels.painted < 32 * 32 / 2, qPrintable(QString::number(pixels.painted)));
        QCOMPARE(pixels.foreign, 0);
    }

    void modeChoosesThePaletteRole_data() {
        QTest::addColumn<QIcon::Mode>("mode");
        QTest::addColumn<QColor>("expected");
        QTest::newRow("normal") << QIcon::Normal << kLightText;
        QTest::newRow("active") << QIcon::Active << kLightText;
        QTest::newRow("disabled") << QIcon::Disabled << kDisabledText;
        QTest::newRow("selected") << QIcon::Selected << kHighlightedText;
    }
    void modeChoosesThePaletteRole() {
        QFETCH(QIcon::Mode, mode);
        QFETCH(QColor, expected);
        const PixelCensus pixels = drawn(SymbolIcon("trash"), 22, expected, mode);
        QVERIFY(pixels.opaque > 0);
        QCOMPARE(pixels.foreign, 0);
    }

    // A panel repaints ten times a second: the same request reuses one rendering, and an icon
    // made before a palette switch follows it.
    void existingIconFollowsPaletteSwitch() {
        const QIcon icon = SymbolIcon("internaldrive");
        const QPixmap light = icon.pixmap(24, 24);
        QCOMPARE(icon.pixmap(24, 24).cacheKey(), light.cacheKey());

        usePaletteWithText(kDarkText);
        QCOMPARE(drawn(icon, 24, kDarkText).foreign, 0);
        usePaletteWithText(kLightText);
        QCOMPARE(drawn(icon, 24, kLightText).foreign, 0);
    }

    void unknownNameShowsPlaceholderAndWarnsOnce() {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("\"no\\.such\\.symbol\""));
        const QIcon first = SymbolIcon("no.such.symbol");
        QTest::failOnWarning(QRegularExpression("no\\.such\\.symbol"));
        const QIcon second = SymbolIcon("no.such.symbol");
        for (const QIcon& icon : {first, second}) {
            QVERIFY(!icon.isNull());
            QVERIFY(drawn(icon, 16, kLightText).opaque > 0);
        }
    }

    void pixmapHasTheRequestedSize_data() {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<qreal>("ratio");
        QTest::newRow("15") << QSize(15, 15) << 1.0;
        QTest::newRow("16@2") << QSize(16, 16) << 2.0;
        QTest::newRow("22@1.5") << QSize(22, 22) << 1.5;
        QTest::newRow("wide 40x22") << QSize(40, 22) << 1.0;
        QTest::newRow("tall 16x32@2") << QSize(16, 32) << 2.0;
    }
    void pixmapHasTheRequestedSize() {
        QFETCH(QSize, size);
        QFETCH(qreal, ratio);
        const QPixmap pixmap = SymbolIcon("network").pixmap(size, ratio);
        QCOMPARE(pixmap.size(), (QSizeF(size) * ratio).toSize());
        QCOMPARE(pixmap.deviceIndependentSize(), QSizeF(size));
        // A request that is not square keeps the symbol's shape, centred.
        const PixelCensus pixels = census(pixmap.toImage(), kLightText);
        const int side = qMin(pixmap.width(), pixmap.height());
        const QRect square((pixmap.width() - side) / 2, (pixmap.height() - side) / 2, side, side);
        QVERIFY(square.contains(pixels.paintedBounds));
        QVERIFY(pixels.paintedBounds.width() > side / 2);
        QVERIFY(pixels.paintedBounds.height() > side / 2);
    }

private:
    const QPalette startPalette_ = QGuiApplication::palette();
};

QTEST_MAIN(SymbolIconsTest)
#include "symbol_icons_test.moc"
