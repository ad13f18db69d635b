// C_GetSlotList: the only operation that asks which devices are connected and rebuilds the
// slot table.
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "core/list_output.h"
#include "core/mutex.h"
#include "device/ostrel_device.h"
#include "log/log.h"
#include "slots/slot_operations.h"
#include "slots/slot_table.h"

namespace {

// Asks the device library, with no module lock held, for the token of every listed device and
// keeps those that hold one (a non-empty serial number). Order and repeats are the list's.
std::vector<SlotTable::Entry> readTokens(const std::vector<std::string>& devices,
                                         DeviceInstance instance) {
    std::vector<SlotTable::Entry> tokens;
    for (const std::string& deviceId : devices) {
        TokenInfo token = ostrel_getTokenInfo(deviceId.c_str(), instance);
        if (!token.serialNumber.empty()) {
            tokens.push_back(SlotTable::Entry{deviceId, std::move(token)});
        }
    }
    return tokens;
}

void clearSlotTable(ModuleState& state) {
    MutexLock tables(state.tableMutex);
    state.slotTable.clear();
}

}  // namespace

// tokenPresent is not an argument here: the list always holds only slots with a token.
CK_RV getSlotList(ExportCall& call, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount) {
    if (CK_RV rv = call.requireNonNull(pulCount, "pulCount"); rv != CKR_OK) {
        return rv;
    }
    ModuleState& state = call.state();
    const std::vector<std::string> devices = ostrel_getConnectedDeviceList(false, call.instance());
    if (devices.empty()) {
        clearSlotTable(state);
        logError("No valid token found");
    }
    // The size query deliberately counts connected devices while the fill below counts tokens
    // (compatibility register, entry 7):
    // a buffer sized by it always has room. It leaves the table as it was.
    const ListOutput<CK_SLOT_ID> output(call, pSlotList, pulCount);
    if (auto answered = output.answerSizeOrShortage(devices.size(), "slotCount")) {
        return *answered;
    }

    std::vector<SlotTable::Entry> tokens = readTokens(devices, call.instance());
    const std::size_t listed = tokens.size();
    {
        MutexLock tables(state.tableMutex);
        state.slotTable.replace(tokens);
    }
    // Deliberate (compatibility register, entry 8): slot IDs are numbered in device-list order,
    // while lookups count positions in
    // ascending identifier order; a repeated identifier still gets its own slot ID here.
    std::vector<CK_SLOT_ID> slotIds(listed);
    for (std::size_t k = 0; k < listed; ++k) {
        slotIds[k] = kFirstSlotId + static_cast<CK_SLOT_ID>(k);
    }
    return output.fill(slotIds);
}
