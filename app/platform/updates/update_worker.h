#pragma once

// The part of an update session that waits on the network or the disk: fetching the feed,
// downloading the archive, checking and installing it. It lives on a thread of its own; its
// reports are called on that thread, and the receiver hands them on to its own.

#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <memory>
#include <optional>

#include "appcast.h"
#include "updater_error.h"

class QNetworkAccessManager;
class QNetworkReply;
class QTemporaryFile;

struct UpdateWorkerReports {
    // The newest item above the running version, or nothing when it is the newest.
    std::function<void(std::optional<AppcastItem>)> checked;
    std::function<void(qint64 received, qint64 total)> downloadProgress;
    // The download is complete; checking and unpacking follow.
    std::function<void()> verifying;
    std::function<void()> installed;
    std::function<void(UpdaterError error, QString detail)> failed;
};

class UpdateWorker : public QObject {
    Q_OBJECT

public:
    explicit UpdateWorker(UpdateWorkerReports reports, QObject* parent = nullptr);
    ~UpdateWorker() override;

    // Each call ends in exactly one of checked / installed / failed.
    void check(const QUrl& feedURL, const QString& currentVersion);
    void install(const AppcastItem& item, const QByteArray& publicKey, const QString& installDir);

private:
    QNetworkReply* get(const QUrl& address);
    void finishDownload(const AppcastItem& item, const QByteArray& publicKey,
                        const QString& installDir);
    void fail(UpdaterError error, const QString& detail);

    UpdateWorkerReports reports_;
    QNetworkAccessManager* network_;
    std::unique_ptr<QTemporaryFile> download_;
};
