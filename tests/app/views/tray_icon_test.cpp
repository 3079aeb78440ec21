// The tray's picture has to stand out on whatever panel the host draws it on, and no
// tray protocol says what colour that is.

#include "tray_icon.h"

#include <QImage>
#include <QPainter>
#include <QRegularExpression>
#include <QTest>
#include <cmath>

namespace {

const QStringList kTraySymbols = {"arrow.clockwise", "internaldrive"};

double linear(int channel) {
    const double value = channel / 255.0;
    return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
}

double luminance(QRgb colour) {
    return 0.2126 * linear(qRed(colour)) + 0.7152 * linear(qGreen(colour)) +
           0.0722 * linear(qBlue(colour));
}

// The contrast ratio as the web's accessibility guidelines define it, 1 to 21.
double contrast(QRgb a, QRgb b) {
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

struct Legibility {
    double best = 1;
    // Of the picture's square, the part that stands out at 3:1 or more.
    double shareAtThree = 0;
};

// The picture as the host shows it: painted over the panel's colour.
Legibility onPanel(const QPixmap& picture, QRgb panel) {
    QImage shown(picture.size(), QImage::Format_RGB32);
    shown.fill(panel);
    QPainter(&shown).drawPixmap(0, 0, picture);
    Legibility result;
    int standingOut = 0;
    for (int y = 0; y < shown.height(); ++y) {
        for (int x = 0; x < shown.width(); ++x) {
            const double ratio = contrast(shown.pixel(x, y), panel);
            result.best = std::max(result.best, ratio);
            standingOut += ratio >= 3 ? 1 : 0;
        }
    }
    result.shareAtThree = double(standingOut) / (shown.width() * shown.height());
    return result;
}

}  // namespace

class TrayIconTest : public QObject {
    Q_OBJECT

private slots:
    // The light and dark panels of common desktops, and a mid grey where neither a
    // dark nor a light symbol alone would do.
    void standsOutOnEveryPanelAtEverySize_data() {
        QTest::addColumn<QString>("symbol");
        QTest::addColumn<int>("side");
        QTest::addColumn<QRgb>("panel");
        for (const QString& symbol : kTraySymbols) {
            for (const int side : {16, 22, 24, 32, 48, 64}) {
                for (const QRgb panel : {qRgb(0xf2, 0xf2, 0xf2), qRgb(0x2b, 0x2b, 0x2b),
                                         qRgb(0x80, 0x80, 0x80), qRgb(0, 0, 0)}) {
                    QTest::addRow("%s %d on #%06x", qPrintable(symbol), side, panel & 0xffffff)
                        << symbol << side << panel;
                }
            }
        }
    }
    void standsOutOnEveryPanelAtEverySize() {
        QFETCH(QString, symbol);
        QFETCH(int, side);
        QFETCH(QRgb, panel);
        const QIcon icon = TrayIcon(symbol);
        // Hosts take the listed sizes as they are; a missing one would be scaled, blurring
        // the one-pixel rim.
        QVERIFY(icon.availableSizes().contains(QSize(side, side)));
        const QPixmap picture = icon.pixmap(QSize(side, side));
        QCOMPARE(picture.size(), QSize(side, side));
        const Legibility legibility = onPanel(picture, panel);
        const QByteArray figures = QByteArray::number(legibility.best, 'f', 2) + ":1, " +
                                   QByteArray::number(legibility.shareAtThree, 'f', 2);
        QVERIFY2(legibility.best >= 3, figures);
        QVERIFY2(legibility.shareAtThree >= 0.15, figures);
    }

    // Busy and idle must be told apart at the smallest size a tray uses.
    void busyAndIdleDifferAtTheSmallestSize() {
        const QImage busy = TrayIcon("arrow.clockwise").pixmap(16, 16).toImage();
        const QImage idle = TrayIcon("internaldrive").pixmap(16, 16).toImage();
        int differing = 0;
        for (int y = 0; y < 16; ++y) {
            for (int x = 0; x < 16; ++x) {
                differing += contrast(busy.pixel(x, y), idle.pixel(x, y)) >= 2 ? 1 : 0;
            }
        }
        QVERIFY2(differing >= 16 * 16 / 10, qPrintable(QString::number(differing)));
    }

    void aSymbolWithoutATrayPictureStillShows() {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("\"no\\.such\\.symbol\""));
        const QIcon icon = TrayIcon("no.such.symbol");
        QVERIFY(!icon.pixmap(22, 22).isNull());
    }
};

QTEST_MAIN(TrayIconTest)
#include "tray_icon_test.moc"
