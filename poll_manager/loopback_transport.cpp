#include "loopback_transport.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>

#include "diagnostics/diagnostics.h"
#include "poll_manager.h"

QNetworkAccessManager& LoopbackTransport::manager() {
    // Made on first use so that it belongs to the transport thread, not to the
    // thread that created this object.
    if (manager_ == nullptr) {
        manager_ = new QNetworkAccessManager(this);
        // The helper is on this machine: a proxy from the environment must not
        // sit between the two.
        manager_->setProxy(QNetworkProxy::NoProxy);
    }
    return *manager_;
}

void LoopbackTransport::post(QByteArray body, const QUrl& url, const QString& bearerToken,
                             Completion completion) {
    QNetworkRequest request(url);
    // No limit of the client's own: the helper's answer is awaited as long as it takes.
    request.setTransferTimeout(0);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    if (!bearerToken.isEmpty()) {
        request.setRawHeader("Authorization", "Bearer " + bearerToken.toUtf8());
    }
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    // Compressing a small answer on loopback costs the helper far more than the
    // bytes it saves, and an answer has only 10 ms to arrive.
    request.setRawHeader("Accept-Encoding", "identity");

    QNetworkReply* reply = manager().post(request, body);
    connect(reply, &QNetworkReply::finished, this, [reply, completion = std::move(completion)] {
        reply->deleteLater();
        const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
        if (!status.isValid()) {
            if (reply->error() == QNetworkReply::NoError) {
                Diagnostics::stop("the helper's answer is not an HTTP response");
            }
            completion(std::error_code(reply->error(), NetworkErrorCategory()));
            return;
        }
        if (status.toInt() != 200) {
            Diagnostics::printLine("publish failure");
            completion(make_error_code(PollManagerError::publishFailure));
            return;
        }
        completion(reply->readAll());
    });
}
