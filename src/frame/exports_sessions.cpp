// Session and login entry points.
#include "frame/export_frame.h"

CK_RV C_OpenSession(CK_SLOT_ID, CK_FLAGS, CK_VOID_PTR, CK_NOTIFY, CK_SESSION_HANDLE_PTR) {
    return runNotYetAvailableExport("C_OpenSession");
}
CK_RV C_CloseSession(CK_SESSION_HANDLE) { return runNotYetAvailableExport("C_CloseSession"); }
CK_RV C_CloseAllSessions(CK_SLOT_ID) { return runNotYetAvailableExport("C_CloseAllSessions"); }
CK_RV C_GetSessionInfo(CK_SESSION_HANDLE, CK_SESSION_INFO*) {
    return runNotYetAvailableExport("C_GetSessionInfo");
}
CK_RV C_Login(CK_SESSION_HANDLE, CK_USER_TYPE, CK_UTF8CHAR_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_Login");
}
CK_RV C_Logout(CK_SESSION_HANDLE) { return runNotYetAvailableExport("C_Logout"); }
CK_RV C_SetPIN(CK_SESSION_HANDLE, CK_UTF8CHAR_PTR, CK_ULONG, CK_UTF8CHAR_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_SetPIN");
}
