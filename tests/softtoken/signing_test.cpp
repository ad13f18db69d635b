// Signatures made by the token checked with libcrypto and the openssl program, and signatures
// made by OpenSSL checked by the token.
#include <openssl/rsa.h>

#include "common/token_error.h"
#include "key_suite.h"

namespace softtoken::testing {
namespace {

using SigningTest = KeySuite;

const std::string kMessage = "the quick brown fox signs the lazy dog";

bool opensslVerifies(EVP_PKEY* key, const EVP_MD* digest, const Bytes& signature, int padding,
                     int saltLength = 0) {
    MdCtxPtr context(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyContext = nullptr;
    if (EVP_DigestVerifyInit(context.get(), &keyContext, digest, nullptr, key) != 1) {
        return false;
    }
    if (padding != 0) {
        EVP_PKEY_CTX_set_rsa_padding(keyContext, padding);
        if (padding == RSA_PKCS1_PSS_PADDING) {
            EVP_PKEY_CTX_set_rsa_pss_saltlen(keyContext, saltLength);
            EVP_PKEY_CTX_set_rsa_mgf1_md(keyContext, digest);
        }
    }
    return EVP_DigestVerify(context.get(), signature.data(), signature.size(),
                            reinterpret_cast<const unsigned char*>(kMessage.data()),
                            kMessage.size()) == 1;
}

const EVP_MD* const kDigests[] = {EVP_sha1(), EVP_sha224(), EVP_sha256(), EVP_sha384(),
                                  EVP_sha512()};

TEST_F(SigningTest, Pkcs1WrapsEachBareDigestInItsDigestInfo) {
    const OstrelKeyPair& rsa = pair(kKeyTypeRsa2048);
    PkeyPtr key = publicKeyFromRecord(rsa);
    for (const EVP_MD* digest : kDigests) {
        Bytes signature = sign(rsa, sha(digest, kMessage), false);
        EXPECT_EQ(signature.size(), 256u);
        EXPECT_TRUE(opensslVerifies(key.get(), digest, signature, RSA_PKCS1_PADDING))
            << EVP_MD_get0_name(digest);
    }
}

TEST_F(SigningTest, Pkcs1SignsOtherInputAsGiven) {
    // A complete SHA-256 DigestInfo gives the same (deterministic) signature as its bare digest.
    const Bytes prefix = {0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
                          0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};
    Bytes digest = sha(EVP_sha256(), kMessage);
    Bytes digestInfo = prefix;
    digestInfo.insert(digestInfo.end(), digest.begin(), digest.end());
    const OstrelKeyPair& rsa = pair(kKeyTypeRsa2048);
    EXPECT_EQ(sign(rsa, digestInfo, false), sign(rsa, digest, false));

    int result = 0;
    sign(rsa, Bytes(250, 1), false, &result);  // no room for the padding
    EXPECT_EQ(result, kInputSize);
}

TEST_F(SigningTest, PssTakesHashAndSaltLengthFromTheDigest) {
    const OstrelKeyPair& rsa = pair(kKeyTypeRsa2048);
    PkeyPtr key = publicKeyFromRecord(rsa);
    for (const EVP_MD* digest : kDigests) {
        Bytes signature = sign(rsa, sha(digest, kMessage), true);
        EXPECT_TRUE(opensslVerifies(key.get(), digest, signature, RSA_PKCS1_PSS_PADDING,
                                    EVP_MD_get_size(digest)))
            << EVP_MD_get0_name(digest);
    }
    int result = 0;
    sign(rsa, Bytes(30, 1), true, &result);
    EXPECT_EQ(result, kInputSize);
    sign(pair(kKeyTypeEcP256), Bytes(32, 1), true, &result);
    EXPECT_EQ(result, kKeyCannotDoThis);
}

Bytes toDerSignature(const Bytes& fixed) {
    EcdsaSigPtr signature(ECDSA_SIG_new());
    std::size_t half = fixed.size() / 2;
    ECDSA_SIG_set0(signature.get(), BN_bin2bn(fixed.data(), static_cast<int>(half), nullptr),
                   BN_bin2bn(fixed.data() + half, static_cast<int>(half), nullptr));
    Bytes der(static_cast<std::size_t>(i2d_ECDSA_SIG(signature.get(), nullptr)));
    unsigned char* cursor = der.data();
    i2d_ECDSA_SIG(signature.get(), &cursor);
    return der;
}

TEST_F(SigningTest, EcdsaAnswersRThenSOfTheCurveSize) {
    const struct {
        std::int32_t type;
        std::size_t size;
        const EVP_MD* digest;
    } kCurves[] = {{kKeyTypeEcP256, 64, EVP_sha256()},
                   {kKeyTypeEcP384, 96, EVP_sha384()},
                   {kKeyTypeEcP521, 132, EVP_sha512()}};
    for (const auto& curve : kCurves) {
        Bytes signature = sign(pair(curve.type), sha(curve.digest, kMessage), false);
        ASSERT_EQ(signature.size(), curve.size);
        PkeyPtr key = publicKeyFromRecord(pair(curve.type));
        EXPECT_TRUE(opensslVerifies(key.get(), curve.digest, toDerSignature(signature), 0));
    }
}

TEST_F(SigningTest, OpensslProgramAcceptsTheTokensEcdsaSignature) {
    TemporaryFolder work;
    const OstrelKeyPair& ec = pair(kKeyTypeEcP256);
    Bytes digest = sha(EVP_sha256(), kMessage);
    writeFile(work.path() + "/hash.bin", digest);
    writeFile(work.path() + "/sig.der", toDerSignature(sign(ec, digest, false)));
    writeFile(work.path() + "/key.der", subjectPublicKeyInfo(publicKeyFromRecord(ec).get()));
    ProcessResult verify =
        runProgram({OPENSSL_PROGRAM, "pkeyutl", "-verify", "-pubin", "-keyform", "DER", "-inkey",
                    work.path() + "/key.der", "-in", work.path() + "/hash.bin", "-sigfile",
                    work.path() + "/sig.der"});
    EXPECT_EQ(verify.exitCode, 0) << verify.output;
    EXPECT_NE(verify.output.find("Signature Verified Successfully"), std::string::npos);
}

// Signs with OpenSSL and asks the token to verify.
int tokenVerifies(unsigned int keyType, const Bytes& digest, const Bytes& publicKey,
                  const Bytes& signature, bool pss) {
    return ostrel_verifySignatureHash(
        keyType, "CRYPTO", digest.data(), static_cast<int>(digest.size()), publicKey.data(),
        static_cast<int>(publicKey.size()), signature.data(), static_cast<int>(signature.size()),
        KeySuite::instance(), pss);
}

Bytes opensslSign(EVP_PKEY* key, const Bytes& digest, int padding) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    EVP_PKEY_sign_init(context.get());
    if (padding != 0) {
        EVP_PKEY_CTX_set_rsa_padding(context.get(), padding);
        EVP_PKEY_CTX_set_signature_md(context.get(), EVP_sha256());
    }
    std::size_t length = 0;
    EVP_PKEY_sign(context.get(), nullptr, &length, digest.data(), digest.size());
    Bytes signature(length);
    EVP_PKEY_sign(context.get(), signature.data(), &length, digest.data(), digest.size());
    signature.resize(length);
    return signature;
}

TEST_F(SigningTest, VerifyAcceptsEachPublicKeyFormAndRejectsTampering) {
    Bytes digest = sha(EVP_sha256(), kMessage);
    PkeyPtr rsa = opensslKey("RSA", "2048");
    Bytes modulus;
    BIGNUM* n = nullptr;
    EVP_PKEY_get_bn_param(rsa.get(), "n", &n);
    modulus.resize(static_cast<std::size_t>(BN_num_bytes(n)));
    BN_bn2bin(n, modulus.data());
    BN_free(n);

    Bytes pkcs1 = opensslSign(rsa.get(), digest, RSA_PKCS1_PADDING);
    EXPECT_EQ(tokenVerifies(kKeyTypeRsa2048, digest, subjectPublicKeyInfo(rsa.get()), pkcs1, false),
              0);
    EXPECT_EQ(tokenVerifies(kKeyTypeRsa2048, digest, modulus, pkcs1, false), 0);
    Bytes pss = opensslSign(rsa.get(), digest, RSA_PKCS1_PSS_PADDING);
    EXPECT_EQ(tokenVerifies(kKeyTypeRsa2048, digest, modulus, pss, true), 0);
    EXPECT_NE(tokenVerifies(kKeyTypeRsa2048, digest, modulus, pss, false), 0);

    PkeyPtr ec = opensslKey("EC", "P-384");
    Bytes point(97);
    std::size_t pointLength = 0;
    EVP_PKEY_get_octet_string_param(ec.get(), "encoded-pub-key", point.data(), point.size(),
                                    &pointLength);
    Bytes der = opensslSign(ec.get(), digest, 0);
    const unsigned char* cursor = der.data();
    EcdsaSigPtr parsed(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())));
    Bytes fixed(96);
    BN_bn2binpad(ECDSA_SIG_get0_r(parsed.get()), fixed.data(), 48);
    BN_bn2binpad(ECDSA_SIG_get0_s(parsed.get()), fixed.data() + 48, 48);
    EXPECT_EQ(tokenVerifies(kKeyTypeEcP384, digest, point, fixed, false), 0);
    EXPECT_EQ(tokenVerifies(kKeyTypeEcP384, digest, subjectPublicKeyInfo(ec.get()), fixed, false),
              0);
    // DER is not the PKCS #11 form of an ECDSA signature, and PSS is no EC scheme.
    EXPECT_EQ(tokenVerifies(kKeyTypeEcP384, digest, point, der, false), kSignatureInvalid);
    EXPECT_NE(tokenVerifies(kKeyTypeEcP384, digest, point, fixed, true), 0);

