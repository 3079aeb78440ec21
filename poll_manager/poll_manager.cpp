#include "poll_manager.h"

#include <QMetaEnum>
#include <QNetworkReply>
#include <QPromise>
#include <QTimer>
#include <exception>
#include <limits>

#include "diagnostics/diagnostics.h"
#include "loopback_transport.h"
#include "process_manager/host_facts.h"

namespace {

class PollManagerCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "PollManagerError"; }
    std::string message(int value) const override {
        switch (static_cast<PollManagerError>(value)) {
            case PollManagerError::urlError:
                return "the loopback URL cannot be formed";
            case PollManagerError::publishFailure:
                return "the helper answered with a status other than 200";
        }
        return "unknown poll manager error";
    }
};

class NetworkCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "QNetworkReply"; }
    std::string message(int value) const override {
        const char* key = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(value);
        return key != nullptr ? key : "unknown network error";
    }
};

std::unique_ptr<KeyExchangeStore> makeStore(
    std::unique_ptr<KeyExchangeStore> (*constructor)(const QString&)) {
    try {
        return constructor(QString());
    } catch (const std::exception& error) {
        Diagnostics::stop(QStringLiteral("cannot create the key-exchange store: ") + error.what());
    }
}

}  // namespace

const std::error_category& PollManagerErrorCategory() {
    static const PollManagerCategory category;
    return category;
}

std::error_code make_error_code(PollManagerError error) {
    return {static_cast<int>(error), PollManagerErrorCategory()};
}

