// C_GetSlotInfo: the slot as the last C_GetSlotList stored it; the device is not asked.
#include <cstddef>
#include <cstring>

#include "slots/info_fields.h"
#include "slots/slot_lookup.h"
#include "slots/slot_operations.h"

static_assert(offsetof(CK_SLOT_INFO, manufacturerID) == 64 && offsetof(CK_SLOT_INFO, flags) == 96,
              "the text fields of CK_SLOT_INFO lie back to back before flags");

CK_RV getSlotInfo(ExportCall& call, CK_SLOT_ID slotID, CK_SLOT_INFO* pInfo) {
    // The slot is looked up before pInfo is checked (compatibility register, entry 14).
    const auto slot = findSlot(call.state(), slotID);
    if (!slot) {
        return rejectInvalidSlot(call, slotID);
    }
    if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) {
        return rv;
    }
    std::memset(pInfo, 0, sizeof *pInfo);
    TextFields texts(pInfo, offsetof(CK_SLOT_INFO, flags));
    // The description is the token's label, deliberately not cut at the field's width
    // (compatibility register, entry 12): a label
    // of 64 characters or more shows its first 64 bytes without NUL.
    texts.writeTerminated(offsetof(CK_SLOT_INFO, slotDescription), slot->token.label);
    texts.writeField(offsetof(CK_SLOT_INFO, manufacturerID), sizeof pInfo->manufacturerID,
                     kSlotManufacturer);
    pInfo->flags = CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT;
    pInfo->hardwareVersion = kSlotHardwareVersion;
    pInfo->firmwareVersion = firmwareVersionPair(slot->token.firmwareVersion);
    return CKR_OK;
}
