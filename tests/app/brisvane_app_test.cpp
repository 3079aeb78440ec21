// The application put together: what its start sets going on newer and older systems.

#include "app/brisvane_app.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTimer>

#include "app/platform/launch_at_login.h"
#include "app/views/menu_bar_extra.h"
#include "support/scoped_environment.h"

namespace {

constexpr int oneDayMs = 86'400'000;

class BrisvaneAppTest : public ::testing::Test {
protected:
    // The autostart entry, the update preferences, the helper's state and the
    // single-instance lock all go to a temporary home.
    BrisvaneAppTest() {
        environment_.set("XDG_CONFIG_HOME", folder("config"));
        environment_.set("XDG_STATE_HOME", folder("state"));
        environment_.set("XDG_RUNTIME_DIR", folder("runtime"));
        environment_.set("BRISVANE_DEMO_OPENER", "true");
    }

    QByteArray folder(const char* name) const {
        const QString path = QDir(home_.path()).filePath(QString::fromLatin1(name));
        QDir().mkpath(path);
        return QFile::encodeName(path);
    }

    static QList<QTimer*> dailyTimers(const QObject& app) {
        QList<QTimer*> daily;
        for (QTimer* timer : app.findChildren<QTimer*>()) {
            if (timer->interval() == oneDayMs && !timer->isSingleShot() && timer->isActive()) {
                daily.append(timer);
            }
        }
        return daily;
    }

    QTemporaryDir home_;
    testing_support::ScopedEnvironment environment_;
};

TEST_F(BrisvaneAppTest, NewerSystemsCheckDailyAndStartAtLogin) {
    brisvaneApp app;
    Updater& updater = app.updaterController().updater();
    EXPECT_TRUE(updater.automaticallyChecksForUpdates());
    EXPECT_TRUE(updater.automaticallyDownloadsUpdates());
    EXPECT_EQ(dailyTimers(app).size(), 1);
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    ASSERT_NE(app.menuBarExtra(), nullptr);
    EXPECT_EQ(app.findChild<QSystemTrayIcon*>(), nullptr);
}

TEST_F(BrisvaneAppTest, OlderSystemsNeitherCheckNorStartAtLogin) {
    brisvaneApp app({.model = {.systemVersion = {12, 6, 0}}, .adjustEnvironment = {}});
    EXPECT_FALSE(app.updaterController().updater().canCheckForUpdates());
    EXPECT_TRUE(dailyTimers(app).isEmpty());
    EXPECT_FALSE(LaunchAtLogin::isEnabled());
    EXPECT_EQ(app.menuBarExtra(), nullptr);
    // The hand-made status item instead.
    EXPECT_NE(app.findChild<QSystemTrayIcon*>(), nullptr);
}

}  // namespace
