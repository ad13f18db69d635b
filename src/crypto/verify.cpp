// Verification with the public half of a token key pair. The module hashes the data through the
// device where the mechanism names a hash, hands the device the public key (as a
// SubjectPublicKeyInfo when an RSA pair stores its bare modulus) and lets it decide. No FIPS
// 140-3 rule and no RSA-1024 rule applies here.
#include <cstddef>
#include <string>

#include "crypto/crypto_operations.h"
#include "crypto/mechanism_table.h"
#include "crypto/operation_rules.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"

namespace {

// Failure texts of C_Verify's own hash, by HashStep.
constexpr const char* kHashFailureTexts[] = {
    "C_Verify: initHash failed ret=", "C_Verify: updateHash failed ret=",
    "C_Verify: finalHash failed ret="};

// The multi-part path collects the input of these two unhashed; every other mechanism is
// hashed, raw CKM_RSA_PKCS_PSS included (compatibility register, entry 30).
bool collectsRawInput(CK_MECHANISM_TYPE type) {
    return type == CKM_RSA_PKCS || type == CKM_ECDSA;
}

int multiPartHashCode(const SignatureMechanism& mechanism) {
    if (collectsRawInput(mechanism.type)) {
        return kRawInput;
    }
    // Raw PSS input is hashed with SHA-256: compatibility register, entry 30.
    return mechanism.isRaw() ? kHashSha256 : mechanism.hashCode;
}

bool isEcKeyType(std::int32_t keyType) {
    return keyType >= kKeyTypeEcP256 && keyType <= kKeyTypeEcP521;
}

// The public key for C_Verify: an EC point, an empty value and a value that already is DER go
// as stored; anything else is taken for an RSA modulus and wrapped.
ByteVector singlePartPublicKey(const OstrelKeyPair& keyPair) {
    const std::size_t length = publicValueLength(keyPair);
    if (isEcKeyType(keyPair.keyType) || length == 0 || keyPair.publicValue[0] == 0x30) {
        logInfo("Public key passed as-is");
        return ByteVector(keyPair.publicValue, keyPair.publicValue + length);
    }
    logInfo("Public key is not der need to convert to the der");
    return rsaSubjectPublicKeyInfo(keyPair);
}

int verifyOnDevice(const ExportCall& call, const SessionAccess& session, const unsigned char* data,
                   std::size_t dataLength, const unsigned char* publicKey,
                   std::size_t publicKeyLength, const unsigned char* signature,
                   std::size_t signatureLength, bool isPss) {
    const OstrelKeyPair& keyPair = session.operation().keyPair.value();
    return ostrel_verifySignatureHash(static_cast<unsigned int>(keyPair.keyType),
                                      session.deviceId(), data, deviceLength(dataLength), publicKey,
                                      deviceLength(publicKeyLength), signature,
                                      deviceLength(signatureLength), call.instance(), isPss);
}

}  // namespace

CK_RV verifyInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                 CK_OBJECT_HANDLE hKey) {
    // No session-state check: a read-only public session verifies (compatibility register,
    // entry 28).
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        // A running digest is replaced, its hash context and collected data left in place:
        // compatibility register, entries 30 and 37.
        const InitAdmission admission = admitInit(call, operation, OperationInit::Verify);
        if (admission.rv != CKR_OK) {
            return admission.rv;
        }
        if (CK_RV rv = call.requireNonNull(pMechanism, "pMechanism"); rv != CKR_OK) {
            return rv;
        }
        const CK_MECHANISM_TYPE type = pMechanism->mechanism;
        const SignatureMechanism* mechanism = findSignatureMechanism(type);
        if (mechanism == nullptr) {
            return call.reject(CKR_MECHANISM_INVALID, "unsupported mechanism=" + decimalText(type));
        }
        if (hKey < kPrivateKeyHandleBase) {
            return call.reject(CKR_KEY_HANDLE_INVALID, "invalid hKey=" + decimalText(hKey));
        }
        // Either half of a pair selects it.
        const std::optional<std::uint32_t> handle = handleValue(hKey);
        std::optional<std::uint32_t> id;
        if (handle) {
            id = *handle -
                 (*handle >= kPublicKeyHandleBase ? kPublicKeyHandleBase : kPrivateKeyHandleBase);
        }
        // Written before the lookup's result is known.
        operation.keyPair =
            findKeyPairOrLog(call, session, id, hKey, "Invalid input handle in verify : ");
        if (!operation.keyPair) {
            return CKR_KEY_HANDLE_INVALID;
        }
        if (mechanism->isPss && !firmwareAllowsGatedMechanisms(session)) {
            return call.reject(
                CKR_MECHANISM_INVALID,
                "CKM_RSA_PKCS_PSS not supported on firmware " + session.token().firmwareVersion);
        }
        operation.mechanism = type;
        operation.isPss = mechanism->isPss;
        operation.activeOperation = admission.nextCode;
        return CKR_OK;
    });
}

