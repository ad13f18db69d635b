// C_OpenSession, C_CloseSession and C_CloseAllSessions. None of them calls the device.
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

#include "core/mutex.h"
#include "sessions/session_access.h"
#include "sessions/session_functions.h"
#include "slots/slot_lookup.h"

namespace {

// A session opened while a user is logged in starts in the matching user state.
CK_STATE withLogin(CK_STATE state) {
    return state == CKS_RW_PUBLIC_SESSION ? CKS_RW_USER_FUNCTIONS : CKS_RO_USER_FUNCTIONS;
}

}  // namespace

CK_RV openSession(ExportCall& call, CK_SLOT_ID slotID, CK_FLAGS flags,
                  CK_SESSION_HANDLE_PTR phSession) {
    ModuleState& state = call.state();
    // The entry is copied under the table lock: its TokenInfo is the slot's as of this call.
    const std::optional<SlotTable::Entry> slot = findSlot(state, slotID);
    if (!slot) {
        return rejectInvalidSlot(call, slotID);
    }
    if ((flags & CKF_SERIAL_SESSION) == 0) {
        return call.reject(CKR_SESSION_PARALLEL_NOT_SUPPORTED,
                           "CKF_SERIAL_SESSION not set, flags=" + decimalText(flags));
    }
    if (CK_RV rv = call.requireNonNull(phSession, "phSession"); rv != CKR_OK) {
        return rv;
    }
    const CK_STATE requested = flags & CKF_RW_SESSION;
    // findSlot accepted the ID, so it fits in 32 bits.
    auto record =
        std::make_shared<SessionRecord>(static_cast<std::uint32_t>(slotID), slot->token, requested);
    std::uint32_t handle = 0;
    {
        // One lock hold for the login test and the insertion: a login that runs meanwhile
        // either finds this session in its walk or has already stored the PIN seen here.
        MutexLock tables(state.tableMutex);
        if (!state.userPassword.empty()) {
            record->state.store(withLogin(requested));
        }
        handle = state.sessionTable.insert(std::move(record));
    }
    // Two blanks before the colon: the line's text is fixed (compatibility register, entry 6).
    logInfo("Opensession  : " + decimalText(handle));
    *phSession = handle;
    return CKR_OK;
}

CK_RV closeSession(ExportCall& call, CK_SESSION_HANDLE hSession) {
    // Waits for a call still running on the session; its operation state dies with the record.
    return withSession(call, hSession, [&](const SessionAccess& session) {
        ModuleState& state = call.state();
        {
            MutexLock tables(state.tableMutex);
            state.sessionTable.erase(session.handle(), session.record());
        }
        session.markClosed();
        // userPassword stays: a session opened later still starts logged in (compatibility
        // register, entry 16).
        return CKR_OK;
    });
}

CK_RV closeAllSessions(ExportCall& call, CK_SLOT_ID slotID) {
    ModuleState& state = call.state();
    if (!findSlot(state, slotID)) {
        return rejectInvalidSlot(call, slotID);
    }
    SessionTable::Records closing;
    {
        // Deliberately the sessions of every slot, not only those of slotID, and no logout
        // (compatibility register, entry 16).
        MutexLock tables(state.tableMutex);
        closing = state.sessionTable.takeAll();
    }
    // Each close waits for the call in progress on its session, as C_CloseSession does.
    for (const auto& entry : closing) {
        MutexLock sessionLock(entry.second->callMutex);
        entry.second->closed = true;
    }
    logInfo("Close all session");
    return CKR_OK;
}
