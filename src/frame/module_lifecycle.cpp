#include "frame/module_lifecycle.h"

#include <mutex>

#include "core/mutex.h"
#include "device/ostrel_device.h"
#include "platform/platform.h"

namespace {

// An application that exits without C_Finalize leaves the monitor polling the device library
// while the process ends. Registered after the device library has started (and with it the
// libraries it uses), this handler runs before their exit handlers do, so that the monitor
// never calls into a library that has already cleaned up. At dlclose it runs too, after the
// module's state is gone: then there is nothing to stop.
void stopMonitorAtExit() {
    stopMonitorIfAny();
}

void stopMonitorEarlyAtExit() {
    static std::once_flag registered;
    std::call_once(registered, [] { platform::runEarlyAtExit(&stopMonitorAtExit); });
}

}  // namespace

CK_RV initializeModule(ExportCall& call) {
    ModuleState& state = call.state();
    if (state.deviceInstance.load() != nullptr) {
        return call.reject(CKR_CRYPTOKI_ALREADY_INITIALIZED, "already initialized");
    }
    DeviceInstance instance = nullptr;
    ostrel_createInstance(&instance);
    state.deviceInstance.store(instance);
    stopMonitorEarlyAtExit();
    try {
        state.deviceMonitor.start(state);
    } catch (...) {
        // Without its monitor the module cannot report slot events or notice a vanished token;
        // leave it uninitialised rather than half-working.
        state.deviceInstance.store(nullptr);
        if (instance != nullptr) {
            ostrel_releaseInstance(instance);
        }
        throw;
    }
    if (instance == nullptr) {
        // Deliberately still CKR_OK (compatibility register, entry 2): the caller learns of it
        // from the log and from every later
        // call answering CKR_CRYPTOKI_NOT_INITIALIZED.
        logError("Init pkcs11 library failed failed");
    }
    return CKR_OK;
}

CK_RV finalizeModule(ExportCall& call) {
    ModuleState& state = call.state();
    const DeviceInstance instance = state.deviceInstance.load();
    if (instance == nullptr) {
        return call.reject(CKR_CRYPTOKI_NOT_INITIALIZED, "not initialized");
    }
    state.deviceMonitor.stopDeviceMonitor();
    ostrel_releaseInstance(instance);
    state.deviceInstance.store(nullptr);
    {
        // Sessions are dropped without any device call and without a logout on the device.
        MutexLock tables(state.tableMutex);
        state.slotTable.clear();
        state.sessionTable.clear();
        state.userPassword.clear();
    }
    logInfo("C_Finalize completed successfully.");
    return CKR_OK;
}
