#include "crypto/key_codec.h"

#include <openssl/core_names.h>
#include <openssl/decoder.h>
#include <openssl/x509.h>

#include <climits>
#include <string>

#include "crypto/ec_keys.h"
#include "crypto/rsa_keys.h"

namespace softtoken {

PkeyPtr generateKey(const KeyTypeInfo& type) {
    if (type.rsa) {
        return PkeyPtr(
            EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<std::size_t>(type.bits)));
    }
    return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", type.curve));
}

bool encodePrivateKey(EVP_PKEY* key, SecretBytes& der) {
    std::unique_ptr<PKCS8_PRIV_KEY_INFO,
                    OpenSslDeleter<PKCS8_PRIV_KEY_INFO, PKCS8_PRIV_KEY_INFO_free>>
        info(EVP_PKEY2PKCS8(key));
    if (info == nullptr) {
        return false;
    }
    int size = i2d_PKCS8_PRIV_KEY_INFO(info.get(), nullptr);
    if (size <= 0) {
        return false;
    }
    SecretBytes out(static_cast<std::size_t>(size));
    unsigned char* cursor = out.data();
    if (i2d_PKCS8_PRIV_KEY_INFO(info.get(), &cursor) != size) {
        return false;
    }
    der = std::move(out);
    return true;
}

PkeyPtr decodePrivateKey(const unsigned char* data, std::size_t size) {
    EVP_PKEY* key = nullptr;
    std::unique_ptr<OSSL_DECODER_CTX, OpenSslDeleter<OSSL_DECODER_CTX, OSSL_DECODER_CTX_free>>
        decoder(OSSL_DECODER_CTX_new_for_pkey(&key, nullptr, nullptr, nullptr,
                                              OSSL_KEYMGMT_SELECT_KEYPAIR, nullptr, nullptr));
    if (decoder == nullptr) {
        return nullptr;
    }
    const unsigned char* cursor = data;
    std::size_t left = size;
    if (OSSL_DECODER_from_data(decoder.get(), &cursor, &left) != 1) {
        EVP_PKEY_free(key);
        return nullptr;
    }
    return PkeyPtr(key);
}

bool publicValueOf(EVP_PKEY* key, Bytes& value) {
    if (EVP_PKEY_is_a(key, "RSA")) {
        return rsaModulus(key, value);
    }
    if (EVP_PKEY_is_a(key, "EC")) {
        return ecPublicPoint(key, value);
    }
    return false;
}

const KeyTypeInfo* keyTypeOf(EVP_PKEY* key) {
    if (key == nullptr) {
        return nullptr;
    }
    if (EVP_PKEY_is_a(key, "RSA")) {
        return keyTypeForRsaBits(EVP_PKEY_get_bits(key));
    }
    if (EVP_PKEY_is_a(key, "EC")) {
        char group[64] = {};
        std::size_t length = 0;
        if (EVP_PKEY_get_utf8_string_param(key, OSSL_PKEY_PARAM_GROUP_NAME, group, sizeof group,
                                           &length) != 1) {
            return nullptr;
        }
        return keyTypeForCurve(group);
    }
    return nullptr;
}

}  // namespace softtoken
