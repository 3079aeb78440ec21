#pragma once

// The check that a downloaded archive is the one the feed announced and the publisher signed:
// its exact length, then an Ed25519 signature over all of its bytes.

#include <QByteArrayView>
#include <QString>

inline constexpr qsizetype kEd25519PublicKeyLength = 32;

// Throws UpdaterFailure: noPublicKey, signatureMissing (no signature or no length in the
// feed), lengthMismatch, signatureInvalid (also for a file that cannot be read).
void VerifyUpdateArchive(const QString& archivePath, qint64 expectedLength,
                         QByteArrayView publicKey, QByteArrayView signature);
