// C_Login and C_Logout: the device check, the walk over the token's sessions, userPassword.
#include "session_fixture.h"

namespace {

using Login = SessionTest;

TEST_F(Login, UserLoginMovesTheSessionsOfItsTokenOnly) {
    const CK_SESSION_HANDLE readOnly = open(kSlot1, kReadOnly);
    const CK_SESSION_HANDLE readWrite = open(kSlot1, kReadWrite);
    const CK_SESSION_HANDLE otherToken = open(kSlot2, kReadWrite);
    ASSERT_EQ(login(readOnly, CKU_USER, "123456"), CKR_OK);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_Login"), infoLine("Login state : 0")}));
    EXPECT_EQ(stateOf(readOnly), CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(stateOf(readWrite), CKS_RW_USER_FUNCTIONS);
    EXPECT_EQ(stateOf(otherToken), CKS_RW_PUBLIC_SESSION);
    const auto checks = dd::calls("validatePassword");
    ASSERT_EQ(checks.size(), 1u);
    EXPECT_EQ(checks[0].deviceId, "SER1");
    EXPECT_EQ(checks[0].texts, std::vector<std::string>{"123456"});
    EXPECT_EQ(checks[0].numbers, std::vector<std::int64_t>{1});

    // Closing every session does not log out: later sessions start logged in.
    for (CK_SESSION_HANDLE session : {readOnly, readWrite, otherToken}) {
        ASSERT_EQ(C_CloseSession(session), CKR_OK);
    }
    const CK_SESSION_HANDLE later = open(kSlot2, kReadOnly);
    EXPECT_EQ(stateOf(later), CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(stateOf(open(kSlot2, kReadWrite)), CKS_RW_USER_FUNCTIONS);
    EXPECT_EQ(login(later, CKU_USER, "123456"), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(callLines(), (std::vector<std::string>{infoLine("C_Login"),
                                                     infoLine("C_Login: User already logged in")}));
}

TEST_F(Login, KnownPinSkipsTheDeviceAndLiftsReadOnlyUserSessions) {
    const CK_SESSION_HANDLE readWrite2 = open(kSlot2, kReadWrite);
    ASSERT_EQ(login(open(kSlot1, kReadOnly), CKU_USER, "123456"), CKR_OK);
    const CK_SESSION_HANDLE readOnly2 = open(kSlot2, kReadOnly);  // starts in state 1
    dd::clearCalls();
    EXPECT_EQ(login(readWrite2, CKU_USER, "123456"), CKR_OK);
    EXPECT_EQ(dd::callCount("validatePassword"), 0u);
    EXPECT_EQ(stateOf(readWrite2), CKS_RW_USER_FUNCTIONS);
    EXPECT_EQ(stateOf(readOnly2), CKS_RW_USER_FUNCTIONS);  // lifted from 1, as required
}

TEST_F(Login, WalkVisitsEverySessionAndAnswersTheCodeNotedLast) {
    const std::string readOnlyExists = "C_Login: read-only session exists, cannot log in as SO";
    const CK_SESSION_HANDLE readOnly = open(kSlot1, kReadOnly);
    const CK_SESSION_HANDLE readWrite = open(kSlot1, kReadWrite);
    EXPECT_EQ(login(readWrite, CKU_SO, "12345678"), CKR_SESSION_READ_ONLY_EXISTS);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_Login"), infoLine("Login state : 2"),
                                        errorLine(readOnlyExists)}));
    EXPECT_EQ(stateOf(readWrite), CKS_RW_SO_FUNCTIONS);  // moved although refused
    EXPECT_EQ(stateOf(readOnly), CKS_RO_PUBLIC_SESSION);
    EXPECT_EQ(dd::calls("validatePassword").at(0).numbers, std::vector<std::int64_t>{2});
    EXPECT_TRUE(storedPasswordIs(""));  // an SO login keeps no PIN
    ASSERT_EQ(C_Logout(readWrite), CKR_OK);

    // A user logs in through the other token; the user session opened next sits behind both.
    const CK_SESSION_HANDLE otherToken = open(kSlot2, kReadWrite);
    ASSERT_EQ(login(otherToken, CKU_USER, "123456"), CKR_OK);
    const CK_SESSION_HANDLE user = open(kSlot1, kReadWrite);
    log.newLines();
    EXPECT_EQ(login(readWrite, CKU_SO, "12345678"), CKR_USER_ALREADY_LOGGED_IN);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_Login"), infoLine("Login state : 2"),
                                        errorLine(readOnlyExists)}));
    ASSERT_EQ(C_Logout(readWrite), CKR_OK);
    ASSERT_EQ(C_Logout(otherToken), CKR_OK);

    ASSERT_EQ(login(otherToken, CKU_USER, "123456"), CKR_OK);
    const CK_SESSION_HANDLE secondUser = open(kSlot1, kReadWrite);
    EXPECT_EQ(login(readOnly, CKU_USER, "123456"), CKR_USER_ANOTHER_ALREADY_LOGGED_IN);
    EXPECT_EQ(callLines(), (std::vector<std::string>{
                               infoLine("C_Login"), infoLine("Login state : 0"),
                               errorLine("C_Login: SO already logged in on another session")}));
    EXPECT_EQ(stateOf(readOnly), CKS_RO_USER_FUNCTIONS);
    EXPECT_EQ(stateOf(user), CKS_RW_USER_FUNCTIONS);  // 2 after the logout, moved again
    EXPECT_EQ(stateOf(secondUser), CKS_RW_USER_FUNCTIONS);
}

