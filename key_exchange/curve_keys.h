#pragma once

// Reading key texts for any curve; the per-curve named readers are thin wrappers around these.

#include <QString>

#include "key_exchange.h"

// An empty text makes a new key. Throws invalidCurve (before the text is looked at), invalidKey
// for text that is not base64, CryptoError::invalidKeyRepresentation for bytes that are no key.
KeyAgreementPrivateKey KeyExchangeReadPrivateKey(KeyExchangeCurve curve, const QString& text);
// An empty text is invalidKey; otherwise as above.
KeyAgreementPublicKey KeyExchangeReadPublicKey(KeyExchangeCurve curve, const QString& text);
