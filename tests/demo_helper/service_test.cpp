// The simulated service behind the endpoint: the account, the groups, the watched
// folders with their status walk, what it keeps across restarts, and what it opens.

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QSet>

#include "brisvane_version.h"
#include "demo_helper_fixture.h"

namespace {

constexpr std::int64_t kWorkGroupID = 9007199254740993;  // 2^53 + 1

class DemoHelperService : public DemoHelperTest {
protected:
    void SetUp() override {
        DemoHelperTest::SetUp();
        ASSERT_TRUE(folders_.isValid());
        startAndPair();
    }

    // A folder of `count` files of a few kilobytes each.
    QString makeFolder(const QString& name, int count) {
        const QString path = folders_.path() + '/' + name;
        QDir().mkpath(path + "/nested");
        for (int i = 0; i < count; ++i) {
            QFile file(QString("%1/%2file%3.bin").arg(path, i % 2 ? "nested/" : "").arg(i));
            EXPECT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(QByteArray(4096 + i * 100, static_cast<char>('a' + i % 26)));
        }
        return path;
    }

    std::optional<DirItem> folderInPing(const QString& path) {
        const auto folders = helper_->ask("ping").folders();
        if (folders) {
            for (const DirItem& item : *folders) {
                if (item.path == path) {
                    return item;
                }
            }
        }
        return std::nullopt;
    }

    // Every status the folder shows until it settles.
    QStringList walkUntilSettled(const QString& path) {
        QStringList statuses;
        WaitFor(
            [&] {
                const auto item = folderInPing(path);
                if (item && (statuses.isEmpty() || statuses.last() != item->status)) {
                    statuses << item->status;
                }
                return item && item->progress() == 1.0;
            },
            60s);
        return statuses;
    }

