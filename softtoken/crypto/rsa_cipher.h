// RSA encryption and decryption.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// padding: PaddingMode (1 PKCS #1 v1.5, 4 OAEP with SHA-1 and MGF1-SHA-1, no label).
int rsaEncrypt(EVP_PKEY* key, int padding, const unsigned char* input, std::size_t size,
               Bytes& output);

// The caller does not say which padding was used: OAEP is tried first (a PKCS #1 v1.5 block
// practically never passes its checks), then PKCS #1 v1.5.
int rsaDecrypt(EVP_PKEY* key, const unsigned char* input, std::size_t size, SecretBytes& output);

}  // namespace softtoken
