// Sessions closed by one thread while their own threads keep calling on them, with the device
// monitor running: no call may act on a session after its close returned.
//
// How "acting after the close" is seen: each worker has a token of its own with a PIN of its
// own, so every login of that worker reaches the device (the module's kept PIN never matches)
// and the device calls on that token are the worker's. Handles are never reused here (the
// session with the largest handle is never closed), so a close names one session for good.
// After a close of a worker's session returned, and before the worker opened its next session,
// no PIN check may reach that worker's token: only a login on the closed session could make one.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/polling_period.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace {

using Clock = std::chrono::steady_clock;
constexpr int kWorkers = 4;
constexpr std::size_t kCloses = 300;

struct Opened {
    CK_SESSION_HANDLE handle;
    int worker;
    Clock::time_point before;  // taken just before C_OpenSession
};

struct Closed {
    CK_SESSION_HANDLE handle;
    Clock::time_point returned;  // taken just after C_CloseSession answered CKR_OK
};

struct Shared {
    std::mutex mutex;
    std::vector<Opened> opened;             // every session, in opening order
    std::map<CK_SESSION_HANDLE, int> open;  // handle -> worker, still open
    std::vector<Closed> closed;
    std::atomic<int> unexpected{0};
};

std::string serialOf(int worker) {
    return "RACE" + std::to_string(worker);
}
std::string pinOf(int worker) {
    return "pin-of-worker-" + std::to_string(worker);
}

void expectOneOf(Shared& shared, CK_RV rv, std::initializer_list<CK_RV> allowed) {
    if (std::find(allowed.begin(), allowed.end(), rv) == allowed.end()) {
        ++shared.unexpected;
        ADD_FAILURE() << "unexpected result 0x" << std::hex << rv;
    }
}

void worker(Shared& shared, int index, const std::atomic<bool>& stop) {
    const CK_SLOT_ID slot = 0x50000001 + static_cast<CK_SLOT_ID>(index);
    std::string pin = pinOf(index);
    CK_SESSION_HANDLE session = 0;
    while (!stop.load()) {
        if (session == 0) {
            std::lock_guard<std::mutex> lock(shared.mutex);
            const Clock::time_point before = Clock::now();
            // Opened under the lock, so that the closer never sees a handle before its record.
            expectOneOf(shared,
                        C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                      &session),
                        {CKR_OK});
            shared.opened.push_back({session, index, before});
            shared.open[session] = index;
        }
        const CK_RV login =
            C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()),
                    static_cast<CK_ULONG>(pin.size()));
        expectOneOf(shared, login,
                    {CKR_OK, CKR_USER_ALREADY_LOGGED_IN, CKR_USER_ANOTHER_ALREADY_LOGGED_IN,
                     CKR_SESSION_HANDLE_INVALID});
        const CK_RV logout = C_Logout(session);
        expectOneOf(shared, logout, {CKR_OK, CKR_USER_NOT_LOGGED_IN, CKR_SESSION_HANDLE_INVALID});
        if (login == CKR_SESSION_HANDLE_INVALID || logout == CKR_SESSION_HANDLE_INVALID) {
            session = 0;  // closed by the closer: open the next one
        }
    }
}

// Closes a random open session other than the newest, so that no handle is ever given again.
void closer(Shared& shared, const std::atomic<bool>& stop) {
    std::mt19937 random(12345);
    while (!stop.load() && shared.closed.size() < kCloses) {
        CK_SESSION_HANDLE victim = 0;
        {
            std::lock_guard<std::mutex> lock(shared.mutex);
            if (shared.open.size() >= 2) {
                auto pick = shared.open.begin();
                std::advance(pick, random() % (shared.open.size() - 1));
                victim = pick->first;
                shared.open.erase(pick);
            }
        }
        if (victim == 0) {
            std::this_thread::yield();
            continue;
        }
        const CK_RV rv = C_CloseSession(victim);
        const Clock::time_point returned = Clock::now();
        expectOneOf(shared, rv, {CKR_OK});
        std::lock_guard<std::mutex> lock(shared.mutex);
        shared.closed.push_back({victim, returned});
    }
}

// PIN checks on a worker's token after the close of its session returned and before the worker
// began to open its next session.
std::size_t checksAfterClose(const Shared& shared, const std::vector<dd::Call>& pinChecks) {
    std::size_t violations = 0;
    for (const Closed& close : shared.closed) {
        const auto session =
            std::find_if(shared.opened.begin(), shared.opened.end(),
                         [&](const Opened& opened) { return opened.handle == close.handle; });
        const int owner = session->worker;
        const auto next = std::find_if(session + 1, shared.opened.end(), [&](const Opened& opened) {
            return opened.worker == owner;
        });
        const Clock::time_point until =
            next == shared.opened.end() ? Clock::time_point::max() : next->before;
        violations += static_cast<std::size_t>(
            std::count_if(pinChecks.begin(), pinChecks.end(), [&](const dd::Call& call) {
                return call.deviceId == serialOf(owner) && call.finishedAt > close.returned &&
                       call.finishedAt < until;
            }));
    }
    return violations;
}

TEST(CloseRaceStress, NoCallActsOnASessionAfterItsCloseReturned) {
    LogCapture log(2);
    dd::reset();
    for (int index = 0; index < kWorkers; ++index) {
        dd::addDevice(serialOf(index), "Race " + std::to_string(index));
        dd::setPin(serialOf(index), pinOf(index));
    }
    const PollingPeriodOverride fastPolling(std::chrono::milliseconds(2));
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    CK_SLOT_ID slots[kWorkers];
    CK_ULONG count = kWorkers;
    ASSERT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
    ASSERT_EQ(count, static_cast<CK_ULONG>(kWorkers));

    Shared shared;
    std::atomic<bool> stop{false};
    std::vector<std::thread> workers;
    for (int index = 0; index < kWorkers; ++index) {
        workers.emplace_back([&shared, &stop, index] { worker(shared, index, stop); });
    }
    std::thread closing([&] { closer(shared, stop); });
    const bool enough = waitUntil(
        [&] {
            std::lock_guard<std::mutex> lock(shared.mutex);
            return shared.closed.size() >= kCloses;
        },
        std::chrono::seconds(60));
    stop = true;
    closing.join();
    for (auto& thread : workers) {
        thread.join();
    }

    EXPECT_TRUE(enough);
    EXPECT_EQ(shared.unexpected.load(), 0);
    EXPECT_EQ(checksAfterClose(shared, dd::calls("validatePassword")), 0u);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
}

}  // namespace
