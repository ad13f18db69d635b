// Test support: bounded polling for something that another thread makes true.
#pragma once

#include <chrono>
#include <thread>

template <typename Condition>
bool waitUntil(Condition condition,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(3000)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}
