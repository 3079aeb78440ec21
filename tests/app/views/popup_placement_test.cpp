// Where the panel drops: beside the icon, away from the nearest screen edge, inside
// the free area.

#include "app/views/popup_placement.h"

#include <QTest>

namespace {

const QRect screen(0, 0, 1280, 800);
const QSize panel(650, 520);

}  // namespace

class PopupPlacementTest : public QObject {
    Q_OBJECT

private slots:
    void dropsBesideTheAnchor_data() {
        QTest::addColumn<QRect>("icon");
        QTest::addColumn<QPoint>("cursor");
        QTest::addColumn<QRect>("available");
        QTest::addColumn<QPoint>("expected");

        const QRect underTopPanel(0, 24, 1280, 776);
        QTest::newRow("top right tray")
            << QRect(1257, 1, 22, 22) << QPoint() << underTopPanel << QPoint(1279 - 650, 24);
        QTest::newRow("top left tray")
            << QRect(4, 1, 22, 22) << QPoint() << underTopPanel << QPoint(4, 24);
        const QRect aboveBottomPanel(0, 0, 1280, 770);
        QTest::newRow("bottom right tray") << QRect(1250, 774, 22, 22) << QPoint()
                                           << aboveBottomPanel << QPoint(1272 - 650, 770 - 520);
        const QRect besideLeftPanel(40, 0, 1240, 800);
        QTest::newRow("left dock, low")
            << QRect(9, 700, 22, 22) << QPoint() << besideLeftPanel << QPoint(40, 722 - 520);
        QTest::newRow("right dock, high") << QRect(1250, 100, 22, 22) << QPoint()
                                          << QRect(0, 0, 1240, 800) << QPoint(1240 - 650, 100);
        // Status-notifier hosts never tell the icon's place: the pointer stands for it.
        QTest::newRow("no icon geometry, pointer at the top")
            << QRect() << QPoint(900, 10) << underTopPanel << QPoint(901 - 650, 24);
    }

    void dropsBesideTheAnchor() {
        QFETCH(QRect, icon);
        QFETCH(QPoint, cursor);
        QFETCH(QRect, available);
        QFETCH(QPoint, expected);
        QCOMPARE(PopupPosition({icon, cursor, screen, available}, panel), expected);
    }

    void staysInsideTheFreeArea() {
        const QRect available(0, 24, 1280, 776);
        // An icon near the corner whose panel would overhang the left edge.
        QCOMPARE(PopupPosition({QRect(300, 1, 22, 22), {}, screen, available}, QSize(650, 100)),
                 QPoint(300, 24));
        QCOMPARE(PopupPosition({QRect(700, 1, 22, 22), {}, screen, available}, QSize(900, 100)),
                 QPoint(0, 24));
        // Larger than the screen: the top-left corner stays reachable.
        QCOMPARE(PopupPosition({QRect(1257, 1, 22, 22), {}, screen, available}, QSize(2000, 2000)),
                 QPoint(0, 24));
    }
};

QTEST_MAIN(PopupPlacementTest)
#include "popup_placement_test.moc"
