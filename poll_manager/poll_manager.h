#pragma once

// The application's one link to its helper: runs it, watches its output for life
// and for its public key, and exchanges sealed requests with it over loopback HTTP.

#include <QByteArray>
#include <QFuture>
#include <QJsonValue>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QUrl>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <system_error>
#include <type_traits>

#include "exchange.h"
#include "key_exchange/key_exchange.h"
#include "process_manager/process_manager.h"

class HttpConnection;
class QTimer;
class TransportWorker;

// An answer read as plain JSON, for callers that try several shapes in turn.
template <>
struct json::Reader<QJsonValue> {
    static QJsonValue read(const QJsonValue& value) { return value; }
};

enum class PollManagerError : std::uint8_t {
    urlError,
    publishFailure,
};

const std::error_category& PollManagerErrorCategory();
std::error_code make_error_code(PollManagerError error);

template <>
struct std::is_error_code_enum<PollManagerError> : std::true_type {};

using KeyExchangeStoreFunction = std::function<std::unique_ptr<KeyExchangeStore>()>;

// Store factories with an empty helper key; a constructor failure stops the program.
std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA256_HKDF_AESGCM();
std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA384_HKDF_AESGCM();
std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA512_HKDF_AESGCM();

class PollManager : public QObject {
    Q_OBJECT

public:
    using Clock = std::function<std::int64_t()>;

    // Lives on the GUI thread, which owns pingCount and the ping timer.
    explicit PollManager(KeyExchangeStoreFunction keyExchangeStoreFunction =
                             KeyExchange_Curve25519_SHA256_HKDF_AESGCM,
                         QObject* parent = nullptr);
    ~PollManager() override;

    const QString& bearerToken() const { return bearerToken_; }
    ProcessManager& processManager() { return processManager_; }
    const KeyExchangeStore& kes() const { return *kes_; }
    std::int64_t pingCount() const { return pingCount_; }
    std::int64_t timestamp() const { return timestamp_.load(); }
    // Freshness is judged against this clock; tests pin it.
    void setClock(Clock clock) { clock_ = std::move(clock); }

    // A healthy helper answers in well under a millisecond, and an answer sealed more than
    // 10 ms before it is checked is refused anyway, so a long wait buys nothing but the
    // time the helper needs to put its answer together. Three seconds leave a helper that is
    // starting, scanning or swapped out ample room, while a stalled one holds the ping loop
    // up for no longer than that. The largest answer is more than ten times that of 10,000
    // watched folders.
    static constexpr HttpLimits defaultRequestLimits{std::chrono::seconds(3), 32 * 1024 * 1024};
    // For the requests sent from now on.
    void setRequestLimits(const HttpLimits& limits) { requestLimits_ = limits; }

    void pong();
    QByteArray keyExchangeCurrentTimestampData() const;
    std::int64_t randomOpenPort(std::int64_t lower, std::int64_t upper) const;
    void exitAppIfAlreadyOpen() const;
    QString systemArchitecture() const;

    template <JSONEncodable T>
    QString objectAsString(const T& value) const {
        return QString::fromUtf8(JSONEncode(value));
    }

    // True for a timestamp newer than every one accepted so far and at most
    // 10 ms old; the check and the store are one atomic step, since answers
    // are opened concurrently.
    bool authTimestamp(const QString& additionalData);

    template <JSONDecodable T>
    T decryptAndDecodeJSON(QByteArrayView data, const KeyExchangeStore& store,
                           const KeyExchangeAuth& auth) const {
        (void)store.ExternalPublicKey();
        const auto envelope = JSONDecode<KeyExchangeAEADStore>(data);
        T value = JSONDecode<T>(store.decryptAEADStore(envelope));
        checkAuth(envelope, auth);
        return value;
    }
    // The same checks, for a caller that reads the plaintext JSON itself.
    QByteArray decryptJSONText(QByteArrayView data, const KeyExchangeStore& store,
                               const KeyExchangeAuth& auth) const;
    // A received answer opened the way requestJSONText opens it: with this manager's store,
    // and fresh by authTimestamp. Throws std::system_error when it is not. The envelope is
    // read from its bytes as they came, and the folders in it are not parsed before the
    // freshness check: at 10,000 folders the window is what the answer's size allows.
    QByteArray openAnswer(QByteArrayView body);

    // POSTs the value's JSON to http://127.0.0.1:port/path; the future holds the
    // body of a 200 answer, or the error.
    template <JSONEncodable T>
    QFuture<QByteArray> publishLocal(const T& value, std::int64_t port, const QString& path,
                                     const QString& bearerToken) {
        const QUrl url = LocalURL(port, path);
        if (!url.isValid()) {
            return failed<QByteArray>(PollManagerError::urlError);
        }
        return publishWithURL(value, url, bearerToken);
    }
    template <JSONEncodable T>
    QFuture<QByteArray> publishWithURL(const T& value, const QUrl& url,
                                       const QString& bearerToken) {
        return post(JSONEncode(value), url, bearerToken);
    }

