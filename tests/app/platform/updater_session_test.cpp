// Whole update sessions against a local server: what is offered, installed or refused, what
// the user is shown, and the start-up and daily checks.

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include "app/platform/update_installer.h"
#include "app/platform/updater.h"
#include "app/platform/updater_controller.h"
#include "app/platform/updater_schedule.h"
#include "brisvane_version.h"
#include "support/wait.h"
#include "updater_test_support.h"

using namespace updater_testing;
using testing_support::waitUntil;

namespace {

QString Sentence(UpdaterError error) {
    return QString::fromStdString(make_error_code(error).message());
}

class UpdaterSession : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(QDir().mkpath(install_ + QStringLiteral("/bin")));
        WriteFile(install_ + u'/' + QLatin1String(kSelfContainedInstallMarker), {});
        WriteFile(install_ + QStringLiteral("/bin/brisvane"), "old");
        configuration_.feedURL = QUrl(server_.url("/appcast.xml"));
        configuration_.publicEdKey = key_.publicKey();
        configuration_.installDir = install_;
        configuration_.bundleVersion = QStringLiteral("5");
        configuration_.shortVersion = QStringLiteral("1.5");
        configuration_.downloadPage = QUrl(QStringLiteral("https://brisvane.example/download"));
    }

    void makeUpdater(UpdateChoice choice = UpdateChoice::later, bool start = true) {
        auto driver = std::make_unique<RecordingUserDriver>(steps_, choice);
        driver_ = driver.get();
        updater_ = std::make_unique<Updater>(configuration_, std::move(driver));
        updater_->setAutomaticallyChecksForUpdates(true);
        updater_->setAutomaticallyDownloadsUpdates(false);
        if (start) {
            updater_->startUpdater();
        }
    }

    // Serves an archive holding `text` as version 6 ("1.6"), announced with the length
    // changed by lengthChange and signed over signedBytes (the archive itself when empty).
    void publish(const QByteArray& archive, qint64 lengthChange = 0,
                 const QByteArray& signedBytes = {}) {
        server_.setArchive(archive);
        server_.setFeed(
            Appcast({{"4", "1.4", server_.url("/update.tar.gz"), 1, key_.sign("4")},
                     {"6", "1.6", server_.url("/update.tar.gz"), archive.size() + lengthChange,
                      key_.sign(signedBytes.isEmpty() ? archive : signedBytes)}}));
    }

    bool sessionEnds() {
        return waitUntil([this] { return !updater_->sessionInProgress(); });
    }

    UpdateServer server_;
    QTemporaryDir root_;
    const QString install_ = root_.filePath(QStringLiteral("install"));
    Ed25519TestKey key_;
    UpdaterConfiguration configuration_;
    QStringList steps_;
    std::unique_ptr<Updater> updater_;
    RecordingUserDriver* driver_ = nullptr;
};

TEST_F(UpdaterSession, ExplicitCheckOffersTheNewestVersion) {
    publish(TarGz(InstallationEntries("new")));
    makeUpdater(UpdateChoice::later);
    updater_->checkForUpdates();
    EXPECT_TRUE(updater_->sessionInProgress());
    ASSERT_TRUE(sessionEnds());
    EXPECT_EQ(steps_, QStringList({"checking", "found 1.6"}));
    EXPECT_EQ(driver_->lastOffer.shortVersion, u"1.6");
    EXPECT_EQ(driver_->lastOffer.currentShortVersion, u"1.5");
    EXPECT_EQ(driver_->lastOffer.whyNotInstallable, QString());
    EXPECT_EQ(driver_->lastOffer.downloadPage, configuration_.downloadPage);
    EXPECT_EQ(server_.archiveRequests(), 0);
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "old");
}

TEST_F(UpdaterSession, OlderOrEqualVersionsAreNotOffered) {
    makeUpdater();
    for (const char* version : {"5", "5.0", "4", "5b1", "5.0.0rc2"}) {
        steps_.clear();
        server_.setFeed(Appcast({{version, "x", server_.url("/update.tar.gz"), 1, key_.sign("")}}));
        updater_->checkForUpdates();
        ASSERT_TRUE(sessionEnds());
        EXPECT_EQ(steps_, QStringList({"checking", "up to date"})) << version;
    }
}

