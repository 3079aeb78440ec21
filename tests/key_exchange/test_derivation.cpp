#include <gtest/gtest.h>

#include "expect_error.h"
#include "key_exchange/key_exchange.h"

namespace {

const SharedSecret kSecret(QByteArray(32, '\x42'));
const QByteArray kSalt =
    QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
const QByteArray kInfo = "1700000000123";

QByteArray Derive(QByteArrayView salt, QByteArrayView info,
                  HashFunction hash = HashFunction::SHA256) {
    return KeyExchangeSymmetricKey(kSecret, hash, KeyExchangeKDF::hkdf, salt, info).data();
}

TEST(Derivation, IsDeterministicAndSensitiveToEveryByteOfSaltAndInfo) {
    const QByteArray key = Derive(kSalt, kInfo);
    EXPECT_EQ(Derive(kSalt, kInfo), key);
    for (qsizetype i = 0; i < kSalt.size(); ++i) {
        QByteArray salt = kSalt;
        salt[i] = static_cast<char>(salt[i] ^ 0x01);
        EXPECT_NE(Derive(salt, kInfo), key) << i;
    }
    for (qsizetype i = 0; i < kInfo.size(); ++i) {
        QByteArray info = kInfo;
        info[i] = static_cast<char>(info[i] ^ 0x01);
        EXPECT_NE(Derive(kSalt, info), key) << i;
    }
    const SharedSecret otherSecret(QByteArray(32, '\x43'));
    EXPECT_NE(KeyExchangeSymmetricKey(otherSecret, HashFunction::SHA256, KeyExchangeKDF::hkdf,
                                      kSalt, kInfo)
                  .data(),
              key);
}

TEST(Derivation, KeyLengthFollowsTheHash) {
    EXPECT_EQ(Derive(kSalt, kInfo, HashFunction::SHA256).size(), 32);
    EXPECT_EQ(Derive(kSalt, kInfo, HashFunction::SHA384).size(), 48);
    EXPECT_EQ(Derive(kSalt, kInfo, HashFunction::SHA512).size(), 64);
    EXPECT_EQ(DigestByteCount(HashFunction::SHA384), 48);
    // Different hashes are different functions, not prefixes of each other.
    EXPECT_NE(Derive(kSalt, kInfo, HashFunction::SHA512).first(32), Derive(kSalt, kInfo));
}

TEST(Derivation, EmptyInfoAndSaltOfAnyLengthAreUsedAsGiven) {
    EXPECT_EQ(Derive(kSalt, {}).size(), 32);
    EXPECT_NE(Derive(kSalt, {}), Derive(kSalt, kInfo));
    // HMAC pads its key with zeros, so an empty salt is the all-zero salt of RFC 5869.
    EXPECT_EQ(Derive({}, kInfo), Derive(QByteArray(32, '\0'), kInfo));
    EXPECT_NE(Derive(kSalt.first(16), kInfo), Derive(kSalt, kInfo));
    EXPECT_NE(Derive(QByteArray(200, 's'), kInfo), Derive(QByteArray(199, 's'), kInfo));
}

TEST(Derivation, UnknownKDFIsRefused) {
    EXPECT_EQ(ErrorOf([] {
                  KeyExchangeSymmetricKey(kSecret, HashFunction::SHA256, KeyExchangeKDF::unknown,
                                          kSalt, kInfo);
              }),
              KeyExchangeError::invalidKDF);
}

TEST(SecretBytes, CopiesCompareAndMoveOut) {
    SecretBytes original(QByteArray("secret"));
    SecretBytes copy = original;
    EXPECT_EQ(copy, original);
    SecretBytes moved = std::move(original);
    EXPECT_EQ(moved.data(), QByteArray("secret"));
    EXPECT_EQ(original.size(), 0);  // NOLINT(bugprone-use-after-move): moved-from is empty
    EXPECT_FALSE(moved == SecretBytes(QByteArray("secreT")));
    copy = SecretBytes();
    EXPECT_EQ(copy.size(), 0);
}

}  // namespace
