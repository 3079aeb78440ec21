// The "Status" tab: which of its three faces it shows, the folder rows, and what
// their buttons send.

#include "content_view.h"

#include <QLabel>
#include <QProgressBar>
#include <QTest>

#include "app/views/view_harness.h"
#include "folder_status_row.h"
#include "symbol_button.h"

using namespace Qt::Literals::StringLiterals;
using Branch = ContentView::Branch;

Q_DECLARE_METATYPE(ContentView::Branch)

class ContentViewTest : public QObject {
    Q_OBJECT

private slots:
    void choosesItsFace_data() {
        QTest::addColumn<bool>("hasFolders");
        QTest::addColumn<bool>("isLoading");
        QTest::addColumn<Branch>("expected");
        QTest::newRow("nothing yet, loading") << false << true << Branch::spinner;
        QTest::newRow("nothing, idle") << false << false << Branch::waitingText;
        QTest::newRow("folders, idle") << true << false << Branch::folderList;
        QTest::newRow("folders while loading") << true << true << Branch::folderList;
    }

    void choosesItsFace() {
        QFETCH(bool, hasFolders);
        QFETCH(bool, isLoading);
        QFETCH(Branch, expected);
        ViewHarness harness;
        harness.ip.setLoading(isLoading);
        if (hasFolders) {
            harness.ip.setDirItems({Folder(u"Docs"_s, u"/home/ada/Docs"_s, u"1 of 6 ..."_s)});
        }
        ContentView view(harness.environment);
        view.show();
        QCOMPARE(view.branch(), expected);
    }

    void waitingTextTurnsToTheSettingsHintAfterFiveSeconds() {
        ViewHarness harness;
        ContentView view(harness.environment);
        view.show();
        auto* text = view.findChild<QLabel*>(u"waitingText"_s);
        QCOMPARE(text->text(), u"Loading ..."_s);
        // Timers never fire early, so this holds however slow the machine is.
        QTest::qWait(4000);
        QCOMPARE(text->text(), u"Loading ..."_s);
        QTRY_COMPARE_WITH_TIMEOUT(text->text(),
                                  u"Please select a folder to sync from the Settings tab"_s, 5000);

        // Folders come and go; the hint stays, and a spinner still wins while loading.
        harness.ip.setDirItems({Folder(u"Docs"_s, u"/d"_s, u"Up to date"_s)});
        harness.ip.setDirItems({});
        QCOMPARE(view.branch(), Branch::waitingText);
        QCOMPARE(text->text(), u"Please select a folder to sync from the Settings tab"_s);
        harness.ip.setLoading(true);
        QCOMPARE(view.branch(), Branch::spinner);
    }

    void listsFoldersByNameAndKeepsRowsWhileTheyChange() {
        ViewHarness harness;
        harness.ip.setDirItems({Folder(u"music"_s, u"/m"_s, u""_s),
                                Folder(u"Photos"_s, u"/p"_s, u""_s),
                                Folder(u"Archive"_s, u"/a"_s, u""_s)});
        ContentView view(harness.environment);
        view.show();
        // Plain string order: upper case before lower case.
        QCOMPARE(names(view), (QStringList{u"Archive"_s, u"Photos"_s, u"music"_s}));

        FolderStatusRow* photos = view.rows().at(1);
        harness.ip.setDirItems({Folder(u"music"_s, u"/m"_s, u""_s),
                                Folder(u"Photos"_s, u"/p"_s, u"2 of 6 ..."_s),
                                Folder(u"Zebra"_s, u"/a"_s, u""_s)});
        QCOMPARE(names(view), (QStringList{u"Photos"_s, u"Zebra"_s, u"music"_s}));
        QCOMPARE(view.rows().at(0), photos);

        harness.ip.setDirItems({Folder(u"music"_s, u"/m"_s, u""_s)});
        QCOMPARE(names(view), QStringList{u"music"_s});
    }

    void rowShowsStatusIconAndProgress_data() {
        QTest::addColumn<QString>("status");
        QTest::addColumn<QString>("icon");
        QTest::addColumn<int>("barValue");
        QTest::newRow("settled") << u"Up to date"_s << u"internaldrive"_s << 1000;
        QTest::newRow("checking the server")
            << u"Server status check ..."_s << u"internaldrive"_s << 1000;
        QTest::newRow("third stage") << u"3 of 6 ..."_s << u"arrow.clockwise"_s << 450;
        QTest::newRow("last stage") << u"6 of 6 ..."_s << u"arrow.clockwise"_s << 900;
        QTest::newRow("empty") << QString() << u"arrow.clockwise"_s << 0;
    }

    void rowShowsStatusIconAndProgress() {
        QFETCH(QString, status);
        QFETCH(QString, icon);
        QFETCH(int, barValue);
        ViewHarness harness;
        harness.ip.setDirItems({Folder(u"Docs"_s, u"/d"_s, u"1 of 6 ..."_s)});
        ContentView view(harness.environment);
        view.show();
        FolderStatusRow* row = view.rows().constFirst();
        QCOMPARE(row->progressBar()->value(), 150);

        harness.ip.setDirItems({Folder(u"Docs"_s, u"/d"_s, status)});
        QCOMPARE(row->findChild<QLabel*>(u"statusLabel"_s)->text(), status);
        QCOMPARE(row->findChild<SymbolButton*>(u"openDirButton"_s)->symbolName(), icon);
        // The bar glides there.
        QTRY_COMPARE(row->progressBar()->value(), barValue);
    }

    void rowButtonsSendTheirRequests() {
        ViewHarness harness;
        harness.ip.setDirItems({Folder(u"Docs"_s, u"/home/ada/Docs"_s, u"Up to date"_s, 42)});
        ContentView view(harness.environment);
        view.show();
        FolderStatusRow* row = view.rows().constFirst();
        auto* open = row->findChild<SymbolButton*>(u"openDirButton"_s);
        auto* web = row->findChild<SymbolButton*>(u"openWebButton"_s);
        QCOMPARE(open->toolTip(), u"Open"_s);
        QCOMPARE(web->toolTip(), u"Open in brisvane.example"_s);
        QVERIFY(!open->accessibleName().isEmpty());
        QVERIFY(!web->accessibleName().isEmpty());

        QTest::mouseClick(open, Qt::LeftButton);
        QTest::mouseClick(web, Qt::LeftButton);
        QCOMPARE(harness.ip.published,
                 (QList<TypeIDAndData>{{u"openDirPath"_s, u"/home/ada/Docs"_s, QString()},
                                       {u"openWeb"_s, u"42"_s, QString()}}));
    }

    void isAtLeast650WideAndExactly450High() {
        ViewHarness harness;
        ContentView view(harness.environment);
        view.show();
        QCOMPARE(view.minimumSize(), QSize(650, 450));
        QCOMPARE(view.maximumHeight(), 450);
    }

private:
    static QStringList names(const ContentView& view) {
        QStringList names;
        for (FolderStatusRow* row : view.rows()) {
            names.append(row->item().name);
        }
        return names;
    }
};

QTEST_MAIN(ContentViewTest)
#include "content_view_test.moc"
