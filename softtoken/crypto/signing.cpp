#include "crypto/signing.h"

#include <openssl/rsa.h>

#include "common/token_error.h"
#include "crypto/digests.h"
#include "crypto/ec_keys.h"

namespace softtoken {

namespace {

enum class Direction { Sign, Verify };

// Sets up the RSA padding for one operation; kOk or the error to answer.
int configureRsa(EVP_PKEY_CTX* context, std::size_t inputSize, bool pss, Direction direction) {
    const EVP_MD* digest = digestForLength(inputSize);
    if (pss) {
        if (digest == nullptr) {
            return kInputSize;
        }
        int saltLength =
            direction == Direction::Sign ? RSA_PSS_SALTLEN_DIGEST : RSA_PSS_SALTLEN_AUTO;
        return EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PSS_PADDING) == 1 &&
                       EVP_PKEY_CTX_set_signature_md(context, digest) == 1 &&
                       EVP_PKEY_CTX_set_rsa_mgf1_md(context, digest) == 1 &&
                       EVP_PKEY_CTX_set_rsa_pss_saltlen(context, saltLength) == 1
                   ? kOk
                   : kCryptoFailed;
    }
    if (EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING) != 1) {
        return kCryptoFailed;
    }
    // With a digest set OpenSSL builds the DigestInfo; without one it pads the input as given.
    if (digest != nullptr && EVP_PKEY_CTX_set_signature_md(context, digest) != 1) {
        return kCryptoFailed;
    }
    return kOk;
}

}  // namespace

int signHash(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* input, std::size_t size,
             bool pss, Bytes& signature) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_sign_init(context.get()) != 1) {
        return kCryptoFailed;
    }
    if (type.rsa) {
        if (int result = configureRsa(context.get(), size, pss, Direction::Sign); result != kOk) {
            return result;
        }
        // Raw PKCS #1 input must leave room for eleven bytes of padding.
        if (!pss && digestForLength(size) == nullptr && size + 11 > type.componentBytes) {
            return kInputSize;
        }
    } else if (pss) {
        return kKeyCannotDoThis;
    }
    std::size_t length = 0;
    if (EVP_PKEY_sign(context.get(), nullptr, &length, input, size) != 1) {
        return kCryptoFailed;
    }
    Bytes out(length);
    if (EVP_PKEY_sign(context.get(), out.data(), &length, input, size) != 1) {
        return kCryptoFailed;
    }
    out.resize(length);
    if (type.rsa) {
        signature = std::move(out);
        return kOk;
    }
    return ecdsaDerToFixed(out, type.componentBytes, signature) ? kOk : kCryptoFailed;
}

int verifyHash(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* input, std::size_t size,
               const unsigned char* signature, std::size_t signatureSize, bool pss) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    if (context == nullptr || EVP_PKEY_verify_init(context.get()) != 1) {
        return kCryptoFailed;
    }
    Bytes der;
    if (type.rsa) {
        if (int result = configureRsa(context.get(), size, pss, Direction::Verify); result != kOk) {
            return result;
        }
    } else {
        if (pss) {
            return kKeyCannotDoThis;
        }
        if (signatureSize != 2 * type.componentBytes ||
            !ecdsaFixedToDer(signature, signatureSize, der)) {
            return kSignatureInvalid;
        }
        signature = der.data();
        signatureSize = der.size();
    }
    return EVP_PKEY_verify(context.get(), signature, signatureSize, input, size) == 1
               ? kOk
               : kSignatureInvalid;
}

}  // namespace softtoken
