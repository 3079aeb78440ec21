// Known answers from the RFCs and the GCM specification, through the package's public
// operations.

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "key_exchange/key_exchange.h"

namespace {

std::string hex(const QByteArray& bytes) {
    return bytes.toHex().toStdString();
}

QByteArray unhex(const char* text) {
    return QByteArray::fromHex(text);
}

QByteArray x25519(const QByteArray& scalar, const QByteArray& u) {
    const auto curve = KeyExchangeCurve::curve25519;
    return KeyAgreementPrivateKey::fromRawRepresentation(curve, scalar)
        .sharedSecretFromKeyAgreement(KeyAgreementPublicKey::fromRawRepresentation(curve, u))
        .data();
}

// RFC 7748, section 5.2: the two function vectors (the second u-coordinate has its top bit
// set, which must be masked rather than refused), then the iterated test: k = u = 9, then
// k, u = X25519(k, u), k. The 1,000,000 iteration value takes minutes under the sanitizers.
TEST(KnownAnswers, X25519) {
    // clang-format off
    constexpr const char* kVectors[][3] = {  // scalar, u, output
        {"a546e36bf0527c9d3b16154b82465edd62144c0ac1fc5a18506a2244ba449ac4",
         "e6db6867583030db3594c1a424b15f7c726624ec26b3353b10a903a6d0ab1c4c",
         "c3da55379de9c6908e94ea4df28d084f32eccf03491c71f754b4075577a28552"},
        {"4b66e9d4d1b4673c5ad22691957d6af5c11b6421e0ea01d42ca4169e7918ba0d",
         "e5210f12786811d3f4b7959d0538ae2c31dbe7106fc03c3efc4cd549c715a493",
         "95cbde9476e8907d7aade45cb4b873f88b595a68799fa152e6f8f7647aac7957"}};
    // clang-format on
    for (const auto& [scalar, u, output] : kVectors) {
        EXPECT_EQ(hex(x25519(unhex(scalar), unhex(u))), output);
    }
    constexpr std::pair<int, const char*> kCheckpoints[] = {
        {1, "422c8e7a6227d7bca1350b3e2bb7279f7897b87bb6854b783c60e80311ae3079"},
        {1000, "684cf59ba83309552800ef566f2f4d3c1c3887c49360e3875f2eb94d99532c51"}};
    QByteArray k = QByteArray(1, '\x09') + QByteArray(31, '\0');
    QByteArray u = k;
    int done = 0;
    for (const auto& [iterations, expected] : kCheckpoints) {
        for (; done < iterations; ++done) {
            u = std::exchange(k, x25519(k, u));
        }
        EXPECT_EQ(hex(k), expected) << "after " << iterations << " iterations";
    }
}

// RFC 5869, appendix A.1 to A.3. The package derives one SHA-256 digest, 32 bytes; HKDF's
// output starts with the same block whatever length is asked for, so it must equal the
// first 32 bytes of the RFC's output.
TEST(KnownAnswers, HkdfSha256) {
    // clang-format off
    constexpr const char* kVectors[][4] = {  // ikm, salt, info, the first 32 bytes of okm
        {"0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b", "000102030405060708090a0b0c",
         "f0f1f2f3f4f5f6f7f8f9",
         "3cb25f25faacd57a90434f64d0362f2a2d2d0a90cf1a5a4c5db02d56ecc4c5bf"},
        {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f"
         "202122232425262728292a2b2c2d2e2f303132333435363738393a3b3c3d3e3f404142434445464748494a4b4c4d4e4f",
         "606162636465666768696a6b6c6d6e6f707172737475767778797a7b7c7d7e7f"
         "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a2a3a4a5a6a7a8a9aaabacadaeaf",
         "b0b1b2b3b4b5b6b7b8b9babbbcbdbebfc0c1c2c3c4c5c6c7c8c9cacbcccdcecfd0d1d2d3d4d5d6d7d8d9dadbdcdddedf"
         "e0e1e2e3e4e5e6e7e8e9eaebecedeeeff0f1f2f3f4f5f6f7f8f9fafbfcfdfeff",
         "b11e398dc80327a1c8e7f78c596a49344f012eda2d4efad8a050cc4c19afa97c"},
        {"0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b0b", "", "",
         "8da4e775a563c18f715f802a063c5a31b8a11f5c5ee1879ec3454e5f3c738d2d"}};
    // clang-format on
    for (const auto& [ikm, salt, info, okm] : kVectors) {
        const SymmetricKey key =
            KeyExchangeSymmetricKey(SharedSecret(unhex(ikm)), HashFunction::SHA256,
                                    KeyExchangeKDF::hkdf, unhex(salt), unhex(info));
        EXPECT_EQ(hex(key.data()), okm);
    }
}

// RFC 8439, section 2.8.2 ("Ladies and Gentlemen of the class of '99 ..."), and McGrew and
// Viega's GCM specification, appendix B, test case 16 (256-bit key, 20 bytes of AAD).
TEST(KnownAnswers, Aead) {
    const struct {
        SealedBox (*seal)(const SymmetricKey&, QByteArrayView, QByteArrayView, QByteArrayView);
        QByteArray (*open)(const SymmetricKey&, QByteArrayView, QByteArrayView);
        const char *key, *nonce, *aad, *plaintext, *ciphertextAndTag;
    } kVectors[] = {
        // clang-format off
        {&ChaChaPolyEncrypt, &ChaChaPolyDecrypt,
         "808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9f",
         "070000004041424344454647", "50515253c0c1c2c3c4c5c6c7",
         "4c616469657320616e642047656e746c656d656e206f662074686520636c617373206f66202739393a204966"
         "204920636f756c64206f6666657220796f75206f6e6c79206f6e652074697020666f7220746865206675747572"
         "652c2073756e73637265656e20776f756c642062652069742e",
         "d31a8d34648e60db7b86afbc53ef7ec2a4aded51296e08fea9e2b5a736ee62d63dbea45e8ca9671282fafb69da"
         "92728b1a71de0a9e060b2905d6a5b67ecd3b3692ddbd7f2d778b8c9803aee328091b58fab324e4fad675945585"
         "808b4831d7bc3ff4def08e4b7a9de576d26586cec64b6116" "1ae10b594f09e26a7e902ecbd0600691"},
        {&AESGCMEncrypt, &AESGCMDecrypt,
         "feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
         "cafebabefacedbaddecaf888", "feedfacedeadbeeffeedfacedeadbeefabaddad2",
         "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a721c3c0c95956809532fcf0e24"
         "49a6b525b16aedf5aa0de657ba637b39",
         "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa8cb08e48590dbb3da7b08b10"
         "56828838c5f61e6393ba7a0abcc9f662" "76fc6ece0f4e1768cddf8853bb2d551b"}};
    // clang-format on
    for (const auto& vector : kVectors) {
        const SymmetricKey key(unhex(vector.key));
        const QByteArray nonce = unhex(vector.nonce), aad = unhex(vector.aad);
        const QByteArray combined = nonce + unhex(vector.ciphertextAndTag);
        EXPECT_EQ(hex(vector.seal(key, unhex(vector.plaintext), nonce, aad).combined()),
                  hex(combined));
        EXPECT_EQ(hex(vector.open(key, combined, aad)), vector.plaintext);
    }
}

}  // namespace
