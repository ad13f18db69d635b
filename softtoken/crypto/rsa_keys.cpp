#include "crypto/rsa_keys.h"

#include <openssl/core_names.h>

#include <climits>

#include "common/token_error.h"

namespace softtoken {

namespace {

constexpr unsigned long kDefaultExponent = 65537;
constexpr int kMaxModulusBits = 16384;
constexpr int kSmallExponentAbove = 3072;
constexpr int kSmallExponentBits = 64;

BignumPtr toBignum(const Bytes& value) {
    return BignumPtr(BN_bin2bn(value.data(), static_cast<int>(value.size()), nullptr));
}

PkeyPtr keyFromParams(const OSSL_PARAM* params, int selection) {
    PkeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    EVP_PKEY* key = nullptr;
    if (context == nullptr || EVP_PKEY_fromdata_init(context.get()) != 1 ||
        EVP_PKEY_fromdata(context.get(), &key, selection, const_cast<OSSL_PARAM*>(params)) != 1) {
        return nullptr;
    }
    return PkeyPtr(key);
}

struct RsaComponents {
    BignumPtr n, e, d, p, q, dmp1, dmq1, iqmp;
};

// Works out q, e and the CRT values from n, d and p.
bool completeComponents(RsaComponents& c) {
    BnCtxPtr bn(BN_CTX_new());
    BignumPtr remainder(BN_new()), pMinus1(BN_new()), qMinus1(BN_new()), gcd(BN_new()),
        lambda(BN_new());
    c.q.reset(BN_new());
    c.e.reset(BN_new());
    c.dmp1.reset(BN_new());
    c.dmq1.reset(BN_new());
    c.iqmp.reset(BN_new());
    if (bn == nullptr || !remainder || !pMinus1 || !qMinus1 || !gcd || !lambda || !c.q || !c.e ||
        !c.dmp1 || !c.dmq1 || !c.iqmp) {
        return false;
    }
    if (BN_is_zero(c.p.get()) || BN_is_one(c.p.get()) ||
        BN_div(c.q.get(), remainder.get(), c.n.get(), c.p.get(), bn.get()) != 1 ||
        !BN_is_zero(remainder.get()) || BN_is_one(c.q.get())) {
        return false;
    }
    // lambda(n) = (p-1)(q-1) / gcd(p-1, q-1); e is the inverse of d modulo it.
    if (BN_sub(pMinus1.get(), c.p.get(), BN_value_one()) != 1 ||
        BN_sub(qMinus1.get(), c.q.get(), BN_value_one()) != 1 ||
        BN_gcd(gcd.get(), pMinus1.get(), qMinus1.get(), bn.get()) != 1 ||
        BN_mul(lambda.get(), pMinus1.get(), qMinus1.get(), bn.get()) != 1 ||
        BN_div(lambda.get(), nullptr, lambda.get(), gcd.get(), bn.get()) != 1 ||
        BN_mod_inverse(c.e.get(), c.d.get(), lambda.get(), bn.get()) == nullptr) {
        return false;
    }
    return BN_mod(c.dmp1.get(), c.d.get(), pMinus1.get(), bn.get()) == 1 &&
           BN_mod(c.dmq1.get(), c.d.get(), qMinus1.get(), bn.get()) == 1 &&
           BN_mod_inverse(c.iqmp.get(), c.q.get(), c.p.get(), bn.get()) != nullptr;
}

// What OpenSSL's RSA public operation insists on (an odd modulus of at most 16384 bits, an odd
// exponent between 1 and the modulus, at most 64 bits long above 3072-bit moduli). A key from
// outside that breaks it is malformed: refused when it is read rather than failing later as if
// OpenSSL itself had failed.
bool publicOperationPossible(EVP_PKEY* key) {
    BIGNUM* n = nullptr;
    BIGNUM* e = nullptr;
    bool possible = EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &n) == 1 &&
                    EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_E, &e) == 1;
    BignumPtr ownedN(n);
    BignumPtr ownedE(e);
    return possible && BN_is_odd(n) && BN_num_bits(n) <= kMaxModulusBits && BN_is_odd(e) &&
           !BN_is_one(e) && BN_cmp(e, n) < 0 &&
           (BN_num_bits(n) <= kSmallExponentAbove || BN_num_bits(e) <= kSmallExponentBits);
}

}  // namespace

