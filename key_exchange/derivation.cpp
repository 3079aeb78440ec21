#include <openssl/core_names.h>
#include <openssl/kdf.h>

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

// Fetching resolves the algorithm through OpenSSL's provider tables under a lock; once per
// process is enough, and every message derives a key.
EVP_KDF* hkdfAlgorithm() {
    static EVP_KDF* const hkdf = EVP_KDF_fetch(nullptr, "HKDF", nullptr);
    if (hkdf == nullptr) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return hkdf;
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
    KdfCtxPtr context(EVP_KDF_CTX_new(hkdfAlgorithm()));
    if (!context) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    // An empty salt is HMAC's all-zero key, as RFC 5869 prescribes, and any other salt is used
    // exactly as given. OpenSSL refuses a parameter without data, so an empty view gets one.
    static char empty = 0;
    const auto data = [](QByteArrayView view) {
        return view.data() != nullptr ? const_cast<char*>(view.data()) : &empty;
    };
    char* digest = const_cast<char*>(digestName(hash));
    char* secret = data(sharedSecret.view());
    char* salt = data(nonce);
    char* info = data(additionalData);
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY, secret,
                                          static_cast<std::size_t>(sharedSecret.size())),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt,
                                          static_cast<std::size_t>(nonce.size())),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO, info,
                                          static_cast<std::size_t>(additionalData.size())),
        OSSL_PARAM_construct_end(),
    };
    const int length = DigestByteCount(hash);
    unsigned char derived[64];
    if (EVP_KDF_derive(context.get(), derived, static_cast<std::size_t>(length), params) != 1) {
        ThrowCrypto(CryptoError::derivationFailure);
    }
    SymmetricKey key(QByteArrayView(reinterpret_cast<const char*>(derived), length));
    OPENSSL_cleanse(derived, sizeof derived);
    return key;
}
