// Project Wycheproof vectors run through the package's public operations.
//
// Each file is one test; every case in it must behave as its label says, and the test
// prints how the cases were settled (see VectorTally). Where the package's fixed wire
// formats cannot carry a case's input, the case is counted as refused by design; the
// comments at each test say which cases those are and why.

#include <gtest/gtest.h>

#include <QJsonArray>
#include <algorithm>

#include "key_exchange/key_exchange.h"
#include "key_exchange/test_vectors_support.h"

namespace {

using test_vectors::attempt;
using test_vectors::hexField;
using test_vectors::Label;
using test_vectors::labelOf;
using test_vectors::PrintTo;
using test_vectors::VectorTally;

int numberOfTests(const QJsonObject& file) {
    return static_cast<int>(file.value(QLatin1String("numberOfTests")).toInteger());
}

QByteArray agree(KeyExchangeCurve curve, const QByteArray& rawPrivate,
                 const QByteArray& rawPublic) {
    const auto privateKey = KeyAgreementPrivateKey::fromRawRepresentation(curve, rawPrivate);
    const auto publicKey = KeyAgreementPublicKey::fromRawRepresentation(curve, rawPublic);
    return privateKey.sharedSecretFromKeyAgreement(publicKey).data();
}

// ---------------------------------------------------------------------------
// X25519

// There are no invalid cases. The acceptable ones (twist points, low-order points,
// non-canonical u-coordinates) must give the listed secret, with one exception: when that
// secret is all zero, OpenSSL refuses the agreement, as RFC 7748 recommends, so a
// refusal is the only other outcome allowed, and only for those cases.
TEST(WycheproofVectors, X25519) {
    const QJsonObject file = test_vectors::loadWycheproofFile(QStringLiteral("x25519_test.json"));
    VectorTally tally(QStringLiteral("x25519_test.json"), numberOfTests(file));
    test_vectors::forEachCase(file, [&](const QJsonObject&, const QJsonObject& test) {
        SCOPED_TRACE(test_vectors::caseName(test));
        const QByteArray shared = hexField(test, "shared");
        const auto got = attempt([&] {
            return agree(KeyExchangeCurve::curve25519, hexField(test, "private"),
                         hexField(test, "public"));
        });
        const bool allZero =
            std::all_of(shared.begin(), shared.end(), [](char b) { return b == 0; });
        if (labelOf(test) == Label::acceptable && allZero) {
            tally.expectRefusedAsLabelled(got, CryptoError::keyAgreementFailure);
        } else {
            tally.expectOutput(got, shared);
        }
    });
    tally.report();
}

// ---------------------------------------------------------------------------
// ECDH on the NIST curves

// The files give private keys as big-endian integers of any width and public keys as SEC1
// points. The package's raw forms are the scalar at the field's byte width and the
// uncompressed point without its leading 0x04, so:
// - private keys are left-padded with zeros, or stripped of leading zeros, to that width;
// - an uncompressed point loses its 0x04 and must then agree (valid) or be refused at
//   import or agreement (invalid: points off the curve);
// - any other encoding (compressed 02/03 points, the empty key) has no raw form. It is fed
//   both as it stands and without its first byte (the X coordinate alone); both must be
//   refused. The one acceptable case per curve is a correctly compressed key, which the
//   raw form cannot express, so its refusal is counted as refused by design.
struct EcdhFile {
    const char* label;
    const char* name;
    KeyExchangeCurve curve;
    qsizetype scalarBytes;
};

QByteArray fixedWidthScalar(QByteArray bigEndian, qsizetype width) {
    while (bigEndian.size() > width && bigEndian.front() == '\0') {
        bigEndian.remove(0, 1);
    }
    if (bigEndian.size() > width) {
        throw std::invalid_argument("private key wider than the curve's scalar");
    }
    return QByteArray(width - bigEndian.size(), '\0') + bigEndian;
}

class WycheproofEcdh : public ::testing::TestWithParam<EcdhFile> {};

TEST_P(WycheproofEcdh, EveryCaseBehavesAsLabelled) {
    const EcdhFile& ecdh = GetParam();
    const QJsonObject file = test_vectors::loadWycheproofFile(QString::fromLatin1(ecdh.name));
    VectorTally tally(QString::fromLatin1(ecdh.name), numberOfTests(file));
    const qsizetype uncompressedBytes = 1 + 2 * ecdh.scalarBytes;
    test_vectors::forEachCase(file, [&](const QJsonObject&, const QJsonObject& test) {
        SCOPED_TRACE(test_vectors::caseName(test));
        const QByteArray rawPrivate = fixedWidthScalar(hexField(test, "private"), ecdh.scalarBytes);
        const QByteArray point = hexField(test, "public");
        const QByteArray shared = hexField(test, "shared");
        const Label label = labelOf(test);

        if (point.size() == uncompressedBytes && point.front() == '\x04') {
            const auto got = attempt([&] { return agree(ecdh.curve, rawPrivate, point.mid(1)); });
            if (label == Label::invalid) {
                tally.expectRefusedAsLabelled(got, CryptoErrorCategory());
            } else {
                tally.expectOutput(got, shared);
            }
            return;
        }

        ASSERT_NE(label, Label::valid) << "a valid case without an uncompressed point";
        const auto asGiven = attempt([&] { return agree(ecdh.curve, rawPrivate, point); });
        if (!point.isEmpty()) {
            const auto withoutPrefix =
                attempt([&] { return agree(ecdh.curve, rawPrivate, point.mid(1)); });
            EXPECT_EQ(withoutPrefix.error, CryptoError::invalidKeyRepresentation);
        }
        if (label == Label::acceptable) {
            tally.expectRefusedByDesign(asGiven, CryptoError::invalidKeyRepresentation);
        } else {
            tally.expectRefusedAsLabelled(asGiven, CryptoError::invalidKeyRepresentation);
        }
    });
    tally.report();
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(WycheproofVectors, WycheproofEcdh, ::testing::Values(
    EcdhFile{"P256", "ecdh_secp256r1_ecpoint_test.json", KeyExchangeCurve::p256, 32},
    EcdhFile{"P384", "ecdh_secp384r1_ecpoint_test.json", KeyExchangeCurve::p384, 48},
    EcdhFile{"P521", "ecdh_secp521r1_ecpoint_test.json", KeyExchangeCurve::p521, 66}),
    test_vectors::labelName<EcdhFile>);
// clang-format on

// ---------------------------------------------------------------------------
// AEAD

// The package carries a sealed message in one layout: 12-byte nonce, ciphertext, 16-byte
// tag. Cases with a 96-bit nonce are therefore checked both ways: a valid one must seal to
// exactly nonce || ct || tag, open again, and take the same road through the base64
// AEADEncrypt / AEADDecrypt; an invalid one (a changed tag) must fail authentication.
// A nonce of any other size cannot be written into that layout, so sealing must refuse
// it; for valid cases that refusal is counted as refused by design, for the invalid ones
// (zero-length or wrong-size nonces) as refused as labelled.
struct AeadFile {
    const char* label;
    const char* name;
    KeyExchangeAEAD aead;
    SealedBox (*seal)(const SymmetricKey&, QByteArrayView, QByteArrayView, QByteArrayView);
    QByteArray (*open)(const SymmetricKey&, QByteArrayView, QByteArrayView);
};

class WycheproofAead : public ::testing::TestWithParam<AeadFile> {};

TEST_P(WycheproofAead, EveryCaseBehavesAsLabelled) {
    const AeadFile& aead = GetParam();
    const QJsonObject file = test_vectors::loadWycheproofFile(QString::fromLatin1(aead.name));
    VectorTally tally(QString::fromLatin1(aead.name), numberOfTests(file));
    test_vectors::forEachCase(file, [&](const QJsonObject& group, const QJsonObject& test) {
        SCOPED_TRACE(test_vectors::caseName(test));
        const SymmetricKey key(hexField(test, "key"));
        const QByteArray iv = hexField(test, "iv");
        const QByteArray aad = hexField(test, "aad");
        const QByteArray msg = hexField(test, "msg");
        const QByteArray combined = iv + hexField(test, "ct") + hexField(test, "tag");
        const Label label = labelOf(test);
        const auto sealed = attempt([&] { return aead.seal(key, msg, iv, aad).combined(); });

        if (group.value(QLatin1String("ivSize")).toInteger() != 96) {
            if (label == Label::invalid) {
                tally.expectRefusedAsLabelled(sealed, CryptoError::incorrectParameterSize);
            } else {
                tally.expectRefusedByDesign(sealed, CryptoError::incorrectParameterSize);
            }
            return;
        }

        const QString combinedText = QString::fromLatin1(combined.toBase64());
        const QString aadText = QString::fromLatin1(aad.toBase64());
        const QString unusedNonceText;
        const auto opened = attempt([&] { return aead.open(key, combined, aad); });
        const auto openedFromText = attempt(
            [&] { return AEADDecrypt(aead.aead, key, combinedText, unusedNonceText, aadText); });
        if (label == Label::invalid) {
            tally.expectRefusedAsLabelled(opened, CryptoError::authenticationFailure);
            EXPECT_EQ(openedFromText.error, CryptoError::authenticationFailure);
            return;
        }
        const auto sealedText = attempt([&] { return AEADEncrypt(aead.aead, key, msg, iv, aad); });
        EXPECT_EQ(sealedText.value, combinedText);
        EXPECT_EQ(openedFromText.value, msg);
        EXPECT_EQ(sealed.value, combined);
        tally.expectOutput(opened, msg);
    });
    tally.report();
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(WycheproofVectors, WycheproofAead, ::testing::Values(
    AeadFile{"AESGCM", "aes_gcm_test.json", KeyExchangeAEAD::aesgcm,
             &AESGCMEncrypt, &AESGCMDecrypt},
    AeadFile{"ChaChaPoly", "chacha20_poly1305_test.json", KeyExchangeAEAD::chachapoly,
             &ChaChaPolyEncrypt, &ChaChaPolyDecrypt}),
    test_vectors::labelName<AeadFile>);
// clang-format on

// ---------------------------------------------------------------------------
// HKDF

// The package always derives exactly one digest length of key (32, 48 or 64 bytes) and
// cannot be asked for another. HKDF's expand step makes its output block by block, each
// block depending only on the previous one, so the first N bytes are the same for any
// output length of at least N. Every case is therefore compared on the common prefix:
// the whole expected output when it is shorter than a digest, the first digest length
// of it when it is longer, and exactly when the sizes agree.
//
// The invalid cases ask for more than 255 digests of output, which HKDF forbids; the
// package never asks for more than one digest, so those cases cannot be put to it and
// are skipped.
struct HkdfFile {
    const char* label;
    const char* name;
    HashFunction hash;
};

class WycheproofHkdf : public ::testing::TestWithParam<HkdfFile> {};

TEST_P(WycheproofHkdf, EveryCaseBehavesAsLabelled) {
    const HkdfFile& hkdf = GetParam();
    const QJsonObject file = test_vectors::loadWycheproofFile(QString::fromLatin1(hkdf.name));
    VectorTally tally(QString::fromLatin1(hkdf.name), numberOfTests(file));
    const qsizetype digestBytes = DigestByteCount(hkdf.hash);
    test_vectors::forEachCase(file, [&](const QJsonObject&, const QJsonObject& test) {
        SCOPED_TRACE(test_vectors::caseName(test));
        if (labelOf(test) == Label::invalid) {
            tally.skip();
            return;
        }
        const QByteArray okm = hexField(test, "okm");
        const qsizetype common = std::min(digestBytes, okm.size());
        const auto got = attempt([&] {
            const SymmetricKey key = KeyExchangeSymmetricKey(
                SharedSecret(hexField(test, "ikm")), hkdf.hash, KeyExchangeKDF::hkdf,
                hexField(test, "salt"), hexField(test, "info"));
            EXPECT_EQ(key.size(), digestBytes);
            return key.data().left(common);
        });
        tally.expectOutput(got, okm.left(common));
    });
    tally.report();
}

// clang-format off
INSTANTIATE_TEST_SUITE_P(WycheproofVectors, WycheproofHkdf, ::testing::Values(
    HkdfFile{"SHA256", "hkdf_sha256_test.json", HashFunction::SHA256},
    HkdfFile{"SHA384", "hkdf_sha384_test.json", HashFunction::SHA384},
    HkdfFile{"SHA512", "hkdf_sha512_test.json", HashFunction::SHA512}),
    test_vectors::labelName<HkdfFile>);
// clang-format on

}  // namespace
