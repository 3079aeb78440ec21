#include "update_signature.h"

#include <openssl/err.h>
#include <openssl/evp.h>

#include <QFile>
#include <memory>

#include "updater_error.h"

namespace {

struct PKeyFree {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct MdCtxFree {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

bool ed25519Verify(QByteArrayView publicKey, QByteArrayView message, QByteArrayView signature) {
    const std::unique_ptr<EVP_PKEY, PKeyFree> key(EVP_PKEY_new_raw_public_key(
        EVP_PKEY_ED25519, nullptr, reinterpret_cast<const unsigned char*>(publicKey.data()),
        static_cast<size_t>(publicKey.size())));
    const std::unique_ptr<EVP_MD_CTX, MdCtxFree> context(EVP_MD_CTX_new());
    // Ed25519 signs the message itself, so it is verified in one call with no digest.
    const bool verified =
        key && context &&
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.data()),
                         static_cast<size_t>(signature.size()),
                         reinterpret_cast<const unsigned char*>(message.data()),
                         static_cast<size_t>(message.size())) == 1;
    ERR_clear_error();
    return verified;
}

}  // namespace

void VerifyUpdateArchive(const QString& archivePath, qint64 expectedLength,
                         QByteArrayView publicKey, QByteArrayView signature) {
    if (publicKey.size() != kEd25519PublicKeyLength) {
        throw UpdaterFailure(UpdaterError::noPublicKey, QString());
    }
    if (signature.isEmpty() || expectedLength < 0) {
        throw UpdaterFailure(UpdaterError::signatureMissing, QString());
    }
    QFile archive(archivePath);
    if (!archive.open(QIODevice::ReadOnly)) {
        throw UpdaterFailure(UpdaterError::signatureInvalid, archive.errorString());
    }
    if (archive.size() != expectedLength) {
        throw UpdaterFailure(UpdaterError::lengthMismatch,
                             QStringLiteral("%1 bytes received, %2 announced")
                                 .arg(archive.size())
                                 .arg(expectedLength));
    }
    // Mapped rather than read, so a large archive is not copied into memory first.
    const uchar* bytes = expectedLength == 0 ? nullptr : archive.map(0, expectedLength);
    if (expectedLength != 0 && bytes == nullptr) {
        throw UpdaterFailure(UpdaterError::signatureInvalid, archive.errorString());
    }
    const QByteArrayView contents(reinterpret_cast<const char*>(bytes), expectedLength);
    if (!ed25519Verify(publicKey, contents, signature)) {
        throw UpdaterFailure(UpdaterError::signatureInvalid, QString());
    }
}
