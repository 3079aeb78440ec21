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

// Every switch binds to the one observable, writes or removes the entry when clicked, and reads
// the entry again whenever it is shown, so a change made elsewhere shows on the next showing.
TEST_F(LaunchAtLoginToggle, ClicksWriteTheEntryAndEverySwitchReadsItWhenShown) {
    LaunchAtLogin::Toggle first;
    LaunchAtLogin::Toggle second;
    EXPECT_EQ(first.control()->text(), "Launch at login");
    EXPECT_EQ(&first.launchAtLogin(), &LaunchAtLogin::observable());
    EXPECT_EQ(&second.launchAtLogin(), &LaunchAtLogin::observable());
    first.show();
    ASSERT_FALSE(first.control()->isChecked());

    QTest::mouseClick(first.control(), Qt::LeftButton);
    EXPECT_TRUE(first.control()->isChecked());
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    second.show();
    EXPECT_TRUE(second.control()->isChecked());

    QTest::mouseClick(second.control(), Qt::LeftButton);
    EXPECT_FALSE(second.control()->isChecked());
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::autostartEntryPath()));
    first.hide();
    first.show();
    EXPECT_FALSE(first.control()->isChecked());
}

}  // namespace
