// Rows of the matrix that give every Init every mechanism of the catalogue, and parameters of
// every length up to a little past the largest structure a mechanism takes.
#include <algorithm>
#include <cstddef>

#include "bad_input_matrix.h"
#include "slots/mechanism_catalogue.h"

namespace matrix {

namespace {

// Every mechanism of the catalogue, and two it does not hold, given to every Init: each takes
// only its own (the FIPS 140-3 token refuses SHA-1 signing); key-pair generation never looks
// at the type (compatibility register, entry 35).
std::vector<Row> mechanismCrossRows() {
    std::vector<CK_MECHANISM_TYPE> every;
    for (const MechanismEntry& entry : kMechanismCatalogue) {
        every.push_back(entry.type);
    }
    every.insert(every.end(), {CKM_MD5, CKM_ECDSA_SHA512});
    const std::vector<CK_MECHANISM_TYPE> signing = {CKM_RSA_PKCS,
                                                    CKM_RSA_PKCS_PSS,
                                                    CKM_SHA224_RSA_PKCS,
                                                    CKM_SHA256_RSA_PKCS,
                                                    CKM_SHA384_RSA_PKCS,
                                                    CKM_SHA512_RSA_PKCS,
                                                    CKM_SHA224_RSA_PKCS_PSS,
                                                    CKM_SHA256_RSA_PKCS_PSS,
                                                    CKM_SHA384_RSA_PKCS_PSS,
                                                    CKM_SHA512_RSA_PKCS_PSS,
                                                    CKM_ECDSA,
                                                    CKM_ECDSA_SHA224,
                                                    CKM_ECDSA_SHA256,
                                                    CKM_ECDSA_SHA384};
    std::vector<CK_MECHANISM_TYPE> verifying = signing;
    verifying.insert(verifying.end(), {CKM_SHA1_RSA_PKCS, CKM_SHA1_RSA_PKCS_PSS, CKM_ECDSA_SHA1});
    const std::vector<CK_MECHANISM_TYPE> digesting = {CKM_SHA_1, CKM_SHA224, CKM_SHA256, CKM_SHA384,
                                                      CKM_SHA512};
    const std::vector<CK_MECHANISM_TYPE> ciphers = {CKM_RSA_PKCS, CKM_RSA_PKCS_OAEP};
    const auto takes = [](const std::vector<CK_MECHANISM_TYPE>& accepted, CK_MECHANISM_TYPE type) {
        return std::find(accepted.begin(), accepted.end(), type) != accepted.end()
                   ? kOk
                   : CKR_MECHANISM_INVALID;
    };
    const Arg ecdhParameters65 = ecdhParameters(CKD_NULL, ecPoint(), 65);
    std::vector<Row> rows;
    for (CK_MECHANISM_TYPE type : every) {
        const Arg plain = mechanism(type);
        rows.push_back({"C_DigestInit", kSession, {session(), plain}, takes(digesting, type)});
        rows.push_back(
            {"C_SignInit", kUser, {session(), plain, num(kRsaPrivate)}, takes(signing, type)});
        rows.push_back({"C_VerifyInit",
                        kSession,
                        {session(), plain, num(kRsaPublic)},
                        takes(verifying, type)});
        rows.push_back(
            {"C_EncryptInit", kSession, {session(), plain, num(kRsaPublic)}, takes(ciphers, type)});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), plain, num(kRsaPrivate)}, takes(ciphers, type)});
        rows.push_back(
            {"C_DeriveKey",
             kUser,
             {session(), mechanism(type, ecdhParameters65, sizeof(CK_ECDH1_DERIVE_PARAMS)),
              num(kEcPrivate), null(), num(0), ulongOut(0)},
             takes({CKM_ECDH1_DERIVE}, type)});
        rows.push_back({"C_GenerateKeyPair",
                        kUser,
                        {session(), plain, attributes({numberAttribute(CKA_MODULUS_BITS, 2048)}),
                         num(1), attributes({attribute(CKA_SIGN, input({CK_TRUE}), 1)}), num(1),
                         ulongOut(0), ulongOut(0)},
                        kOk});
    }
    return rows;
}

// Parameters of every length up to a little more than the largest structure a mechanism of the
// module could take, in memory of exactly that length: what takes no parameters refuses them
// unread, what ignores them (digests, PSS, OAEP, verification) accepts them unread, and ECDH
// reads its structure only when the length holds it.
std::vector<Row> parameterLengthRows() {
    const std::size_t ecdhSize = sizeof(CK_ECDH1_DERIVE_PARAMS);
    const Arg ecdhParameters65 = ecdhParameters(CKD_NULL, ecPoint(), 65);
    const CK_RV kParam = CKR_MECHANISM_PARAM_INVALID;
    std::vector<Row> rows;
    for (std::size_t size = 0; size <= ecdhSize + sizeof(CK_ULONG); ++size) {
        const Arg bytes = input(size);
        const CK_ULONG length = size;
        const auto with = [&](CK_MECHANISM_TYPE type) { return mechanism(type, bytes, length); };
        rows.push_back({"C_DigestInit", kSession, {session(), with(CKM_SHA256)}, kOk});
        rows.push_back(
            {"C_SignInit", kUser, {session(), with(CKM_RSA_PKCS), num(kRsaPrivate)}, kParam});
        rows.push_back({"C_SignInit",
                        kUser,
                        {session(), with(CKM_SHA256_RSA_PKCS_PSS), num(kRsaPrivate)},
                        kOk});
        rows.push_back(
            {"C_VerifyInit", kSession, {session(), with(CKM_RSA_PKCS), num(kRsaPublic)}, kOk});
        rows.push_back(
            {"C_EncryptInit", kSession, {session(), with(CKM_RSA_PKCS), num(kRsaPublic)}, kParam});
        rows.push_back({"C_EncryptInit",
                        kSession,
                        {session(), with(CKM_RSA_PKCS_OAEP), num(kRsaPublic)},
                        kOk});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), with(CKM_RSA_PKCS), num(kRsaPrivate)}, kParam});
        rows.push_back(
            {"C_DecryptInit", kUser, {session(), with(CKM_RSA_PKCS_OAEP), num(kRsaPrivate)}, kOk});
        rows.push_back({"C_GenerateKeyPair",
                        kUser,
                        {session(), with(CKM_RSA_PKCS_KEY_PAIR_GEN),
                         attributes({numberAttribute(CKA_MODULUS_BITS, 2048)}), num(1),
                         attributes({attribute(CKA_SIGN, input({CK_TRUE}), 1)}), num(1),
                         ulongOut(0), ulongOut(0)},
                        kParam});
        const bool holdsStructure = size >= ecdhSize;
        rows.push_back(
            {"C_DeriveKey",
             kUser,
             {session(),
              mechanism(CKM_ECDH1_DERIVE,
                        holdsStructure ? extendedTo(ecdhParameters65, size) : bytes, length),
              num(kEcPrivate), null(), num(0), ulongOut(0)},
             holdsStructure ? kOk : kParam});
    }
    return rows;
}

}  // namespace

std::vector<Row> mechanismRows() {
    std::vector<Row> rows = mechanismCrossRows();
    const std::vector<Row> lengths = parameterLengthRows();
    rows.insert(rows.end(), lengths.begin(), lengths.end());
    return rows;
}

}  // namespace matrix
