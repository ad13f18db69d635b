// Reading the values of a caller's attribute template: never past ulValueLen, never through a
// null pointer, and without assuming the value is aligned.
#pragma once

#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/export_call.h"
#include "cryptoki/cryptoki.h"

inline bool hasValue(const CK_ATTRIBUTE& attribute) {
    return attribute.pValue != nullptr && attribute.ulValueLen != 0;
}

// A number (class, key type, bit count, value length) is a CK_ULONG: 4 bytes on Windows, 8 on
// 64-bit Linux, the width NSS, OpenSSL and pkcs11-tool pass. A shorter value is not read and
// counts as absent (compatibility register, entry 36).
inline std::optional<CK_ULONG> templateNumber(const CK_ATTRIBUTE& attribute) {
    if (attribute.pValue == nullptr || attribute.ulValueLen < sizeof(CK_ULONG)) {
        return std::nullopt;
    }
    CK_ULONG value = 0;
    std::memcpy(&value, attribute.pValue, sizeof value);
    return value;
}

inline std::vector<unsigned char> templateBytes(const CK_ATTRIBUTE& attribute) {
    if (attribute.pValue == nullptr) {
        return {};
    }
    const auto* bytes = static_cast<const unsigned char*>(attribute.pValue);
    return std::vector<unsigned char>(bytes, bytes + attribute.ulValueLen);
}

// The value's bytes as text, all ulValueLen of them.
inline std::string templateText(const CK_ATTRIBUTE& attribute) {
    if (attribute.pValue == nullptr) {
        return {};
    }
    return std::string(static_cast<const char*>(attribute.pValue), attribute.ulValueLen);
}

// The value's bytes up to its first NUL, never past ulValueLen.
inline std::string templateTextToNul(const CK_ATTRIBUTE& attribute) {
    if (attribute.pValue == nullptr) {
        return {};
    }
    const char* text = static_cast<const char*>(attribute.pValue);
    const void* nul = std::memchr(text, '\0', attribute.ulValueLen);
    const std::size_t length = nul == nullptr
                                   ? attribute.ulValueLen
                                   : static_cast<std::size_t>(static_cast<const char*>(nul) - text);
    return std::string(text, length);
}

// The first bytes of `value` equal `expected`, and their lengths are equal.
inline bool sameBytes(const std::vector<unsigned char>& value, const unsigned char* expected,
                      std::size_t expectedLength) {
    return value.size() == expectedLength &&
           (expectedLength == 0 || std::memcmp(value.data(), expected, expectedLength) == 0);
}

// The check of a template that must hold something: CKR_ARGUMENTS_BAD with "<name>: pTemplate is
// NULL" or "<name>: ulCount<=0", else CKR_OK.
inline CK_RV requireTemplate(const ExportCall& call, const CK_ATTRIBUTE* pTemplate,
                             CK_ULONG ulCount) {
    if (CK_RV rv = call.requireNonNull(pTemplate, "pTemplate"); rv != CKR_OK) {
        return rv;
    }
    return ulCount == 0 ? call.reject(CKR_ARGUMENTS_BAD, "ulCount<=0") : CKR_OK;
}
