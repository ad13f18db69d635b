#include "crypto/mechanism_table.h"

#include <algorithm>
#include <iterator>

namespace {

constexpr SignatureMechanism kSignatureMechanisms[] = {
    {CKM_RSA_PKCS, kRawInput, false},
    {CKM_RSA_PKCS_PSS, kRawInput, true},
    {CKM_SHA1_RSA_PKCS, kHashSha1, false},
    {CKM_SHA1_RSA_PKCS_PSS, kHashSha1, true},
    {CKM_SHA256_RSA_PKCS, kHashSha256, false},
    {CKM_SHA384_RSA_PKCS, kHashSha384, false},
    {CKM_SHA512_RSA_PKCS, kHashSha512, false},
    {CKM_SHA256_RSA_PKCS_PSS, kHashSha256, true},
    {CKM_SHA384_RSA_PKCS_PSS, kHashSha384, true},
    {CKM_SHA512_RSA_PKCS_PSS, kHashSha512, true},
    {CKM_SHA224_RSA_PKCS, kHashSha224, false},
    {CKM_SHA224_RSA_PKCS_PSS, kHashSha224, true},
    {CKM_ECDSA, kRawInput, false},
    {CKM_ECDSA_SHA1, kHashSha1, false},
    {CKM_ECDSA_SHA224, kHashSha224, false},
    {CKM_ECDSA_SHA256, kHashSha256, false},
    {CKM_ECDSA_SHA384, kHashSha384, false},
};

constexpr DigestMechanism kDigestMechanisms[] = {
    {CKM_SHA_1, kHashSha1},    {CKM_SHA224, kHashSha224}, {CKM_SHA256, kHashSha256},
    {CKM_SHA384, kHashSha384}, {CKM_SHA512, kHashSha512},
};

template <typename Entry, std::size_t Count>
const Entry* findIn(const Entry (&table)[Count], CK_MECHANISM_TYPE type) {
    const Entry* found = std::find_if(std::begin(table), std::end(table),
                                      [type](const Entry& entry) { return entry.type == type; });
    return found == std::end(table) ? nullptr : found;
}

}  // namespace

const SignatureMechanism* findSignatureMechanism(CK_MECHANISM_TYPE type) {
    return findIn(kSignatureMechanisms, type);
}

const DigestMechanism* findDigestMechanism(CK_MECHANISM_TYPE type) {
    return findIn(kDigestMechanisms, type);
}
