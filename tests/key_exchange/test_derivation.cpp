#include <gtest/gtest.h>

#include "key_exchange/key_exchange.h"
#include "support/expect_error.h"

const SharedSecret kSecret(QByteArray(32, '\x42'));
const QByteArray kSalt(32, 's');
const QByteArray kInfo = "1700000000123";

static QByteArray derive(QByteArrayView salt, QByteArrayView info,
                         KeyExchangeKDF kdf = KeyExchangeKDF::hkdf) {
    return KeyExchangeSymmetricKey(kSecret, HashFunction::SHA256, kdf, salt, info).data();
}

TEST(Derivation, IsDeterministicAndHangsOnEveryByteOfSaltAndInfo) {
    const QByteArray key = derive(kSalt, kInfo);
    EXPECT_EQ(derive(kSalt, kInfo), key);
    for (qsizetype i = 0; i < kSalt.size(); ++i) {
        QByteArray salt = kSalt;
        QByteArray info = kInfo;
        salt[i] = static_cast<char>(salt[i] ^ 1);
        info[i % info.size()] = static_cast<char>(info[i % info.size()] ^ 1);
        EXPECT_NE(derive(salt, kInfo), key) << i;
        EXPECT_NE(derive(kSalt, info), key) << i;
    }
    EXPECT_EQ(derive(kSalt, {}).size(), 32);
    EXPECT_NE(derive(kSalt, {}), key);
    EXPECT_EQ(ErrorOf([] { derive(kSalt, kInfo, KeyExchangeKDF::unknown); }),
              KeyExchangeError::invalidKDF);
}
