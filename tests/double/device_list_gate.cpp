// The gates: the device-list gate holds ostrel_getConnectedDeviceList in the middle of a call,
// after it was recorded; the operation gates hold any operation before it does anything.
#include "double_state.h"

namespace devicedouble {
namespace detail {

void waitAtDeviceListGate() {
    Gate& gate = state().gate;
    std::unique_lock<std::mutex> lock(gate.mutex);
    if (!gate.closed)
        return;
    std::uint64_t arrivedBefore = gate.openings;
    ++gate.waiting;
    gate.changed.notify_all();
    gate.changed.wait(lock, [&] { return gate.openings != arrivedBefore; });
    --gate.waiting;
}

void waitAtOperationGate(const char* operation) {
    OperationGates& gates = state().operationGates;
    std::unique_lock<std::mutex> lock(gates.mutex);
    if (gates.closed.count(operation) == 0)
        return;
    ++gates.waiting[operation];
    gates.changed.notify_all();
    gates.changed.wait(lock, [&] { return gates.closed.count(operation) == 0; });
    --gates.waiting[operation];
}

}  // namespace detail

void closeDeviceListGate() {
    detail::Gate& gate = detail::state().gate;
    std::lock_guard<std::mutex> lock(gate.mutex);
    gate.closed = true;
}

void openDeviceListGate() {
    detail::Gate& gate = detail::state().gate;
    {
        std::lock_guard<std::mutex> lock(gate.mutex);
        if (!gate.closed)
            return;
        gate.closed = false;
        ++gate.openings;
    }
    gate.changed.notify_all();
}

bool waitForBlockedDeviceListCalls(std::size_t count, std::chrono::milliseconds timeout) {
    detail::Gate& gate = detail::state().gate;
    std::unique_lock<std::mutex> lock(gate.mutex);
    return gate.changed.wait_for(lock, timeout, [&] { return gate.waiting >= count; });
}

void closeGate(const std::string& operation) {
    detail::requireOperationName(operation);
    detail::OperationGates& gates = detail::state().operationGates;
    std::lock_guard<std::mutex> lock(gates.mutex);
    gates.closed.insert(operation);
}

void openGate(const std::string& operation) {
    detail::OperationGates& gates = detail::state().operationGates;
    {
        std::lock_guard<std::mutex> lock(gates.mutex);
        gates.closed.erase(operation);
    }
    gates.changed.notify_all();
}

void openAllGates() {
    detail::OperationGates& gates = detail::state().operationGates;
    {
        std::lock_guard<std::mutex> lock(gates.mutex);
        gates.closed.clear();
    }
    gates.changed.notify_all();
}

bool waitForBlockedCalls(const std::string& operation, std::size_t count,
                         std::chrono::milliseconds timeout) {
    detail::OperationGates& gates = detail::state().operationGates;
    std::unique_lock<std::mutex> lock(gates.mutex);
    return gates.changed.wait_for(lock, timeout, [&] { return gates.waiting[operation] >= count; });
}

}  // namespace devicedouble
