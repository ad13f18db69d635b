// Entry points the module does not offer. Each logs its name and answers
// CKR_FUNCTION_NOT_SUPPORTED whatever its arguments, before and after initialisation; none
// touches its arguments.
#include "frame/export_frame.h"

CK_RV C_InitToken(CK_SLOT_ID, CK_UTF8CHAR_PTR, CK_ULONG, CK_UTF8CHAR_PTR) {
    return runUnsupportedExport("C_InitToken");
}
CK_RV C_InitPIN(CK_SESSION_HANDLE, CK_UTF8CHAR_PTR, CK_ULONG) {
    return runUnsupportedExport("C_InitPIN");
}
CK_RV C_GetOperationState(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_GetOperationState");
}
CK_RV C_SetOperationState(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_OBJECT_HANDLE,
                          CK_OBJECT_HANDLE) {
    return runUnsupportedExport("C_SetOperationState");
}
CK_RV C_CopyObject(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG,
                   CK_OBJECT_HANDLE_PTR) {
    return runUnsupportedExport("C_CopyObject");
}
CK_RV C_EncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_EncryptUpdate");
}
CK_RV C_EncryptFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_EncryptFinal");
}
CK_RV C_DecryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_DecryptUpdate");
}
CK_RV C_DecryptFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_DecryptFinal");
}
CK_RV C_DigestKey(CK_SESSION_HANDLE, CK_OBJECT_HANDLE) {
    return runUnsupportedExport("C_DigestKey");
}
CK_RV C_SignRecoverInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runUnsupportedExport("C_SignRecoverInit");
}
CK_RV C_SignRecover(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_SignRecover");
}
CK_RV C_VerifyRecoverInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runUnsupportedExport("C_VerifyRecoverInit");
}
CK_RV C_VerifyRecover(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_VerifyRecover");
}
CK_RV C_DigestEncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR,
                            CK_ULONG_PTR) {
    return runUnsupportedExport("C_DigestEncryptUpdate");
}
CK_RV C_DecryptDigestUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR,
                            CK_ULONG_PTR) {
    return runUnsupportedExport("C_DecryptDigestUpdate");
}
CK_RV C_SignEncryptUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_SignEncryptUpdate");
}
CK_RV C_DecryptVerifyUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR,
                            CK_ULONG_PTR) {
    return runUnsupportedExport("C_DecryptVerifyUpdate");
}
CK_RV C_GenerateKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_ATTRIBUTE_PTR, CK_ULONG,
                    CK_OBJECT_HANDLE_PTR) {
    return runUnsupportedExport("C_GenerateKey");
}
CK_RV C_WrapKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_OBJECT_HANDLE,
                CK_BYTE_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_WrapKey");
}
CK_RV C_UnwrapKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_BYTE_PTR, CK_ULONG,
                  CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    return runUnsupportedExport("C_UnwrapKey");
}
CK_RV C_SeedRandom(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runUnsupportedExport("C_SeedRandom");
}
CK_RV C_GetFunctionStatus(CK_SESSION_HANDLE) { return runUnsupportedExport("C_GetFunctionStatus"); }
CK_RV C_CancelFunction(CK_SESSION_HANDLE) { return runUnsupportedExport("C_CancelFunction"); }

// The maker's extra entry points, exported under their C++ names.
CK_RV C_EjectToken(CK_SLOT_ID) { return runUnsupportedExport("C_EjectToken"); }
CK_RV C_GetUnmanagedStructSizeList(CK_ULONG_PTR, CK_ULONG_PTR) {
    return runUnsupportedExport("C_GetUnmanagedStructSizeList");
}
CK_RV C_InteractiveLogin(CK_SESSION_HANDLE) { return runUnsupportedExport("C_InteractiveLogin"); }
