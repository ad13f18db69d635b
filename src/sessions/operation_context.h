// The cryptographic operation in progress on one session. Every field is zero, null or empty
// when the session opens; the Init, single-part, Update and Final functions open, keep and end
// an operation through it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "core/secret_bytes.h"
#include "cryptoki/cryptoki.h"
#include "device/ostrel_device.h"

// Codes of OperationContext::activeOperation. 6 and 8 are never used. 9 and 10 mark an
// encryption or decryption begun over a running digest; no function accepts them, so only a
// new Init or closing the session ends one (compatibility register, entry 27).
constexpr std::uint32_t kOperationNone = 0;
constexpr std::uint32_t kOperationFindObjects = 1;
constexpr std::uint32_t kOperationEncrypt = 2;
constexpr std::uint32_t kOperationDecrypt = 3;
constexpr std::uint32_t kOperationDigest = 4;
constexpr std::uint32_t kOperationSign = 5;
constexpr std::uint32_t kOperationVerify = 7;
constexpr std::uint32_t kOperationEncryptOverDigest = 9;
constexpr std::uint32_t kOperationDecryptOverDigest = 10;

struct OperationContext {
    std::uint32_t activeOperation = kOperationNone;
    // The key chosen by C_SignInit, C_VerifyInit, C_EncryptInit or C_DecryptInit. A copy: the
    // device library's lists change under a pointer at its next call.
    std::optional<OstrelKeyPair> keyPair;
    // A result computed by a single-part call whose caller asked only for its length.
    SecretBytes pendingOutput;
    // Input collected by Update calls of a mechanism whose input the module does not hash.
    SecretBytes bufferedData;
    // The device library's running hash. Closing the session does not end it on the device:
    // the library releases contexts never finalised with the instance.
    HashContext hashContext = nullptr;
    CK_MECHANISM_TYPE mechanism = 0;        // of C_SignInit / C_VerifyInit
    bool isPss = false;                     // mechanism is one of the RSA-PSS family
    CK_MECHANISM_TYPE cipherMechanism = 0;  // of C_EncryptInit / C_DecryptInit
};
