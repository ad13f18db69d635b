// Slot and token entry points.
#include "frame/export_frame.h"
#include "slots/slot_operations.h"

// tokenPresent is never read: the list always holds only slots with a token present.
CK_RV C_GetSlotList(CK_BBOOL /*tokenPresent*/, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount) {
    return runExport("C_GetSlotList",
                     [&](ExportCall& call) { return getSlotList(call, pSlotList, pulCount); });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slotID, CK_SLOT_INFO* pInfo) {
    return runExport("C_GetSlotInfo",
                     [&](ExportCall& call) { return getSlotInfo(call, slotID, pInfo); });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slotID, CK_TOKEN_INFO* pInfo) {
    return runExport("C_GetTokenInfo",
                     [&](ExportCall& call) { return getTokenInfo(call, slotID, pInfo); });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                         CK_ULONG_PTR pulCount) {
    return runExport("C_GetMechanismList", [&](ExportCall& call) {
        return getMechanismList(call, slotID, pMechanismList, pulCount);
    });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo) {
    return runExport("C_GetMechanismInfo",
                     [&](ExportCall& call) { return getMechanismInfo(call, slotID, type, pInfo); });
}

// pReserved is never read.
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR /*pReserved*/) {
    return runExport("C_WaitForSlotEvent", [&](ExportCall& call) {
        return call.state().deviceMonitor.waitForSlotEvent(call, flags, pSlot);
    });
}
