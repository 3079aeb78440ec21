#include "app/platform/launch_at_login.h"

#include <gtest/gtest.h>
#include <syslog.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <utility>
#include <vector>

#include "app/platform/desktop_entry.h"
#include "support/scoped_environment.h"

namespace {

// Each case gets its own configuration home and sees the log entries written.
class LaunchAtLoginTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(configHome_.isValid());
        environment_.set("XDG_CONFIG_HOME", QFile::encodeName(configHome_.path()));
        LaunchAtLogin::setLogSinkForTesting([this](int priority, const QString& message) {
            entries_.emplace_back(priority, message);
        });
    }
    void TearDown() override { LaunchAtLogin::setLogSinkForTesting({}); }

    QString autostartFolder() const { return configHome_.filePath(QStringLiteral("autostart")); }

    void writeEntry(const QByteArray& text) const {
        ASSERT_TRUE(QDir().mkpath(autostartFolder()));
        QFile file(LaunchAtLogin::autostartEntryPath());
        ASSERT_TRUE(file.open(QIODevice::WriteOnly));
        file.write(text);
    }

    static QByteArray readEntry() {
        QFile file(LaunchAtLogin::autostartEntryPath());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    void switchExpectingOneFailure(bool enabled) {
        entries_.clear();
        LaunchAtLogin::setEnabled(enabled);
        ASSERT_EQ(entries_.size(), 1u);
        EXPECT_EQ(entries_[0].first, LOG_ERR);
        const QString start = QStringLiteral("[main] Failed to %1 launch at login: ")
                                  .arg(enabled ? "enable" : "disable");
        const QString& message = entries_[0].second;
        EXPECT_TRUE(message.startsWith(start) && message.size() > start.size())
            << message.toStdString();
        EXPECT_FALSE(LaunchAtLogin::isEnabled());
    }

    testing_support::ScopedEnvironment environment_;
    QTemporaryDir configHome_;
    std::vector<std::pair<int, QString>> entries_;
};

TEST_F(LaunchAtLoginTest, EntryLivesUnderTheConfigurationHome) {
    EXPECT_EQ(LaunchAtLogin::autostartEntryPath(),
              configHome_.path() + "/autostart/app.brisvane.Brisvane.desktop");

    const QString home = QFile::decodeName(qgetenv("HOME"));
    for (const char* unusable : {"", "relative/config"}) {
        environment_.set("XDG_CONFIG_HOME", unusable);
        EXPECT_EQ(LaunchAtLogin::autostartEntryPath(),
                  home + "/.config/autostart/app.brisvane.Brisvane.desktop")
            << unusable;
    }
}

TEST_F(LaunchAtLoginTest, SwitchesOnAndOffThroughTheEntry) {
    EXPECT_FALSE(LaunchAtLogin::isEnabled());

    LaunchAtLogin::setEnabled(true);  // the autostart folder does not exist yet
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    const QByteArray entry = readEntry();
    EXPECT_TRUE(entry.startsWith("[Desktop Entry]\n"));
    EXPECT_TRUE(entry.contains("\nExec=" + QCoreApplication::applicationFilePath().toUtf8() + "\n"))
        << entry.constData();
    EXPECT_TRUE(entry.contains("\nName=brisvane\n"));
    EXPECT_TRUE(entry.contains("\nX-GNOME-Autostart-enabled=true\n"));
    // Nothing but the entry is left in the folder.
    EXPECT_EQ(QDir(autostartFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"app.brisvane.Brisvane.desktop"});

    LaunchAtLogin::setEnabled(false);
    EXPECT_FALSE(LaunchAtLogin::isEnabled());
    EXPECT_FALSE(QFileInfo::exists(LaunchAtLogin::autostartEntryPath()));

    LaunchAtLogin::setEnabled(false);  // nothing to remove is no failure
    EXPECT_TRUE(entries_.empty());
}

TEST_F(LaunchAtLoginTest, SwitchingOnWhileOnWritesAFreshEntry) {
    writeEntry("[Desktop Entry]\nType=Application\nExec=/usr/bin/elsewhere\n");
    ASSERT_TRUE(LaunchAtLogin::isEnabled());

    LaunchAtLogin::setEnabled(true);
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
    EXPECT_FALSE(readEntry().contains("elsewhere"));
    EXPECT_TRUE(readEntry().contains(QCoreApplication::applicationFilePath().toUtf8()));
    EXPECT_TRUE(entries_.empty());

    // An entry switched off by the desktop is replaced by an active one too.
    writeEntry("[Desktop Entry]\nType=Application\nExec=/bin/true\nHidden=true\n");
    LaunchAtLogin::setEnabled(true);
    EXPECT_TRUE(LaunchAtLogin::isEnabled());
}

