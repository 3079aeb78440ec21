// The simulated service: the account, its groups, watched folders, restarts, and the opener.

#include <QDir>
#include <QFile>

#include "brisvane_version.h"
#include "helper_session.h"

namespace {

constexpr std::int64_t kWorkGroupID = 9007199254740993;  // 2^53 + 1
constexpr int kFileCount = 20;

class DemoHelperService : public DemoHelperSession {
protected:
    // A fresh helper, and a folder of small files for it to watch.
    void SetUp() override {
        for (int i = 0; i < kFileCount; ++i) {
            QFile file(files.filePath(QString("file%1").arg(i)));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(QByteArray(4096, 'a')) > 0);
        }
        ASSERT_TRUE(start(arguments()));
    }

    // The folder's status in the next ping; empty when it is not watched.
    QString statusOf(const QString& path) {
        for (const DirItem& item : ask<std::vector<DirItem>>("ping")) {
            if (item.path == path) {
                return item.status;
            }
        }
        return {};
    }

    // The stages the folder shows in the order seen, then its last status: "123456 Up to date".
    QString walk(const QString& path) {
        QString stages;
        QString status;
        testing_support::waitUntil(
            [&] {
                status = statusOf(path);
                if (status.contains(" of 6 ") && !stages.endsWith(status[0])) {
                    stages += status[0];
                }
                return status == "Up to date" || HasFailure();
            },
            60000);
        return stages + ' ' + status;
    }
};

TEST_F(DemoHelperService, LogsInWithAnEmailAndPasswordThenListsExactGroupIDs) {
    const QList<QStringList> conversation = {{"ping", "", "", "auth request"},
                                             {"getGroups", "", "", "auth request"},
                                             {"auth", "", "secret", "auth request"},
                                             {"auth", "ann@example.org", "", "auth request"},
                                             {"ping", "", "", "auth request"},
                                             {"auth", "ann@example.org", "secret", "ping"},
                                             {"ping", "", "", "ping"}};
    for (const QStringList& step : conversation) {
        SCOPED_TRACE(qPrintable(step.join(", ")));
        EXPECT_EQ(ask(step[0], step[1], step[2]).type, step[3]);
    }
    const auto groups = ask<std::vector<GroupItem>>("getGroups");
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[1].groupID, kWorkGroupID);
}

TEST_F(DemoHelperService, WalksAWatchedFolderThroughItsStagesToUpToDate) {
    logIn();
    const auto groups = ask<std::vector<GroupItem>>("addWatchDir", "Work", files.path());
    ASSERT_EQ(groups.size(), 3u);
    EXPECT_EQ(groups[1].walkPaths, QStringList{files.path()});
    EXPECT_EQ(walk(files.path()), "123456 Up to date");
}

TEST_F(DemoHelperService, KeepsAccountAndFoldersAcrossRestartsUntilLogout) {
    logIn();
    ask<std::vector<GroupItem>>("addWatchDir", "Family", files.path());
    restart();
    ASSERT_FALSE(statusOf(files.path()).isEmpty()) << "the folder or the login was lost";

    // Stopped while the restarted helper walks it again.
    ask<std::vector<GroupItem>>("stopWatching", files.path());
    EXPECT_EQ(QDir(files.path()).entryList(QDir::Files).size(), kFileCount);
    restart();
    EXPECT_EQ(ask("ping").type, "ping") << "still logged in, no folders";

    EXPECT_EQ(ask("logoutAndExit").type, "ping");
    EXPECT_EQ(waitForExit(), 0);
    restart();
    EXPECT_EQ(ask("ping").type, "auth request");
}

TEST_F(DemoHelperService, OpensFolderPathsAndGroupPagesWithTheOpener) {
    const QString log = files.filePath("opened.txt");
    opener = files.filePath("opener.sh");
    QFile script(opener);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    script.write(QString("#!/bin/sh\nprintf '%s\\n' \"$1\" >> '%1'\n").arg(log).toUtf8());
    script.close();
    script.setPermissions(script.permissions() | QFile::ExeOwner);
    restart();
    logIn();

    // Only a whole group number and an existing folder are opened.
    for (const auto& [type, target] : std::initializer_list<std::pair<QString, QString>>{
             {"openWeb", "not a number"},
             {"openDirPath", files.filePath("missing")},
             {"openDirPath", opener},
             {"openWeb", QString::number(kWorkGroupID)},
             {"openDirPath", files.path()}}) {
        EXPECT_EQ(ask(type, target).type, "ping");
    }
    const auto opened = [&] {
        QFile file(log);
        auto lines =
            QString(file.open(QIODevice::ReadOnly) ? file.readAll() : "").trimmed().split('\n');
        lines.sort();  // the openers run at once, in no set order
        return lines;
    };
    testing_support::waitUntil([&] { return opened().size() >= 2; });
    QThread::msleep(200);  // an opener that should not have run would show up by now
    const QString page = QString("%1/groups/%2").arg(BRISVANE_SITE_URL).arg(kWorkGroupID);
    EXPECT_EQ(opened(), (QStringList{files.path(), page}));
}

}  // namespace