    QTemporaryDir folders_;
};

TEST_F(DemoHelperService, LogsInWithAnyNonEmptyEmailAndPassword) {
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");
    EXPECT_EQ(helper_->ask("getGroups").kind(), u"auth request");
    EXPECT_EQ(helper_->ask("auth", "", "secret").kind(), u"auth request");
    EXPECT_EQ(helper_->ask("auth", "   ", "secret").kind(), u"auth request");
    EXPECT_EQ(helper_->ask("auth", "ann@example.org", "").kind(), u"auth request");
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");

    EXPECT_EQ(helper_->ask("auth", "ann@example.org", "secret").kind(), u"ping");
    EXPECT_EQ(helper_->ask("ping").kind(), u"ping");
    EXPECT_EQ(helper_->ask("no such type").kind(), u"ping");
}

TEST_F(DemoHelperService, ListsItsGroupsWithExactIdentifiers) {
    helper_->logIn();
    const auto groups = helper_->ask("getGroups").groups();
    ASSERT_TRUE(groups);
    ASSERT_EQ(groups->size(), 3u);
    EXPECT_EQ((*groups)[0].name, u"Family");
    EXPECT_EQ((*groups)[1].name, u"Work");
    EXPECT_EQ((*groups)[1].groupID, kWorkGroupID);
    EXPECT_EQ((*groups)[2].name, u"Photos");
    for (const GroupItem& group : *groups) {
        EXPECT_TRUE(group.walkPaths.isEmpty());
    }
}

TEST_F(DemoHelperService, WalksAWatchedFolderThroughSixStagesToUpToDate) {
    helper_->logIn();
    const QString path = makeFolder("Projects", 40);
    const auto groups = helper_->ask("addWatchDir", "Work", path).groups();
    ASSERT_TRUE(groups);
    EXPECT_EQ((*groups)[1].walkPaths, QStringList{path});

    const QStringList statuses = walkUntilSettled(path);
    ASSERT_FALSE(statuses.isEmpty());
    EXPECT_EQ(statuses.last(), u"Up to date");
    QList<int> stages;
    for (const QString& status : statuses) {
        const auto match = QRegularExpression("^(\\d) of 6 ").match(status);
        if (match.hasMatch() && (stages.isEmpty() || stages.last() != match.captured(1).toInt())) {
            stages << match.captured(1).toInt();
        }
    }
    EXPECT_EQ(stages, (QList<int>{1, 2, 3, 4, 5, 6})) << qPrintable(statuses.join(" | "));
    EXPECT_TRUE(statuses.filter("3 of 6 Reading files").join(' ').contains("of 40)"))
        << qPrintable(statuses.join(" | "));

    const auto item = folderInPing(path);
    ASSERT_TRUE(item);
    EXPECT_EQ(item->name, u"Projects");
    EXPECT_EQ(item->groupID, kWorkGroupID);
    EXPECT_TRUE(item->enabled);
    EXPECT_FALSE(item->error);
}

TEST_F(DemoHelperService, ReportsAMissingFolderAsAnError) {
    helper_->logIn();
    const QString path = folders_.path() + "/gone";
    ASSERT_TRUE(helper_->ask("addWatchDir", "Family", path).groups());
    ASSERT_TRUE(WaitFor(
        [&] {
            const auto item = folderInPing(path);
            return item && item->error;
        },
        10s));
    const auto item = folderInPing(path);
    EXPECT_EQ(item->status, u"Server status check ...");
    EXPECT_TRUE(item->error->contains(path));
}

TEST_F(DemoHelperService, NamesAPhotoLibraryAfterTheLibrary) {
    helper_->logIn();
    const QString path = makeFolder("Holiday.photoslibrary/originals", 3);
    ASSERT_TRUE(helper_->ask("addWatchDir", "Photos", path).groups());
    EXPECT_EQ(folderInPing(path)->name, u"Holiday");
}

TEST_F(DemoHelperService, IgnoresAWatchItCannotTake) {
    helper_->logIn();
    const QString path = makeFolder("Once", 1);
    ASSERT_TRUE(helper_->ask("addWatchDir", "Work", path + "/").groups());
    const QList<QStringList> refused = {
        {"Nobody's group", folders_.path()},
        {"work", folders_.path()},  // names are matched exactly
        {"Work", "relative/path"},
        {"Family", path},  // watched already, for Work
    };
    for (const QStringList& watch : refused) {
        SCOPED_TRACE(qPrintable(watch.join(", ")));
        const auto groups = helper_->ask("addWatchDir", watch[0], watch[1]).groups();
        ASSERT_TRUE(groups);
        EXPECT_TRUE((*groups)[0].walkPaths.isEmpty());
        EXPECT_EQ((*groups)[1].walkPaths, QStringList{path});
    }
}

TEST_F(DemoHelperService, StopsWatchingAndLeavesTheFilesAlone) {
    helper_->logIn();
    const QString path = makeFolder("Keep", 5);
    ASSERT_TRUE(helper_->ask("addWatchDir", "Work", path).groups());
    // Stopped in the middle of its walk.
    const auto groups = helper_->ask("stopWatching", path).groups();
    ASSERT_TRUE(groups);
    EXPECT_TRUE((*groups)[1].walkPaths.isEmpty());
    EXPECT_EQ(helper_->ask("ping").kind(), u"ping");
    EXPECT_EQ(QDir(path).entryList(QDir::Files).size(), 3);
    EXPECT_EQ(helper_->ask("stopWatching", path).kind(), u"groups");
}

TEST_F(DemoHelperService, KeepsAccountAndFoldersAcrossARestartAndWalksAgain) {
    helper_->logIn();
    const QString path = makeFolder("Kept", 4);
    ASSERT_TRUE(helper_->ask("addWatchDir", "Family", path).groups());
    ASSERT_EQ(walkUntilSettled(path).last(), u"Up to date");
    EXPECT_TRUE(QFile::exists(stateFile()));

    restart();
    const QStringList statuses = walkUntilSettled(path);
    ASSERT_GE(statuses.size(), 2) << "the restarted helper did not scan again";
    EXPECT_TRUE(statuses.first().contains(" of 6 "));
    EXPECT_EQ(statuses.last(), u"Up to date");
    // Only the state file itself is left behind, no temporary ones.
    EXPECT_EQ(QDir(stateHome_.path() + "/brisvane-demo").entryList(QDir::Files),
              QStringList{"state.json"});
}

TEST_F(DemoHelperService, StartsAfreshFromAStateFileItCannotRead) {
    helper_->logIn();
    ASSERT_TRUE(helper_->terminate());
    QFile file(stateFile());
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(R"({"LoggedIn":true,"UserName":"ann","Folders":[{"Path":7}]})");
    file.close();

    helper_ = std::make_unique<HelperSession>(stateHome_.path());
    startAndPair();
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");
    EXPECT_TRUE(helper_->errorOutput().contains("state.json"));
}

TEST_F(DemoHelperService, LogsOutAndEndsAfterAnswering) {
    helper_->logIn();
    EXPECT_EQ(helper_->ask("logoutAndExit").kind(), u"ping");
    ASSERT_TRUE(helper_->waitForExit(5s));
    EXPECT_EQ(helper_->process().exitCode(), 0);

    helper_ = std::make_unique<HelperSession>(stateHome_.path());
    startAndPair();
    EXPECT_EQ(helper_->ask("ping").kind(), u"auth request");
}

TEST_F(DemoHelperService, OpensFoldersAndGroupPagesWithTheOpener) {
    const QString opened = folders_.path() + "/opened.txt";
    const QString opener = folders_.path() + "/opener.sh";
    QFile script(opener);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QString("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '%1'\n").arg(opened).toUtf8());
    script.close();
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    ASSERT_TRUE(helper_->terminate());
    helper_ = std::make_unique<HelperSession>(stateHome_.path());
    helper_->setEnvironment("BRISVANE_DEMO_OPENER", opener);
    startAndPair();
    helper_->logIn();

    EXPECT_EQ(helper_->ask("openWeb", QString::number(kWorkGroupID)).kind(), u"ping");
    EXPECT_EQ(helper_->ask("openWeb", "not a number").kind(), u"ping");
    EXPECT_EQ(helper_->ask("openDirPath", folders_.path() + "/missing").kind(), u"ping");
    EXPECT_EQ(helper_->ask("openDirPath", opener).kind(), u"ping");  // a file, not a folder
    EXPECT_EQ(helper_->ask("openDirPath", folders_.path()).kind(), u"ping");

    const QStringList expected = {
        QString(BRISVANE_SITE_URL) + "/groups/" + QString::number(kWorkGroupID), folders_.path()};
    const auto openedLines = [&] {
        QFile log(opened);
        return log.open(QIODevice::ReadOnly)
                   ? QString::fromUtf8(log.readAll()).split('\n', Qt::SkipEmptyParts)
                   : QStringList{};
    };
    WaitFor([&] { return openedLines().size() >= expected.size(); }, 10s);
    QThread::msleep(200);  // an opener that should not have run would show up by now
    const QStringList lines = openedLines();
    EXPECT_EQ(QSet<QString>(lines.begin(), lines.end()),
              QSet<QString>(expected.begin(), expected.end()));
    EXPECT_EQ(lines.size(), expected.size());
}

}  // namespace
