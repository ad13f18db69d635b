#include "crypto/ecdh.h"

#include "common/token_error.h"
#include "crypto/ec_keys.h"
#include "crypto/public_key_cache.h"

namespace softtoken {

int ecdhDerive(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* peer, std::size_t size,
               SecretBytes& secret) {
    if (type.rsa) {
        return kKeyCannotDoThis;
    }
    std::size_t pointSize = 1 + 2 * type.componentBytes;
    // DER OCTET STRING around the point: 04, its length (one byte below 128, else 81 nn), point.
    if (size == pointSize + 2 && peer[0] == 0x04 && peer[1] == pointSize) {
        peer += 2;
        size -= 2;
    } else if (size == pointSize + 3 && peer[0] == 0x04 && peer[1] == 0x81 &&
               peer[2] == pointSize) {
        peer += 3;
        size -= 3;
    }
    SharedPkey peerKey = cachedEcPublicKey(type, peer, size);
    if (peerKey == nullptr) {
        return kBadArgument;
    }
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    std::size_t length = 0;
    if (context == nullptr || EVP_PKEY_derive_init(context.get()) != 1 ||
        EVP_PKEY_derive_set_peer(context.get(), peerKey.get()) != 1 ||
        EVP_PKEY_derive(context.get(), nullptr, &length) != 1) {
        return kCryptoFailed;
    }
    SecretBytes out(length);
    if (EVP_PKEY_derive(context.get(), out.data(), &length) != 1) {
        return kCryptoFailed;
    }
    out.resize(length);
    secret = std::move(out);
    return kOk;
}

}  // namespace softtoken
