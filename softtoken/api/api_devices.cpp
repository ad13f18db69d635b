// Instances, the device list, token information and device preparation.
#include "api/instance.h"

using namespace softtoken;

namespace {

const char kDeviceName[] = "Ostrel software token";
const char kManufacturer[] = "ostrel-token";
const char kHardwareVersion[] = "1.0";

TokenInfo describe(const Snapshot& snapshot, const DeviceRecord& device) {
    TokenInfo info;
    info.deviceName = kDeviceName;
    info.manufacturer = kManufacturer;
    info.hardwareVersion = kHardwareVersion;
    if (device.blank) {
        return info;  // an empty serial number tells the module: no usable token
    }
    info.serialNumber = device.deviceId;
    info.label = device.label;
    info.model = device.model;
    info.firmwareVersion = device.firmware;
    info.userPinChanged = device.pinChanged;
    info.pinRetryCount = device.retriesLeft;
    info.maximumPinRetries = device.retriesMax;
    int used = static_cast<int>(snapshot.objectCount(device.deviceId));
    info.freeObjectSpace = device.capacity > used ? device.capacity - used : 0;
    return info;
}

}  // namespace

void ostrel_createInstance(DeviceInstance* instance) {
    if (instance == nullptr) {
        return;
    }
    *instance = nullptr;
    guarded([&] {
        OperationFrame frame;
        // A store that cannot be opened means the library cannot start.
        if (int result = frame.begin("createInstance"); result != kOk) {
            return result;
        }
        *instance = makeInstance();
        return kOk;
    });
}

void ostrel_releaseInstance(DeviceInstance instance) {
    guarded([&] {
        releaseInstance(instance);
        return kOk;
    });
}

std::vector<std::string> ostrel_getConnectedDeviceList(bool, DeviceInstance) {
    return guardedValue(
        [] {
            OperationFrame frame;
            if (frame.begin("getConnectedDeviceList") != kOk) {
                return std::vector<std::string>();
            }
            return frame.snapshot->pluggedInOrder;
        },
        std::vector<std::string>());
}

TokenInfo ostrel_getTokenInfo(const char* deviceId, DeviceInstance) {
    return guardedValue(
        [&] {
            OperationFrame frame;
            if (frame.begin("getTokenInfo") != kOk) {
                return TokenInfo();
            }
            const DeviceRecord* device = frame.snapshot->findDevice(text(deviceId));
            if (device == nullptr || !device->plugged()) {
                return TokenInfo();
            }
            return describe(*frame.snapshot, *device);
        },
        TokenInfo());
}

int ostrel_initDevice(const char* deviceId, bool, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("initDevice"); result != kOk) {
            return result;
        }
        const DeviceRecord* device = nullptr;
        return TokenService::findToken(*frame.snapshot, text(deviceId), true, &device);
    });
}
