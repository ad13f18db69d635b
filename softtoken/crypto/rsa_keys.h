// RSA keys from the forms the device interface passes around.
#pragma once

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"

namespace softtoken {

// The modulus, big-endian, without a leading zero.
bool rsaModulus(EVP_PKEY* key, Bytes& modulus);

// A public key from a SubjectPublicKeyInfo, or from a bare modulus with exponent 65537. Null
// also for a key that no public operation could use (an even modulus, say).
PkeyPtr rsaPublicKey(const unsigned char* data, std::size_t size);

// A private key from modulus, private exponent and one prime: the other prime is n / p, the
// public exponent is d^-1 mod lcm(p-1, q-1), and the CRT values follow. kBadArgument when the
// values do not form a consistent key, kKeyCannotDoThis when the public exponent they give is
// not 65537 (the only one the token holds, and what a bare modulus is verified with).
int rsaFromComponents(const Bytes& modulus, const Bytes& privateExponent, const Bytes& prime,
                      PkeyPtr& key);

}  // namespace softtoken
