// One open session: its state, its slot, the token it was opened on, and the work in progress.
#pragma once

#include <atomic>
#include <cstdint>

#include "core/mutex.h"
#include "cryptoki/cryptoki.h"
#include "device/device_records.h"
#include "sessions/operation_context.h"
#include "sessions/search_state.h"

struct SessionRecord {
    SessionRecord(std::uint32_t slot, const TokenInfo& tokenInfo, CK_STATE initialState)
        : state(initialState), slotID(slot), token(tokenInfo) {}

    // Written under the module's table lock (login, logout, device monitor); read anywhere.
    std::atomic<CK_STATE> state;
    const std::uint32_t slotID;
    // Copy of the slot's TokenInfo at opening; token.serialNumber addresses the device.
    const TokenInfo token;

    // Held for the whole of a call on this session, so that one session's operation state is
    // never touched by two threads at once while other sessions run in parallel.
    Mutex callMutex;

    OperationContext operation GUARDED_BY(callMutex);
    SearchState search GUARDED_BY(callMutex);
    // Set when the session is closed: a call that was waiting for callMutex must not act on it
    // any more.
    bool closed GUARDED_BY(callMutex) = false;
};
