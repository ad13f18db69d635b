// Devices: the connected list, token information, PIN checks, and the instance lifecycle.
#include <algorithm>
#include <stdexcept>

#include "double_state.h"

namespace devicedouble {

using detail::Device;
using detail::Operation;
using detail::state;

namespace {

void removeConnected(detail::State& s, const std::string& deviceId) {
    auto& connected = s.connected;
    connected.erase(std::remove(connected.begin(), connected.end(), deviceId), connected.end());
}

// The tries-left counter that a check of this user kind uses; the user's is the live count the
// device also reports in its TokenInfo.
int& retriesOf(Device& device, int userKind) {
    return userKind == 2 ? device.soRetriesLeft : device.info.pinRetryCount;
}

void restoreRetries(Device& device, int userKind) {
    if (device.info.maximumPinRetries > 0) {
        retriesOf(device, userKind) = device.info.maximumPinRetries;
    }
}

}  // namespace

void addDevice(const TokenInfo& info, bool connected) {
    if (info.serialNumber.empty()) {
        throw std::invalid_argument(
            "device double: a TokenInfo without a serial needs an explicit device identifier");
    }
    addDevice(info.serialNumber, info, connected);
}

void addDevice(const std::string& deviceId, const TokenInfo& info, bool connected) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Device device;
    device.info = info;
    device.soRetriesLeft = info.maximumPinRetries > 0 ? info.maximumPinRetries : 10;
    s.devices[deviceId] = device;
    removeConnected(s, deviceId);
    if (connected)
        s.connected.push_back(deviceId);
}

void addDevice(const std::string& serial, const std::string& label) {
    addDevice(makeTokenInfo(serial, label));
}

void setConnectedDevices(const std::vector<std::string>& deviceIds) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    for (const auto& id : deviceIds)
        detail::knownDevice(s, id);
    s.connected = deviceIds;
}

std::vector<std::string> connectedDevices() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.connected;
}

void unplug(const std::string& deviceId) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId);
    removeConnected(s, deviceId);
}

void plug(const std::string& deviceId) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId);
    if (std::find(s.connected.begin(), s.connected.end(), deviceId) == s.connected.end()) {
        s.connected.push_back(deviceId);
    }
}

void setTokenInfo(const std::string& deviceId, const TokenInfo& info) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId).info = info;
}

TokenInfo tokenInfo(const std::string& deviceId) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return detail::knownDevice(s, deviceId).info;
}

void setPin(const std::string& deviceId, const std::string& pin, int userKind) {
    if (userKind != 1 && userKind != 2) {
        throw std::invalid_argument("device double: user kind is 1 (user) or 2 (SO)");
    }
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Device& device = detail::knownDevice(s, deviceId);
    (userKind == 1 ? device.userPin : device.soPin) = pin;
}

std::string pin(const std::string& deviceId, int userKind) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    Device& device = detail::knownDevice(s, deviceId);
    return userKind == 2 ? device.soPin : device.userPin;
}

void setRetryCount(const std::string& deviceId, int retriesLeft) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId).info.pinRetryCount = retriesLeft;
}

}  // namespace devicedouble

using devicedouble::detail::Device;
using devicedouble::detail::Operation;
namespace dd = devicedouble;
using dd::restoreRetries;
using dd::retriesOf;

void ostrel_createInstance(DeviceInstance* instance) {
    Operation op("createInstance", nullptr);
    if (op.isNull(instance, "instance"))
        return;
    auto script = op.scripted();
    auto& s = op.state();
    if (s.createInstanceYieldsNull || (script && *script != 0)) {
        *instance = nullptr;
        return;
    }
    std::uintptr_t handle = s.nextHandle;
    s.nextHandle += 0x10;
    s.instances[handle];
    *instance = dd::detail::handlePointer(handle);
    op.call().instance = *instance;
    dd::detail::addEnvironmentDevices(s);
}

void ostrel_releaseInstance(DeviceInstance instance) {
    Operation op("releaseInstance", instance);
    // Its hash contexts go with it: contexts never finalised are released here.
    op.state().instances.erase(reinterpret_cast<std::uintptr_t>(instance));
}

