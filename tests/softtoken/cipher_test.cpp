// Encryption, decryption, ECDH, hash contexts, random numbers and the import of an RSA key by
// its components, each checked against OpenSSL.
#include <openssl/core_names.h>
#include <openssl/rsa.h>

#include "common/token_error.h"
#include "key_suite.h"

namespace softtoken::testing {
namespace {

using CipherTest = KeySuite;

const Bytes kPlain = {'s', 'e', 'c', 'r', 'e', 't', ' ', 'v', 'a', 'l', 'u', 'e'};

// OAEP takes oaepDigest for both its hash and MGF1 (OpenSSL's default is SHA-1).
Bytes opensslEncrypt(EVP_PKEY* key, int padding, const Bytes& plain,
                     const EVP_MD* oaepDigest = nullptr) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    EVP_PKEY_encrypt_init(context.get());
    EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
    if (oaepDigest != nullptr) {
        EVP_PKEY_CTX_set_rsa_oaep_md(context.get(), oaepDigest);
        EVP_PKEY_CTX_set_rsa_mgf1_md(context.get(), oaepDigest);
    }
    std::size_t length = 0;
    EVP_PKEY_encrypt(context.get(), nullptr, &length, plain.data(), plain.size());
    Bytes out(length);
    EVP_PKEY_encrypt(context.get(), out.data(), &length, plain.data(), plain.size());
    out.resize(length);
    return out;
}

Bytes opensslDecrypt(EVP_PKEY* key, int padding, const Bytes& cipher) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    EVP_PKEY_decrypt_init(context.get());
    EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
    std::size_t length = 0;
    if (EVP_PKEY_decrypt(context.get(), nullptr, &length, cipher.data(), cipher.size()) != 1) {
        return {};
    }
    Bytes out(length);
    if (EVP_PKEY_decrypt(context.get(), out.data(), &length, cipher.data(), cipher.size()) != 1) {
        return {};
    }
    out.resize(length);
    return out;
}

int tokenEncrypt(int type, int padding, const Bytes& plain, const Bytes& key, Bytes& cipher) {
    unsigned char out[1024];
    int length = 0;
    int result =
        ostrel_encrypt(static_cast<EncryptionType>(type), static_cast<PaddingMode>(padding),
                       plain.data(), static_cast<int>(plain.size()), out, &length, key.data(),
                       static_cast<int>(key.size()), KeySuite::instance());
    cipher.assign(out, out + (result == 0 ? length : 0));
    return result;
}

int tokenDecrypt(const OstrelKeyPair& pair, const Bytes& cipher, Bytes& plain,
                 const char* pin = "24680") {
    unsigned char* out = nullptr;
    int length = 0;
    int result =
        ostrel_decrypt("CRYPTO", pair.keyReference, pin, cipher.data(),
                       static_cast<int>(cipher.size()), &out, &length, false, KeySuite::instance());
    plain.assign(out, out + (result == 0 ? length : 0));
    return result;
}

TEST_F(CipherTest, TokenEncryptsForOpensslInBothPaddings) {
    PkeyPtr key = opensslKey("RSA", "2048");
    Bytes cipher;
    ASSERT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingPkcs1, kPlain,
                           subjectPublicKeyInfo(key.get()), cipher),
              0);
    EXPECT_EQ(cipher.size(), 256u);
    EXPECT_EQ(opensslDecrypt(key.get(), RSA_PKCS1_PADDING, cipher), kPlain);
    ASSERT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingOaep, kPlain,
                           subjectPublicKeyInfo(key.get()), cipher),
              0);
    EXPECT_EQ(opensslDecrypt(key.get(), RSA_PKCS1_OAEP_PADDING, cipher), kPlain);  // SHA-1
}

