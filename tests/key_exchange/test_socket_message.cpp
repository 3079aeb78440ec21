#include <gtest/gtest.h>

#include "expect_error.h"
#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

namespace {

struct Opening : testing::Test {
    std::unique_ptr<KeyExchangeStore> app = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    std::unique_ptr<KeyExchangeStore> helper =
        KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    const KeyExchangeTypeIDAndData record{u"ping"_s, u"1"_s, u"[]"_s};

    void SetUp() override { app->setExternalPublicKey(helper->LocalPublicKey()); }

    QString sealedText(const QByteArray& plaintext,
                       const QByteArray& additional = "1700000000123") {
        return QString::fromUtf8(JSONEncode(helper->encrypt(plaintext, additional)));
    }
};

TEST_F(Opening, ATextMessageOpensAndAuthSeesTheAdditionalDataAsReceived) {
    QString seen;
    const auto message = KeyExchangeSocketMessage::text(sealedText(JSONEncode(record)));
    const auto decoded = KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
        message, *app, [&](const QString& additional) {
            seen = additional;
            return true;
        });
    EXPECT_EQ(decoded, record);
    EXPECT_EQ(seen, u"MTcwMDAwMDAwMDEyMw=="_s);
    EXPECT_EQ(message.keyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                  *app, [](const QString&) { return true; }),
              record);
}

TEST_F(Opening, ABinaryMessageIsRefusedEvenWithAValidEnvelope) {
    const auto message = KeyExchangeSocketMessage::binary(sealedText(JSONEncode(record)).toUtf8());
    bool asked = false;
    EXPECT_EQ(ErrorOf([&] {
                  KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                      message, *app, [&](const QString&) { return asked = true; });
              }),
              KeyExchangeError::invalidFormat);
    EXPECT_FALSE(asked);
}

TEST_F(Opening, TextWithoutAUTF8FormIsRefused) {
    QString text = sealedText(JSONEncode(record));
    text.insert(1, QChar(0xD800));
    EXPECT_EQ(ErrorOf([&] { KeyExchangeSocketMessage::text(text).open(*app); }),
              KeyExchangeError::invalidFormat);
}

TEST_F(Opening, ARefusedCheckComesAfterTheMessageWasFullyOpened) {
    int asked = 0;
    const auto refuse = [&](const QString&) {
        ++asked;
        return false;
    };
    EXPECT_EQ(ErrorOf([&] {
                  KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                      KeyExchangeSocketMessage::text(sealedText(JSONEncode(record))), *app, refuse);
              }),
              KeyExchangeError::invalidAdditionalData);
    EXPECT_EQ(asked, 1);
    // A plaintext of the wrong shape fails in decoding, before the check is asked.
    EXPECT_EQ(ErrorOf([&] {
                  KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                      KeyExchangeSocketMessage::text(sealedText(R"({"Type":"ping"})")), *app,
                      refuse);
              }),
              JSONError::keyNotFound);
    EXPECT_EQ(asked, 1);
}

TEST_F(Opening, ChangedAdditionalDataFailsBeforeTheCheckIsAsked) {
    KeyExchangeAEADStore envelope = helper->encrypt(JSONEncode(record), "1700000000123");
    envelope.additionalData = QString::fromLatin1(QByteArray("1700000000124").toBase64());
    bool asked = false;
    EXPECT_EQ(ErrorOf([&] {
                  KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                      KeyExchangeSocketMessage::text(QString::fromUtf8(JSONEncode(envelope))), *app,
                      [&](const QString&) { return asked = true; });
              }),
              CryptoError::authenticationFailure);
    EXPECT_FALSE(asked);
}

TEST_F(Opening, TheChecksOwnErrorAndEnvelopeErrorsPassThrough) {
    const auto message = KeyExchangeSocketMessage::text(sealedText(JSONEncode(record)));
    EXPECT_EQ(ErrorOf([&] {
                  KeyExchangeDecryptAndDecodeJSON<KeyExchangeTypeIDAndData>(
                      message, *app, [](const QString&) -> bool {
                          throw std::system_error(std::make_error_code(std::errc::timed_out));
                      });
              }),
              std::errc::timed_out);
    EXPECT_EQ(ErrorOf([&] { KeyExchangeSocketMessage::text(u"not json"_s).open(*app); }),
              JSONError::dataCorrupted);
    EXPECT_EQ(ErrorOf([&] { KeyExchangeSocketMessage::text(u"{\"KDFNonce\":\"\"}"_s).open(*app); }),
              JSONError::keyNotFound);
}

}  // namespace
