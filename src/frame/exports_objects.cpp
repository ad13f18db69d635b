// Object entry points.
#include "frame/export_frame.h"
#include "objects/object_functions.h"

CK_RV C_CreateObject(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,
                     CK_OBJECT_HANDLE_PTR phObject) {
    return runExport("C_CreateObject", [&](ExportCall& call) {
        return createObject(call, hSession, pTemplate, ulCount, phObject);
    });
}
CK_RV C_DestroyObject(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject) {
    return runExport("C_DestroyObject",
                     [&](ExportCall& call) { return destroyObject(call, hSession, hObject); });
}
CK_RV C_GetObjectSize(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize) {
    return runExport("C_GetObjectSize", [&](ExportCall& call) {
        return getObjectSize(call, hSession, hObject, pulSize);
    });
}
CK_RV C_GetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    return runExport("C_GetAttributeValue", [&](ExportCall& call) {
        return getAttributeValue(call, hSession, hObject, pTemplate, ulCount);
    });
}
CK_RV C_SetAttributeValue(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                          CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    return runExport("C_SetAttributeValue", [&](ExportCall& call) {
        return setAttributeValue(call, hSession, hObject, pTemplate, ulCount);
    });
}
CK_RV C_FindObjectsInit(CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    return runExport("C_FindObjectsInit", [&](ExportCall& call) {
        return findObjectsInit(call, hSession, pTemplate, ulCount);
    });
}
CK_RV C_FindObjects(CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                    CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) {
    return runExport("C_FindObjects", [&](ExportCall& call) {
        return findObjects(call, hSession, phObject, ulMaxObjectCount, pulObjectCount);
    });
}
CK_RV C_FindObjectsFinal(CK_SESSION_HANDLE hSession) {
    return runExport("C_FindObjectsFinal",
                     [&](ExportCall& call) { return findObjectsFinal(call, hSession); });
}
