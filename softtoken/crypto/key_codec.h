// Key pairs in and out of their stored forms: private keys as PKCS #8 DER, public values as the
// device records carry them (RSA modulus big-endian without a leading zero, EC point 04||X||Y).
#pragma once

#include "common/secret_bytes.h"
#include "crypto/key_types.h"
#include "crypto/openssl_types.h"

namespace softtoken {

PkeyPtr generateKey(const KeyTypeInfo& type);

bool encodePrivateKey(EVP_PKEY* key, SecretBytes& der);
// Reads PKCS #8, or the traditional PKCS #1 and SEC 1 forms, in DER or PEM.
PkeyPtr decodePrivateKey(const unsigned char* data, std::size_t size);

// Any RSA or EC key, also of sizes and curves the token cannot hold (certificates have them).
bool publicValueOf(EVP_PKEY* key, Bytes& value);
// The key type of a key; null when the token cannot hold it (another size or curve).
const KeyTypeInfo* keyTypeOf(EVP_PKEY* key);

}  // namespace softtoken
