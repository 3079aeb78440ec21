#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "key_exchange/key_exchange.h"
#include "support/expect_error.h"

using namespace Qt::Literals::StringLiterals;

// RFC 7748's X25519 keys; the envelope was computed independently with Python's cryptography
// package (X25519, HKDF-SHA-256, AES-256-GCM).
const QString kAlicePrivate = u"dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo="_s;
const QString kBobPublic = u"3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08="_s;
const KeyExchangeAEADStore kFixture{
    u"AAECAwQFBgcICQoLDA0ODxAREhMUFRYXGBkaGxwdHh8="_s,
    u"oKGio6SlpqeoqaqrpvrgCHOXeYb3RvHU9HQCGVe5/VPPIiqO/wdHdEbrV9itj+UZ1kWHFMm7BXQABqSc8O6Pz8U="_s,
    u"oKGio6Slpqeoqaqr"_s, u"MTcwMDAwMDAwMDEyMw=="_s};
const QByteArray kFixturePlaintext = R"({"Type":"ping","ID":"42","Data":"[]"})";

static std::unique_ptr<KeyExchangeStore> aliceWithBob() {
    auto store = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(kBobPublic);
    store->resetPrivateKey(kAlicePrivate);
    return store;
}

TEST(Store, SealsByteForByteWithInjectedNonces) {
    const auto store = aliceWithBob();
    EXPECT_EQ(store->encodeJSONAndEncryptWithNonces(
                  u"ping"_s, u"42"_s, u"[]"_s, QByteArray::fromBase64(kFixture.kdfNonce.toLatin1()),
                  QByteArray::fromBase64(kFixture.aeadNonce.toLatin1()), "1700000000123"),
              kFixture);
    EXPECT_EQ(store->decryptAEADStore(kFixture), kFixturePlaintext);
}

TEST(Store, RefusesToSealOrOpenUntilPaired) {
    KeyExchangeStore placeholder;
    const auto keysOnly = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    EXPECT_EQ(keysOnly->LocalPublicKey().size(), 44);
    for (const KeyExchangeStore* store : {&placeholder, keysOnly.get()}) {
        EXPECT_EQ(ErrorOf([&] { store->encrypt("x", "1"); }), KeyExchangeError::publicKeyNotSet);
        EXPECT_EQ(ErrorOf([&] { store->decryptAEADStore(kFixture); }),
                  KeyExchangeError::publicKeyNotSet);
    }
}

TEST(Store, SHA384AndSHA512StoresDeriveKeysAESGCMCannotTake) {
    for (const auto factory : {KeyExchange_Curve25519_SHA384_HKDF_AESGCM_Store,
                               KeyExchange_Curve25519_SHA512_HKDF_AESGCM_Store}) {
        EXPECT_EQ(ErrorOf([&] { factory(kBobPublic)->encrypt("x", "1"); }),
                  CryptoError::incorrectKeySize);
    }
}

TEST(Store, SealsWithFreshNoncesAndStaysPairedWhenGivenAnEmptyKey) {
    const auto store = aliceWithBob();
    const KeyExchangeAEADStore first = store->encrypt("same", "1700000000123");
    const KeyExchangeAEADStore second = store->encrypt("same", "1700000000123");
    EXPECT_EQ(first.kdfNonce.size(), 44);
    EXPECT_EQ(first.aeadNonce.size(), 16);
    EXPECT_NE(first.kdfNonce, second.kdfNonce);
    EXPECT_NE(first.aeadNonce, second.aeadNonce);
    EXPECT_NE(first.ciphertext, second.ciphertext);
    EXPECT_EQ(ErrorOf([&] { store->setExternalPublicKey({}); }), KeyExchangeError::emptyPublicKey);
    EXPECT_EQ(store->ExternalPublicKey(), kBobPublic);
    EXPECT_EQ(store->decryptAEADStore(second), "same");
}

TEST(Store, ASealingNeverMixesTheKeyOfOneHelperWithTheSecretOfAnother) {
    // The helper prints a new key block while requests are sealed: each opens for one of them.
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
    for (int i = 0; i < 300; ++i) {
        const KeyExchangeAEADStore sealed = app->encrypt("ping", "1");
        EXPECT_TRUE(!ErrorOf([&] { first->decryptAEADStore(sealed); }) ||
                    !ErrorOf([&] { second->decryptAEADStore(sealed); }));
    }
    done = true;
    rekeying.join();
}

TEST(StoreDeathTest, EnvelopeTextsThatAreNotBase64StopTheProgram) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto store = aliceWithBob();
    KeyExchangeAEADStore broken = kFixture;
    broken.kdfNonce += u'\n';
    EXPECT_DEATH(store->decryptAEADStore(broken), "KDFNonce is not base64");
    broken = kFixture;
    broken.additionalData = u"MTcw MDA="_s;
    EXPECT_DEATH(store->decryptAEADStore(broken), "AdditionalData is not base64");
}

