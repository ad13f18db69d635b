// Object search: what a template selects, in which order handles come, and the snapshot and
// cursor that the three calls share.
#include "object_fixture.h"

namespace {

class ObjectSearch : public ObjectTest {
protected:
    void SetUp() override {
        ObjectTest::SetUp();
        dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(5).alias("  signing key\r\n").objectId({0x01}),
                                 dd::KeyPairBuilder(7).alias("other").objectId({0x02})});
        dd::setCertificates("OBJ1", {dd::CertificateBuilder(3).label("cert three").objectId({0x02}),
                                     dd::CertificateBuilder(9).label("cert nine")});
    }
};

constexpr CK_OBJECT_HANDLE kPublic5 = 0x70001005, kPublic7 = 0x70001007;
constexpr CK_OBJECT_HANDLE kPrivate5 = 0x70000005, kPrivate7 = 0x70000007;
constexpr CK_OBJECT_HANDLE kCertificate3 = 0x70002003, kCertificate9 = 0x70002009;

TEST_F(ObjectSearch, EmptyTemplateFindsPrivateKeysOnlyForALoggedInUser) {
    const CK_SESSION_HANDLE session = open(kReadOnly);
    EXPECT_EQ(findAll(session),
              (std::vector<CK_OBJECT_HANDLE>{kPublic5, kPublic7, kCertificate3, kCertificate9}));
    login(session);
    EXPECT_EQ(findAll(session),
              (std::vector<CK_OBJECT_HANDLE>{kPublic5, kPublic7, kPrivate5, kPrivate7,
                                             kCertificate3, kCertificate9}));
}

TEST_F(ObjectSearch, ClassSelectsTheKindAndTheFirstCriterionGivenDecides) {
    const CK_SESSION_HANDLE session = open();
    login(session);
    CK_ULONG privateKey = CKO_PRIVATE_KEY, publicKey = CKO_PUBLIC_KEY;
    CK_ULONG certificate = CKO_CERTIFICATE, data = CKO_DATA;
    Bytes id2 = {0x02};
    std::string label = "signing key";
    EXPECT_EQ(findAll(session, {numberAttribute(CKA_CLASS, privateKey)}),
              (std::vector<CK_OBJECT_HANDLE>{kPrivate5, kPrivate7}));
    EXPECT_EQ(
        findAll(session, {numberAttribute(CKA_CLASS, publicKey), bytesAttribute(CKA_ID, id2)}),
        std::vector<CK_OBJECT_HANDLE>{kPublic7});
    EXPECT_EQ(
        findAll(session, {numberAttribute(CKA_CLASS, certificate), bytesAttribute(CKA_ID, id2)}),
        std::vector<CK_OBJECT_HANDLE>{kCertificate3});
    // The trimmed alias is the label; the label wins over the id.
    EXPECT_EQ(findAll(session, {bytesAttribute(CKA_ID, id2), numberAttribute(CKA_CLASS, privateKey),
                                textAttribute(CKA_LABEL, label)}),
              std::vector<CK_OBJECT_HANDLE>{kPrivate5});
    // Without a class the id counts for nothing: everything is found.
    EXPECT_EQ(findAll(session, {bytesAttribute(CKA_ID, id2)}).size(), 6u);
    // Other classes find nothing, with CKR_OK.
    EXPECT_TRUE(findAll(session, {numberAttribute(CKA_CLASS, data)}).empty());
    // An unknown attribute has no effect.
    CK_ULONG whatever = 1;
    EXPECT_EQ(findAll(session, {numberAttribute(CKA_CLASS, certificate),
                                numberAttribute(CKA_VENDOR_DEFINED + 7, whatever)}),
              (std::vector<CK_OBJECT_HANDLE>{kCertificate3, kCertificate9}));
}