TEST_F(CipherTest, TokenDecryptsWhatOpensslEncryptedWhicheverPadding) {
    const OstrelKeyPair& rsa = pair(kKeyTypeRsa2048);
    PkeyPtr key = publicKeyFromRecord(rsa);
    const struct {
        int padding;
        const EVP_MD* oaepDigest;
    } kPaddings[] = {{RSA_PKCS1_PADDING, nullptr},
                     {RSA_PKCS1_OAEP_PADDING, EVP_sha1()},
                     {RSA_PKCS1_OAEP_PADDING, EVP_sha256()}};
    for (const auto& entry : kPaddings) {
        Bytes plain;
        Bytes cipher = opensslEncrypt(key.get(), entry.padding, kPlain, entry.oaepDigest);
        ASSERT_EQ(tokenDecrypt(rsa, cipher, plain), 0) << entry.padding;
        EXPECT_EQ(plain, kPlain) << entry.padding;
    }
    // OAEP with SHA-384 is none of the three: refused rather than misread.
    Bytes unknown;
    EXPECT_EQ(
        tokenDecrypt(rsa, opensslEncrypt(key.get(), RSA_PKCS1_OAEP_PADDING, kPlain, EVP_sha384()),
                     unknown),
        kDecryptFailed);
    Bytes cipher;
    ASSERT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingOaep, kPlain,
                           subjectPublicKeyInfo(key.get()), cipher),
              0);
    Bytes plain;
    EXPECT_EQ(tokenDecrypt(rsa, cipher, plain), 0);
    EXPECT_EQ(plain, kPlain);
    EXPECT_EQ(tokenDecrypt(rsa, Bytes(256, 0x42), plain), kDecryptFailed);
    EXPECT_EQ(tokenDecrypt(rsa, Bytes(255, 0x42), plain), kInputSize);
    EXPECT_EQ(tokenDecrypt(pair(kKeyTypeEcP256), cipher, plain), kKeyCannotDoThis);
    EXPECT_EQ(tokenDecrypt(rsa, cipher, plain, ""), kPinRequired);
    EXPECT_EQ(tokenDecrypt(rsa, cipher, plain, nullptr), kPinRequired);
}

Bytes component(EVP_PKEY* key, const char* name);

// True when the raw RSA block also reads as PKCS #1 v1.5 encryption padding: 00 02, at least
// eight non-zero bytes, then a zero.
bool unpadsAsPkcs1(const Bytes& block) {
    if (block.size() < 11 || block[0] != 0x00 || block[1] != 0x02) {
        return false;
    }
    if (std::find(block.begin() + 2, block.begin() + 10, 0) != block.begin() + 10) {
        return false;
    }
    return std::find(block.begin() + 10, block.end(), 0) != block.end();
}

TEST_F(CipherTest, OaepIsTriedBeforePkcs1WhenABlockUnpadsUnderBoth) {
    // A key known to OpenSSL as well, so that the raw blocks can be looked at.
    PkeyPtr original = opensslKey("RSA", "2048");
    ImportPFXDetails details;
    details.modulus = component(original.get(), OSSL_PKEY_PARAM_RSA_N);
    details.privateExponent = component(original.get(), OSSL_PKEY_PARAM_RSA_D);
    details.prime1 = component(original.get(), OSSL_PKEY_PARAM_RSA_FACTOR1);
    details.keyKind = 2;
    ASSERT_EQ(ostrel_importPfx(kSerial, kPin, &details, instance()), 0);
    OstrelKeyPair imported{};
    std::copy(details.keyReference.begin(), details.keyReference.end(), imported.keyReference);

    // About one OAEP block in four hundred also passes the PKCS #1 v1.5 checks; find one for
    // each OAEP hash and make sure the token reads it as OAEP.
    for (const EVP_MD* digest : {EVP_sha1(), EVP_sha256()}) {
        Bytes cipher;
        for (int attempt = 0; attempt < 20000; ++attempt) {
            Bytes candidate =
                opensslEncrypt(original.get(), RSA_PKCS1_OAEP_PADDING, kPlain, digest);
            if (unpadsAsPkcs1(opensslDecrypt(original.get(), RSA_NO_PADDING, candidate))) {
                cipher = std::move(candidate);
                break;
            }
        }
        ASSERT_FALSE(cipher.empty()) << EVP_MD_get0_name(digest);
        Bytes plain;
        ASSERT_EQ(tokenDecrypt(imported, cipher, plain), 0);
        EXPECT_EQ(plain, kPlain) << EVP_MD_get0_name(digest);
    }
}

