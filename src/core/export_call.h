// What a subsystem gets for the duration of one export call: the function's name (for its log
// lines), the module's state, the device library instance, and the checks that every export
// makes of its arguments, each logged as "<function>: <what is wrong>".
#pragma once

#include <mutex>
#include <shared_mutex>
#include <string>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "log/log.h"

class ExportCall {
public:
    enum class Lock { Shared, Exclusive };

    ExportCall(const char* name, ModuleState& state, Lock lock);

    const char* name() const { return name_; }
    ModuleState& state() const { return state_; }
    DeviceInstance instance() const { return state_.deviceInstance.load(); }

    // Logs "<name>: <what>" at error level and answers rv.
    CK_RV reject(CK_RV rv, const std::string& what) const;

    // CKR_ARGUMENTS_BAD with "<name>: <argument> is NULL" for a null pointer, else CKR_OK, so
    // that a check reads as one line of its caller:
    //   if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) return rv;
    CK_RV requireNonNull(const void* pointer, const char* argument) const {
        return pointer != nullptr ? CKR_OK : rejectNull(argument);
    }

    // Lets C_Initialize and C_Finalize run while this call waits for something else (a slot
    // event): after this, only state that lives as long as the process may be used.
    void releaseModuleLock();

private:
    CK_RV rejectNull(const char* argument) const;

    const char* name_;
    ModuleState& state_;
    std::shared_lock<std::shared_mutex> sharedLock_;
    std::unique_lock<std::shared_mutex> exclusiveLock_;
};

// Turns the exception being handled into a logged CKR code: CKR_HOST_MEMORY when memory ran
// out, CKR_GENERAL_ERROR otherwise. Never throws.
CK_RV answerForCurrentException(const char* name) noexcept;
