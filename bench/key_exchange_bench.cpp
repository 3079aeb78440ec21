// Sealing and opening one envelope with the store, against a floor measured in the same run:
// bare OpenSSL doing the same cryptography (HKDF-SHA-256 with a 32-byte salt and the timestamp
// as info, then AES-256-GCM) on the same bytes, without base64 or the envelope. The floor's
// sealing draws its salt and nonce as the store does, since every real sealing needs them.
//
// Prints the median of each benchmark, then library / floor for each pair.

#include <benchmark/benchmark.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/kdf.h>
#include <openssl/params.h>
#include <openssl/rand.h>

#include <cstdio>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>

#include "key_exchange/key_exchange.h"

namespace {

constexpr qsizetype kPing = 300;
constexpr qsizetype kLarge = 2 << 20;
constexpr int kRepetitions = 15;
const QByteArray kTimestamp = "1700000000123";

QByteArray Plaintext(qsizetype size) {
    return KeyExchangeRandomBytes(size);
}

struct Stores {
    std::unique_ptr<KeyExchangeStore> app = KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store({});
    std::unique_ptr<KeyExchangeStore> helper =
        KeyExchange_Curve25519_SHA256_HKDF_AESGCM_Store(app->LocalPublicKey());
    Stores() { app->setExternalPublicKey(helper->LocalPublicKey()); }
};

Stores& PairedStores() {
    static Stores stores;
    return stores;
}

void Require(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(what);
    }
}

// The minimum a sealing needs from OpenSSL: algorithms fetched once, contexts per message.
class Floor {
public:
    Floor()
        : kdf_(EVP_KDF_fetch(nullptr, "HKDF", nullptr)),
          cipher_(EVP_CIPHER_fetch(nullptr, "AES-256-GCM", nullptr)) {
        Require(kdf_ != nullptr && cipher_ != nullptr, "fetch");
        Require(RAND_bytes(secret_, sizeof secret_) == 1, "secret");
    }
    ~Floor() {
        EVP_KDF_free(kdf_);
        EVP_CIPHER_free(cipher_);
    }
    Floor(const Floor&) = delete;
    Floor& operator=(const Floor&) = delete;

    // nonce, ciphertext, tag
    std::unique_ptr<unsigned char[]> seal(const QByteArray& plaintext, unsigned char* salt) const {
        Require(RAND_bytes(salt, 32) == 1, "salt");
        unsigned char key[32];
        derive(salt, key);
        const auto size = static_cast<int>(plaintext.size());
        std::unique_ptr<unsigned char[]> combined(new unsigned char[12 + size + 16]);
        Require(RAND_bytes(combined.get(), 12) == 1, "nonce");
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        int written = 0;
        Require(EVP_EncryptInit_ex2(context, cipher_, key, combined.get(), nullptr) == 1 &&
                    EVP_EncryptUpdate(context, nullptr, &written, Info(), InfoSize()) == 1 &&
                    EVP_EncryptUpdate(context, combined.get() + 12, &written,
                                      reinterpret_cast<const unsigned char*>(plaintext.data()),
                                      size) == 1 &&
                    EVP_EncryptFinal_ex(context, nullptr, &written) == 1 &&
                    EVP_CIPHER_CTX_ctrl(context, EVP_CTRL_AEAD_GET_TAG, 16,
                                        combined.get() + 12 + size) == 1,
                "seal");
        EVP_CIPHER_CTX_free(context);
        return combined;
    }

    std::unique_ptr<unsigned char[]> open(const unsigned char* combined, int plaintextSize,
                                          const unsigned char* salt) const {
        unsigned char key[32];
        derive(salt, key);
        std::unique_ptr<unsigned char[]> plaintext(new unsigned char[plaintextSize]);
        EVP_CIPHER_CTX* context = EVP_CIPHER_CTX_new();
        int written = 0;
        Require(EVP_DecryptInit_ex2(context, cipher_, key, combined, nullptr) == 1 &&
                    EVP_DecryptUpdate(context, nullptr, &written, Info(), InfoSize()) == 1 &&
                    EVP_DecryptUpdate(context, plaintext.get(), &written, combined + 12,
                                      plaintextSize) == 1 &&
                    EVP_CIPHER_CTX_ctrl(
                        context, EVP_CTRL_AEAD_SET_TAG, 16,
                        const_cast<unsigned char*>(combined + 12 + plaintextSize)) == 1 &&
                    EVP_DecryptFinal_ex(context, nullptr, &written) == 1,
                "open");
        EVP_CIPHER_CTX_free(context);
        return plaintext;
    }

private:
    static const unsigned char* Info() {
        return reinterpret_cast<const unsigned char*>(kTimestamp.data());
    }
    static int InfoSize() { return static_cast<int>(kTimestamp.size()); }

