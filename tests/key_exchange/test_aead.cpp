#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <vector>

#include "expect_error.h"
#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

static const char* NameOf(KeyExchangeAEAD aead) {
    return aead == KeyExchangeAEAD::aesgcm ? "aesgcm" : "chachapoly";
}

// Found by GoogleTest through the enumeration's namespace, for readable test names.
void PrintTo(KeyExchangeAEAD aead, std::ostream* out) {
    *out << NameOf(aead);
}

namespace {

const SymmetricKey kKey(
    QByteArray::fromHex("f91007382a6a0e9e5e1fc285f31137f6bb61d7788c3faa1c244e85b8dfee0957"));
const QByteArray kNonce = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaab");
const QByteArray kAdditional = "1700000000123";
const QString kAdditionalText = QString::fromLatin1(kAdditional.toBase64());

QByteArray Pattern(qsizetype size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i) {
        bytes[i] = static_cast<char>(i * 7 + 3);
    }
    return bytes;
}

QString Seal(KeyExchangeAEAD aead, QByteArrayView plaintext) {
    return AEADEncrypt(aead, kKey, plaintext, kNonce, kAdditional);
}

QByteArray Open(KeyExchangeAEAD aead, const QString& text, const SymmetricKey& key = kKey) {
    return AEADDecrypt(aead, key, text, u"ignored"_s, kAdditionalText);
}

class AEADCipher : public testing::TestWithParam<KeyExchangeAEAD> {};

INSTANTIATE_TEST_SUITE_P(BothCiphers, AEADCipher,
                         testing::Values(KeyExchangeAEAD::aesgcm, KeyExchangeAEAD::chachapoly),
                         [](const auto& test) { return std::string(NameOf(test.param)); });

TEST_P(AEADCipher, TextLengthIsThatOfNonceCiphertextAndTag) {
    EXPECT_EQ(Seal(GetParam(), {}).size(), 40);
    EXPECT_EQ(Open(GetParam(), Seal(GetParam(), {})), QByteArray());
    // Every padding remainder, and sizes around the chunks in which long texts are coded.
    std::vector<qsizetype> sizes{299, 300, 100000};
    for (const qsizetype around : {0, 768, 1536, 3072, 3100, 6144, 6172}) {
        for (qsizetype size = std::max<qsizetype>(0, around - 20); size <= around + 20; ++size) {
            sizes.push_back(size);
        }
    }
    for (const qsizetype size : sizes) {
        const QByteArray plaintext = Pattern(size);
        const QString text = Seal(GetParam(), plaintext);
        ASSERT_EQ(text.size(), 4 * ((size + 28 + 2) / 3)) << size;
        ASSERT_EQ(Open(GetParam(), text), plaintext) << size;
    }
}

TEST_P(AEADCipher, TextIsTheBase64OfTheCombinedSealedBox) {
    const QByteArray plaintext = Pattern(40000);
    const SealedBox box = GetParam() == KeyExchangeAEAD::aesgcm
                              ? AESGCMEncrypt(kKey, plaintext, kNonce, kAdditional)
                              : ChaChaPolyEncrypt(kKey, plaintext, kNonce, kAdditional);
    EXPECT_EQ(box.nonce, kNonce);
    EXPECT_EQ(box.tag.size(), 16);
    EXPECT_EQ(Seal(GetParam(), plaintext), QString::fromLatin1(box.combined().toBase64()));
    EXPECT_EQ(Seal(GetParam(), plaintext), Seal(GetParam(), plaintext));
    const QByteArray opened = GetParam() == KeyExchangeAEAD::aesgcm
                                  ? AESGCMDecrypt(kKey, box.combined(), kAdditional)
                                  : ChaChaPolyDecrypt(kKey, box.combined(), kAdditional);
    EXPECT_EQ(opened, plaintext);
}

TEST_P(AEADCipher, AnyChangedByteOrWrongKeyFailsAuthentication) {
    const QByteArray plaintext = Pattern(100);
    const QByteArray combined = QByteArray::fromBase64(Seal(GetParam(), plaintext).toLatin1());
    for (const qsizetype position : {0, 11, 12, 50, 111, 112, 127}) {
        QByteArray changed = combined;
        changed[position] = static_cast<char>(changed[position] ^ 0x80);
        EXPECT_EQ(ErrorOf([&] { Open(GetParam(), QString::fromLatin1(changed.toBase64())); }),
                  CryptoError::authenticationFailure)
            << position;
    }
    const QString text = QString::fromLatin1(combined.toBase64());
    QByteArray otherAdditional = kAdditional;
    otherAdditional[12] = '4';
    EXPECT_EQ(ErrorOf([&] {
                  AEADDecrypt(GetParam(), kKey, text, {},
                              QString::fromLatin1(otherAdditional.toBase64()));
              }),
              CryptoError::authenticationFailure);
    const SymmetricKey otherKey(QByteArray(32, '\x01'));
    EXPECT_EQ(ErrorOf([&] { Open(GetParam(), text, otherKey); }),
              CryptoError::authenticationFailure);
}

TEST_P(AEADCipher, TheSeparateNonceTextIsIgnored) {
    const QString text = Seal(GetParam(), "hello");
    EXPECT_EQ(AEADDecrypt(GetParam(), kKey, text, u"AAAAAAAAAAAAAAAA"_s, kAdditionalText), "hello");
    EXPECT_EQ(AEADDecrypt(GetParam(), kKey, text, u"not even base64"_s, kAdditionalText), "hello");
}

