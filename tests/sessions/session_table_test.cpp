// Opening, closing and describing sessions.
#include <functional>

#include "session_fixture.h"

namespace {

using Sessions = SessionTest;

// 2^32 where CK_ULONG is wider than 32 bits (64-bit Linux), 0 elsewhere. Added to a valid ID
// it makes one that must not alias it by truncation.
constexpr CK_ULONG kAbove32Bits = (CK_ULONG{1} << 16) << 16;
constexpr CK_ULONG kAliasOfFirstSlot = kSlot1 + kAbove32Bits;
constexpr CK_ULONG kAliasOfFirstSession = 0x60000001 + kAbove32Bits;

TEST_F(Sessions, HandlesFollowTheLargestOpenHandle) {
    CK_SESSION_HANDLE handle = 0;
    ASSERT_EQ(C_OpenSession(kSlot1, kReadOnly, nullptr, nullptr, &handle), CKR_OK);
    EXPECT_EQ(callLines(), (std::vector<std::string>{infoLine("C_OpenSession"),
                                                     infoLine("Opensession  : 1610612737")}));
    EXPECT_EQ(open(kSlot1, kReadOnly), 0x60000002u);
    ASSERT_EQ(C_CloseSession(0x60000002), CKR_OK);
    EXPECT_EQ(open(kSlot1, kReadOnly), 0x60000002u);  // the largest was freed: reused
    ASSERT_EQ(C_CloseSession(0x60000001), CKR_OK);
    EXPECT_EQ(open(kSlot1, kReadOnly), 0x60000003u);  // a gap below is not
}

TEST_F(Sessions, InfoReportsSlotStateAndFlags) {
    CK_SESSION_INFO info{0, 0, 0, 99};
    ASSERT_EQ(C_GetSessionInfo(open(kSlot2, kReadOnly), &info), CKR_OK);
    EXPECT_EQ(std::vector<CK_ULONG>({info.slotID, info.state, info.flags, info.ulDeviceError}),
              std::vector<CK_ULONG>({kSlot2, CKS_RO_PUBLIC_SESSION, CKF_SERIAL_SESSION, 0}));
    const CK_SESSION_HANDLE readWrite = open(kSlot1, kReadWrite);
    ASSERT_EQ(C_GetSessionInfo(readWrite, &info), CKR_OK);
    EXPECT_EQ(std::vector<CK_ULONG>({info.slotID, info.state, info.flags}),
              std::vector<CK_ULONG>({kSlot1, CKS_RW_PUBLIC_SESSION, kReadWrite}));
    log.newLines();
    expectRejected(C_GetSessionInfo(readWrite, nullptr), CKR_ARGUMENTS_BAD, "C_GetSessionInfo",
                   "pInfo is NULL");
}

TEST_F(Sessions, OpenSessionChecksSlotThenFlagsThenHandlePointer) {
    CK_SESSION_HANDLE handle = 0;
    log.newLines();
    expectRejected(C_OpenSession(0, 0, nullptr, nullptr, nullptr), CKR_SLOT_ID_INVALID,
                   "C_OpenSession", "invalid slotID=0");
    expectRejected(C_OpenSession(0x50000003, kReadWrite, nullptr, nullptr, &handle),
                   CKR_SLOT_ID_INVALID, "C_OpenSession", "invalid slotID=1342177283");
    if (kAbove32Bits != 0) {
        expectRejected(C_OpenSession(kAliasOfFirstSlot, kReadWrite, nullptr, nullptr, &handle),
                       CKR_SLOT_ID_INVALID, "C_OpenSession", "invalid slotID=5637144577");
    }
    expectRejected(C_OpenSession(kSlot1, CKF_RW_SESSION, nullptr, nullptr, nullptr),
                   CKR_SESSION_PARALLEL_NOT_SUPPORTED, "C_OpenSession",
                   "CKF_SERIAL_SESSION not set, flags=2");
    expectRejected(C_OpenSession(kSlot1, kReadWrite, nullptr, nullptr, nullptr), CKR_ARGUMENTS_BAD,
                   "C_OpenSession", "phSession is NULL");
    EXPECT_EQ(open(kSlot1, kReadWrite), 0x60000001u);  // nothing was opened before
}

TEST_F(Sessions, UnknownHandlesAreRejectedBeforeAnyArgument) {
    ASSERT_EQ(C_CloseSession(open(kSlot1, kReadWrite)), CKR_OK);
    open(kSlot1, kReadWrite);  // 0x60000001 again: the alias must not reach it
    const std::pair<std::string, std::function<CK_RV(CK_SESSION_HANDLE)>> entryPoints[] = {
        {"C_CloseSession", [](CK_SESSION_HANDLE h) { return C_CloseSession(h); }},
        {"C_GetSessionInfo", [](CK_SESSION_HANDLE h) { return C_GetSessionInfo(h, nullptr); }},
        {"C_Login", [](CK_SESSION_HANDLE h) { return C_Login(h, 7, nullptr, 0); }},
        {"C_Logout", [](CK_SESSION_HANDLE h) { return C_Logout(h); }},
        {"C_SetPIN", [](CK_SESSION_HANDLE h) { return C_SetPIN(h, nullptr, 0, nullptr, 0); }},
    };
    for (const auto& [name, call] : entryPoints) {
        for (CK_SESSION_HANDLE handle : {CK_ULONG{0}, CK_ULONG{0x60000002}, kAliasOfFirstSession}) {
            if (handle == 0x60000001) {
                continue;  // no alias where CK_ULONG has 32 bits
            }
            expectRejected(call(handle), CKR_SESSION_HANDLE_INVALID, name,
                           "invalid hSession=" + std::to_string(handle));
        }
    }
    EXPECT_EQ(stateOf(0x60000001), CKS_RW_PUBLIC_SESSION);
}

TEST_F(Sessions, CloseAllSessionsClosesTheSessionsOfEverySlot) {
    const CK_SESSION_HANDLE first = open(kSlot1, kReadOnly);
    const CK_SESSION_HANDLE second = open(kSlot2, kReadWrite);
    expectRejected(C_CloseAllSessions(0x50000003), CKR_SLOT_ID_INVALID, "C_CloseAllSessions",
                   "invalid slotID=1342177283");
    EXPECT_EQ(C_CloseAllSessions(kSlot1), CKR_OK);
    EXPECT_EQ(callLines(), (std::vector<std::string>{infoLine("C_CloseAllSessions"),
                                                     infoLine("Close all session")}));
    CK_SESSION_INFO info{};
    EXPECT_EQ(C_GetSessionInfo(first, &info), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(C_GetSessionInfo(second, &info), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(open(kSlot2, kReadOnly), 0x60000001u);
}

}  // namespace
