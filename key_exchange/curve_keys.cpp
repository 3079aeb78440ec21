// Key pairs of the four curves in their raw forms. X25519 keys are its 32-byte strings; the
// NIST curves' public keys are the uncompressed point without its leading 0x04, their private
// keys the big-endian scalar padded to the field's byte length. The curves differ only in the
// rows of one table and in which of two OpenSSL key shapes they use.

#include "curve_keys.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/obj_mac.h>
#include <openssl/param_build.h>

#include <array>

#include "openssl_support.h"
#include "records/base64.h"

namespace {

struct CurveInfo {
    KeyExchangeCurve curve;
    bool montgomery;        // X25519's raw byte strings rather than a NIST point and scalar
    const char* groupName;  // OpenSSL's name of the curve
    int nid;
    qsizetype privateSize;
    qsizetype publicSize;
};

constexpr std::array<CurveInfo, 4> kCurves{{
    {KeyExchangeCurve::curve25519, true, "X25519", NID_X25519, 32, 32},
    {KeyExchangeCurve::p256, false, "P-256", NID_X9_62_prime256v1, 32, 64},
    {KeyExchangeCurve::p384, false, "P-384", NID_secp384r1, 48, 96},
    {KeyExchangeCurve::p521, false, "P-521", NID_secp521r1, 66, 132},
}};

constexpr unsigned char kUncompressedPoint = 0x04;

const CurveInfo& curveInfo(KeyExchangeCurve curve) {
    for (const CurveInfo& info : kCurves) {
        if (info.curve == curve) {
            return info;
        }
    }
    throw std::system_error(KeyExchangeError::invalidCurve);
}

using ParamBuildPtr = std::unique_ptr<OSSL_PARAM_BLD, OpenSSLDeleter<OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, OpenSSLDeleter<OSSL_PARAM_free>>;
using GroupPtr = std::unique_ptr<EC_GROUP, OpenSSLDeleter<EC_GROUP_free>>;
using PointPtr = std::unique_ptr<EC_POINT, OpenSSLDeleter<EC_POINT_free>>;

PKeyPtr nistKeyFromData(const CurveInfo& info, int selection, const BIGNUM* scalar,
                        QByteArrayView encodedPoint) {
    ParamBuildPtr build(OSSL_PARAM_BLD_new());
    if (!build ||
        OSSL_PARAM_BLD_push_utf8_string(build.get(), OSSL_PKEY_PARAM_GROUP_NAME, info.groupName,
                                        0) != 1 ||
        OSSL_PARAM_BLD_push_octet_string(build.get(), OSSL_PKEY_PARAM_PUB_KEY, encodedPoint.data(),
                                         static_cast<std::size_t>(encodedPoint.size())) != 1 ||
        (scalar != nullptr &&
         OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_PRIV_KEY, scalar) != 1)) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    ParamsPtr params(OSSL_PARAM_BLD_to_param(build.get()));
    PKeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    EVP_PKEY* key = nullptr;
    if (EVP_PKEY_fromdata(context.get(), &key, selection, params.get()) != 1) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    return PKeyPtr(key);
}

// OpenSSL 3.0 does not compute the public point when a key is built from its scalar alone,
// so the point is made here; the range check keeps zero and multiples of the order out.
PKeyPtr nistPrivateFromRaw(const CurveInfo& info, QByteArrayView raw) {
    BignumPtr scalar(BN_bin2bn(reinterpret_cast<const unsigned char*>(raw.data()),
                               static_cast<int>(raw.size()), nullptr));
    GroupPtr group(EC_GROUP_new_by_curve_name(info.nid));
    if (!scalar || !group) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    if (BN_is_zero(scalar.get()) || BN_cmp(scalar.get(), EC_GROUP_get0_order(group.get())) >= 0) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    PointPtr point(EC_POINT_new(group.get()));
    QByteArray encoded(info.publicSize + 1, Qt::Uninitialized);
    if (!point ||
        EC_POINT_mul(group.get(), point.get(), scalar.get(), nullptr, nullptr, nullptr) != 1 ||
        EC_POINT_point2oct(group.get(), point.get(), POINT_CONVERSION_UNCOMPRESSED,
                           reinterpret_cast<unsigned char*>(encoded.data()),
                           static_cast<std::size_t>(encoded.size()),
                           nullptr) != static_cast<std::size_t>(encoded.size())) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return nistKeyFromData(info, EVP_PKEY_KEYPAIR, scalar.get(), encoded);
}

