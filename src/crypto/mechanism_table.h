// The mechanisms that digesting, signing and verification accept, and what each means for the
// device: which hash the module computes through ostrel_initHash (none for the raw mechanisms,
// whose input the device gets as the caller gave it), and whether the device signs with PSS.
#pragma once

#include "cryptoki/cryptoki.h"
#include "device/device_records.h"

// The hash selector of a signature mechanism whose input the module does not hash.
constexpr int kRawInput = 0;

struct SignatureMechanism {
    CK_MECHANISM_TYPE type;
    int hashCode;  // a HashAlgorithmCode, or kRawInput
    bool isPss;

    bool isRaw() const { return hashCode == kRawInput; }
};

struct DigestMechanism {
    CK_MECHANISM_TYPE type;
    int hashCode;  // a HashAlgorithmCode
};

// The mechanisms of C_SignInit and C_VerifyInit (the same set), or null. CKM_ECDSA_SHA512 is
// not among them.
const SignatureMechanism* findSignatureMechanism(CK_MECHANISM_TYPE type);
// The mechanisms of C_DigestInit, or null.
const DigestMechanism* findDigestMechanism(CK_MECHANISM_TYPE type);
