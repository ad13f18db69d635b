// Single-part RSA encryption with the public half of a token key pair (done by the device
// library from the public key the module hands it) and decryption on the token with the private
// half, for CKM_RSA_PKCS and CKM_RSA_PKCS_OAEP. OAEP parameters are not read: hash, MGF and
// label are the device's (compatibility register, entry 31).
#include <algorithm>
#include <cstddef>
#include <string>

#include "crypto/crypto_operations.h"
#include "crypto/operation_rules.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"
#include "objects/key_types.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"

namespace {

// The room the device encrypts into.
constexpr int kCiphertextArea = 1024;

// The device's PaddingMode for each cipher mechanism.
struct PaddingRule {
    CK_MECHANISM_TYPE mechanism;
    PaddingMode padding;
};

constexpr PaddingRule kPaddings[] = {
    {CKM_RSA_PKCS, kPaddingPkcs1},
    {CKM_RSA_PKCS_OAEP, kPaddingOaep},
};

// The mechanisms C_EncryptInit and C_DecryptInit accept, with the padding each asks of the
// device; nothing for any other mechanism.
const PaddingRule* paddingRuleOf(CK_MECHANISM_TYPE mechanism) {
    const auto found =
        std::find_if(std::begin(kPaddings), std::end(kPaddings),
                     [mechanism](const PaddingRule& rule) { return rule.mechanism == mechanism; });
    return found == std::end(kPaddings) ? nullptr : found;
}

// PaddingMode 4 for OAEP, 1 for anything else.
PaddingMode paddingOf(CK_MECHANISM_TYPE mechanism) {
    const PaddingRule* rule = paddingRuleOf(mechanism);
    return rule == nullptr ? kPaddingPkcs1 : rule->padding;
}

bool hasParameters(const CK_MECHANISM& mechanism) {
    return mechanism.pParameter != nullptr || mechanism.ulParameterLen != 0;
}

// id = handle - base for a handle that fits 32 bits; a wider one names no pair.
std::optional<std::uint32_t> idBelow(CK_OBJECT_HANDLE hKey, std::uint32_t base) {
    const std::optional<std::uint32_t> handle = handleValue(hKey);
    if (!handle) {
        return std::nullopt;
    }
    return *handle - base;
}

// What C_EncryptInit and C_DecryptInit decide about the key: the pair, or the refusal.
struct ChosenKey {
    CK_RV rv = CKR_OK;
    std::optional<OstrelKeyPair> keyPair;
};

ChosenKey refused(CK_RV rv) {
    return {rv, std::nullopt};
}

// The lookup's answer: the pair, or CKR_KEY_HANDLE_INVALID after its line was logged.
ChosenKey looked(std::optional<OstrelKeyPair> keyPair) {
    const CK_RV rv = keyPair ? CKR_OK : CKR_KEY_HANDLE_INVALID;
    return {rv, std::move(keyPair)};
}

ChosenKey encryptionKey(const ExportCall& call, const SessionAccess& session,
                        const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE hKey) {
    const std::string handleText = decimalText(hKey);
    if (mechanism.mechanism == CKM_RSA_PKCS_OAEP) {
        const std::string& firmware = session.token().firmwareVersion;
        if (!firmwareAllowsGatedMechanisms(session)) {
            return refused(call.reject(CKR_MECHANISM_INVALID,
                                       "CKM_RSA_PKCS_OAEP not supported on firmware " + firmware));
        }
        // Only a public-key handle serves for OAEP.
        if (hKey < kPublicKeyHandleBase) {
            return refused(call.reject(CKR_KEY_HANDLE_INVALID,
                                       "invalid hKey=" + handleText + " for CKM_RSA_PKCS_OAEP"));
        }
        return looked(findKeyPairOrLog(call, session, idBelow(hKey, kPublicKeyHandleBase), hKey,
                                       "C_EncryptInit: invalid input handle for OAEP encrypt : "));
    }
    if (hasParameters(mechanism)) {
        return refused(call.reject(
            CKR_MECHANISM_PARAM_INVALID,
            "mechanism param invalid for mechanism=" + decimalText(mechanism.mechanism)));
    }
    std::optional<std::uint32_t> id;
    if (hKey >= kPublicKeyHandleBase) {
        id = idBelow(hKey, kPublicKeyHandleBase);
    } else if (hKey < kPrivateKeyHandleBase) {
        return refused(call.reject(CKR_KEY_HANDLE_INVALID, "invalid hKey=" + handleText));
    } else {
        // A private key's handle: its low 16 bits name the pair, whose public half encrypts
        // (compatibility register, entry 31).
        id = static_cast<std::uint32_t>(hKey & 0xFFFF);
    }
    return looked(findKeyPairOrLog(call, session, id, hKey, "Invalid input handle in encrypt : "));
}

ChosenKey decryptionKey(const ExportCall& call, const SessionAccess& session,
                        const CK_MECHANISM& mechanism, CK_OBJECT_HANDLE hKey) {
    const bool oaep = mechanism.mechanism == CKM_RSA_PKCS_OAEP;
    if (oaep && !firmwareAllowsGatedMechanisms(session)) {
        // No function name in front, unlike its twin in C_EncryptInit: compatibility register,
        // entry 40.
        return refused(rejectWithLine(
            CKR_MECHANISM_INVALID,
            "CKM_RSA_PKCS_OAEP not supported on firmware " + session.token().firmwareVersion));
    }
    if (!oaep && hasParameters(mechanism)) {
        return refused(
            call.reject(CKR_MECHANISM_PARAM_INVALID, "mechanism param invalid for CKM_RSA_PKCS"));
    }
    if (hKey < kPrivateKeyHandleBase) {
        return refused(call.reject(CKR_KEY_HANDLE_INVALID,
                                   "invalid hKey=" + decimalText(hKey) +
                                       (oaep ? " for CKM_RSA_PKCS_OAEP" : " for CKM_RSA_PKCS")));
    }
    // Every handle counts as a private key's, so a public key's names no pair: compatibility
    // register, entry 31.
    return looked(findKeyPairOrLog(
        call, session, idBelow(hKey, kPrivateKeyHandleBase), hKey,
        oaep ? "Invalid input handle in decrypt OAEP : " : "Invalid input handle in decrypt : "));
}

// The common part of both Inits after the session checks: the operation admitted, the
// mechanism, the key; then the context is set.
template <typename ChooseKey>
CK_RV initCipher(const ExportCall& call, const SessionAccess& session, OperationInit init,
                 CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey, ChooseKey&& chooseKey) {
    OperationContext& operation = session.operation();
    // Over a running digest the codes become 9 and 10, which nothing continues: compatibility
    // register, entry 27.
    const InitAdmission admission = admitInit(call, operation, init);
    if (admission.rv != CKR_OK) {
        return admission.rv;
    }
    if (CK_RV rv = call.requireNonNull(pMechanism, "pMechanism"); rv != CKR_OK) {
        return rv;
    }
    if (paddingRuleOf(pMechanism->mechanism) == nullptr) {
        return call.reject(CKR_MECHANISM_INVALID,
                           "unsupported mechanism=" + decimalText(pMechanism->mechanism));
    }
    ChosenKey chosen = chooseKey(call, session, *pMechanism, hKey);
    if (chosen.rv != CKR_OK) {
        return chosen.rv;
    }
    operation.keyPair = std::move(chosen.keyPair);
    operation.cipherMechanism = pMechanism->mechanism;
    operation.activeOperation = admission.nextCode;
    wipeAndClear(operation.pendingOutput);
    return CKR_OK;
}

CK_RV encryptOnDevice(const ExportCall& call, OperationContext& operation,
                      const unsigned char* data, std::size_t length) {
    const OstrelKeyPair& keyPair = operation.keyPair.value();
    const ByteVector publicKey = rsaSubjectPublicKeyInfo(keyPair);
    unsigned char area[kCiphertextArea] = {};
    int ciphertextLength = 0;
    const int result = ostrel_encrypt(
        keyTypeTraits(keyPair.keyType).encryptionType, paddingOf(operation.cipherMechanism), data,
        deviceLength(length), area, &ciphertextLength, publicKey.data(),
        deviceLength(publicKey.size()), call.instance());
    if (result != 0) {
        // Unlike a failed decryption, this ends the operation: compatibility register,
        // entry 41.
        endOperation(operation);
        operation.cipherMechanism = 0;
        return reportDeviceFailure("Encrypt data failed : ", result);
    }
    operation.pendingOutput.assign(area, area + std::clamp(ciphertextLength, 0, kCiphertextArea));
    return CKR_OK;
}

CK_RV decryptOnDevice(const ExportCall& call, const SessionAccess& session,
                      const unsigned char* data, std::size_t length) {
    OperationContext& operation = session.operation();
    const OstrelKeyPair& keyPair = operation.keyPair.value();
    const SecretString password = userPasswordOf(call.state());
    unsigned char* plaintext = nullptr;
    int plaintextLength = 0;
    // The mechanism is not passed: the device finds the padding itself.
    const int result = ostrel_decrypt(session.deviceId(), keyPair.keyReference, password.c_str(),
                                      data, deviceLength(length), &plaintext, &plaintextLength,
                                      keyPair.deletionFlag, call.instance());
    if (result != 0) {
        // "Dacrypt": compatibility register, entry 6. The operation goes on: entry 41.
        return reportDeviceFailure("Dacrypt data failed : ", result);
    }
    // The buffer is the library's: copied, never freed or written here.
    if (plaintext != nullptr && plaintextLength > 0) {
        operation.pendingOutput.assign(plaintext, plaintext + plaintextLength);
    }
    return CKR_OK;
}

}  // namespace

