#include "key_exchange.h"

KeyExchangeSocketMessage::Opened KeyExchangeSocketMessage::open(const KeyExchangeStore& kes) const {
    const QString* text = std::get_if<QString>(&payload_);
    if (text == nullptr) {
        throw std::system_error(KeyExchangeError::invalidFormat);
    }
    // A lone surrogate has no UTF-8 form.
    if (!QStringView(*text).isValidUtf16()) {
        throw std::system_error(KeyExchangeError::invalidFormat);
    }
    const auto envelope = JSONDecode<KeyExchangeAEADStore>(text->toUtf8());
    return {kes.decryptAEADStore(envelope), envelope.additionalData};
}
