// How long an operation takes, as operations per second: run it for a while after a warm-up,
// on one thread or on several at once.
#pragma once

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <thread>
#include <vector>

using Operation = std::function<void()>;

// Operations per second of `operation` repeated for `duration` (after a tenth of it as warm-up).
inline double operationsPerSecond(const Operation& operation,
                                  std::chrono::duration<double> duration) {
    using Clock = std::chrono::steady_clock;
    const auto warmUpEnd = Clock::now() + duration / 10;
    while (Clock::now() < warmUpEnd) {
        operation();
    }
    std::size_t count = 0;
    const auto start = Clock::now();
    const auto end = start + duration;
    auto now = start;
    // The clock is read every few operations only: some operations take well under a microsecond.
    while (now < end) {
        for (int i = 0; i < 16; ++i) {
            operation();
        }
        count += 16;
        now = Clock::now();
    }
    return static_cast<double>(count) / std::chrono::duration<double>(now - start).count();
}

// Operations per second of several threads together, each running its own operation.
inline double operationsPerSecond(const std::vector<Operation>& perThread,
                                  std::chrono::duration<double> duration) {
    std::vector<double> rates(perThread.size());
    std::vector<std::exception_ptr> failures(perThread.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < perThread.size(); ++i) {
        threads.emplace_back([&, i] {
            try {
                rates[i] = operationsPerSecond(perThread[i], duration);
            } catch (...) {
                failures[i] = std::current_exception();
            }
        });
    }
    double total = 0;
    for (std::size_t i = 0; i < threads.size(); ++i) {
        threads[i].join();
        total += rates[i];
    }
    for (const std::exception_ptr& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
    return total;
}
