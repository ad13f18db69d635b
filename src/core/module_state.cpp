#include "core/module_state.h"

#include "platform/platform.h"

namespace {

std::atomic<ModuleState*> currentState{nullptr};

// A child of fork() inherits the parent's memory but none of its threads: locks that another
// thread held stay locked forever and the monitor thread object names a thread that does not
// exist there. The child starts from a fresh state instead, as if the module had just been
// loaded; the inherited one is deliberately leaked, because destroying it could block or abort.
// The secrets the inherited state holds are wiped first: the child has no other thread that
// could be using them.
void startAfreshInForkChild() {
    ModuleState* inherited = currentState.load();
    inherited->wipeSecretsWithoutLocking();
    currentState.store(new ModuleState());
}

// The module's code is about to go away (unloaded, or the process ends). The monitor thread
// runs that code: where threads may be joined here it is stopped first, also when the
// application unloads the module without C_Finalize or after a C_Initialize whose device
// library gave no instance (C_Finalize then answers "not initialized" and stops nothing).
// Then the secrets still held are wiped (the heap may outlive the module), and where the
// monitor could be joined the device instance is released and the state itself goes, so that
// loading and unloading the module again and again leaks nothing.
void releaseBeforeUnload() {
    ModuleState* state = currentState.load();
    bool monitorEnded = false;
    try {
        if (platform::threadsMayBeJoinedAtUnload()) {
            state->deviceMonitor.stopBeforeUnload();
            monitorEnded = !state->deviceMonitor.holdsThread();
        }
    } catch (...) {
        // A destructor must not throw; there is nothing left to report to.
    }
    state->wipeSecretsWithoutLocking();
    if (monitorEnded && !platform::processIsExiting()) {
        // An application that never called C_Finalize leaves its device instance too. Not at
        // exit: the device library's own dependencies may be gone by then, and the process
        // frees everything anyway.
        if (const DeviceInstance instance = state->deviceInstance.exchange(nullptr)) {
            ostrel_releaseInstance(instance);
        }
        currentState.store(nullptr);
        delete state;
    }
}

}  // namespace

void stopMonitorIfAny() {
    if (ModuleState* state = currentState.load()) {
        state->deviceMonitor.stopBeforeUnload();
    }
}

ModuleState& moduleState() {
    static const bool created = [] {
        currentState.store(new ModuleState());
        platform::onForkChild(&startAfreshInForkChild);
        platform::onModuleUnload(&releaseBeforeUnload);
        return true;
    }();
    static_cast<void>(created);
    return *currentState.load(std::memory_order_acquire);
}
