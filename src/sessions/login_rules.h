// What the module accepts as a PIN before the device sees it, and the session states that
// login, logout and PIN change look at.
#pragma once

#include <cstddef>

#include "core/export_call.h"
#include "sessions/secret_string.h"

// Bounds in bytes, inclusive; C_GetTokenInfo reports the same numbers.
constexpr CK_ULONG kMinPinLength = 4;
constexpr CK_ULONG kMaxPinLength = 63;

// CKR_ARGUMENTS_BAD with "<pointerName> is NULL" for a null PIN, CKR_PIN_LEN_RANGE with
// "<lengthText><length>" for a length out of bounds, nulByteAnswer with "<pointerName> holds a
// NUL byte" for a PIN the device could not take whole, CKR_OK otherwise.
CK_RV checkPinArgument(const ExportCall& call, CK_UTF8CHAR_PTR pin, CK_ULONG length,
                       const char* pointerName, const char* lengthText, CK_RV nulByteAnswer);

inline SecretString pinText(CK_UTF8CHAR_PTR pin, CK_ULONG length) {
    return SecretString(reinterpret_cast<const char*>(pin), static_cast<std::size_t>(length));
}

inline bool isUserState(CK_STATE state) {
    return state == CKS_RO_USER_FUNCTIONS || state == CKS_RW_USER_FUNCTIONS;
}
inline bool isPublicState(CK_STATE state) {
    return state == CKS_RO_PUBLIC_SESSION || state == CKS_RW_PUBLIC_SESSION;
}
inline bool isReadOnlyState(CK_STATE state) {
    return state == CKS_RO_PUBLIC_SESSION || state == CKS_RO_USER_FUNCTIONS;
}
