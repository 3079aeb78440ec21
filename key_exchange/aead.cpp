#include <openssl/rand.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstdint>

#include "diagnostics/diagnostics.h"
#include "openssl_support.h"
#include "records/base64.h"
#include "stops.h"

namespace {

constexpr qsizetype kNonceSize = 12;
constexpr qsizetype kTagSize = 16;
constexpr qsizetype kRandomKeySize = 32;

// Long texts are coded in chunks that stay in the first-level cache between the cipher and the
// base64 coder, instead of a full-size combined buffer written once and read again. A chunk is
// whole base64 groups (3 bytes, 4 characters) and whole cipher blocks (16 bytes).
//
// Sealing takes small chunks: the text of one (2 KiB of UTF-16) fits the store buffer, so
// it drains to memory while the cipher works on the next chunk instead of stalling the coder.
// That outweighs the cost of more cipher calls. Opening gains nothing from it, since the text
// must be read before it can be decoded, and takes larger chunks for fewer calls.
constexpr qsizetype kSealChunkBytes = 3 * 256;
constexpr qsizetype kOpenChunkBytes = 3 * 1024;

// Fetched once: an implicit fetch on every context would go through OpenSSL's provider
// lookup for each message.
const EVP_CIPHER* fetched(const char* name) {
    EVP_CIPHER* cipher = EVP_CIPHER_fetch(nullptr, name, nullptr);
    if (cipher == nullptr) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return cipher;
}

const EVP_CIPHER* aesGcm(qsizetype keySize) {
    switch (keySize) {
        case 16: {
            static const EVP_CIPHER* const cipher = fetched("AES-128-GCM");
            return cipher;
        }
        case 24: {
            static const EVP_CIPHER* const cipher = fetched("AES-192-GCM");
            return cipher;
        }
        case 32: {
            static const EVP_CIPHER* const cipher = fetched("AES-256-GCM");
            return cipher;
        }
        default:
            ThrowCrypto(CryptoError::incorrectKeySize);
    }
}

const EVP_CIPHER* chaChaPoly(qsizetype keySize) {
    if (keySize != 32) {
        ThrowCrypto(CryptoError::incorrectKeySize);
    }
    static const EVP_CIPHER* const cipher = fetched("ChaCha20-Poly1305");
    return cipher;
}

const EVP_CIPHER* cipherFor(KeyExchangeAEAD aead, qsizetype keySize) {
    switch (aead) {
        case KeyExchangeAEAD::aesgcm:
            return aesGcm(keySize);
        case KeyExchangeAEAD::chachapoly:
            return chaChaPoly(keySize);
        case KeyExchangeAEAD::unknown:
            break;
    }
    throw std::system_error(KeyExchangeError::invalidAEAD);
}

void requireKnown(KeyExchangeAEAD aead) {
    if (aead != KeyExchangeAEAD::aesgcm && aead != KeyExchangeAEAD::chachapoly) {
        throw std::system_error(KeyExchangeError::invalidAEAD);
    }
}

const unsigned char* unsignedData(QByteArrayView view) {
    return reinterpret_cast<const unsigned char*>(view.data());
}

// One sealing or opening under one key and nonce. The nonce has been checked by the caller;
// both ciphers take 12 bytes by default.
class CipherRun {
public:
    CipherRun(const EVP_CIPHER* cipher, bool sealing, const SymmetricKey& key,
              const unsigned char* nonce, QByteArrayView additionalData)
        : context_(EVP_CIPHER_CTX_new()) {
        if (!context_ || EVP_CipherInit_ex2(context_.get(), cipher, unsignedData(key.view()), nonce,
                                            sealing ? 1 : 0, nullptr) != 1) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        if (!additionalData.isEmpty()) {
            update(unsignedData(additionalData), additionalData.size(), nullptr);
        }
    }

    // The cipher is a stream: as many bytes come out as go in.
    void update(const unsigned char* in, qsizetype size, unsigned char* out) {
        while (size > 0) {
            const int step = static_cast<int>(std::min<qsizetype>(size, INT_MAX / 2));
            int written = 0;
            if (EVP_CipherUpdate(context_.get(), out, &written, in, step) != 1) {
                ThrowCrypto(CryptoError::libraryFailure);
            }
            in += step;
            out = out == nullptr ? nullptr : out + step;
            size -= step;
        }
    }

