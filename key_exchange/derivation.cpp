#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <array>
#include <initializer_list>

#include "curve_keys.h"
#include "openssl_support.h"

namespace {

const char* digestName(HashFunction hash) {
    switch (hash) {
        case HashFunction::SHA256:
            return "SHA256";
        case HashFunction::SHA384:
            return "SHA384";
        case HashFunction::SHA512:
            return "SHA512";
    }
    return "SHA256";
}

// An HMAC context with its digest already set, copied for each use: naming the digest looks it
// up among OpenSSL's providers again, which costs more than the few HMAC blocks a key takes.
// The templates are never changed once made, so copying them from several threads is safe.
EVP_MAC_CTX* hmacTemplate(HashFunction hash) {
    const auto make = [](HashFunction function) {
        EVP_MAC* hmac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
        EVP_MAC_CTX* context = hmac != nullptr ? EVP_MAC_CTX_new(hmac) : nullptr;
        EVP_MAC_free(hmac);  // the context keeps its own reference
        char* digest = const_cast<char*>(digestName(function));
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
            OSSL_PARAM_construct_end(),
        };
        if (context == nullptr || EVP_MAC_CTX_set_params(context, params) != 1) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        return context;
    };
    static EVP_MAC_CTX* const sha256 = make(HashFunction::SHA256);
    static EVP_MAC_CTX* const sha384 = make(HashFunction::SHA384);
    static EVP_MAC_CTX* const sha512 = make(HashFunction::SHA512);
    switch (hash) {
        case HashFunction::SHA384:
            return sha384;
        case HashFunction::SHA512:
            return sha512;
        case HashFunction::SHA256:
            break;
    }
    return sha256;
}

// HMAC of the parts one after another, written to out (room for the digest).
void hmac(HashFunction hash, QByteArrayView key, std::initializer_list<QByteArrayView> parts,
          unsigned char* out) {
    const MacCtxPtr context(EVP_MAC_CTX_dup(hmacTemplate(hash)));
    bool ok = context != nullptr &&
              EVP_MAC_init(context.get(), reinterpret_cast<const unsigned char*>(key.data()),
                           static_cast<std::size_t>(key.size()), nullptr) == 1;
    for (const QByteArrayView part : parts) {
        ok =
            ok && EVP_MAC_update(context.get(), reinterpret_cast<const unsigned char*>(part.data()),
                                 static_cast<std::size_t>(part.size())) == 1;
    }
    std::size_t written = 0;
    if (!ok || EVP_MAC_final(context.get(), out, &written, EVP_MAX_MD_SIZE) != 1) {
        ThrowCrypto(CryptoError::derivationFailure);
    }
}

}  // namespace

int DigestByteCount(HashFunction hash) {
    switch (hash) {
        case HashFunction::SHA256:
            return 32;
        case HashFunction::SHA384:
            return 48;
        case HashFunction::SHA512:
            return 64;
    }
    return 32;
}

SharedSecret KeyAgreementPrivateKey::sharedSecretFromKeyAgreement(
    const KeyAgreementPublicKey& peer) const {
    if (peer.curve() != curve_) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    PKeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key_.get(), nullptr));
    if (!context || EVP_PKEY_derive_init(context.get()) != 1) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    if (EVP_PKEY_derive_set_peer(context.get(), peer.handle()) != 1) {
        ThrowCrypto(CryptoError::keyAgreementFailure);
    }
    std::size_t length = 0;
    if (EVP_PKEY_derive(context.get(), nullptr, &length) != 1) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    unsigned char agreed[EVP_MAX_MD_SIZE * 2];
    if (length > sizeof agreed) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    // X25519 refuses an all-zero result, which a low-order peer point produces.
    if (EVP_PKEY_derive(context.get(), agreed, &length) != 1) {
        OPENSSL_cleanse(agreed, sizeof agreed);
        ThrowCrypto(CryptoError::keyAgreementFailure);
    }
    SharedSecret secret(
        QByteArrayView(reinterpret_cast<const char*>(agreed), static_cast<qsizetype>(length)));
    OPENSSL_cleanse(agreed, sizeof agreed);
    return secret;
}

SharedSecret CreateSharedSecret(KeyExchangeCurve curve, const QString& privateKey,
                                const QString& publicKey) {
    const KeyAgreementPrivateKey own = KeyExchangeReadPrivateKey(curve, privateKey);
    const KeyAgreementPublicKey peer = KeyExchangeReadPublicKey(curve, publicKey);
    return own.sharedSecretFromKeyAgreement(peer);
}

SymmetricKey KeyExchangeSymmetricKey(const SharedSecret& sharedSecret, HashFunction hash,
                                     KeyExchangeKDF kdf, QByteArrayView nonce,
                                     QByteArrayView additionalData) {
    if (kdf != KeyExchangeKDF::hkdf) {
        throw std::system_error(KeyExchangeError::invalidKDF);
    }
    // RFC 5869 for one block of output, which is the whole key here: extract, then expand.
    // An empty salt is a digest's length of zero bytes, as the RFC prescribes.
    const int length = DigestByteCount(hash);
    const std::array<char, EVP_MAX_MD_SIZE> zeros{};
    const QByteArrayView salt = nonce.isEmpty() ? QByteArrayView(zeros.data(), length) : nonce;
    unsigned char pseudorandomKey[EVP_MAX_MD_SIZE];
    hmac(hash, salt, {sharedSecret.view()}, pseudorandomKey);
    unsigned char derived[EVP_MAX_MD_SIZE];
    const char counter = 1;
    hmac(hash, QByteArrayView(reinterpret_cast<const char*>(pseudorandomKey), length),
         {additionalData, QByteArrayView(&counter, 1)}, derived);
    OPENSSL_cleanse(pseudorandomKey, sizeof pseudorandomKey);
    SymmetricKey key(QByteArrayView(reinterpret_cast<const char*>(derived), length));
    OPENSSL_cleanse(derived, sizeof derived);
    return key;
}
