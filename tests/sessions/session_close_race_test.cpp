// A session closed while another thread's call is working on it: the close waits for that call,
// and a call that gets hold of the session only after the close sees it gone. Nothing acts on a
// session after its close returned.
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "session_fixture.h"
#include "support/wait_until.h"

namespace {

using namespace std::chrono_literals;

class SessionCloseRace : public SessionTest {
protected:
    void expectCloseWaitsForTheLogin(CK_SESSION_HANDLE session,
                                     const std::function<CK_RV()>& close);
};

// A login held inside its device call (the double's gate), and a close started meanwhile.
// Whichever close it is, it returns only after the login did.
void SessionCloseRace::expectCloseWaitsForTheLogin(CK_SESSION_HANDLE session,
                                                   const std::function<CK_RV()>& close) {
    dd::closeGate("validatePassword");
    std::atomic<bool> loginReturned{false};
    auto loginCall = std::async(std::launch::async, [&] {
        const CK_RV rv = login(session, CKU_USER, "123456");
        loginReturned = true;
        return rv;
    });
    ASSERT_TRUE(dd::waitForBlockedCalls("validatePassword", 1, 3000ms));
    // The login's work is done by the time the close returns: the PIN is kept.
    std::atomic<bool> loginDoneBeforeClose{false};
    auto closing = std::async(std::launch::async, [&] {
        const CK_RV rv = close();
        loginDoneBeforeClose = storedPasswordIs("123456");
        return rv;
    });
    // Long enough for a close that does not wait to have returned.
    EXPECT_EQ(closing.wait_for(200ms), std::future_status::timeout);
    dd::openGate("validatePassword");
    EXPECT_EQ(loginCall.get(), CKR_OK);
    EXPECT_EQ(closing.get(), CKR_OK);
    EXPECT_TRUE(loginDoneBeforeClose.load());
}

TEST_F(SessionCloseRace, CloseSessionWaitsForTheCallInProgress) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    expectCloseWaitsForTheLogin(session, [&] { return C_CloseSession(session); });
    EXPECT_EQ(C_GetSessionInfo(session, nullptr), CKR_SESSION_HANDLE_INVALID);
}

TEST_F(SessionCloseRace, CloseAllSessionsWaitsForTheCallInProgress) {
    const CK_SESSION_HANDLE session = open(kSlot2, kReadWrite);
    expectCloseWaitsForTheLogin(session, [] { return C_CloseAllSessions(kSlot1); });
    EXPECT_EQ(C_GetSessionInfo(session, nullptr), CKR_SESSION_HANDLE_INVALID);
}

// The call found the session, then waited for it while the session was closed: when it gets
// the session it must see the close and act on nothing.
TEST_F(SessionCloseRace, ACallThatGetsTheSessionAfterItsCloseAnswersInvalidHandle) {
    const CK_SESSION_HANDLE session = open(kSlot1, kReadWrite);
    auto record = moduleState().sessionTable.find(static_cast<std::uint32_t>(session));
    ASSERT_TRUE(record);
    std::unique_lock<Mutex> heldByAnotherCall(record->callMutex);
    auto loginCall =
        std::async(std::launch::async, [&] { return login(session, CKU_USER, "123456"); });
    ASSERT_TRUE(waitUntil([&] { return log.contains(infoLine("C_Login")); }));
    std::this_thread::sleep_for(50ms);  // the login is now waiting for the session
    // What C_CloseSession does, from inside the call that holds the session.
    {
        MutexLock tables(moduleState().tableMutex);
        moduleState().sessionTable.erase(static_cast<std::uint32_t>(session), *record);
    }
    record->closed = true;
    heldByAnotherCall.unlock();
    EXPECT_EQ(loginCall.get(), CKR_SESSION_HANDLE_INVALID);
    EXPECT_TRUE(log.contains(errorLine("C_Login: invalid hSession=" + std::to_string(session))));
    EXPECT_EQ(dd::callCount("validatePassword"), 0u);
    EXPECT_TRUE(storedPasswordIs(""));
}

}  // namespace
