// EC keys and signatures in the forms the device interface uses.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/key_types.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// The public point, uncompressed: 04 || X || Y.
bool ecPublicPoint(EVP_PKEY* key, Bytes& point);

// A public key on the type's curve from an uncompressed point, or from a SubjectPublicKeyInfo.
PkeyPtr ecPublicKey(const KeyTypeInfo& type, const unsigned char* data, std::size_t size);

// ECDSA signatures: DER ECDSA-Sig-Value <-> r || s, each the curve's size (the PKCS #11 form).
bool ecdsaDerToFixed(const Bytes& der, std::size_t componentSize, Bytes& fixed);
bool ecdsaFixedToDer(const unsigned char* fixed, std::size_t size, Bytes& der);

}  // namespace softtoken
