// Slot events raised by the device monitor and collected through C_WaitForSlotEvent.
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <string>

#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/module_start.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace {

constexpr CK_SLOT_ID kEventSlot = 0x50000001;

class SlotEvents : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        // An event deliberately outlives C_Finalize; drop one left by an earlier test.
        ASSERT_EQ(initializeAndSettle(log), CKR_OK);
        CK_SLOT_ID slot = 0;
        C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr);
        ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
        dd::clearCalls();
        baseline_ = log.lines().size();
    }
    void TearDown() override {
        dd::openDeviceListGate();
        C_Finalize(nullptr);
    }

    // Only what the test itself made the module write counts.
    std::size_t countLines(const std::string& line) const {
        const auto lines = log.lines();
        const auto from = lines.begin() + static_cast<std::ptrdiff_t>(baseline_);
        return static_cast<std::size_t>(std::count(from, lines.end(), line));
    }
    bool logged(const std::string& line) const { return countLines(line) > 0; }
    bool waitForLine(const std::string& line, std::size_t occurrences = 1) const {
        return waitUntil([&] { return countLines(line) >= occurrences; });
    }

    LogCapture log;
    std::size_t baseline_ = 0;
};

const std::string kOneDeviceCame = infoLine("Slot event: device count changed from 0 to 1");

TEST_F(SlotEvents, FirstCycleReportsTheConnectedDevice) {
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    CK_SLOT_ID slot = 0;
    EXPECT_EQ(C_WaitForSlotEvent(0, &slot, nullptr), CKR_OK);
    EXPECT_EQ(slot, kEventSlot);
    EXPECT_TRUE(logged(kOneDeviceCame));
    EXPECT_TRUE(logged(infoLine("C_WaitForSlotEvent: blocking, returning slot 1342177281")));
}

TEST_F(SlotEvents, NonBlockingWaitConsumesTheEventOnce) {
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    ASSERT_TRUE(waitForLine(kOneDeviceCame));
    CK_SLOT_ID slot = 0;
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
    EXPECT_EQ(slot, kEventSlot);
    EXPECT_TRUE(
        logged(infoLine("C_WaitForSlotEvent: non-blocking, returning slot 1342177281")));
    log.newLines();
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
    EXPECT_EQ(log.newLines(),
              (std::vector<std::string>{
                  infoLine("C_WaitForSlotEvent"),
                  errorLine("C_WaitForSlotEvent: no event pending (non-blocking)")}));
}

TEST_F(SlotEvents, NoDeviceMeansNoEvent) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    // Let the first cycle run: with nothing connected the count stays 0.
    ASSERT_TRUE(waitUntil([] { return dd::callCount("getConnectedDeviceList") >= 1; }));
    CK_SLOT_ID slot = 0;
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
}

TEST_F(SlotEvents, NullSlotPointerIsRejected) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    log.newLines();
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, nullptr, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(log.newLines(), (std::vector<std::string>{
                                  infoLine("C_WaitForSlotEvent"),
                                  errorLine("C_WaitForSlotEvent: pSlot is NULL")}));
}

TEST_F(SlotEvents, UncollectedEventSurvivesFinaliseAndInitialise) {
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    ASSERT_TRUE(waitForLine(kOneDeviceCame));
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    // With nothing connected the new monitor raises no event of its own.
    dd::unplug("SER1");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    CK_SLOT_ID slot = 0;
    EXPECT_EQ(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
    EXPECT_EQ(slot, kEventSlot);
}

TEST_F(SlotEvents, FreshMonitorAfterReinitialiseCountsFromZero) {
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    ASSERT_TRUE(waitForLine(kOneDeviceCame));
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    EXPECT_TRUE(waitForLine(kOneDeviceCame, 2));
}

TEST_F(SlotEvents, UnplugAndPlugRaiseEventsWithTheFirstSlot) {
    dd::addDevice("SER1", "Token one");
    dd::addDevice("SER2", "Token two");
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    CK_SLOT_ID slot = 0;
    ASSERT_EQ(C_WaitForSlotEvent(0, &slot, nullptr), CKR_OK);
    dd::unplug("SER2");
    ASSERT_EQ(C_WaitForSlotEvent(0, &slot, nullptr), CKR_OK);
    EXPECT_EQ(slot, kEventSlot);
    EXPECT_TRUE(logged(infoLine("Slot event: device count changed from 2 to 1")));
}

TEST_F(SlotEvents, FinaliseWakesABlockedWaiter) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    auto waiter = std::async(std::launch::async, [] {
        CK_SLOT_ID slot = 0;
        return C_WaitForSlotEvent(0, &slot, nullptr);
    });
    ASSERT_TRUE(waitForLine(infoLine("C_WaitForSlotEvent")));
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(3)), std::future_status::ready);
    EXPECT_EQ(waiter.get(), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_TRUE(logged(errorLine(
        "C_WaitForSlotEvent: monitor stopped, returning CKR_CRYPTOKI_NOT_INITIALIZED")));
}

TEST_F(SlotEvents, BlockedWaiterDoesNotHoldOtherCallsBack) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    auto waiter = std::async(std::launch::async, [] {
        CK_SLOT_ID slot = 0;
        return C_WaitForSlotEvent(0, &slot, nullptr);
    });
    ASSERT_TRUE(waitForLine(infoLine("C_WaitForSlotEvent")));
    CK_INFO info;
    EXPECT_EQ(C_GetInfo(&info), CKR_OK);
    // A device arriving ends the wait with an event.
    dd::addDevice("SER1", "Token one");
    ASSERT_EQ(waiter.wait_for(std::chrono::seconds(3)), std::future_status::ready);
    EXPECT_EQ(waiter.get(), CKR_OK);
}

TEST_F(SlotEvents, FinaliseWhileTheMonitorIsInsideADeviceQuery) {
    dd::closeDeviceListGate();
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    ASSERT_TRUE(dd::waitForBlockedDeviceListCalls(1, std::chrono::milliseconds(3000)));
    auto finalising = std::async(std::launch::async, [] { return C_Finalize(nullptr); });
    // C_Finalize waits for the query in progress, and only for that.
    EXPECT_EQ(finalising.wait_for(std::chrono::milliseconds(100)), std::future_status::timeout);
    dd::openDeviceListGate();
    ASSERT_EQ(finalising.wait_for(std::chrono::seconds(3)), std::future_status::ready);
    EXPECT_EQ(finalising.get(), CKR_OK);
    EXPECT_TRUE(logged(infoLine("Session monitor thread stopped.")));
}

TEST_F(SlotEvents, LibraryWithoutInstanceStillReturnsOkButStaysUninitialised) {
    dd::setCreateInstanceYieldsNull(true);
    EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_TRUE(logged(errorLine("Init pkcs11 library failed failed")));
    CK_INFO info;
    EXPECT_EQ(C_GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
    ASSERT_TRUE(waitUntil([] { return dd::callCount("getConnectedDeviceList") >= 1; }));
    // A second attempt replaces the monitor that the first one started.
    dd::setCreateInstanceYieldsNull(false);
    EXPECT_EQ(C_Initialize(nullptr), CKR_OK);
    EXPECT_TRUE(waitForLine(infoLine("Monitor already running. Stopping old thread.")));
    EXPECT_EQ(C_GetInfo(&info), CKR_OK);
}

}  // namespace
