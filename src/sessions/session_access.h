// Finding the session of a call: the shared session lookup of every export that takes a
// session handle.
#pragma once

#include <memory>
#include <mutex>

#include "frame/export_frame.h"
#include "frame/handle_value.h"
#include "log/log.h"

// The record of hSession, or null when no such session is open. Holding the pointer keeps the
// record alive even if another thread closes the session meanwhile.
std::shared_ptr<SessionRecord> findSession(ModuleState& state, CK_SESSION_HANDLE hSession);

// Runs body(SessionRecord&) with the session's call lock held, or answers
// CKR_SESSION_HANDLE_INVALID with "<name>: invalid hSession=<handle>".
template <typename Body>
CK_RV withSession(ExportCall& call, CK_SESSION_HANDLE hSession, Body&& body) {
    std::shared_ptr<SessionRecord> session = findSession(call.state(), hSession);
    if (!session) {
        return call.reject(CKR_SESSION_HANDLE_INVALID, "invalid hSession=" + decimalText(hSession));
    }
    std::lock_guard<std::mutex> sessionLock(session->callMutex);
    return body(*session);
}
