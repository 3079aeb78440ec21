#include "diagnostics/diagnostics.h"
#include "key_exchange.h"
#include "records/base64.h"
#include "stops.h"

KeyExchangeStore::KeyExchangeStore() = default;

KeyExchangeStore::KeyExchangeStore(KeyExchangeCurve curve, HashFunction hash, KeyExchangeKDF kdf,
                                   KeyExchangeAEAD aead, const QString& externalPublicKey)
    : curve_(curve), hashFunction_(hash), kdf_(kdf), aead_(aead) {
    resetPrivateKey(QString());
    if (!externalPublicKey.isEmpty()) {
        setExternalPublicKey(externalPublicKey);
    }
}

QString KeyExchangeStore::LocalPublicKey() const {
    const std::lock_guard guard(lock_);
    return localPublicKey_;
}

QString KeyExchangeStore::ExternalPublicKey() const {
    const std::lock_guard guard(lock_);
    if (externalPublicKey_.isEmpty()) {
        throw std::system_error(KeyExchangeError::publicKeyNotSet);
    }
    return externalPublicKey_;
}

::SharedSecret KeyExchangeStore::SharedSecret() const {
    return pairedSecret();
}

void KeyExchangeStore::resetPrivateKey(const QString& privateKey) {
    const std::lock_guard guard(lock_);
    KeyExchangeLocalKeys keys = KeyExchangeCurveKeys(curve_, privateKey);
    // When paired, the secret for the new key is made before anything is replaced, so a
    // refusal leaves the store as it was.
    std::optional<::SharedSecret> secret;
    if (!externalPublicKey_.isEmpty()) {
        secret = CreateSharedSecret(curve_, keys.privateKey, externalPublicKey_);
    }
    privateKey_ = std::move(keys.privateKey);
    localPublicKey_ = std::move(keys.publicKey);
    if (secret) {
        sharedSecret_ = std::move(secret);
    }
}

void KeyExchangeStore::clearExternalPublicKey() {
    const std::lock_guard guard(lock_);
    externalPublicKey_.clear();
    sharedSecret_.reset();
}

void KeyExchangeStore::setExternalPublicKey(const QString& publicKey) {
    const std::lock_guard guard(lock_);
    setExternalPublicKeyLocked(publicKey);
}

void KeyExchangeStore::setExternalPublicKeyLocked(const QString& publicKey) {
    if (publicKey.isEmpty()) {
        throw std::system_error(KeyExchangeError::emptyPublicKey);
    }
    ::SharedSecret secret = CreateSharedSecret(curve_, privateKey_, publicKey);
    externalPublicKey_ = publicKey;
    sharedSecret_ = std::move(secret);
}

void KeyExchangeStore::requirePaired() const {
    const std::lock_guard guard(lock_);
    if (externalPublicKey_.isEmpty()) {
        throw std::system_error(KeyExchangeError::publicKeyNotSet);
    }
}

::SharedSecret KeyExchangeStore::pairedSecret() const {
    const std::lock_guard guard(lock_);
    if (externalPublicKey_.isEmpty()) {
        throw std::system_error(KeyExchangeError::publicKeyNotSet);
    }
    if (!sharedSecret_) {
        Diagnostics::stop(kKeyExchangeStopHeading,
                          "the store knows the helper's key but holds no shared secret");
    }
    return *sharedSecret_;
}

KeyExchangeAEADStore KeyExchangeStore::encrypt(QByteArrayView plaintext,
                                               QByteArrayView additionalData) const {
    return encryptWithNonces(std::nullopt, plaintext, std::nullopt, additionalData);
}

KeyExchangeAEADStore KeyExchangeStore::encryptWithNonces(std::optional<QByteArrayView> kdfNonce,
                                                         QByteArrayView plaintext,
                                                         std::optional<QByteArrayView> aeadNonce,
                                                         QByteArrayView additionalData) const {
    // The secret is copied under the lock; the derivation and the cipher run outside it.
    const ::SharedSecret secret = pairedSecret();
    const QByteArray salt = kdfNonce ? kdfNonce->toByteArray() : AEADRandomKey(aead_);
    const QByteArray nonce = aeadNonce ? aeadNonce->toByteArray() : AEADRandomNonce(aead_);
    const SymmetricKey key =
        KeyExchangeSymmetricKey(secret, hashFunction_, kdf_, salt, additionalData);
    return {
        Base64Encode(salt),
        AEADEncrypt(aead_, key, plaintext, nonce, additionalData),
        Base64Encode(nonce),
        Base64Encode(additionalData),
    };
}

KeyExchangeAEADStore KeyExchangeStore::encodeJSONAndEncrypt(const QString& type, const QString& id,
                                                            const QString& data,
                                                            QByteArrayView additionalData) const {
    return encodeJSONAndEncryptWithNonces(type, id, data, std::nullopt, std::nullopt,
                                          additionalData);
}

KeyExchangeAEADStore KeyExchangeStore::encodeJSONAndEncryptWithNonces(
    const QString& type, const QString& id, const QString& data,
    std::optional<QByteArrayView> kdfNonce, std::optional<QByteArrayView> aeadNonce,
    QByteArrayView additionalData) const {
    return encodeJSONAndEncryptWithNonces(KeyExchangeTypeIDAndData{type, id, data}, kdfNonce,
                                          aeadNonce, additionalData);
}

QByteArray KeyExchangeStore::decrypt(QStringView kdfNonce, QStringView ciphertext,
                                     QStringView aeadNonce, QStringView additionalData) const {
    const ::SharedSecret secret = pairedSecret();
    const QByteArray salt = DecodeBase64OrStop(kdfNonce, "the envelope's KDFNonce is not base64");
    const QByteArray info =
        DecodeBase64OrStop(additionalData, "the envelope's AdditionalData is not base64");
    const SymmetricKey key = KeyExchangeSymmetricKey(secret, hashFunction_, kdf_, salt, info);
    return AEADDecrypt(aead_, key, ciphertext, aeadNonce, additionalData);
}

QByteArray KeyExchangeStore::decryptAEADStore(const KeyExchangeAEADStore& envelope) const {
    return decrypt(envelope.kdfNonce, envelope.ciphertext, envelope.aeadNonce,
                   envelope.additionalData);
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(
    const QString& externalPublicKey) {
    return std::make_unique<KeyExchangeStore>(KeyExchangeCurve::curve25519, HashFunction::SHA256,
                                              KeyExchangeKDF::hkdf, KeyExchangeAEAD::aesgcm,
                                              externalPublicKey);
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA384_HKDF_AESGCM_Store(
    const QString& externalPublicKey) {
    return std::make_unique<KeyExchangeStore>(KeyExchangeCurve::curve25519, HashFunction::SHA384,
                                              KeyExchangeKDF::hkdf, KeyExchangeAEAD::aesgcm,
                                              externalPublicKey);
}

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA512_HKDF_AESGCM_Store(
    const QString& externalPublicKey) {
    return std::make_unique<KeyExchangeStore>(KeyExchangeCurve::curve25519, HashFunction::SHA512,
                                              KeyExchangeKDF::hkdf, KeyExchangeAEAD::aesgcm,
                                              externalPublicKey);
}
