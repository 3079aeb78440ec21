#pragma once

// The application's updater: checks the feed, offers or installs what it finds, and keeps the
// two update preferences.
//
// A session runs from the start of a check until it ends: nothing newer, a failure, the user's
// "Later", or an installation. Only one runs at a time, and none before the updater is
// started. A silent (background) check runs only while automatic checks are on; it shows
// nothing when it finds nothing or fails, installs what it finds without asking when
// automatic downloads are on and the installation is the user's own, and otherwise offers the
// update in the dialog. Each session's outcome is also a line on standard output.

#include <QObject>
#include <QSettings>
#include <QThread>
#include <memory>
#include <optional>

#include "appcast.h"
#include "update_user_driver.h"
#include "updater_configuration.h"
#include "updater_error.h"

class UpdateWorker;

class Updater : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool canCheckForUpdates READ canCheckForUpdates NOTIFY canCheckForUpdatesChanged)

public:
    // The user driver is made with makeUserDriver when first needed.
    Updater(UpdaterConfiguration configuration, UpdateUserDriverFactory makeUserDriver,
            QObject* parent = nullptr);
    ~Updater() override;

    void startUpdater();

    bool canCheckForUpdates() const;
    bool sessionInProgress() const;
    void checkForUpdates();
    void checkForUpdatesInBackground();

    bool automaticallyChecksForUpdates() const;
    void setAutomaticallyChecksForUpdates(bool automaticallyChecks);
    bool automaticallyDownloadsUpdates() const;
    void setAutomaticallyDownloadsUpdates(bool automaticallyDownloads);

    const UpdaterConfiguration& configuration() const { return configuration_; }

signals:
    void canCheckForUpdatesChanged(bool canCheckForUpdates);

private:
    void beginSession(bool showsUserInterface);
    void endSession();
    void setSessionInProgress(bool inProgress);
    UpdateUserDriver& userDriver();
    QString whyNotInstallable(const AppcastItem& item) const;

    // The worker's reports, on this object's thread.
    void checked(const std::optional<AppcastItem>& item);
    void chosen(UpdateChoice choice);
    void downloadProgress(qint64 received, qint64 total);
    void verifying();
    void installed();
    void failed(UpdaterError error, const QString& detail);

    UpdaterConfiguration configuration_;
    UpdateUserDriverFactory makeUserDriver_;
    std::unique_ptr<UpdateUserDriver> userDriver_;
    QSettings preferences_;
    QThread workerThread_;
    UpdateWorker* worker_;

    bool started_ = false;
    bool sessionInProgress_ = false;
    bool showsUserInterface_ = false;  // this session reports to the user, not only to stdout
    std::optional<AppcastItem> offered_;
};
