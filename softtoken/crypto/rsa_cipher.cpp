#include "crypto/rsa_cipher.h"

#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include "common/token_error.h"
#include "crypto/digests.h"
#include "device/device_records.h"

namespace softtoken {

namespace {

// One RSA padding as the token uses it: OAEP always with MGF1 over the same hash and an empty
// label.
struct Padding {
    int rsaPadding;
    int oaepHash;          // HashAlgorithmCode; 0 for PKCS #1 v1.5
    std::size_t overhead;  // bytes of the modulus the padding takes
};

constexpr Padding kPkcs1{RSA_PKCS1_PADDING, 0, 11};
constexpr Padding kOaepSha1{RSA_PKCS1_OAEP_PADDING, kHashSha1, 2 * 20 + 2};
constexpr Padding kOaepSha256{RSA_PKCS1_OAEP_PADDING, kHashSha256, 2 * 32 + 2};

// PaddingMode to padding, for encryption.
const struct {
    int mode;
    const Padding* padding;
} kEncryptionPaddings[] = {{kPaddingPkcs1, &kPkcs1}, {kPaddingOaep, &kOaepSha1}};

// Decryption is not told the padding: these are tried in order. OAEP first, since a PKCS #1
// v1.5 block passes OAEP's 160-bit hash check practically never, while an OAEP block unpads as
// PKCS #1 v1.5 a few times in a thousand; SHA-1 before SHA-256 because it is what PaddingMode
// 4 encrypts with.
const Padding* const kDecryptionOrder[] = {&kOaepSha1, &kOaepSha256, &kPkcs1};

bool configure(EVP_PKEY_CTX* context, const Padding& padding) {
    if (EVP_PKEY_CTX_set_rsa_padding(context, padding.rsaPadding) != 1) {
        return false;
    }
    if (padding.oaepHash == 0) {
        return true;
    }
    const EVP_MD* digest = digestForCode(padding.oaepHash);
    return digest != nullptr && EVP_PKEY_CTX_set_rsa_oaep_md(context, digest) == 1 &&
           EVP_PKEY_CTX_set_rsa_mgf1_md(context, digest) == 1;
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

bool tryDecrypt(EVP_PKEY* key, const Padding& padding, const unsigned char* input, std::size_t size,
                SecretBytes& output) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_decrypt_init(context.get()) != 1 ||
        !configure(context.get(), padding)) {
        return false;
    }
    if (padding.rsaPadding == RSA_PKCS1_PADDING) {
        askForExplicitRejection(context.get());
    }
    std::size_t length = 0;
    if (EVP_PKEY_decrypt(context.get(), nullptr, &length, input, size) != 1) {
        return false;
    }
    SecretBytes out(length);
    if (EVP_PKEY_decrypt(context.get(), out.data(), &length, input, size) != 1) {
        return false;
    }
    out.resize(length);
    output = std::move(out);
    return true;
}

}  // namespace

int rsaEncrypt(EVP_PKEY* key, int padding, const unsigned char* input, std::size_t size,
               Bytes& output) {
    const Padding* chosen = nullptr;
    for (const auto& entry : kEncryptionPaddings) {
        if (entry.mode == padding) {
            chosen = entry.padding;
        }
    }
    if (chosen == nullptr) {
        return kUnknownAlgorithm;
    }
    std::size_t modulusSize = static_cast<std::size_t>(EVP_PKEY_get_size(key));
    if (size + chosen->overhead > modulusSize) {
        return kInputSize;
    }
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_encrypt_init(context.get()) != 1 ||
        !configure(context.get(), *chosen)) {
        return kCryptoFailed;
    }
    std::size_t length = 0;
    if (EVP_PKEY_encrypt(context.get(), nullptr, &length, input, size) != 1) {
        return kCryptoFailed;
    }
    Bytes out(length);
    if (EVP_PKEY_encrypt(context.get(), out.data(), &length, input, size) != 1) {
        return kCryptoFailed;
    }
    out.resize(length);
    output = std::move(out);
    return kOk;
}

int rsaDecrypt(EVP_PKEY* key, const unsigned char* input, std::size_t size, SecretBytes& output) {
    if (size != static_cast<std::size_t>(EVP_PKEY_get_size(key))) {
        return kInputSize;
    }
    for (const Padding* padding : kDecryptionOrder) {
        if (tryDecrypt(key, *padding, input, size, output)) {
            return kOk;
        }
    }
    return kDecryptFailed;
}

}  // namespace softtoken
