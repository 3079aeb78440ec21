#pragma once

// The block in which the helper announces its public key on standard output.

#include <QByteArray>
#include <QString>

// "-----BEGIN PUBLIC KEY-----\n<base64>\n-----END PUBLIC KEY-----\n"
QByteArray KeyBlock(const QString& publicKey);

// A block with the right markers around a body the application cannot decode.
QByteArray MalformedKeyBlock();

// True once per marker file: when the file does not exist yet it is created and
// the caller should print the malformed block; afterwards the good one.
bool ClaimMalformedKeyBlock(const QString& markerPath);
