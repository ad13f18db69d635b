// One open session: its state, its slot, the token it was opened on, and the work in progress.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

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

    // Both guarded by callMutex.
    OperationContext operation;
    SearchState search;

    // Held for the whole of a call on this session, so that one session's operation state is
    // never touched by two threads at once while other sessions run in parallel.
    std::mutex callMutex;
    // Set, under callMutex, when the session is closed: a call that was waiting for callMutex
    // must not act on it any more.
    bool closed = false;
};