TEST_F(LaunchAtLoginTest, ReadsOnlyAnActiveApplicationEntryAsOn) {
    const QByteArray valid = "[Desktop Entry]\nType=Application\nExec=/bin/true\n";
    // clang-format off
    const std::vector<std::pair<QByteArray, bool>> cases = {
        {valid, true},
        {"# written by hand\n\n[Desktop Entry]\r\nType = Application\r\nExec= /bin/true \r\n", true},
        {valid + "Hidden=false\nX-GNOME-Autostart-enabled=true\n", true},
        {valid + "[Desktop Action quit]\nHidden=true\nX-GNOME-Autostart-enabled=false\n", true},
        {valid + "Name[de]=Anmeldung\n", true},
        {valid + "Hidden=true\n", false},
        {valid + "Hidden=1\n", false},
        {valid + "X-GNOME-Autostart-enabled=false\n", false},
        {valid + "X-GNOME-Autostart-enabled=0\n", false},
        {valid + "Hidden=false\nHidden=true\n", false},          // the last of repeated keys counts
        {"[Desktop Entry]\nType=Link\nExec=/bin/true\n", false},
        {"[Desktop Entry]\nExec=/bin/true\n", false},
        {"[Desktop Entry]\nType=Application\n", false},
        {"[Desktop Entry]\nType=Application\nExec=\n", false},
        {"Type=Application\nExec=/bin/true\n", false},           // no group
        {"[Other]\nA=b\n" + valid, false},                       // main group not first
        {valid + valid, false},                                  // main group twice
        {valid + "just some words\n", false},
        {valid + "Bad Key=1\n", false},
        {valid + "Name[de=Anmeldung\n", false},
        {valid + "[Unclosed\n", false},
        {valid + "Comment=\xff\xfe\n", false},                   // not UTF-8
        {"", false},
        {QByteArray("\x7f" "ELF\x02\x01\x01\0\0\0", 10), false},
    };
    // clang-format on
    for (const auto& [text, enabled] : cases) {
        writeEntry(text);
        EXPECT_EQ(LaunchAtLogin::isEnabled(), enabled) << text.toStdString();
    }
}

TEST_F(LaunchAtLoginTest, ExecValueSurvivesTheLaunchersQuotingRules) {
    // clang-format off
    const std::vector<std::pair<QString, QString>> cases = {
        {"/usr/bin/brisvane", "/usr/bin/brisvane"},
        {"/opt/My Apps/brisvane", "\"/opt/My Apps/brisvane\""},
        {"/opt/it's/brisvane", "\"/opt/it's/brisvane\""},
        {"/opt/a\"b/brisvane", "\"/opt/a\\\\\"b/brisvane\""},
        {"/opt/a\\b/brisvane", "\"/opt/a\\\\\\\\b/brisvane\""},
        {"/opt/$HOME/`x`", "\"/opt/\\\\$HOME/\\\\`x\\\\`\""},
        {"/opt/100%/brisvane", "/opt/100%%/brisvane"},
        {"/opt/new\nline", "\"/opt/new\\nline\""},
    };
    // clang-format on
    for (const auto& [path, exec] : cases) {
        EXPECT_EQ(DesktopEntry::execValue(path), exec) << path.toStdString();
    }
}

TEST_F(LaunchAtLoginTest, FailingToEnableLogsOnceAndReadsOff) {
    // Obstacles that stop root as well: a file where the folder belongs, then a
    // folder where the entry belongs.
    QFile blocker(autostartFolder());
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    switchExpectingOneFailure(true);

    ASSERT_TRUE(blocker.remove());
    ASSERT_TRUE(QDir().mkpath(LaunchAtLogin::autostartEntryPath() + "/inside"));
    switchExpectingOneFailure(true);
    // No half-written entry is left beside the obstacle.
    EXPECT_EQ(QDir(autostartFolder()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
              QStringList{"app.brisvane.Brisvane.desktop"});
}

TEST_F(LaunchAtLoginTest, FailingToDisableLogsDisable) {
    ASSERT_TRUE(QDir().mkpath(LaunchAtLogin::autostartEntryPath() + "/inside"));
    switchExpectingOneFailure(false);

    // A file where the folder belongs means there is no entry: nothing to fail.
    entries_.clear();
    ASSERT_TRUE(QDir(autostartFolder()).removeRecursively());
    QFile blocker(autostartFolder());
    ASSERT_TRUE(blocker.open(QIODevice::WriteOnly));
    LaunchAtLogin::setEnabled(false);
    EXPECT_TRUE(entries_.empty());
}

}  // namespace
