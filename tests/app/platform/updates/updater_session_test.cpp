// Whole update sessions against a local server: what is offered, installed or refused, and
// the daily checks.

#include <gtest/gtest.h>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/platform/updates/updater.h"
#include "app/platform/updates/updater_schedule.h"
#include "support/wait.h"
#include "update_installer.h"
#include "updater_test_support.h"

using namespace updater_testing;
using testing_support::waitUntil;

namespace {

class UpdaterSession : public ::testing::Test {
protected:
    void SetUp() override {
        MakeInstallation(install_, "old");
        UpdaterConfiguration configuration;
        configuration.feedURL = QUrl(server_.url("/appcast.xml"));
        configuration.publicEdKey = key_.publicKey();
        configuration.installDir = install_;
        configuration.bundleVersion = QStringLiteral("5");
        configuration.shortVersion = QStringLiteral("1.5");
        updater_ = std::make_unique<Updater>(configuration, [this] {
            return std::make_unique<RecordingUserDriver>(steps_, UpdateChoice::install);
        });
        updater_->setAutomaticallyChecksForUpdates(true);
        updater_->setAutomaticallyDownloadsUpdates(false);
        updater_->startUpdater();
    }

    // Offers the archive as version 6 ("1.6"), its length changed by lengthChange and signed
    // over signedBytes (the archive itself when empty).
    void publish(const QByteArray& archive, qint64 lengthChange = 0,
                 const QByteArray& signedBytes = {}) {
        server_.publish(Appcast({{"6", server_.url("/update.tar.gz"), archive.size() + lengthChange,
                                  key_.sign(signedBytes.isEmpty() ? archive : signedBytes)}}),
                        archive);
    }

    bool sessionEnds() {
        return waitUntil([this] { return !updater_->sessionInProgress(); });
    }

    QString installed() const { return ReadFile(install_ + QStringLiteral("/bin/brisvane")); }

    UpdateServer server_;
    QTemporaryDir root_;
    const QString install_ = root_.filePath(QStringLiteral("install"));
    Ed25519TestKey key_;
    QStringList steps_;
    std::unique_ptr<Updater> updater_;
};

TEST_F(UpdaterSession, OlderOrEqualVersionsAreNotOffered) {
    for (const char* version : {"5", "5.0", "4", "5b1"}) {
        steps_.clear();
        server_.publish(Appcast({{version, server_.url("/update.tar.gz"), 1, key_.sign("")}}));
        updater_->checkForUpdates();
        ASSERT_TRUE(sessionEnds());
        EXPECT_EQ(steps_, QStringList({"checking", "up to date"})) << version;
    }
}

TEST_F(UpdaterSession, AGoodUpdateIsInstalledAndThePreviousVersionKept) {
    publish(TarGz(InstallationEntries("new")));
    updater_->checkForUpdates();
    ASSERT_TRUE(sessionEnds());
    steps_.removeDuplicates();
    EXPECT_EQ(steps_,
              QStringList({"checking", "found 1.6", "progress", "verifying", "installed 1.6"}));
    EXPECT_EQ(installed(), "new");
    EXPECT_EQ(ReadFile(UpdatePreviousFolder(install_) + QStringLiteral("/bin/brisvane")), "old");
}

TEST_F(UpdaterSession, BadDownloadsAreRefusedBeforeAnythingIsUnpacked) {
    const QByteArray archive = TarGz(InstallationEntries("new"));
    // Unpacking starts by clearing what an earlier crash left in the staging folder.
    MakeInstallation(UpdateStagingFolder(install_), "leftover");
    const std::tuple<qint64, QByteArray, UpdaterError> cases[] = {
        {0, TarGz(InstallationEntries("other")), UpdaterError::signatureInvalid},
        {1, {}, UpdaterError::lengthMismatch},
        {-1, {}, UpdaterError::lengthMismatch},
    };
    for (const auto& [lengthChange, signedBytes, expected] : cases) {
        SCOPED_TRACE(lengthChange);
        steps_.clear();
        publish(archive, lengthChange, signedBytes);
        updater_->checkForUpdates();
        ASSERT_TRUE(sessionEnds());
        EXPECT_EQ(steps_.last(),
                  "error " + QString::fromStdString(make_error_code(expected).message()));
        EXPECT_EQ(ReadFile(UpdateStagingFolder(install_) + QStringLiteral("/bin/brisvane")),
                  "leftover");
        EXPECT_EQ(installed(), "old");
    }
}

TEST_F(UpdaterSession, ASessionUnderWayBlocksChecksAndTheDailyTick) {
    server_.publish(Appcast({}));
    server_.holdFeed(true);
    QSignalSpy changes(updater_.get(), &Updater::canCheckForUpdatesChanged);
    updater_->checkForUpdatesInBackground();
    EXPECT_FALSE(updater_->canCheckForUpdates());
    ASSERT_TRUE(waitUntil([this] { return server_.feedRequests() == 1; }));

    testing::internal::CaptureStdout();
    dailyUpdateCheck(*updater_);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Check for sparkle update\n");
    updater_->checkForUpdates();
    QTest::qWait(100);
    EXPECT_EQ(server_.feedRequests(), 1);
    EXPECT_TRUE(steps_.isEmpty());

    server_.holdFeed(false);
    ASSERT_TRUE(sessionEnds());
    EXPECT_TRUE(updater_->canCheckForUpdates());
    EXPECT_EQ(changes, QList<QVariantList>({{false}, {true}}));
}

TEST_F(UpdaterSession, ScheduledChecksTurnBothPreferencesOnAndCheckDaily) {
    server_.publish(Appcast({}));
    updater_->setAutomaticallyChecksForUpdates(false);
    QObject owner;
    QTimer* timer = StartScheduledUpdateChecks(*updater_, &owner);
    EXPECT_TRUE(updater_->automaticallyChecksForUpdates() &&
                updater_->automaticallyDownloadsUpdates());
    ASSERT_TRUE(sessionEnds());
    EXPECT_EQ(server_.feedRequests(), 1);  // checked at once

    EXPECT_EQ(timer->parent(), &owner);
    EXPECT_EQ(timer->interval(), 86'400'000);
    EXPECT_TRUE(timer->isActive() && !timer->isSingleShot());
    // Each tick is a daily check.
    timer->setInterval(20);
    ASSERT_TRUE(waitUntil([this] { return server_.feedRequests() >= 2; }));
    timer->stop();
    ASSERT_TRUE(sessionEnds());
}

}  // namespace
