// The launch-at-login switch, on the offscreen platform, over a configuration home of its own.

#include "launch_at_login_toggle.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include "support/scoped_environment.h"
#include "toggle_switch.h"

namespace {

class LaunchAtLoginToggle : public ::testing::Test {
protected:
    void SetUp() override {
        environment_.set("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
    }

    testing_support::ScopedEnvironment environment_;
    QTemporaryDir configHome_;
};

TEST_F(LaunchAtLoginToggle, ClickingTheSwitchWritesAndRemovesTheEntry) {
    LaunchAtLogin::Toggle toggle;
    EXPECT_EQ(toggle.control()->text(), "Launch at login");
    toggle.show();
    ASSERT_FALSE(toggle.control()->isChecked());

    QTest::mouseClick(toggle.control(), Qt::LeftButton);
    EXPECT_TRUE(toggle.control()->isChecked());
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    QTest::mouseClick(toggle.control(), Qt::LeftButton);
    EXPECT_FALSE(toggle.control()->isChecked());
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::autostartEntryPath()));
}

TEST_F(LaunchAtLoginToggle, TogglesShareOneObservableAndReadTheEntryWhenShown) {
    LaunchAtLogin::Toggle first;
    LaunchAtLogin::Toggle second;
    EXPECT_EQ(&first.launchAtLogin(), &LaunchAtLogin::observable());
    EXPECT_EQ(&second.launchAtLogin(), &LaunchAtLogin::observable());
    first.show();
    QTest::mouseClick(first.control(), Qt::LeftButton);
    second.show();
    EXPECT_TRUE(second.control()->isChecked());

    // A change made behind the application's back shows on the next showing.
    QFile::remove(LaunchAtLogin::autostartEntryPath());
    first.hide();
    first.show();
    EXPECT_FALSE(first.control()->isChecked());
}

}  // namespace
