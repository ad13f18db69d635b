// Object entry points.
#include "frame/export_frame.h"

CK_RV C_CreateObject(CK_SESSION_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    return runNotYetAvailableExport("C_CreateObject");
}
CK_RV C_DestroyObject(CK_SESSION_HANDLE, CK_OBJECT_HANDLE) {
    return runNotYetAvailableExport("C_DestroyObject");
}
CK_RV C_GetObjectSize(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_GetObjectSize");
}
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_GetAttributeValue");
}
CK_RV C_SetAttributeValue(CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_SetAttributeValue");
}
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE, CK_ATTRIBUTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_FindObjectsInit");
}
CK_RV C_FindObjects(CK_SESSION_HANDLE, CK_OBJECT_HANDLE_PTR, CK_ULONG, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_FindObjects");
}
CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE) {
    return runNotYetAvailableExport("C_FindObjectsFinal");
}
