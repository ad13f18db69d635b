// What a subsystem gets for the duration of one export call: the function's name (for its log
// lines), the module's state, the device library instance, and the checks that every export
// makes of its arguments, each logged as "<function>: <what is wrong>".
#pragma once

#include <string>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "log/log.h"

class ExportCall {
public:
    enum class Lock { Shared, Exclusive };

    // Takes the module's lifecycle lock for the call: shared by every export, exclusive for
    // C_Initialize and C_Finalize. (Which of the two is known only at run time, so the
    // analysis of lock annotations does not follow this lock; nothing is guarded by it.)
    ExportCall(const char* name, ModuleState& state, Lock lock) NO_THREAD_SAFETY_ANALYSIS;
    ~ExportCall() NO_THREAD_SAFETY_ANALYSIS;
    ExportCall(const ExportCall&) = delete;
    ExportCall& operator=(const ExportCall&) = delete;

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
    void releaseModuleLock() NO_THREAD_SAFETY_ANALYSIS;

private:
    CK_RV rejectNull(const char* argument) const;

    const char* name_;
    ModuleState& state_;
    enum class Held { None, Shared, Exclusive };
    Held held_ = Held::None;
};

// Turns the exception being handled into a logged CKR code: CKR_HOST_MEMORY when memory ran
// out, CKR_GENERAL_ERROR otherwise. Never throws.
CK_RV answerForCurrentException(const char* name) noexcept;
