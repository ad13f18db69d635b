// C_SetPIN: read-only sessions refused, PIN arguments, the device's answer, userPassword.
#include "session_fixture.h"

namespace {

using SetPin = SessionTest;

TEST_F(SetPin, EachSessionStateEitherRefusesOrReachesTheDevice) {
    const CK_SESSION_HANDLE readOnly = open(kSlot1, kReadOnly);
    const CK_SESSION_HANDLE readWrite = open(kSlot1, kReadWrite);
    expectRejected(setPin(readOnly, "123456", "222222"), CKR_SESSION_READ_ONLY, "C_SetPIN",
                   "session is read-only, state=0");
    // Read-write and public: no login needed, and nobody gets logged in.
    EXPECT_EQ(setPin(readWrite, "123456", "222222"), CKR_OK);
    EXPECT_EQ(callLines(), std::vector<std::string>{infoLine("C_SetPIN")});
    EXPECT_TRUE(storedPasswordIs(""));
    const auto changes = dd::calls("changeUserPassword");
    ASSERT_EQ(changes.size(), 1u);
    EXPECT_EQ(changes[0].deviceId, "SER1");
    EXPECT_EQ(changes[0].texts, (std::vector<std::string>{"123456", "222222"}));
    EXPECT_EQ(changes[0].numbers, (std::vector<std::int64_t>{0, 0}));

    ASSERT_EQ(login(readWrite, CKU_USER, "222222"), CKR_OK);
    log.newLines();
    expectRejected(setPin(readOnly, "222222", "333333"), CKR_SESSION_READ_ONLY, "C_SetPIN",
                   "session is read-only, state=1");
    EXPECT_EQ(setPin(readWrite, "222222", "333333"), CKR_OK);
    EXPECT_TRUE(storedPasswordIs("333333"));  // the logged-in user goes on with the new PIN
    ASSERT_EQ(C_Logout(readWrite), CKR_OK);

    ASSERT_EQ(C_CloseSession(readOnly), CKR_OK);
    ASSERT_EQ(login(readWrite, CKU_SO, "12345678"), CKR_OK);
    EXPECT_EQ(setPin(readWrite, "333333", "444444"), CKR_OK);  // state 4
    EXPECT_EQ(dd::pin("SER1"), "444444");
}

TEST_F(SetPin, ArgumentsAreCheckedInOrderBeforeTheDevice) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    std::string pin(64, '5');
    expectRejected(C_SetPIN(session, nullptr, 3, nullptr, 3), CKR_ARGUMENTS_BAD, "C_SetPIN",
                   "pOldPin is NULL");
    expectRejected(C_SetPIN(session, bytes(pin), 64, nullptr, 3), CKR_PIN_LEN_RANGE, "C_SetPIN",
                   "old pin length out of range, ulOldLen=64");
    expectRejected(C_SetPIN(session, bytes(pin), 63, nullptr, 3), CKR_ARGUMENTS_BAD, "C_SetPIN",
                   "pNewPin is NULL");
    expectRejected(C_SetPIN(session, bytes(pin), 4, bytes(pin), 3), CKR_PIN_LEN_RANGE, "C_SetPIN",
                   "new pin length out of range, ulNewLen=3");
    EXPECT_EQ(dd::callCount("changeUserPassword"), 0u);
}

// A new PIN of 60 bytes with a NUL after 4 would set the PIN "1234" while the caller believes
// otherwise; an old PIN with a NUL would be checked cut short.
TEST_F(SetPin, PinsHoldingANulByteAreRefusedBeforeTheDevice) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    std::string oldPin = "123456";
    std::string newPin = std::string("1234") + '\0' + std::string(55, '9');
    expectRejected(C_SetPIN(session, bytes(oldPin), oldPin.size(), bytes(newPin), newPin.size()),
                   CKR_PIN_INVALID, "C_SetPIN", "pNewPin holds a NUL byte");
    std::string cutOld(std::string("12") + '\0' + "456");
    expectRejected(C_SetPIN(session, bytes(cutOld), cutOld.size(), bytes(oldPin), oldPin.size()),
                   CKR_PIN_INVALID, "C_SetPIN", "pOldPin holds a NUL byte");
    EXPECT_EQ(dd::callCount("changeUserPassword"), 0u);
    EXPECT_EQ(dd::pin("SER1"), "123456");
}

TEST_F(SetPin, RefusedChangeKeepsTheStoredPin) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    ASSERT_EQ(login(session, CKU_USER, "123456"), CKR_OK);
    dd::setRetryCount("SER1", 7);
    log.newLines();
    expectRejected(setPin(session, "999999", "222222"), CKR_FUNCTION_FAILED, "C_SetPIN",
                   "ostrel_changeUserPassword failed, failureCount=6");
    EXPECT_TRUE(storedPasswordIs("123456"));
    EXPECT_EQ(stateOf(session), CKS_RW_USER_FUNCTIONS);
}

}  // namespace
