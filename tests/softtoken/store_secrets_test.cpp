// Private keys rest in the store only sealed: after keys are imported, generated and used, no
// file of the store folder (the database, its write-ahead log, the change counter) holds a
// private component or a PIN in clear, nor any of the DER forms libcrypto writes private keys in.
#include <openssl/core_names.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using StoreSecretsTest = TokenFixture;

constexpr const char* kLongPin = "pin-that-must-never-rest-in-clear";

Bytes rsaComponent(EVP_PKEY* key, const char* name) {
    BIGNUM* value = nullptr;
    EVP_PKEY_get_bn_param(key, name, &value);
    Bytes out(static_cast<std::size_t>(BN_num_bytes(value)));
    BN_bn2bin(value, out.data());
    BN_free(value);
    return out;
}

// Every file of the store folder, one after the other.
Bytes storeContents(const std::string& folder) {
    Bytes all;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file()) {
            const Bytes file = readFile(entry.path().string());
            all.insert(all.end(), file.begin(), file.end());
        }
    }
    return all;
}

bool contains(const Bytes& haystack, const Bytes& needle) {
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
           haystack.end();
}

// The starts of the DER that libcrypto writes for private keys: PKCS #8 with the RSA and EC
// algorithm identifiers, a P-256 ECPrivateKey, and the version and modulus of an RSAPrivateKey
// of 2048 bits.
const std::vector<Bytes>& privateKeyMarkers() {
    static const std::vector<Bytes> markers = {
        {0x02, 0x01, 0x00, 0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01,
         0x01},
        {0x02, 0x01, 0x00, 0x30, 0x13, 0x06, 0x07, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x02, 0x01},
        {0x30, 0x77, 0x02, 0x01, 0x01, 0x04, 0x20},
        {0x02, 0x01, 0x00, 0x02, 0x82, 0x01, 0x01, 0x00},
    };
    return markers;
}

TEST_F(StoreSecretsTest, KeysImportedGeneratedAndUsedRestOnlySealed) {
    createToken("SECRETS", kLongPin);
    PkeyPtr imported(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(2048)));
    ASSERT_NE(imported, nullptr);
    ImportPFXDetails details;
    details.modulus = rsaComponent(imported.get(), OSSL_PKEY_PARAM_RSA_N);
    details.privateExponent = rsaComponent(imported.get(), OSSL_PKEY_PARAM_RSA_D);
    details.prime1 = rsaComponent(imported.get(), OSSL_PKEY_PARAM_RSA_FACTOR1);
    details.keyKind = 2;
    const Bytes exponent = details.privateExponent;
    const Bytes prime = details.prime1;
    ASSERT_EQ(ostrel_importPfx("SECRETS", kLongPin, &details, instance_), 0);

    OstrelKeyPair ec{}, rsa{};
    ec.keyType = kKeyTypeEcP256;
    rsa.keyType = kKeyTypeRsa2048;
    for (OstrelKeyPair* pair : {&ec, &rsa}) {
        pair->usageFlags = 3;
        ASSERT_EQ(ostrel_generateKeyPair("SECRETS", kLongPin, pair, instance_), 0);
    }
    Bytes digest(32, 7);
    const std::vector<const unsigned char*> references = {ec.keyReference, rsa.keyReference,
                                                          details.keyReference.data()};
    for (const unsigned char* reference : references) {
        unsigned char signature[512];
        int length = sizeof signature;
        ASSERT_EQ(ostrel_signHash("SECRETS", reference, kLongPin, digest.data(), 32, signature,
                                  &length, false, instance_, false),
                  0);
    }

    const Bytes stored = storeContents(folder_.path());
    ASSERT_FALSE(stored.empty());
    // The check itself finds what it looks for: the public modulus is stored in clear.
    EXPECT_TRUE(contains(stored, details.modulus));
    EXPECT_FALSE(contains(stored, exponent));
    EXPECT_FALSE(contains(stored, prime));
    EXPECT_FALSE(
        contains(stored, Bytes(kLongPin, kLongPin + std::char_traits<char>::length(kLongPin))));
    for (const Bytes& marker : privateKeyMarkers()) {
        EXPECT_FALSE(contains(stored, marker)) << "a private key's DER in clear";
    }
}

}  // namespace
}  // namespace softtoken::testing
