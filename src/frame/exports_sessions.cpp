// Session and login entry points.
#include "frame/export_frame.h"
#include "sessions/session_functions.h"

// pApplication and Notify are never used: the module makes no notification callbacks.
CK_RV C_OpenSession(CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR /*pApplication*/,
                    CK_NOTIFY /*Notify*/, CK_SESSION_HANDLE_PTR phSession) {
    return runExport("C_OpenSession",
                     [&](ExportCall& call) { return openSession(call, slotID, flags, phSession); });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE hSession) {
    return runExport("C_CloseSession",
                     [&](ExportCall& call) { return closeSession(call, hSession); });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slotID) {
    return runExport("C_CloseAllSessions",
                     [&](ExportCall& call) { return closeAllSessions(call, slotID); });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE hSession, CK_SESSION_INFO* pInfo) {
    return runExport("C_GetSessionInfo",
                     [&](ExportCall& call) { return getSessionInfo(call, hSession, pInfo); });
}

CK_RV C_Login(CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,
              CK_ULONG ulPinLen) {
    return runExport("C_Login", [&](ExportCall& call) {
        return logIn(call, hSession, userType, pPin, ulPinLen);
    });
}

CK_RV C_Logout(CK_SESSION_HANDLE hSession) {
    return runExport("C_Logout", [&](ExportCall& call) { return logOut(call, hSession); });
}

CK_RV C_SetPIN(CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,
               CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen) {
    return runExport("C_SetPIN", [&](ExportCall& call) {
        return setPin(call, hSession, pOldPin, ulOldLen, pNewPin, ulNewLen);
    });
}
