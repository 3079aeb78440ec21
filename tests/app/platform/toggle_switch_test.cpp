#include "app/platform/toggle_switch.h"

#include <gtest/gtest.h>

#include <QAccessible>
#include <QDir>
#include <QFile>
#include <QImage>
#include <QLabel>
#include <QTemporaryDir>
#include <QTest>
#include <memory>

#include "app/platform/launch_at_login.h"
#include "support/scoped_environment.h"

namespace {

class LaunchAtLoginToggleTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(configHome_.isValid());
        environment_.set("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
        LaunchAtLogin::setLogSinkForTesting([this](int, const QString&) { ++logEntries_; });
    }
    void TearDown() override { LaunchAtLogin::setLogSinkForTesting({}); }

    testing_support::ScopedEnvironment environment_;
    QTemporaryDir configHome_;
    int logEntries_ = 0;
};

TEST_F(LaunchAtLoginToggleTest, ClickingTheSwitchWritesAndRemovesTheEntry) {
    LaunchAtLogin::Toggle toggle;
    toggle.show();
    ToggleSwitch* control = toggle.control();
    ASSERT_FALSE(control->isChecked());

    QTest::mouseClick(control, Qt::LeftButton);
    EXPECT_TRUE(control->isChecked());
    EXPECT_TRUE(LaunchAtLogin::isEnabled());

    QTest::mouseClick(control, Qt::LeftButton);
    EXPECT_FALSE(control->isChecked());
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::autostartEntryPath()));
}

TEST_F(LaunchAtLoginToggleTest, LabelsTheSwitch) {
    EXPECT_EQ(LaunchAtLogin::Toggle().control()->text(), "Launch at login");
    EXPECT_EQ(LaunchAtLogin::Toggle("Start with the session").control()->text(),
              "Start with the session");

    auto* label = new QLabel("Open at login");
    LaunchAtLogin::Toggle toggle(label, nullptr);
    EXPECT_EQ(label->parentWidget(), &toggle);
    EXPECT_EQ(label->buddy(), toggle.control());
    EXPECT_TRUE(toggle.control()->text().isEmpty());
    EXPECT_EQ(toggle.control()->accessibleName(), "Open at login");
}

TEST_F(LaunchAtLoginToggleTest, TogglesShareOneObservableAndReadTheEntryWhenShown) {
    LaunchAtLogin::Toggle first;
    LaunchAtLogin::Toggle second;
    EXPECT_EQ(&first.launchAtLogin(), &LaunchAtLogin::observable());
    EXPECT_EQ(&second.launchAtLogin(), &LaunchAtLogin::observable());
    first.show();
    second.show();

    QTest::mouseClick(first.control(), Qt::LeftButton);
    second.hide();
    second.show();
    EXPECT_TRUE(second.control()->isChecked());

    // A change made behind the application's back shows on the next showing.
    QFile::remove(LaunchAtLogin::autostartEntryPath());
    first.hide();
    first.show();
    EXPECT_FALSE(first.control()->isChecked());
}

TEST_F(LaunchAtLoginToggleTest, ShowsTheTruthAfterAFailedSwitch) {
    QFile blocker(configHome_.filePath("autostart"));  // a file where the folder belongs
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    LaunchAtLogin::Toggle toggle;
    toggle.show();

    QTest::mouseClick(toggle.control(), Qt::LeftButton);
    EXPECT_FALSE(toggle.control()->isChecked());
    EXPECT_EQ(logEntries_, 1);
}

TEST(ToggleSwitchTest, SwitchesFromTheKeyboardAndFromItsText) {
    ToggleSwitch control("Automatically check for updates");
    control.resize(control.sizeHint());
    control.show();
    EXPECT_EQ(control.focusPolicy() & Qt::TabFocus, Qt::TabFocus);

    QTest::keyClick(&control, Qt::Key_Space);
    EXPECT_TRUE(control.isChecked());
    QTest::keyClick(&control, Qt::Key_Space);
    EXPECT_FALSE(control.isChecked());

    QTest::mouseClick(&control, Qt::LeftButton, {}, QPoint(5, control.height() / 2));
    EXPECT_TRUE(control.isChecked());
}

TEST(ToggleSwitchTest, IsACheckBoxToAssistiveTechnology) {
    ToggleSwitch control("Automatically download updates");
    control.setChecked(true);
    QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(&control);
    ASSERT_NE(accessible, nullptr);
    EXPECT_EQ(accessible->role(), QAccessible::CheckBox);
    EXPECT_EQ(accessible->text(QAccessible::Name), "Automatically download updates");
    EXPECT_TRUE(accessible->state().checked);
}

// The track of a switched-on control takes the palette's highlight, whatever it is.
TEST(ToggleSwitchTest, DrawsInThePalettesColours) {
    for (const QColor& highlight : {QColor(200, 30, 30), QColor(30, 160, 60)}) {
        ToggleSwitch control;
        QPalette palette = control.palette();
        palette.setColor(QPalette::Highlight, highlight);
        palette.setColor(QPalette::Window, Qt::black);
        control.setPalette(palette);
        control.setChecked(true);
        control.resize(control.sizeHint());

        const QImage image = control.grab().toImage();
        bool found = false;
        for (int y = 0; y < image.height() && !found; ++y) {
            for (int x = 0; x < image.width() && !found; ++x) {
                found = image.pixelColor(x, y) == highlight;
            }
        }
        EXPECT_TRUE(found) << highlight.name().toStdString();
    }
}

}  // namespace
