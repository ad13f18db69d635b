#include "crypto/rsa_cipher.h"

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

// The block under the padding: one private-key operation, whatever padding it turns out to
// carry. Trying each padding with its own decryption would cost a private-key operation per
// padding tried, three for a PKCS #1 v1.5 message.
bool rawDecrypt(EVP_PKEY* key, const unsigned char* input, std::size_t size, SecretBytes& block) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    std::size_t length = size;
    SecretBytes out(size);
    if (context == nullptr || EVP_PKEY_decrypt_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_NO_PADDING) != 1 ||
        EVP_PKEY_decrypt(context.get(), out.data(), &length, input, size) != 1 || length != size) {
        return false;
    }
    block = std::move(out);
    return true;
}

// The message inside the block, when the block carries this padding. These checks are
// OpenSSL's own (constant-time in their work on the block); OpenSSL 3 calls them deprecated
// only because it wants callers to go through EVP, which cannot check one block for several
// paddings.
bool unpad(const Padding& padding, const SecretBytes& block, SecretBytes& output) {
    const int size = static_cast<int>(block.size());
    SecretBytes out(block.size());
    int length = -1;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    if (padding.oaepHash == 0) {
        length = RSA_padding_check_PKCS1_type_2(out.data(), size, block.data(), size, size);
    } else {
        const EVP_MD* digest = digestForCode(padding.oaepHash);
        if (digest == nullptr) {
            return false;
        }
        length = RSA_padding_check_PKCS1_OAEP_mgf1(out.data(), size, block.data(), size, size,
                                                   nullptr, 0, digest, digest);
    }
#pragma GCC diagnostic pop
    if (length < 0) {
        return false;
    }
    out.resize(static_cast<std::size_t>(length));
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
    SecretBytes block;
    if (!rawDecrypt(key, input, size, block)) {
        return kDecryptFailed;
    }
    for (const Padding* padding : kDecryptionOrder) {
        if (unpad(*padding, block, output)) {
            return kOk;
        }
    }
    return kDecryptFailed;
}

}  // namespace softtoken