TEST_P(AEADCipher, ShortCombinedFormAndWrongNonceSizeAreParameterErrors) {
    const QString tooShort = QString::fromLatin1(QByteArray(27, 'x').toBase64());
    EXPECT_EQ(ErrorOf([&] { Open(GetParam(), tooShort); }), CryptoError::incorrectParameterSize);
    for (const qsizetype size : {0, 11, 13, 16}) {
        EXPECT_EQ(ErrorOf([&] {
                      AEADEncrypt(GetParam(), kKey, "x", QByteArray(size, 'n'), kAdditional);
                  }),
                  CryptoError::incorrectParameterSize)
            << size;
    }
}

TEST(AEADKeySize, AESGCMTakesThreeSizesAndChaChaOne) {
    for (const qsizetype size : {16, 24, 32}) {
        const SymmetricKey key(QByteArray(size, 'k'));
        const QString text = AEADEncrypt(KeyExchangeAEAD::aesgcm, key, "data", kNonce, kAdditional);
        EXPECT_EQ(Open(KeyExchangeAEAD::aesgcm, text, key), "data") << size;
    }
    // A 16-byte key seals differently from the first 16 bytes of a 32-byte key.
    EXPECT_NE(AEADEncrypt(KeyExchangeAEAD::aesgcm, SymmetricKey(QByteArray(16, 'k')), "data",
                          kNonce, kAdditional),
              AEADEncrypt(KeyExchangeAEAD::aesgcm, SymmetricKey(QByteArray(32, 'k')), "data",
                          kNonce, kAdditional));
    const QString sealed = Seal(KeyExchangeAEAD::aesgcm, "data");
    for (const qsizetype size : {0, 15, 48, 64}) {
        const SymmetricKey key(QByteArray(size, 'k'));
        EXPECT_EQ(ErrorOf([&] { AEADEncrypt(KeyExchangeAEAD::aesgcm, key, "x", kNonce, {}); }),
                  CryptoError::incorrectKeySize)
            << size;
        EXPECT_EQ(ErrorOf([&] { Open(KeyExchangeAEAD::aesgcm, sealed, key); }),
                  CryptoError::incorrectKeySize)
            << size;
    }
    const SymmetricKey shortKey(QByteArray(16, 'k'));
    EXPECT_EQ(ErrorOf([&] { AEADEncrypt(KeyExchangeAEAD::chachapoly, shortKey, "x", kNonce, {}); }),
              CryptoError::incorrectKeySize);
    EXPECT_EQ(ErrorOf([&] { ChaChaPolyDecrypt(shortKey, QByteArray(28, 'x'), {}); }),
              CryptoError::incorrectKeySize);
}

TEST(AEADUnknown, IsRefusedBeforeAnyOtherWork) {
    EXPECT_EQ(ErrorOf([] { AEADEncrypt(KeyExchangeAEAD::unknown, SymmetricKey(), "x", {}, {}); }),
              KeyExchangeError::invalidAEAD);
    EXPECT_EQ(ErrorOf([] {
                  AEADDecrypt(KeyExchangeAEAD::unknown, SymmetricKey(), u"not base64"_s, {},
                              u"not base64"_s);
              }),
              KeyExchangeError::invalidAEAD);
    EXPECT_EQ(ErrorOf([] { AEADRandomKey(KeyExchangeAEAD::unknown); }),
              KeyExchangeError::invalidAEAD);
    EXPECT_EQ(ErrorOf([] { AEADRandomNonce(KeyExchangeAEAD::unknown); }),
              KeyExchangeError::invalidAEAD);
}

TEST(AEADRandom, SizesAndFreshness) {
    EXPECT_EQ(AEADRandomKey(KeyExchangeAEAD::aesgcm).size(), 32);
    EXPECT_EQ(AEADRandomNonce(KeyExchangeAEAD::chachapoly).size(), 12);
    EXPECT_NE(AEADRandomKey(KeyExchangeAEAD::aesgcm), AEADRandomKey(KeyExchangeAEAD::aesgcm));
    EXPECT_EQ(KeyExchangeRandomBytes(0).size(), 0);
    EXPECT_EQ(KeyExchangeRandomBits(256).size(), 32);
    EXPECT_EQ(KeyExchangeRandomBits(7).size(), 0);
}

TEST(AEADDeathTest, TextsThatAreNotBase64StopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const QString sealed = Seal(KeyExchangeAEAD::aesgcm, Pattern(50000));
    QString brokenLate = sealed;
    brokenLate[sealed.size() - 100] = u'-';
    EXPECT_DEATH(Open(KeyExchangeAEAD::aesgcm, sealed.chopped(1)), "ciphertext is not base64");
    EXPECT_DEATH(Open(KeyExchangeAEAD::aesgcm, brokenLate), "ciphertext is not base64");
    EXPECT_DEATH(Open(KeyExchangeAEAD::aesgcm, sealed + u"\n"_s), "ciphertext is not base64");
    // Not base64 wins over a key the cipher cannot take.
    EXPECT_DEATH(Open(KeyExchangeAEAD::aesgcm, brokenLate, SymmetricKey(QByteArray(48, 'k'))),
                 "ciphertext is not base64");
    EXPECT_DEATH(AEADDecrypt(KeyExchangeAEAD::aesgcm, kKey, sealed, {}, u"MTc=\n"_s),
                 "additional data is not base64");
}

TEST(AEADDeathTest, ImpossibleRandomCountsStopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(KeyExchangeRandomBytes(-1), "negative");
    EXPECT_DEATH(KeyExchangeRandomBits(-8), "negative");
    EXPECT_DEATH(KeyExchangeRandomBytes(std::numeric_limits<std::int64_t>::max() / 8 + 1),
                 "overflows");
}

}  // namespace
