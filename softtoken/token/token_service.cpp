#include "token/token_service.h"

#include "common/token_error.h"
#include "device/device_operations.h"
#include "store/fault_writes.h"

namespace softtoken {

namespace {}  // namespace

TokenService::TokenService(std::string storeFolder)
    : store_(std::move(storeFolder)), pins_(store_) {}

int TokenService::findToken(const Snapshot& snapshot, const std::string& deviceId,
                            bool mustBePlugged, const DeviceRecord** device) {
    const DeviceRecord* found = snapshot.findDevice(deviceId);
    if (found == nullptr || (mustBePlugged && !found->plugged())) {
        return kDeviceUnreachable;
    }
    if (found->blank) {
        return kBlankDevice;
    }
    *device = found;
    return kOk;
}

int TokenService::injectedFault(const Snapshot& snapshot, const char* operation) {
    if (snapshot.faults.empty() || snapshot.faults.count(operation) == 0) {
        return 0;
    }
    int code = 0;
    bool fired = false;
    int result = store_.write(
        [&](Database& database) { return takeFault(database, operation, &code, &fired); });
    return result == kOk && fired ? code : 0;
}

void TokenService::shutDown() {
    pins_.clear();
    keys_.clear();
    store_.close();
}

// Every device operation but ostrel_releaseInstance, which answers nothing.
bool isFaultableOperation(const std::string& name) {
    return name != "releaseInstance" && device_operations::isName(name);
}

std::string faultableOperationNames() {
    std::string names;
    for (std::string_view operation : device_operations::kNames) {
        if (operation == "releaseInstance") {
            continue;
        }
        if (!names.empty()) {
            names += ", ";
        }
        names += operation;
    }
    return names;
}

}  // namespace softtoken