PKeyPtr nistPublicFromRaw(const CurveInfo& info, QByteArrayView raw) {
    QByteArray encoded;
    encoded.reserve(raw.size() + 1);
    encoded.append(static_cast<char>(kUncompressedPoint)).append(raw);
    PKeyPtr key = nistKeyFromData(info, EVP_PKEY_PUBLIC_KEY, nullptr, encoded);
    // Building the key checks the point's coordinates against the curve equation already; the
    // full check also refuses coordinates out of range, keeping invalid-curve points out.
    PKeyCtxPtr check(EVP_PKEY_CTX_new_from_pkey(nullptr, key.get(), nullptr));
    if (!check || EVP_PKEY_public_check(check.get()) != 1) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    return key;
}

// X25519 keys are their raw bytes; OpenSSL takes them as they are.
using RawKeyReader = EVP_PKEY* (*)(OSSL_LIB_CTX*, const char*, const char*, const unsigned char*,
                                   std::size_t);

std::shared_ptr<evp_pkey_st> montgomeryFromRaw(const CurveInfo& info, QByteArrayView raw,
                                               RawKeyReader read) {
    PKeyPtr key(read(nullptr, info.groupName, nullptr,
                     reinterpret_cast<const unsigned char*>(raw.data()),
                     static_cast<std::size_t>(raw.size())));
    if (!key) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    return SharePKey(std::move(key));
}

std::shared_ptr<evp_pkey_st> privateFromRaw(const CurveInfo& info, QByteArrayView raw) {
    if (raw.size() != info.privateSize) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    if (!info.montgomery) {
        return SharePKey(nistPrivateFromRaw(info, raw));
    }
    return montgomeryFromRaw(info, raw, EVP_PKEY_new_raw_private_key_ex);
}

std::shared_ptr<evp_pkey_st> publicFromRaw(const CurveInfo& info, QByteArrayView raw) {
    if (raw.size() != info.publicSize) {
        ThrowCrypto(CryptoError::invalidKeyRepresentation);
    }
    if (!info.montgomery) {
        return SharePKey(nistPublicFromRaw(info, raw));
    }
    return montgomeryFromRaw(info, raw, EVP_PKEY_new_raw_public_key_ex);
}

std::shared_ptr<evp_pkey_st> generateKey(const CurveInfo& info) {
    PKeyPtr key(info.montgomery ? EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519")
                                : EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", info.groupName));
    if (!key) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return SharePKey(std::move(key));
}

QByteArray rawPrivate(const CurveInfo& info, EVP_PKEY* key) {
    QByteArray raw(info.privateSize, Qt::Uninitialized);
    auto* out = reinterpret_cast<unsigned char*>(raw.data());
    if (info.montgomery) {
        std::size_t length = static_cast<std::size_t>(raw.size());
        if (EVP_PKEY_get_raw_private_key(key, out, &length) != 1 ||
            length != static_cast<std::size_t>(raw.size())) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        return raw;
    }
    BIGNUM* scalar = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_PRIV_KEY, &scalar) != 1) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    const BignumPtr owned(scalar);
    if (BN_bn2binpad(scalar, out, static_cast<int>(raw.size())) != raw.size()) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return raw;
}

QByteArray rawPublic(const CurveInfo& info, EVP_PKEY* key) {
    if (info.montgomery) {
        QByteArray raw(info.publicSize, Qt::Uninitialized);
        std::size_t length = static_cast<std::size_t>(raw.size());
        if (EVP_PKEY_get_raw_public_key(key, reinterpret_cast<unsigned char*>(raw.data()),
                                        &length) != 1 ||
            length != static_cast<std::size_t>(raw.size())) {
            ThrowCrypto(CryptoError::libraryFailure);
        }
        return raw;
    }
    QByteArray encoded(info.publicSize + 1, Qt::Uninitialized);
    std::size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_PUB_KEY,
                                        reinterpret_cast<unsigned char*>(encoded.data()),
                                        static_cast<std::size_t>(encoded.size()), &length) != 1 ||
        length != static_cast<std::size_t>(encoded.size()) ||
        static_cast<unsigned char>(encoded[0]) != kUncompressedPoint) {
        ThrowCrypto(CryptoError::libraryFailure);
    }
    return encoded.sliced(1);
}

QByteArray decodeKeyText(const QString& text) {
    std::optional<QByteArray> raw = Base64Decode(text);
    if (!raw) {
        throw std::system_error(KeyExchangeError::invalidKey);
    }
    return *std::move(raw);
}

}  // namespace

void ThrowCrypto(CryptoError error) {
    ERR_clear_error();
    throw std::system_error(error);
}

std::shared_ptr<evp_pkey_st> SharePKey(PKeyPtr key) {
    return std::shared_ptr<evp_pkey_st>(key.release(), EVP_PKEY_free);
}

KeyAgreementPublicKey::KeyAgreementPublicKey(KeyExchangeCurve curve,
                                             std::shared_ptr<evp_pkey_st> key)
    : curve_(curve), key_(std::move(key)) {}