TEST_F(Login, DeviceRefusalsChangeNothing) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    const std::string failed = "Token password validation failed : ";
    const std::string retries = "Token password validation failed, retry count : ";
    dd::scriptResult("validatePassword", dd::kResultDeviceFailure);
    EXPECT_EQ(login(session, CKU_USER, "123456"), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_Login"), errorLine(failed + "48")}));
    dd::setRetryCount("SER1", 5);
    EXPECT_EQ(login(session, CKU_USER, "654321"), CKR_PIN_INCORRECT);
    EXPECT_EQ(callLines(), (std::vector<std::string>{infoLine("C_Login"), errorLine(failed + "10"),
                                                     errorLine(retries + "4")}));
    dd::setRetryCount("SER1", 1);
    EXPECT_EQ(login(session, CKU_USER, "654321"), CKR_PIN_LOCKED);
    EXPECT_EQ(callLines(), (std::vector<std::string>{infoLine("C_Login"), errorLine(failed + "10"),
                                                     errorLine(retries + "0")}));
    EXPECT_EQ(stateOf(session), CKS_RW_PUBLIC_SESSION);
    EXPECT_TRUE(storedPasswordIs(""));
}

TEST_F(Login, ArgumentsAreCheckedInOrderBeforeTheDevice) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    std::string pin(64, '7');
    expectRejected(C_Login(session, CKU_CONTEXT_SPECIFIC, nullptr, 0), CKR_USER_TYPE_INVALID,
                   "C_Login", "unsupported userType=2");
    expectRejected(C_Login(session, CKU_SO, nullptr, 6), CKR_ARGUMENTS_BAD, "C_Login",
                   "pPin is NULL");
    for (CK_ULONG length : {3, 64}) {
        expectRejected(C_Login(session, CKU_USER, bytes(pin), length), CKR_PIN_LEN_RANGE, "C_Login",
                       "pin length out of range, ulPinLen=" + std::to_string(length));
    }
    EXPECT_EQ(dd::callCount("validatePassword"), 0u);
    for (CK_ULONG length : {4, 63}) {
        EXPECT_EQ(C_Login(session, CKU_USER, bytes(pin), length), CKR_PIN_INCORRECT);
        EXPECT_EQ(dd::calls("validatePassword").back().texts.at(0), pin.substr(0, length));
    }
}

// The device takes PINs as NUL-terminated text: a PIN with a NUL inside would reach it cut short
// ("123456\0XY" would log in where the PIN is "123456"), so it never reaches it.
TEST_F(Login, PinHoldingANulByteIsRefusedBeforeTheDevice) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    std::string pin("123456\0XY", 9);
    const int retriesBefore = dd::tokenInfo("SER1").pinRetryCount;
    expectRejected(C_Login(session, CKU_USER, bytes(pin), pin.size()), CKR_PIN_INCORRECT, "C_Login",
                   "pPin holds a NUL byte");
    EXPECT_EQ(dd::callCount("validatePassword"), 0u);
    EXPECT_EQ(dd::tokenInfo("SER1").pinRetryCount, retriesBefore);
    EXPECT_EQ(stateOf(session), CKS_RW_PUBLIC_SESSION);
    EXPECT_TRUE(storedPasswordIs(""));
}

TEST_F(Login, LogoutReturnsTheTokensSessionsToPublicStates) {
    const CK_SESSION_HANDLE readOnly = open(kSlot1, kReadOnly);
    expectRejected(C_Logout(readOnly), CKR_USER_NOT_LOGGED_IN, "C_Logout",
                   "user not logged in, session state=0");
    const CK_SESSION_HANDLE readWrite = open(kSlot1, kReadWrite);
    const CK_SESSION_HANDLE otherToken = open(kSlot2, kReadWrite);
    ASSERT_EQ(login(readOnly, CKU_USER, "123456"), CKR_OK);
    ASSERT_EQ(login(otherToken, CKU_USER, "123456"), CKR_OK);
    log.newLines();
    EXPECT_EQ(C_Logout(readWrite), CKR_OK);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_Logout"), infoLine("C_Logout end")}));
    EXPECT_EQ(stateOf(readOnly), CKS_RO_PUBLIC_SESSION);
    EXPECT_EQ(stateOf(readWrite), CKS_RW_PUBLIC_SESSION);
    EXPECT_EQ(stateOf(otherToken), CKS_RW_USER_FUNCTIONS);
    EXPECT_TRUE(storedPasswordIs(""));
    EXPECT_EQ(dd::callCount("validatePassword"), 1u);
}

TEST_F(Login, PinsNeverReachTheLog) {
    dd::setPin("SER1", "user-pin-alpha");
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    EXPECT_EQ(login(session, CKU_USER, "wrong-pin-bravo"), CKR_PIN_INCORRECT);
    EXPECT_EQ(login(session, CKU_USER, "user-pin-alpha"), CKR_OK);
    EXPECT_EQ(setPin(session, "user-pin-alpha", "new-pin-charlie"), CKR_OK);
    EXPECT_EQ(setPin(session, "user-pin-alpha", "new-pin-delta"), CKR_FUNCTION_FAILED);
    for (const std::string& line : log.lines()) {
        EXPECT_EQ(line.find("-pin-"), std::string::npos) << line;
    }
}

}  // namespace
