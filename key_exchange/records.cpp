#include "key_exchange.h"

using namespace Qt::Literals::StringLiterals;

void KeyExchangeAEADStore::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.member("KDFNonce"_L1, kdfNonce);
    writer.member("Ciphertext"_L1, ciphertext);
    writer.member("AEADNonce"_L1, aeadNonce);
    writer.member("AdditionalData"_L1, additionalData);
    writer.endObject();
}

KeyExchangeAEADStore KeyExchangeAEADStore::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        json::requireString(object, "KDFNonce"_L1),
        json::requireString(object, "Ciphertext"_L1),
        json::requireString(object, "AEADNonce"_L1),
        json::requireString(object, "AdditionalData"_L1),
    };
}
