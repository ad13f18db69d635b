// C_GetSlotList and the slot lookup that every slot operation shares.
#include <chrono>
#include <future>

#include "slot_fixture.h"

namespace {

using SlotListTest = SlotTest;

std::string serialOfSlot(CK_SLOT_ID slot) {
    CK_TOKEN_INFO info{};
    EXPECT_EQ(C_GetTokenInfo(slot, &info), CKR_OK);
    return std::string(reinterpret_cast<const char*>(info.serialNumber), 8);
}

void addReaderWithoutToken() {
    devicedouble::addDevice("READER-EMPTY", TokenInfo{});
}

TEST_F(SlotListTest, NoDeviceAnswersZeroToBothCallsAndEmptiesTheTable) {
    addToken("SER00001");
    ASSERT_EQ(slotList().size(), 1u);
    devicedouble::unplug("SER00001");
    callLines();

    CK_ULONG count = 5;
    EXPECT_EQ(C_GetSlotList(CK_TRUE, nullptr, &count), CKR_OK);
    EXPECT_EQ(count, 0u);
    CK_SLOT_INFO info{};
    EXPECT_EQ(C_GetSlotInfo(0x50000001, &info), CKR_SLOT_ID_INVALID);
    EXPECT_EQ(slotList().size(), 0u);
    EXPECT_EQ(callLines(), (Lines{infoLine("C_GetSlotList"), errorLine("No valid token found"),
                                  infoLine("C_GetSlotInfo"),
                                  errorLine("C_GetSlotInfo: invalid slotID=1342177281"),
                                  infoLine("C_GetSlotList"), errorLine("No valid token found")}));
}

// Deliberate: the size query counts devices, the fill counts tokens; tokenPresent changes neither.
TEST_F(SlotListTest, DeviceWithoutTokenIsCountedBySizeQueryOnly) {
    addToken("SER00001");
    addReaderWithoutToken();
    CK_ULONG count = 0;
    ASSERT_EQ(C_GetSlotList(CK_FALSE, nullptr, &count), CKR_OK);
    EXPECT_EQ(count, 2u);
    for (CK_BBOOL tokenPresent : {CK_FALSE, CK_TRUE}) {
        CK_SLOT_ID slots[2] = {7, 7};
        count = 2;
        ASSERT_EQ(C_GetSlotList(tokenPresent, slots, &count), CKR_OK);
        EXPECT_EQ(std::vector<CK_SLOT_ID>(slots, slots + 2),
                  (std::vector<CK_SLOT_ID>{0x50000001, 7}));
        EXPECT_EQ(count, 1u);
    }
}

TEST_F(SlotListTest, ShortBufferAndNullCountChangeNothing) {
    addToken("SER00002");
    ASSERT_EQ(slotList().size(), 1u);
    addToken("SER00001");  // a rebuild would move SER00002 to the second slot
    addReaderWithoutToken();
    devicedouble::clearCalls();
    callLines();

    CK_SLOT_ID slots[2] = {7, 7};
    CK_ULONG count = 2;
    EXPECT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(C_GetSlotList(CK_TRUE, slots, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(count, 2u);
    EXPECT_EQ(slots[0], 7u);
    EXPECT_EQ(callLines(),
              (Lines{infoLine("C_GetSlotList"),
                     errorLine("C_GetSlotList: buffer too small, *pulCount=2 slotCount=3"),
                     infoLine("C_GetSlotList"), errorLine("C_GetSlotList: pulCount is NULL")}));
    EXPECT_EQ(devicedouble::callCount("getTokenInfo"), 0u);
    EXPECT_EQ(serialOfSlot(0x50000001), "SER00002");
}

// Deliberate: slot IDs are written in device-list order but looked up by position in
// ascending identifier order, so with devices listed out of that order they name others.
TEST_F(SlotListTest, SlotIdsFollowTheDeviceListWhileLookupFollowsIdentifierOrder) {
    addToken("SER00003");
    addToken("SER00001");
    addToken("SER00002");
    devicedouble::setConnectedDevices({"SER00003", "SER00001", "SER00002", "SER00001"});

    // The repeated identifier gets a slot ID of its own but no entry of its own.
    EXPECT_EQ(slotList(),
              (std::vector<CK_SLOT_ID>{0x50000001, 0x50000002, 0x50000003, 0x50000004}));
    EXPECT_EQ(serialOfSlot(0x50000001), "SER00001");  // written for SER00003
    EXPECT_EQ(serialOfSlot(0x50000003), "SER00003");
    CK_SLOT_INFO info{};
    EXPECT_EQ(C_GetSlotInfo(0x50000004, &info), CKR_SLOT_ID_INVALID);
}

TEST_F(SlotListTest, InvalidSlotIdsAreRefusedBeforeTheOutputPointer) {
    addToken("SER00001");
    addToken("SER00002");
    ASSERT_EQ(slotList().size(), 2u);
    callLines();
    for (CK_SLOT_ID slot : invalidSlotIds()) {
        const std::string id = std::to_string(slot);
        CK_SLOT_INFO info{};
        EXPECT_EQ(C_GetSlotInfo(slot, &info), CKR_SLOT_ID_INVALID) << id;
        EXPECT_EQ(C_GetTokenInfo(slot, nullptr), CKR_SLOT_ID_INVALID) << id;
        EXPECT_EQ(
            callLines(),
            (Lines{infoLine("C_GetSlotInfo"), errorLine("C_GetSlotInfo: invalid slotID=" + id),
                   infoLine("C_GetTokenInfo"), errorLine("C_GetTokenInfo: invalid slotID=" + id)}));
    }
}

// The device library may be slow: other threads still read slots while it answers.
TEST_F(SlotListTest, SlotsStayReadableWhileTheDeviceListIsRead) {
    addToken("SER00001");
    ASSERT_EQ(slotList().size(), 1u);
    devicedouble::closeDeviceListGate();
    auto listing = std::async(std::launch::async, [] { return slotList().size(); });
    // The listing call and the monitor's next poll both wait at the gate.
    const bool blocked = devicedouble::waitForBlockedDeviceListCalls(2, std::chrono::seconds(5));
    auto reading = std::async(std::launch::async, [] { return serialOfSlot(0x50000001); });
    const auto status = reading.wait_for(std::chrono::seconds(5));
    devicedouble::openDeviceListGate();
    EXPECT_TRUE(blocked);
    EXPECT_EQ(status, std::future_status::ready);
    EXPECT_EQ(reading.get(), "SER00001");
    EXPECT_EQ(listing.get(), 1u);
}

}  // namespace
