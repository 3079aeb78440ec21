// The "Settings" tab: its faces, the group blocks, and the exact requests each of
// its buttons and its appearance send.

#include "settings_view.h"

#include <QEventLoop>
#include <QLabel>
#include <QPointer>
#include <QTest>
#include <QTimer>

#include "app/views/view_harness.h"
#include "elided_label.h"
#include "group_block.h"
#include "symbol_button.h"

using namespace Qt::Literals::StringLiterals;
using Branch = SettingsView::Branch;

Q_DECLARE_METATYPE(SettingsView::Branch)

namespace {

const TypeIDAndData getGroups{u"getGroups"_s, QString(), QString()};

GroupItem groupItem(std::int64_t id, const QString& name, const QStringList& walkPaths = {}) {
    return GroupItem{id, name, walkPaths};
}

SymbolButton* button(const QWidget* parent, const QString& objectName) {
    return parent->findChild<SymbolButton*>(objectName);
}

}  // namespace

class SettingsViewTest : public QObject {
    Q_OBJECT

private slots:
    void choosesItsFace_data() {
        QTest::addColumn<bool>("hasGroups");
        QTest::addColumn<bool>("hasFolders");
        QTest::addColumn<bool>("isLoading");
        QTest::addColumn<Branch>("expected");
        QTest::newRow("groups") << true << false << false << Branch::groupList;
        QTest::newRow("groups while loading") << true << true << true << Branch::groupList;
        QTest::newRow("loading") << false << false << true << Branch::spinner;
        // Folders without groups: the groups are on their way.
        QTest::newRow("folders, no groups") << false << true << false << Branch::spinner;
        QTest::newRow("nothing") << false << false << false << Branch::waitingText;
    }

    void choosesItsFace() {
        QFETCH(bool, hasGroups);
        QFETCH(bool, hasFolders);
        QFETCH(bool, isLoading);
        QFETCH(Branch, expected);
        ViewHarness harness;
        harness.ip.setLoading(isLoading);
        if (hasGroups) {
            harness.ip.setGroups({groupItem(7, u"Work"_s)});
        }
        if (hasFolders) {
            harness.ip.setDirItems({Folder(u"Docs"_s, u"/d"_s, u"Up to date"_s)});
        }
        SettingsView view(harness.environment);
        QCOMPARE(view.branch(), expected);
    }

    void askingForGroupsWhenShownAndTheHintAfterFiveSeconds() {
        ViewHarness harness;
        SettingsView view(harness.environment);
        QVERIFY(harness.ip.published.isEmpty());
        view.show();
        QCOMPARE(harness.ip.published, QList<TypeIDAndData>{getGroups});
        auto* text = view.findChild<QLabel*>(u"waitingText"_s);
        QCOMPARE(text->text(), u"Loading ..."_s);

        QTRY_COMPARE_WITH_TIMEOUT(harness.ip.published.size(), 2, 7000);
        QCOMPARE(harness.ip.published.last(), getGroups);
        QTRY_COMPARE(text->text(), u"Please login to brisvane.example and create a group"_s);

        // Shown again (the tab chosen again): the pair again.
        view.hide();
        view.show();
        QCOMPARE(harness.ip.published.size(), 3);
    }

