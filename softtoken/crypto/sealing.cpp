#include "crypto/sealing.h"

#include <climits>

#include "crypto/openssl_types.h"
#include "crypto/pin_kdf.h"

namespace softtoken {

namespace {

constexpr unsigned char kFormatVersion = 1;
constexpr std::size_t kNonceSize = 12;
constexpr std::size_t kTagSize = 16;
constexpr std::size_t kKeySize = 32;

bool addContext(EVP_CIPHER_CTX* cipher, const std::string& context) {
    int ignored = 0;
    return EVP_CipherUpdate(cipher, nullptr, &ignored,
                            reinterpret_cast<const unsigned char*>(context.data()),
                            static_cast<int>(context.size())) == 1;
}

}  // namespace

bool seal(const SecretBytes& key, const unsigned char* plain, std::size_t size,
          const std::string& context, Bytes& sealed) {
    // An empty body would make OpenSSL read a null output pointer as associated data.
    if (key.size() != kKeySize || size == 0 || size > INT_MAX / 2 || context.size() > INT_MAX) {
        return false;
    }
    Bytes out(1 + kNonceSize + size + kTagSize);
    out[0] = kFormatVersion;
    unsigned char* nonce = out.data() + 1;
    unsigned char* body = nonce + kNonceSize;
    if (!randomBytes(nonce, kNonceSize)) {
        return false;
    }
    CipherCtxPtr cipher(EVP_CIPHER_CTX_new());
    int written = 0;
    int finalWritten = 0;
    if (cipher == nullptr ||
        EVP_EncryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce) != 1 ||
        !addContext(cipher.get(), context) ||
        EVP_EncryptUpdate(cipher.get(), body, &written, plain, static_cast<int>(size)) != 1 ||
        EVP_EncryptFinal_ex(cipher.get(), body + written, &finalWritten) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_GET_TAG, static_cast<int>(kTagSize),
                            body + size) != 1) {
        return false;
    }
    sealed = std::move(out);
    return true;
}

bool unseal(const SecretBytes& key, const Bytes& sealed, const std::string& context,
            SecretBytes& plain) {
    if (key.size() != kKeySize || sealed.size() <= 1 + kNonceSize + kTagSize ||
        sealed[0] != kFormatVersion || sealed.size() > INT_MAX) {
        return false;
    }
    const unsigned char* nonce = sealed.data() + 1;
    const unsigned char* body = nonce + kNonceSize;
    std::size_t size = sealed.size() - 1 - kNonceSize - kTagSize;
    SecretBytes out(size);
    CipherCtxPtr cipher(EVP_CIPHER_CTX_new());
    int written = 0;
    int finalWritten = 0;
    Bytes tag(body + size, body + size + kTagSize);
    if (cipher == nullptr ||
        EVP_DecryptInit_ex(cipher.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce) != 1 ||
        !addContext(cipher.get(), context) ||
        EVP_DecryptUpdate(cipher.get(), out.data(), &written, body, static_cast<int>(size)) != 1 ||
        EVP_CIPHER_CTX_ctrl(cipher.get(), EVP_CTRL_GCM_SET_TAG, static_cast<int>(kTagSize),
                            tag.data()) != 1 ||
        EVP_DecryptFinal_ex(cipher.get(), out.data() + written, &finalWritten) != 1) {
        return false;
    }
    plain = std::move(out);
    return true;
}

}  // namespace softtoken
