// C_DestroyObject: deletes a key pair (through its private key's handle) or a certificate on
// the token. Public-key handles are refused and derived keys cannot be destroyed
// (compatibility register, entries 22 and 24).
#include <optional>
#include <string>

#include "device/ostrel_device.h"
#include "objects/object_functions.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"
#include "sessions/session_access.h"
#include "sessions/user_password.h"

namespace {

CK_RV rejectObject(const ExportCall& call, CK_OBJECT_HANDLE hObject) {
    return call.reject(CKR_OBJECT_HANDLE_INVALID, "invalid hObject=" + decimalText(hObject));
}

CK_RV destroyKeyPair(const ExportCall& call, const SessionAccess& session, std::uint32_t id,
                     CK_OBJECT_HANDLE hObject) {
    const std::optional<OstrelKeyPair> pair =
        findKeyPairById(session.deviceId(), id, call.instance());
    if (!pair) {
        logInfo("Input keypair not found in destroy : " + decimalText(hObject));
        return rejectObject(call, hObject);
    }
    // The PIN held since C_Login, empty when nobody is logged in: the device decides.
    const SecretString password = userPasswordOf(call.state());
    const int result = ostrel_deleteKeyPair(session.deviceId(), pair->keyReference,
                                            password.c_str(), pair->deletionFlag, call.instance());
    if (result != 0) {
        logError("Delete keypair in destroy object failed : " + decimalText(result));
        return CKR_FUNCTION_FAILED;
    }
    return CKR_OK;
}

CK_RV destroyCertificate(const ExportCall& call, const SessionAccess& session, std::uint32_t id,
                         CK_OBJECT_HANDLE hObject) {
    const std::optional<OstrelCertificate> certificate =
        findCertificateById(session.deviceId(), id, call.instance());
    if (!certificate) {
        logInfo("Input certificate not found in destroy : " + decimalText(hObject));
        return rejectObject(call, hObject);
    }
    const SecretString password = userPasswordOf(call.state());
    const int result = ostrel_deleteCertificate(
        session.deviceId(), certificate->certificateReference, password.c_str(), call.instance());
    if (result != 0) {
        logError("Delete certificate in destroy object failed : " + decimalText(result));
        return CKR_FUNCTION_FAILED;
    }
    return CKR_OK;
}

}  // namespace

CK_RV destroyObject(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
    // An unknown session has a line of its own, without the function's name.
    const auto invalidSession = [] {
        logError("Delete session state invalid");
        return CKR_SESSION_HANDLE_INVALID;
    };
    return withSessionOr(call, hSession, invalidSession, [&](const SessionAccess& session) {
        const CK_STATE state = session.state();
        // A public read-write session passes: the device decides with the PIN it is given.
        if (state != CKS_RW_PUBLIC_SESSION && state != CKS_RW_USER_FUNCTIONS &&
            state != CKS_RW_SO_FUNCTIONS) {
            logError("Delete session state invalid : " + decimalText(state));
            return CKR_SESSION_READ_ONLY;
        }
        // The same text for certificates.
        logInfo("Delete key pair id : " + decimalText(hObject));
        const DecodedHandle decoded = decodeObjectHandle(hObject);
        switch (decoded.kind) {
            case ObjectKind::PrivateKey:
                return destroyKeyPair(call, session, decoded.id, hObject);
            case ObjectKind::Certificate:
                return destroyCertificate(call, session, decoded.id, hObject);
            case ObjectKind::DerivedKey:
                // Looked up as a certificate, whose id lies beyond every device id.
                return destroyCertificate(call, session, decoded.handle - kCertificateHandleBase,
                                          hObject);
            default:
                return rejectObject(call, hObject);
        }
    });
}
