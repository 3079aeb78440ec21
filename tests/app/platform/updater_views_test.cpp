// The update command, the preference switches and the update dialog, on the offscreen
// platform.

#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QLabel>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>

#include "app/platform/check_for_updates_view.h"
#include "app/platform/update_dialog.h"
#include "app/platform/updater.h"
#include "app/platform/updater_settings_view.h"
#include "support/wait.h"
#include "updater_test_support.h"

using namespace updater_testing;
using testing_support::waitUntil;

namespace {

class UpdaterViews : public ::testing::Test {
protected:
    void SetUp() override {
        UpdaterConfiguration configuration;
        configuration.feedURL = QUrl(server_.url("/appcast.xml"));
        configuration.installDir = folder_.path();
        configuration.bundleVersion = QStringLiteral("5");
        configuration.shortVersion = QStringLiteral("1.5");
        server_.setFeed(Appcast({}));
        updater_ =
            std::make_unique<Updater>(configuration, std::make_unique<RecordingUserDriver>(steps_));
    }

    QAbstractButton* switchNamed(QWidget& view, const char* name) {
        auto* found = view.findChild<QAbstractButton*>(QLatin1String(name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }

    UpdateServer server_;
    QTemporaryDir folder_;
    QStringList steps_;
    std::unique_ptr<Updater> updater_;
};

TEST_F(UpdaterViews, CheckCommandIsEnabledExactlyWhileTheUpdaterCanCheck) {
    CheckForUpdatesView view(*updater_);
    EXPECT_EQ(view.text(), QStringLiteral(u"Check for Updates\u2026"));
    EXPECT_EQ(view.accessibleName(), view.text());
    EXPECT_FALSE(view.checkForUpdatesViewModel().canCheckForUpdates());
    EXPECT_FALSE(view.isEnabled());

    updater_->startUpdater();
    EXPECT_TRUE(view.checkForUpdatesViewModel().canCheckForUpdates());
    EXPECT_TRUE(view.isEnabled());

    server_.holdFeed();
    QTest::mouseClick(&view, Qt::LeftButton);
    EXPECT_EQ(steps_, QStringList({"checking"}));
    EXPECT_FALSE(view.isEnabled());
    // A view made during a session starts from the updater's state.
    EXPECT_FALSE(CheckForUpdatesView(*updater_).isEnabled());
    server_.releaseFeed();
    ASSERT_TRUE(waitUntil([&] { return view.isEnabled(); }));
    EXPECT_EQ(steps_, QStringList({"checking", "up to date"}));
}

TEST_F(UpdaterViews, SwitchesStartFromThePreferencesAndWriteThemBack) {
    for (const bool checks : {false, true}) {
        for (const bool downloads : {false, true}) {
            updater_->setAutomaticallyChecksForUpdates(checks);
            updater_->setAutomaticallyDownloadsUpdates(downloads);
            UpdaterSettingsView view(*updater_);
            QAbstractButton* checkSwitch = switchNamed(view, "automaticallyChecksSwitch");
            QAbstractButton* downloadSwitch = switchNamed(view, "automaticallyDownloadsSwitch");
            EXPECT_EQ(checkSwitch->isChecked(), checks);
            EXPECT_EQ(downloadSwitch->isChecked(), downloads);
            EXPECT_EQ(downloadSwitch->isEnabled(), checks);
            // Read once: later changes by others do not move the switches.
            updater_->setAutomaticallyDownloadsUpdates(!downloads);
            EXPECT_EQ(downloadSwitch->isChecked(), downloads);
        }
    }

    updater_->setAutomaticallyChecksForUpdates(true);
    updater_->setAutomaticallyDownloadsUpdates(true);
    UpdaterSettingsView view(*updater_);
    QAbstractButton* checkSwitch = switchNamed(view, "automaticallyChecksSwitch");
    QAbstractButton* downloadSwitch = switchNamed(view, "automaticallyDownloadsSwitch");
    EXPECT_EQ(checkSwitch->text(), u"Automatically check for updates");
    EXPECT_EQ(downloadSwitch->text(), u"Automatically download updates");
    EXPECT_EQ(checkSwitch->accessibleName(), checkSwitch->text());
    EXPECT_EQ(downloadSwitch->accessibleName(), downloadSwitch->text());

    checkSwitch->click();
    EXPECT_FALSE(updater_->automaticallyChecksForUpdates());
    EXPECT_FALSE(downloadSwitch->isEnabled());
    EXPECT_TRUE(downloadSwitch->isChecked());
    EXPECT_TRUE(updater_->automaticallyDownloadsUpdates());

    checkSwitch->click();
    EXPECT_TRUE(updater_->automaticallyChecksForUpdates());
    EXPECT_TRUE(downloadSwitch->isEnabled());
    downloadSwitch->click();
    EXPECT_FALSE(updater_->automaticallyDownloadsUpdates());
}

TEST(UpdaterDialog, OfferButtonsFollowWhetherTheUpdateCanBeInstalled) {
    for (const bool installable : {true, false}) {
        UpdateDialog dialog;
        std::vector<UpdateChoice> answers;
        const UpdateOffer offer{QStringLiteral("1.6"), QStringLiteral("1.5"),
                                installable ? QString() : QStringLiteral("No key."),
                                QUrl(QStringLiteral("https://brisvane.example/download"))};
        dialog.showUpdateFound(offer, [&](UpdateChoice choice) { answers.push_back(choice); });
        auto* install = dialog.findChild<QPushButton*>(QStringLiteral("installButton"));
        ASSERT_NE(install, nullptr);
        EXPECT_TRUE(dialog.isVisible());
        EXPECT_EQ(install->isVisible(), installable);
        EXPECT_TRUE(
            dialog.findChild<QPushButton*>(QStringLiteral("downloadPageButton"))->isVisible());
        const QString details = dialog.findChild<QLabel*>(QStringLiteral("details"))->text();
        EXPECT_TRUE(details.contains(u"1.6") && details.contains(u"1.5")) << details.toStdString();
        EXPECT_EQ(details.contains(u"No key."), !installable);

        // One answer, however the window is left: closing it is "Later".
        if (installable) {
            install->click();
        }
        dialog.close();
        ASSERT_EQ(answers.size(), 1u);
        EXPECT_EQ(answers[0], installable ? UpdateChoice::install : UpdateChoice::later);
    }
}

}  // namespace