    void finishSealing(unsigned char* tag) {
        int written = 0;
        if (EVP_CipherFinal_ex(context_.get(), nullptr, &written) != 1 ||
            EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_GET_TAG, kTagSize, tag) != 1) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
    }

    [[nodiscard]] bool finishOpening(const unsigned char* tag) {
        int written = 0;
        if (EVP_CIPHER_CTX_ctrl(context_.get(), EVP_CTRL_AEAD_SET_TAG, kTagSize,
                                const_cast<unsigned char*>(tag)) != 1) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        return EVP_CipherFinal_ex(context_.get(), nullptr, &written) == 1;
    }

private:
    CipherCtxPtr context_;
};

SealedBox seal(const EVP_CIPHER* cipher, const SymmetricKey& key, QByteArrayView message,
               QByteArrayView nonce, QByteArrayView additionalData) {
    CipherRun run(cipher, true, key, unsignedData(nonce), additionalData);
    SealedBox box{nonce.toByteArray(), QByteArray(message.size(), Qt::Uninitialized),
                  QByteArray(kTagSize, Qt::Uninitialized)};
    run.update(unsignedData(message), message.size(),
               reinterpret_cast<unsigned char*>(box.ciphertext.data()));
    run.finishSealing(reinterpret_cast<unsigned char*>(box.tag.data()));
    return box;
}

