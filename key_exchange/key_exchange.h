#pragma once

// Key agreement with the helper and the sealed envelope every message travels in.
//
// Keys cross this boundary as standard base64 text of their raw form; inside,
// they are bytes held by OpenSSL. Failures are thrown as std::system_error whose
// code belongs to one of the enumerations below, so callers compare codes with
// the enumeration cases directly.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringView>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <type_traits>
#include <variant>

#include "records/json_coding.h"
#include "records/records.h"

struct evp_pkey_st;

// ---------------------------------------------------------------------------
// Errors

enum class KeyExchangeError : std::uint8_t {
    invalidKey,
    invalidFormat,
    invalidCurve,
    invalidKDF,
    invalidAEAD,
    invalidAdditionalData,
    publicKeyNotSet,
    emptyPublicKey,
    invalidAdditionalDataEncoding,
};

enum class PEMError : std::uint8_t {
    doesNotExist,
};

// What the cryptographic library itself refuses.
enum class CryptoError : std::uint8_t {
    incorrectKeySize,          // a symmetric key the cipher cannot take
    incorrectParameterSize,    // a nonce of the wrong length, a combined form too short
    invalidKeyRepresentation,  // raw key bytes of the wrong length, or not a point / scalar
    keyAgreementFailure,       // e.g. an all-zero X25519 result
    authenticationFailure,     // wrong key, changed ciphertext, tag or additional data
    derivationFailure,         // HKDF refused the request (output too long)
    libraryFailure,            // anything else OpenSSL reports
};

const std::error_category& KeyExchangeErrorCategory();
const std::error_category& PEMErrorCategory();
const std::error_category& CryptoErrorCategory();
std::error_code make_error_code(KeyExchangeError error);
std::error_code make_error_code(PEMError error);
std::error_code make_error_code(CryptoError error);

template <>
struct std::is_error_code_enum<KeyExchangeError> : std::true_type {};
template <>
struct std::is_error_code_enum<PEMError> : std::true_type {};
template <>
struct std::is_error_code_enum<CryptoError> : std::true_type {};

// ---------------------------------------------------------------------------
// Choices

enum class KeyExchangeCurve : std::uint8_t { unknown, curve25519, p256, p384, p521 };
enum class KeyExchangeKDF : std::uint8_t { unknown, hkdf };
enum class KeyExchangeAEAD : std::uint8_t { unknown, aesgcm, chachapoly };
// HKDF's hash; its digest length is also the derived key's length.
enum class HashFunction : std::uint8_t { SHA256, SHA384, SHA512 };

int DigestByteCount(HashFunction hash);

// ---------------------------------------------------------------------------
// Secret bytes, wiped when they go.

class SecretBytes {
public:
    SecretBytes() = default;
    explicit SecretBytes(QByteArrayView bytes);
    SecretBytes(const SecretBytes& other);
    SecretBytes& operator=(const SecretBytes& other);
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    ~SecretBytes();

    // A copy of the bytes in a new buffer.
    QByteArray data() const;
    QByteArrayView view() const { return {bytes_.get(), size_}; }
    qsizetype size() const { return size_; }
    bool operator==(const SecretBytes& other) const;

private:
    void wipe();

    std::unique_ptr<char[]> bytes_;
    qsizetype size_ = 0;
};

class SharedSecret : public SecretBytes {
public:
    using SecretBytes::SecretBytes;
};

class SymmetricKey : public SecretBytes {
public:
    using SecretBytes::SecretBytes;
};

// ---------------------------------------------------------------------------
// Keys

class KeyAgreementPublicKey {
public:
    // Throws CryptoError::invalidKeyRepresentation.
    static KeyAgreementPublicKey fromRawRepresentation(KeyExchangeCurve curve, QByteArrayView raw);

    KeyExchangeCurve curve() const { return curve_; }
    QByteArray rawRepresentation() const;
    evp_pkey_st* handle() const { return key_.get(); }

private:
    KeyAgreementPublicKey(KeyExchangeCurve curve, std::shared_ptr<evp_pkey_st> key);
    friend class KeyAgreementPrivateKey;

    KeyExchangeCurve curve_;
    std::shared_ptr<evp_pkey_st> key_;
};

class KeyAgreementPrivateKey {
public:
    static KeyAgreementPrivateKey generate(KeyExchangeCurve curve);
    // Throws CryptoError::invalidKeyRepresentation.
    static KeyAgreementPrivateKey fromRawRepresentation(KeyExchangeCurve curve, QByteArrayView raw);

