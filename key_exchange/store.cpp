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

KeyExchangeStore::SealingKey KeyExchangeStore::sealingKey(std::optional<QByteArrayView> kdfNonce,
                                                          std::optional<QByteArrayView> aeadNonce,
                                                          QByteArrayView additionalData) const {
    // The secret is copied under the lock; the derivation and the cipher run outside it.
    const ::SharedSecret secret = pairedSecret();
    // Both nonces from one draw when both are fresh: every draw costs the generator's locking
    // and checks, and a ping is sealed ten times a second.
    QByteArray salt;
    QByteArray nonce;
    if (!kdfNonce && !aeadNonce) {
        const QByteArray fresh = AEADRandomNonces(aead_);
        salt = fresh.first(fresh.size() - AEADNonceSize);
        nonce = fresh.last(AEADNonceSize);
    } else {
        salt = kdfNonce ? kdfNonce->toByteArray() : AEADRandomKey(aead_);
        nonce = aeadNonce ? aeadNonce->toByteArray() : AEADRandomNonce(aead_);
    }
    SymmetricKey key = KeyExchangeSymmetricKey(secret, hashFunction_, kdf_, salt, additionalData);
    return {std::move(salt), std::move(nonce), std::move(key)};
}

KeyExchangeAEADStore KeyExchangeStore::encrypt(QByteArrayView plaintext,
                                               QByteArrayView additionalData) const {
    return encryptWithNonces(std::nullopt, plaintext, std::nullopt, additionalData);
}

KeyExchangeAEADStore KeyExchangeStore::encryptWithNonces(std::optional<QByteArrayView> kdfNonce,
                                                         QByteArrayView plaintext,
                                                         std::optional<QByteArrayView> aeadNonce,
                                                         QByteArrayView additionalData) const {
    const auto [salt, nonce, key] = sealingKey(kdfNonce, aeadNonce, additionalData);
    return {
        Base64Encode(salt),
        AEADEncrypt(aead_, key, plaintext, nonce, additionalData),
        Base64Encode(nonce),
        Base64Encode(additionalData),
    };
}

QByteArray KeyExchangeStore::encryptToJSON(QByteArrayView plaintext,
                                           QByteArrayView additionalData) const {
    return encryptToJSONWithNonces(std::nullopt, plaintext, std::nullopt, additionalData);
}

QByteArray KeyExchangeStore::encryptToJSONWithNonces(std::optional<QByteArrayView> kdfNonce,
                                                     QByteArrayView plaintext,
                                                     std::optional<QByteArrayView> aeadNonce,
                                                     QByteArrayView additionalData) const {
    const auto [salt, nonce, key] = sealingKey(kdfNonce, aeadNonce, additionalData);

    // The members in the order the envelope's own writer puts them; base64 needs no escapes.
    static constexpr QByteArrayView kOpen = R"({"KDFNonce":")";
    static constexpr QByteArrayView kCiphertext = R"(","Ciphertext":")";
    static constexpr QByteArrayView kAEADNonce = R"(","AEADNonce":")";
    static constexpr QByteArrayView kAdditionalData = R"(","AdditionalData":")";
    static constexpr QByteArrayView kClose = R"("})";
    const qsizetype ciphertextLength = AEADCiphertextTextLength(plaintext.size());
    QByteArray json;
    json.reserve(kOpen.size() + Base64EncodedLength(salt.size()) + kCiphertext.size() +
                 ciphertextLength + kAEADNonce.size() + Base64EncodedLength(nonce.size()) +
                 kAdditionalData.size() + Base64EncodedLength(additionalData.size()) +
                 kClose.size());
    const auto appendBase64 = [&json](QByteArrayView bytes) {
        const qsizetype start = json.size();
        json.resize(start + Base64EncodedLength(bytes.size()));
        const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
        const qsizetype groups = bytes.size() / 3;
        Base64EncodeGroups(in, groups, json.data() + start);
        Base64EncodeLastGroup(in + 3 * groups, bytes.size() - 3 * groups,
                              json.data() + start + 4 * groups);
    };
    json.append(kOpen);
    appendBase64(salt);
    json.append(kCiphertext);
    const qsizetype ciphertextStart = json.size();
    json.resize(ciphertextStart + ciphertextLength);
    AEADEncryptInto(aead_, key, plaintext, nonce, additionalData, json.data() + ciphertextStart);
    json.append(kAEADNonce);
    appendBase64(nonce);
    json.append(kAdditionalData);
    appendBase64(additionalData);
    json.append(kClose);
    return json;
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

QByteArray KeyExchangeStore::decrypt(const KeyExchangeEnvelopeText& envelope) const {
    const ::SharedSecret secret = pairedSecret();
    const QByteArray salt =
        DecodeBase64OrStop(envelope.kdfNonce, "the envelope's KDFNonce is not base64");
    const QByteArray info =
        DecodeBase64OrStop(envelope.additionalData, "the envelope's AdditionalData is not base64");
    const SymmetricKey key = KeyExchangeSymmetricKey(secret, hashFunction_, kdf_, salt, info);
    return AEADDecrypt(aead_, key, envelope.ciphertext, envelope.aeadNonce,
                       envelope.additionalData);
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
