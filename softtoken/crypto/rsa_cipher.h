// RSA encryption and decryption.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// padding: PaddingMode (1 PKCS #1 v1.5, 4 OAEP with SHA-1 and MGF1-SHA-1, no label).
int rsaEncrypt(EVP_PKEY* key, int padding, const unsigned char* input, std::size_t size,
               Bytes& output);

// The caller does not say which padding was used: OAEP with SHA-1, then OAEP with SHA-256 (MGF1
// with the same hash and an empty label both), then PKCS #1 v1.5; the first that unpads wins.
// Answering differently by padding is an oracle that real hardware must not offer; for a
// software stand-in whose key is on the same disk it is acceptable.
int rsaDecrypt(EVP_PKEY* key, const unsigned char* input, std::size_t size, SecretBytes& output);

}  // namespace softtoken
