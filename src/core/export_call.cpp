#include "core/export_call.h"

#include <exception>
#include <new>

ExportCall::ExportCall(const char* name, ModuleState& state, Lock lock)
    : name_(name), state_(state) {
    if (lock == Lock::Shared) {
        state.lifecycleMutex.lock_shared();
        held_ = Held::Shared;
    } else {
        state.lifecycleMutex.lock();
        held_ = Held::Exclusive;
    }
}

ExportCall::~ExportCall() {
    if (held_ == Held::Exclusive) {
        state_.lifecycleMutex.unlock();
    } else {
        releaseModuleLock();
    }
}

CK_RV ExportCall::reject(CK_RV rv, const std::string& what) const {
    logError(std::string(name_) + ": " + what);
    return rv;
}

CK_RV ExportCall::rejectNull(const char* argument) const {
    return reject(CKR_ARGUMENTS_BAD, std::string(argument) + " is NULL");
}

void ExportCall::releaseModuleLock() {
    if (held_ == Held::Shared) {
        state_.lifecycleMutex.unlock_shared();
        held_ = Held::None;
    }
}

CK_RV answerForCurrentException(const char* name) noexcept {
    CK_RV rv = CKR_GENERAL_ERROR;
    std::string what;
    try {
        throw;
    } catch (const std::bad_alloc&) {
        rv = CKR_HOST_MEMORY;
        what = "out of memory";
    } catch (const std::exception& error) {
        what = error.what();
    } catch (...) {
        what = "unknown exception";
    }
    try {
        logError(std::string(name) + ": unexpected error: " + what);
    } catch (...) {
        // Nothing more can be done without memory; the code still tells the caller.
    }
    return rv;
}
