// Owning pointers for the OpenSSL objects the token uses.
#pragma once

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>
#include <openssl/x509.h>

#include <memory>

namespace softtoken {

template <typename T, void (*Free)(T*)>
struct OpenSslDeleter {
    void operator()(T* object) const { Free(object); }
};

using PkeyPtr = std::unique_ptr<EVP_PKEY, OpenSslDeleter<EVP_PKEY, EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpenSslDeleter<EVP_PKEY_CTX, EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, OpenSslDeleter<EVP_MD_CTX, EVP_MD_CTX_free>>;
using CipherCtxPtr =
    std::unique_ptr<EVP_CIPHER_CTX, OpenSslDeleter<EVP_CIPHER_CTX, EVP_CIPHER_CTX_free>>;
using BignumPtr = std::unique_ptr<BIGNUM, OpenSslDeleter<BIGNUM, BN_clear_free>>;
using BnCtxPtr = std::unique_ptr<BN_CTX, OpenSslDeleter<BN_CTX, BN_CTX_free>>;
using ParamBuildPtr =
    std::unique_ptr<OSSL_PARAM_BLD, OpenSslDeleter<OSSL_PARAM_BLD, OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, OpenSslDeleter<OSSL_PARAM, OSSL_PARAM_free>>;
using X509Ptr = std::unique_ptr<X509, OpenSslDeleter<X509, X509_free>>;
using BioPtr = std::unique_ptr<BIO, OpenSslDeleter<BIO, BIO_free_all>>;
using EcdsaSigPtr = std::unique_ptr<ECDSA_SIG, OpenSslDeleter<ECDSA_SIG, ECDSA_SIG_free>>;

// A shared, immutable key: OpenSSL 3 keys may be used by several threads at once for
// operations that each have their own EVP_PKEY_CTX.
using SharedPkey = std::shared_ptr<EVP_PKEY>;
inline SharedPkey share(PkeyPtr key) {
    return SharedPkey(key.release(), EVP_PKEY_free);
}

}  // namespace softtoken
