#include <string>

#include "key_exchange.h"

namespace {

class KeyExchangeCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "KeyExchangeError"; }
    std::string message(int value) const override {
        switch (static_cast<KeyExchangeError>(value)) {
            case KeyExchangeError::invalidKey:
                return "invalidKey";
            case KeyExchangeError::invalidFormat:
                return "invalidFormat";
            case KeyExchangeError::invalidCurve:
                return "invalidCurve";
            case KeyExchangeError::invalidKDF:
                return "invalidKDF";
            case KeyExchangeError::invalidAEAD:
                return "invalidAEAD";
            case KeyExchangeError::invalidAdditionalData:
                return "invalidAdditionalData";
            case KeyExchangeError::publicKeyNotSet:
                return "publicKeyNotSet";
            case KeyExchangeError::emptyPublicKey:
                return "emptyPublicKey";
            case KeyExchangeError::invalidAdditionalDataEncoding:
                return "invalidAdditionalDataEncoding";
        }
        return "unknown KeyExchangeError";
    }
};

class PEMCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "PEMError"; }
    std::string message(int value) const override {
        if (static_cast<PEMError>(value) == PEMError::doesNotExist) {
            return "doesNotExist";
        }
        return "unknown PEMError";
    }
};

class CryptoCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "CryptoError"; }
    std::string message(int value) const override {
        switch (static_cast<CryptoError>(value)) {
            case CryptoError::incorrectKeySize:
                return "incorrectKeySize";
            case CryptoError::incorrectParameterSize:
                return "incorrectParameterSize";
            case CryptoError::invalidKeyRepresentation:
                return "invalidKeyRepresentation";
            case CryptoError::keyAgreementFailure:
                return "keyAgreementFailure";
            case CryptoError::authenticationFailure:
                return "authenticationFailure";
            case CryptoError::derivationFailure:
                return "derivationFailure";
            case CryptoError::libraryFailure:
                return "libraryFailure";
        }
        return "unknown CryptoError";
    }
};

}  // namespace

const std::error_category& KeyExchangeErrorCategory() {
    static const KeyExchangeCategory category;
    return category;
}

const std::error_category& PEMErrorCategory() {
    static const PEMCategory category;
    return category;
}

const std::error_category& CryptoErrorCategory() {
    static const CryptoCategory category;
    return category;
}

std::error_code make_error_code(KeyExchangeError error) {
    return {static_cast<int>(error), KeyExchangeErrorCategory()};
}

std::error_code make_error_code(PEMError error) {
    return {static_cast<int>(error), PEMErrorCategory()};
}

std::error_code make_error_code(CryptoError error) {
    return {static_cast<int>(error), CryptoErrorCategory()};
}
