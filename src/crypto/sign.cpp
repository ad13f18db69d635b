// Signing with a private key that stays on the token. The module hashes the data through the
// device where the mechanism names a hash, or passes the caller's bytes on as they are (raw
// RSA PKCS #1, raw PSS, raw ECDSA); padding and encodings are the device's. Signing is the only
// operation that enforces the FIPS 140-3 rules and the refusal of RSA-1024 keys.
#include <algorithm>
#include <cstddef>
#include <string>

#include "crypto/crypto_operations.h"
#include "crypto/mechanism_table.h"
#include "crypto/operation_rules.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"
#include "objects/object_handles.h"

namespace {

// The room the device signs into, and the length it is told on entry.
constexpr int kSignatureArea = 1024;

// Signature mechanisms that hash with SHA-1, refused by C_SignInit on a FIPS 140-3 token.
constexpr CK_MECHANISM_TYPE kSha1SigningMechanisms[] = {CKM_SHA1_RSA_PKCS, CKM_SHA1_RSA_PKCS_PSS,
                                                        CKM_ECDSA_SHA1};

// Contents of the SHA-1 (1.3.14.3.2.26) and MD5 (1.2.840.113549.2.5) object identifiers, found
// by a plain byte search in CKM_RSA_PKCS input on a FIPS 140-3 token (compatibility register,
// entry 33), in this order.
constexpr unsigned char kSha1Identifier[] = {0x2B, 0x0E, 0x03, 0x02, 0x1A};
constexpr unsigned char kMd5Identifier[] = {0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x02, 0x05};

struct RefusedIdentifier {
    const unsigned char* bytes;
    std::size_t length;
    const char* line;
};

constexpr RefusedIdentifier kRefusedDigestInfos[] = {
    {kSha1Identifier, sizeof kSha1Identifier,
     "C_Sign: SHA1 DigestInfo signing not allowed on FIPS 140-3 token"},
    {kMd5Identifier, sizeof kMd5Identifier,
     "C_Sign: MD5 DigestInfo signing not allowed on FIPS 140-3 token"},
};

// Raw hashes of these lengths are taken for SHA-1 and MD5 digests by CKM_RSA_PKCS_PSS and
// CKM_ECDSA on a FIPS 140-3 token (compatibility register, entry 33).
struct RefusedHashLength {
    std::size_t length;
    const char* hashName;
};

constexpr RefusedHashLength kRefusedHashLengths[] = {{20, "SHA1"}, {16, "MD5"}};

struct RawHashMechanism {
    CK_MECHANISM_TYPE type;
    const char* name;
};

constexpr RawHashMechanism kLengthCheckedMechanisms[] = {{CKM_RSA_PKCS_PSS, "CKM_RSA_PKCS_PSS"},
                                                         {CKM_ECDSA, "CKM_ECDSA"}};

// Failure texts of C_Sign's own hash, by HashStep.
constexpr const char* kHashFailureTexts[] = {"init hash failed ", "update hash failed ",
                                             "final hash failed "};

bool isSha1SigningMechanism(CK_MECHANISM_TYPE type) {
    return std::find(std::begin(kSha1SigningMechanisms), std::end(kSha1SigningMechanisms), type) !=
           std::end(kSha1SigningMechanisms);
}

// The line that refuses raw single-part input on a FIPS 140-3 token, or an empty text.
std::string fipsRefusalOfRawInput(CK_MECHANISM_TYPE type, const unsigned char* data,
                                  std::size_t length) {
    if (type == CKM_RSA_PKCS) {
        // Only input that could be a DigestInfo is scanned.
        if (length < 11 || data[0] != 0x30) {
            return {};
        }
        for (const RefusedIdentifier& identifier : kRefusedDigestInfos) {
            const unsigned char* end = data + length;
            if (std::search(data, end, identifier.bytes, identifier.bytes + identifier.length) !=
                end) {
                return identifier.line;
            }
        }
        return {};
    }
    for (const RawHashMechanism& mechanism : kLengthCheckedMechanisms) {
        if (mechanism.type != type) {
            continue;
        }
        for (const RefusedHashLength& refused : kRefusedHashLengths) {
            if (refused.length == length) {
                return std::string("C_Sign: ") + refused.hashName + " hash signing via " +
                       mechanism.name + " not allowed on FIPS 140-3 token";
            }
        }
    }
    return {};
}

// ostrel_signHash with the operation's key pair and PSS flag. The signature, as long as the
// device reports (bounded to its area), replaces `signature` on success.
int signOnDevice(const ExportCall& call, const SessionAccess& session, const SecretString& password,
                 const unsigned char* bytes, std::size_t length, SecretBytes& signature) {
    const OperationContext& operation = session.operation();
    unsigned char area[kSignatureArea] = {};
    int signatureLength = kSignatureArea;
    const int result = ostrel_signHash(session.deviceId(), operation.keyPair.value().keyReference,
                                       password.c_str(), bytes, deviceLength(length), area,
                                       &signatureLength, false, call.instance(), operation.isPss);
    if (result == 0) {
        signature.assign(area, area + std::clamp(signatureLength, 0, kSignatureArea));
    }
    return result;
}

// C_Sign's computation: the bytes to sign (the caller's, or the module's digest of them), the
// FIPS 140-3 rules, the device's signature into pendingOutput.
CK_RV computeSignature(const ExportCall& call, const SessionAccess& session,
                       const unsigned char* data, std::size_t length) {
    OperationContext& operation = session.operation();
    const SignatureMechanism* mechanism = findSignatureMechanism(operation.mechanism);
    if (mechanism == nullptr) {
        return call.reject(CKR_MECHANISM_INVALID,
                           "unsupported mechanism=" + decimalText(operation.mechanism));
    }
    SecretBytes digest;
    if (mechanism->isRaw()) {
        // Checked before the input is read at all.
        if (CK_RV rv = requireDeviceLength(call, length, CKR_DATA_LEN_RANGE, "ulDataLen");
            rv != CKR_OK) {
            return rv;
        }
        if (isFips1403Session(session)) {
            const std::string refusal = fipsRefusalOfRawInput(mechanism->type, data, length);
            if (!refusal.empty()) {
                endOperation(operation);
                return rejectWithLine(CKR_MECHANISM_INVALID, refusal);
            }
        }
    } else {
        OnePassHash hash =
            hashInOnePass(session.deviceId(), mechanism->hashCode, data, length, call.instance());
        if (hash.result != 0) {
            endOperation(operation);
            return reportDeviceFailure(kHashFailureTexts[static_cast<int>(hash.failedStep)],
                                       hash.result);
        }
        digest = std::move(hash.digest);
        data = digest.data();
        length = digest.size();
    }
    const SecretString password = userPasswordOf(call.state());
    logInfo("Sign: password empty=" + std::string(password.empty() ? "1" : "0") +
            " hashLen=" + decimalText(length) + " session state=" + decimalText(session.state()));
    logInfo("Sign input hash : " +
            (length == 0 ? std::string("NULL or empty") : bytesToHex(data, length)));
    SecretBytes signature;
    const int result = signOnDevice(call, session, password, data, length, signature);
    if (result != 0) {
        endOperation(operation);
        return reportDeviceFailure("Sign hash failed : ", result);
    }
    operation.pendingOutput = std::move(signature);
    return CKR_OK;
}

}  // namespace

