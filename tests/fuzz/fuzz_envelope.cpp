// A received message as the transport gets it: text decoded as a sealed envelope and
// opened by a paired store, then the plaintext decoded as a request; and the
// envelope's additional data read as a timestamp, held to a model written here.

#include <QByteArray>
#include <QString>
#include <QStringView>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <system_error>

#include "fuzz_check.h"
#include "key_exchange/key_exchange.h"

namespace {

// RFC 7748, section 6.1: Alice's private key and Bob's public key. The seed envelopes
// were sealed with Bob's private key for Alice, so this store opens them.
constexpr auto kAlicePrivate = "dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo=";
constexpr auto kBobPublic = "3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08=";

const KeyExchangeStore& pairedStore() {
    static const std::unique_ptr<KeyExchangeStore> store = [] {
        auto made =
            KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(QString::fromLatin1(kBobPublic));
        made->resetPrivateKey(QString::fromLatin1(kAlicePrivate));
        return made;
    }();
    return *store;
}

int base64Value(char16_t c) {
    if (c >= u'A' && c <= u'Z') {
        return c - u'A';
    }
    if (c >= u'a' && c <= u'z') {
        return c - u'a' + 26;
    }
    if (c >= u'0' && c <= u'9') {
        return c - u'0' + 52;
    }
    if (c == u'+') {
        return 62;
    }
    if (c == u'/') {
        return 63;
    }
    return -1;
}

// Standard base64 as the encoder writes it: whole 4-character groups, "=" only as the
// last one or two characters, and zero in the bits the padding leaves unused. Texts
// outside this make the package stop the program on purpose when it opens them.
bool isStrictBase64(QStringView text) {
    const qsizetype size = text.size();
    if (size % 4 != 0) {
        return false;
    }
    qsizetype padding = 0;
    while (padding < 2 && padding < size && text[size - 1 - padding] == u'=') {
        ++padding;
    }
    for (qsizetype i = 0; i < size - padding; ++i) {
        if (base64Value(text[i].unicode()) < 0) {
            return false;
        }
    }
    if (padding == 0) {
        return true;
    }
    const int last = base64Value(text[size - 1 - padding].unicode());
    return (last & (padding == 1 ? 0x3 : 0xf)) == 0;
}

// Digits with an optional minus sign, within 64 bits. A leading "+" is left open: a
// decimal parser may take it or not.
enum class Decimal { yes, no, either };

Decimal isDecimalInt64(const QByteArray& bytes, std::int64_t* value) {
    qsizetype i = 0;
    bool negative = false;
    Decimal sign = Decimal::yes;
    if (!bytes.isEmpty() && (bytes[0] == '-' || bytes[0] == '+')) {
        negative = bytes[0] == '-';
        sign = negative ? Decimal::yes : Decimal::either;
        i = 1;
    }
    if (i == bytes.size()) {
        return Decimal::no;
    }
    // Accumulate towards the sign so that the most negative value fits.
    std::int64_t total = 0;
    for (; i < bytes.size(); ++i) {
        const char c = bytes[i];
        if (c < '0' || c > '9') {
            return Decimal::no;
        }
        const int digit = c - '0';
        if (negative ? total < (std::numeric_limits<std::int64_t>::min() + digit) / 10
                     : total > (std::numeric_limits<std::int64_t>::max() - digit) / 10) {
            return Decimal::no;
        }
        total = total * 10 + (negative ? -digit : digit);
    }
    *value = total;
    return sign;
}

void checkTimestamp(const QString& additionalData) {
    const std::optional<std::int64_t> timestamp = KeyExchangeTimestamp(additionalData);
    if (!isStrictBase64(additionalData)) {
        FUZZ_CHECK(!timestamp);
        return;
    }
    std::int64_t value = 0;
    switch (isDecimalInt64(QByteArray::fromBase64(additionalData.toLatin1()), &value)) {
        case Decimal::yes:
            FUZZ_CHECK(timestamp == value);
            break;
        case Decimal::no:
            FUZZ_CHECK(!timestamp);
            break;
        case Decimal::either:
            FUZZ_CHECK(!timestamp || *timestamp == value);
            break;
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
        FUZZ_CHECK(KeyExchangeTimestamp(envelope.additionalData).has_value());
        FUZZ_CHECK(JSONDecode<KeyExchangeTypeIDAndData>(JSONEncode(request)) == request);
    } catch (const std::system_error& refusal) {
        // Not authentic, not a request, or a refused timestamp: all are thrown, and the
        // store stays paired whatever the message held.
        FUZZ_CHECK(refusal.code() != KeyExchangeError::publicKeyNotSet);
        FUZZ_CHECK(authCalls == 0 || refusal.code() == KeyExchangeError::invalidAdditionalData);
    }
    return 0;
}
