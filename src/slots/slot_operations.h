// The slot and token operations behind the C_* exports of this subsystem. Each runs inside the
// export frame (entry log and initialisation check done) and answers a CKR code.
#pragma once

#include "core/export_call.h"

CK_RV getSlotList(ExportCall& call, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount);
CK_RV getSlotInfo(ExportCall& call, CK_SLOT_ID slotID, CK_SLOT_INFO* pInfo);
CK_RV getTokenInfo(ExportCall& call, CK_SLOT_ID slotID, CK_TOKEN_INFO* pInfo);
CK_RV getMechanismList(ExportCall& call, CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                       CK_ULONG_PTR pulCount);
CK_RV getMechanismInfo(ExportCall& call, CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                       CK_MECHANISM_INFO_PTR pInfo);