    KeyExchangeCurve curve() const { return curve_; }
    QByteArray rawRepresentation() const;
    KeyAgreementPublicKey publicKey() const;
    // Throws CryptoError when the peer key is of another curve or the result is refused.
    SharedSecret sharedSecretFromKeyAgreement(const KeyAgreementPublicKey& peer) const;
    QByteArray sharedSecretFromKeyAgreementData(const KeyAgreementPublicKey& peer) const;

private:
    KeyAgreementPrivateKey(KeyExchangeCurve curve, std::shared_ptr<evp_pkey_st> key);

    KeyExchangeCurve curve_;
    std::shared_ptr<evp_pkey_st> key_;
};

struct KeyExchangeLocalKeys {
    QString privateKey;
    QString publicKey;
};

// Reads a private key from its base64 text; an empty text makes a new one.
KeyAgreementPrivateKey Curve25519PrivateStore(const QString& text);
KeyAgreementPrivateKey P256PrivateStore(const QString& text);
KeyAgreementPrivateKey P384PrivateStore(const QString& text);
KeyAgreementPrivateKey P521PrivateStore(const QString& text);
KeyAgreementPrivateKey Curve25519PrivateStore();
KeyAgreementPrivateKey P256PrivateStore();
KeyAgreementPrivateKey P384PrivateStore();
KeyAgreementPrivateKey P521PrivateStore();

// Reads a public key from its base64 text; empty or non-base64 text is invalidKey.
KeyAgreementPublicKey Curve25519PublicStore(const QString& text);
KeyAgreementPublicKey P256PublicStore(const QString& text);
KeyAgreementPublicKey P384PublicStore(const QString& text);
KeyAgreementPublicKey P521PublicStore(const QString& text);

KeyExchangeLocalKeys KeyExchangeCurveKeys(KeyExchangeCurve curve, const QString& privateKey);

// The base64 body of the first public key block in the text.
QString PEMFromString(const QString& text);
std::optional<QString> PEMSearchString(const QString& text);

// ---------------------------------------------------------------------------
// Shared secret and derivation

SharedSecret CreateSharedSecret(KeyExchangeCurve curve, const QString& privateKey,
                                const QString& publicKey);

// HKDF (extract, then expand) with salt = nonce and info = additionalData.
SymmetricKey KeyExchangeSymmetricKey(const SharedSecret& sharedSecret, HashFunction hash,
                                     KeyExchangeKDF kdf, QByteArrayView nonce,
                                     QByteArrayView additionalData);

// ---------------------------------------------------------------------------
// Authenticated encryption

struct SealedBox {
    QByteArray nonce;
    QByteArray ciphertext;
    QByteArray tag;

    // nonce, ciphertext, tag as one byte string
    QByteArray combined() const { return nonce + ciphertext + tag; }
};

QByteArray KeyExchangeRandomBytes(std::int64_t count);
QByteArray KeyExchangeRandomBits(std::int64_t bitCount);
QByteArray AEADRandomKey(KeyExchangeAEAD aead);
QByteArray AEADRandomNonce(KeyExchangeAEAD aead);
// A random key followed by a random nonce, drawn at once.
QByteArray AEADRandomNonces(KeyExchangeAEAD aead);
inline constexpr qsizetype AEADNonceSize = 12;

SealedBox AESGCMEncrypt(const SymmetricKey& key, QByteArrayView message, QByteArrayView nonce,
                        QByteArrayView additionalData);
QByteArray AESGCMDecrypt(const SymmetricKey& key, QByteArrayView combined,
                         QByteArrayView additionalData);
SealedBox ChaChaPolyEncrypt(const SymmetricKey& key, QByteArrayView message, QByteArrayView nonce,
                            QByteArrayView additionalData);
QByteArray ChaChaPolyDecrypt(const SymmetricKey& key, QByteArrayView combined,
                             QByteArrayView additionalData);

// The combined form as base64 text.
QString AEADEncrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView plaintext,
                    QByteArrayView aeadNonce, QByteArrayView additionalData);
// The nonce text is accepted and ignored: only the nonce inside the combined
// ciphertext counts. Ciphertext or additional data that is not base64 stops the program.
QByteArray AEADDecrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QStringView ciphertext,
                       QStringView aeadNonce, QStringView additionalData);
