// The monitor logs out the user sessions of a device that went away.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <mutex>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"
#include "support/wait_until.h"

namespace dd = devicedouble;

namespace {

class Demotion : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice("SER1", "Token one");
        dd::addDevice("SER2", "Token two");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    }
    void TearDown() override { C_Finalize(nullptr); }

    std::shared_ptr<SessionRecord> open(const std::string& serial, CK_STATE state) {
        auto record = std::make_shared<SessionRecord>(0x50000001, dd::tokenInfo(serial), state);
        ModuleState& module = moduleState();
        MutexLock tables(module.tableMutex);
        module.sessionTable.insert(record);
        return record;
    }
    void logIn(const char* pin) {
        ModuleState& module = moduleState();
        MutexLock tables(module.tableMutex);
        module.userPassword.assign(pin, std::strlen(pin));
    }
    bool passwordIsEmpty() {
        ModuleState& module = moduleState();
        MutexLock tables(module.tableMutex);
        return module.userPassword.empty();
    }

    LogCapture log;
};

TEST_F(Demotion, UserSessionsOfAVanishedDeviceFallToPublicStates) {
    auto readWriteUser = open("SER1", CKS_RW_USER_FUNCTIONS);
    auto readOnlyUser = open("SER1", CKS_RO_USER_FUNCTIONS);
    auto readWritePublic = open("SER1", CKS_RW_PUBLIC_SESSION);
    auto otherDevice = open("SER2", CKS_RW_USER_FUNCTIONS);
    logIn("123456");

    dd::unplug("SER1");
    ASSERT_TRUE(waitUntil([&] { return readOnlyUser->state.load() == CKS_RO_PUBLIC_SESSION; }));
    EXPECT_EQ(readWriteUser->state.load(), CKS_RW_PUBLIC_SESSION);
    EXPECT_EQ(readWritePublic->state.load(), CKS_RW_PUBLIC_SESSION);
    EXPECT_EQ(otherDevice->state.load(), CKS_RW_USER_FUNCTIONS);
    EXPECT_TRUE(passwordIsEmpty());
    // One line per demoted session.
    const auto lines = log.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         infoLine("Device disconnected, clearing userPassword")),
              2);
}

TEST_F(Demotion, PublicSessionsAndConnectedDevicesAreLeftAlone) {
    auto connected = open("SER2", CKS_RO_USER_FUNCTIONS);
    auto publicOnly = open("SER1", CKS_RO_PUBLIC_SESSION);
    logIn("123456");
    dd::unplug("SER1");
    // Two more cycles after the unplug, to be sure the monitor had its chance.
    const std::size_t seen = dd::callCount("getConnectedDeviceList");
    ASSERT_TRUE(waitUntil([&] { return dd::callCount("getConnectedDeviceList") >= seen + 2; }));
    EXPECT_EQ(connected->state.load(), CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(publicOnly->state.load(), CKS_RO_PUBLIC_SESSION);
    EXPECT_FALSE(passwordIsEmpty());
    EXPECT_FALSE(log.contains(infoLine("Device disconnected, clearing userPassword")));
}

}  // namespace
