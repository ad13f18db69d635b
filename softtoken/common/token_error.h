// The software token answers the device library's result codes (device/device_results.h), the
// one table that the module, the token and the test double share. The names are brought into
// this namespace so that the token's code reads as before; README.md lists what each code means
// here.
#pragma once

#include "device/device_results.h"

namespace softtoken {

using device_result::kAlreadyExists;
using device_result::kBadArgument;
using device_result::kBadHashContext;
using device_result::kBlankDevice;
using device_result::kBufferTooSmall;
using device_result::kCryptoFailed;
using device_result::kDecryptFailed;
using device_result::kDeviceUnreachable;
using device_result::kInputSize;
using device_result::kInternal;
using device_result::kKeyCannotDoThis;
using device_result::kNoSoPin;
using device_result::kObjectNotFound;
using device_result::kOk;
using device_result::kPinIncorrect;
using device_result::kPinLength;
using device_result::kPinLocked;
using device_result::kPinRequired;
using device_result::kSignatureInvalid;
using device_result::kStorageFull;
using device_result::kStoreWriteFailed;
using device_result::kUnknownAlgorithm;
using device_result::kUnparsable;

// The table's meaning of a code, for the tool's messages; a code outside the table (an injected
// fault can carry any number) reads "unknown error".
inline const char* describeError(int code) {
    const char* meaning = device_result::meaningOf(code);
    return meaning != nullptr ? meaning : "unknown error";
}

}  // namespace softtoken
