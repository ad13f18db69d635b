// The rules by which the operation functions open, continue and end the one operation a
// session may run (its OperationContext): which prior operation an Init accepts and what it
// turns into, the check every continuing call makes, and the session states that some Inits
// require. Every Init, single-part, Update and Final function (and object search) goes through
// these, so that the codes and their log lines are the same everywhere.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "core/export_call.h"
#include "sessions/operation_context.h"
#include "sessions/session_access.h"

// The operations an Init can open.
enum class OperationInit { Digest, Sign, Verify, Encrypt, Decrypt };

// The activeOperation code that the Init sets when it succeeds, or nothing when the prior code
// is one it does not accept; then it has answered CKR_OPERATION_ACTIVE with "<name>: operation
// already active, activeOperation=<code>". Accepted prior codes: a digest may be restarted and
// replaced by a verification, encryption or decryption (which then become 9 and 10, codes that
// no function continues: compatibility register, entry 27); signing starts only from no
// operation.
struct InitAdmission {
    CK_RV rv = CKR_OK;
    std::uint32_t nextCode = kOperationNone;
};
InitAdmission admitInit(const ExportCall& call, const OperationContext& operation,
                        OperationInit init);

// CKR_OK when the operation in progress is `expected`, else CKR_OPERATION_NOT_INITIALIZED with
// "<name>: operation not initialized, activeOperation=<code>"; the context is left as it is.
CK_RV requireActiveOperation(const ExportCall& call, const OperationContext& operation,
                             std::uint32_t expected);

// CKR_OK when the session's state is one of `allowed`, else CKR_SESSION_HANDLE_INVALID with
// "<name>: invalid session state=<state>". The code is the handle's (compatibility register,
// entry 28), as callers
// that check it have always answered so.
CK_RV requireSessionState(const ExportCall& call, const SessionAccess& session,
                          std::initializer_list<CK_STATE> allowed);

// The states in which digesting, signing and decrypting may start: every state but a
// read-only public session (verification and encryption do not check).
constexpr std::initializer_list<CK_STATE> kStatesForPrivateOperations = {
    CKS_RO_USER_FUNCTIONS, CKS_RW_PUBLIC_SESSION, CKS_RW_USER_FUNCTIONS, CKS_RW_SO_FUNCTIONS};

// Ends the operation after a device failure or a completed call: no operation in progress.
inline void endOperation(OperationContext& operation) {
    operation.activeOperation = kOperationNone;
}