TEST_F(ObjectSearch, ValueModulusAndSubjectCompareLengthAndBytes) {
    const Bytes der = scriptedCertificate("DER of twelve", "Twelve", "Issuer");
    dd::setCertificates("OBJ1", {dd::CertificateBuilder(12).der(der)});
    const OstrelKeyPair seven = dd::keyPairs("OBJ1").at(1);
    const Bytes modulus(seven.publicValue, seven.publicValue + seven.publicValueLength);
    const CK_SESSION_HANDLE session = open();
    CK_ULONG publicKey = CKO_PUBLIC_KEY, certificate = CKO_CERTIFICATE;
    Bytes value = modulus;
    EXPECT_EQ(findAll(session,
                      {numberAttribute(CKA_CLASS, publicKey), bytesAttribute(CKA_MODULUS, value)}),
              std::vector<CK_OBJECT_HANDLE>{kPublic7});
    value.pop_back();
    EXPECT_TRUE(
        findAll(session, {numberAttribute(CKA_CLASS, publicKey), bytesAttribute(CKA_VALUE, value)})
            .empty());
    Bytes subject = {0x30, 0x01, 6};
    EXPECT_EQ(findAll(session, {numberAttribute(CKA_CLASS, certificate),
                                bytesAttribute(CKA_SUBJECT, subject)}),
              std::vector<CK_OBJECT_HANDLE>{0x7000200C});
    // The DER extractors are called with a null instance.
    ASSERT_FALSE(dd::calls("getCertificateSubject").empty());
    EXPECT_EQ(dd::calls("getCertificateSubject").back().instance, nullptr);
}

TEST_F(ObjectSearch, CursorHandsOutTheSnapshotOnceInPages) {
    const CK_SESSION_HANDLE session = open();
    CK_ULONG certificate = CKO_CERTIFICATE;
    CK_ATTRIBUTE search = numberAttribute(CKA_CLASS, certificate);
    ASSERT_EQ(C_FindObjectsInit(session, &search, 1), CKR_OK);
    // Deleted on the device after the snapshot: still handed out.
    dd::setCertificates("OBJ1", {});
    CK_OBJECT_HANDLE handle = 0;
    CK_ULONG count = 9;
    ASSERT_EQ(C_FindObjects(session, &handle, 0, &count), CKR_OK);
    EXPECT_EQ(count, 0u);
    std::vector<CK_OBJECT_HANDLE> found;
    for (int call = 0; call < 3; ++call) {
        ASSERT_EQ(C_FindObjects(session, &handle, 1, &count), CKR_OK);
        found.insert(found.end(), &handle, &handle + count);
    }
    EXPECT_EQ(found, (std::vector<CK_OBJECT_HANDLE>{kCertificate3, kCertificate9}));
    EXPECT_EQ(C_FindObjectsFinal(session), CKR_OK);
}

TEST_F(ObjectSearch, ASearchLogsWhatItReadAndHandsOut) {
    const CK_SESSION_HANDLE session = open();
    CK_ULONG certificate = CKO_CERTIFICATE;
    Bytes id = {0x02, 0xAB};
    std::vector<CK_ATTRIBUTE> search = {numberAttribute(CKA_CLASS, certificate),
                                        bytesAttribute(CKA_ID, id)};
    ASSERT_EQ(C_FindObjectsInit(session, search.data(), 2), CKR_OK);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{
                  infoLine("C_FindObjectsInit"), infoLine("Find object init count : 2"),
                  infoLine("Find object init type : 0"), infoLine("Find object class : 1"),
                  infoLine("Find object init type : 258"), infoLine("Find init id : 02AB")}));
    id = {0x02};
    search[1] = bytesAttribute(CKA_ID, id);
    ASSERT_EQ(C_FindObjectsInit(session, search.data(), 2), CKR_OK);
    log.newLines();
    CK_OBJECT_HANDLE handles[4];
    CK_ULONG count = 0;
    ASSERT_EQ(C_FindObjects(session, handles, 4, &count), CKR_OK);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_FindObjects"),
                                        infoLine("C_FindObjects find object count : 1"),
                                        infoLine("Find object return : 1879056387"),
                                        infoLine("C_FindObjects find object count return : 1")}));
}