TEST(Store, EnvelopeJSONIsWrittenAndReadStraightFromItsBytes) {
    const auto store = aliceWithBob();
    const QByteArray json = store->encryptToJSONWithNonces(
        QByteArray::fromBase64(kFixture.kdfNonce.toLatin1()), kFixturePlaintext,
        QByteArray::fromBase64(kFixture.aeadNonce.toLatin1()), "1700000000123");
    EXPECT_EQ(json, JSONEncode(kFixture));

    const std::optional<KeyExchangeEnvelopeText> text = KeyExchangeReadEnvelopeText(json);
    ASSERT_TRUE(text);
    EXPECT_EQ(text->additionalData, QByteArrayView("MTcwMDAwMDAwMDEyMw=="));
    EXPECT_EQ(store->decrypt(*text), kFixturePlaintext);

    // Blanks between the parts and any member order read the same.
    const QByteArray spaced = " {\n \"AEADNonce\" : \"" + kFixture.aeadNonce.toLatin1() +
                              "\",\"AdditionalData\":\"" + kFixture.additionalData.toLatin1() +
                              "\", \"Ciphertext\":\"" + kFixture.ciphertext.toLatin1() +
                              "\",\t\"KDFNonce\":\"" + kFixture.kdfNonce.toLatin1() + "\"}\r\n";
    const std::optional<KeyExchangeEnvelopeText> reordered = KeyExchangeReadEnvelopeText(spaced);
    ASSERT_TRUE(reordered);
    EXPECT_EQ(store->decrypt(*reordered), kFixturePlaintext);
}

TEST(Store, TextTheQuickReadingCannotVouchForIsLeftToTheFullReading) {
    const QByteArray plain =
        R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d"})";
    ASSERT_TRUE(KeyExchangeReadEnvelopeText(plain));
    for (const char* text : {
             R"({"KDFNonce":"a\u0041","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d"})",
             R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d","x":"y"})",
             R"({"KDFNonce":"a","KDFNonce":"b","AEADNonce":"c","AdditionalData":"d"})",
             R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c"})",
             R"({"KDFNonce":"a","Ciphertext":1,"AEADNonce":"c","AdditionalData":"d"})",
             R"({"KDFNonce":"é","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d"})",
             "{\"KDFNonce\":\"a\tb\",\"Ciphertext\":\"b\",\"AEADNonce\":\"c\",\"AdditionalData\":"
             "\"d\"}",
             R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d"}x)",
             R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d",})",
             R"({"KDFNonce":"a","Ciphertext":"b","AEADNonce":"c","AdditionalData":"d)",
         }) {
        EXPECT_FALSE(KeyExchangeReadEnvelopeText(QByteArrayView(text))) << text;
    }
}

TEST(Envelope, WritesItsFourStringsInOrderAndReadsThemBackIgnoringExtraKeys) {
    EXPECT_EQ(JSONEncode(KeyExchangeAEADStore{u"k"_s, u"c"_s, u"n"_s, u"a"_s}),
              R"({"KDFNonce":"k","Ciphertext":"c","AEADNonce":"n","AdditionalData":"a"})");
    EXPECT_EQ(
        JSONDecode<KeyExchangeAEADStore>(
            R"({"X":1,"AdditionalData":"a","AEADNonce":"n","Ciphertext":"c","KDFNonce":"k"})"),
        (KeyExchangeAEADStore{u"k"_s, u"c"_s, u"n"_s, u"a"_s}));
    // A byte-order mark in front of a member's text is part of it, so that strict base64
    // refuses it later, rather than quietly falling away while the JSON is read.
    EXPECT_EQ(
        JSONDecode<KeyExchangeAEADStore>("{\"KDFNonce\":\"\xEF\xBB\xBFk\",\"Ciphertext\":\"c\","
                                         "\"AEADNonce\":\"n\",\"AdditionalData\":\"a\"}")
            .kdfNonce,
        QChar(0xFEFF) + u"k"_s);
    const std::pair<const char*, JSONError> refused[] = {
        {R"({"KDFNonce":"k","Ciphertext":"c","AEADNonce":"n"})", JSONError::keyNotFound},
        {R"({"KDFNonce":"k","Ciphertext":7,"AEADNonce":"n","AdditionalData":"a"})",
         JSONError::typeMismatch},
        {"[]", JSONError::typeMismatch}};
    for (const auto& [text, error] : refused) {
        EXPECT_EQ(ErrorOf([&] { JSONDecode<KeyExchangeAEADStore>(text); }), error) << text;
    }
}
