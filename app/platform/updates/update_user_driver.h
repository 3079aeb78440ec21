#pragma once

// What the updater shows the user during a session it was asked to show. The updater knows
// no windows: the application gives it the update dialog, tests give their own.

#include <QString>
#include <QUrl>
#include <functional>
#include <memory>

struct UpdateOffer {
    QString shortVersion;         // the new version, as shown
    QString currentShortVersion;  // the running version, as shown
    // Empty when the update can be installed here; otherwise why not, in plain words, and the
    // user is sent to the download page instead.
    QString whyNotInstallable;
    QUrl downloadPage;
};

enum class UpdateChoice { install, later };

class UpdateUserDriver {
public:
    virtual ~UpdateUserDriver() = default;

    virtual void showChecking() = 0;
    virtual void showUpToDate(const QString& currentShortVersion) = 0;
    // The driver answers exactly once, also when the user closes the window.
    virtual void showUpdateFound(const UpdateOffer& offer,
                                 std::function<void(UpdateChoice)> answer) = 0;
    virtual void showDownloadProgress(qint64 received, qint64 total) = 0;
    virtual void showVerifying() = 0;
    virtual void showInstalled(const QString& shortVersion) = 0;
    virtual void showError(const QString& message, const QString& detail,
                           const QUrl& downloadPage) = 0;
};

// Makes the user driver when a session first has something to show, so that an updater whose
// sessions all stay silent never makes a window.
using UpdateUserDriverFactory = std::function<std::unique_ptr<UpdateUserDriver>()>;