TEST_F(CipherTest, EncryptionRefusesWhatDoesNotFit) {
    PkeyPtr key = publicKeyFromRecord(pair(kKeyTypeRsa2048));
    Bytes spki = subjectPublicKeyInfo(key.get());
    Bytes cipher;
    EXPECT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingPkcs1, Bytes(246, 1), spki, cipher),
              kInputSize);
    EXPECT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingPkcs1, Bytes(245, 1), spki, cipher), 0);
    EXPECT_EQ(tokenEncrypt(kEncryptionRsa3072, kPaddingPkcs1, kPlain, spki, cipher),
              kKeyCannotDoThis);
    EXPECT_EQ(tokenEncrypt(kEncryptionRsa2048, 2, kPlain, spki, cipher), kUnknownAlgorithm);
    EXPECT_EQ(tokenEncrypt(5, kPaddingPkcs1, kPlain, spki, cipher), kUnknownAlgorithm);
    // Found by the parser fuzzer: a public key no RSA operation can use answered 51.
    Bytes evenModulus(256, 0xC3);
    evenModulus.back() = 0x86;
    EXPECT_EQ(tokenEncrypt(kEncryptionRsa2048, kPaddingOaep, kPlain, evenModulus, cipher),
              kBadArgument);
}

Bytes encodedPoint(EVP_PKEY* key) {
    Bytes point(200);
    std::size_t length = 0;
    EVP_PKEY_get_octet_string_param(key, OSSL_PKEY_PARAM_ENCODED_PUBLIC_KEY, point.data(),
                                    point.size(), &length);
    point.resize(length);
    return point;
}

int tokenDerive(const OstrelKeyPair& pair, const Bytes& peer, Bytes& secret,
                const char* pin = "24680") {
    unsigned char* out = nullptr;
    int length = 0;
    int result =
        ostrel_ecdhDerive("CRYPTO", pair.keyReference, pin, peer.data(),
                          static_cast<int>(peer.size()), &out, &length, KeySuite::instance());
    secret.assign(out, out + (result == 0 ? length : 0));
    return result;
}

TEST_F(CipherTest, EcdhAgreesWithOpensslOnEveryCurve) {
    const struct {
        std::int32_t type;
        const char* curve;
    } kCurves[] = {{kKeyTypeEcP256, "P-256"}, {kKeyTypeEcP384, "P-384"}, {kKeyTypeEcP521, "P-521"}};
    for (const auto& curve : kCurves) {
        PkeyPtr peer = opensslKey("EC", curve.curve);
        PkeyPtr tokenPublic = publicKeyFromRecord(pair(curve.type));
        PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, peer.get(), nullptr));
        EVP_PKEY_derive_init(context.get());
        EVP_PKEY_derive_set_peer(context.get(), tokenPublic.get());
        std::size_t length = 0;
        EVP_PKEY_derive(context.get(), nullptr, &length);
        Bytes expected(length);
        EVP_PKEY_derive(context.get(), expected.data(), &length);

        Bytes secret;
        Bytes point = encodedPoint(peer.get());
        ASSERT_EQ(tokenDerive(pair(curve.type), point, secret), 0) << curve.curve;
        EXPECT_EQ(secret, expected) << curve.curve;
        Bytes wrapped = {0x04, static_cast<unsigned char>(point.size())};
        if (point.size() >= 128) {
            wrapped = {0x04, 0x81, static_cast<unsigned char>(point.size())};
        }
        wrapped.insert(wrapped.end(), point.begin(), point.end());
        ASSERT_EQ(tokenDerive(pair(curve.type), wrapped, secret), 0) << curve.curve;
        EXPECT_EQ(secret, expected) << curve.curve;
    }
    Bytes secret;
    Bytes offCurve(65, 0x01);
    offCurve[0] = 0x04;
    EXPECT_EQ(tokenDerive(pair(kKeyTypeEcP256), offCurve, secret), kBadArgument);
    EXPECT_EQ(tokenDerive(pair(kKeyTypeRsa2048), offCurve, secret), kKeyCannotDoThis);
    // A point of another curve, and a compressed point, are no P-256 peer.
    PkeyPtr other = opensslKey("EC", "P-384");
    EXPECT_EQ(tokenDerive(pair(kKeyTypeEcP256), encodedPoint(other.get()), secret), kBadArgument);
    // Found by the parser fuzzer: a SubjectPublicKeyInfo of another curve answered 51.
    EXPECT_EQ(tokenDerive(pair(kKeyTypeEcP256), subjectPublicKeyInfo(other.get()), secret),
              kBadArgument);
    Bytes compressed = encodedPoint(opensslKey("EC", "P-256").get());
    compressed.resize(33);
    compressed[0] = 0x02;
    EXPECT_EQ(tokenDerive(pair(kKeyTypeEcP256), compressed, secret), kBadArgument);
    EXPECT_EQ(tokenDerive(pair(kKeyTypeEcP256), encodedPoint(other.get()), secret, ""),
              kPinRequired);
}

