// The scripting store: the double's state, the operation frame, and the scripts of results and
// outputs.
#include "double_state.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#include "device/device_operations.h"

namespace devicedouble {
namespace detail {

namespace {

constexpr std::array<const char*, 6> kOperationsWithOutput = {
    "finalHash", "signHash", "encrypt", "decrypt", "ecdhDerive", "generateRamdomNumber",
};

template <std::size_t N>
bool contains(const std::array<const char*, N>& names, const std::string& name) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* candidate) { return name == candidate; });
}

}  // namespace

State& state() {
    static State* const instance = new State;
    return *instance;
}

void requireOperationName(const std::string& operation) {
    if (!device_operations::isName(operation)) {
        throw std::invalid_argument("device double: no operation named '" + operation + "'");
    }
}

Device& knownDevice(State& s, const std::string& deviceId) {
    auto found = s.devices.find(deviceId);
    if (found == s.devices.end()) {
        throw std::invalid_argument("device double: no device '" + deviceId + "' was added");
    }
    return found->second;
}

std::string toText(const char* value) {
    return value == nullptr ? std::string() : value;
}

Bytes toBytes(const unsigned char* data, int length) {
    if (data == nullptr || length <= 0)
        return {};
    return Bytes(data, data + length);
}

std::string fieldText(const char* field, std::size_t capacity) {
    const char* end = std::find(field, field + capacity, '\0');
    return std::string(field, end);
}

int clampedLength(std::int32_t length, std::size_t capacity) {
    if (length < 0)
        return 0;
    return static_cast<std::size_t>(length) > capacity ? static_cast<int>(capacity) : length;
}

bool storeField(unsigned char* field, std::size_t capacity, const Bytes& value) {
    if (value.size() > capacity)
        return false;
    std::fill(field, field + capacity, static_cast<unsigned char>(0));
    std::copy(value.begin(), value.end(), field);
    return true;
}

bool storeText(char* field, std::size_t capacity, const std::string& value) {
    if (value.size() >= capacity)
        return false;
    std::fill(field, field + capacity, '\0');
    std::copy(value.begin(), value.end(), field);
    return true;
}

// detail::state(), not the member state(): state_ is not bound yet.
Operation::Operation(const char* name, DeviceInstance instance)
    : lock_((detail::waitAtOperationGate(name), detail::state().mutex)), state_(detail::state()) {
    call_.operation = name;
    call_.instance = instance;
}

std::optional<int> Operation::scripted() {
    auto queued = state_.scriptedResults.find(call_.operation);
    if (queued != state_.scriptedResults.end() && !queued->second.empty()) {
        int code = queued->second.front();
        queued->second.pop_front();
        return code;
    }
    auto permanent = state_.permanentResults.find(call_.operation);
    if (permanent != state_.permanentResults.end())
        return permanent->second;
    return std::nullopt;
}

bool Operation::instanceIsLive() const {
    return state_.instances.count(reinterpret_cast<std::uintptr_t>(call_.instance)) != 0;
}

Instance* Operation::instance() {
    auto found = state_.instances.find(reinterpret_cast<std::uintptr_t>(call_.instance));
    return found == state_.instances.end() ? nullptr : &found->second;
}

Device* Operation::connectedDevice() {
    const auto& connected = state_.connected;
    if (std::find(connected.begin(), connected.end(), call_.deviceId) == connected.end()) {
        return nullptr;
    }
    auto found = state_.devices.find(call_.deviceId);
    return found == state_.devices.end() ? nullptr : &found->second;
}

std::optional<int> Operation::admit(const std::string* password, bool needsInstance) {
    auto script = scripted();
    if (script && *script != 0)
        return script;
    forced_ = script.has_value();
    if (needsInstance && !instanceIsLive()) {
        return forced_ ? 0 : kResultBadInstance;
    }
    target_ = connectedDevice();
    if (target_ == nullptr)
        return forced_ ? 0 : kResultDeviceFailure;
    if (password != nullptr && !forced_ && !passwordMatches(*target_, *password)) {
        return kResultWrongPin;
    }
    return std::nullopt;
}

bool Operation::passwordMatches(const Device& device, const std::string& password) const {
    return !password.empty() && password == device.userPin;
}

std::optional<Bytes> Operation::scriptedOutput() {
    auto queued = state_.scriptedOutputs.find(call_.operation);
    if (queued == state_.scriptedOutputs.end() || queued->second.empty())
        return std::nullopt;
    Bytes output = std::move(queued->second.front());
    queued->second.pop_front();
    return output;
}

Bytes Operation::counterBytes(const char* tag, std::size_t length) {
    std::uint64_t counter = ++state_.fakeCounter;
    Bytes seed(8);
    for (std::size_t i = 0; i < seed.size(); ++i) {
        seed[i] = static_cast<unsigned char>(counter >> (8 * i));
    }
    return mixBytes(tag, seed, length);
}

}  // namespace detail

using detail::state;

void reset() {
    auto& s = state();
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.devices.clear();
        s.connected.clear();
        s.scriptedResults.clear();
        s.permanentResults.clear();
        s.scriptedOutputs.clear();
        s.certificateInfo.clear();
        s.folders.clear();
        s.calls.clear();
        s.createInstanceYieldsNull = false;
        s.signatures.clear();
        s.plaintextOf.clear();
        s.fakeCounter = 0;
    }
    openDeviceListGate();
    openAllGates();
}

void scriptResult(const std::string& operation, int code, int times) {
    detail::requireOperationName(operation);
    if (times < 0 && times != kEveryCall) {
        throw std::invalid_argument("device double: times must be positive or kEveryCall");
    }
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (times == kEveryCall) {
        s.permanentResults[operation] = code;
        return;
    }
    auto& queue = s.scriptedResults[operation];
    queue.insert(queue.end(), static_cast<std::size_t>(times), code);
}

void clearScriptedResults(const std::string& operation) {
    detail::requireOperationName(operation);
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.scriptedResults.erase(operation);
    s.permanentResults.erase(operation);
}

void scriptOutput(const std::string& operation, const Bytes& output) {
    if (!detail::contains(detail::kOperationsWithOutput, operation)) {
        throw std::invalid_argument("device double: '" + operation + "' has no scriptable output");
    }
    // The module hands these operations fixed areas (64 bytes for a digest, 1024 for a signature
    // or a ciphertext); a longer script would only overrun the module's buffer.
    if (operation == "finalHash" && output.size() > 64) {
        throw std::length_error("device double: a digest has at most 64 bytes");
    }
    if ((operation == "signHash" || operation == "encrypt") && output.size() > 1024) {
        throw std::length_error("device double: an output has at most 1024 bytes");
    }
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.scriptedOutputs[operation].push_back(output);
}

void setCreateInstanceYieldsNull(bool yieldsNull) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.createInstanceYieldsNull = yieldsNull;
}

std::vector<DeviceInstance> liveInstances() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<DeviceInstance> result;
    for (const auto& entry : s.instances) {
        result.push_back(detail::handlePointer(entry.first));
    }
    return result;
}

std::size_t liveHashContextCount() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::size_t count = 0;
    for (const auto& entry : s.instances)
        count += entry.second.hashContexts.size();
    return count;
}

}  // namespace devicedouble
