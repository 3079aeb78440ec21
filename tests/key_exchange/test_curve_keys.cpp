#include <gtest/gtest.h>

#include "key_exchange/key_exchange.h"
#include "support/expect_error.h"

using namespace Qt::Literals::StringLiterals;

TEST(CurveKeys, EveryCurveMakesReadsAndAgrees) {
    using enum KeyExchangeCurve;
    const struct {
        KeyExchangeCurve curve;
        qsizetype privateChars, publicChars, secretBytes;
        KeyAgreementPrivateKey (*readPrivate)(const QString&);
        KeyAgreementPublicKey (*readPublic)(const QString&);
    } curves[] = {{curve25519, 44, 44, 32, Curve25519PrivateStore, Curve25519PublicStore},
                  {p256, 44, 88, 32, P256PrivateStore, P256PublicStore},
                  {p384, 64, 128, 48, P384PrivateStore, P384PublicStore},
                  {p521, 88, 176, 66, P521PrivateStore, P521PublicStore}};
    for (const auto& test : curves) {
        SCOPED_TRACE(static_cast<int>(test.curve));
        const KeyExchangeLocalKeys a = KeyExchangeCurveKeys(test.curve, {});
        const KeyExchangeLocalKeys b = KeyExchangeCurveKeys(test.curve, {});
        EXPECT_EQ(a.privateKey.size(), test.privateChars);
        EXPECT_EQ(a.publicKey.size(), test.publicChars);
        EXPECT_NE(a.publicKey, b.publicKey);
        EXPECT_EQ(KeyExchangeCurveKeys(test.curve, a.privateKey).publicKey, a.publicKey);
        EXPECT_EQ(test.readPrivate(a.privateKey).publicKey().rawRepresentation(),
                  test.readPublic(a.publicKey).rawRepresentation());
        const SharedSecret secret = CreateSharedSecret(test.curve, a.privateKey, b.publicKey);
        EXPECT_EQ(secret.size(), test.secretBytes);
        EXPECT_EQ(secret, CreateSharedSecret(test.curve, b.privateKey, a.publicKey));
        const QString foreign =
            KeyExchangeCurveKeys(test.curve == p521 ? p384 : p521, {}).publicKey;
        EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(test.curve, a.privateKey, foreign); }),
                  CryptoError::invalidKeyRepresentation);
        EXPECT_EQ(ErrorOf([&] { KeyExchangeCurveKeys(test.curve, u"not base64"_s); }),
                  KeyExchangeError::invalidKey);
        EXPECT_EQ(ErrorOf([&] { CreateSharedSecret(test.curve, a.privateKey, u"%%%%"_s); }),
                  KeyExchangeError::invalidKey);
    }
    EXPECT_EQ(ErrorOf([] { KeyExchangeCurveKeys(unknown, {}); }), KeyExchangeError::invalidCurve);
    EXPECT_EQ(ErrorOf([] { CreateSharedSecret(unknown, u"bad"_s, u"bad"_s); }),
              KeyExchangeError::invalidCurve);
}