CK_RV encryptInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hKey) {
    // No session-state check: a read-only public session encrypts (compatibility register,
    // entry 28).
    return withSession(call, hSession, [&](const SessionAccess& session) {
        return initCipher(call, session, OperationInit::Encrypt, pMechanism, hKey, encryptionKey);
    });
}

CK_RV encrypt(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
              CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationEncrypt); rv != CKR_OK) {
            return rv;
        }
        if (pData == nullptr || ulDataLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "pData is NULL or ulDataLen<=0, ulDataLen=" +
                                                      decimalText(ulDataLen));
        }
        if (CK_RV rv = call.requireNonNull(pulEncryptedDataLen, "pulEncryptedDataLen");
            rv != CKR_OK) {
            return rv;
        }
        // A ciphertext kept by a length query is handed out and this call's data ignored:
        // compatibility register, entry 26.
        if (operation.pendingOutput.empty()) {
            if (CK_RV rv = requireDeviceLength(call, ulDataLen, CKR_DATA_LEN_RANGE, "ulDataLen");
                rv != CKR_OK) {
                return rv;
            }
            if (CK_RV rv = encryptOnDevice(call, operation, pData, ulDataLen); rv != CKR_OK) {
                return rv;
            }
        }
        const KeptResultAnswer answer = handOutAndEnd(call, operation, operation.pendingOutput,
                                                      pEncryptedData, pulEncryptedDataLen);
        if (answer.outcome == KeptResult::HandedOut) {
            operation.cipherMechanism = 0;
        }
        return answer.rv;
    });
}