// The same for 8-bit text, as envelopes arrive from a socket.
QByteArray AEADDecrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView ciphertext,
                       QByteArrayView aeadNonce, QByteArrayView additionalData);
// The combined form's base64 written as 8-bit text at out, which has room for
// AEADCiphertextTextLength(plaintext.size()) characters.
void AEADEncryptInto(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView plaintext,
                     QByteArrayView aeadNonce, QByteArrayView additionalData, char* out);
qsizetype AEADCiphertextTextLength(qsizetype plaintextSize);

// ---------------------------------------------------------------------------
// Timestamps: signed milliseconds since 1970-01-01 00:00 UTC.

std::int64_t KeyExchangeCurrentTimestamp();
QString KeyExchangeCurrentTimestampString();
QByteArray KeyExchangeCurrentTimestampData();
// The inverse of the sealing side's additional data: base64 of a decimal text.
std::optional<std::int64_t> KeyExchangeTimestamp(const QString& additionalData);

// ---------------------------------------------------------------------------
// Records

// The sealed envelope; all four fields are base64 text.
struct KeyExchangeAEADStore {
    QString kdfNonce;
    QString ciphertext;
    QString aeadNonce;
    QString additionalData;

    QString id() const { return ciphertext; }
    void writeJSON(JSONWriter& writer) const;
    static KeyExchangeAEADStore readJSON(const QJsonValue& value);
    bool operator==(const KeyExchangeAEADStore&) const = default;
};

// The four fields of an envelope's JSON text, viewed where they stand in it, for the common
// text that a parser would read to the same four strings: an object whose members are all
// strings of printable ASCII without escapes, each of the four keys once. Nothing for any
// other text, which is then read in full; so a reader may take this view first and lose
// nothing of what the full reading accepts or refuses.
struct KeyExchangeEnvelopeText {
    QByteArrayView kdfNonce;
    QByteArrayView ciphertext;
    QByteArrayView aeadNonce;
    QByteArrayView additionalData;
};
std::optional<KeyExchangeEnvelopeText> KeyExchangeReadEnvelopeText(QByteArrayView json);

// What encodeJSONAndEncrypt(type, id, data) seals: the request envelope of the records.
using KeyExchangeTypeIDAndData = TypeIDAndData;

// ---------------------------------------------------------------------------
// The store

class KeyExchangeStore {
public:
    // A placeholder that can neither seal nor open.
    KeyExchangeStore();
    KeyExchangeStore(KeyExchangeCurve curve, HashFunction hash, KeyExchangeKDF kdf,
                     KeyExchangeAEAD aead, const QString& externalPublicKey);
    KeyExchangeStore(const KeyExchangeStore&) = delete;
    KeyExchangeStore& operator=(const KeyExchangeStore&) = delete;

    QString LocalPublicKey() const;
    QString ExternalPublicKey() const;
    ::SharedSecret SharedSecret() const;
    void resetPrivateKey(const QString& privateKey);
    void clearExternalPublicKey();
    void setExternalPublicKey(const QString& publicKey);

    KeyExchangeAEADStore encrypt(QByteArrayView plaintext, QByteArrayView additionalData) const;
    KeyExchangeAEADStore encryptWithNonces(std::optional<QByteArrayView> kdfNonce,
                                           QByteArrayView plaintext,
                                           std::optional<QByteArrayView> aeadNonce,
                                           QByteArrayView additionalData) const;
    KeyExchangeAEADStore encodeJSONAndEncrypt(const QString& type, const QString& id,
                                              const QString& data,
                                              QByteArrayView additionalData) const;
    KeyExchangeAEADStore encodeJSONAndEncryptWithNonces(const QString& type, const QString& id,
                                                        const QString& data,
                                                        std::optional<QByteArrayView> kdfNonce,
                                                        std::optional<QByteArrayView> aeadNonce,
                                                        QByteArrayView additionalData) const;
    template <JSONEncodable T>
    KeyExchangeAEADStore encodeJSONAndEncrypt(const T& value, QByteArrayView additionalData) const {
        return encodeJSONAndEncryptWithNonces(value, std::nullopt, std::nullopt, additionalData);
    }
    template <JSONEncodable T>
    KeyExchangeAEADStore encodeJSONAndEncryptWithNonces(const T& value,
                                                        std::optional<QByteArrayView> kdfNonce,
                                                        std::optional<QByteArrayView> aeadNonce,
                                                        QByteArrayView additionalData) const {
        requirePaired();
        return encryptWithNonces(kdfNonce, JSONEncode(value), aeadNonce, additionalData);
    }

