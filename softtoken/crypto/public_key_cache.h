// Public keys parsed once and kept: OpenSSL 3 takes hundreds of microseconds to decode a
// SubjectPublicKeyInfo or to build a key from its parts, several times what the verification
// or encryption that needs the key costs. The same keys come back call after call (the module
// hands over a token key's public value with every verification), so parsed keys are kept by
// their bytes. Nothing secret is kept: these are public keys only.
#pragma once

#include <cstddef>

#include "crypto/key_types.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// rsaPublicKey() and ecPublicKey() (rsa_keys.h, ec_keys.h), answered from the cache when the
// same bytes were parsed before. Null when the bytes are no such key (such answers are not
// kept).
SharedPkey cachedRsaPublicKey(const unsigned char* data, std::size_t size);
SharedPkey cachedEcPublicKey(const KeyTypeInfo& type, const unsigned char* data, std::size_t size);

}  // namespace softtoken