    void groupBlocksShowNameNumberAndPaths() {
        ViewHarness harness;
        harness.ip.setGroups(
            {groupItem(7, u"Work"_s, {u"/w/b"_s, u"/w/a"_s}), groupItem(9, u"Empty"_s)});
        harness.ip.setDirItems({Folder(u"b"_s, u"/w/b"_s, u"2 of 6 ..."_s, 7)});
        SettingsView view(harness.environment);
        view.show();
        const QList<GroupBlock*> blocks = view.groupBlocks();
        QCOMPARE(blocks.size(), 2);
        QCOMPARE(blocks[0]->findChild<QLabel*>(u"groupTitle"_s)->text(), u"Work (#7)"_s);
        QCOMPARE(blocks[1]->findChild<QLabel*>(u"groupTitle"_s)->text(), u"Empty (#9)"_s);

        // Paths keep the group's order; the open button shows the folder's own icon.
        const QList<SymbolButton*> openButtons =
            blocks[0]->findChildren<SymbolButton*>(u"openDirButton"_s);
        QCOMPARE(openButtons.size(), 2);
        QCOMPARE(openButtons[0]->property("path").toString(), u"/w/b"_s);
        QCOMPARE(openButtons[0]->symbolName(), u"arrow.clockwise"_s);
        QCOMPARE(openButtons[1]->symbolName(), u"internaldrive"_s);
        harness.ip.setDirItems({Folder(u"b"_s, u"/w/b"_s, u"Up to date"_s, 7)});
        QCOMPARE(openButtons[0]->symbolName(), u"internaldrive"_s);
        QVERIFY(blocks[1]->findChildren<SymbolButton*>(u"openDirButton"_s).isEmpty());

        QTest::mouseClick(openButtons[1], Qt::LeftButton);
        QCOMPARE(harness.ip.published.last(),
                 (TypeIDAndData{u"openDirPath"_s, u"/w/a"_s, QString()}));
        QCOMPARE(openButtons[1]->toolTip(), u"Open"_s);

        // A short path shows whole; only one longer than the panel gives way.
        const QList<ElidedLabel*> paths = blocks[0]->findChildren<ElidedLabel*>();
        QCOMPARE(paths.size(), 2);
        for (const ElidedLabel* path : paths) {
            QTRY_VERIFY(path->width() >= path->fontMetrics().horizontalAdvance(path->text()));
        }
    }

    void addingAFolderSendsItsPathUnderTheGroupName() {
        ViewHarness harness;
        harness.ip.setGroups({groupItem(7, u"Work"_s)});
        SettingsView view(harness.environment);
        SymbolButton* add = button(view.groupBlocks().constFirst(), u"addFolderButton"_s);
        QCOMPARE(add->toolTip(), u"Watch a new folder"_s);

        harness.nextChosenFolder = QUrl::fromLocalFile(u"/home/ada/Music"_s);
        QTest::mouseClick(add, Qt::LeftButton);
        QCOMPARE(harness.choosersRun.constFirst(),
                 (std::pair<QString, std::optional<QString>>{u"selectDir"_s, std::nullopt}));
        QCOMPARE(
            harness.ip.published,
            (QList<TypeIDAndData>{{u"addWatchDir"_s, u"Work"_s, u"/home/ada/Music"_s}, getGroups}));
        // And the groups once more half a second later.
        QTest::qWait(300);
        QCOMPARE(harness.ip.published.size(), 2);
        QTRY_COMPARE(harness.ip.published.size(), 3);
        QCOMPARE(harness.ip.published.last(), getGroups);
    }

    // The real chooser runs an event loop of its own; an answer that changes the groups
    // meanwhile rebuilds the blocks, the chooser's own among them.
    void groupsChangingWhileTheChooserIsOpen() {
        ViewHarness harness;
        harness.ip.setGroups({groupItem(7, u"Work"_s)});
        SettingsView view(harness.environment);
        harness.environment.selectDir = [&harness](const std::optional<QString>&, QWidget*) {
            harness.ip.setGroups({groupItem(7, u"Work"_s, {u"/w/a"_s})});
            QEventLoop chooserLoop;
            QTimer::singleShot(50, &chooserLoop, &QEventLoop::quit);
            chooserLoop.exec();
            return std::optional(QUrl::fromLocalFile(u"/w/b"_s));
        };
        QPointer<GroupBlock> block = view.groupBlocks().constFirst();
        QTest::mouseClick(button(block, u"addFolderButton"_s), Qt::LeftButton);
        QVERIFY(block.isNull());
        QCOMPARE(harness.ip.published.constFirst(),
                 (TypeIDAndData{u"addWatchDir"_s, u"Work"_s, u"/w/b"_s}));
    }

