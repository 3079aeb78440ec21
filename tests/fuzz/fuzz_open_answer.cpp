// A received answer's body opened as the poll manager opens it: authentic under the store,
// then fresh by the manager's clock and newer than every answer accepted before. Held to a
// model: a second store with the same keys says whether it is authentic, and the window is
// written out here.

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

#include "fuzz_check.h"
#include "key_exchange/key_exchange.h"
#include "poll_manager/poll_manager.h"

namespace {

// The seeds are sealed up to 10 ms before this moment (2100-01-01T00:00:00.010Z), far past any
// timestamp a manager starts from, so that only the window decides.
constexpr std::int64_t kNow = 4'102'444'800'010;
constexpr std::int64_t kWindow = 10;

// RFC 7748, section 6.1: the seeds were sealed with Bob's private key for Alice.
std::unique_ptr<KeyExchangeStore> pairedStore() {
    auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(
        QStringLiteral("3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08="));
    store->resetPrivateKey(QStringLiteral("dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo="));
    return store;
}

// Base64 exactly as an encoder writes it; anything else stops the program on purpose.
bool isStrictBase64(const QString& text) {
    const QByteArray latin1 = text.toLatin1();
    return QByteArray::fromBase64(latin1).toBase64() == latin1;
}

// The plaintext when the envelope is authentic, or why it is not.
struct Authentic {
    std::optional<QByteArray> plaintext;
    std::error_code refusal;
};

Authentic openedByModel(const KeyExchangeAEADStore& envelope) {
    static const std::unique_ptr<KeyExchangeStore> store = pairedStore();
    try {
        return {store->decryptAEADStore(envelope), {}};
    } catch (const std::system_error& refusal) {
        return {std::nullopt, refusal.code()};
    }
}

bool isFresh(const QString& additionalData) {
    const std::optional<std::int64_t> sealedAt = KeyExchangeTimestamp(additionalData);
    return sealedAt && *sealedAt <= kNow && kNow - *sealedAt <= kWindow;
}

std::optional<QByteArray> opened(PollManager& manager, const QByteArray& body,
                                 std::error_code& refusal) {
    try {
        return manager.openAnswer(body);
    } catch (const std::system_error& error) {
        refusal = error.code();
        return std::nullopt;
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
    static QCoreApplication application(*argc, *argv);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QByteArray body(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    PollManager manager(pairedStore);
    manager.setClock([] { return kNow; });
    const std::int64_t startedFrom = manager.timestamp();

    KeyExchangeAEADStore envelope;
    try {
        envelope = JSONDecode<KeyExchangeAEADStore>(body);
    } catch (const std::system_error& refusal) {
        std::error_code error;
        FUZZ_CHECK(!opened(manager, body, error));
        FUZZ_CHECK(error == refusal.code());
        return 0;
    }
    if (!isStrictBase64(envelope.kdfNonce) || !isStrictBase64(envelope.ciphertext) ||
        !isStrictBase64(envelope.additionalData)) {
        return -1;
    }

    const Authentic model = openedByModel(envelope);
    std::error_code refusal;
    const std::optional<QByteArray> plaintext = opened(manager, body, refusal);
    if (!model.plaintext) {
        FUZZ_CHECK(!plaintext && refusal == model.refusal);
        FUZZ_CHECK(manager.timestamp() == startedFrom);
    } else if (!isFresh(envelope.additionalData)) {
        FUZZ_CHECK(!plaintext && refusal == KeyExchangeError::invalidAdditionalData);
        FUZZ_CHECK(manager.timestamp() == startedFrom);
    } else {
        FUZZ_CHECK(plaintext == model.plaintext);
        FUZZ_CHECK(manager.timestamp() == KeyExchangeTimestamp(envelope.additionalData));
        // The same answer again is a replay.
        FUZZ_CHECK(!opened(manager, body, refusal));
        FUZZ_CHECK(refusal == KeyExchangeError::invalidAdditionalData);
    }
    return 0;
}
