// The PIN of the logged-in user, as the operations that hand it to the device library need it:
// a copy taken under the table lock, so that no lock is held across the device call.
#pragma once

#include <mutex>

#include "core/module_state.h"
#include "core/mutex.h"
#include "sessions/secret_string.h"

inline SecretString userPasswordOf(ModuleState& state) {
    MutexLock tables(state.tableMutex);
    return state.userPassword;
}
