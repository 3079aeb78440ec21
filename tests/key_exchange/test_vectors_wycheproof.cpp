// Project Wycheproof vectors through the package's public operations. Every case of every
// file must behave as its label says: valid and acceptable ones give the listed output unless
// the comment at their test says why they are refused, invalid ones are refused.

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <algorithm>
#include <cstdio>
#include <functional>
#include <ostream>
#include <system_error>
#include <tuple>
#include <utility>
#include <variant>

#include "key_exchange/key_exchange.h"

// What an operation gave: nothing (the case was skipped), its output, or its refusal.
using Outcome = std::variant<std::monostate, QByteArray, std::error_code>;

// Failure messages show bytes as hex.
void PrintTo(const QByteArray& bytes, std::ostream* out) {
    *out << bytes.toHex().toStdString();
}

namespace {

// The package refuses by throwing std::system_error; anything else is a fault and propagates.
template <typename F>
Outcome attempt(F&& call) {
    try {
        return Outcome(call());
    } catch (const std::system_error& refusal) {
        return refusal.code();
    }
}

struct Check {
    Outcome got;
    Outcome wanted;
};

QByteArray hexField(const QJsonObject& test, const char* key) {
    const QString text = test[key].toString();
    const QByteArray bytes = QByteArray::fromHex(text.toLatin1());
    // fromHex skips what it does not understand, which would hide a broken file.
    EXPECT_EQ(QString::fromLatin1(bytes.toHex()), text.toLower()) << key << " is not hex";
    return bytes;
}

bool labelled(const QJsonObject& test, const char* label) {
    return test["result"].toString() == QLatin1String(label);
}

// Runs check on every case of tests/data/wycheproof/<name> and prints how they were settled.
void forEachCase(
    const char* name,
    const std::function<Check(const QJsonObject& group, const QJsonObject& test)>& check) {
    QFile file(QStringLiteral(BRISVANE_TEST_DATA_DIR "/wycheproof/") + QLatin1String(name));
    ASSERT_TRUE(file.open(QIODevice::ReadOnly)) << name;
    const QJsonObject root = QJsonDocument::fromJson(file.readAll()).object();
    int cases = 0, validRefused = 0, settled[3] = {};  // skipped, passed, refused
    for (const QJsonValue& group : root["testGroups"].toArray()) {
        for (const QJsonValue& value : group["tests"].toArray()) {
            const QJsonObject test = value.toObject();
            SCOPED_TRACE("tcId " + std::to_string(test["tcId"].toInt()) + ": " +
                         test["comment"].toString().toStdString());
            ++cases;
            const Check result = check(group.toObject(), test);
            // No invalid case may be expected to give an output.
            EXPECT_FALSE(labelled(test, "invalid") && result.wanted.index() == 1);
            EXPECT_EQ(result.got, result.wanted);
            if (result.got == result.wanted) {
                ++settled[result.got.index()];
                validRefused += result.got.index() == 2 && labelled(test, "valid");
            }
        }
    }
    std::printf("%s: %d cases, %d run, %d passed, %d refused (%d of them valid), %d skipped\n",
                name, cases, cases - settled[0], settled[1], settled[2], validRefused, settled[0]);
    EXPECT_EQ(cases, root["numberOfTests"].toInt()) << name;
}

Outcome agree(KeyExchangeCurve curve, const QByteArray& rawPrivate, const QByteArray& rawPublic) {
    return attempt([&] {
        return KeyAgreementPrivateKey::fromRawRepresentation(curve, rawPrivate)
            .sharedSecretFromKeyAgreement(
                KeyAgreementPublicKey::fromRawRepresentation(curve, rawPublic))
            .data();
    });
}

// No case is invalid. The acceptable ones (twist and low-order points, non-canonical
// u-coordinates) must give the listed secret, except where that secret is all zero: OpenSSL
// refuses those, as RFC 7748 recommends, and only those may be refused.
TEST(WycheproofVectors, X25519) {
    forEachCase("x25519_test.json", [](const QJsonObject&, const QJsonObject& test) {
        const QByteArray shared = hexField(test, "shared");
        const bool zero = labelled(test, "acceptable") && shared == QByteArray(shared.size(), '\0');
        return Check{agree(KeyExchangeCurve::curve25519, hexField(test, "private"),
                           hexField(test, "public")),
                     zero ? Outcome(CryptoError::keyAgreementFailure) : Outcome(shared)};
    });
}

// Private keys are big-endian integers of any width, public keys SEC1 points. The raw forms
// are the scalar at the curve's width and the uncompressed point without its 0x04: such a
// point must agree, or be refused when invalid (off the curve). Any other encoding (compressed,
// empty) has no raw form and must be refused as given and without its first byte; the one
// acceptable case per curve is a compressed point, so it is refused too.
TEST(WycheproofVectors, Ecdh) {
    constexpr std::tuple<const char*, KeyExchangeCurve, qsizetype> kFiles[] = {
        {"ecdh_secp256r1_ecpoint_test.json", KeyExchangeCurve::p256, 32},
        {"ecdh_secp384r1_ecpoint_test.json", KeyExchangeCurve::p384, 48},
        {"ecdh_secp521r1_ecpoint_test.json", KeyExchangeCurve::p521, 66}};
    const Outcome badKey = CryptoError::invalidKeyRepresentation;
    for (const auto& [name, curve, scalarBytes] : kFiles) {
        forEachCase(name, [&](const QJsonObject&, const QJsonObject& test) {
            const QByteArray scalar =
                (QByteArray(scalarBytes, '\0') + hexField(test, "private")).right(scalarBytes);
            const QByteArray point = hexField(test, "public");
            if (point.size() == 1 + 2 * scalarBytes && point.startsWith('\x04')) {
                return Check{
                    agree(curve, scalar, point.mid(1)),
                    labelled(test, "invalid") ? badKey : Outcome(hexField(test, "shared"))};
            }
            EXPECT_FALSE(labelled(test, "valid"));
            EXPECT_TRUE(point.isEmpty() || agree(curve, scalar, point.mid(1)) == badKey);
            return Check{agree(curve, scalar, point), badKey};
        });
    }
}

// A sealed message has one layout, base64 of 12-byte nonce || ciphertext || 16-byte tag. With
// a 96-bit nonce a valid case must seal to exactly that and open again, and an invalid one (a
// changed tag) must fail authentication. No other nonce size fits the layout, so sealing must
// refuse it, valid case or not.
TEST(WycheproofVectors, Aead) {
    constexpr std::pair<const char*, KeyExchangeAEAD> kFiles[] = {
        {"aes_gcm_test.json", KeyExchangeAEAD::aesgcm},
        {"chacha20_poly1305_test.json", KeyExchangeAEAD::chachapoly}};
    for (const auto& [name, aead] : kFiles) {
        forEachCase(name, [&](const QJsonObject& group, const QJsonObject& test) {
            const SymmetricKey key(hexField(test, "key"));
            const QByteArray iv = hexField(test, "iv"), aad = hexField(test, "aad");
            const QByteArray msg = hexField(test, "msg");
            const QByteArray combined =
                (iv + hexField(test, "ct") + hexField(test, "tag")).toBase64();
            const Outcome sealed =
                attempt([&] { return AEADEncrypt(aead, key, msg, iv, aad).toLatin1(); });
            if (group["ivSize"].toInt() != 96) {
                return Check{sealed, CryptoError::incorrectParameterSize};
            }
            if (!labelled(test, "invalid")) {
                EXPECT_EQ(sealed, Outcome(combined));
            }
            return Check{attempt([&] {
                             return AEADDecrypt(aead, key, QString::fromLatin1(combined), {},
                                                QString::fromLatin1(aad.toBase64()));
                         }),
                         labelled(test, "invalid") ? Outcome(CryptoError::authenticationFailure)
                                                   : Outcome(msg)};
        });
    }
}

// The package derives exactly one digest length of key and cannot be asked for another.
// HKDF's expand step makes its output block by block, so the first N bytes are the same for
// any length of at least N: each case is compared on the common prefix. The invalid cases ask
// for more than 255 digests, which the package can never be asked for, so they are skipped.
TEST(WycheproofVectors, Hkdf) {
    constexpr std::pair<const char*, HashFunction> kFiles[] = {
        {"hkdf_sha256_test.json", HashFunction::SHA256},
        {"hkdf_sha384_test.json", HashFunction::SHA384},
        {"hkdf_sha512_test.json", HashFunction::SHA512}};
    for (const auto& [name, hash] : kFiles) {
        forEachCase(name, [&](const QJsonObject&, const QJsonObject& test) {
            if (labelled(test, "invalid")) {
                return Check{};
            }
            const QByteArray okm = hexField(test, "okm");
            const qsizetype common = std::min<qsizetype>(DigestByteCount(hash), okm.size());
            return Check{attempt([&] {
                             const SymmetricKey key = KeyExchangeSymmetricKey(
                                 SharedSecret(hexField(test, "ikm")), hash, KeyExchangeKDF::hkdf,
                                 hexField(test, "salt"), hexField(test, "info"));
                             EXPECT_EQ(key.size(), DigestByteCount(hash));
                             return key.data().left(common);
                         }),
                         okm.left(common)};
        });
    }
}

}  // namespace
