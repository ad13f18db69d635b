// The object operations behind the C_* exports: search, attributes, creation and destruction
// of the token's key pairs and certificates. Each runs inside the export frame (entry log and
// initialisation check done) and answers a CKR code.
#pragma once

#include "core/export_call.h"

CK_RV findObjectsInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                      CK_ULONG ulCount);
CK_RV findObjects(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                  CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount);
CK_RV findObjectsFinal(ExportCall& call, CK_SESSION_HANDLE hSession);

CK_RV getAttributeValue(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount);
CK_RV setAttributeValue(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount);
CK_RV getObjectSize(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                    CK_ULONG_PTR pulSize);

CK_RV createObject(ExportCall& call, CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject);
CK_RV destroyObject(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject);
