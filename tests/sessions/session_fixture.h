// What the session and login tests share: an initialised module over two connected tokens of
// the device double, SER1 in slot 0x50000001 and SER2 in slot 0x50000002.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "core/module_state.h"
#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "support/log_capture.h"

namespace dd = devicedouble;

constexpr CK_SLOT_ID kSlot1 = 0x50000001;
constexpr CK_SLOT_ID kSlot2 = 0x50000002;
constexpr CK_FLAGS kReadOnly = CKF_SERIAL_SESSION;
constexpr CK_FLAGS kReadWrite = CKF_SERIAL_SESSION | CKF_RW_SESSION;

class SessionTest : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice("SER1", "Token one");
        dd::addDevice("SER2", "Token two");
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        CK_SLOT_ID slots[2] = {};
        CK_ULONG count = 2;
        ASSERT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
        ASSERT_EQ(std::vector<CK_SLOT_ID>(slots, slots + count),
                  (std::vector<CK_SLOT_ID>{kSlot1, kSlot2}));
        log.newLines();
    }
    void TearDown() override { C_Finalize(nullptr); }

    // Opens a session and forgets the lines that it wrote.
    CK_SESSION_HANDLE open(CK_SLOT_ID slot, CK_FLAGS flags) {
        CK_SESSION_HANDLE handle = 0;
        EXPECT_EQ(C_OpenSession(slot, flags, nullptr, nullptr, &handle), CKR_OK);
        log.newLines();
        return handle;
    }
    CK_STATE stateOf(CK_SESSION_HANDLE session) {
        CK_SESSION_INFO info{};
        EXPECT_EQ(C_GetSessionInfo(session, &info), CKR_OK);
        log.newLines();
        return info.state;
    }
    static CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE userType, std::string pin) {
        return C_Login(session, userType, bytes(pin), pin.size());
    }
    static CK_RV setPin(CK_SESSION_HANDLE session, std::string oldPin, std::string newPin) {
        return C_SetPIN(session, bytes(oldPin), oldPin.size(), bytes(newPin), newPin.size());
    }
    static CK_UTF8CHAR_PTR bytes(std::string& text) {
        return reinterpret_cast<CK_UTF8CHAR_PTR>(text.data());
    }
    static bool storedPasswordIs(const std::string& pin) {
        ModuleState& module = moduleState();
        MutexLock tables(module.tableMutex);
        return module.userPassword.size() == pin.size() &&
               module.userPassword.equals(pin.data(), pin.size());
    }

    std::vector<std::string> callLines() { return log.newCallLines(); }
    // A rejected call: its code, and exactly its entry line and "<name>: <what>".
    void expectRejected(CK_RV rv, CK_RV expected, const std::string& name,
                        const std::string& what) {
        EXPECT_EQ(rv, expected) << what;
        EXPECT_EQ(callLines(),
                  (std::vector<std::string>{infoLine(name), errorLine(name + ": " + what)}));
    }

    LogCapture log;
};
