#include <gtest/gtest.h>

#include "expect_error.h"
#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

namespace {

struct CurveCase {
    KeyExchangeCurve curve;
    const char* name;
    qsizetype privateChars;
    qsizetype publicChars;
    qsizetype secretBytes;
};

const CurveCase kCurves[] = {
    {KeyExchangeCurve::curve25519, "curve25519", 44, 44, 32},
    {KeyExchangeCurve::p256, "p256", 44, 88, 32},
    {KeyExchangeCurve::p384, "p384", 64, 128, 48},
    {KeyExchangeCurve::p521, "p521", 88, 176, 66},
};

void PrintTo(const CurveCase& test, std::ostream* out) {
    *out << test.name;
}

class CurveKeys : public testing::TestWithParam<CurveCase> {};

INSTANTIATE_TEST_SUITE_P(AllCurves, CurveKeys, testing::ValuesIn(kCurves),
                         [](const auto& test) { return std::string(test.param.name); });

TEST_P(CurveKeys, FreshPairsHaveTheRawSizesAndDiffer) {
    const KeyExchangeLocalKeys first = KeyExchangeCurveKeys(GetParam().curve, {});
    const KeyExchangeLocalKeys second = KeyExchangeCurveKeys(GetParam().curve, {});
    EXPECT_EQ(first.privateKey.size(), GetParam().privateChars);
    EXPECT_EQ(first.publicKey.size(), GetParam().publicChars);
    EXPECT_NE(first.privateKey, second.privateKey);
    EXPECT_NE(first.publicKey, second.publicKey);
}

TEST_P(CurveKeys, APrivateKeyTextReproducesItsPair) {
    const KeyExchangeLocalKeys keys = KeyExchangeCurveKeys(GetParam().curve, {});
    const KeyExchangeLocalKeys again = KeyExchangeCurveKeys(GetParam().curve, keys.privateKey);
    EXPECT_EQ(again.privateKey, keys.privateKey);
    EXPECT_EQ(again.publicKey, keys.publicKey);
}

TEST_P(CurveKeys, BothSidesAgreeOnTheSecret) {
    const auto curve = GetParam().curve;
    const KeyExchangeLocalKeys a = KeyExchangeCurveKeys(curve, {});
    const KeyExchangeLocalKeys b = KeyExchangeCurveKeys(curve, {});
    const SharedSecret ab = CreateSharedSecret(curve, a.privateKey, b.publicKey);
    const SharedSecret ba = CreateSharedSecret(curve, b.privateKey, a.publicKey);
    EXPECT_EQ(ab.size(), GetParam().secretBytes);
    EXPECT_EQ(ab, ba);
    EXPECT_EQ(ab.data(), ba.data());
    const KeyExchangeLocalKeys c = KeyExchangeCurveKeys(curve, {});
    EXPECT_NE(CreateSharedSecret(curve, a.privateKey, c.publicKey), ab);
}

TEST_P(CurveKeys, RefusesKeyTextsThatAreNotKeys) {
    const auto curve = GetParam().curve;
    const KeyExchangeLocalKeys keys = KeyExchangeCurveKeys(curve, {});
    EXPECT_EQ(ErrorOf([&] { KeyExchangeCurveKeys(curve, u"not base64"_s); }),
              KeyExchangeError::invalidKey);
    EXPECT_EQ(ErrorOf([&] { KeyExchangeCurveKeys(curve, keys.privateKey + u'\n'); }),
              KeyExchangeError::invalidKey);
    EXPECT_EQ(ErrorOf([&] { KeyExchangeCurveKeys(curve, u"AAAA"_s); }),
              CryptoError::invalidKeyRepresentation);
    EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(curve, keys.privateKey, {}); }),
              KeyExchangeError::invalidKey);
    EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(curve, keys.privateKey, u"%%%%"_s); }),
              KeyExchangeError::invalidKey);
    EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(curve, keys.privateKey, u"AAAA"_s); }),
              CryptoError::invalidKeyRepresentation);
}

TEST(CurveKeysNist, RefusesPointsOffTheCurveAndScalarsOutOfRange) {
    for (const CurveCase& test : kCurves) {
        if (test.curve == KeyExchangeCurve::curve25519) {
            continue;
        }
        const KeyExchangeLocalKeys keys = KeyExchangeCurveKeys(test.curve, {});
        QByteArray point = QByteArray::fromBase64(keys.publicKey.toLatin1());
        point[point.size() - 1] = static_cast<char>(point[point.size() - 1] ^ 1);
        const QString offCurve = QString::fromLatin1(point.toBase64());
        EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(test.curve, keys.privateKey, offCurve); }),
                  CryptoError::invalidKeyRepresentation)
            << test.name;
        // Coordinates at or above the field prime.
        const QString overflow = QString::fromLatin1(QByteArray(point.size(), '\xff').toBase64());
        EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(test.curve, keys.privateKey, overflow); }),
                  CryptoError::invalidKeyRepresentation)
            << test.name;

        const qsizetype scalarSize = QByteArray::fromBase64(keys.privateKey.toLatin1()).size();
        for (const QByteArray& scalar :
             {QByteArray(scalarSize, '\0'), QByteArray(scalarSize, '\xff')}) {
            EXPECT_EQ(ErrorOf([&] {
                          KeyExchangeCurveKeys(test.curve, QString::fromLatin1(scalar.toBase64()));
                      }),
                      CryptoError::invalidKeyRepresentation)
                << test.name;
        }
    }
}