CK_RV verify(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationVerify); rv != CKR_OK) {
            return rv;
        }
        if (pData == nullptr || pSignature == nullptr) {
            return call.reject(CKR_ARGUMENTS_BAD, "pData or pSignature is NULL");
        }
        if (ulDataLen == 0 || ulSignatureLen == 0) {
            return call.reject(
                CKR_ARGUMENTS_BAD,
                "ulDataLen or ulSignatureLen <= 0, ulDataLen=" + decimalText(ulDataLen) +
                    " ulSignatureLen=" + decimalText(ulSignatureLen));
        }
        if (CK_RV rv = requireDeviceLength(call, ulSignatureLen, CKR_SIGNATURE_LEN_RANGE,
                                           "ulSignatureLen");
            rv != CKR_OK) {
            return rv;
        }
        const SignatureMechanism* mechanism = findSignatureMechanism(operation.mechanism);
        if (mechanism == nullptr) {
            endOperation(operation);
            return CKR_MECHANISM_INVALID;
        }
        const unsigned char* checked = pData;
        std::size_t checkedLength = ulDataLen;
        SecretBytes digest;
        if (mechanism->isRaw()) {
            if (CK_RV rv = requireDeviceLength(call, ulDataLen, CKR_DATA_LEN_RANGE, "ulDataLen");
                rv != CKR_OK) {
                return rv;
            }
        } else {
            OnePassHash hash = hashInOnePass(session.deviceId(), mechanism->hashCode, pData,
                                             ulDataLen, call.instance());
            if (hash.result != 0) {
                endOperation(operation);
                return reportDeviceFailure(kHashFailureTexts[static_cast<int>(hash.failedStep)],
                                           hash.result);
            }
            digest = std::move(hash.digest);
            checked = digest.data();
            checkedLength = digest.size();
        }
        const ByteVector publicKey = singlePartPublicKey(operation.keyPair.value());
        const int result =
            verifyOnDevice(call, session, checked, checkedLength, publicKey.data(),
                           publicKey.size(), pSignature, ulSignatureLen, operation.isPss);
        endOperation(operation);
        if (result != 0) {
            return rejectWithLine(CKR_SIGNATURE_INVALID,
                                  "Verify signature failed : " + decimalText(result));
        }
        return CKR_OK;
    });
}

CK_RV verifyUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                   CK_ULONG ulPartLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationVerify); rv != CKR_OK) {
            return rv;
        }
        if (pPart == nullptr || ulPartLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "pPart is NULL or ulPartLen<=0, ulPartLen=" +
                                                      decimalText(ulPartLen));
        }
        return takeUpdateInput(
            call, session, multiPartHashCode(activeSignatureMechanism(operation)), pPart, ulPartLen,
            "C_VerifyUpdate: initHash failed ", "C_VerifyUpdate: updateHash failed ");
    });
}

CK_RV verifyFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                  CK_ULONG ulSignatureLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationVerify); rv != CKR_OK) {
            return rv;
        }
        if (pSignature == nullptr || ulSignatureLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD,
                               "pSignature is NULL or ulSignatureLen<=0, ulSignatureLen=" +
                                   decimalText(ulSignatureLen));
        }
        if (CK_RV rv = requireDeviceLength(call, ulSignatureLen, CKR_SIGNATURE_LEN_RANGE,
                                           "ulSignatureLen");
            rv != CKR_OK) {
            return rv;
        }
        SecretBytes digest;
        const SecretBytes* checked = &operation.bufferedData;
        if (!collectsRawInput(activeSignatureMechanism(operation).type)) {
            if (CK_RV rv =
                    finishRunningHash(call, operation, "C_VerifyFinal: finalHash failed ", digest);
                rv != CKR_OK) {
                return rv;
            }
            checked = &digest;
        } else if (CK_RV rv = requireDeviceLength(call, checked->size(), CKR_DATA_LEN_RANGE,
                                                  "collected input");
                   rv != CKR_OK) {
            // Input that no device call can carry can never be verified.
            endOperation(operation);
            wipeAndClear(operation.bufferedData);
            return rv;
        }
        // The stored public key unconverted and the PSS flag false: compatibility register,
        // entry 30. The collected raw input stays in the session: entry 37.
        const OstrelKeyPair& keyPair = operation.keyPair.value();
        const int result =
            verifyOnDevice(call, session, checked->data(), checked->size(), keyPair.publicValue,
                           publicValueLength(keyPair), pSignature, ulSignatureLen, false);
        endOperation(operation);
        if (result != 0) {
            return rejectWithLine(CKR_SIGNATURE_INVALID,
                                  "C_VerifyFinal: verify failed " + decimalText(result));
        }
        return CKR_OK;
    });
}
