#include <gtest/gtest.h>

#include <algorithm>

#include "key_exchange/key_exchange.h"
#include "support/expect_error.h"

using namespace Qt::Literals::StringLiterals;

const SymmetricKey kKey(QByteArray(32, 'k'));
const QByteArray kNonce(12, 'n');
const QByteArray kAdditional = "1700000000123";
const QString kAdditionalText = QString::fromLatin1(kAdditional.toBase64());

TEST(AEAD, SealsTheCombinedBoxAsTextAndOpensItAgain) {
    const struct {
        KeyExchangeAEAD aead;
        SealedBox (*seal)(const SymmetricKey&, QByteArrayView, QByteArrayView, QByteArrayView);
    } ciphers[] = {{KeyExchangeAEAD::aesgcm, AESGCMEncrypt},
                   {KeyExchangeAEAD::chachapoly, ChaChaPolyEncrypt}};
    for (const auto& [aead, seal] : ciphers) {
        EXPECT_EQ(AEADEncrypt(aead, kKey, {}, kNonce, kAdditional).size(), 40);
        // Every padding remainder around the chunks long texts are coded in.
        for (const qsizetype around : {0, 768, 1536, 3072, 6144, 100000}) {
            for (qsizetype size = std::max<qsizetype>(0, around - 30); size <= around + 2; ++size) {
                SCOPED_TRACE(size);
                const QByteArray plaintext = KeyExchangeRandomBytes(size);
                const QString text = AEADEncrypt(aead, kKey, plaintext, kNonce, kAdditional);
                ASSERT_EQ(text.size(), 4 * ((size + 28 + 2) / 3));
                ASSERT_EQ(text, AEADEncrypt(aead, kKey, plaintext, kNonce, kAdditional));
                ASSERT_EQ(text,
                          QString::fromLatin1(
                              seal(kKey, plaintext, kNonce, kAdditional).combined().toBase64()));
                // Only the nonce inside the ciphertext counts.
                ASSERT_EQ(AEADDecrypt(aead, kKey, text, u"not base64"_s, kAdditionalText),
                          plaintext);
            }
        }
        const QString text = AEADEncrypt(aead, kKey, "data", kNonce, kAdditional);
        EXPECT_EQ(ErrorOf([&] { AEADDecrypt(aead, kKey, text, {}, u"MTcwMDAwMDAwMDEyNA=="_s); }),
                  CryptoError::authenticationFailure);
        for (const qsizetype size : {0, 11, 13, 16}) {
            EXPECT_EQ(
                ErrorOf([&] { AEADEncrypt(aead, kKey, "x", QByteArray(size, 'n'), kAdditional); }),
                CryptoError::incorrectParameterSize);
        }
    }
    EXPECT_EQ(ErrorOf([] { AEADEncrypt(KeyExchangeAEAD::unknown, kKey, "x", kNonce, {}); }),
              KeyExchangeError::invalidAEAD);
    EXPECT_EQ(ErrorOf([] { AEADDecrypt(KeyExchangeAEAD::unknown, kKey, u"!"_s, {}, u"!"_s); }),
              KeyExchangeError::invalidAEAD);
}

TEST(AEADDeathTest, CiphertextThatIsNotBase64StopsTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    QString sealed =
        AEADEncrypt(KeyExchangeAEAD::aesgcm, kKey, QByteArray(50000, 'p'), kNonce, kAdditional);
    EXPECT_DEATH(AEADDecrypt(KeyExchangeAEAD::aesgcm, kKey, sealed.chopped(1), {}, kAdditionalText),
                 "ciphertext is not base64");
    sealed[sealed.size() - 100] = u'-';  // found only after most of the text was opened
    EXPECT_DEATH(AEADDecrypt(KeyExchangeAEAD::aesgcm, kKey, sealed, {}, kAdditionalText),
                 "ciphertext is not base64");
}