    void cancelledChoosersSendNothing() {
        ViewHarness harness;
        harness.ip.setGroups({groupItem(7, u"Work"_s)});
        SettingsView view(harness.environment);
        GroupBlock* block = view.groupBlocks().constFirst();
        QTest::mouseClick(button(block, u"addFolderButton"_s), Qt::LeftButton);
        QTest::mouseClick(button(block, u"addPhotoLibraryButton"_s), Qt::LeftButton);
        QCOMPARE(harness.choosersRun.size(), 2);
        QTest::qWait(600);
        QVERIFY(harness.ip.published.isEmpty());
    }

    void photoLibraryIsWatchedByItsOriginals_data() {
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("watched");
        QTest::newRow("library") << u"/home/ada/Pictures/Family.photoslibrary"_s
                                 << u"/home/ada/Pictures/Family.photoslibrary/originals"_s;
        QTest::newRow("trailing slash")
            << u"/home/ada/Pictures/Lib/"_s << u"/home/ada/Pictures/Lib/originals"_s;
        QTest::newRow("root") << u"/"_s << u"/originals"_s;
    }

    void photoLibraryIsWatchedByItsOriginals() {
        QFETCH(QString, chosen);
        QFETCH(QString, watched);
        ViewHarness harness;
        harness.ip.setGroups({groupItem(7, u"Family"_s)});
        SettingsView view(harness.environment);
        SymbolButton* add = button(view.groupBlocks().constFirst(), u"addPhotoLibraryButton"_s);
        QCOMPARE(add->toolTip(), u"Watch a new photos library"_s);

        harness.nextChosenFolder = QUrl::fromLocalFile(chosen);
        QTest::mouseClick(add, Qt::LeftButton);
        QCOMPARE(harness.choosersRun.constFirst(), (std::pair<QString, std::optional<QString>>{
                                                       u"selectPhotoLibrary"_s, u"~/Pictures"_s}));
        QCOMPARE(harness.ip.published.constFirst(),
                 (TypeIDAndData{u"addWatchDir"_s, u"Family"_s, watched}));
    }

    void olderSystemsOfferNoPhotoLibrary() {
        ViewHarness harness;
        harness.ip.setMacOS13(false);
        harness.ip.setGroups({groupItem(7, u"Work"_s)});
        SettingsView view(harness.environment);
        GroupBlock* block = view.groupBlocks().constFirst();
        QVERIFY(button(block, u"addPhotoLibraryButton"_s) == nullptr);
        QVERIFY(button(block, u"addFolderButton"_s) != nullptr);
    }

    void trashStopsWatchingRemovesTheRowAndAsksForGroupsTwice() {
        ViewHarness harness;
        harness.ip.setGroups({groupItem(7, u"Work"_s, {u"/w/a"_s, u"/w/b"_s})});
        SettingsView view(harness.environment);
        SymbolButton* trash = view.groupBlocks()
                                  .constFirst()
                                  ->findChildren<SymbolButton*>(u"stopWatchingButton"_s)
                                  .at(0);
        QCOMPARE(trash->toolTip(),
                 u"Stop watching this folder.  The files and folders will not be deleted."_s);

        // The row's block is rebuilt while its button is still being clicked.
        QTest::mouseClick(trash, Qt::LeftButton);
        QCOMPARE(harness.ip.deleted, QStringList{u"/w/a"_s});
        QCOMPARE(harness.ip.published,
                 (QList<TypeIDAndData>{{u"stopWatching"_s, u"/w/a"_s, QString()}, getGroups}));
        QTRY_COMPARE(view.groupBlocks()
                         .constFirst()
                         ->findChildren<SymbolButton*>(u"stopWatchingButton"_s)
                         .size(),
                     1);
        QTRY_COMPARE(harness.ip.published.size(), 3);
        QCOMPARE(harness.ip.published.last(), getGroups);
    }
};

QTEST_MAIN(SettingsViewTest)
#include "settings_view_test.moc"