    // The envelope's JSON text, byte for byte what JSONEncode(encrypt(...)) gives, written
    // straight from the cipher without a UTF-16 copy of the ciphertext.
    QByteArray encryptToJSON(QByteArrayView plaintext, QByteArrayView additionalData) const;
    QByteArray encryptToJSONWithNonces(std::optional<QByteArrayView> kdfNonce,
                                       QByteArrayView plaintext,
                                       std::optional<QByteArrayView> aeadNonce,
                                       QByteArrayView additionalData) const;

    QByteArray decrypt(QStringView kdfNonce, QStringView ciphertext, QStringView aeadNonce,
                       QStringView additionalData) const;
    QByteArray decrypt(const KeyExchangeEnvelopeText& envelope) const;
    QByteArray decryptAEADStore(const KeyExchangeAEADStore& envelope) const;

private:
    void requirePaired() const;
    // The salt, the cipher's nonce and the key they give: the ones given, or fresh ones.
    struct SealingKey {
        QByteArray salt;
        QByteArray nonce;
        SymmetricKey key;
    };
    SealingKey sealingKey(std::optional<QByteArrayView> kdfNonce,
                          std::optional<QByteArrayView> aeadNonce,
                          QByteArrayView additionalData) const;
    ::SharedSecret pairedSecret() const;
    void setExternalPublicKeyLocked(const QString& publicKey);

    KeyExchangeCurve curve_ = KeyExchangeCurve::unknown;
    HashFunction hashFunction_ = HashFunction::SHA256;
    KeyExchangeKDF kdf_ = KeyExchangeKDF::unknown;
    KeyExchangeAEAD aead_ = KeyExchangeAEAD::unknown;

    // One lock over the keys and the secret, so a sealing never takes the
    // helper's key of one block together with the secret of another.
    mutable std::mutex lock_;
    QString privateKey_;
    QString localPublicKey_;
    QString externalPublicKey_;
    std::optional<::SharedSecret> sharedSecret_;
};

std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(
    const QString& externalPublicKey);
std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA384_HKDF_AESGCM_Store(
    const QString& externalPublicKey);
std::unique_ptr<KeyExchangeStore> KeyExchange_Curve25519_SHA512_HKDF_AESGCM_Store(
    const QString& externalPublicKey);

// ---------------------------------------------------------------------------
// Opening a received message

using KeyExchangeAuth = std::function<bool(const QString& additionalData)>;

// A message as a socket delivers it: text, or binary (which is always refused).
class KeyExchangeSocketMessage {
public:
    static KeyExchangeSocketMessage text(QString text) {
        return KeyExchangeSocketMessage{std::move(text)};
    }
    static KeyExchangeSocketMessage binary(QByteArray bytes) {
        return KeyExchangeSocketMessage{std::move(bytes)};
    }

    template <JSONDecodable T>
    T keyExchangeDecryptAndDecodeJSON(const KeyExchangeStore& kes,
                                      const KeyExchangeAuth& auth) const;

    // The opened plaintext and the envelope's additional data text as received.
    struct Opened {
        QByteArray plaintext;
        QString additionalData;
    };
    Opened open(const KeyExchangeStore& kes) const;

private:
    explicit KeyExchangeSocketMessage(std::variant<QString, QByteArray> payload)
        : payload_(std::move(payload)) {}

    std::variant<QString, QByteArray> payload_;
};

// Opens, decodes, and only then asks auth about the additional data; a refusal
// throws invalidAdditionalData.
template <JSONDecodable T>
T KeyExchangeDecryptAndDecodeJSON(const KeyExchangeSocketMessage& message,
                                  const KeyExchangeStore& kes, const KeyExchangeAuth& auth) {
    auto opened = message.open(kes);
    T value = JSONDecode<T>(opened.plaintext);
    if (!auth(opened.additionalData)) {
        throw std::system_error(KeyExchangeError::invalidAdditionalData);
    }
    return value;
}

template <JSONDecodable T>
T KeyExchangeSocketMessage::keyExchangeDecryptAndDecodeJSON(const KeyExchangeStore& kes,
                                                            const KeyExchangeAuth& auth) const {
    return KeyExchangeDecryptAndDecodeJSON<T>(*this, kes, auth);
}
