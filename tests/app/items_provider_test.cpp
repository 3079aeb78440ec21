// The model against the demo helper as its real child: start-up, login, folders
// walking to "Up to date", groups, stopping, logging out, and the difference
// between the newer and the older system's path.

#include <gtest/gtest.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>
#include <map>

#include "app/platform/launch_at_login.h"
#include "model_fixture.h"

using namespace Qt::Literals::StringLiterals;
using testing_support::ModelFixture;
using testing_support::waitUntil;

namespace {

constexpr int kSlowMs = 20000;

QStringList watchedPaths(const ItemsProvider& model) {
    QStringList paths;
    for (const DirItem& item : model.dirItems()) {
        paths << item.path;
    }
    return paths;
}

bool allUpToDate(const ItemsProvider& model, qsizetype count) {
    const QList<DirItem>& items = model.dirItems();
    return items.size() == count && std::all_of(items.begin(), items.end(), [](const DirItem& i) {
               return i.status == u"Up to date";
           });
}

// The helpers this process runs, as the system sees them: each one's pid and arguments.
std::map<pid_t, QStringList> childHelpers() {
    std::map<pid_t, QStringList> helpers;
    const QStringList threads =
        QDir(u"/proc/self/task"_s).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& thread : threads) {
        QFile children(u"/proc/self/task/%1/children"_s.arg(thread));
        if (!children.open(QIODevice::ReadOnly)) {
            continue;
        }
        for (const QByteArray& pid : children.readAll().split(' ')) {
            QFile commandLine(u"/proc/%1/cmdline"_s.arg(QString::fromLatin1(pid.trimmed())));
            if (pid.trimmed().isEmpty() || !commandLine.open(QIODevice::ReadOnly)) {
                continue;
            }
            QStringList words;
            for (const QByteArray& word : commandLine.readAll().split('\0')) {
                words << QString::fromLocal8Bit(word);
            }
            words.removeLast();  // after the last NUL
            // A child between fork and exec still shows this program's command line.
            if (!words.isEmpty() && words.first().contains(u"harlix-darwin-")) {
                helpers[static_cast<pid_t>(pid.trimmed().toInt())] = words.mid(1);
            }
        }
    }
    return helpers;
}

QString folderWithFiles(const QTemporaryDir& root, const char* name) {
    const QString folder = QDir(root.path()).filePath(QString::fromLatin1(name));
    QDir().mkpath(folder);
    for (int index = 0; index < 3; ++index) {
        QFile file(QDir(folder).filePath(u"photo-%1.jpg"_s.arg(index)));
        EXPECT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(QByteArray(4096, static_cast<char>('a' + index)));
    }
    return folder;
}

TEST(ItemsProvider, StartsWithTheDesignedArgumentsAndFieldsOnTheNewerPath) {
    ModelFixture fixture;
    ItemsProvider& model = *fixture.model;
    ASSERT_TRUE(waitUntil([] { return childHelpers().size() == 1; }));
    const QStringList arguments = childHelpers().begin()->second;
    ASSERT_EQ(arguments.size(), 3);
    EXPECT_EQ(arguments[0], u"-pid=%1"_s.arg(::getpid()));
    EXPECT_TRUE(arguments[1].startsWith(u"-token="));
    EXPECT_EQ(arguments[1].size(), 7 + 44);  // the application's X25519 public key in base64
    EXPECT_EQ(arguments[2], u"-port=%1"_s.arg(model.port()));
    EXPECT_GE(model.port(), 8001);
    EXPECT_LT(model.port(), 9000);
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    EXPECT_TRUE(model.isLoggedIn());
    EXPECT_TRUE(model.isLoading());
    EXPECT_EQ(model.menuBarString(), u"arrow.clockwise");
    EXPECT_EQ(model.loginURL().scheme(), u"https");
}

