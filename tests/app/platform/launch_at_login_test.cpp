#include "app/platform/launch_at_login.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include "desktop_entry.h"
#include "support/scoped_environment.h"

namespace {

// Each case gets its own configuration home and sees the log entries written.
class LaunchAtLoginTest : public ::testing::Test {
protected:
    void SetUp() override {
        environment_.set("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
        LaunchAtLogin::setLogSinkForTesting([this](int priority, const QString& message) {
            EXPECT_EQ(priority, LOG_ERR);
            entries_ << message;
        });
    }
    void TearDown() override { LaunchAtLogin::setLogSinkForTesting({}); }

    static void writeEntry(const QByteArray& text) {
        QDir().mkpath(QFileInfo(LaunchAtLogin::autostartEntryPath()).path());
        QFile file(LaunchAtLogin::autostartEntryPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    static QByteArray readEntry() {
        QFile file(LaunchAtLogin::autostartEntryPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The one log entry a failed switch writes, and the switch reading off afterwards.
    void switchExpectingOneFailure(bool enabled) {
        entries_.clear();
        LaunchAtLogin::setEnabled(enabled);
        ASSERT_EQ(entries_.size(), 1);
        const QString start = QStringLiteral("[main] Failed to %1 launch at login: ")
                                  .arg(enabled ? "enable" : "disable");
        EXPECT_TRUE(entries_[0].startsWith(start) && entries_[0].size() > start.size())
            << entries_[0].toStdString();
        EXPECT_FALSE(LaunchAtLogin::isEnabled());
    }

    testing_support::ScopedEnvironment environment_;
    QTemporaryDir configHome_;
    QStringList entries_;
};

TEST_F(LaunchAtLoginTest, SwitchesOnAndOffThroughTheEntry) {
    EXPECT_FALSE(LaunchAtLogin::isEnabled());
    LaunchAtLogin::setEnabled(true);  // the autostart folder does not exist yet
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    EXPECT_TRUE(
        readEntry().contains("\nExec=" + QCoreApplication::applicationFilePath().toUtf8() + "\n"))
        << readEntry().constData();

    LaunchAtLogin::setEnabled(false);
    EXPECT_FALSE(LaunchAtLogin::isEnabled());
    EXPECT_FALSE(QFile::exists(LaunchAtLogin::autostartEntryPath()));
    LaunchAtLogin::setEnabled(false);  // nothing to remove is no failure
    EXPECT_TRUE(entries_.isEmpty());
}

TEST_F(LaunchAtLoginTest, SwitchingOnWhileOnWritesAFreshEntry) {
    for (const char* extra : {"", "Hidden=true\n"}) {
        writeEntry(QByteArray("[Desktop Entry]\nType=Application\nExec=/usr/bin/elsewhere\n") +
                   extra);
        LaunchAtLogin::setEnabled(true);
        EXPECT_TRUE(LaunchAtLogin::isEnabled()) << extra;
        EXPECT_FALSE(readEntry().contains("elsewhere")) << extra;
    }
    EXPECT_TRUE(entries_.isEmpty());
}

TEST_F(LaunchAtLoginTest, ReadsOnlyAnActiveApplicationEntryAsOn) {
    const QByteArray valid = "[Desktop Entry]\nType=Application\nExec=/bin/true\n";
    const std::pair<QByteArray, bool> cases[] = {
        {valid, true},
        {valid + "Hidden=false\nX-GNOME-Autostart-enabled=true\n", true},
        // Keys of other groups are not the entry's.
        {valid + "[Desktop Action quit]\nHidden=true\nX-GNOME-Autostart-enabled=false\n", true},
        {valid + "Hidden=true\n", false},
        {valid + "X-GNOME-Autostart-enabled=false\n", false},
        {"[Desktop Entry]\nType=Link\nExec=/bin/true\n", false},
        {"[Desktop Entry]\nType=Application\nExec=\n", false},
        {"", false},
    };
    for (const auto& [text, enabled] : cases) {
        writeEntry(text);
        EXPECT_EQ(LaunchAtLogin::isEnabled(), enabled) << text.toStdString();
    }
}

TEST(DesktopEntry, ExecOfAPathWithOtherWhiteSpaceAtItsEndsReadsBackUnchanged) {
    for (const QString& path :
         {QStringLiteral("/opt/brisvane\u00a0"), QStringLiteral("\u2028/opt/brisvane"),
          QStringLiteral("/opt/brisvane\u3000"), QStringLiteral("/opt/bris vane\u0085"),
          QStringLiteral("/opt/brisvane\f"), QStringLiteral("\v/opt/brisvane")}) {
        const QString exec = DesktopEntry::execValue(path);
        const auto keys = DesktopEntry::mainGroup("[Desktop Entry]\nExec=" + exec.toUtf8() + '\n');
        ASSERT_TRUE(keys.has_value());
        EXPECT_EQ(keys->value(QStringLiteral("Exec")), exec) << path.toStdString();
    }
    // Spaces, tabs and carriage returns around keys, values and lines are not part of them.
    const auto keys = DesktopEntry::mainGroup("\t[Desktop Entry] \r\n Type = Application\t\r\n");
    ASSERT_TRUE(keys.has_value());
    EXPECT_EQ(keys->value(QStringLiteral("Type")), QStringLiteral("Application"));
}

TEST_F(LaunchAtLoginTest, FailuresAreLoggedOnceAndTheGetterTellsTheTruth) {
    // A folder where the entry belongs stops root as well.
    ASSERT_TRUE(QDir().mkpath(LaunchAtLogin::autostartEntryPath() + "/inside"));
    switchExpectingOneFailure(true);
    switchExpectingOneFailure(false);
}

}  // namespace
