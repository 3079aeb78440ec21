#include <openssl/crypto.h>

#include <algorithm>
#include <utility>

#include "key_exchange.h"

SecretBytes::SecretBytes(QByteArrayView bytes)
    : bytes_(bytes.isEmpty() ? nullptr : new char[static_cast<std::size_t>(bytes.size())]),
      size_(bytes.size()) {
    std::copy(bytes.begin(), bytes.end(), bytes_.get());
}

SecretBytes::SecretBytes(const SecretBytes& other) : SecretBytes(other.view()) {}

SecretBytes& SecretBytes::operator=(const SecretBytes& other) {
    if (this != &other) {
        SecretBytes copy(other);
        *this = std::move(copy);
    }
    return *this;
}

SecretBytes::SecretBytes(SecretBytes&& other) noexcept
    : bytes_(std::move(other.bytes_)), size_(std::exchange(other.size_, 0)) {}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
    if (this != &other) {
        wipe();
        bytes_ = std::move(other.bytes_);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

SecretBytes::~SecretBytes() {
    wipe();
}

QByteArray SecretBytes::data() const {
    return view().toByteArray();
}

bool SecretBytes::operator==(const SecretBytes& other) const {
    return size_ == other.size_ &&
           (size_ == 0 ||
            CRYPTO_memcmp(bytes_.get(), other.bytes_.get(), static_cast<std::size_t>(size_)) == 0);
}

void SecretBytes::wipe() {
    if (bytes_) {
        OPENSSL_cleanse(bytes_.get(), static_cast<std::size_t>(size_));
    }
    bytes_.reset();
    size_ = 0;
}