TEST_F(UpdaterSession, ExplicitInstallShowsEachStepAndKeepsThePreviousVersion) {
    publish(TarGz(InstallationEntries("new")));
    makeUpdater(UpdateChoice::install);
    updater_->checkForUpdates();
    ASSERT_TRUE(sessionEnds());
    EXPECT_EQ(steps_,
              QStringList({"checking", "found 1.6", "progress", "verifying", "installed 1.6"}));
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "new");
    EXPECT_EQ(ReadFile(UpdatePreviousFolder(install_) + QStringLiteral("/bin/brisvane")), "old");
    EXPECT_TRUE(updater_->canCheckForUpdates());
}

TEST_F(UpdaterSession, SilentCheckWithAutomaticDownloadsInstallsWithoutAsking) {
    publish(TarGz(InstallationEntries("new")));
    makeUpdater();
    updater_->setAutomaticallyDownloadsUpdates(true);
    updater_->checkForUpdatesInBackground();
    ASSERT_TRUE(sessionEnds());
    EXPECT_TRUE(steps_.isEmpty()) << steps_.join(u", ").toStdString();
    EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "new");
    EXPECT_EQ(ReadFile(UpdatePreviousFolder(install_) + QStringLiteral("/bin/brisvane")), "old");
}

TEST_F(UpdaterSession, BadDownloadsAreRefusedBeforeAnythingIsUnpacked) {
    const QByteArray archive = TarGz(InstallationEntries("new"));
    struct Case {
        const char* name;
        qint64 lengthChange;
        QByteArray signedBytes;
        UpdaterError expected;
    };
    const Case cases[] = {
        {"signed over other bytes", 0, TarGz(InstallationEntries("other")),
         UpdaterError::signatureInvalid},
        {"announced one byte longer", 1, {}, UpdaterError::lengthMismatch},
        {"announced one byte shorter", -1, {}, UpdaterError::lengthMismatch},
    };
    makeUpdater(UpdateChoice::install);
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        steps_.clear();
        publish(archive, c.lengthChange, c.signedBytes);
        const CreationWatch watch(root_.path());
        updater_->checkForUpdates();
        ASSERT_TRUE(sessionEnds());
        EXPECT_EQ(steps_.last(), QStringLiteral("error ") + Sentence(c.expected));
        EXPECT_EQ(watch.created(), QStringList());
        EXPECT_EQ(ReadFile(install_ + QStringLiteral("/bin/brisvane")), "old");
    }
    EXPECT_EQ(server_.archiveRequests(), 3);
}

TEST_F(UpdaterSession, WhatCannotBeInstalledHereIsOfferedWithTheDownloadPage) {
    publish(TarGz(InstallationEntries("new")));
    const std::pair<std::function<void()>, UpdaterError> cases[] = {
        {[this] { configuration_.publicEdKey.clear(); }, UpdaterError::noPublicKey},
        {[this] { QFile::remove(install_ + u'/' + QLatin1String(kSelfContainedInstallMarker)); },
         UpdaterError::installFolderReadOnly},
    };
    for (const auto& [breakIt, expected] : cases) {
        configuration_.publicEdKey = key_.publicKey();
        WriteFile(install_ + u'/' + QLatin1String(kSelfContainedInstallMarker), {});
        breakIt();
        steps_.clear();
        makeUpdater(UpdateChoice::later);
        updater_->setAutomaticallyDownloadsUpdates(true);
        updater_->checkForUpdatesInBackground();
        ASSERT_TRUE(sessionEnds());
        EXPECT_EQ(steps_, QStringList({"found 1.6"}));
        EXPECT_EQ(driver_->lastOffer.whyNotInstallable, Sentence(expected));
    }
    EXPECT_EQ(server_.archiveRequests(), 0);
}

TEST_F(UpdaterSession, SilentChecksThatFindNothingOrFailShowNothing) {
    makeUpdater(UpdateChoice::later, false);
    updater_->checkForUpdates();
    updater_->checkForUpdatesInBackground();
    EXPECT_FALSE(updater_->sessionInProgress());  // not started
    updater_->startUpdater();
    for (const QByteArray& feed : {Appcast({}), QByteArray("<html>Not found</html>")}) {
        server_.setFeed(feed);
        testing::internal::CaptureStdout();
        updater_->checkForUpdatesInBackground();
        ASSERT_TRUE(sessionEnds());
        const std::string output = testing::internal::GetCapturedStdout();
        EXPECT_TRUE(output.starts_with("update ")) << output;
    }
    updater_->setAutomaticallyChecksForUpdates(false);
    updater_->checkForUpdatesInBackground();
    EXPECT_FALSE(updater_->sessionInProgress());

    configuration_.feedURL = QUrl(QStringLiteral("http://brisvane.example/appcast.xml"));
    makeUpdater();
    updater_->checkForUpdatesInBackground();
    ASSERT_TRUE(sessionEnds());
    EXPECT_TRUE(steps_.isEmpty()) << steps_.join(u", ").toStdString();
    EXPECT_EQ(server_.feedRequests(), 2);
}