TEST_F(CipherTest, HashContextsMatchOpensslAndEndOnce) {
    const struct {
        int code;
        const EVP_MD* digest;
    } kCodes[] = {{1, EVP_sha1()},   {2, EVP_sha1()},   {3, EVP_sha256()},
                  {4, EVP_sha384()}, {5, EVP_sha512()}, {6, EVP_sha224()}};
    const std::string data = "hash me in two parts";
    for (const auto& entry : kCodes) {
        HashContext context = nullptr;
        ASSERT_EQ(ostrel_initHash(kSerial, entry.code, &context, instance()), 0);
        const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
        EXPECT_EQ(ostrel_updateHash(context, bytes, 5, instance()), 0);
        EXPECT_EQ(
            ostrel_updateHash(context, bytes + 5, static_cast<int>(data.size()) - 5, instance()),
            0);
        unsigned char digest[64];
        int length = 0;
        ASSERT_EQ(ostrel_finalHash(context, digest, &length, instance()), 0);
        EXPECT_EQ(Bytes(digest, digest + length), sha(entry.digest, data)) << entry.code;
        EXPECT_EQ(ostrel_finalHash(context, digest, &length, instance()), kBadHashContext);
        EXPECT_EQ(ostrel_updateHash(context, bytes, 1, instance()), kBadHashContext);
    }
    HashContext context = nullptr;
    EXPECT_EQ(ostrel_initHash(kSerial, 7, &context, instance()), kUnknownAlgorithm);
    EXPECT_EQ(ostrel_initHash(kSerial, 0, &context, instance()), kUnknownAlgorithm);
    EXPECT_EQ(ostrel_initHash("NOSUCH", 3, &context, instance()), kDeviceUnreachable);
    EXPECT_EQ(ostrel_updateHash(nullptr, nullptr, 0, instance()), kBadHashContext);
    // A signature's final step right after its init hands a null context.
    unsigned char none[64];
    int noneLength = 64;
    EXPECT_EQ(ostrel_finalHash(nullptr, none, &noneLength, instance()), kBadHashContext);
    int unknownContext = 0;
    EXPECT_EQ(ostrel_updateHash(&unknownContext, none, 1, instance()), kBadHashContext);
    EXPECT_EQ(ostrel_finalHash(&unknownContext, none, &noneLength, instance()), kBadHashContext);
    // A context left open is released with its instance.
    DeviceInstance other = nullptr;
    ostrel_createInstance(&other);
    ASSERT_EQ(ostrel_initHash(kSerial, 3, &context, other), 0);
    ostrel_releaseInstance(other);
    unsigned char digest[64];
    int length = 0;
    EXPECT_EQ(ostrel_finalHash(context, digest, &length, instance()), kBadHashContext);
}

