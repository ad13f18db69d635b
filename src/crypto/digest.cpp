// Message digests computed by the token. C_DigestInit starts a device hash in the session's
// operation, C_DigestUpdate feeds it, C_Digest (which may add a last part) and C_DigestFinal
// finish it. A finished digest waits in bufferedData until it has been handed out; device
// failures leave the digest running, so only a new Init or closing the session ends it then
// (compatibility register, entry 41).
#include <string>
#include <utility>

#include "crypto/crypto_operations.h"
#include "crypto/mechanism_table.h"
#include "crypto/operation_rules.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"

namespace {

// Finishes the running hash unless an earlier length query already did, then hands the digest
// out. The line "<name> Success" follows every answer but a refused buffer.
CK_RV finishAndHandOut(const ExportCall& call, OperationContext& operation, CK_BYTE_PTR pDigest,
                       CK_ULONG_PTR pulDigestLen) {
    if (operation.bufferedData.empty()) {
        SecretBytes digest;
        // Nothing on entry: the device reports the digest's length.
        const int result = finishHash(operation.hashContext, 0, call.instance(), digest);
        if (result != 0) {
            // "diget": compatibility register, entry 6.
            return reportDeviceFailure("Final hash data in diget failed : ", result);
        }
        operation.bufferedData = std::move(digest);
    }
    const KeptResultAnswer answer =
        handOutAndEnd(call, operation, operation.bufferedData, pDigest, pulDigestLen);
    if (answer.outcome != KeptResult::Refused) {
        logInfo(std::string(call.name()) + " Success");
    }
    return answer.rv;
}

}  // namespace

CK_RV digestInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // Refuses a read-only public session: compatibility register, entry 28.
        if (CK_RV rv = requireSessionState(call, session, kStatesForPrivateOperations);
            rv != CKR_OK) {
            return rv;
        }
        OperationContext& operation = session.operation();
        const InitAdmission admission = admitInit(call, operation, OperationInit::Digest);
        if (admission.rv != CKR_OK) {
            return admission.rv;
        }
        if (pMechanism == nullptr) {
            // Worded so, without the usual colon: compatibility register, entry 6.
            return rejectWithLine(CKR_ARGUMENTS_BAD, "C_DigestInit mechanism pointer in NULL");
        }
        const DigestMechanism* mechanism = findDigestMechanism(pMechanism->mechanism);
        if (mechanism == nullptr) {
            return rejectWithLine(CKR_MECHANISM_INVALID, "C_DigestInit mechanism not supported");
        }
        // A digest already running is restarted: its context is abandoned unfinished, and the
        // library releases it with the instance.
        const int result = ostrel_initHash(session.deviceId(), mechanism->hashCode,
                                           &operation.hashContext, call.instance());
        if (result != 0) {
            // "diges": compatibility register, entry 6.
            return reportDeviceFailure("Init hash in diges init failed : ", result);
        }
        wipeAndClear(operation.bufferedData);
        operation.activeOperation = admission.nextCode;
        return CKR_OK;
    });
}

CK_RV digest(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationDigest); rv != CKR_OK) {
            return rv;
        }
        if (pData == nullptr || ulDataLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "pData is NULL or ulDataLen<=0, ulDataLen=" +
                                                      decimalText(ulDataLen));
        }
        if (CK_RV rv = call.requireNonNull(pulDigestLen, "pulDigestLen"); rv != CKR_OK) {
            return rv;
        }
        // A digest kept by a length query is handed out and this call's data ignored:
        // compatibility register, entry 26.
        if (operation.bufferedData.empty()) {
            const int result = feedHash(operation.hashContext, pData, ulDataLen, call.instance());
            if (result != 0) {
                // "diget": compatibility register, entry 6.
                return reportDeviceFailure("Update hash data in diget failed : ", result);
            }
        }
        return finishAndHandOut(call, operation, pDigest, pulDigestLen);
    });
}

CK_RV digestUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                   CK_ULONG ulPartLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationDigest); rv != CKR_OK) {
            return rv;
        }
        if (pPart == nullptr || ulPartLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "pPart is NULL or ulPartLen<=0, ulPartLen=" +
                                                      decimalText(ulPartLen));
        }
        const int result = feedHash(operation.hashContext, pPart, ulPartLen, call.instance());
        if (result != 0) {
            return reportDeviceFailure("Update hash data in digest update failed : ", result);
        }
        return CKR_OK;
    });
}

CK_RV digestFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                  CK_ULONG_PTR pulDigestLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        OperationContext& operation = session.operation();
        if (CK_RV rv = requireActiveOperation(call, operation, kOperationDigest); rv != CKR_OK) {
            return rv;
        }
        if (CK_RV rv = call.requireNonNull(pulDigestLen, "pulDigestLen"); rv != CKR_OK) {
            return rv;
        }
        return finishAndHandOut(call, operation, pDigest, pulDigestLen);
    });
}
