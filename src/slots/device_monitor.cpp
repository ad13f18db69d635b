#include "slots/device_monitor.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "core/export_call.h"
#include "core/module_state.h"
#include "core/mutex.h"
#include "device/ostrel_device.h"
#include "log/log.h"
#include "platform/platform.h"

namespace {

constexpr std::int64_t kPollingPeriodMilliseconds = 1000;
std::atomic<std::int64_t> pollingPeriodMilliseconds{kPollingPeriodMilliseconds};

// The event names the first slot whichever device came or went: it only tells that the device
// population changed. Deliberate (compatibility register, entry 15); applications re-read the
// slot list.
constexpr std::uint32_t kEventSlot = 0x50000001;

bool isUserState(CK_STATE state) {
    return state == CKS_RO_USER_FUNCTIONS || state == CKS_RW_USER_FUNCTIONS;
}

// Logs out, in place, every user session whose device is no longer connected.
void demoteSessionsOfVanishedDevices(ModuleState& state,
                                     const std::vector<std::string>& connected) {
    MutexLock tables(state.tableMutex);
    for (const auto& entry : state.sessionTable.records()) {
        SessionRecord& session = *entry.second;
        const bool present = std::find(connected.begin(), connected.end(),
                                       session.token.serialNumber) != connected.end();
        const CK_STATE sessionState = session.state.load();
        if (present || !isUserState(sessionState)) {
            continue;
        }
        logInfo("Device disconnected, clearing userPassword");
        state.userPassword.clear();
        session.state.store(sessionState == CKS_RW_USER_FUNCTIONS ? CKS_RW_PUBLIC_SESSION
                                                                  : CKS_RO_PUBLIC_SESSION);
    }
}

}  // namespace

void DeviceMonitor::start(ModuleState& state) {
    if (deviceMonitorRunning_.load()) {
        logInfo("Monitor already running. Stopping old thread.");
        stopDeviceMonitor();
    } else if (thread_.joinable()) {
        // A thread that has not yet marked itself running, or that ended by itself, must still
        // be stopped and joined before it is replaced.
        stopDeviceMonitor();
    }
    deviceMonitorStopRequested_.exchange(false);
    platform::holdModuleLoaded();
    try {
        thread_ = std::thread(&DeviceMonitor::run, this, std::ref(state));
    } catch (...) {
        platform::releaseModuleHold();
        throw;
    }
}

void DeviceMonitor::stopDeviceMonitor() {
    if (stopAndJoin()) {
        logInfo("Monitor thread joined (stopDeviceMonitor).");
    }
}

void DeviceMonitor::stopBeforeUnload() {
    static_cast<void>(stopAndJoin());
}

bool DeviceMonitor::stopAndJoin() {
    deviceMonitorStopRequested_.exchange(true);
    {
        // Taking the lock before notifying closes the gap between a waiter's test of the stop
        // request and the start of its wait, in which a bare notify would be lost.
        MutexLock events(eventMutex_);
        ++stopGeneration_;
    }
    eventCondition_.notify_all();
    bool joined = false;
    if (thread_.joinable() && thread_.get_id() != std::this_thread::get_id()) {
        thread_.join();
        thread_ = std::thread();
        platform::releaseModuleHold();
        joined = true;
    }
    deviceMonitorRunning_.exchange(false);
    return joined;
}

void DeviceMonitor::run(ModuleState& state) {
    try {
        logInfo("Session monitor thread started.");
        deviceMonitorRunning_.exchange(true);
        if (!deviceMonitorStopRequested_.load()) {
            runCycles(state);
        }
        logInfo("Session monitor thread stopped.");
    } catch (...) {
        // An exception must not end the process from a thread of ours.
        static_cast<void>(answerForCurrentException("Session monitor thread"));
    }
    deviceMonitorRunning_.exchange(false);
}

void DeviceMonitor::runCycles(ModuleState& state) {
    std::size_t previousCount = 0;
    for (;;) {
        const std::vector<std::string> connected =
            ostrel_getConnectedDeviceList(false, state.deviceInstance.load());
        demoteSessionsOfVanishedDevices(state, connected);
        if (connected.size() != previousCount) {
            logInfo("Slot event: device count changed from " + decimalText(previousCount) + " to " +
                    decimalText(connected.size()));
            raiseSlotEvent();
            previousCount = connected.size();
        }
        sleepOneCycle();
        if (deviceMonitorStopRequested_.load()) {
            return;
        }
    }
}

void DeviceMonitor::raiseSlotEvent() {
    {
        MutexLock events(eventMutex_);
        eventSlot_.store(kEventSlot);
        eventPending_.exchange(true);
    }
    eventCondition_.notify_all();
}

void DeviceMonitor::sleepOneCycle() {
    MutexLock events(eventMutex_);
    events.waitFor(eventCondition_, std::chrono::milliseconds(pollingPeriodMilliseconds.load()),
                   [this] { return deviceMonitorStopRequested_.load(); });
}

void DeviceMonitor::setPollingPeriodForTesting(std::chrono::milliseconds period) {
    pollingPeriodMilliseconds.store(period.count());
}

CK_RV DeviceMonitor::waitForSlotEvent(ExportCall& call, CK_FLAGS flags, CK_SLOT_ID_PTR pSlot) {
    if (CK_RV rv = call.requireNonNull(pSlot, "pSlot"); rv != CKR_OK) {
        return rv;
    }
    if ((flags & CKF_DONT_BLOCK) != 0) {
        if (!eventPending_.exchange(false)) {
            return call.reject(CKR_NO_EVENT, "no event pending (non-blocking)");
        }
        *pSlot = eventSlot_.load();
        logInfo("C_WaitForSlotEvent: non-blocking, returning slot " + decimalText(*pSlot));
        return CKR_OK;
    }

    // The wait must not keep C_Finalize out: it is C_Finalize that ends it.
    call.releaseModuleLock();
    MutexLock events(eventMutex_);
    const std::uint64_t generationAtStart = stopGeneration_;
    // The predicate runs with eventMutex_ held (the wait takes it back before each test).
    events.wait(eventCondition_, [&]() NO_THREAD_SAFETY_ANALYSIS {
        return eventPending_.load() || stopGeneration_ != generationAtStart ||
               deviceMonitorStopRequested_.load();
    });
    // A stop wins over a pending event, which then stays pending for the next initialisation.
    if (stopGeneration_ != generationAtStart || deviceMonitorStopRequested_.load()) {
        logError("C_WaitForSlotEvent: monitor stopped, returning CKR_CRYPTOKI_NOT_INITIALIZED");
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    }
    eventPending_.exchange(false);
    *pSlot = eventSlot_.load();
    logInfo("C_WaitForSlotEvent: blocking, returning slot " + decimalText(*pSlot));
    return CKR_OK;
}
