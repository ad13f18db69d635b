// The work of the session and login entry points, one function per export. Each runs inside
// the export frame, which has already logged the call and checked initialisation.
#pragma once

#include "core/export_call.h"

CK_RV openSession(ExportCall& call, CK_SLOT_ID slotID, CK_FLAGS flags,
                  CK_SESSION_HANDLE_PTR phSession);
CK_RV closeSession(ExportCall& call, CK_SESSION_HANDLE hSession);
CK_RV closeAllSessions(ExportCall& call, CK_SLOT_ID slotID);
CK_RV getSessionInfo(ExportCall& call, CK_SESSION_HANDLE hSession, CK_SESSION_INFO* pInfo);

CK_RV logIn(ExportCall& call, CK_SESSION_HANDLE hSession, CK_USER_TYPE userType,
            CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen);
CK_RV logOut(ExportCall& call, CK_SESSION_HANDLE hSession);
CK_RV setPin(ExportCall& call, CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin,
             CK_ULONG ulOldLen, CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen);