const std::error_category& NetworkErrorCategory() {
    static const NetworkCategory category;
    return category;
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA256_HKDF_AESGCM() {
    return makeStore(KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store);
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA384_HKDF_AESGCM() {
    return makeStore(KeyExchange_Curve25519_SHA384_HKDF_AESGCM_Store);
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA512_HKDF_AESGCM() {
    return makeStore(KeyExchange_Curve25519_SHA512_HKDF_AESGCM_Store);
}

PollManager::PollManager(KeyExchangeStoreFunction keyExchangeStoreFunction, QObject* parent)
    : QObject(parent),
      keyExchangeStoreFunction_(std::move(keyExchangeStoreFunction)),
      kes_(keyExchangeStoreFunction_()),
      timestamp_(KeyExchangeCurrentTimestamp()),
      clock_(KeyExchangeCurrentTimestamp),
      transport_(new LoopbackTransport) {
    bearerToken_ = kes_->LocalPublicKey();
    transportThread_.setObjectName(QStringLiteral("brisvane-transport"));
    transport_->moveToThread(&transportThread_);
    connect(&transportThread_, &QThread::finished, transport_, &QObject::deleteLater);
    transportThread_.start();
}

PollManager::~PollManager() {
    transportThread_.quit();
    transportThread_.wait();
}

void PollManager::pong() {
    pingCount_ = 0;
}

QByteArray PollManager::keyExchangeCurrentTimestampData() const {
    return KeyExchangeCurrentTimestampData();
}

std::int64_t PollManager::randomOpenPort(std::int64_t lower, std::int64_t upper) const {
    return RandomOpenPort(lower, upper);
}

void PollManager::exitAppIfAlreadyOpen() const {
    ExitAppIfAlreadyOpen();
}

QString PollManager::systemArchitecture() const {
    return SystemArchitecture();
}

bool PollManager::authTimestamp(const QString& additionalData) {
    const std::optional<std::int64_t> sealedAt = KeyExchangeTimestamp(additionalData);
    if (!sealedAt) {
        return false;
    }
    std::int64_t newest = timestamp_.load();
    while (true) {
        if (newest >= *sealedAt) {
            return false;
        }
        std::int64_t age = 0;
        if (__builtin_sub_overflow(clock_(), *sealedAt, &age)) {
            Diagnostics::stop("timestamp difference overflows");
        }
        if (age < 0 || age > 10) {
            return false;
        }
        if (timestamp_.compare_exchange_weak(newest, *sealedAt)) {
            return true;
        }
    }
}

QUrl PollManager::LocalURL(std::int64_t port, const QString& path) {
    if (port < 0 || port > 65535 || !path.startsWith(u'/')) {
        return {};
    }
    QUrl url;
    url.setScheme(QStringLiteral("http"));
    url.setHost(QStringLiteral("127.0.0.1"));
    url.setPort(static_cast<int>(port));
    url.setPath(path);
    return url;
}

QFuture<QByteArray> PollManager::post(QByteArray body, const QUrl& url,
                                      const QString& bearerToken) {
    auto promise = std::make_shared<QPromise<QByteArray>>();
    QFuture<QByteArray> future = promise->future();
    promise->start();
    QMetaObject::invokeMethod(
        transport_,
        [transport = transport_, body = std::move(body), url, bearerToken, promise] {
            transport->post(body, url, bearerToken, [promise](LoopbackTransport::Result result) {
                if (auto* error = std::get_if<std::error_code>(&result)) {
                    promise->setException(std::make_exception_ptr(std::system_error(*error)));
                } else {
                    promise->addResult(std::get<QByteArray>(std::move(result)));
                }
                promise->finish();
            });
        },
        Qt::QueuedConnection);
    return future;
}

QFuture<QJsonValue> PollManager::request(const KeyExchangeTypeIDAndData& message, std::int64_t port,
                                         const QString& path) {
    // The continuation runs where the answer was opened, on the transport thread.
    return requestJSONText(JSONEncode(message), port, path).then([](const QByteArray& text) {
        return JSONDecode<QJsonValue>(text);
    });
}

QFuture<QByteArray> PollManager::requestJSONText(QByteArray messageJSON, std::int64_t port,
                                                 const QString& path) {
    const QUrl url = LocalURL(port, path);
    if (!url.isValid()) {
        return failed<QByteArray>(PollManagerError::urlError);
    }
    auto promise = std::make_shared<QPromise<QByteArray>>();
    QFuture<QByteArray> future = promise->future();
    promise->start();
    auto fail = [promise] {
        promise->setException(std::current_exception());
        promise->finish();
    };
    QMetaObject::invokeMethod(
        transport_,
        [this, messageJSON = std::move(messageJSON), url, promise, fail] {
            QByteArray body;
            try {
                body = JSONEncode(kes_->encrypt(messageJSON, KeyExchangeCurrentTimestampData()));
            } catch (...) {
                fail();
                return;
            }
            transport_->post(std::move(body), url, bearerToken_,
                             [this, promise, fail](LoopbackTransport::Result result) {
                                 try {
                                     if (auto* error = std::get_if<std::error_code>(&result)) {
                                         throw std::system_error(*error);
                                     }
                                     promise->addResult(openAnswer(std::get<QByteArray>(result)));
                                     promise->finish();
                                 } catch (...) {
                                     fail();
                                 }
                             });
        },
        Qt::QueuedConnection);
    return future;
}

QByteArray PollManager::decryptJSONText(QByteArrayView data, const KeyExchangeStore& store,
                                        const KeyExchangeAuth& auth) const {
    (void)store.ExternalPublicKey();
    const auto envelope = JSONDecode<KeyExchangeAEADStore>(data);
    QByteArray text = store.decryptAEADStore(envelope);
    checkAuth(envelope, auth);
    return text;
}

QByteArray PollManager::openAnswer(QByteArrayView body) {
    return decryptJSONText(body, *kes_, [this](const QString& additionalData) {
        return authTimestamp(additionalData);
    });
}

void PollManager::checkAuth(const KeyExchangeAEADStore& envelope, const KeyExchangeAuth& auth) {
    if (!auth(envelope.additionalData)) {
        throw std::system_error(KeyExchangeError::invalidAdditionalData);
    }
}

void PollManager::startPingTimer(double pingTimeLimit, std::function<void()> pingTimeout) {
    // An earlier timer keeps running: a second supervision adds its own watch.
    timer_ = new QTimer(this);
    timer_->setInterval(static_cast<int>(pingTimeLimit * 1000.0 / 5.0));
    connect(timer_, &QTimer::timeout, this, [this, pingTimeout = std::move(pingTimeout)] {
        if (pingCount_ == std::numeric_limits<std::int64_t>::max()) {
            Diagnostics::stop("ping counter overflows");
        }
        ++pingCount_;
        if (pingCount_ > 4) {
            pingCount_ = 0;
            pingTimeout();
        }
    });
    timer_->start();
}

void PollManager::watchForKeyBlock(const QString& chunk) {
    const std::optional<QString> block = PEMSearchString(chunk);
    if (!block) {
        return;
    }
    try {
        kes_->setExternalPublicKey(*block);
    } catch (const std::exception& error) {
        Diagnostics::printLine(QStringLiteral("pem search parse error - reset: ") +
                               QString::fromUtf8(error.what()));
        processManager_.terminateCurrentTask();
    }
}

void PollManager::subscribeWithBinary(const std::optional<QString>& binURL, bool withRetry,
                                      bool withPEMWatcher, double pingTimeLimit,
                                      std::function<void()> pingTimeout,
                                      ProcessManager::StandardOutput standardOutput,
                                      ProcessManager::TaskExitNotification taskExitNotification) {
    if (pingTimeLimit > 0) {
        QMetaObject::invokeMethod(
            this,
            [this, pingTimeLimit, pingTimeout = std::move(pingTimeout)]() mutable {
                startPingTimer(pingTimeLimit, std::move(pingTimeout));
            },
            Qt::QueuedConnection);
    }
    auto output = [this, withPEMWatcher,
                   standardOutput = std::move(standardOutput)](const QString& chunk) {
        if (standardOutput) {
            standardOutput(chunk);
        }
        QMetaObject::invokeMethod(
            this, [this] { pong(); }, Qt::QueuedConnection);
        if (withPEMWatcher) {
            watchForKeyBlock(chunk);
        }
    };
    processManager_.RunProces(binURL, withRetry, std::move(output),
                              std::move(taskExitNotification));
}
