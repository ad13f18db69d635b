// The common frame of every exported entry point: entry log, initialisation check, the module
// lock, and containment of every exception, so that each C_* export is a few lines that hand
// over to its subsystem.
#pragma once

#include <utility>

#include "core/export_call.h"
#include "cryptoki/cryptoki.h"
#include "log/log.h"

namespace export_frame_detail {

enum class NotInitialisedLine { Written, Omitted };

template <typename Body>
CK_RV runInitialisedExport(const char* name, NotInitialisedLine line, Body&& body) noexcept {
    try {
        logInfo(name);
        ExportCall call(name, moduleState(), ExportCall::Lock::Shared);
        if (call.instance() == nullptr) {
            if (line == NotInitialisedLine::Omitted) {
                return CKR_CRYPTOKI_NOT_INITIALIZED;
            }
            return call.reject(CKR_CRYPTOKI_NOT_INITIALIZED, "not initialized");
        }
        return body(call);
    } catch (...) {
        return answerForCurrentException(name);
    }
}

}  // namespace export_frame_detail

// The usual export: "<name>" at info level, then CKR_CRYPTOKI_NOT_INITIALIZED with
// "<name>: not initialized" unless the module is initialised, then the body.
template <typename Body>
CK_RV runExport(const char* name, Body&& body) noexcept {
    return export_frame_detail::runInitialisedExport(
        name, export_frame_detail::NotInitialisedLine::Written, std::forward<Body>(body));
}

// The same frame for an export whose early rejections write no line of their own
// (C_DeriveKey): "not initialized" is answered after the entry line alone.
template <typename Body>
CK_RV runExportWithoutRejectionLines(const char* name, Body&& body) noexcept {
    return export_frame_detail::runInitialisedExport(
        name, export_frame_detail::NotInitialisedLine::Omitted, std::forward<Body>(body));
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
        return answerForCurrentException(name);
    }
}

// Entry points the module does not offer: they log their name and touch no argument, before
// and after initialisation alike.
CK_RV runUnsupportedExport(const char* name) noexcept;

// Entry points whose subsystem this build does not have yet: the usual frame, then
// CKR_FUNCTION_NOT_SUPPORTED.
CK_RV runNotYetAvailableExport(const char* name) noexcept;
