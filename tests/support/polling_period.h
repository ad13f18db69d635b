// Test support: a shorter polling period for the device monitor for the life of a scope, so
// that a failing test cannot leave the fast period to the tests after it.
#pragma once

#include <chrono>

#include "slots/device_monitor.h"

class PollingPeriodOverride {
public:
    explicit PollingPeriodOverride(std::chrono::milliseconds period) {
        DeviceMonitor::setPollingPeriodForTesting(period);
    }
    ~PollingPeriodOverride() {
        DeviceMonitor::setPollingPeriodForTesting(std::chrono::milliseconds(1000));
    }
    PollingPeriodOverride(const PollingPeriodOverride&) = delete;
    PollingPeriodOverride& operator=(const PollingPeriodOverride&) = delete;
};
