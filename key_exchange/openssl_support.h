#pragma once

// Owning handles for OpenSSL objects and the package's way of reporting OpenSSL failures.

#include <openssl/bn.h>
#include <openssl/evp.h>

#include <memory>
#include <system_error>

#include "key_exchange.h"

template <auto Free>
struct OpenSSLDeleter {
    template <typename T>
    void operator()(T* object) const {
        Free(object);
    }
};

using PKeyPtr = std::unique_ptr<EVP_PKEY, OpenSSLDeleter<EVP_PKEY_free>>;
using PKeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpenSSLDeleter<EVP_PKEY_CTX_free>>;
using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpenSSLDeleter<EVP_CIPHER_CTX_free>>;
using MacCtxPtr = std::unique_ptr<EVP_MAC_CTX, OpenSSLDeleter<EVP_MAC_CTX_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpenSSLDeleter<BN_clear_free>>;

// Drops whatever OpenSSL queued about the failure (so it cannot be mistaken later for the
// cause of another) and throws the package's error instead.
[[noreturn]] void ThrowCrypto(CryptoError error);

// An EVP_PKEY held by the key classes.
std::shared_ptr<evp_pkey_st> SharePKey(PKeyPtr key);