bool rsaModulus(EVP_PKEY* key, Bytes& modulus) {
    BIGNUM* n = nullptr;
    if (EVP_PKEY_get_bn_param(key, OSSL_PKEY_PARAM_RSA_N, &n) != 1) {
        return false;
    }
    BignumPtr owned(n);
    Bytes out(static_cast<std::size_t>(BN_num_bytes(n)));
    BN_bn2bin(n, out.data());
    modulus = std::move(out);
    return true;
}

PkeyPtr rsaPublicKey(const unsigned char* data, std::size_t size) {
    if (data == nullptr || size == 0 || size > INT_MAX) {
        return nullptr;
    }
    if (data[0] == 0x30) {
        // A SubjectPublicKeyInfo (a bare modulus never starts with 0x30 in practice: its top
        // bit is set; 0x30 would mean a key shorter than its length says).
        const unsigned char* cursor = data;
        PkeyPtr key(d2i_PUBKEY(nullptr, &cursor, static_cast<long>(size)));
        if (key != nullptr && EVP_PKEY_is_a(key.get(), "RSA") &&
            publicOperationPossible(key.get())) {
            return key;
        }
        return nullptr;
    }
    BignumPtr n(BN_bin2bn(data, static_cast<int>(size), nullptr));
    BignumPtr e(BN_new());
    ParamBuildPtr build(OSSL_PARAM_BLD_new());
    if (!n || !e || !build || BN_set_word(e.get(), kDefaultExponent) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_N, n.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_E, e.get()) != 1) {
        return nullptr;
    }
    ParamsPtr params(OSSL_PARAM_BLD_to_param(build.get()));
    PkeyPtr key = params ? keyFromParams(params.get(), EVP_PKEY_PUBLIC_KEY) : nullptr;
    return key != nullptr && publicOperationPossible(key.get()) ? std::move(key) : nullptr;
}

int rsaFromComponents(const Bytes& modulus, const Bytes& privateExponent, const Bytes& prime,
                      PkeyPtr& key) {
    if (modulus.empty() || privateExponent.empty() || prime.empty() || modulus.size() > INT_MAX ||
        privateExponent.size() > INT_MAX || prime.size() > INT_MAX) {
        return kBadArgument;
    }
    RsaComponents c;
    c.n = toBignum(modulus);
    c.d = toBignum(privateExponent);
    c.p = toBignum(prime);
    if (!c.n || !c.d || !c.p) {
        return kInternal;
    }
    if (!completeComponents(c)) {
        return kBadArgument;
    }
    if (!BN_is_word(c.e.get(), kDefaultExponent)) {
        return kKeyCannotDoThis;
    }
    ParamBuildPtr build(OSSL_PARAM_BLD_new());
    if (!build || OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_N, c.n.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_E, c.e.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_D, c.d.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_FACTOR1, c.p.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_FACTOR2, c.q.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_EXPONENT1, c.dmp1.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_EXPONENT2, c.dmq1.get()) != 1 ||
        OSSL_PARAM_BLD_push_BN(build.get(), OSSL_PKEY_PARAM_RSA_COEFFICIENT1, c.iqmp.get()) != 1) {
        return kCryptoFailed;
    }
    ParamsPtr params(OSSL_PARAM_BLD_to_param(build.get()));
    PkeyPtr made = params ? keyFromParams(params.get(), EVP_PKEY_KEYPAIR) : nullptr;
    if (made == nullptr) {
        return kBadArgument;
    }
    // The components came from outside: make sure they really belong together (p and q prime,
    // e * d = 1 for both), which the arithmetic above alone does not prove.
    PkeyCtxPtr check(EVP_PKEY_CTX_new_from_pkey(nullptr, made.get(), nullptr));
    if (check == nullptr || EVP_PKEY_pairwise_check(check.get()) != 1) {
        return kBadArgument;
    }
    key = std::move(made);
    return kOk;
}

}  // namespace softtoken
