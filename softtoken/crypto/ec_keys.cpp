#include "crypto/ec_keys.h"

#include <openssl/core_names.h>

#include <climits>

#include "crypto/key_codec.h"

namespace softtoken {

bool ecPublicPoint(EVP_PKEY* key, Bytes& point) {
    std::size_t length = 0;
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, nullptr, 0,
                                        &length) != 1) {
        return false;
    }
    Bytes out(length);
    if (EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, out.data(),
                                        out.size(), &length) != 1) {
        return false;
    }
    out.resize(length);
    point = std::move(out);
    return true;
}

PkeyPtr ecPublicKey(const KeyTypeInfo& type, const unsigned char* data, std::size_t size) {
    if (type.rsa || data == nullptr || size == 0 || size > INT_MAX) {
        return nullptr;
    }
    if (data[0] == 0x30) {
        const unsigned char* cursor = data;
        PkeyPtr key(d2i_PUBKEY(nullptr, &cursor, static_cast<long>(size)));
        // A key of another curve is as wrong as a point of another curve: refused here, not
        // left to fail later inside OpenSSL (ECDH) or against the wrong signature size.
        const KeyTypeInfo* found = keyTypeOf(key.get());
        return found != nullptr && !found->rsa && found->code == type.code ? std::move(key)
                                                                           : nullptr;
    }
    if (size != 1 + 2 * type.componentBytes || data[0] != 0x04) {
        return nullptr;
    }
    ParamBuildPtr build(OSSL_PARAM_BLD_new());
    if (!build ||
        OSSL_PARAM_BLD_push_utf8_string(build.get(), OSSL_PKEY_PARAM_GROUP_NAME, type.curve, 0) !=
            1 ||
        OSSL_PARAM_BLD_push_octet_string(build.get(), OSSL_PKEY_PARAM_PUB_KEY, data, size) != 1) {
        return nullptr;
    }
    ParamsPtr params(OSSL_PARAM_BLD_to_param(build.get()));
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
    EVP_PKEY* key = nullptr;
    if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1) {
        return nullptr;
    }
    PkeyPtr owned(key);
    // fromdata does not insist that the point lies on the curve; an invalid point would make
    // ECDH leak bits of the private key.
    PkeyCtxPtr check(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (check == nullptr || EVP_PKEY_public_check(check.get()) != 1) {
        return nullptr;
    }
    return owned;
}

bool ecdsaDerToFixed(const Bytes& der, std::size_t componentSize, Bytes& fixed) {
    const unsigned char* cursor = der.data();
    EcdsaSigPtr signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())));
    if (signature == nullptr) {
        return false;
    }
    const BIGNUM* r = nullptr;
    const BIGNUM* s = nullptr;
    ECDSA_SIG_get0(signature.get(), &r, &s);
    Bytes out(2 * componentSize);
    if (BN_bn2binpad(r, out.data(), static_cast<int>(componentSize)) < 0 ||
        BN_bn2binpad(s, out.data() + componentSize, static_cast<int>(componentSize)) < 0) {
        return false;
    }
    fixed = std::move(out);
    return true;
}

bool ecdsaFixedToDer(const unsigned char* fixed, std::size_t size, Bytes& der) {
    if (size == 0 || size % 2 != 0 || size > INT_MAX) {
        return false;
    }
    int half = static_cast<int>(size / 2);
    EcdsaSigPtr signature(ECDSA_SIG_new());
    BIGNUM* r = BN_bin2bn(fixed, half, nullptr);
    BIGNUM* s = BN_bin2bn(fixed + half, half, nullptr);
    if (signature == nullptr || r == nullptr || s == nullptr ||
        ECDSA_SIG_set0(signature.get(), r, s) != 1) {
        BN_free(r);
        BN_free(s);
        return false;
    }
    int length = i2d_ECDSA_SIG(signature.get(), nullptr);
    if (length <= 0) {
        return false;
    }
    Bytes out(static_cast<std::size_t>(length));
    unsigned char* cursor = out.data();
    i2d_ECDSA_SIG(signature.get(), &cursor);
    der = std::move(out);
    return true;
}

}  // namespace softtoken
