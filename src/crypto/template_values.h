// Reading numbers out of the caller's templates. A number attribute (CKA_KEY_TYPE,
// CKA_MODULUS_BITS, CKA_VALUE_LEN) is a CK_ULONG: 4 bytes on Windows, 8 on 64-bit Linux. A value
// shorter than that is not read and counts as absent (compatibility register, entry 36); nothing
// past ulValueLen is ever read.
#pragma once

#include <cstring>
#include <optional>

#include "cryptoki/cryptoki.h"

inline std::optional<CK_ULONG> templateNumber(const CK_ATTRIBUTE& attribute) {
    if (attribute.pValue == nullptr || attribute.ulValueLen < sizeof(CK_ULONG)) {
        return std::nullopt;
    }
    CK_ULONG value = 0;
    std::memcpy(&value, attribute.pValue, sizeof value);
    return value;
}

// True for a value the walks of key-pair generation read: not null and not empty.
inline bool hasValue(const CK_ATTRIBUTE& attribute) {
    return attribute.pValue != nullptr && attribute.ulValueLen != 0;
}