CK_RV signInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
               CK_OBJECT_HANDLE hKey) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // Refuses a read-only public session: compatibility register, entry 28.
        if (CK_RV rv = requireSessionState(call, session, kStatesForPrivateOperations);
            rv != CKR_OK) {
            return rv;
        }
        OperationContext& operation = session.operation();
        const InitAdmission admission = admitInit(call, operation, OperationInit::Sign);
        if (admission.rv != CKR_OK) {
            return admission.rv;
        }
        if (CK_RV rv = call.requireNonNull(pMechanism, "pMechanism"); rv != CKR_OK) {
            return rv;
        }
        const CK_MECHANISM_TYPE type = pMechanism->mechanism;
        if (isFips1403Session(session) && isSha1SigningMechanism(type)) {
            return call.reject(CKR_MECHANISM_INVALID,
                               "SHA1 signing not allowed on FIPS 140-3 token");
        }
        const SignatureMechanism* mechanism = findSignatureMechanism(type);
        if (mechanism == nullptr) {
            return call.reject(CKR_MECHANISM_INVALID, "unsupported mechanism=" + decimalText(type));
        }
        if (!mechanism->isPss) {
            if (pMechanism->pParameter != nullptr || pMechanism->ulParameterLen != 0) {
                return call.reject(CKR_MECHANISM_PARAM_INVALID,
                                   "mechanism param invalid for mechanism=" + decimalText(type));
            }
        } else {
            // PSS parameters are not read: the device takes the hash from the mechanism or the
            // input (compatibility register, entry 31). "veriosn": entry 6.
            const std::string& firmware = session.token().firmwareVersion;
            logInfo("firmware veriosn :: " + firmware);
            if (!firmwareAllowsGatedMechanisms(session)) {
                return call.reject(CKR_MECHANISM_INVALID,
                                   "CKM_RSA_PKCS_PSS not supported on firmware " + firmware);
            }
        }
        // Written before the key is checked: compatibility register, entry 29.
        operation.mechanism = type;
        operation.isPss = mechanism->isPss;
        if (hKey < kPrivateKeyHandleBase) {
            return call.reject(CKR_KEY_HANDLE_INVALID, "invalid hKey=" + decimalText(hKey));
        }
        // Every handle from 0x70000000 up counts as a private key's; a public key's names an id
        // no pair has.
        const std::optional<std::uint32_t> handle = handleValue(hKey);
        std::optional<std::uint32_t> id;
        if (handle) {
            id = *handle - kPrivateKeyHandleBase;
        }
        std::optional<OstrelKeyPair> keyPair =
            findKeyPairOrLog(call, session, id, hKey, "Invalid input handle in sign : ");
        if (!keyPair) {
            return CKR_KEY_HANDLE_INVALID;
        }
        if (keyPair->keyType == kKeyTypeRsa1024) {
            operation.keyPair.reset();
            return call.reject(CKR_KEY_SIZE_RANGE,
                               "RSA-1024 signing not allowed \xE2\x80\x94 key size below 112-bit "
                               "security strength");
        }
        // Collected input and a running hash are left as they are: compatibility register,
        // entry 37.
        operation.keyPair = std::move(keyPair);
        wipeAndClear(operation.pendingOutput);
        operation.activeOperation = admission.nextCode;
        return CKR_OK;
    });
}