TEST(CurveKeysNist, RawFormsAreTheBigEndianScalarAndTheBarePoint) {
    // The scalar 1 belongs to the generator, whose coordinates are published with the curve.
    const QByteArray one = QByteArray(31, '\0') + '\x01';
    const KeyExchangeLocalKeys keys =
        KeyExchangeCurveKeys(KeyExchangeCurve::p256, QString::fromLatin1(one.toBase64()));
    EXPECT_EQ(QByteArray::fromBase64(keys.publicKey.toLatin1()).toHex(),
              "6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296"
              "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5");
}

TEST(CurveKeysX25519, MatchesTheRFC7748Exchange) {
    const QString alicePrivate = u"dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo="_s;
    const QString bobPublic = u"3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08="_s;
    EXPECT_EQ(KeyExchangeCurveKeys(KeyExchangeCurve::curve25519, alicePrivate).publicKey,
              u"hSDwCYkwp1R0i33ctD73Wg2/Og0mOBr066SpjqqbTmo="_s);
    EXPECT_EQ(
        CreateSharedSecret(KeyExchangeCurve::curve25519, alicePrivate, bobPublic).data().toHex(),
        "4a5d9d5ba4ce2de1728e3bf480350f25e07e21c947d19e3376f09b3c1e161742");
}

TEST(CurveKeysX25519, RefusesALowOrderPeerPoint) {
    const QString privateKey = KeyExchangeCurveKeys(KeyExchangeCurve::curve25519, {}).privateKey;
    const QString zeroPoint = QString::fromLatin1(QByteArray(32, '\0').toBase64());
    EXPECT_EQ(
        ErrorOf([&] { CreateSharedSecret(KeyExchangeCurve::curve25519, privateKey, zeroPoint); }),
        CryptoError::keyAgreementFailure);
}

TEST(CurveKeysMixed, AKeyOfAnotherCurveIsRefused) {
    const QString x25519Public = KeyExchangeCurveKeys(KeyExchangeCurve::curve25519, {}).publicKey;
    const QString p256Private = KeyExchangeCurveKeys(KeyExchangeCurve::p256, {}).privateKey;
    EXPECT_EQ(
        ErrorOf([&] { CreateSharedSecret(KeyExchangeCurve::p256, p256Private, x25519Public); }),
        CryptoError::invalidKeyRepresentation);
    EXPECT_EQ(ErrorOf([&] { P256PublicStore(x25519Public); }),
              CryptoError::invalidKeyRepresentation);

    const KeyAgreementPrivateKey p256 = P256PrivateStore();
    const KeyAgreementPublicKey x25519 = Curve25519PublicStore(x25519Public);
    EXPECT_EQ(ErrorOf([&] { p256.sharedSecretFromKeyAgreement(x25519); }),
              CryptoError::invalidKeyRepresentation);
}

TEST(CurveKeysMixed, UnknownCurveIsRefusedBeforeAnyKeyIsRead) {
    EXPECT_EQ(ErrorOf([] { KeyExchangeCurveKeys(KeyExchangeCurve::unknown, {}); }),
              KeyExchangeError::invalidCurve);
    EXPECT_EQ(ErrorOf([] { CreateSharedSecret(KeyExchangeCurve::unknown, u"bad"_s, u"bad"_s); }),
              KeyExchangeError::invalidCurve);
}

TEST(CurveKeysMixed, NamedReadersAreTheCurveReaders) {
    const KeyAgreementPrivateKey key = P384PrivateStore(u""_s);
    EXPECT_EQ(key.curve(), KeyExchangeCurve::p384);
    const QString text = QString::fromLatin1(key.rawRepresentation().toBase64());
    EXPECT_EQ(P384PrivateStore(text).publicKey().rawRepresentation(),
              key.publicKey().rawRepresentation());
    EXPECT_EQ(P384PublicStore(QString::fromLatin1(key.publicKey().rawRepresentation().toBase64()))
                  .rawRepresentation(),
              key.publicKey().rawRepresentation());
    EXPECT_EQ(Curve25519PrivateStore().rawRepresentation().size(), 32);
    EXPECT_EQ(P521PrivateStore().publicKey().rawRepresentation().size(), 132);
    EXPECT_EQ(ErrorOf([] { Curve25519PublicStore({}); }), KeyExchangeError::invalidKey);
}

}  // namespace