    void derive(const unsigned char* salt, unsigned char* key) const {
        EVP_KDF_CTX* context = EVP_KDF_CTX_new(kdf_);
        const OSSL_PARAM params[] = {
            OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, const_cast<char*>("SHA256"), 0),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_KEY,
                                              const_cast<unsigned char*>(secret_), sizeof secret_),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, const_cast<unsigned char*>(salt),
                                              32),
            OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_INFO,
                                              const_cast<char*>(kTimestamp.data()),
                                              static_cast<std::size_t>(kTimestamp.size())),
            OSSL_PARAM_construct_end(),
        };
        Require(EVP_KDF_derive(context, key, 32, params) == 1, "derive");
        EVP_KDF_CTX_free(context);
    }

    EVP_KDF* kdf_;
    EVP_CIPHER* cipher_;
    unsigned char secret_[32];
};

const Floor& TheFloor() {
    static const Floor floor;
    return floor;
}

void LibrarySeal(benchmark::State& state) {
    const QByteArray plaintext = Plaintext(state.range(0));
    const KeyExchangeStore& store = *PairedStores().app;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.encrypt(plaintext, kTimestamp));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void LibraryOpen(benchmark::State& state) {
    const KeyExchangeAEADStore envelope =
        PairedStores().app->encrypt(Plaintext(state.range(0)), kTimestamp);
    const KeyExchangeStore& store = *PairedStores().helper;
    for (auto _ : state) {
        benchmark::DoNotOptimize(store.decryptAEADStore(envelope));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void FloorSeal(benchmark::State& state) {
    const QByteArray plaintext = Plaintext(state.range(0));
    unsigned char salt[32];
    for (auto _ : state) {
        benchmark::DoNotOptimize(TheFloor().seal(plaintext, salt));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void FloorOpen(benchmark::State& state) {
    const QByteArray plaintext = Plaintext(state.range(0));
    unsigned char salt[32];
    const auto combined = TheFloor().seal(plaintext, salt);
    const auto size = static_cast<int>(plaintext.size());
    for (auto _ : state) {
        benchmark::DoNotOptimize(TheFloor().open(combined.get(), size, salt));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

#define KX_BENCHMARK(function)          \
    BENCHMARK(function)                 \
        ->Arg(kPing)                    \
        ->Arg(kLarge)                   \
        ->Unit(benchmark::kMicrosecond) \
        ->Repetitions(kRepetitions)     \
        ->ReportAggregatesOnly(true)

KX_BENCHMARK(FloorSeal);
KX_BENCHMARK(LibrarySeal);
KX_BENCHMARK(FloorOpen);
KX_BENCHMARK(LibraryOpen);

// Prints as usual and keeps every median, keyed by the run's name without the aggregate.
class MedianReporter : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (run.aggregate_name == "median") {
                medians[run.run_name.function_name + "/" + run.run_name.args] =
                    run.GetAdjustedRealTime();
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    std::map<std::string, double> medians;
};

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    MedianReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();

    std::printf("\nlibrary / floor (medians)\n");
    for (const char* operation : {"Seal", "Open"}) {
        for (const qsizetype size : {kPing, kLarge}) {
            const std::string suffix = "/" + std::to_string(size);
            const auto library = reporter.medians.find("Library" + std::string(operation) + suffix);
            const auto floor = reporter.medians.find("Floor" + std::string(operation) + suffix);
            if (library == reporter.medians.end() || floor == reporter.medians.end()) {
                continue;
            }
            std::printf("%-5s %8lld bytes: %9.2f us / %9.2f us = %.2fx\n", operation,
                        static_cast<long long>(size), library->second, floor->second,
                        library->second / floor->second);
        }
    }
    return 0;
}
