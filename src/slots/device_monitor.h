// The device monitor: a background thread that asks the device library once a second which
// devices are connected, logs out the user sessions of devices that went away, and raises the
// slot events that C_WaitForSlotEvent hands to applications.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <thread>

#include "core/mutex.h"
#include "cryptoki/cryptoki.h"

struct ModuleState;
class ExportCall;

class DeviceMonitor {
public:
    // Stops a monitor left running, then starts a fresh thread over the module's state.
    void start(ModuleState& state);
    // Asks the thread to end, wakes every slot-event waiter, and joins the thread.
    void stopDeviceMonitor();
    // The same without a log line, for when the module's code is about to be unloaded.
    void stopBeforeUnload();
    bool isRunning() const { return deviceMonitorRunning_.load(); }
    // Whether a thread is still to be joined.
    bool holdsThread() const { return thread_.joinable(); }

    CK_RV waitForSlotEvent(ExportCall& call, CK_FLAGS flags, CK_SLOT_ID_PTR pSlot);

    // Shortens the one-second polling period so that tests can make the monitor race the
    // application threads many times; never used by the module itself.
    static void setPollingPeriodForTesting(std::chrono::milliseconds period);

private:
    void run(ModuleState& state);
    void runCycles(ModuleState& state);
    void raiseSlotEvent();
    // Sleeps for one polling period, or less when a stop is requested.
    void sleepOneCycle();
    // Requests the stop and joins the thread; true when a thread was joined.
    bool stopAndJoin();

    std::atomic<bool> deviceMonitorRunning_{false};
    std::atomic<bool> deviceMonitorStopRequested_{false};
    std::atomic<bool> eventPending_{false};
    std::atomic<std::uint32_t> eventSlot_{0};

    Mutex eventMutex_;
    std::condition_variable eventCondition_;
    // Counts stop requests, so that a waiter learns of a C_Finalize even when a C_Initialize
    // has already cleared the stop request again before it wakes.
    std::uint64_t stopGeneration_ GUARDED_BY(eventMutex_) = 0;

    // Touched only by C_Initialize and C_Finalize, which run alone, and by the unload handler.
    // While it holds a thread, the module is held loaded (platform::holdModuleLoaded).
    std::thread thread_;
};
