#include "updater.h"

#include "diagnostics/diagnostics.h"
#include "update_address.h"
#include "update_installer.h"
#include "update_signature.h"
#include "update_worker.h"

namespace {

// The preference names the update framework has always used, so a user's settings file reads
// the same.
constexpr auto kAutomaticChecksKey = "SUEnableAutomaticChecks";
constexpr auto kAutomaticDownloadsKey = "SUAutomaticallyUpdate";

QString sentence(UpdaterError error) {
    return QString::fromStdString(make_error_code(error).message());
}

}  // namespace

Updater::Updater(UpdaterConfiguration configuration, UpdateUserDriverFactory makeUserDriver,
                 QObject* parent)
    : QObject(parent),
      configuration_(std::move(configuration)),
      makeUserDriver_(std::move(makeUserDriver)),
      preferences_(QStringLiteral("app.brisvane.Brisvane"), QStringLiteral("Brisvane")) {
    // The worker calls these on its own thread; each hands its report on to this one.
    const auto onThisThread = [this](auto report) {
        QMetaObject::invokeMethod(this, std::move(report), Qt::QueuedConnection);
    };
    UpdateWorkerReports reports;
    reports.checked = [this, onThisThread](std::optional<AppcastItem> item) {
        onThisThread([this, item = std::move(item)] { checked(item); });
    };
    reports.downloadProgress = [this, onThisThread](qint64 received, qint64 total) {
        onThisThread([this, received, total] { downloadProgress(received, total); });
    };
    reports.verifying = [this, onThisThread] { onThisThread([this] { verifying(); }); };
    reports.installed = [this, onThisThread] { onThisThread([this] { installed(); }); };
    reports.failed = [this, onThisThread](UpdaterError error, QString detail) {
        onThisThread([this, error, detail = std::move(detail)] { failed(error, detail); });
    };
    worker_ = new UpdateWorker(std::move(reports));
    worker_->moveToThread(&workerThread_);
    connect(&workerThread_, &QThread::finished, worker_, &QObject::deleteLater);
    workerThread_.setObjectName(QStringLiteral("brisvane updater"));
    workerThread_.start();
}

// An installation under way is finished first, so no half-swapped folder is left behind.
Updater::~Updater() {
    workerThread_.quit();
    workerThread_.wait();
}

void Updater::startUpdater() {
    if (started_) {
        return;
    }
    started_ = true;
    emit canCheckForUpdatesChanged(canCheckForUpdates());
}

bool Updater::canCheckForUpdates() const {
    return started_ && !sessionInProgress_;
}

bool Updater::sessionInProgress() const {
    return sessionInProgress_;
}

void Updater::checkForUpdates() {
    beginSession(true);
}

void Updater::checkForUpdatesInBackground() {
    if (!automaticallyChecksForUpdates()) {
        Diagnostics::printLine(QStringLiteral("update check skipped: automatic checks are off"));
        return;
    }
    beginSession(false);
}

bool Updater::automaticallyChecksForUpdates() const {
    return preferences_.value(QLatin1String(kAutomaticChecksKey), false).toBool();
}

void Updater::setAutomaticallyChecksForUpdates(bool automaticallyChecks) {
    preferences_.setValue(QLatin1String(kAutomaticChecksKey), automaticallyChecks);
    preferences_.sync();
}

bool Updater::automaticallyDownloadsUpdates() const {
    return preferences_.value(QLatin1String(kAutomaticDownloadsKey), false).toBool();
}

void Updater::setAutomaticallyDownloadsUpdates(bool automaticallyDownloads) {
    preferences_.setValue(QLatin1String(kAutomaticDownloadsKey), automaticallyDownloads);
    preferences_.sync();
}

void Updater::beginSession(bool showsUserInterface) {
    if (!canCheckForUpdates()) {
        return;
    }
    showsUserInterface_ = showsUserInterface;
    setSessionInProgress(true);
    if (showsUserInterface_) {
        userDriver().showChecking();
    }
    QMetaObject::invokeMethod(
        worker_,
        [worker = worker_, feed = configuration_.feedURL, version = configuration_.bundleVersion] {
            worker->check(feed, version);
        },
        Qt::QueuedConnection);
}

void Updater::endSession() {
    offered_.reset();
    setSessionInProgress(false);
}

void Updater::setSessionInProgress(bool inProgress) {
    const bool couldCheck = canCheckForUpdates();
    sessionInProgress_ = inProgress;
    if (canCheckForUpdates() != couldCheck) {
        emit canCheckForUpdatesChanged(canCheckForUpdates());
    }
}

UpdateUserDriver& Updater::userDriver() {
    if (!userDriver_) {
        userDriver_ = makeUserDriver_();
    }
    return *userDriver_;
}

QString Updater::whyNotInstallable(const AppcastItem& item) const {
    if (configuration_.publicEdKey.size() != kEd25519PublicKeyLength) {
        return sentence(UpdaterError::noPublicKey);
    }
    if (item.edSignature.isEmpty() || item.length < 0) {
        return sentence(UpdaterError::signatureMissing);
    }
    if (!IsAllowedUpdateAddress(item.url)) {
        return sentence(UpdaterError::insecureAddress);
    }
    if (!CanSelfInstall(configuration_.installDir)) {
        return sentence(UpdaterError::installFolderReadOnly);
    }
    return {};
}

void Updater::checked(const std::optional<AppcastItem>& item) {
    if (!item) {
        Diagnostics::printLine(QStringLiteral("update check: up to date"));
        if (showsUserInterface_) {
            userDriver().showUpToDate(configuration_.shortVersion);
        }
        endSession();
        return;
    }
    Diagnostics::printLine(
        QStringLiteral("update found: %1 (%2)").arg(item->shortVersionString, item->version));
    offered_ = item;
    const QString whyNot = whyNotInstallable(*item);
    if (!showsUserInterface_ && whyNot.isEmpty() && automaticallyDownloadsUpdates()) {
        chosen(UpdateChoice::install);
        return;
    }
    showsUserInterface_ = true;
    const UpdateOffer offer{item->shortVersionString, configuration_.shortVersion, whyNot,
                            configuration_.downloadPage};
    userDriver().showUpdateFound(offer, [this](UpdateChoice choice) { chosen(choice); });
}

void Updater::chosen(UpdateChoice choice) {
    if (!offered_) {
        return;
    }
    if (choice == UpdateChoice::later) {
        endSession();
        return;
    }
    if (showsUserInterface_) {
        userDriver().showDownloadProgress(0, offered_->length);
    }
    QMetaObject::invokeMethod(
        worker_,
        [worker = worker_, item = *offered_, key = configuration_.publicEdKey,
         folder = configuration_.installDir] { worker->install(item, key, folder); },
        Qt::QueuedConnection);
}

void Updater::downloadProgress(qint64 received, qint64 total) {
    if (showsUserInterface_) {
        userDriver().showDownloadProgress(received, total);
    }
}

void Updater::verifying() {
    if (showsUserInterface_) {
        userDriver().showVerifying();
    }
}

void Updater::installed() {
    const QString version = offered_ ? offered_->shortVersionString : QString();
    Diagnostics::printLine(
        QStringLiteral("update installed: %1, running from the next start").arg(version));
    if (showsUserInterface_) {
        userDriver().showInstalled(version);
    }
    endSession();
}

void Updater::failed(UpdaterError error, const QString& detail) {
    Diagnostics::printLine(
        QStringLiteral("update failed: %1 %2").arg(sentence(error), detail).trimmed());
    if (showsUserInterface_) {
        userDriver().showError(sentence(error), detail, configuration_.downloadPage);
    }
    endSession();
}
