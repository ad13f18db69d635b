// The module's process-wide state, and the locks that make it safe to use from several
// application threads while the device monitor runs.
//
// Lock order, outermost first: lifecycleMutex (shared by every export, exclusive for
// C_Initialize and C_Finalize), then a session's callMutex, then loginMutex, then tableMutex.
// The device monitor takes only tableMutex and the monitor's own event mutex, never the
// lifecycle lock, so that C_Finalize can join it. No lock but a session's callMutex and
// loginMutex is held across a device call.
#pragma once

#include <atomic>

#include "core/mutex.h"
#include "device/ostrel_device.h"
#include "objects/derived_keys.h"
#include "sessions/secret_string.h"
#include "sessions/session_table.h"
#include "slots/device_monitor.h"
#include "slots/slot_table.h"

struct ModuleState {
    // Made by ostrel_createInstance; null means "not initialised".
    std::atomic<DeviceInstance> deviceInstance{nullptr};
    SharedMutex lifecycleMutex;

    Mutex tableMutex;
    SlotTable slotTable GUARDED_BY(tableMutex);
    SessionTable sessionTable GUARDED_BY(tableMutex);
    SecretString userPassword GUARDED_BY(tableMutex);  // the PIN of the logged-in user

    // Serialises C_Login, C_Logout and C_SetPIN, device check included, so that userPassword
    // never ends up holding a PIN that a concurrent change has already replaced on the token.
    Mutex loginMutex ACQUIRED_BEFORE(tableMutex);

    DeviceMonitor deviceMonitor;

    // The secret keys made by C_DeriveKey, with their own lock.
    DerivedKeyTable derivedKeys;

    // Wipes the secrets held (derived keys, the user's PIN) where no other thread can be using
    // them: the copy a fork() child inherited, or a module whose code is about to go away. Takes
    // no lock: another thread of the parent may have held one at the fork.
    void wipeSecretsWithoutLocking() NO_THREAD_SAFETY_ANALYSIS {
        derivedKeys.wipeWithoutLocking();
        userPassword.clear();
    }
};

// The one state of this process. It is never destroyed: the monitor thread of an application
// that exits without C_Finalize must not find it torn down under its feet.
ModuleState& moduleState();

// Stops the monitor of the current state, if there is one; does nothing once the module's
// state is gone (unloaded). For the exit handler of module_lifecycle.
void stopMonitorIfAny();
