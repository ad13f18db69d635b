// C_GetMechanismList and C_GetMechanismInfo: the catalogue, its FIPS 140-3 trimming, the
// 2048-bit minimum on known slots, and the buffer rule.
#include <algorithm>

#include "slot_fixture.h"

namespace {

using Types = std::vector<CK_MECHANISM_TYPE>;

// Slot 0x50000001 holds a FIPS 140-3 token (third character of the model not '1'), slot
// 0x50000002 one outside FIPS 140-3 mode.
class MechanismTest : public SlotTest {
protected:
    void SetUp() override {
        SlotTest::SetUp();
        addToken("SER00001", "OT2-S");
        addToken("SER00002", "OT1-F");
        ASSERT_EQ(slotList().size(), 2u);
        callLines();
    }
    static constexpr CK_SLOT_ID kFips = 0x50000001;
    static constexpr CK_SLOT_ID kOther = 0x50000002;
};

// The catalogue in its deliberate, irregular order.
Types fullList() {
    return {0x0,    0x1,    0x9,    0xD,   0x6,   0x46,   0x40,   0x41,   0x42,
            0xE,    0x47,   0x43,   0x44,  0x45,  0x1040, 0x1050, 0x1041, 0x1042,
            0x1043, 0x1044, 0x1045, 0x220, 0x255, 0x250,  0x260,  0x270};
}

Types mechanismList(CK_SLOT_ID slot) {
    CK_ULONG count = 0;
    EXPECT_EQ(C_GetMechanismList(slot, nullptr, &count), CKR_OK);
    Types types(count);
    EXPECT_EQ(C_GetMechanismList(slot, types.data(), &count), CKR_OK);
    EXPECT_EQ(count, types.size());
    return types;
}

std::vector<CK_ULONG> mechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type) {
    CK_MECHANISM_INFO info{7, 7, 7};
    EXPECT_EQ(C_GetMechanismInfo(slot, type, &info), CKR_OK);
    return {info.ulMinKeySize, info.ulMaxKeySize, info.flags};
}

TEST_F(MechanismTest, FipsTokenHidesSha1SigningAndEveryOtherSlotListsAll26) {
    Types trimmed = fullList();
    for (CK_MECHANISM_TYPE hidden : {CKM_SHA1_RSA_PKCS, CKM_SHA1_RSA_PKCS_PSS, CKM_ECDSA_SHA1}) {
        trimmed.erase(std::find(trimmed.begin(), trimmed.end(), hidden));
    }
    EXPECT_EQ(mechanismList(kFips), trimmed);
    EXPECT_EQ(mechanismList(kOther), fullList());
    for (CK_SLOT_ID slot : invalidSlotIds()) {
        EXPECT_EQ(mechanismList(slot), fullList()) << slot;
    }
}

TEST_F(MechanismTest, ShortBufferLeavesCountAndBufferAsTheCallerSetThem) {
    Types types(23, 7);
    CK_ULONG count = 23;
    EXPECT_EQ(C_GetMechanismList(kFips, types.data(), &count), CKR_OK);
    EXPECT_EQ(count, 23u);
    Types shortBuffer(22, 7);
    count = 22;
    callLines();
    EXPECT_EQ(C_GetMechanismList(kFips, shortBuffer.data(), &count), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 22u);
    EXPECT_EQ(shortBuffer, Types(22, 7));
    EXPECT_EQ(C_GetMechanismList(kFips, shortBuffer.data(), nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines(), (Lines{infoLine("C_GetMechanismList"),
                                  errorLine("C_GetMechanismList: buffer too small, *pulCount=22 "
                                            "mechanismCount=23"),
                                  infoLine("C_GetMechanismList"),
                                  errorLine("C_GetMechanismList: pulCount is NULL")}));
}

// Known slots raise the RSA minimum of whatever signs or generates keys; a FIPS 140-3 token
// first makes SHA-1 signing verify-only, so those keep 1024. Unknown slots get the base rows.
TEST_F(MechanismTest, InfoDependsOnTheSlot) {
    using Info = std::vector<CK_ULONG>;
    for (CK_SLOT_ID slot : {kFips, kOther}) {
        EXPECT_EQ(mechanismInfo(slot, CKM_RSA_PKCS_KEY_PAIR_GEN), (Info{2048, 4096, 0x10000}));
        EXPECT_EQ(mechanismInfo(slot, CKM_RSA_PKCS), (Info{2048, 4096, 0x2B00}));
        EXPECT_EQ(mechanismInfo(slot, CKM_RSA_PKCS_OAEP), (Info{1024, 4096, 0x300}));
        EXPECT_EQ(mechanismInfo(slot, CKM_SHA224_RSA_PKCS_PSS), (Info{2048, 4096, 0x2800}));
        EXPECT_EQ(mechanismInfo(slot, CKM_ECDH1_DERIVE), (Info{256, 521, 0x80000}));
        EXPECT_EQ(mechanismInfo(slot, CKM_SHA256), (Info{0, 0, 0x400}));
    }
    for (CK_MECHANISM_TYPE sha1 : {CKM_SHA1_RSA_PKCS, CKM_SHA1_RSA_PKCS_PSS}) {
        EXPECT_EQ(mechanismInfo(kFips, sha1), (Info{1024, 4096, 0x2000}));
        EXPECT_EQ(mechanismInfo(kOther, sha1), (Info{2048, 4096, 0x2800}));
    }
    EXPECT_EQ(mechanismInfo(kFips, CKM_ECDSA_SHA1), (Info{256, 521, 0x2000}));
    for (CK_SLOT_ID slot : invalidSlotIds()) {
        EXPECT_EQ(mechanismInfo(slot, CKM_RSA_PKCS), (Info{1024, 4096, 0x2B00})) << slot;
        EXPECT_EQ(mechanismInfo(slot, CKM_ECDSA_SHA1), (Info{256, 521, 0x2800})) << slot;
    }
    callLines();
    mechanismInfo(kFips, CKM_SHA256_RSA_PKCS);
    EXPECT_EQ(callLines(),
              (Lines{infoLine("C_GetMechanismInfo"), infoLine("C_GetMechanismInfo -- type : 64"),
                     infoLine("C_GetMechanismInfo -- exit")}));
}

TEST_F(MechanismTest, TypesOutsideTheCatalogueAndNullInfoAreRefused) {
    // CKM_ECDSA_SHA512 in both of its numberings, CKM_MD5, and one that would be CKM_RSA_PKCS
    // if cut to 32 bits.
    Types refused = {0x1046, 0x1047, CKM_MD5};
    if (sizeof(CK_MECHANISM_TYPE) > 4)
        refused.push_back(static_cast<CK_MECHANISM_TYPE>(0x100000001ULL));
    for (CK_MECHANISM_TYPE type : refused) {
        const std::string number = std::to_string(type);
        CK_MECHANISM_INFO info{7, 7, 7};
        EXPECT_EQ(C_GetMechanismInfo(kOther, type, &info), CKR_MECHANISM_INVALID);
        EXPECT_EQ(info.ulMinKeySize + info.ulMaxKeySize + info.flags, 21u);
        EXPECT_EQ(callLines(),
                  (Lines{infoLine("C_GetMechanismInfo"),
                         infoLine("C_GetMechanismInfo -- type : " + number),
                         errorLine("C_GetMechanismInfo: unsupported mechanism type=" + number)}));
    }
    EXPECT_EQ(C_GetMechanismInfo(kFips, CKM_RSA_PKCS, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines(), (Lines{infoLine("C_GetMechanismInfo"),
                                  errorLine("C_GetMechanismInfo: pInfo is NULL")}));
}

}  // namespace
