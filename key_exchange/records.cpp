#include "key_exchange/key_exchange.h"

using namespace Qt::Literals::StringLiterals;

void KeyExchangeAEADStore::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.key("KDFNonce"_L1);
    writer.value(kdfNonce);
    writer.key("Ciphertext"_L1);
    writer.value(ciphertext);
    writer.key("AEADNonce"_L1);
    writer.value(aeadNonce);
    writer.key("AdditionalData"_L1);
    writer.value(additionalData);
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

void KeyExchangeTypeIDAndData::writeJSON(JSONWriter& writer) const {
    writer.beginObject();
    writer.key("Type"_L1);
    writer.value(type);
    writer.key("ID"_L1);
    writer.value(id);
    writer.key("Data"_L1);
    writer.value(data);
    writer.endObject();
}

KeyExchangeTypeIDAndData KeyExchangeTypeIDAndData::readJSON(const QJsonValue& value) {
    const QJsonObject object = json::requireObject(value);
    return {
        json::requireString(object, "Type"_L1),
        json::requireString(object, "ID"_L1),
        json::requireString(object, "Data"_L1),
    };
}