    // Seals the request with a fresh timestamp, posts it and opens the answer,
    // checking it with authTimestamp, all on the transport thread, so a busy GUI
    // thread never pushes an answer past its freshness window. The future holds
    // the answer's JSON. Requests, like the limits, are made from the manager's own
    // thread; they go out one after another on one connection.
    QFuture<QJsonValue> request(const KeyExchangeTypeIDAndData& message, std::int64_t port,
                                const QString& path);
    // The same for a message already encoded as JSON; the future holds the
    // answer's plaintext JSON, for callers that read it their own way.
    QFuture<QByteArray> requestJSONText(QByteArray messageJSON, std::int64_t port,
                                        const QString& path);

    // A request repeated for as long as the helper runs. It lives on the transport thread:
    // `interval` after it starts and after each exchange ends, `message` gives the JSON to
    // send, which goes out as requestJSONText sends it, and `answered` gets the answer's
    // plaintext JSON, or nothing when the exchange failed. Both run on the transport thread,
    // so a ping at rest wakes no other thread of the application.
    struct RequestLoop {
        std::chrono::milliseconds interval;
        std::function<QByteArray()> message;
        std::function<void(std::optional<QByteArray>)> answered;
    };
    // Replaces an earlier loop; from the manager's own thread.
    void startRequestLoop(std::int64_t port, const QString& path, RequestLoop loop);
    void stopRequestLoop();
    // Ends every exchange at once, the loop's as well, and waits until none runs: after it,
    // no callback of a request or of the loop is called, and new requests fail as cancelled.
    void stopTransport();

    // Stands in for sealing, posting and opening: the future holds the answer's JSON text, or
    // fails as a transport does. The loop waits for it on the transport thread, so it must
    // finish. For models tried without a helper.
    using ExchangeStandIn = std::function<QFuture<QByteArray>(const QByteArray& messageJSON)>;
    void setExchangeStandIn(ExchangeStandIn standIn) { exchangeStandIn_ = std::move(standIn); }

    // No silence watch unless a caller asks for one.
    static constexpr double defaultPingTimeLimit = 0.0;

    // One chunk of the helper's output, as one read returned it: a public key block in it
    // becomes the helper's key; a block that is no key ends the helper's run.
    void watchForKeyBlock(const QString& chunk);

    // Blocks until the helper's run loop ends: call it from a background thread.
    // standardOutput runs on the pipe reader's thread; pingTimeout on the GUI thread.
    void subscribeWithBinary(const std::optional<QString>& binURL, bool withRetry,
                             bool withPEMWatcher, double pingTimeLimit,
                             std::function<void()> pingTimeout,
                             ProcessManager::StandardOutput standardOutput,
                             ProcessManager::TaskExitNotification taskExitNotification);

    static QUrl LocalURL(std::int64_t port, const QString& path);

private:
    QFuture<QByteArray> post(QByteArray body, const QUrl& url, const QString& bearerToken);
    static QByteArray headerLines(const QString& bearerToken);
    // A future that already holds the error.
    template <typename T>
    static QFuture<T> failed(std::error_code error) {
        QPromise<T> promise;
        promise.start();
        promise.setException(std::make_exception_ptr(std::system_error(error)));
        promise.finish();
        return promise.future();
    }
    static void checkAuth(const KeyExchangeAEADStore& envelope, const KeyExchangeAuth& auth);
    struct RequestEndpoint;
    // The loop asks for the same address ten times a second; it is built once for it.
    const RequestEndpoint* endpoint(std::int64_t port, const QString& path);
    // Seals, posts and opens on the transport thread; throws what a failed exchange throws.
    QByteArray exchange(HttpConnection& connection, const QByteArray& messageJSON,
                        const RequestEndpoint& endpoint, const HttpLimits& limits);
    void startPingTimer(double pingTimeLimit, std::function<void()> pingTimeout);

    QString bearerToken_;
    KeyExchangeStoreFunction keyExchangeStoreFunction_;
    std::unique_ptr<KeyExchangeStore> kes_;
    // After the store, so that it goes first: its destructor waits for the run
    // loop, whose output handler still uses the store.
    ProcessManager processManager_;
    QTimer* timer_ = nullptr;
    std::int64_t pingCount_ = 0;
    std::atomic<std::int64_t> timestamp_;
    Clock clock_;

    HttpLimits requestLimits_ = defaultRequestLimits;
    struct RequestEndpoint {
        std::int64_t port;
        QString path;
        QString host;
        QByteArray target;
    };
    std::optional<RequestEndpoint> requestEndpoint_;
    QByteArray requestHeaders_;  // the header lines every request to the helper carries
    ExchangeStandIn exchangeStandIn_;
    // Last, so that it goes first: its jobs use the store and the freshness check.
    std::unique_ptr<TransportWorker> worker_;
};
