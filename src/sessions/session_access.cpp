#include "sessions/session_access.h"

#include "core/mutex.h"

std::shared_ptr<SessionRecord> findSession(ModuleState& state, CK_SESSION_HANDLE hSession) {
    const auto handle = handleValue(hSession);
    if (!handle) {
        return nullptr;
    }
    MutexLock tables(state.tableMutex);
    return state.sessionTable.find(*handle);
}

CK_RV rejectInvalidSession(const ExportCall& call, CK_SESSION_HANDLE hSession) {
    return call.reject(CKR_SESSION_HANDLE_INVALID, "invalid hSession=" + decimalText(hSession));
}