TEST_F(ObjectSearch, RefusedTemplatesLeaveTheSearchEmpty) {
    const CK_SESSION_HANDLE session = open();
    ASSERT_EQ(C_FindObjectsInit(session, nullptr, 0), CKR_OK);
    log.newLines();
    CK_ULONG certificate = CKO_CERTIFICATE;
    std::string empty;
    const auto refuse = [&](std::vector<CK_ATTRIBUTE> search, const std::string& what) {
        EXPECT_EQ(C_FindObjectsInit(session, search.data(), search.size()),
                  CKR_ATTRIBUTE_VALUE_INVALID);
        const auto lines = callLines();
        EXPECT_EQ(lines.back(), errorLine("C_FindObjectsInit: " + what)) << what;
    };
    refuse({{CKA_LABEL, nullptr, 4}}, "pValue is NULL at attribute index=0 type=3");
    refuse({numberAttribute(CKA_CLASS, certificate), textAttribute(CKA_LABEL, empty)},
           "ulValueLen<=0 at attribute index=1 type=3");
    // CKA_CLASS is accepted as wide as CK_ULONG only.
    const CK_ULONG otherWidth = sizeof(CK_ULONG) == 8 ? 4 : 8;
    refuse({{CKA_CLASS, &certificate, otherWidth}},
           "wrong size for CKA_CLASS at index=0 ulValueLen=" + std::to_string(otherWidth));
    // The search in progress was emptied, and is still in progress.
    CK_OBJECT_HANDLE handle = 0;
    CK_ULONG count = 7;
    EXPECT_EQ(C_FindObjects(session, &handle, 1, &count), CKR_OK);
    EXPECT_EQ(count, 0u);

    EXPECT_EQ(C_FindObjectsInit(session, nullptr, 2), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_FindObjectsInit: pTemplate is NULL with ulCount=2"));
    EXPECT_EQ(C_FindObjects(session, nullptr, 1, &count), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(),
              errorLine("C_FindObjects: phObject is NULL with ulMaxObjectCount=1"));
    EXPECT_EQ(C_FindObjects(session, &handle, 1, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_FindObjects: pulObjectCount is NULL"));
    EXPECT_EQ(C_FindObjectsFinal(session), CKR_OK);
    EXPECT_EQ(C_FindObjectsFinal(session), CKR_OPERATION_NOT_INITIALIZED);
    EXPECT_EQ(callLines().back(),
              errorLine("C_FindObjectsFinal: operation not initialized, activeOperation=0"));
    EXPECT_EQ(C_FindObjects(session, &handle, 1, &count), CKR_OPERATION_NOT_INITIALIZED);
}

TEST_F(ObjectSearch, EmptyListsPrepareTheDeviceOnceAndAFailureIsOnlyLogged) {
    dd::setKeyPairs("OBJ1", {});
    const CK_SESSION_HANDLE session = open();
    dd::clearCalls();
    EXPECT_EQ(findAll(session).size(), 2u);
    EXPECT_EQ(dd::callCount("initDevice"), 1u);
    EXPECT_EQ(dd::calls("initDevice").front().numbers, (std::vector<std::int64_t>{1}));
    EXPECT_EQ(dd::callCount("getKeyPairList"), 2u);
    dd::scriptResult("initDevice", 48);
    ASSERT_EQ(C_FindObjectsInit(session, nullptr, 0), CKR_OK);
    EXPECT_EQ(callLines().back(),
              errorLine("Init device for certificates in find objects failed : 48"));
}

TEST_F(ObjectSearch, SessionsAreCheckedFirstAndHandlesAboveThirtyTwoBitsNameNothing) {
    EXPECT_EQ(C_FindObjectsInit(0x60000009, nullptr, 0), CKR_SESSION_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(), errorLine("C_FindObjectsInit: invalid hSession=1610612745"));
    const CK_SESSION_HANDLE session = open();
    if (kAbove32Bits != 0) {
        EXPECT_EQ(C_FindObjectsInit(session + kAbove32Bits, nullptr, 0),
                  CKR_SESSION_HANDLE_INVALID);
    }
}

}  // namespace
