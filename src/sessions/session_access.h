// Finding the session of a call: the shared session lookup of every export that takes a
// session handle.
//
// A call works on its session with the session's call lock held, and only while the session is
// still open: a close waits for the call in progress on the session, and a call that gets the
// lock after the close sees the session gone and answers CKR_SESSION_HANDLE_INVALID. Nothing
// acts on a session after its close returned.
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "core/export_call.h"
#include "core/handle_value.h"
#include "core/mutex.h"
#include "log/log.h"
#include "sessions/session_record.h"

// The session a call is working on, with its call lock held for as long as the object lives.
class SessionAccess {
public:
    SessionAccess(std::uint32_t handle, SessionRecord& record) : handle_(handle), record_(record) {}

    std::uint32_t handle() const { return handle_; }
    SessionRecord& record() const { return record_; }
    CK_STATE state() const { return record_.state.load(); }
    const TokenInfo& token() const { return record_.token; }
    // The identifier that addresses the session's device in every device library call.
    const char* deviceId() const { return record_.token.serialNumber.c_str(); }
    // The record's call lock is held for as long as a SessionAccess lives (withSessionOr is the
    // only place one is made), which the lock analysis cannot follow into the call's body.
    OperationContext& operation() const NO_THREAD_SAFETY_ANALYSIS { return record_.operation; }
    SearchState& search() const NO_THREAD_SAFETY_ANALYSIS { return record_.search; }
    void markClosed() const NO_THREAD_SAFETY_ANALYSIS { record_.closed = true; }

private:
    std::uint32_t handle_;
    SessionRecord& record_;
};

// The record of hSession, or null when no such session is open. Holding the pointer keeps the
// record alive even if another thread closes the session meanwhile; it says nothing about
// whether the session is still open once its call lock is taken (SessionRecord::closed does).
std::shared_ptr<SessionRecord> findSession(ModuleState& state, CK_SESSION_HANDLE hSession);

// Runs body(SessionAccess&) with the session's call lock held, or answers onInvalid() when no
// open session has the handle, also when it was closed while this call waited for its lock.
template <typename OnInvalid, typename Body>
CK_RV withSessionOr(ExportCall& call, CK_SESSION_HANDLE hSession, OnInvalid&& onInvalid,
                    Body&& body) {
    std::shared_ptr<SessionRecord> session = findSession(call.state(), hSession);
    if (!session) {
        return onInvalid();
    }
    MutexLock sessionLock(session->callMutex);
    if (session->closed) {
        return onInvalid();
    }
    // findSession accepted the handle, so it fits in 32 bits.
    SessionAccess access(static_cast<std::uint32_t>(hSession), *session);
    return body(access);
}

// The usual rejection: CKR_SESSION_HANDLE_INVALID with "<name>: invalid hSession=<handle>".
CK_RV rejectInvalidSession(const ExportCall& call, CK_SESSION_HANDLE hSession);

template <typename Body>
CK_RV withSession(ExportCall& call, CK_SESSION_HANDLE hSession, Body&& body) {
    return withSessionOr(
        call, hSession, [&] { return rejectInvalidSession(call, hSession); },
        std::forward<Body>(body));
}
