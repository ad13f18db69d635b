// C_GetSessionInfo.
#include "frame/session_access.h"
#include "sessions/login_rules.h"
#include "sessions/session_functions.h"

CK_RV getSessionInfo(ExportCall& call, CK_SESSION_HANDLE hSession, CK_SESSION_INFO* pInfo) {
    // The handle is checked before the output pointer.
    return withSession(call, hSession, [&](SessionRecord& session) {
        if (pInfo == nullptr) {
            return call.reject(CKR_ARGUMENTS_BAD, "pInfo is NULL");
        }
        const CK_STATE state = session.state.load();
        pInfo->slotID = session.slotID;
        pInfo->state = state;
        pInfo->flags =
            isReadOnlyState(state) ? CKF_SERIAL_SESSION : CKF_SERIAL_SESSION | CKF_RW_SESSION;
        pInfo->ulDeviceError = 0;
        return CKR_OK;
    });
}
