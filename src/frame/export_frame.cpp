#include "frame/export_frame.h"

CK_RV runUnsupportedExport(const char* name) noexcept {
    try {
        logInfo(name);
    } catch (...) {
        static_cast<void>(answerForCurrentException(name));
    }
    return CKR_FUNCTION_NOT_SUPPORTED;
}

CK_RV runNotYetAvailableExport(const char* name) noexcept {
    return runExport(name, [](ExportCall&) { return CKR_FUNCTION_NOT_SUPPORTED; });
}
