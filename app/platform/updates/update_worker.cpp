#include "update_worker.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTemporaryFile>
#include <memory>

#include "update_address.h"
#include "update_installer.h"
#include "update_signature.h"

namespace {

// A stalled transfer ends after this long without a byte; a slow one may take as long as it
// needs.
constexpr int kTransferTimeoutMs = 60'000;

bool succeeded(QNetworkReply* reply) {
    return reply->error() == QNetworkReply::NoError &&
           reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 200;
}

QString replyFault(QNetworkReply* reply) {
    if (reply->error() != QNetworkReply::NoError) {
        return reply->errorString();
    }
    return QStringLiteral("%1 answered with status %2")
        .arg(reply->url().toDisplayString(),
             reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toString());
}

}  // namespace

UpdateWorker::UpdateWorker(UpdateWorkerReports reports, QObject* parent)
    : QObject(parent), reports_(std::move(reports)), network_(new QNetworkAccessManager(this)) {
    // Never from https down to http.
    network_->setRedirectPolicy(QNetworkRequest::NoLessSafeRedirectPolicy);
}

UpdateWorker::~UpdateWorker() = default;

QNetworkReply* UpdateWorker::get(const QUrl& address) {
    QNetworkRequest request(address);
    request.setTransferTimeout(kTransferTimeoutMs);
    return network_->get(request);
}

void UpdateWorker::fail(UpdaterError error, const QString& detail) {
    download_.reset();
    reports_.failed(error, detail);
}

void UpdateWorker::check(const QUrl& feedURL, const QString& currentVersion) {
    if (!IsAllowedUpdateAddress(feedURL)) {
        fail(UpdaterError::insecureAddress, feedURL.toDisplayString());
        return;
    }
    QNetworkReply* reply = get(feedURL);
    connect(reply, &QNetworkReply::finished, this, [this, reply, currentVersion] {
        reply->deleteLater();
        if (!succeeded(reply)) {
            fail(UpdaterError::networkFailure, replyFault(reply));
            return;
        }
        try {
            const std::vector<AppcastItem> items = ParseAppcast(reply->readAll());
            reports_.checked(NewestAppcastItem(items, currentVersion));
        } catch (const UpdaterFailure& failure) {
            fail(failure.error(), failure.detail());
        }
    });
}

void UpdateWorker::install(const AppcastItem& item, const QByteArray& publicKey,
                           const QString& installDir) {
    // What would only be refused after the download is refused before it.
    if (publicKey.size() != kEd25519PublicKeyLength) {
        fail(UpdaterError::noPublicKey, QString());
        return;
    }
    if (item.edSignature.isEmpty() || item.length < 0) {
        fail(UpdaterError::signatureMissing, item.url.toDisplayString());
        return;
    }
    if (!IsAllowedUpdateAddress(item.url)) {
        fail(UpdaterError::insecureAddress, item.url.toDisplayString());
        return;
    }
    download_ = std::make_unique<QTemporaryFile>(QDir::tempPath() +
                                                 QStringLiteral("/brisvane-update-XXXXXX"));
    if (!download_->open()) {
        fail(UpdaterError::installFailed, download_->errorString());
        return;
    }
    QNetworkReply* reply = get(item.url);
    auto fault = std::make_shared<std::optional<UpdaterFailure>>();
    connect(reply, &QNetworkReply::readyRead, this, [this, reply, item, fault] {
        const QByteArray chunk = reply->readAll();
        // A server sending more than announced is cut off instead of filling the disk.
        if (download_->size() + chunk.size() > item.length) {
            fault->emplace(UpdaterError::lengthMismatch,
                           QStringLiteral("more than the %1 bytes announced").arg(item.length));
            reply->abort();
        } else if (download_->write(chunk) != chunk.size()) {
            fault->emplace(UpdaterError::installFailed, download_->errorString());
            reply->abort();
        }
    });
    connect(reply, &QNetworkReply::downloadProgress, this,
            [this, item](qint64 received, qint64 total) {
                reports_.downloadProgress(received, total > 0 ? total : item.length);
            });
    connect(reply, &QNetworkReply::finished, this,
            [this, reply, item, publicKey, installDir, fault] {
                reply->deleteLater();
                if (fault->has_value()) {
                    fail((*fault)->error(), (*fault)->detail());
                } else if (!succeeded(reply)) {
                    fail(UpdaterError::networkFailure, replyFault(reply));
                } else {
                    finishDownload(item, publicKey, installDir);
                }
            });
}

void UpdateWorker::finishDownload(const AppcastItem& item, const QByteArray& publicKey,
                                  const QString& installDir) {
    if (!download_->flush()) {
        fail(UpdaterError::installFailed, download_->errorString());
        return;
    }
    reports_.verifying();
    try {
        VerifyUpdateArchive(download_->fileName(), item.length, publicKey, item.edSignature);
        InstallUpdateArchive(download_->fileName(), installDir);
    } catch (const UpdaterFailure& failure) {
        fail(failure.error(), failure.detail());
        return;
    } catch (const std::exception& failure) {
        fail(UpdaterError::installFailed, QString::fromLocal8Bit(failure.what()));
        return;
    }
    download_.reset();
    reports_.installed();
}
