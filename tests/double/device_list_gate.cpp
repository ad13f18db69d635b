// The device-list gate: lets a test hold ostrel_getConnectedDeviceList in the middle of a call.
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

}  // namespace devicedouble
