#include "core/module_state.h"

#include "platform/platform.h"

namespace {

std::atomic<ModuleState*> currentState{nullptr};

// A child of fork() inherits the parent's memory but none of its threads: locks that another
// thread held stay locked forever and the monitor thread object names a thread that does not
// exist there. The child starts from a fresh state instead, as if the module had just been
// loaded; the inherited one is deliberately leaked, because destroying it could block or abort.
void startAfreshInForkChild() {
    currentState.store(new ModuleState());
}

// The monitor thread runs the module's code: it must end before that code is unloaded, also
// when the application unloads the module without C_Finalize, or after a C_Initialize whose
// device library gave no instance (C_Finalize then answers "not initialized" and stops
// nothing).
void stopMonitorBeforeUnload() {
    try {
        currentState.load()->deviceMonitor.stopBeforeUnload();
    } catch (...) {
        // A destructor must not throw; there is nothing left to report to.
    }
}

}  // namespace

ModuleState& moduleState() {
    static const bool created = [] {
        currentState.store(new ModuleState());
        platform::onForkChild(&startAfreshInForkChild);
        platform::onModuleUnload(&stopMonitorBeforeUnload);
        return true;
    }();
    static_cast<void>(created);
    return *currentState.load(std::memory_order_acquire);
}
