#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "expect_error.h"
#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

namespace {

// RFC 7748's pair of X25519 keys; the expected envelope was computed independently with
// Python's cryptography package (X25519, HKDF-SHA-256, AES-256-GCM).
const QString kAlicePrivate = u"dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo="_s;
const QString kAlicePublic = u"hSDwCYkwp1R0i33ctD73Wg2/Og0mOBr066SpjqqbTmo="_s;
const QString kBobPublic = u"3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08="_s;
const QByteArray kKdfNonce =
    QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
const QByteArray kAeadNonce = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaab");
const QByteArray kTimestamp = "1700000000123";

const KeyExchangeAEADStore kFixture{
    u"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8="_s,
    u"oKGio6SlpqeoqaqrpvrgCHOXeYb3RvHU9HQCGVe5/VPPIiqO/wdHdEbrV9itj+UZ1kWHFMm7BXQABqSc8O6Pz8U="_s,
    u"oKGio6Slpqeoqaqr"_s,
    u"MTcwMDAwMDAwMDEyMw=="_s,
};

std::unique_ptr<KeyExchangeStore> AliceWithBob() {
    auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(kBobPublic);
    store->resetPrivateKey(kAlicePrivate);
    return store;
}

// Two stores that know each other's public keys.
struct Pair {
    std::unique_ptr<KeyExchangeStore> app = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    std::unique_ptr<KeyExchangeStore> helper =
        KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    Pair() { app->setExternalPublicKey(helper->LocalPublicKey()); }
};

TEST(StoreFixture, SealsByteForByteWithInjectedNonces) {
    const auto store = AliceWithBob();
    EXPECT_EQ(store->LocalPublicKey(), kAlicePublic);
    EXPECT_EQ(store->encodeJSONAndEncryptWithNonces(u"ping"_s, u"42"_s, u"[]"_s, kKdfNonce,
                                                    kAeadNonce, kTimestamp),
              kFixture);
    EXPECT_EQ(store->decryptAEADStore(kFixture), R"({"Type":"ping","ID":"42","Data":"[]"})");
}

TEST(StoreStates, PlaceholderCanNeitherSealNorPair) {
    KeyExchangeStore placeholder;
    EXPECT_EQ(placeholder.LocalPublicKey(), QString());
    EXPECT_EQ(ErrorOf([&] { placeholder.encrypt("x", "1"); }), KeyExchangeError::publicKeyNotSet);
    EXPECT_EQ(ErrorOf([&] { placeholder.decryptAEADStore(kFixture); }),
              KeyExchangeError::publicKeyNotSet);
    EXPECT_EQ(ErrorOf([&] { placeholder.setExternalPublicKey(kBobPublic); }),
              KeyExchangeError::invalidCurve);
    EXPECT_EQ(ErrorOf([&] { placeholder.resetPrivateKey({}); }), KeyExchangeError::invalidCurve);
}

TEST(StoreStates, KeysOnlyStoreAnswersItsKeyButRefusesToSeal) {
    const auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    EXPECT_EQ(store->LocalPublicKey().size(), 44);
    EXPECT_EQ(ErrorOf([&] { store->ExternalPublicKey(); }), KeyExchangeError::publicKeyNotSet);
    EXPECT_EQ(ErrorOf([&] { store->SharedSecret(); }), KeyExchangeError::publicKeyNotSet);
    EXPECT_EQ(ErrorOf([&] { store->encrypt("x", "1"); }), KeyExchangeError::publicKeyNotSet);
    EXPECT_EQ(ErrorOf([&] { store->encodeJSONAndEncrypt(u"ping"_s, {}, {}, "1"); }),
              KeyExchangeError::publicKeyNotSet);
    // Checked before anything of the envelope is read.
    EXPECT_EQ(ErrorOf([&] { store->decrypt(u"!"_s, u"!"_s, u"!"_s, u"!"_s); }),
              KeyExchangeError::publicKeyNotSet);
}

TEST(StoreStates, ConstructionFailuresAreThrown) {
    EXPECT_EQ(ErrorOf([] {
                  KeyExchangeStore(KeyExchangeCurve::unknown, HashFunction::SHA256,
                                   KeyExchangeKDF::hkdf, KeyExchangeAEAD::aesgcm, {});
              }),
              KeyExchangeError::invalidCurve);
    EXPECT_EQ(ErrorOf([] { KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(u"AAAA%"_s); }),
              KeyExchangeError::invalidKey);
}

TEST(StoreStates, EmptyOrBadKeyLeavesAPairedStorePaired) {
    const auto store = AliceWithBob();
    EXPECT_EQ(ErrorOf([&] { store->setExternalPublicKey({}); }), KeyExchangeError::emptyPublicKey);
    EXPECT_EQ(ErrorOf([&] { store->setExternalPublicKey(u"not a key"_s); }),
              KeyExchangeError::invalidKey);
    EXPECT_EQ(ErrorOf([&] { store->resetPrivateKey(u"AAAA"_s); }),
              CryptoError::invalidKeyRepresentation);
    EXPECT_EQ(store->ExternalPublicKey(), kBobPublic);
    EXPECT_EQ(store->LocalPublicKey(), kAlicePublic);
    EXPECT_EQ(store->decryptAEADStore(kFixture), R"({"Type":"ping","ID":"42","Data":"[]"})");
}

TEST(StoreStates, ClearingReturnsToKeysOnlyAndSettingPairsAgain) {
    const auto store = AliceWithBob();
    store->clearExternalPublicKey();
    EXPECT_EQ(ErrorOf([&] { store->encrypt("x", "1"); }), KeyExchangeError::publicKeyNotSet);
    store->setExternalPublicKey(kBobPublic);
    EXPECT_EQ(store->decryptAEADStore(kFixture), R"({"Type":"ping","ID":"42","Data":"[]"})");
}

TEST(StoreStates, ResettingThePrivateKeyRecomputesTheSecret) {
    Pair pair;
    const SharedSecret before = pair.app->SharedSecret();
    pair.app->resetPrivateKey({});
    EXPECT_NE(pair.app->SharedSecret(), before);
    const KeyExchangeAEADStore sealed = pair.app->encrypt("after reset", "1");
    EXPECT_EQ(ErrorOf([&] { pair.helper->decryptAEADStore(sealed); }),
              CryptoError::authenticationFailure);
    pair.helper->setExternalPublicKey(pair.app->LocalPublicKey());
    EXPECT_EQ(pair.helper->decryptAEADStore(sealed), "after reset");
}

TEST(StoreSealing, EnvelopeFieldsHaveTheirSizesAndOpenOnTheOtherSide) {
    Pair pair;
    const QByteArray timestamp = KeyExchangeCurrentTimestampData();
    for (const qsizetype size : {0, 1, 300, 70000}) {
        const QByteArray plaintext(size, 'p');
        const KeyExchangeAEADStore sealed = pair.app->encrypt(plaintext, timestamp);
        EXPECT_EQ(sealed.kdfNonce.size(), 44);
        EXPECT_EQ(sealed.aeadNonce.size(), 16);
        EXPECT_EQ(sealed.ciphertext.size(), 4 * ((size + 28 + 2) / 3));
        EXPECT_EQ(sealed.ciphertext.first(16), sealed.aeadNonce);
        EXPECT_EQ(sealed.additionalData, QString::fromLatin1(timestamp.toBase64()));
        EXPECT_EQ(pair.helper->decryptAEADStore(sealed), plaintext);
        EXPECT_EQ(pair.app->SharedSecret(), pair.helper->SharedSecret());
    }
    EXPECT_EQ(pair.app->encrypt({}, "1").ciphertext.size(), 40);
}

TEST(StoreSealing, TwoSealingsOfTheSameInputDifferInEveryRandomField) {
    Pair pair;
    const KeyExchangeAEADStore first = pair.app->encrypt("same", "1700000000123");
    const KeyExchangeAEADStore second = pair.app->encrypt("same", "1700000000123");
    EXPECT_NE(first.kdfNonce, second.kdfNonce);
    EXPECT_NE(first.ciphertext, second.ciphertext);
    EXPECT_NE(first.aeadNonce, second.aeadNonce);
    EXPECT_EQ(first.additionalData, second.additionalData);
}

TEST(StoreOpening, AChangedAdditionalDataByteFailsAuthentication) {
    const auto store = AliceWithBob();
    KeyExchangeAEADStore changed = kFixture;
    changed.additionalData = QString::fromLatin1(QByteArray("1700000000124").toBase64());
    EXPECT_EQ(ErrorOf([&] { store->decryptAEADStore(changed); }),
              CryptoError::authenticationFailure);
    changed = kFixture;
    changed.kdfNonce[5] = u'B';
    EXPECT_EQ(ErrorOf([&] { store->decryptAEADStore(changed); }),
              CryptoError::authenticationFailure);
}

TEST(StoreOpening, AMismatchingAEADNonceTextIsIgnored) {
    const auto store = AliceWithBob();
    KeyExchangeAEADStore changed = kFixture;
    changed.aeadNonce = u"AAAAAAAAAAAAAAAA"_s;
    EXPECT_EQ(store->decryptAEADStore(changed), R"({"Type":"ping","ID":"42","Data":"[]"})");
}

TEST(StoreOpening, EncodedRecordsRoundTrip) {
    Pair pair;
    const KeyExchangeTypeIDAndData record{u"login"_s, u"7"_s, u"{\"Email\":\"é@x\"}"_s};
    const KeyExchangeAEADStore sealed = pair.app->encodeJSONAndEncrypt(record, "1");
    EXPECT_EQ(JSONDecode<KeyExchangeTypeIDAndData>(pair.helper->decryptAEADStore(sealed)), record);
    const KeyExchangeAEADStore fromFields =
        pair.app->encodeJSONAndEncrypt(record.type, record.id, record.data, "1");
    EXPECT_EQ(pair.helper->decryptAEADStore(fromFields), JSONEncode(record));
}

TEST(StoreVariants, SHA384AndSHA512StoresCannotSealOrOpen) {
    for (const auto factory : {KeyExchange_Curve25519_SHA384_HKDF_AESGCM_Store,
                               KeyExchange_Curve25519_SHA512_HKDF_AESGCM_Store}) {
        const auto store = factory(kBobPublic);
        store->resetPrivateKey(kAlicePrivate);
        EXPECT_EQ(ErrorOf([&] { store->encrypt("x", "1"); }), CryptoError::incorrectKeySize);
        EXPECT_EQ(ErrorOf([&] { store->decryptAEADStore(kFixture); }),
                  CryptoError::incorrectKeySize);
    }
}

TEST(StoreVariants, OtherCurvesAndChaChaPolySealAndOpen) {
    for (const auto curve :
         {KeyExchangeCurve::p256, KeyExchangeCurve::p384, KeyExchangeCurve::p521}) {
        KeyExchangeStore app(curve, HashFunction::SHA256, KeyExchangeKDF::hkdf,
                             KeyExchangeAEAD::chachapoly, {});
        KeyExchangeStore helper(curve, HashFunction::SHA256, KeyExchangeKDF::hkdf,
                                KeyExchangeAEAD::chachapoly, app.LocalPublicKey());
        app.setExternalPublicKey(helper.LocalPublicKey());
        EXPECT_EQ(helper.decryptAEADStore(app.encrypt("hello", "1")), "hello");
    }
}

TEST(StoreVariants, UnknownKDFOrCipherIsRefusedWhenSealing) {
    KeyExchangeStore noKdf(KeyExchangeCurve::curve25519, HashFunction::SHA256,
                           KeyExchangeKDF::unknown, KeyExchangeAEAD::aesgcm, kBobPublic);
    EXPECT_EQ(ErrorOf([&] { noKdf.encrypt("x", "1"); }), KeyExchangeError::invalidKDF);
    EXPECT_EQ(ErrorOf([&] { noKdf.decryptAEADStore(kFixture); }), KeyExchangeError::invalidKDF);
    KeyExchangeStore noCipher(KeyExchangeCurve::curve25519, HashFunction::SHA256,
                              KeyExchangeKDF::hkdf, KeyExchangeAEAD::unknown, kBobPublic);
    EXPECT_EQ(ErrorOf([&] { noCipher.encrypt("x", "1"); }), KeyExchangeError::invalidAEAD);
    EXPECT_EQ(ErrorOf([&] { noCipher.decryptAEADStore(kFixture); }), KeyExchangeError::invalidAEAD);
}

TEST(StoreConcurrency, ASealingNeverMixesTheKeyOfOneBlockWithTheSecretOfAnother) {
    // The helper prints a new key block while requests are being sealed: every envelope must
    // open for one of the two helpers, never for neither.
    const auto app = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    const auto first = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    const auto second = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    app->setExternalPublicKey(first->LocalPublicKey());
    std::atomic<bool> done{false};
    std::thread rekeying([&] {
        for (int i = 0; !done; ++i) {
            app->setExternalPublicKey((i % 2 == 0 ? second : first)->LocalPublicKey());
        }
    });
    int opened = 0;
    for (int i = 0; i < 300; ++i) {
        const KeyExchangeAEADStore sealed = app->encrypt("ping", "1");
        if (ErrorOf([&] { first->decryptAEADStore(sealed); }) == std::error_code() ||
            ErrorOf([&] { second->decryptAEADStore(sealed); }) == std::error_code()) {
            ++opened;
        }
    }
    done = true;
    rekeying.join();
    EXPECT_EQ(opened, 300);
}

TEST(StoreDeathTest, EnvelopeTextsThatAreNotBase64StopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto store = AliceWithBob();
    KeyExchangeAEADStore broken = kFixture;
    broken.kdfNonce += u'\n';
    EXPECT_DEATH(store->decryptAEADStore(broken), "KDFNonce is not base64");
    broken = kFixture;
    broken.additionalData = u"MTcw MDA="_s;
    EXPECT_DEATH(store->decryptAEADStore(broken), "AdditionalData is not base64");
    broken = kFixture;
    broken.ciphertext[20] = u'_';
    EXPECT_DEATH(store->decryptAEADStore(broken), "ciphertext is not base64");
}

}  // namespace