TEST_F(UpdaterSession, ASessionUnderWayBlocksChecksAndTheDailyTick) {
    server_.setFeed(Appcast({}));
    server_.holdFeed();
    makeUpdater();
    QSignalSpy changes(updater_.get(), &Updater::canCheckForUpdatesChanged);
    updater_->checkForUpdatesInBackground();
    EXPECT_TRUE(updater_->sessionInProgress());
    EXPECT_FALSE(updater_->canCheckForUpdates());
    ASSERT_TRUE(waitUntil([this] { return server_.feedRequests() == 1; }));

    testing::internal::CaptureStdout();
    dailyUpdateCheck(*updater_);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Check for sparkle update\n");
    updater_->checkForUpdates();
    QTest::qWait(100);
    EXPECT_EQ(server_.feedRequests(), 1);
    EXPECT_TRUE(steps_.isEmpty());

    server_.releaseFeed();
    ASSERT_TRUE(sessionEnds());
    EXPECT_TRUE(updater_->canCheckForUpdates());
    ASSERT_EQ(changes.size(), 2);
    EXPECT_EQ(changes[0][0].toBool(), false);
    EXPECT_EQ(changes[1][0].toBool(), true);

    testing::internal::CaptureStdout();
    dailyUpdateCheck(*updater_);
    ASSERT_TRUE(sessionEnds());
    EXPECT_TRUE(testing::internal::GetCapturedStdout().starts_with("Check for sparkle update\n"));
    EXPECT_EQ(server_.feedRequests(), 2);
}

TEST_F(UpdaterSession, ScheduledChecksTurnBothPreferencesOnAndCheckDaily) {
    server_.setFeed(Appcast({}));
    makeUpdater();
    updater_->setAutomaticallyChecksForUpdates(false);
    QObject owner;
    QTimer* timer = StartScheduledUpdateChecks(*updater_, &owner);
    EXPECT_TRUE(updater_->automaticallyChecksForUpdates());
    EXPECT_TRUE(updater_->automaticallyDownloadsUpdates());
    EXPECT_TRUE(updater_->sessionInProgress());
    ASSERT_TRUE(sessionEnds());
    EXPECT_EQ(server_.feedRequests(), 1);

    EXPECT_EQ(timer->parent(), &owner);
    EXPECT_EQ(timer->interval(), 86'400'000);
    EXPECT_FALSE(timer->isSingleShot());
    EXPECT_TRUE(timer->isActive());
    // Each tick is a daily check.
    timer->setInterval(20);
    ASSERT_TRUE(waitUntil([this] { return server_.feedRequests() >= 2; }));
    timer->stop();
    ASSERT_TRUE(sessionEnds());
}

TEST_F(UpdaterSession, ControllerStartsTheUpdaterOnlyWhenAsked) {
    for (const bool starting : {false, true}) {
        StandardUpdaterController controller(starting, configuration_, nullptr,
                                             std::make_unique<RecordingUserDriver>(steps_));
        EXPECT_EQ(controller.updater().canCheckForUpdates(), starting);
    }
}

TEST(UpdaterConfigurationBuiltIn, ComesFromTheBuildAndTheFoldersAroundTheProgram) {
    const UpdaterConfiguration configuration = UpdaterConfiguration::builtIn();
    const QString binDir = QCoreApplication::applicationDirPath();
    EXPECT_EQ(configuration.feedURL, QUrl(QStringLiteral(BRISVANE_UPDATE_FEED_URL)));
    EXPECT_EQ(configuration.installDir, QFileInfo(binDir).absolutePath());
    EXPECT_EQ(configuration.bundleVersion, QStringLiteral(BRISVANE_BUNDLE_VERSION));
    EXPECT_EQ(configuration.shortVersion, QStringLiteral(BRISVANE_SHORT_VERSION_STRING));
    EXPECT_EQ(configuration.downloadPage, QUrl(QStringLiteral(BRISVANE_SITE_URL "/download")));
    // The build writes the key file only when it was given a key.
    const bool hasKeyFile = QFileInfo::exists(binDir + QStringLiteral("/../libexec/brisvane/") +
                                              QLatin1String(kUpdatePublicKeyFileName));
    EXPECT_EQ(configuration.publicEdKey.size(), hasKeyFile ? 32 : 0);
}

}  // namespace
