// What each key-type code of the token's key pairs means: one table that attributes, key-pair
// generation and encryption all read (the PKCS #11 key type, the size, the generation
// mechanism, the named curve, the device's EncryptionType).
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "device/device_records.h"

struct KeyTypeTraits {
    std::int32_t code;
    CK_KEY_TYPE keyType;
    CK_ULONG bits;  // modulus bits, or the curve's size
    // Only EC pairs name their generation mechanism; RSA pairs report 0, which is also
    // CKM_RSA_PKCS_KEY_PAIR_GEN.
    CK_MECHANISM_TYPE keyGenMechanism;
    std::vector<unsigned char> ecParams;  // the named curve's OID as DER; empty for RSA
    // What ostrel_encrypt is told; pairs that are no RSA key encrypt as RSA-2048 would.
    EncryptionType encryptionType;
};

// The traits of a code; an unknown code reads as RSA-2048.
const KeyTypeTraits& keyTypeTraits(std::int32_t code);

// The EC key type whose CKA_EC_PARAMS are exactly these bytes (named curves only), or null.
const KeyTypeTraits* keyTypeOfCurve(const unsigned char* ecParams, std::size_t length);

// The RSA key type of this modulus size, or null.
const KeyTypeTraits* keyTypeOfModulusBits(CK_ULONG bits);