TEST(ItemsProvider, WholeSessionAgainstTheDemoHelper) {
    ModelFixture fixture;
    ItemsProvider& model = *fixture.model;

    // A fresh account: the first pings are answered with "auth request".
    ASSERT_TRUE(waitUntil([&] { return !model.isLoggedIn(); }, kSlowMs));
    model.setUserName(u"ada@example.org"_s);
    QFuture<void> login = model.publishAndWait(u"auth"_s, model.userName(), u"secret"_s);
    ASSERT_TRUE(testing_support::waitFor(login));
    EXPECT_TRUE(model.isLoggedIn());
    ASSERT_TRUE(waitUntil([&] { return !model.isLoading(); }));
    EXPECT_EQ(model.menuBarString(), u"internaldrive");

    model.publish(u"getGroups"_s, QString(), QString());
    ASSERT_TRUE(waitUntil([&] { return model.groups().size() == 3; }));

    QTemporaryDir photos;
    const QString family = folderWithFiles(photos, "family");
    const QString work = folderWithFiles(photos, "work");
    QStringList menuBarSymbols;
    QObject::connect(&model, &ItemsProvider::menuBarStringChanged,
                     [&] { menuBarSymbols << model.menuBarString(); });
    ASSERT_TRUE(
        testing_support::waitFor(model.publishAndWait(u"addWatchDir"_s, u"Family"_s, family)));
    model.publish(u"addWatchDir"_s, u"Work"_s, work);

    ASSERT_TRUE(waitUntil([&] { return allUpToDate(model, 2); }, kSlowMs));
    EXPECT_EQ(watchedPaths(model), (QStringList{family, work}));
    ASSERT_TRUE(waitUntil([&] { return !model.isLoading(); }));
    EXPECT_EQ(menuBarSymbols, (QStringList{u"arrow.clockwise"_s, u"internaldrive"_s}));
    ASSERT_TRUE(testing_support::waitFor(model.publishAndWait(u"getGroups"_s, {}, {})));
    EXPECT_EQ(model.groups().at(0).name, u"Family");
    EXPECT_EQ(model.groups().at(0).walkPaths, QStringList{family});

    model.deleteItem(family);
    model.publish(u"stopWatching"_s, family, QString());
    EXPECT_EQ(watchedPaths(model), QStringList{work});
    QTest::qWait(800);  // past the second removal, with pings answered meanwhile
    EXPECT_EQ(watchedPaths(model), QStringList{work});

    // The helper logs out and ends; on this path it is started again and asks
    // for a login once more.
    const pid_t before = childHelpers().begin()->first;
    model.publish(u"logoutAndExit"_s, QString(), QString());
    ASSERT_TRUE(waitUntil(
        [&] {
            const auto helpers = childHelpers();
            return helpers.size() == 1 && helpers.begin()->first != before;
        },
        kSlowMs));
    ASSERT_TRUE(waitUntil([&] { return !model.isLoggedIn(); }, kSlowMs));
}

TEST(ItemsProvider, OlderSystemsRunOneHelperWithoutPidAndQuitAfterTheirLifetime) {
    constexpr auto lifetime = std::chrono::milliseconds(3000);
    QElapsedTimer sinceStart;
    sinceStart.start();
    ModelFixture fixture({}, {.systemVersion = {12, 6, 1}, .legacyLifetime = lifetime});
    ItemsProvider& model = *fixture.model;
    EXPECT_FALSE(model.isMacOS13());
    ASSERT_TRUE(waitUntil([] { return childHelpers().size() == 1; }));
    EXPECT_FALSE(childHelpers().begin()->second.join(u' ').contains(u"-pid="));
    EXPECT_FALSE(LaunchAtLogin::isEnabled());

    // While the application runs, the helper is told to end; nothing restarts it.
    pid_t first = 0;
    QTimer::singleShot(0, [&] {
        waitUntil([&] { return !model.isLoggedIn(); }, kSlowMs);
        first = childHelpers().begin()->first;
        model.publish(u"logoutAndExit"_s, QString(), QString());
    });
    QTimer::singleShot(kSlowMs, [] { QCoreApplication::exit(1); });
    EXPECT_EQ(QCoreApplication::exec(), 0);
    EXPECT_GE(sinceStart.elapsed(), lifetime.count());

    EXPECT_NE(first, 0);
    EXPECT_TRUE(childHelpers().empty());  // the one helper ended and none took its place
}

}  // namespace