    Bytes tampered = fixed;
    tampered[10] ^= 1;
    EXPECT_EQ(tokenVerifies(kKeyTypeEcP384, digest, point, tampered, false), kSignatureInvalid);
    pkcs1[0] ^= 1;
    EXPECT_EQ(tokenVerifies(kKeyTypeRsa2048, digest, modulus, pkcs1, false), kSignatureInvalid);
    // The curve follows from the key type: a P-384 point is no P-256 key.
    EXPECT_NE(tokenVerifies(kKeyTypeEcP256, digest, point, fixed, false), 0);
    EXPECT_EQ(tokenVerifies(kKeyTypeEcP256, digest, subjectPublicKeyInfo(ec.get()), fixed, false),
              kBadArgument);
}

TEST_F(SigningTest, SigningNeedsRoomTheRightPinAndAKnownKey) {
    const OstrelKeyPair& rsa = pair(kKeyTypeRsa2048);
    Bytes digest(32, 3);
    unsigned char signature[1024];
    int length = 100;
    EXPECT_EQ(ostrel_signHash(kSerial, rsa.keyReference, kPin, digest.data(), 32, signature,
                              &length, false, instance(), false),
              kBufferTooSmall);
    EXPECT_EQ(length, 256);
    length = sizeof signature;
    unsigned char unknown[16] = {};
    EXPECT_EQ(ostrel_signHash(kSerial, unknown, kPin, digest.data(), 32, signature, &length, false,
                              instance(), false),
              kObjectNotFound);
    EXPECT_EQ(ostrel_signHash(kSerial, rsa.keyReference, "", digest.data(), 32, signature, &length,
                              false, instance(), false),
              kPinRequired);
    EXPECT_EQ(ostrel_signHash("NOSUCH", rsa.keyReference, kPin, digest.data(), 32, signature,
                              &length, false, instance(), false),
              kDeviceUnreachable);
}

}  // namespace
}  // namespace softtoken::testing