std::vector<std::string> ostrel_getConnectedDeviceList(bool flag, DeviceInstance instance) {
    bool failed = false;
    {
        Operation op("getConnectedDeviceList", instance);
        op.number(flag);
        auto script = op.scripted();
        failed = (script && *script != 0) || !op.instanceIsLive();
    }
    dd::detail::waitAtDeviceListGate();
    auto& s = dd::detail::state();
    std::lock_guard<std::mutex> lock(s.mutex);
    // The instance may have been released while this call waited at the gate.
    if (failed || s.instances.count(reinterpret_cast<std::uintptr_t>(instance)) == 0)
        return {};
    return s.connected;
}

TokenInfo ostrel_getTokenInfo(const char* deviceId, DeviceInstance instance) {
    Operation op("getTokenInfo", instance);
    op.device(deviceId);
    auto script = op.scripted();
    if ((script && *script != 0) || !op.instanceIsLive())
        return {};
    const Device* device = op.connectedDevice();
    return device == nullptr ? TokenInfo{} : device->info;
}

int ostrel_initDevice(const char* deviceId, bool flag, DeviceInstance instance) {
    Operation op("initDevice", instance);
    op.device(deviceId);
    op.number(flag);
    if (auto script = op.scripted())
        return *script;
    if (!op.instanceIsLive())
        return dd::kResultBadInstance;
    return op.connectedDevice() == nullptr ? dd::kResultDeviceFailure : 0;
}

int ostrel_validatePassword(const char* deviceId, const char* pin, int userKind, int* retryCount,
                            DeviceInstance instance) {
    Operation op("validatePassword", instance);
    op.device(deviceId);
    std::string given = op.text(pin, "pin");
    op.number(userKind);
    bool noRetryCount = op.isNull(retryCount, "retryCount");
    Device* device = op.instanceIsLive() ? op.connectedDevice() : nullptr;
    bool knownKind = userKind == 1 || userKind == 2;
    auto report = [&]() {
        if (noRetryCount)
            return;
        *retryCount = device != nullptr && knownKind ? retriesOf(*device, userKind) : 0;
    };
    if (auto script = op.scripted()) {
        report();
        return *script;
    }
    if (!op.instanceIsLive())
        return dd::kResultBadInstance;
    if (device == nullptr)
        return dd::kResultDeviceFailure;
    if (noRetryCount || !knownKind)
        return dd::kResultBadArgument;
    int& retries = retriesOf(*device, userKind);
    if (retries <= 0) {
        report();
        return dd::kResultPinLocked;
    }
    if (!given.empty() && given == (userKind == 1 ? device->userPin : device->soPin)) {
        restoreRetries(*device, userKind);
        report();
        return 0;
    }
    --retries;
    report();
    return dd::kResultWrongPin;
}

bool ostrel_changeUserPassword(const char* deviceId, const char* oldPin, const char* newPin,
                               int* failureCount, bool flag1, bool flag2, DeviceInstance instance) {
    Operation op("changeUserPassword", instance);
    op.device(deviceId);
    std::string oldText = op.text(oldPin, "oldPin");
    std::string newText = op.text(newPin, "newPin");
    bool noFailureCount = op.isNull(failureCount, "failureCount");
    op.number(flag1);
    op.number(flag2);
    Device* device = op.instanceIsLive() ? op.connectedDevice() : nullptr;
    auto report = [&]() {
        if (!noFailureCount)
            *failureCount = device != nullptr ? device->info.pinRetryCount : 0;
    };
    auto script = op.scripted();
    if (script && *script != 0) {
        report();
        return false;
    }
    if (device == nullptr || newText.empty()) {
        report();
        return false;
    }
    if (script) {  // scripted success: the new PIN holds whatever the old one was
        device->userPin = newText;
        report();
        return true;
    }
    if (device->info.pinRetryCount <= 0) {
        report();
        return false;
    }
    if (!oldText.empty() && oldText == device->userPin) {
        device->userPin = newText;
        restoreRetries(*device, 1);
        report();
        return true;
    }
    --device->info.pinRetryCount;
    report();
    return false;
}
