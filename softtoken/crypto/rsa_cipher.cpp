#include "crypto/rsa_cipher.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include "common/token_error.h"
#include "crypto/digests.h"
#include "device/device_records.h"

namespace softtoken {

namespace {

int opensslPadding(int padding) {
    switch (padding) {
    case kPaddingPkcs1: return RSA_PKCS1_PADDING;
    case kPaddingOaep: return RSA_PKCS1_OAEP_PADDING;
    default: return 0;
    }
}

bool configure(EVP_PKEY_CTX* context, int rsaPadding) {
    if (EVP_PKEY_CTX_set_rsa_padding(context, rsaPadding) != 1) return false;
    if (rsaPadding == RSA_PKCS1_OAEP_PADDING) {
        return EVP_PKEY_CTX_set_rsa_oaep_md(context, EVP_sha1()) == 1 &&
               EVP_PKEY_CTX_set_rsa_mgf1_md(context, EVP_sha1()) == 1;
    }
    return true;
}

// Newer OpenSSL releases answer a bad PKCS #1 v1.5 block with random bytes instead of an error
// (implicit rejection). With two paddings to try, we need the error; older releases ignore the
// parameter.
void askForExplicitRejection(EVP_PKEY_CTX* context) {
    unsigned int off = 0;
    OSSL_PARAM params[] = {
        OSSL_PARAM_construct_uint("implicit-rejection", &off),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY_CTX_set_params(context, params);
}

bool tryDecrypt(EVP_PKEY* key, int rsaPadding, const unsigned char* input, std::size_t size,
                SecretBytes& output) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_decrypt_init(context.get()) != 1 ||
        !configure(context.get(), rsaPadding)) {
        return false;
    }
    if (rsaPadding == RSA_PKCS1_PADDING) askForExplicitRejection(context.get());
    std::size_t length = 0;
    if (EVP_PKEY_decrypt(context.get(), nullptr, &length, input, size) != 1) return false;
    SecretBytes out(length);
    if (EVP_PKEY_decrypt(context.get(), out.data(), &length, input, size) != 1) return false;
    out.resize(length);
    output = std::move(out);
    return true;
}

}  // namespace

int rsaEncrypt(EVP_PKEY* key, int padding, const unsigned char* input, std::size_t size,
               Bytes& output) {
    int rsaPadding = opensslPadding(padding);
    if (rsaPadding == 0) return kErrAlgorithm;
    // PKCS #1 v1.5 needs 11 bytes of padding, OAEP with SHA-1 2 * 20 + 2.
    std::size_t overhead = rsaPadding == RSA_PKCS1_PADDING ? 11 : 42;
    std::size_t modulusSize = static_cast<std::size_t>(EVP_PKEY_get_size(key));
    if (size + overhead > modulusSize) return kErrInputSize;
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_encrypt_init(context.get()) != 1 ||
        !configure(context.get(), rsaPadding)) {
        return kErrCrypto;
    }
    std::size_t length = 0;
    if (EVP_PKEY_encrypt(context.get(), nullptr, &length, input, size) != 1) return kErrCrypto;
    Bytes out(length);
    if (EVP_PKEY_encrypt(context.get(), out.data(), &length, input, size) != 1) return kErrCrypto;
    out.resize(length);
    output = std::move(out);
    return kOk;
}

int rsaDecrypt(EVP_PKEY* key, const unsigned char* input, std::size_t size, SecretBytes& output) {
    if (size != static_cast<std::size_t>(EVP_PKEY_get_size(key))) return kErrInputSize;
    if (tryDecrypt(key, RSA_PKCS1_OAEP_PADDING, input, size, output) ||
        tryDecrypt(key, RSA_PKCS1_PADDING, input, size, output)) {
        return kOk;
    }
    return kErrDecryptFailed;
}

}  // namespace softtoken
