// The common frame of every exported entry point: entry log, initialisation check, the module
// lock, and containment of every exception, so that each C_* export is a few lines that hand
// over to its subsystem.
#pragma once

#include <mutex>
#include <shared_mutex>
#include <string>

#include "cryptoki/cryptoki.h"
#include "frame/module_state.h"
#include "log/log.h"

// What a subsystem gets for the duration of one export call.
class ExportCall {
public:
    enum class Lock { Shared, Exclusive };

    ExportCall(const char* name, ModuleState& state, Lock lock);

    const char* name() const { return name_; }
    ModuleState& state() const { return state_; }
    DeviceInstance instance() const { return state_.deviceInstance.load(); }

    // Logs "<name>: <what>" at error level and answers rv.
    CK_RV reject(CK_RV rv, const std::string& what) const;

    // Lets C_Initialize and C_Finalize run while this call waits for something else (a slot
    // event): after this, only state that lives as long as the process may be used.
    void releaseModuleLock();

private:
    const char* name_;
    ModuleState& state_;
    std::shared_lock<std::shared_mutex> sharedLock_;
    std::unique_lock<std::shared_mutex> exclusiveLock_;
};

namespace frame_detail {
// Turns the exception being handled into a logged CKR code. Never throws.
CK_RV answerForCurrentException(const char* name) noexcept;
}  // namespace frame_detail

// The usual export: "<name>" at info level, then CKR_CRYPTOKI_NOT_INITIALIZED with
// "<name>: not initialized" unless the module is initialised, then the body.
template <typename Body>
CK_RV runExport(const char* name, Body&& body) noexcept {
    try {
        logInfo(name);
        ExportCall call(name, moduleState(), ExportCall::Lock::Shared);
        if (call.instance() == nullptr) {
            return call.reject(CKR_CRYPTOKI_NOT_INITIALIZED, "not initialized");
        }
        return body(call);
    } catch (...) {
        return frame_detail::answerForCurrentException(name);
    }
}

// C_Initialize and C_Finalize: alone in the module while they run; they check the
// initialisation state themselves.
template <typename Body>
CK_RV runLifecycleExport(const char* name, Body&& body) noexcept {
    try {
        logInfo(name);
        ExportCall call(name, moduleState(), ExportCall::Lock::Exclusive);
        return body(call);
    } catch (...) {
        return frame_detail::answerForCurrentException(name);
    }
}

// Entry points the module does not offer: they log their name and touch no argument, before
// and after initialisation alike.
CK_RV runUnsupportedExport(const char* name) noexcept;

// Entry points whose subsystem this build does not have yet: the usual frame, then
// CKR_FUNCTION_NOT_SUPPORTED.
CK_RV runNotYetAvailableExport(const char* name) noexcept;
