// ECDH with a token key.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/key_types.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// The peer's public value: an uncompressed point (04 || X || Y), also accepted inside a DER
// OCTET STRING as some applications pass CKA_EC_POINT. The secret is the X coordinate of the
// shared point, the curve's size in bytes.
int ecdhDerive(EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* peer, std::size_t size,
               SecretBytes& secret);

}  // namespace softtoken
