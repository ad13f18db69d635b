// Several application threads, each with sessions of its own, while the monitor runs and devices
// come and go. Run under ThreadSanitizer and AddressSanitizer: the point is that nothing races,
// crashes or deadlocks; every answer must still be one that the call can legitimately give.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/polling_period.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace {

constexpr int kWorkers = 4;
// The monitor polls every few milliseconds here, so that its walk over the sessions meets the
// workers' calls many times.
constexpr auto kFastPolling = std::chrono::milliseconds(2);
constexpr std::size_t kMonitorCycles = 60;

struct Outcome {
    std::atomic<int> unexpected{0};
    std::atomic<int> rounds{0};
};

void expectOneOf(Outcome& outcome, CK_RV rv, std::initializer_list<CK_RV> allowed) {
    if (std::set<CK_RV>(allowed).count(rv) == 0) {
        ++outcome.unexpected;
        ADD_FAILURE() << "unexpected result 0x" << std::hex << rv;
    }
}

void refreshSlots(Outcome& outcome) {
    CK_SLOT_ID slots[4];
    CK_ULONG count = 4;
    expectOneOf(outcome, C_GetSlotList(CK_TRUE, slots, &count), {CKR_OK});
}

// Handles the workers have just opened, for the closer to close under their feet.
struct RecentSessions {
    std::mutex mutex;
    std::vector<CK_SESSION_HANDLE> handles;
};

void workerRounds(Outcome& outcome, RecentSessions& recent, unsigned seed,
                  const std::atomic<bool>& stop) {
    const char* pin = dd::kDefaultUserPin;
    for (unsigned round = 0; !stop.load(); ++round) {
        if ((round + seed) % 10u == 0) {
            refreshSlots(outcome);
        }
        const CK_SLOT_ID slot = 0x50000001 + (round + seed) % 2u;
        CK_SESSION_HANDLE session = 0;
        const CK_FLAGS flags = CKF_SERIAL_SESSION | ((round % 2u) != 0 ? CKF_RW_SESSION : 0);
        const CK_RV opened = C_OpenSession(slot, flags, nullptr, nullptr, &session);
        expectOneOf(outcome, opened, {CKR_OK, CKR_SLOT_ID_INVALID});
        if (opened != CKR_OK) {
            continue;
        }
        {
            std::lock_guard<std::mutex> lock(recent.mutex);
            recent.handles.push_back(session);
        }
        // Any call on the session may find it closed by the closer thread.
        CK_TOKEN_INFO token;
        expectOneOf(outcome, C_GetTokenInfo(slot, &token), {CKR_OK, CKR_SLOT_ID_INVALID});
        expectOneOf(
            outcome,
            C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin)),
                    static_cast<CK_ULONG>(std::strlen(pin))),
            {CKR_OK, CKR_USER_ALREADY_LOGGED_IN, CKR_USER_ANOTHER_ALREADY_LOGGED_IN,
             CKR_FUNCTION_FAILED, CKR_SESSION_HANDLE_INVALID});
        CK_SESSION_INFO info;
        expectOneOf(outcome, C_GetSessionInfo(session, &info),
                    {CKR_OK, CKR_SESSION_HANDLE_INVALID});
        expectOneOf(outcome, C_Logout(session),
                    {CKR_OK, CKR_USER_NOT_LOGGED_IN, CKR_SESSION_HANDLE_INVALID});
        CK_SLOT_ID eventSlot = 0;
        expectOneOf(outcome, C_WaitForSlotEvent(CKF_DONT_BLOCK, &eventSlot, nullptr),
                    {CKR_OK, CKR_NO_EVENT});
        expectOneOf(outcome, C_CloseSession(session), {CKR_OK, CKR_SESSION_HANDLE_INVALID});
        ++outcome.rounds;
    }
}

// Closes the sessions that the workers have just opened, while they work on them, and now and
// then all sessions at once.
void closerRounds(Outcome& outcome, RecentSessions& recent, const std::atomic<bool>& stop) {
    for (unsigned round = 0; !stop.load(); ++round) {
        std::vector<CK_SESSION_HANDLE> victims;
        {
            std::lock_guard<std::mutex> lock(recent.mutex);
            victims.swap(recent.handles);
        }
        for (CK_SESSION_HANDLE victim : victims) {
            expectOneOf(outcome, C_CloseSession(victim), {CKR_OK, CKR_SESSION_HANDLE_INVALID});
        }
        if (round % 50u == 0) {
            expectOneOf(outcome, C_CloseAllSessions(0x50000001), {CKR_OK, CKR_SLOT_ID_INVALID});
        }
        std::this_thread::yield();
    }
}

TEST(ConcurrencyStress, SessionsOnManyThreadsWhileDevicesComeAndGo) {
    LogCapture log(2);
    dd::reset();
    dd::addDevice("SER1", "Token one");
    dd::addDevice("SER2", "Token two");
    const PollingPeriodOverride fastPolling(kFastPolling);
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    Outcome outcome;
    RecentSessions recent;
    refreshSlots(outcome);

    std::atomic<bool> workersDone{false};
    std::thread devices([&] {
        // Unplug and plug while the workers run; the monitor demotes and raises events.
        for (int cycle = 0; !workersDone.load(); ++cycle) {
            const char* serial = (cycle % 2) == 0 ? "SER1" : "SER2";
            dd::unplug(serial);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
            dd::plug(serial);
            std::this_thread::sleep_for(std::chrono::milliseconds(3));
        }
    });
    std::vector<std::thread> workers;
    for (int worker = 0; worker < kWorkers; ++worker) {
        workers.emplace_back([&outcome, &recent, &workersDone, worker] {
            workerRounds(outcome, recent, static_cast<unsigned>(worker), workersDone);
        });
    }
    std::thread closer([&] { closerRounds(outcome, recent, workersDone); });
    const bool cycled =
        waitUntil([] { return dd::callCount("getConnectedDeviceList") >= kMonitorCycles; },
                  std::chrono::seconds(20));
    workersDone = true;
    for (auto& worker : workers) {
        worker.join();
    }
    devices.join();
    closer.join();

    EXPECT_TRUE(cycled);
    EXPECT_GT(outcome.rounds.load(), kWorkers);
    EXPECT_EQ(outcome.unexpected.load(), 0);
    EXPECT_EQ(C_CloseAllSessions(0x50000001), CKR_OK);
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
}

TEST(ConcurrencyStress, FinaliseWhileOtherThreadsAreInsideCalls) {
    LogCapture log(2);
    dd::reset();
    dd::addDevice("SER1", "Token one");
    for (int attempt = 0; attempt < 5; ++attempt) {
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        std::atomic<bool> stop{false};
        std::vector<std::thread> callers;
        for (int caller = 0; caller < 3; ++caller) {
            callers.emplace_back([&stop] {
                while (!stop.load()) {
                    CK_SLOT_ID slots[2];
                    CK_ULONG count = 2;
                    const CK_RV rv = C_GetSlotList(CK_TRUE, slots, &count);
                    EXPECT_TRUE(rv == CKR_OK || rv == CKR_CRYPTOKI_NOT_INITIALIZED);
                    CK_SLOT_ID event = 0;
                    C_WaitForSlotEvent(CKF_DONT_BLOCK, &event, nullptr);
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
        stop = true;
        for (auto& caller : callers) {
            caller.join();
        }
    }
}

}  // namespace
