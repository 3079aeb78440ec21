// The tray items: the panel's fallback window when no tray exists, the icon that
// follows the model, the small menu, and the older systems' item.

#include "app/views/menu_bar_extra.h"

#include <QLabel>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QTabWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QWidgetAction>

#include "app/views/menu_bar_extra_legacy.h"
#include "app/views/view_harness.h"
#include "folder_status_row.h"
#include "menu_bar_view.h"

using namespace Qt::Literals::StringLiterals;

class MenuBarExtraTest : public QObject {
    Q_OBJECT

private slots:
    void initTestCase() {
        QVERIFY(configHome_.isValid());
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
        // The offscreen platform has no tray, like a desktop without a tray host.
        QVERIFY(!QSystemTrayIcon::isSystemTrayAvailable());
    }

    void withoutATrayThePanelIsAWindowWhoseClosingEndsTheApplication() {
        ViewHarness harness;
        MenuBarExtra extra(harness.environment, nullptr);
        PanelWindow* panel = extra.panel();
        QVERIFY(panel->isVisible());
        QVERIFY(!panel->isPopup());
        QCOMPARE(harness.terminateCount, 0);
        panel->close();
        QCOMPARE(harness.terminateCount, 1);
    }

    // The notice rides beside the designed texts: the tooltip keeps its first line and the
    // panel keeps its screen.
    void aSilentHelperIsNamedInTheTooltipAndOverThePanelUntilItAnswers() {
        ViewHarness harness;
        MenuBarExtra extra(harness.environment, nullptr);
        auto* notice = extra.panel()->findChild<QLabel*>(u"helperSilentNotice"_s);
        QVERIFY(notice != nullptr);
        QCOMPARE(extra.trayIcon()->toolTip(), u"brisvane"_s);
        QVERIFY(notice->isHidden());

        harness.ip.setHelperSilent(true);
        QCOMPARE(extra.trayIcon()->toolTip(), u"brisvane\nThe sync helper is not responding"_s);
        QVERIFY(!notice->isHidden());
        QVERIFY(extra.panel()->findChild<QTabWidget*>() != nullptr);

        harness.ip.setHelperSilent(false);
        QCOMPARE(extra.trayIcon()->toolTip(), u"brisvane"_s);
        QVERIFY(notice->isHidden());
    }

    void trayIconIsSetOnlyWhenTheSymbolChanges() {
        ViewHarness harness;
        MenuBarExtra extra(harness.environment, nullptr);
        const qint64 busyIcon = extra.trayIcon()->icon().cacheKey();
        harness.ip.setMenuBarString(u"arrow.clockwise"_s);
        QCOMPARE(extra.trayIcon()->icon().cacheKey(), busyIcon);
        harness.ip.setMenuBarString(u"internaldrive"_s);
        QVERIFY(extra.trayIcon()->icon().cacheKey() != busyIcon);
    }

    void menuOpensThePanelFirstAndQuitsLast() {
        ViewHarness harness;
        MenuBarExtra extra(harness.environment, nullptr);
        extra.panel()->hide();
        const QList<QAction*> actions = extra.contextMenu()->actions();
        QCOMPARE(actions.constFirst()->text(), u"Open brisvane"_s);
        QCOMPARE(actions.constLast()->text(), u"Quit"_s);

        actions.constFirst()->trigger();
        QVERIFY(extra.panel()->isVisible());
        QVERIFY(extra.panel()->isPopup());
        // A click on the icon while it is open closes it.
        extra.togglePanel();
        QVERIFY(!extra.panel()->isVisible());
        actions.constLast()->trigger();
        QCOMPARE(harness.terminateCount, 1);
    }

    // Tiling compositors float a window whose least and greatest sizes agree, so the
    // popup holds its size; what it shows has to fit in it.
    void thePopupKeepsItsSizeAndALongPathGivesWay() {
        ViewHarness harness;
        harness.ip.setLoggedIn(true);
        harness.ip.setDirItems({Folder(u"Docs"_s, u"/d"_s, u"Up to date"_s)});
        MenuBarExtra extra(harness.environment, nullptr);
        PanelWindow* panel = extra.panel();
        extra.openPanel();
        QVERIFY(panel->isPopup());
        const QSize usual = panel->size();
        QCOMPARE(panel->minimumSize(), usual);
        QCOMPARE(panel->maximumSize(), usual);

        const QString longPath =
            u"/home/ada"_s + u"/a folder with a rather long name"_s.repeated(12);
        harness.ip.setDirItems({Folder(u"Docs"_s, longPath, u"Up to date"_s)});
        extra.openPanel();
        QCOMPARE(panel->size(), usual);
        QWidget* web = nullptr;
        QTRY_VERIFY((web = panel->findChild<FolderStatusRow*>()->findChild<QWidget*>(
                         u"openWebButton"_s)) != nullptr &&
                    web->isVisible());
        QTest::qWait(50);  // the rows are laid out
        const QRect webInPanel(web->mapTo(panel, QPoint(0, 0)), web->size());
        QVERIFY2(panel->rect().contains(webInPanel), "the row's web button is pushed out");

        // Shown as a window again, it may be resized like any other.
        panel->showAsWindow();
        QVERIFY(panel->maximumWidth() > usual.width());
    }

    void olderSystemsCarryTheWholePanelInTheMenu() {
        ViewHarness harness;
        QObject owner;
        MenuBarExtraLegacy(harness.environment, &owner);
        auto* statusItem = owner.findChild<QSystemTrayIcon*>();
        QVERIFY(statusItem != nullptr);
        const QList<QAction*> actions = statusItem->contextMenu()->actions();
        QCOMPARE(actions.size(), 1);
        auto* item = qobject_cast<QWidgetAction*>(actions.constFirst());
        QVERIFY(item != nullptr);
        QWidget* content = item->defaultWidget();
        QCOMPARE(content->size(), QSize(550, 450));
        QVERIFY(content->findChild<MenuBarView*>() != nullptr);
    }

private:
    QTemporaryDir configHome_;
};

QTEST_MAIN(MenuBarExtraTest)
#include "menu_bar_extra_test.moc"
