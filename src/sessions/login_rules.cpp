#include "sessions/login_rules.h"

#include <cstring>
#include <string>

CK_RV checkPinArgument(const ExportCall& call, CK_UTF8CHAR_PTR pin, CK_ULONG length,
                       const char* pointerName, const char* lengthText, CK_RV nulByteAnswer) {
    if (CK_RV rv = call.requireNonNull(pin, pointerName); rv != CKR_OK) {
        return rv;
    }
    if (length < kMinPinLength || length > kMaxPinLength) {
        return call.reject(CKR_PIN_LEN_RANGE, lengthText + decimalText(length));
    }
    // The device takes PINs as NUL-terminated text: a NUL inside would cut the PIN short there,
    // so that "1234\0XY" would log in as "1234" or a PIN change would set a shorter PIN than
    // the caller believes. Refused before any device call, so no try is spent.
    if (std::memchr(pin, '\0', static_cast<std::size_t>(length)) != nullptr) {
        return call.reject(nulByteAnswer, std::string(pointerName) + " holds a NUL byte");
    }
    return CKR_OK;
}
