// C_GetMechanismList and C_GetMechanismInfo. Neither checks the slot ID: an unknown slot is a
// normal outcome and gets the catalogue as it stands.
#include <cstddef>
#include <vector>

#include "core/list_output.h"
#include "crypto/mechanism_policy.h"
#include "log/log.h"
#include "slots/mechanism_catalogue.h"
#include "slots/slot_lookup.h"
#include "slots/slot_operations.h"

namespace {

SlotView viewOfSlot(ModuleState& state, CK_SLOT_ID slotID) {
    const auto slot = findSlot(state, slotID);
    return SlotView{slot.has_value(), slot.has_value() && isFips1403Token(slot->token.model)};
}

}  // namespace

CK_RV getMechanismList(ExportCall& call, CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList,
                       CK_ULONG_PTR pulCount) {
    if (CK_RV rv = call.requireNonNull(pulCount, "pulCount"); rv != CKR_OK) {
        return rv;
    }
    const std::vector<CK_MECHANISM_TYPE> types = listedMechanisms(viewOfSlot(call.state(), slotID));
    // A buffer too small deliberately leaves *pulCount as the caller set it (compatibility
    // register, entry 9): the count is
    // learnt only through the null-buffer call.
    const ListOutput<CK_MECHANISM_TYPE> output(call, pMechanismList, pulCount);
    if (auto answered = output.answerSizeOrShortage(types.size(), "mechanismCount")) {
        return *answered;
    }
    return output.fill(types);
}

CK_RV getMechanismInfo(ExportCall& call, CK_SLOT_ID slotID, CK_MECHANISM_TYPE type,
                       CK_MECHANISM_INFO_PTR pInfo) {
    if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) {
        return rv;
    }
    logInfo("C_GetMechanismInfo -- type : " + decimalText(type));
    const MechanismEntry* entry = findMechanism(type);
    if (entry == nullptr) {
        return call.reject(CKR_MECHANISM_INVALID,
                           "unsupported mechanism type=" + decimalText(type));
    }
    *pInfo = describeMechanism(*entry, viewOfSlot(call.state(), slotID));
    logInfo("C_GetMechanismInfo -- exit");
    return CKR_OK;
}
