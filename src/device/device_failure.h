// How the module reports a failed device library call: one error line, the call's fixed text
// followed by the device's result code in decimal, and the Cryptoki code that the result means
// for that call (see device_results.h for the codes).
#pragma once

#include <string>

#include "cryptoki/cryptoki.h"

enum class FullTokenAnswer {
    FunctionFailed,  // most calls: any failure is CKR_FUNCTION_FAILED
    DeviceMemory,    // generation and import: a full token is CKR_DEVICE_MEMORY
};

// Logs "<text><result>" at error level and answers CKR_DEVICE_MEMORY for a full token when the
// call reports it so, CKR_FUNCTION_FAILED otherwise.
CK_RV reportDeviceFailure(const std::string& text, int result,
                          FullTokenAnswer fullToken = FullTokenAnswer::FunctionFailed);
