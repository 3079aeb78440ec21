// Known answers from the RFCs and the GCM specification, through the package's public
// operations: raw keys in, raw shared secret out; the shared secret type fed with the
// RFC's input keying material; the ciphers with the RFC's key and nonce.

#include <gtest/gtest.h>

#include "key_exchange/key_exchange.h"
#include "key_exchange/test_vectors_support.h"

namespace {

using test_vectors::hexBytes;

QByteArray hex(const char* text) {
    return hexBytes(QString::fromLatin1(text));
}

QByteArray x25519(const QByteArray& scalar, const QByteArray& u) {
    const auto privateKey =
        KeyAgreementPrivateKey::fromRawRepresentation(KeyExchangeCurve::curve25519, scalar);
    const auto publicKey =
        KeyAgreementPublicKey::fromRawRepresentation(KeyExchangeCurve::curve25519, u);
    return privateKey.sharedSecretFromKeyAgreement(publicKey).data();
}

// ---------------------------------------------------------------------------
// X25519

struct X25519Vector {
    const char* scalar;
    const char* u;
    const char* output;
};

// RFC 7748, section 5.2, the two X25519 function test vectors. The second u-coordinate
// has its top bit set, which an implementation must mask rather than refuse.
// clang-format off
constexpr X25519Vector kX25519Vectors[] = {
    {"a546e36bf0527c9d3b16154b82465edd62144c0ac1fc5a18506a2244ba449ac4",
     "e6db6867583030db3594c1a424b15f7c726624ec26b3353b10a903a6d0ab1c4c",
     "c3da55379de9c6908e94ea4df28d084f32eccf03491c71f754b4075577a28552"},
    {"4b66e9d4d1b4673c5ad22691957d6af5c11b6421e0ea01d42ca4169e7918ba0d",
     "e5210f12786811d3f4b7959d0538ae2c31dbe7106fc03c3efc4cd549c715a493",
     "95cbde9476e8907d7aade45cb4b873f88b595a68799fa152e6f8f7647aac7957"},
};
// clang-format on

TEST(KnownAnswers, X25519FunctionVectors) {
    for (const X25519Vector& vector : kX25519Vectors) {
        SCOPED_TRACE(vector.scalar);
        EXPECT_EQ(x25519(hex(vector.scalar), hex(vector.u)), hex(vector.output));
    }
}

// RFC 7748, section 5.2, the iterated test: k = u = 9, then k, u = X25519(k, u), k.
// The 1,000,000-iteration value is left out: it takes minutes under the sanitizers.
// clang-format off
constexpr struct {
    int iterations;
    const char* k;
} kX25519Iterated[] = {
    {1,    "422c8e7a6227d7bca1350b3e2bb7279f7897b87bb6854b783c60e80311ae3079"},
    {1000, "684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51"},
};
// clang-format on

TEST(KnownAnswers, X25519Iterated) {
    QByteArray k = hex("0900000000000000000000000000000000000000000000000000000000000000");
    QByteArray u = k;
    int done = 0;
    for (const auto& checkpoint : kX25519Iterated) {
        for (; done < checkpoint.iterations; ++done) {
            QByteArray result = x25519(k, u);
            u = std::exchange(k, std::move(result));
        }
        EXPECT_EQ(k, hex(checkpoint.k)) << "after " << checkpoint.iterations << " iterations";
    }
}

// RFC 7748, section 6.1, Alice and Bob; the keys as the base64 text the package keeps
// them in.
// clang-format off
constexpr const char* kAlicePrivate = "dwdtCnMYpX08FsFyUbJmRd9ML4frwJkqsXf7pR25LCo=";
constexpr const char* kAlicePublic  = "hSDwCYkwp1R0i33ctD73Wg2/Og0mOBr066SpjqqbTmo=";
constexpr const char* kBobPrivate   = "XasIfmJKikt54X+Lg4AO5m87sSkmGLb9HC+LJ/+I4Os=";
constexpr const char* kBobPublic    = "3p7bfXt9wbTTW2HC7OQ1Nz+DQ8hbeGdNrfx+FG+IK08=";
constexpr const char* kSharedSecret =
    "4a5d9d5ba4ce2de1728e3bf480350f25e07e21c947d19e3376f09b3c1e161742";
// clang-format on

TEST(KnownAnswers, X25519DiffieHellmanThroughKeyText) {
    const auto text = [](const char* latin1) { return QString::fromLatin1(latin1); };
    EXPECT_EQ(KeyExchangeCurveKeys(KeyExchangeCurve::curve25519, text(kAlicePrivate)).publicKey,
              text(kAlicePublic));
    EXPECT_EQ(KeyExchangeCurveKeys(KeyExchangeCurve::curve25519, text(kBobPrivate)).publicKey,
              text(kBobPublic));
    EXPECT_EQ(
        CreateSharedSecret(KeyExchangeCurve::curve25519, text(kAlicePrivate), text(kBobPublic))
            .data(),
        hex(kSharedSecret));
    EXPECT_EQ(
        CreateSharedSecret(KeyExchangeCurve::curve25519, text(kBobPrivate), text(kAlicePublic))
            .data(),
        hex(kSharedSecret));
}

// ---------------------------------------------------------------------------
// HKDF-SHA-256

struct HkdfVector {
    const char* name;
    const char* ikm;
    const char* salt;
    const char* info;
    const char* okm;
};

// RFC 5869, appendix A, test cases 1 to 3 (A.1 to A.3).
// clang-format off
constexpr HkdfVector kHkdfSha256Vectors[] = {
    {"A.1",
     "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b",
     "000102030405060708090a0b0c",
     "f0f1f2f3f4f5f6f7f8f9",
     "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf34007208d5b887185865"},
    {"A.2",
     "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f"
     "202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f404142434445464748494a4b4c4d4e4f",
     "606162636465666768696a6b6c6d6e6f707172737475767778797a7b7c7d7e7f"
     "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a2a3a4a5a6a7a8a9aaabacadaeaf",
     "b0b1b2b3b4b5b6b7b8b9babbbcbdbebfc0c1c2c3c4c5c6c7c8c9cacbcccdcecfd0d1d2d3d4d5d6d7d8d9dadbdcdddedf"
     "e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff",
     "b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c59045a99cac7827271cb41c65e590e09"
     "da3275600c2f09b8367793a9aca3db71cc30c58179ec3e87c14c01d5c1f3434f1d87"},
    {"A.3",
     "0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b",
     "",
     "",
     "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d9d201395faa4b61a96c8"},
};
// clang-format on

// The RFC asks for 42 or 82 bytes; the package always derives one SHA-256 digest, 32
// bytes. HKDF's expand step makes its output one digest-sized block at a time, each from
// the previous one, so the first block does not depend on the length asked for: the
// derived key must equal the first 32 bytes of the RFC's output.
TEST(KnownAnswers, HkdfSha256OnTheFirstDigestOfOutput) {
    for (const HkdfVector& vector : kHkdfSha256Vectors) {
        SCOPED_TRACE(vector.name);
        const SymmetricKey key =
            KeyExchangeSymmetricKey(SharedSecret(hex(vector.ikm)), HashFunction::SHA256,
                                    KeyExchangeKDF::hkdf, hex(vector.salt), hex(vector.info));
        EXPECT_EQ(key.data(), hex(vector.okm).left(32));
    }
}

// ---------------------------------------------------------------------------
// AEAD

struct AeadVector {
    const char* key;
    const char* nonce;
    const char* aad;
    const char* plaintext;
    const char* ciphertext;
    const char* tag;
};

// RFC 8439, section 2.8.2, the AEAD_CHACHA20_POLY1305 example ("Ladies and Gentlemen of
// the class of '99 ..."); the nonce is the 32-bit constant 07000000 followed by the IV.
// clang-format off
constexpr AeadVector kChaChaPolyRfc8439 = {
    "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f",
    "070000004041424344454647",
    "50515253c0c1c2c3c4c5c6c7",
    "4c616469657320616e642047656e746c656d656e206f662074686520636c617373206f66202739393a204966"
    "204920636f756c64206f6666657220796f75206f6e6c79206f6e652074697020666f7220746865206675747572"
    "652c2073756e73637265656e20776f756c642062652069742e",
    "d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d63dbea45e8ca9671282fafb69da"
    "92728b1a71de0a9e060b2905d6a5b67ecd3b3692ddbd7f2d778b8c9803aee328091b58fab324e4fad675945585"
    "808b4831d7bc3ff4def08e4b7a9de576d26586cec64b6116",
    "1ae10b594f09e26a7e902ecbd0600691",
};

// McGrew and Viega, "The Galois/Counter Mode of Operation (GCM)", appendix B, test case 16
// (256-bit key, 96-bit IV, 20 bytes of additional data).
constexpr AeadVector kAesGcmTestCase16 = {
    "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
    "cafebabefacedbaddecaf888",
    "feedfacedeadbeeffeedfacedeadbeefabaddad2",
    "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e24"
    "49a6b525b16aedf5aa0de657ba637b39",
    "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b10"
    "56828838c5f61e6393ba7a0abcc9f662",
    "76fc6ece0f4e1768cddf8853bb2d551b",
};

// The same vector as the envelope's "Ciphertext" text: base64 of nonce || ciphertext || tag.
constexpr const char* kAesGcmTestCase16CombinedText =
    "yv66vvrO263eyviIUi3B8JlWfQf0fzejKoRCfWQ6jNy/5cDJdZiivSVV0aqMsI5IWQ27PaewixBWgog4xfYeY5O6"
    "egq8yfZidvxuzg9OF2jN34hTuy1VGw==";
// clang-format on

using Seal = SealedBox (*)(const SymmetricKey&, QByteArrayView, QByteArrayView, QByteArrayView);
using Open = QByteArray (*)(const SymmetricKey&, QByteArrayView, QByteArrayView);

void expectKnownAnswer(const AeadVector& vector, Seal seal, Open open) {
    const SymmetricKey key(hex(vector.key));
    const SealedBox box = seal(key, hex(vector.plaintext), hex(vector.nonce), hex(vector.aad));
    EXPECT_EQ(box.nonce, hex(vector.nonce));
    EXPECT_EQ(box.ciphertext, hex(vector.ciphertext));
    EXPECT_EQ(box.tag, hex(vector.tag));

    const QByteArray combined = hex(vector.nonce) + hex(vector.ciphertext) + hex(vector.tag);
    EXPECT_EQ(open(key, combined, hex(vector.aad)), hex(vector.plaintext));

    QByteArray changedTag = combined;
    changedTag.back() = static_cast<char>(changedTag.back() ^ 0x01);
    try {
        (void)open(key, changedTag, hex(vector.aad));
        ADD_FAILURE() << "a changed tag was accepted";
    } catch (const std::system_error& refusal) {
        EXPECT_EQ(refusal.code(), CryptoError::authenticationFailure);
    }
}

TEST(KnownAnswers, ChaCha20Poly1305Rfc8439) {
    expectKnownAnswer(kChaChaPolyRfc8439, &ChaChaPolyEncrypt, &ChaChaPolyDecrypt);
}

TEST(KnownAnswers, AesGcmTestCase16) {
    expectKnownAnswer(kAesGcmTestCase16, &AESGCMEncrypt, &AESGCMDecrypt);
}

TEST(KnownAnswers, AesGcmTestCase16AsEnvelopeText) {
    const AeadVector& vector = kAesGcmTestCase16;
    const SymmetricKey key(hex(vector.key));
    const QString combinedText = QString::fromLatin1(kAesGcmTestCase16CombinedText);
    EXPECT_EQ(AEADEncrypt(KeyExchangeAEAD::aesgcm, key, hex(vector.plaintext), hex(vector.nonce),
                          hex(vector.aad)),
              combinedText);
    EXPECT_EQ(AEADDecrypt(KeyExchangeAEAD::aesgcm, key, combinedText, QString(),
                          QString::fromLatin1(hex(vector.aad).toBase64())),
              hex(vector.plaintext));
}

}  // namespace