KeyAgreementPublicKey KeyAgreementPublicKey::fromRawRepresentation(KeyExchangeCurve curve,
                                                                   QByteArrayView raw) {
    return {curve, publicFromRaw(curveInfo(curve), raw)};
}

QByteArray KeyAgreementPublicKey::rawRepresentation() const {
    return rawPublic(curveInfo(curve_), key_.get());
}

KeyAgreementPrivateKey::KeyAgreementPrivateKey(KeyExchangeCurve curve,
                                               std::shared_ptr<evp_pkey_st> key)
    : curve_(curve), key_(std::move(key)) {}

KeyAgreementPrivateKey KeyAgreementPrivateKey::generate(KeyExchangeCurve curve) {
    return {curve, generateKey(curveInfo(curve))};
}

KeyAgreementPrivateKey KeyAgreementPrivateKey::fromRawRepresentation(KeyExchangeCurve curve,
                                                                     QByteArrayView raw) {
    return {curve, privateFromRaw(curveInfo(curve), raw)};
}

QByteArray KeyAgreementPrivateKey::rawRepresentation() const {
    return rawPrivate(curveInfo(curve_), key_.get());
}

KeyAgreementPublicKey KeyAgreementPrivateKey::publicKey() const {
    // The private key object carries its public half, and agreement only reads that half.
    return {curve_, key_};
}

QByteArray KeyAgreementPrivateKey::sharedSecretFromKeyAgreementData(
    const KeyAgreementPublicKey& peer) const {
    return sharedSecretFromKeyAgreement(peer).data();
}

KeyAgreementPrivateKey KeyExchangeReadPrivateKey(KeyExchangeCurve curve, const QString& text) {
    curveInfo(curve);  // an unknown curve is refused before the text is looked at
    if (text.isEmpty()) {
        return KeyAgreementPrivateKey::generate(curve);
    }
    return KeyAgreementPrivateKey::fromRawRepresentation(curve, decodeKeyText(text));
}

KeyAgreementPublicKey KeyExchangeReadPublicKey(KeyExchangeCurve curve, const QString& text) {
    curveInfo(curve);  // an unknown curve is refused before the text is looked at
    if (text.isEmpty()) {
        throw std::system_error(KeyExchangeError::invalidKey);
    }
    return KeyAgreementPublicKey::fromRawRepresentation(curve, decodeKeyText(text));
}

KeyExchangeLocalKeys KeyExchangeCurveKeys(KeyExchangeCurve curve, const QString& privateKey) {
    const KeyAgreementPrivateKey key = KeyExchangeReadPrivateKey(curve, privateKey);
    return {Base64Encode(key.rawRepresentation()),
            Base64Encode(key.publicKey().rawRepresentation())};
}

KeyAgreementPrivateKey Curve25519PrivateStore(const QString& text) {
    return KeyExchangeReadPrivateKey(KeyExchangeCurve::curve25519, text);
}
KeyAgreementPrivateKey P256PrivateStore(const QString& text) {
    return KeyExchangeReadPrivateKey(KeyExchangeCurve::p256, text);
}
KeyAgreementPrivateKey P384PrivateStore(const QString& text) {
    return KeyExchangeReadPrivateKey(KeyExchangeCurve::p384, text);
}
KeyAgreementPrivateKey P521PrivateStore(const QString& text) {
    return KeyExchangeReadPrivateKey(KeyExchangeCurve::p521, text);
}
KeyAgreementPrivateKey Curve25519PrivateStore() {
    return KeyAgreementPrivateKey::generate(KeyExchangeCurve::curve25519);
}
KeyAgreementPrivateKey P256PrivateStore() {
    return KeyAgreementPrivateKey::generate(KeyExchangeCurve::p256);
}
KeyAgreementPrivateKey P384PrivateStore() {
    return KeyAgreementPrivateKey::generate(KeyExchangeCurve::p384);
}
KeyAgreementPrivateKey P521PrivateStore() {
    return KeyAgreementPrivateKey::generate(KeyExchangeCurve::p521);
}

KeyAgreementPublicKey Curve25519PublicStore(const QString& text) {
    return KeyExchangeReadPublicKey(KeyExchangeCurve::curve25519, text);
}
KeyAgreementPublicKey P256PublicStore(const QString& text) {
    return KeyExchangeReadPublicKey(KeyExchangeCurve::p256, text);
}
KeyAgreementPublicKey P384PublicStore(const QString& text) {
    return KeyExchangeReadPublicKey(KeyExchangeCurve::p384, text);
}
KeyAgreementPublicKey P521PublicStore(const QString& text) {
    return KeyExchangeReadPublicKey(KeyExchangeCurve::p521, text);
}
