// The update command and the preference switches, on the offscreen platform.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QTemporaryDir>
#include <QTest>

#include "app/platform/updates/updater.h"
#include "app/platform/updates/updater_test_support.h"
#include "check_for_updates_view.h"
#include "support/wait.h"
#include "updater_settings_view.h"

using namespace updater_testing;

namespace {

class UpdaterViews : public ::testing::Test {
protected:
    void SetUp() override {
        UpdaterConfiguration configuration;
        configuration.feedURL = QUrl(server_.url("/appcast.xml"));
        configuration.installDir = folder_.path();
        configuration.bundleVersion = QStringLiteral("5");
        server_.publish(Appcast({}));
        updater_ = std::make_unique<Updater>(
            configuration, [this] { return std::make_unique<RecordingUserDriver>(steps_); });
    }

    UpdateServer server_;
    QTemporaryDir folder_;
    QStringList steps_;
    std::unique_ptr<Updater> updater_;
};

TEST_F(UpdaterViews, CheckCommandIsEnabledExactlyWhileTheUpdaterCanCheck) {
    CheckForUpdatesView view(*updater_);
    EXPECT_EQ(view.text(), QStringLiteral(u"Check for Updates\u2026"));
    EXPECT_FALSE(view.isEnabled());  // not started yet

    updater_->startUpdater();
    EXPECT_TRUE(view.isEnabled());
    server_.holdFeed(true);
    QTest::mouseClick(&view, Qt::LeftButton);
    EXPECT_EQ(steps_, QStringList({"checking"}));
    EXPECT_FALSE(view.isEnabled());
    // A view made during a session starts from the updater's state.
    EXPECT_FALSE(CheckForUpdatesView(*updater_).isEnabled());
    server_.holdFeed(false);
    ASSERT_TRUE(testing_support::waitUntil([&] { return view.isEnabled(); }));
}

TEST_F(UpdaterViews, SecondSwitchIsGreyedOutWhileTheFirstIsOffAndKeepsItsValue) {
    updater_->setAutomaticallyChecksForUpdates(true);
    updater_->setAutomaticallyDownloadsUpdates(true);
    UpdaterSettingsView view(*updater_);
    auto* checks = view.findChild<QAbstractButton*>(QStringLiteral("automaticallyChecksSwitch"));
    auto* downloads =
        view.findChild<QAbstractButton*>(QStringLiteral("automaticallyDownloadsSwitch"));
    ASSERT_TRUE(checks && downloads);
    EXPECT_TRUE(checks->isChecked() && downloads->isChecked() && downloads->isEnabled());

    checks->click();
    EXPECT_FALSE(updater_->automaticallyChecksForUpdates());
    EXPECT_FALSE(downloads->isEnabled());
    EXPECT_TRUE(downloads->isChecked());
    EXPECT_TRUE(updater_->automaticallyDownloadsUpdates());

    checks->click();
    EXPECT_TRUE(downloads->isEnabled());
    downloads->click();
    EXPECT_FALSE(updater_->automaticallyDownloadsUpdates());
}

}  // namespace