CK_RV sign(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
           CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationSign); rv != CKR_OK) {
            return rv;
        }
        if (CK_RV rv = call.requireNonNull(pData, "pData"); rv != CKR_OK) {
            return rv;
        }
        if (ulDataLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD,
                               "ulDataLen<=0, ulDataLen=" + decimalText(ulDataLen));
        }
        if (CK_RV rv = call.requireNonNull(pulSignatureLen, "pulSignatureLen"); rv != CKR_OK) {
            return rv;
        }
        // "echanism": compatibility register, entry 6.
        logInfo("sign echanism : " + decimalText(operation.mechanism));
        // A signature kept by a length query is handed out and this call's data ignored:
        // compatibility register, entry 26.
        if (operation.pendingOutput.empty()) {
            if (CK_RV rv = computeSignature(call, session, pData, ulDataLen); rv != CKR_OK) {
                return rv;
            }
        }
        return handOutAndEnd(call, operation, operation.pendingOutput, pSignature, pulSignatureLen)
            .rv;
    });
}

CK_RV signUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                 CK_ULONG ulPartLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationSign); rv != CKR_OK) {
            return rv;
        }
        if (pPart == nullptr || ulPartLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "pPart is NULL or ulPartLen<=0, ulPartLen=" +
                                                      decimalText(ulPartLen));
        }
        // Raw input is collected unchecked: the FIPS 140-3 rules look at single-part input
        // only (compatibility register, entry 33).
        return takeUpdateInput(call, session, activeSignatureMechanism(operation).hashCode, pPart,
                               ulPartLen, "C_SignUpdate: initHash failed ",
                               "C_SignUpdate: updateHash failed ");
    });
}

CK_RV signFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                CK_ULONG_PTR pulSignatureLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationSign); rv != CKR_OK) {
            return rv;
        }
        if (CK_RV rv = call.requireNonNull(pulSignatureLen, "pulSignatureLen"); rv != CKR_OK) {
            return rv;
        }
        if (operation.pendingOutput.empty()) {
            if (!activeSignatureMechanism(operation).isRaw()) {
                // Without an Update there is no running hash: the device reports the failure.
                SecretBytes digest;
                if (CK_RV rv = finishRunningHash(call, operation, "C_SignFinal: finalHash failed ",
                                                 digest);
                    rv != CKR_OK) {
                    return rv;
                }
                operation.bufferedData = std::move(digest);
            }
            if (CK_RV rv = requireDeviceLength(call, operation.bufferedData.size(),
                                               CKR_DATA_LEN_RANGE, "collected input");
                rv != CKR_OK) {
                // Input that no device call can carry can never be signed.
                endOperation(operation);
                wipeAndClear(operation.bufferedData);
                return rv;
            }
            SecretBytes signature;
            const int result = signOnDevice(call, session, userPasswordOf(call.state()),
                                            operation.bufferedData.data(),
                                            operation.bufferedData.size(), signature);
            wipeAndClear(operation.bufferedData);
            if (result != 0) {
                endOperation(operation);
                return reportDeviceFailure("C_SignFinal: signHash failed ", result);
            }
            operation.pendingOutput = std::move(signature);
        }
        return handOutAndEnd(call, operation, operation.pendingOutput, pSignature, pulSignatureLen)
            .rv;
    });
}
