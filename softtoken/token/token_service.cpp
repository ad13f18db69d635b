#include "token/token_service.h"

#include "common/token_error.h"
#include "store/fault_writes.h"

namespace softtoken {

namespace {

// Every device operation except ostrel_releaseInstance, named without the ostrel_ prefix.
const char* const kFaultableOperations[] = {
    "createInstance",
    "getConnectedDeviceList",
    "getTokenInfo",
    "initDevice",
    "validatePassword",
    "changeUserPassword",
    "getKeyPairList",
    "getCertificateList",
    "generateKeyPair",
    "deleteKeyPair",
    "deleteCertificate",
    "updateKeyPairDetails",
    "importCertificate",
    "importPfx",
    "getFilesWithExtensionsAndConvertDER",
    "getCertificateDetails",
    "getCertificateSubject",
    "getCertificateIssuer",
    "getCertificateSerialDER",
    "initHash",
    "updateHash",
    "finalHash",
    "signHash",
    "verifySignatureHash",
    "encrypt",
    "decrypt",
    "ecdhDerive",
    "generateRamdomNumber",
};

}  // namespace

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

bool isFaultableOperation(const std::string& name) {
    for (const char* operation : kFaultableOperations) {
        if (name == operation) {
            return true;
        }
    }
    return false;
}

std::string faultableOperationNames() {
    std::string names;
    for (const char* operation : kFaultableOperations) {
        if (!names.empty()) {
            names += ", ";
        }
        names += operation;
    }
    return names;
}

}  // namespace softtoken
