// C_Logout: no device call; the module forgets the PIN and returns the token's sessions to
// their public states.
#include <mutex>

#include "core/mutex.h"
#include "sessions/login_rules.h"
#include "sessions/session_access.h"
#include "sessions/session_functions.h"

namespace {

CK_STATE loggedOut(CK_STATE state) {
    switch (state) {
        case CKS_RO_USER_FUNCTIONS:
            return CKS_RO_PUBLIC_SESSION;
        case CKS_RW_USER_FUNCTIONS:
        case CKS_RW_SO_FUNCTIONS:
            return CKS_RW_PUBLIC_SESSION;
        default:
            return state;
    }
}

}  // namespace

CK_RV logOut(ExportCall& call, CK_SESSION_HANDLE hSession) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        const CK_STATE current = session.state();
        if (isPublicState(current)) {
            return call.reject(CKR_USER_NOT_LOGGED_IN,
                               "user not logged in, session state=" + decimalText(current));
        }
        ModuleState& state = call.state();
        {
            MutexLock logins(state.loginMutex);
            MutexLock tables(state.tableMutex);
            state.sessionTable.forEachOnDevice(
                session.token().serialNumber,
                [](SessionRecord& each) { each.state.store(loggedOut(each.state.load())); });
            // The PIN is module-wide, so it goes although only this token's sessions moved.
            // Deliberate (compatibility register, entry 18).
            state.userPassword.clear();
        }
        logInfo("C_Logout end");
        return CKR_OK;
    });
}