CK_RV decryptInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hKey) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // A read-write public session passes: compatibility register, entry 28.
        if (CK_RV rv = requireSessionState(call, session, kStatesForPrivateOperations);
            rv != CKR_OK) {
            return rv;
        }
        return initCipher(call, session, OperationInit::Decrypt, pMechanism, hKey, decryptionKey);
    });
}

CK_RV decrypt(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
              CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationDecrypt); rv != CKR_OK) {
            return rv;
        }
        if (CK_RV rv = call.requireNonNull(pEncryptedData, "pEncryptedData"); rv != CKR_OK) {
            return rv;
        }
        if (ulEncryptedDataLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "ulEncryptedDataLen<=0, ulEncryptedDataLen=" +
                                                      decimalText(ulEncryptedDataLen));
        }
        if (CK_RV rv = call.requireNonNull(pulDataLen, "pulDataLen"); rv != CKR_OK) {
            return rv;
        }
        // A plaintext kept by a length query is handed out and this call's data ignored:
        // compatibility register, entry 26.
        if (operation.pendingOutput.empty()) {
            if (CK_RV rv = requireDeviceLength(call, ulEncryptedDataLen,
                                               CKR_ENCRYPTED_DATA_LEN_RANGE, "ulEncryptedDataLen");
                rv != CKR_OK) {
                return rv;
            }
            if (CK_RV rv = decryptOnDevice(call, session, pEncryptedData, ulEncryptedDataLen);
                rv != CKR_OK) {
                return rv;
            }
        }
        // cipherMechanism stays as it was: compatibility register, entry 41.
        return handOutAndEnd(call, operation, operation.pendingOutput, pData, pulDataLen).rv;
    });
}
