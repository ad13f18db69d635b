// The names of the device library's 29 operations without their "ostrel_" prefix, in the order
// of ostrel_device.h: what the software token's injected faults and the test double's scripts
// name an operation by.
#pragma once

#include <array>
#include <string_view>

namespace device_operations {

constexpr std::array<std::string_view, 29> kNames = {
    "createInstance",
    "releaseInstance",
    "getConnectedDeviceList",
    "getTokenInfo",
    "initDevice",
    "validatePassword",
    "changeUserPassword",
    "getKeyPairList",
    "getCertificateList",
    "generateKeyPair",
    "deleteKeyPair",
    "deleteCertificate",
    "updateKeyPairDetails",
    "importCertificate",
    "importPfx",
    "getFilesWithExtensionsAndConvertDER",
    "getCertificateDetails",
    "getCertificateSubject",
    "getCertificateIssuer",
    "getCertificateSerialDER",
    "initHash",
    "updateHash",
    "finalHash",
    "signHash",
    "verifySignatureHash",
    "encrypt",
    "decrypt",
    "ecdhDerive",
    "generateRamdomNumber",
};

constexpr bool isName(std::string_view name) {
    for (std::string_view known : kNames) {
        if (known == name) {
            return true;
        }
    }
    return false;
}

}  // namespace device_operations
