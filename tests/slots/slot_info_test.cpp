// C_GetSlotInfo and C_GetTokenInfo: every field, texts kept inside the caller's structure, the
// firmware pair, the PIN flags and the session counts.
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <utility>

#include "core/module_state.h"
#include "slot_fixture.h"

namespace {

using InfoTest = SlotTest;

constexpr CK_FLAGS kBaseFlags =
    CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED;

struct Read {
    Guarded<CK_SLOT_INFO> slot;
    Guarded<CK_TOKEN_INFO> token;
};

// Lists one device with this token and reads it back through both calls.
void listAndRead(const TokenInfo& token, Read& read) {
    devicedouble::reset();
    devicedouble::addDevice(token);
    ASSERT_EQ(slotList().size(), 1u);
    ASSERT_EQ(C_GetSlotInfo(0x50000001, read.slot.info()), CKR_OK);
    ASSERT_EQ(C_GetTokenInfo(0x50000001, read.token.info()), CKR_OK);
    EXPECT_TRUE(read.slot.marginsUntouched() && read.token.marginsUntouched());
}

Bytes versions(const CK_VERSION& hardware, const CK_VERSION& firmware) {
    return {hardware.major, hardware.minor, firmware.major, firmware.minor};
}

TEST_F(InfoTest, EveryFieldComesFromTheStoredTokenWithoutAskingTheDevice) {
    devicedouble::addDevice(
        devicedouble::makeTokenInfo("SER00001", "Token One", "OT2-S", "2.15.3"));
    ASSERT_EQ(slotList().size(), 1u);
    devicedouble::unplug("SER00001");  // still answered from the table
    devicedouble::clearCalls();
    callLines();
    Read read;
    ASSERT_EQ(C_GetSlotInfo(0x50000001, read.slot.info()), CKR_OK);
    ASSERT_EQ(C_GetTokenInfo(0x50000001, read.token.info()), CKR_OK);

    const CK_SLOT_INFO& slot = *read.slot.info();
    EXPECT_EQ(bytesOf(slot.slotDescription), fieldBytes("Token One", 64));
    EXPECT_EQ(bytesOf(slot.manufacturerID), fieldBytes("Kelvanetics", 32));
    EXPECT_EQ(slot.flags, CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE | CKF_HW_SLOT);
    EXPECT_EQ(versions(slot.hardwareVersion, slot.firmwareVersion), Bytes({1, 0, 2, 15}));
    const CK_TOKEN_INFO& token = *read.token.info();
    EXPECT_EQ(bytesOf(token.label), fieldBytes("Token One", 32));
    EXPECT_EQ(bytesOf(token.manufacturerID), fieldBytes("Kelvanetics", 32));
    EXPECT_EQ(bytesOf(token.model), fieldBytes("OT2-S", 16));
    EXPECT_EQ(bytesOf(token.serialNumber), fieldBytes("SER00001", 16));
    EXPECT_EQ(token.flags, kBaseFlags);
    const CK_ULONG na = ~CK_ULONG{0};  // all 64 bits on 64-bit Linux
    EXPECT_EQ(std::vector<CK_ULONG>({token.ulMaxSessionCount, token.ulSessionCount,
                                     token.ulMaxRwSessionCount, token.ulRwSessionCount,
                                     token.ulMaxPinLen, token.ulMinPinLen,
                                     token.ulTotalPublicMemory, token.ulFreePublicMemory,
                                     token.ulTotalPrivateMemory, token.ulFreePrivateMemory}),
              std::vector<CK_ULONG>({0, 0, 0, 0, 63, 4, na, na, na, na}));
    EXPECT_EQ(versions(token.hardwareVersion, token.firmwareVersion), Bytes({1, 0, 2, 15}));
    EXPECT_EQ(bytesOf(token.utcTime), Bytes(16, ' '));
    EXPECT_TRUE(read.slot.marginsUntouched() && read.token.marginsUntouched());
    EXPECT_EQ(C_GetSlotInfo(0x50000001, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(C_GetTokenInfo(0x50000001, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines(),
              (Lines{infoLine("C_GetSlotInfo"), infoLine("C_GetTokenInfo"),
                     infoLine("C_GetTokenInfo -- exit"), infoLine("C_GetSlotInfo"),
                     errorLine("C_GetSlotInfo: pInfo is NULL"), infoLine("C_GetTokenInfo"),
                     errorLine("C_GetTokenInfo: pInfo is NULL")}));
    EXPECT_EQ(devicedouble::callCount("getTokenInfo"), 0u);
}

// Texts stay inside the structure and come out as unbounded copies written in field order
// leave them: a label that fits is cut at 30, a longer one shows its first bytes; the model
// ends at its NUL, with what a long label left behind it; the serial has no NUL.
TEST_F(InfoTest, TextsOfEveryLengthStayInsideTheirStructure) {
    std::string l, m = "M", s = "S";
    for (int i = 0; i < 300; ++i)
        l.push_back(static_cast<char>('0' + i % 10));
    m += l;
    s += l;
    const std::tuple<std::size_t, std::size_t, std::size_t, std::string, std::string> cases[] = {
        {30, 5, 8, l.substr(0, 30), m.substr(0, 5)},
        {31, 15, 16, l.substr(0, 30), m.substr(0, 15)},
        {32, 16, 17, l.substr(0, 30), m},
        {33, 17, 40, l, m},
        {40, 5, 8, l, m.substr(0, 5)},
        {90, 4, 8, l, m.substr(0, 4) + '\0' + l.substr(69)},
        {300, 300, 300, l, m}};
    for (const auto& [label, model, serial, labelField, modelField] : cases) {
        SCOPED_TRACE(label);
        TokenInfo token = devicedouble::makeTokenInfo(s.substr(0, serial), "x", m.substr(0, model));
        token.label = l.substr(0, label);
        Read read;
        listAndRead(token, read);
        EXPECT_EQ(bytesOf(read.slot.info()->slotDescription), fieldBytes(token.label, 64));
        EXPECT_EQ(bytesOf(read.token.info()->label), fieldBytes(labelField, 32));
        EXPECT_EQ(bytesOf(read.token.info()->manufacturerID), fieldBytes("Kelvanetics", 32));
        EXPECT_EQ(bytesOf(read.token.info()->model), fieldBytes(modelField, 16));
        EXPECT_EQ(bytesOf(read.token.info()->serialNumber), fieldBytes(s.substr(0, serial), 16));
        EXPECT_EQ(read.token.info()->flags, kBaseFlags);
    }
}

TEST_F(InfoTest, FirmwareTextGivesMajorAndMinorAsAtoiReadsThem) {
    const std::pair<const char*, Bytes> cases[] = {
        {"2.15.3", {1, 0, 2, 15}}, {"7", {1, 0, 7, 0}},        {"", {1, 0, 0, 0}},
        {"v2.0", {1, 0, 0, 0}},    {"300.257", {1, 0, 44, 1}}, {"-1.+4", {1, 0, 255, 4}}};
    for (const auto& [firmware, expected] : cases) {
        Read read;
        listAndRead(devicedouble::makeTokenInfo("SER00001", "Token", "OT2-S", firmware), read);
        EXPECT_EQ(versions(read.slot.info()->hardwareVersion, read.slot.info()->firmwareVersion),
                  expected)
            << firmware;
        EXPECT_EQ(versions(read.token.info()->hardwareVersion, read.token.info()->firmwareVersion),
                  expected)
            << firmware;
    }
}

TEST_F(InfoTest, FlagsFollowTheRetryAndDefaultPinIndicators) {
    const std::pair<std::int32_t, CK_FLAGS> retries[] = {{0, CKF_USER_PIN_LOCKED},
                                                         {1, CKF_USER_PIN_FINAL_TRY},
                                                         {2, CKF_USER_PIN_COUNT_LOW},
                                                         {3, 0},
                                                         {10, 0},
                                                         {-1, 0}};
    for (const auto& [retriesLeft, retryFlag] : retries) {
        for (std::int32_t pinChanged : {1, 0, 2}) {
            TokenInfo token = devicedouble::makeTokenInfo("SER00001");
            token.pinRetryCount = retriesLeft;
            token.userPinChanged = pinChanged;
            Read read;
            listAndRead(token, read);
            // Only an indicator of exactly 1 says the default PIN has been changed.
            const CK_FLAGS toBeChanged = pinChanged == 1 ? 0 : CKF_USER_PIN_TO_BE_CHANGED;
            EXPECT_EQ(read.token.info()->flags, kBaseFlags | retryFlag | toBeChanged)
                << retriesLeft << "/" << pinChanged;
        }
    }
}

// Deliberately only the two public states, and over every slot rather than the one asked.
TEST_F(InfoTest, SessionCountsCountPublicSessionsOfEverySlot) {
    addToken("SER00001");
    addToken("SER00002");
    ASSERT_EQ(slotList().size(), 2u);
    const std::pair<std::uint32_t, CK_STATE> sessions[] = {
        {0x50000001, CKS_RO_PUBLIC_SESSION}, {0x50000002, CKS_RO_PUBLIC_SESSION},
        {0x50000001, CKS_RW_PUBLIC_SESSION}, {0x50000001, CKS_RO_USER_FUNCTIONS},
        {0x50000002, CKS_RW_USER_FUNCTIONS}, {0x50000002, CKS_RW_SO_FUNCTIONS}};
    {
        ModuleState& state = moduleState();
        MutexLock tables(state.tableMutex);
        for (const auto& [slot, sessionState] : sessions) {
            state.sessionTable.insert(std::make_shared<SessionRecord>(
                slot, devicedouble::makeTokenInfo("SER00001"), sessionState));
        }
    }
    for (CK_SLOT_ID slot : {0x50000001u, 0x50000002u}) {
        CK_TOKEN_INFO info{};
        ASSERT_EQ(C_GetTokenInfo(slot, &info), CKR_OK);
        EXPECT_EQ(std::make_pair(info.ulSessionCount, info.ulRwSessionCount),
                  std::make_pair(CK_ULONG{2}, CK_ULONG{1}));
    }
}

}  // namespace
