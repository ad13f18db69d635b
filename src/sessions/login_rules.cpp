#include "sessions/login_rules.h"

#include <string>

CK_RV checkPinArgument(const ExportCall& call, CK_UTF8CHAR_PTR pin, CK_ULONG length,
                       const char* pointerName, const char* lengthText) {
    if (pin == nullptr) {
        return call.reject(CKR_ARGUMENTS_BAD, std::string(pointerName) + " is NULL");
    }
    if (length < kMinPinLength || length > kMaxPinLength) {
        return call.reject(CKR_PIN_LEN_RANGE, lengthText + decimalText(length));
    }
    return CKR_OK;
}
