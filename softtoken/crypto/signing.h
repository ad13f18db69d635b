// Signing and verification of prepared hashes, as the token does them.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/key_types.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// RSA without pss: PKCS #1 v1.5; a bare digest of 20, 28, 32, 48 or 64 bytes is wrapped in the
// DigestInfo of its hash, any other input is signed as given. RSA with pss: PSS with the hash
// of the input's length, salt of that length, MGF1 with the same hash. EC: ECDSA, r || s.
int signHash(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* input, std::size_t size,
             bool pss, Bytes& signature);

// The same rules in reverse; 0 when the signature is valid. PSS signatures are accepted with
// any salt length, as verifiers usually do.
int verifyHash(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* input, std::size_t size,
               const unsigned char* signature, std::size_t signatureSize, bool pss);

}  // namespace softtoken
