#include "slots/mechanism_catalogue.h"

namespace {

constexpr CK_ULONG kRsaMin = 1024;
constexpr CK_ULONG kRsaMax = 4096;
constexpr CK_ULONG kRsaSigningMin = 2048;
constexpr CK_ULONG kEcMin = 256;
constexpr CK_ULONG kEcMax = 521;
constexpr CK_FLAGS kSignVerify = CKF_SIGN | CKF_VERIFY;
constexpr CK_FLAGS kSignsOrGenerates = CKF_SIGN | CKF_GENERATE_KEY_PAIR;

}  // namespace

// The order is deliberate and irregular (compatibility register, entry 10: SHA-224 before
// SHA-256 in each RSA family, ECDH
// between EC key generation and ECDSA); clients see it, so keep it.
const std::array<MechanismEntry, kCatalogueSize> kMechanismCatalogue = {{
    {CKM_RSA_PKCS_KEY_PAIR_GEN, kRsaMin, kRsaMax, CKF_GENERATE_KEY_PAIR, false},
    {CKM_RSA_PKCS, kRsaMin, kRsaMax, CKF_ENCRYPT | CKF_DECRYPT | kSignVerify, false},
    {CKM_RSA_PKCS_OAEP, kRsaMin, kRsaMax, CKF_ENCRYPT | CKF_DECRYPT, false},
    {CKM_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA1_RSA_PKCS, kRsaMin, kRsaMax, kSignVerify, true},
    {CKM_SHA224_RSA_PKCS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA256_RSA_PKCS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA384_RSA_PKCS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA512_RSA_PKCS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA1_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, true},
    {CKM_SHA224_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA256_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA384_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_SHA512_RSA_PKCS_PSS, kRsaMin, kRsaMax, kSignVerify, false},
    {CKM_EC_KEY_PAIR_GEN, kEcMin, kEcMax, CKF_GENERATE_KEY_PAIR, false},
    {CKM_ECDH1_DERIVE, kEcMin, kEcMax, CKF_DERIVE, false},
    {CKM_ECDSA, kEcMin, kEcMax, kSignVerify, false},
    {CKM_ECDSA_SHA1, kEcMin, kEcMax, kSignVerify, true},
    {CKM_ECDSA_SHA224, kEcMin, kEcMax, kSignVerify, false},
    {CKM_ECDSA_SHA256, kEcMin, kEcMax, kSignVerify, false},
    {CKM_ECDSA_SHA384, kEcMin, kEcMax, kSignVerify, false},
    {CKM_SHA_1, 0, 0, CKF_DIGEST, false},
    {CKM_SHA224, 0, 0, CKF_DIGEST, false},
    {CKM_SHA256, 0, 0, CKF_DIGEST, false},
    {CKM_SHA384, 0, 0, CKF_DIGEST, false},
    {CKM_SHA512, 0, 0, CKF_DIGEST, false},
}};

const MechanismEntry* findMechanism(CK_MECHANISM_TYPE type) {
    for (const MechanismEntry& entry : kMechanismCatalogue) {
        if (entry.type == type) {
            return &entry;
        }
    }
    return nullptr;
}

std::vector<CK_MECHANISM_TYPE> listedMechanisms(SlotView slot) {
    const bool trim = slot.knownSlot && slot.fips1403Token;
    std::vector<CK_MECHANISM_TYPE> types;
    for (const MechanismEntry& entry : kMechanismCatalogue) {
        if (!(trim && entry.hiddenOnFips1403)) {
            types.push_back(entry.type);
        }
    }
    return types;
}

CK_MECHANISM_INFO describeMechanism(const MechanismEntry& entry, SlotView slot) {
    CK_MECHANISM_INFO info{entry.minKeySize, entry.maxKeySize, entry.flags};
    if (!slot.knownSlot) {
        return info;  // untrimmed, with 1024-bit minimums (compatibility register, entry 10)
    }
    if (slot.fips1403Token && entry.hiddenOnFips1403) {
        info.flags = CKF_VERIFY;
    }
    // Applied to the flags now in force, so SHA-1 RSA signing on a FIPS 140-3 token keeps 1024:
    // it no longer signs. Deliberate (compatibility register, entry 10).
    if ((info.flags & kSignsOrGenerates) != 0 && info.ulMinKeySize == kRsaMin) {
        info.ulMinKeySize = kRsaSigningMin;
    }
    return info;
}
