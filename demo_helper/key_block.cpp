#include "key_block.h"

#include <QFile>

namespace {

QByteArray blockAround(const QByteArray& body) {
    return QByteArrayLiteral("-----BEGIN PUBLIC KEY-----\n") + body +
           QByteArrayLiteral("\n-----END PUBLIC KEY-----\n");
}

}  // namespace

QByteArray KeyBlock(const QString& publicKey) {
    return blockAround(publicKey.toUtf8());
}

QByteArray MalformedKeyBlock() {
    // '*' is outside the base64 alphabet, so the application's strict decoder refuses it.
    return blockAround(QByteArrayLiteral("this*is*not*a*base64*key"));
}

bool ClaimMalformedKeyBlock(const QString& markerPath) {
    QFile marker(markerPath);
    // NewOnly is O_EXCL: of two helpers racing for the marker, one prints the bad block.
    return marker.open(QIODevice::WriteOnly | QIODevice::NewOnly);
}