QByteArray open(const EVP_CIPHER* cipher, const SymmetricKey& key, QByteArrayView combined,
                QByteArrayView additionalData) {
    const qsizetype size = combined.size() - kNonceSize - kTagSize;
    CipherRun run(cipher, false, key, unsignedData(combined), additionalData);
    QByteArray plaintext(size, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(plaintext.data());
    run.update(unsignedData(combined) + kNonceSize, size, out);
    if (!run.finishOpening(unsignedData(combined) + kNonceSize + size)) {
        OPENSSL_cleanse(out, static_cast<std::size_t>(size));
        ThrowCrypto(CryptoError::authenticationFailure);
    }
    return plaintext;
}

void requireNonce(QByteArrayView nonce) {
    if (nonce.size() != kNonceSize) {
        ThrowCrypto(CryptoError::incorrectParameterSize);
    }
}

void requireCombined(QByteArrayView combined) {
    if (combined.size() < kNonceSize + kTagSize) {
        ThrowCrypto(CryptoError::incorrectParameterSize);
    }
}

// Opens the combined form straight from its base64 text, chunk by chunk. A character outside
// the alphabet stops the program wherever it is found, and the tag is only known at the end,
// so nothing is reported before the whole text has been read, as with decoding it first.
template <typename Char>
QByteArray openText(const EVP_CIPHER* cipher, const SymmetricKey& key, const Char* in,
                    qsizetype length, qsizetype combinedSize, QByteArrayView additionalData) {
    const qsizetype groupCount = length / 4;
    std::array<unsigned char, kNonceSize> nonce{};
    if (!Base64DecodeGroups(in, kNonceSize / 3, nonce.data())) {
        Diagnostics::stop(kKeyExchangeStopHeading, "the ciphertext is not base64");
    }
    CipherRun run(cipher, false, key, nonce.data(), additionalData);

    const qsizetype tagStart = combinedSize - kTagSize;
    QByteArray plaintext(tagStart - kNonceSize, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(plaintext.data());
    std::array<unsigned char, kTagSize> tag{};
    qsizetype position = kNonceSize;
    // Routes decoded bytes to the cipher or, past the ciphertext, into the tag.
    const auto consume = [&](const unsigned char* bytes, qsizetype size) {
        const qsizetype toCipher = std::clamp<qsizetype>(tagStart - position, 0, size);
        if (toCipher > 0) {
            run.update(bytes, toCipher, out + (position - kNonceSize));
        }
        if (toCipher < size) {
            std::copy(bytes + toCipher, bytes + size,
                      tag.data() + (position + toCipher - tagStart));
        }
        position += size;
    };

    constexpr qsizetype kChunkGroups = kOpenChunkBytes / 3;
    alignas(64) std::array<unsigned char, kOpenChunkBytes> chunk;
    for (qsizetype group = kNonceSize / 3; group < groupCount - 1;) {
        const qsizetype groups = std::min(kChunkGroups, groupCount - 1 - group);
        if (!Base64DecodeGroups(in + 4 * group, groups, chunk.data())) {
            Diagnostics::stop(kKeyExchangeStopHeading, "the ciphertext is not base64");
        }
        consume(chunk.data(), 3 * groups);
        group += groups;
    }
    const int last = Base64DecodeLastGroup(in + 4 * (groupCount - 1), chunk.data());
    if (last < 0) {
        Diagnostics::stop(kKeyExchangeStopHeading, "the ciphertext is not base64");
    }
    consume(chunk.data(), last);

    if (!run.finishOpening(tag.data())) {
        OPENSSL_cleanse(out, static_cast<std::size_t>(plaintext.size()));
        ThrowCrypto(CryptoError::authenticationFailure);
    }
    return plaintext;
}

}  // namespace

namespace {

template <typename Text>
QByteArray decodeOrStop(Text text, const char* reason) {
    std::optional<QByteArray> bytes = Base64Decode(text);
    if (!bytes) {
        Diagnostics::stop(kKeyExchangeStopHeading, reason);
    }
    return *std::move(bytes);
}

}  // namespace

QByteArray DecodeBase64OrStop(QStringView text, const char* reason) {
    return decodeOrStop(text, reason);
}

QByteArray DecodeBase64OrStop(QByteArrayView text, const char* reason) {
    return decodeOrStop(text, reason);
}

QByteArray KeyExchangeRandomBytes(std::int64_t count) {
    if (count < 0) {
        Diagnostics::stop(kKeyExchangeStopHeading, "a negative count of random bytes");
    }
    if (count > INT64_MAX / 8) {
        Diagnostics::stop(kKeyExchangeStopHeading, "the bit count of the random bytes overflows");
    }
    QByteArray bytes(static_cast<qsizetype>(count), Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(bytes.data());
    for (std::int64_t done = 0; done < count;) {
        const int step = static_cast<int>(std::min<std::int64_t>(count - done, INT_MAX));
        if (RAND_bytes(out + done, step) != 1) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        done += step;
    }
    return bytes;
}

QByteArray KeyExchangeRandomBits(std::int64_t bitCount) {
    if (bitCount < 0) {
        Diagnostics::stop(kKeyExchangeStopHeading, "a negative count of random bits");
    }
    return KeyExchangeRandomBytes(bitCount / 8);
}

QByteArray AEADRandomKey(KeyExchangeAEAD aead) {
    requireKnown(aead);
    return KeyExchangeRandomBytes(kRandomKeySize);
}

QByteArray AEADRandomNonce(KeyExchangeAEAD aead) {
    requireKnown(aead);
    return KeyExchangeRandomBytes(kNonceSize);
}

QByteArray AEADRandomNonces(KeyExchangeAEAD aead) {
    requireKnown(aead);
    return KeyExchangeRandomBytes(kRandomKeySize + kNonceSize);
}

SealedBox AESGCMEncrypt(const SymmetricKey& key, QByteArrayView message, QByteArrayView nonce,
                        QByteArrayView additionalData) {
    requireNonce(nonce);
    return seal(aesGcm(key.size()), key, message, nonce, additionalData);
}

QByteArray AESGCMDecrypt(const SymmetricKey& key, QByteArrayView combined,
                         QByteArrayView additionalData) {
    requireCombined(combined);
    return open(aesGcm(key.size()), key, combined, additionalData);
}

SealedBox ChaChaPolyEncrypt(const SymmetricKey& key, QByteArrayView message, QByteArrayView nonce,
                            QByteArrayView additionalData) {
    requireNonce(nonce);
    return seal(chaChaPoly(key.size()), key, message, nonce, additionalData);
}

QByteArray ChaChaPolyDecrypt(const SymmetricKey& key, QByteArrayView combined,
                             QByteArrayView additionalData) {
    requireCombined(combined);
    return open(chaChaPoly(key.size()), key, combined, additionalData);
}

namespace {

template <typename Char>
void sealText(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView plaintext,
              QByteArrayView aeadNonce, QByteArrayView additionalData, Char* out) {
    requireKnown(aead);
    requireNonce(aeadNonce);
    CipherRun run(cipherFor(aead, key.size()), true, key, unsignedData(aeadNonce), additionalData);
    Base64EncodeGroups(unsignedData(aeadNonce), kNonceSize / 3, out);
    out += Base64EncodedLength(kNonceSize);

    // The last chunk keeps room for the tag behind the ciphertext, so the two are coded together.
    constexpr qsizetype kChunkGroups = kSealChunkBytes / 3;
    alignas(64) std::array<unsigned char, kSealChunkBytes + kTagSize> chunk;
    const unsigned char* in = unsignedData(plaintext);
    qsizetype left = plaintext.size();
    while (left > kSealChunkBytes) {
        run.update(in, kSealChunkBytes, chunk.data());
        Base64EncodeGroups(chunk.data(), kChunkGroups, out);
        in += kSealChunkBytes;
        left -= kSealChunkBytes;
        out += 4 * kChunkGroups;
    }
    run.update(in, left, chunk.data());
    run.finishSealing(chunk.data() + left);
    const qsizetype tail = left + kTagSize;
    Base64EncodeGroups(chunk.data(), tail / 3, out);
    Base64EncodeLastGroup(chunk.data() + tail / 3 * 3, tail % 3, out + tail / 3 * 4);
}

template <typename Char, typename Text>
QByteArray decryptText(KeyExchangeAEAD aead, const SymmetricKey& key, Text ciphertext,
                       Text additionalData) {
    requireKnown(aead);
    const std::optional<qsizetype> combinedSize = Base64DecodedLength(ciphertext);
    if (!combinedSize) {
        Diagnostics::stop(kKeyExchangeStopHeading, "the ciphertext is not base64");
    }
    const QByteArray authenticated =
        DecodeBase64OrStop(additionalData, "the additional data is not base64");
    const bool keyFits = aead == KeyExchangeAEAD::chachapoly
                             ? key.size() == 32
                             : key.size() == 16 || key.size() == 24 || key.size() == 32;
    if (*combinedSize < kNonceSize + kTagSize || !keyFits) {
        // The refusal comes after the whole text has been decoded, so a text that is not base64
        // still stops the program first.
        const QByteArray combined = DecodeBase64OrStop(ciphertext, "the ciphertext is not base64");
        return aead == KeyExchangeAEAD::aesgcm ? AESGCMDecrypt(key, combined, authenticated)
                                               : ChaChaPolyDecrypt(key, combined, authenticated);
    }
    return openText(cipherFor(aead, key.size()), key,
                    reinterpret_cast<const Char*>(ciphertext.data()), ciphertext.size(),
                    *combinedSize, authenticated);
}

}  // namespace

QString AEADEncrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView plaintext,
                    QByteArrayView aeadNonce, QByteArrayView additionalData) {
    QString text(Base64EncodedLength(kNonceSize + plaintext.size() + kTagSize), Qt::Uninitialized);
    sealText(aead, key, plaintext, aeadNonce, additionalData,
             reinterpret_cast<char16_t*>(text.data()));
    return text;
}

void AEADEncryptInto(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView plaintext,
                     QByteArrayView aeadNonce, QByteArrayView additionalData, char* out) {
    sealText(aead, key, plaintext, aeadNonce, additionalData, out);
}

qsizetype AEADCiphertextTextLength(qsizetype plaintextSize) {
    return Base64EncodedLength(kNonceSize + plaintextSize + kTagSize);
}

QByteArray AEADDecrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QStringView ciphertext,
                       QStringView aeadNonce, QStringView additionalData) {
    Q_UNUSED(aeadNonce);  // only the nonce inside the combined form counts
    return decryptText<char16_t>(aead, key, ciphertext, additionalData);
}

QByteArray AEADDecrypt(KeyExchangeAEAD aead, const SymmetricKey& key, QByteArrayView ciphertext,
                       QByteArrayView aeadNonce, QByteArrayView additionalData) {
    Q_UNUSED(aeadNonce);
    return decryptText<char>(aead, key, ciphertext, additionalData);
}