TEST_F(CipherTest, RandomBytesFillTheWholeBuffer) {
    Bytes first(48, 0);
    Bytes second(48, 0);
    ASSERT_EQ(ostrel_generateRamdomNumber(kSerial, 48, first.data(), true, nullptr), 0);
    ASSERT_EQ(ostrel_generateRamdomNumber(kSerial, 48, second.data(), true, nullptr), 0);
    EXPECT_NE(first, second);
    EXPECT_NE(std::count(first.begin(), first.end(), 0), 48);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, 0, first.data(), true, nullptr), kBadArgument);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, -1, first.data(), true, nullptr), kBadArgument);
    EXPECT_EQ(ostrel_generateRamdomNumber(kSerial, 8, nullptr, true, nullptr), kBadArgument);
    EXPECT_EQ(ostrel_generateRamdomNumber("NOSUCH", 8, first.data(), true, nullptr),
              kDeviceUnreachable);

    // A long request is served in parts: every part of the buffer is filled, the last one
    // (shorter than a part) included, and nothing past the length asked for is touched.
    constexpr int kLong = 3 * 65536 + 1000;
    Bytes large(kLong + 16, 0);
    ASSERT_EQ(ostrel_generateRamdomNumber(kSerial, kLong, large.data(), true, nullptr), 0);
    for (int start = 0; start < kLong; start += 1000) {
        const int end = std::min(start + 1000, kLong);
        EXPECT_NE(std::count(large.begin() + start, large.begin() + end, 0), end - start)
            << "bytes " << start << " to " << end << " were left as they were";
    }
    EXPECT_EQ(std::count(large.begin() + kLong, large.end(), 0), 16);
}

Bytes component(EVP_PKEY* key, const char* name) {
    BIGNUM* value = nullptr;
    EVP_PKEY_get_bn_param(key, name, &value);
    Bytes out(static_cast<std::size_t>(BN_num_bytes(value)));
    BN_bn2bin(value, out.data());
    BN_free(value);
    return out;
}

TEST_F(CipherTest, ImportedRsaComponentsMakeAWorkingKeyPair) {
    PkeyPtr original = opensslKey("RSA", "2048");
    ImportPFXDetails details;
    details.modulus = component(original.get(), OSSL_PKEY_PARAM_RSA_N);
    details.privateExponent = component(original.get(), OSSL_PKEY_PARAM_RSA_D);
    details.prime1 = component(original.get(), OSSL_PKEY_PARAM_RSA_FACTOR1);
    details.objectId = {0xAB, 0xCD};
    details.label = "imported";
    details.keyKind = 2;
    ASSERT_EQ(ostrel_importPfx(kSerial, kPin, &details, instance()), 0);
    ASSERT_EQ(details.keyReference.size(), 16u);

    const OstrelKeyPair* stored = nullptr;
    for (const OstrelKeyPair& candidate : ostrel_getKeyPairList(kSerial, instance())) {
        if (std::equal(details.keyReference.begin(), details.keyReference.end(),
                       candidate.keyReference)) {
            stored = &candidate;
        }
    }
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(Bytes(stored->publicValue, stored->publicValue + stored->publicValueLength),
              details.modulus);
    EXPECT_EQ(stored->keyType, kKeyTypeRsa2048);
    EXPECT_STREQ(stored->alias, "imported");
    OstrelKeyPair copy = *stored;
    Bytes plain;
    EXPECT_EQ(tokenDecrypt(copy, opensslEncrypt(original.get(), RSA_PKCS1_PADDING, kPlain), plain),
              0);
    EXPECT_EQ(plain, kPlain);

    details.prime1.back() ^= 2;  // no longer a factor of the modulus
    EXPECT_EQ(ostrel_importPfx(kSerial, kPin, &details, instance()), kBadArgument);
    details.keyKind = 3;
    EXPECT_EQ(ostrel_importPfx(kSerial, kPin, &details, instance()), kKeyCannotDoThis);
}

}  // namespace
}  // namespace softtoken::testing
