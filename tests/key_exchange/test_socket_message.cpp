#include <gtest/gtest.h>

#include "key_exchange/key_exchange.h"
#include "support/expect_error.h"

using namespace Qt::Literals::StringLiterals;

TEST(SocketMessage, OnlyTextOpensAndAuthIsAskedLastAboutTheAdditionalDataAsReceived) {
    const auto app = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    const auto helper = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    app->setExternalPublicKey(helper->LocalPublicKey());
    const KeyExchangeTypeIDAndData record{u"ping"_s, u"1"_s, u"[]"_s};
    const auto seal = [&](const QByteArray& plaintext) {
        return QString::fromUtf8(JSONEncode(helper->encrypt(plaintext, "1700000000123")));
    };
    const QString text = seal(JSONEncode(record));
    QStringList asked;  // the additional data texts auth was asked about
    const auto open = [&](const KeyExchangeSocketMessage& message, bool answer) {
        return KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
            message, *app, [&](const QString& additionalData) {
                asked.append(additionalData);
                return answer;
            });
    };
    using Message = KeyExchangeSocketMessage;
    EXPECT_EQ(ErrorOf([&] { open(Message::binary(text.toUtf8()), true); }),
              KeyExchangeError::invalidFormat);
    EXPECT_EQ(ErrorOf([&] { open(Message::text(seal(R"({"Type":"ping"})")), true); }),
              JSONError::keyNotFound);
    // The additional data of "1700000000124".
    const QString changed =
        QString(text).replace(u"MTcwMDAwMDAwMDEyMw=="_s, u"MTcwMDAwMDAwMDEyNA=="_s);
    EXPECT_EQ(ErrorOf([&] { open(Message::text(changed), true); }),
              CryptoError::authenticationFailure);
    EXPECT_TRUE(asked.isEmpty());

    EXPECT_EQ(ErrorOf([&] { open(Message::text(text), false); }),
              KeyExchangeError::invalidAdditionalData);
    EXPECT_EQ(open(Message::text(text), true), record);
    EXPECT_EQ(asked, QStringList(2, u"MTcwMDAwMDAwMDEyMw=="_s));
}
