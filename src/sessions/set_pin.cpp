// C_SetPIN: the device alone judges the old PIN; the module only keeps userPassword in step.
#include <mutex>

#include "core/mutex.h"
#include "device/ostrel_device.h"
#include "sessions/login_rules.h"
#include "sessions/session_access.h"
#include "sessions/session_functions.h"

CK_RV setPin(ExportCall& call, CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin,
             CK_ULONG ulOldLen, CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // Read-write sessions go on whether or not anybody is logged in.
        const CK_STATE current = session.state();
        if (isReadOnlyState(current)) {
            return call.reject(CKR_SESSION_READ_ONLY,
                               "session is read-only, state=" + decimalText(current));
        }
        CK_RV rv = checkPinArgument(call, pOldPin, ulOldLen, "pOldPin",
                                    "old pin length out of range, ulOldLen=", CKR_PIN_INVALID);
        if (rv == CKR_OK) {
            rv = checkPinArgument(call, pNewPin, ulNewLen, "pNewPin",
                                  "new pin length out of range, ulNewLen=", CKR_PIN_INVALID);
        }
        if (rv != CKR_OK) {
            return rv;
        }
        const SecretString oldPin = pinText(pOldPin, ulOldLen);
        const SecretString newPin = pinText(pNewPin, ulNewLen);
        ModuleState& state = call.state();
        MutexLock logins(state.loginMutex);
        int failureCount = 0;
        const bool changed =
            ostrel_changeUserPassword(session.deviceId(), oldPin.c_str(), newPin.c_str(),
                                      &failureCount, false, false, call.instance());
        if (!changed) {
            return call.reject(
                CKR_FUNCTION_FAILED,
                "ostrel_changeUserPassword failed, failureCount=" + decimalText(failureCount));
        }
        MutexLock tables(state.tableMutex);
        // A logged-in user goes on with the new PIN; nobody logged in stays so.
        if (!state.userPassword.empty()) {
            state.userPassword = newPin;
        }
        return CKR_OK;
    });
}
