#include "p11bench/openssl_keys.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509.h>

#include <cstdio>
#include <stdexcept>

namespace {

void require(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("libcrypto: ") + what);
    }
}

struct ContextDeleter {
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

}  // namespace

Pkey readPrivateKey(const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "r");
    require(file != nullptr, "open key file");
    Pkey key(PEM_read_PrivateKey(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    require(key != nullptr, "read key file");
    return key;
}

Bytes signSha256Rsa(EVP_PKEY* key, const Bytes& data) {
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    Bytes signature(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t length = signature.size();
    require(
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1 &&
            EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()) == 1,
        "RSA sign");
    signature.resize(length);
    return signature;
}

Bytes signEcdsaDigest(EVP_PKEY* key, const Bytes& digest) {
    std::unique_ptr<EVP_PKEY_CTX, ContextDeleter> context(EVP_PKEY_CTX_new(key, nullptr));
    unsigned char der[160];
    std::size_t length = sizeof der;
    require(EVP_PKEY_sign_init(context.get()) == 1 &&
                EVP_PKEY_sign(context.get(), der, &length, digest.data(), digest.size()) == 1,
            "ECDSA sign");
    // The PKCS #11 form: r and s, each as wide as the field.
    const unsigned char* cursor = der;
    ECDSA_SIG* signature = d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(length));
    require(signature != nullptr, "ECDSA signature");
    Bytes raw(64);
    BN_bn2binpad(ECDSA_SIG_get0_r(signature), raw.data(), 32);
    BN_bn2binpad(ECDSA_SIG_get0_s(signature), raw.data() + 32, 32);
    ECDSA_SIG_free(signature);
    return raw;
}

bool verifySha256Rsa(EVP_PKEY* key, const Bytes& data, const Bytes& signature) {
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    require(EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key) == 1,
            "RSA verify");
    return EVP_DigestVerify(context.get(), signature.data(), signature.size(), data.data(),
                            data.size()) == 1;
}

Bytes sha256(const Bytes& data) {
    Bytes digest(32);
    unsigned int length = 0;
    require(
        EVP_Digest(data.data(), data.size(), digest.data(), &length, EVP_sha256(), nullptr) == 1,
        "SHA-256");
    return digest;
}

Bytes sha256InParts(const Bytes& part, std::size_t parts) {
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    require(EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1, "SHA-256 init");
    for (std::size_t i = 0; i < parts; ++i) {
        require(EVP_DigestUpdate(context.get(), part.data(), part.size()) == 1, "SHA-256 update");
    }
    Bytes digest(32);
    unsigned int length = 0;
    require(EVP_DigestFinal_ex(context.get(), digest.data(), &length) == 1, "SHA-256 final");
    return digest;
}

Bytes encryptPkcs1(EVP_PKEY* key, const Bytes& plaintext) {
    std::unique_ptr<EVP_PKEY_CTX, ContextDeleter> context(EVP_PKEY_CTX_new(key, nullptr));
    Bytes ciphertext(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t length = ciphertext.size();
    require(EVP_PKEY_encrypt_init(context.get()) == 1 &&
                EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                EVP_PKEY_encrypt(context.get(), ciphertext.data(), &length, plaintext.data(),
                                 plaintext.size()) == 1,
            "RSA encrypt");
    ciphertext.resize(length);
    return ciphertext;
}

Bytes decryptPkcs1(EVP_PKEY* key, const Bytes& ciphertext) {
    std::unique_ptr<EVP_PKEY_CTX, ContextDeleter> context(EVP_PKEY_CTX_new(key, nullptr));
    Bytes plaintext(static_cast<std::size_t>(EVP_PKEY_get_size(key)));
    std::size_t length = plaintext.size();
    require(EVP_PKEY_decrypt_init(context.get()) == 1 &&
                EVP_PKEY_CTX_set_rsa_padding(context.get(), RSA_PKCS1_PADDING) == 1 &&
                EVP_PKEY_decrypt(context.get(), plaintext.data(), &length, ciphertext.data(),
                                 ciphertext.size()) == 1,
            "RSA decrypt");
    plaintext.resize(length);
    return plaintext;
}

Bytes deriveEcdh(EVP_PKEY* key, EVP_PKEY* peer) {
    std::unique_ptr<EVP_PKEY_CTX, ContextDeleter> context(EVP_PKEY_CTX_new(key, nullptr));
    Bytes secret(66);
    std::size_t length = secret.size();
    require(EVP_PKEY_derive_init(context.get()) == 1 &&
                EVP_PKEY_derive_set_peer(context.get(), peer) == 1 &&
                EVP_PKEY_derive(context.get(), secret.data(), &length) == 1,
            "ECDH");
    secret.resize(length);
    return secret;
}

void randomBytes(Bytes& buffer) {
    require(RAND_bytes(buffer.data(), static_cast<int>(buffer.size())) == 1, "random");
}

Bytes ecPublicPoint(EVP_PKEY* key) {
    Bytes point(133);
    std::size_t length = 0;
    require(EVP_PKEY_get_octet_string_param(key, "encoded-pub-key", point.data(), point.size(),
                                            &length) == 1,
            "EC point");
    point.resize(length);
    return point;
}

std::vector<Certificate> makeCertificates(EVP_PKEY* key, std::size_t count) {
    std::vector<Certificate> certificates;
    for (std::size_t i = 0; i < count; ++i) {
        X509* certificate = X509_new();
        X509_set_version(certificate, 2);
        ASN1_INTEGER_set(X509_get_serialNumber(certificate), static_cast<long>(i + 1));
        X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
        X509_gmtime_adj(X509_getm_notAfter(certificate), 86400L * 30);
        X509_NAME* name = X509_get_subject_name(certificate);
        const std::string commonName = "bench object " + std::to_string(i);
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC,
                                   reinterpret_cast<const unsigned char*>(commonName.c_str()), -1,
                                   -1, 0);
        X509_set_issuer_name(certificate, name);
        X509_set_pubkey(certificate, key);
        require(X509_sign(certificate, key, EVP_sha256()) > 0, "certificate");
        Certificate made;
        made.der.resize(static_cast<std::size_t>(i2d_X509(certificate, nullptr)));
        unsigned char* cursor = made.der.data();
        i2d_X509(certificate, &cursor);
        made.subject.resize(static_cast<std::size_t>(i2d_X509_NAME(name, nullptr)));
        cursor = made.subject.data();
        i2d_X509_NAME(name, &cursor);
        X509_free(certificate);
        certificates.push_back(std::move(made));
    }
    return certificates;
}
