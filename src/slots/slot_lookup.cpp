#include "slots/slot_lookup.h"

#include <mutex>

#include "core/handle_value.h"
#include "core/mutex.h"
#include "log/log.h"

std::optional<SlotTable::Entry> findSlot(ModuleState& state, CK_SLOT_ID slotID) {
    const auto slot = handleValue(slotID);
    if (!slot) {
        return std::nullopt;
    }
    MutexLock tables(state.tableMutex);
    return state.slotTable.find(*slot);
}

CK_RV rejectInvalidSlot(const ExportCall& call, CK_SLOT_ID slotID) {
    return call.reject(CKR_SLOT_ID_INVALID, "invalid slotID=" + decimalText(slotID));
}
