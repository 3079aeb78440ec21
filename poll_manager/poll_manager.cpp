#include "poll_manager.h"

#include <QPromise>
#include <QTimer>
#include <exception>
#include <limits>

#include "diagnostics/diagnostics.h"
#include "http_connection.h"
#include "process_manager/host_facts.h"
#include "transport_worker.h"

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

class TransportCategory : public std::error_category {
public:
    const char* name() const noexcept override { return "TransportError"; }
    std::string message(int value) const override {
        switch (static_cast<TransportError>(value)) {
            case TransportError::connectionFailed:
                return "no connection to the helper could be made";
            case TransportError::connectionLost:
                return "the helper closed the connection before its answer was whole";
            case TransportError::timedOut:
                return "the helper's answer did not come in time";
            case TransportError::answerTooLarge:
                return "the helper's answer is larger than any answer may be";
            case TransportError::malformedAnswer:
                return "the helper's answer is not HTTP/1.1 this client reads";
            case TransportError::cancelled:
                return "the transport was shut down";
        }
        return "unknown transport error";
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

const std::error_category& TransportErrorCategory() {
    static const TransportCategory category;
    return category;
}

std::error_code make_error_code(TransportError error) {
    return {static_cast<int>(error), TransportErrorCategory()};
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
      worker_(std::make_unique<TransportWorker>()) {
    bearerToken_ = kes_->LocalPublicKey();
    requestHeaders_ = headerLines(bearerToken_);
}

PollManager::~PollManager() {
    worker_.reset();
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

QByteArray PollManager::headerLines(const QString& bearerToken) {
    QByteArray lines;
    if (!bearerToken.isEmpty()) {
        lines += "Authorization: Bearer " + bearerToken.toUtf8() + "\r\n";
    }
    // Compressing an answer on loopback costs the helper far more than the bytes it saves,
    // and an answer has only 10 ms to arrive.
    lines += "Content-Type: application/json\r\nAccept-Encoding: identity\r\n";
    return lines;
}

namespace {

QByteArray requestTarget(const QUrl& url) {
    QByteArray target = url.path(QUrl::FullyEncoded).toUtf8();
    if (target.isEmpty()) {
        target = "/";
    }
    if (url.hasQuery()) {
        target += '?' + url.query(QUrl::FullyEncoded).toUtf8();
    }
    return target;
}

// The body of a 200 answer; any other status is the designed failure.
QByteArrayView bodyOf200(const std::variant<HttpAnswer, std::error_code>& result) {
    if (const auto* error = std::get_if<std::error_code>(&result)) {
        throw std::system_error(*error);
    }
    const HttpAnswer& answer = std::get<HttpAnswer>(result);
    if (answer.status != 200) {
        Diagnostics::printLine(QStringLiteral("publish failure"));
        throw std::system_error(PollManagerError::publishFailure);
    }
    return answer.body;
}

}  // namespace

QFuture<QByteArray> PollManager::post(QByteArray body, const QUrl& url,
                                      const QString& bearerToken) {
    // The client speaks plain HTTP, which is all the loopback link needs.
    if (url.scheme() != u"http" || url.host().isEmpty()) {
        return failed<QByteArray>(PollManagerError::urlError);
    }
    if (!worker_) {
        return failed<QByteArray>(TransportError::cancelled);
    }
    auto promise = std::make_shared<QPromise<QByteArray>>();
    QFuture<QByteArray> future = promise->future();
    promise->start();
    worker_->submit([promise, body = std::move(body), url, headers = headerLines(bearerToken),
                     limits = requestLimits_](HttpConnection& connection) {
        try {
            promise->addResult(bodyOf200(connection.post(url.host(), url.port(80),
                                                         requestTarget(url), headers, body, limits))
                                   .toByteArray());
        } catch (...) {
            promise->setException(std::current_exception());
        }
        promise->finish();
    });
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
    if (exchangeStandIn_) {
        return exchangeStandIn_(messageJSON);
    }
    const RequestEndpoint* const to = endpoint(port, path);
    if (to == nullptr) {
        return failed<QByteArray>(PollManagerError::urlError);
    }
    if (!worker_) {
        return failed<QByteArray>(TransportError::cancelled);
    }
    auto promise = std::make_shared<QPromise<QByteArray>>();
    QFuture<QByteArray> future = promise->future();
    promise->start();
    worker_->submit([this, messageJSON = std::move(messageJSON), to = *to, promise,
                     limits = requestLimits_](HttpConnection& connection) {
        try {
            promise->addResult(exchange(connection, messageJSON, to, limits));
        } catch (...) {
            promise->setException(std::current_exception());
        }
        promise->finish();
    });
    return future;
}

void PollManager::startRequestLoop(std::int64_t port, const QString& path, RequestLoop loop) {
    const RequestEndpoint* const to = endpoint(port, path);
    if (to == nullptr || !worker_) {
        return;
    }
    const auto interval = loop.interval;
    worker_->repeat(
        [this, loop = std::move(loop), to = *to, limits = requestLimits_,
         standIn = exchangeStandIn_](HttpConnection& connection) {
            const QByteArray message = loop.message();
            std::optional<QByteArray> answer;
            try {
                if (standIn) {
                    QFuture<QByteArray> future = standIn(message);
                    future.waitForFinished();
                    answer = future.result();
                } else {
                    answer = exchange(connection, message, to, limits);
                }
            } catch (const std::system_error& error) {
                if (error.code() == TransportError::cancelled) {
                    return;  // the transport is ending: nobody waits for this answer
                }
            } catch (...) {
                // A failed exchange changes nothing; the next one follows at the interval.
            }
            loop.answered(std::move(answer));
        },
        interval);
}

void PollManager::stopRequestLoop() {
    if (worker_) {
        worker_->stopRepeating();
    }
}

void PollManager::stopTransport() {
    worker_.reset();
}

const PollManager::RequestEndpoint* PollManager::endpoint(std::int64_t port, const QString& path) {
    if (!requestEndpoint_ || requestEndpoint_->port != port || requestEndpoint_->path != path) {
        const QUrl url = LocalURL(port, path);
        if (!url.isValid()) {
            return nullptr;
        }
        requestEndpoint_ = RequestEndpoint{port, path, url.host(), requestTarget(url)};
    }
    return &*requestEndpoint_;
}

QByteArray PollManager::exchange(HttpConnection& connection, const QByteArray& messageJSON,
                                 const RequestEndpoint& endpoint, const HttpLimits& limits) {
    const QByteArray body = kes_->encryptToJSON(messageJSON, KeyExchangeCurrentTimestampData());
    return openAnswer(bodyOf200(connection.post(endpoint.host, static_cast<int>(endpoint.port),
                                                endpoint.target, requestHeaders_, body, limits)));
}

QByteArray PollManager::decryptJSONText(QByteArrayView data, const KeyExchangeStore& store,
                                        const KeyExchangeAuth& auth) const {
    (void)store.ExternalPublicKey();
    if (const std::optional<KeyExchangeEnvelopeText> text = KeyExchangeReadEnvelopeText(data)) {
        QByteArray plaintext = store.decrypt(*text);
        if (!auth(QString::fromLatin1(text->additionalData))) {
            throw std::system_error(KeyExchangeError::invalidAdditionalData);
        }
        return plaintext;
    }
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
