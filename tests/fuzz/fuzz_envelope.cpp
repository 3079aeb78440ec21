// A received message as the transport gets it: text decoded as a sealed envelope and
// opened by a paired store, then the plaintext decoded as a request; and the
// envelope's additional data read as a timestamp, held to a model written here.

#include <QByteArray>
#include <QString>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <system_error>

#include "fuzz_check.h"
#include "key_exchange/key_exchange.h"

namespace {

// RFC 7748, section 6.1: the seed envelopes were sealed with Bob's private key for Alice, so
// a store holding Alice's private key and Bob's public key opens them.
const KeyExchangeStore& pairedStore() {
    static const auto store = [] {
        auto made = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(
            QStringLiteral("3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08="));
        made->resetPrivateKey(QStringLiteral("dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo="));
        return made;
    }();
    return *store;
}

// Base64 exactly as an encoder writes it (Qt's, here). Opening anything else stops the
// program on purpose.
bool isStrictBase64(const QString& text) {
    const QByteArray latin1 = text.toLatin1();
    return QByteArray::fromBase64(latin1).toBase64() == latin1;
}

// Digits with an optional minus sign, within 64 bits.
std::optional<std::int64_t> decimalInt64(const QByteArray& text) {
    std::int64_t value = 0;
    const auto [end, error] = std::from_chars(text.cbegin(), text.cend(), value);
    return error == std::errc() && end == text.cend() ? std::optional(value) : std::nullopt;
}

void checkTimestamp(const QString& additionalData) {
    const std::optional<std::int64_t> timestamp = KeyExchangeTimestamp(additionalData);
    const QByteArray text = QByteArray::fromBase64(additionalData.toLatin1());
    if (!isStrictBase64(additionalData)) {
        FUZZ_CHECK(!timestamp);
    } else if (text.startsWith('+') && !text.startsWith("+-")) {
        // A leading "+" is left open: a decimal parser may take it or not.
        FUZZ_CHECK(!timestamp || timestamp == decimalInt64(text.mid(1)));
    } else {
        FUZZ_CHECK(timestamp == decimalInt64(text));
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const QString text =
        QString::fromUtf8(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    // Look at the envelope first, the way opening the message will decode it.
    KeyExchangeAEADStore envelope;
    try {
        envelope = JSONDecode<KeyExchangeAEADStore>(text.toUtf8());
    } catch (const std::system_error& refusal) {
        FUZZ_CHECK(refusal.code().category() == JSONErrorCategory());
        return 0;
    }
    checkTimestamp(envelope.additionalData);
    if (!isStrictBase64(envelope.kdfNonce) || !isStrictBase64(envelope.ciphertext) ||
        !isStrictBase64(envelope.additionalData)) {
        return -1;
    }

    int authCalls = 0;
    const KeyExchangeAuth auth = [&](const QString& additionalData) {
        ++authCalls;
        FUZZ_CHECK(additionalData == envelope.additionalData);
        return KeyExchangeTimestamp(additionalData).has_value();
    };
    try {
        const auto request = KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
            KeyExchangeSocketMessage::text(text), pairedStore(), auth);
        FUZZ_CHECK(authCalls == 1);
        FUZZ_CHECK(JSONDecode<KeyExchangeTypeIDAndData>(JSONEncode(request)) == request);
    } catch (const std::system_error& refusal) {
        // Not authentic, not a request, or a refused timestamp: all are thrown, and the
        // store stays paired whatever the message held.
        FUZZ_CHECK(refusal.code() != KeyExchangeError::publicKeyNotSet);
        FUZZ_CHECK(authCalls == 0 || refusal.code() == KeyExchangeError::invalidAdditionalData);
    }
    return 0;
}
