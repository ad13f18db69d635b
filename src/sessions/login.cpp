// C_Login. The device checks the PIN; the module keeps an accepted user PIN in userPassword and
// moves every session of the token into the logged-in state.
#include <mutex>
#include <string>
#include <vector>

#include "core/mutex.h"
#include "device/device_results.h"
#include "device/ostrel_device.h"
#include "sessions/login_rules.h"
#include "sessions/session_access.h"
#include "sessions/session_functions.h"

namespace {

// ostrel_validatePassword's user kinds.
constexpr int kUserKindUser = 1;
constexpr int kUserKindSecurityOfficer = 2;

// What a login does to one session of the token: its new state, and the code and error line
// it notes (CKR_OK and null when none).
struct LoginStep {
    CK_STATE newState;
    CK_RV noted;
    const char* error;
};

LoginStep loginStep(CK_STATE state, CK_USER_TYPE userType) {
    const bool securityOfficer = userType == CKU_SO;
    switch (state) {
        case CKS_RO_PUBLIC_SESSION:
            if (securityOfficer) {
                return {state, CKR_SESSION_READ_ONLY_EXISTS,
                        "C_Login: read-only session exists, cannot log in as SO"};
            }
            return {CKS_RO_USER_FUNCTIONS, CKR_OK, nullptr};
        case CKS_RO_USER_FUNCTIONS:
        case CKS_RW_PUBLIC_SESSION:
            // A read-only user session is lifted to a read-write state too (compatibility
            // register, entry 17).
            return {securityOfficer ? CKS_RW_SO_FUNCTIONS : CKS_RW_USER_FUNCTIONS, CKR_OK, nullptr};
        case CKS_RW_USER_FUNCTIONS:
            if (securityOfficer) {
                return {state, CKR_USER_ALREADY_LOGGED_IN, nullptr};
            }
            // Says "SO" of a user session: the wording is deliberate and kept (compatibility
            // register, entry 17).
            return {state, CKR_USER_ANOTHER_ALREADY_LOGGED_IN,
                    "C_Login: SO already logged in on another session"};
        default:
            return {state, CKR_OK, nullptr};
    }
}

bool isStoredUserPin(ModuleState& state, const SecretString& pin) {
    MutexLock tables(state.tableMutex);
    return !state.userPassword.empty() && state.userPassword.equals(pin.c_str(), pin.size());
}

CK_RV checkOnDevice(const ExportCall& call, const SessionAccess& session, const SecretString& pin,
                    CK_USER_TYPE userType) {
    int retryCount = 0;
    const int result =
        ostrel_validatePassword(session.deviceId(), pin.c_str(),
                                userType == CKU_USER ? kUserKindUser : kUserKindSecurityOfficer,
                                &retryCount, call.instance());
    if (result == 0) {
        return CKR_OK;
    }
    logError("Token password validation failed : " + decimalText(result));
    // An unreachable device is no PIN failure: there is no retry count to report.
    if (result == device_result::kDeviceUnreachable) {
        return CKR_FUNCTION_FAILED;
    }
    logError("Token password validation failed, retry count : " + decimalText(retryCount));
    return retryCount == 0 ? CKR_PIN_LOCKED : CKR_PIN_INCORRECT;
}

// Keeps a user's PIN and walks every session of the token in handle order. The walk never
// stops early and the code noted last is the answer, although the states have changed and the
// PIN is kept by then: deliberate (compatibility register, entry 17).
CK_RV recordLogin(ModuleState& state, const SessionAccess& session, CK_USER_TYPE userType,
                  const SecretString& pin) {
    CK_STATE stateBefore = 0;
    CK_RV noted = CKR_OK;
    std::vector<const char*> errors;
    {
        MutexLock tables(state.tableMutex);
        if (userType == CKU_USER) {
            state.userPassword = pin;
        }
        stateBefore = session.state();
        state.sessionTable.forEachOnDevice(session.token().serialNumber, [&](SessionRecord& each) {
            const LoginStep step = loginStep(each.state.load(), userType);
            each.state.store(step.newState);
            if (step.noted != CKR_OK) {
                noted = step.noted;
            }
            if (step.error != nullptr) {
                errors.push_back(step.error);
            }
        });
    }
    // Written once the table lock is free, in the order of the walk.
    logInfo("Login state : " + decimalText(stateBefore));
    for (const char* error : errors) {
        logError(error);
    }
    return noted;
}

}  // namespace

CK_RV logIn(ExportCall& call, CK_SESSION_HANDLE hSession, CK_USER_TYPE userType,
            CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (userType == CKU_USER) {
            if (isUserState(session.state())) {
                // At info level, not error (compatibility register, entry 17).
                logInfo("C_Login: User already logged in");
                return CKR_USER_ALREADY_LOGGED_IN;
            }
        } else if (userType != CKU_SO) {
            return call.reject(CKR_USER_TYPE_INVALID,
                               "unsupported userType=" + decimalText(userType));
        }
        const CK_RV pinArgument = checkPinArgument(
            call, pPin, ulPinLen, "pPin", "pin length out of range, ulPinLen=", CKR_PIN_INCORRECT);
        if (pinArgument != CKR_OK) {
            return pinArgument;
        }
        const SecretString pin = pinText(pPin, ulPinLen);
        ModuleState& state = call.state();
        MutexLock logins(state.loginMutex);
        // The user PIN already held was accepted by the device: no second check.
        const bool known = userType == CKU_USER && isStoredUserPin(state, pin);
        if (!known) {
            const CK_RV checked = checkOnDevice(call, session, pin, userType);
            if (checked != CKR_OK) {
                return checked;
            }
        }
        return recordLogin(state, session, userType, pin);
    });
}
