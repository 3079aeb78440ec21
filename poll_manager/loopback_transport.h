#pragma once

// The HTTP client half of the transport. It lives on the transport thread, where
// its QNetworkAccessManager keeps the loopback connection alive between requests.

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QUrl>
#include <functional>
#include <system_error>
#include <variant>

class QNetworkAccessManager;

class LoopbackTransport : public QObject {
    Q_OBJECT

public:
    // The body of a 200 answer, or why there is none.
    using Result = std::variant<QByteArray, std::error_code>;
    using Completion = std::function<void(Result)>;

    LoopbackTransport() = default;

    // Must be called on the transport thread; completion runs there too.
    void post(QByteArray body, const QUrl& url, const QString& bearerToken, Completion completion);

private:
    QNetworkAccessManager& manager();

    QNetworkAccessManager* manager_ = nullptr;
};
