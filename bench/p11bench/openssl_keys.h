// The benchmark's keys and certificates on the libcrypto side: the same keys the tokens hold,
// read from PEM files, and the raw operations that the tokens' results are measured against.
#pragma once

#include <openssl/evp.h>

#include <memory>
#include <string>
#include <vector>

using Bytes = std::vector<unsigned char>;

struct PkeyDeleter {
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyDeleter>;

// A private key from a PEM file (PKCS #8 or traditional); throws when it cannot be read.
Pkey readPrivateKey(const std::string& path);

// Signs `data` with the key: SHA-256 with PKCS #1 v1.5 for RSA (the whole message), ECDSA
// over the data as a digest for EC. The signature in the PKCS #11 form (r || s for ECDSA).
Bytes signSha256Rsa(EVP_PKEY* key, const Bytes& data);
Bytes signEcdsaDigest(EVP_PKEY* key, const Bytes& digest);
bool verifySha256Rsa(EVP_PKEY* key, const Bytes& data, const Bytes& signature);
Bytes sha256(const Bytes& data);
// SHA-256 of `total` bytes fed in `part`-sized pieces.
Bytes sha256InParts(const Bytes& part, std::size_t parts);
Bytes encryptPkcs1(EVP_PKEY* key, const Bytes& plaintext);
Bytes decryptPkcs1(EVP_PKEY* key, const Bytes& ciphertext);
Bytes deriveEcdh(EVP_PKEY* key, EVP_PKEY* peer);
void randomBytes(Bytes& buffer);

// The key's public point (uncompressed), for an ECDH peer value.
Bytes ecPublicPoint(EVP_PKEY* key);

struct Certificate {
    Bytes der;
    Bytes subject;  // DER of the subject name
};

// `count` distinct self-signed certificates, signed with the key.
std::vector<Certificate> makeCertificates(EVP_PKEY* key, std::size_t count);
