// Slot and token entry points.
#include "frame/export_frame.h"

CK_RV C_GetSlotList(CK_BBOOL, CK_SLOT_ID_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_GetSlotList");
}
CK_RV C_GetSlotInfo(CK_SLOT_ID, CK_SLOT_INFO*) { return runNotYetAvailableExport("C_GetSlotInfo"); }
CK_RV C_GetTokenInfo(CK_SLOT_ID, CK_TOKEN_INFO*) {
    return runNotYetAvailableExport("C_GetTokenInfo");
}
CK_RV C_GetMechanismList(CK_SLOT_ID, CK_MECHANISM_TYPE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_GetMechanismList");
}
CK_RV C_GetMechanismInfo(CK_SLOT_ID, CK_MECHANISM_TYPE, CK_MECHANISM_INFO_PTR) {
    return runNotYetAvailableExport("C_GetMechanismInfo");
}

// pReserved is never read.
CK_RV C_WaitForSlotEvent(CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR /*pReserved*/) {
    return runExport("C_WaitForSlotEvent", [&](ExportCall& call) {
        return call.state().deviceMonitor.waitForSlotEvent(call, flags, pSlot);
    });
}
