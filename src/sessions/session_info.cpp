// C_GetSessionInfo.
#include "sessions/login_rules.h"
#include "sessions/session_access.h"
#include "sessions/session_functions.h"

CK_RV getSessionInfo(ExportCall& call, CK_SESSION_HANDLE hSession, CK_SESSION_INFO* pInfo) {
    // The handle is checked before the output pointer.
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) {
            return rv;
        }
        const CK_STATE state = session.state();
        pInfo->slotID = session.record().slotID;
        pInfo->state = state;
        pInfo->flags =
            isReadOnlyState(state) ? CKF_SERIAL_SESSION : CKF_SERIAL_SESSION | CKF_RW_SESSION;
        pInfo->ulDeviceError = 0;
        return CKR_OK;
    });
}
