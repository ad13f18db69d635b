// The call log: how each operation's arguments are recorded, and how tests read them back.
#include "double_state.h"

namespace devicedouble {
namespace detail {

Operation::~Operation() {
    call_.finishedAt = std::chrono::steady_clock::now();
    state_.calls.push_back(std::move(call_));
}

std::string Operation::device(const char* deviceId) {
    isNull(deviceId, "deviceId");
    call_.deviceId = toText(deviceId);
    return call_.deviceId;
}

std::string Operation::text(const char* value, const char* argumentName) {
    isNull(value, argumentName);
    call_.texts.push_back(toText(value));
    return call_.texts.back();
}

// Reads exactly `length` bytes, as the real device would: a length larger than the caller's
// buffer is the caller's fault and shows up under AddressSanitizer here.
Bytes Operation::bytes(const unsigned char* data, int length, const char* argumentName) {
    isNull(data, argumentName);
    call_.bytes.push_back(toBytes(data, length));
    return call_.bytes.back();
}

std::int64_t Operation::number(std::int64_t value) {
    call_.numbers.push_back(value);
    return value;
}

bool Operation::isNull(const void* pointer, const char* argumentName) {
    if (pointer != nullptr)
        return false;
    call_.nullArguments.emplace_back(argumentName);
    return true;
}

}  // namespace detail

using detail::state;

std::vector<Call> calls() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.calls;
}

std::vector<Call> calls(const std::string& operation) {
    detail::requireOperationName(operation);
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::vector<Call> result;
    for (const auto& call : s.calls) {
        if (call.operation == operation)
            result.push_back(call);
    }
    return result;
}

std::size_t callCount(const std::string& operation) {
    detail::requireOperationName(operation);
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::size_t count = 0;
    for (const auto& call : s.calls) {
        if (call.operation == operation)
            ++count;
    }
    return count;
}

void clearCalls() {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.calls.clear();
}

}  // namespace devicedouble
