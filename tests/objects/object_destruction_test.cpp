// C_DestroyObject: a key pair goes through its private key's handle, a certificate through its
// own; read-only sessions and other handles are refused before the device is asked.
#include "object_fixture.h"

namespace {

class ObjectDestruction : public ObjectTest {
protected:
    void SetUp() override {
        ObjectTest::SetUp();
        dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(5).alias("k").deletionFlag(true)});
        dd::setCertificates("OBJ1", {dd::CertificateBuilder(6).label("c")});
    }
};

TEST_F(ObjectDestruction, APairGoesThroughItsPrivateKeyOnly) {
    const CK_SESSION_HANDLE session = open();
    login(session);
    EXPECT_EQ(C_DestroyObject(session, 0x70001005), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_DestroyObject"),
                                        infoLine("Delete key pair id : 1879052293"),
                                        errorLine("C_DestroyObject: invalid hObject=1879052293")}));
    ASSERT_EQ(C_DestroyObject(session, 0x70000005), CKR_OK);
    const dd::Call call = dd::calls("deleteKeyPair").at(0);
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.numbers, std::vector<std::int64_t>{1});  // the record's deletion flag
    CK_ATTRIBUTE query{CKA_CLASS, nullptr, 0};
    EXPECT_EQ(C_GetAttributeValue(session, 0x70001005, &query, 1), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(C_DestroyObject(session, 0x70000005), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_TRUE(log.contains(infoLine("Input keypair not found in destroy : 1879048197")));
}

TEST_F(ObjectDestruction, CertificatesAndWhatIsTakenForThem) {
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(C_DestroyObject(session, 0x70002006), CKR_OK);  // a public session: no PIN needed
    EXPECT_TRUE(dd::certificates("OBJ1").empty());
    EXPECT_EQ(C_DestroyObject(session, 0x70003000), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_TRUE(log.contains(infoLine("Input certificate not found in destroy : 1879060480")));
    EXPECT_EQ(C_DestroyObject(session, 0x10), CKR_OBJECT_HANDLE_INVALID);
    if (kAbove32Bits != 0) {
        dd::setCertificates("OBJ1", {dd::CertificateBuilder(6)});
        EXPECT_EQ(C_DestroyObject(session, 0x70002006 + kAbove32Bits), CKR_OBJECT_HANDLE_INVALID);
        EXPECT_EQ(dd::certificates("OBJ1").size(), 1u);
    }
}

TEST_F(ObjectDestruction, SessionAndDeviceRefusals) {
    EXPECT_EQ(C_DestroyObject(0x60000042, 0x70000005), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(), errorLine("Delete session state invalid"));
    const CK_SESSION_HANDLE readOnly = open(kReadOnly);
    login(readOnly);
    EXPECT_EQ(C_DestroyObject(readOnly, 0x12345), CKR_SESSION_READ_ONLY);
    EXPECT_EQ(callLines().back(), errorLine("Delete session state invalid : 1"));
    const CK_SESSION_HANDLE readWrite = open();
    dd::scriptResult("deleteKeyPair", 12);
    EXPECT_EQ(C_DestroyObject(readWrite, 0x70000005), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("Delete keypair in destroy object failed : 12"));
    dd::scriptResult("deleteCertificate", 48);
    EXPECT_EQ(C_DestroyObject(readWrite, 0x70002006), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("Delete certificate in destroy object failed : 48"));
}

}  // namespace
