// Attributes: the table's values for each kind of object, labels computed from certificates,
// the buffer rules of C_GetAttributeValue, renaming, and object sizes.
#include "core/module_state.h"
#include "object_fixture.h"

namespace {

using Attributes = ObjectTest;

TEST_F(Attributes, KeyTypeCodesGiveTypeBitsMechanismAndCurve) {
    struct Expected {
        std::int32_t code;
        CK_ULONG keyType, bits, mechanism;
        Bytes ecParams;
    };
    const std::vector<Expected> table = {
        {1, CKK_RSA, 1024, 0, {}},
        {2, CKK_RSA, 2048, 0, {}},
        {3, CKK_RSA, 3072, 0, {}},
        {4, CKK_RSA, 4096, 0, {}},
        {5,
         CKK_EC,
         256,
         CKM_EC_KEY_PAIR_GEN,
         {0x06, 0x08, 0x2A, 0x86, 0x48, 0xCE, 0x3D, 0x03, 0x01, 0x07}},
        {6, CKK_EC, 384, CKM_EC_KEY_PAIR_GEN, {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22}},
        {7, CKK_EC, 521, CKM_EC_KEY_PAIR_GEN, {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x23}},
        {42, CKK_RSA, 2048, 0, {}},  // unknown codes read as RSA-2048
    };
    std::vector<OstrelKeyPair> pairs;
    for (const Expected& row : table) {
        pairs.push_back(dd::KeyPairBuilder(static_cast<std::uint32_t>(row.code))
                            .keyType(row.code == 42 ? 2 : row.code)
                            .alias("k"));
        pairs.back().keyType = row.code;
    }
    dd::setKeyPairs("OBJ1", pairs);
    const CK_SESSION_HANDLE session = open();
    for (const Expected& row : table) {
        const CK_OBJECT_HANDLE key = 0x70001000 + static_cast<CK_ULONG>(row.code);
        EXPECT_EQ(number(session, key, CKA_KEY_TYPE), row.keyType) << row.code;
        EXPECT_EQ(number(session, key, CKA_MODULUS_BITS), row.bits) << row.code;
        EXPECT_EQ(number(session, key, CKA_KEY_GEN_MECHANISM), row.mechanism) << row.code;
        EXPECT_EQ(attribute(session, key, CKA_EC_PARAMS), row.ecParams) << row.code;
    }
}

TEST_F(Attributes, HalvesOfAPairDifferInClassSecrecyAndUsage) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(4).usageFlags(kKeyUsageSign).alias("pair")});
    const CK_SESSION_HANDLE session = open();
    const CK_OBJECT_HANDLE privateKey = 0x70000004, publicKey = 0x70001004;
    const auto flag = [&](CK_OBJECT_HANDLE key, CK_ATTRIBUTE_TYPE type) {
        const Bytes value = attribute(session, key, type);
        EXPECT_EQ(value.size(), 1u) << type;
        return value.empty() ? -1 : value[0];
    };
    EXPECT_EQ(number(session, privateKey, CKA_CLASS), CKO_PRIVATE_KEY);
    EXPECT_EQ(number(session, publicKey, CKA_CLASS), CKO_PUBLIC_KEY);
    EXPECT_EQ(number(session, publicKey, CKA_OBJECT_ID), publicKey);
    for (CK_ATTRIBUTE_TYPE type : {CKA_PRIVATE, CKA_SENSITIVE, CKA_SIGN}) {
        EXPECT_EQ(flag(privateKey, type), CK_TRUE) << type;
        EXPECT_EQ(flag(publicKey, type), CK_FALSE) << type;
    }
    EXPECT_EQ(flag(publicKey, CKA_VERIFY), CK_TRUE);
    EXPECT_EQ(flag(publicKey, CKA_EXTRACTABLE), CK_TRUE);
    EXPECT_EQ(flag(privateKey, CKA_EXTRACTABLE), CK_FALSE);
    // The pair does not decrypt: neither half says so.
    EXPECT_EQ(flag(privateKey, CKA_DECRYPT), CK_FALSE);
    EXPECT_EQ(flag(publicKey, CKA_ENCRYPT), CK_FALSE);
    EXPECT_EQ(flag(privateKey, CKA_MODIFIABLE), CK_FALSE);
    EXPECT_EQ(flag(privateKey, CKA_TOKEN), CK_TRUE);
    // Types the table does not list read as one byte CK_FALSE.
    EXPECT_EQ(flag(privateKey, CKA_VENDOR_DEFINED), CK_FALSE);
    EXPECT_EQ(attribute(session, publicKey, CKA_PUBLIC_EXPONENT), (Bytes{0x01, 0x00, 0x01}));
    EXPECT_TRUE(attribute(session, publicKey, CKA_SUBJECT).empty());
}

TEST_F(Attributes, EcPointIsAnOctetStringWithTheLongLengthFromOneHundredAndTwentyEightBytes) {
    const Bytes point65(65, 0x04);
    const Bytes value200(200, 0x5A);
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(1).keyType(5).publicValue(point65).alias("a"),
                             dd::KeyPairBuilder(2).keyType(5).publicValue(value200).alias("b")});
    const CK_SESSION_HANDLE session = open();
    Bytes expected = {0x04, 0x41};
    expected.insert(expected.end(), point65.begin(), point65.end());
    EXPECT_EQ(attribute(session, 0x70001001, CKA_EC_POINT), expected);
    expected = {0x04, 0x81, 0xC8};
    expected.insert(expected.end(), value200.begin(), value200.end());
    EXPECT_EQ(attribute(session, 0x70000002, CKA_EC_POINT), expected);
    EXPECT_EQ(attribute(session, 0x70001002, CKA_VALUE), value200);
    const Bytes value128(128, 0x33);
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(3).keyType(5).publicValue(value128).alias("c")});
    expected = {0x04, 0x81, 0x80};
    expected.insert(expected.end(), value128.begin(), value128.end());
    EXPECT_EQ(attribute(session, 0x70001003, CKA_EC_POINT), expected);
}

TEST_F(Attributes, CertificatesAnswerFromTheirDerAndTheDevicesExtractors) {
    const Bytes der = scriptedCertificate("certificate DER", "Alice", "Test CA");
    dd::setCertificates("OBJ1", {dd::CertificateBuilder(6).der(der).objectId({0x0A})});
    const CK_SESSION_HANDLE session = open();
    const CK_OBJECT_HANDLE certificate = 0x70002006;
    EXPECT_EQ(number(session, certificate, CKA_CLASS), CKO_CERTIFICATE);
    EXPECT_EQ(number(session, certificate, CKA_CERTIFICATE_TYPE), CKC_X_509);
    EXPECT_EQ(attribute(session, certificate, CKA_VALUE), der);
    EXPECT_EQ(attribute(session, certificate, CKA_MODULUS), der);
    EXPECT_EQ(attribute(session, certificate, CKA_SUBJECT), (Bytes{0x30, 0x01, 5}));
    EXPECT_EQ(attribute(session, certificate, CKA_ISSUER), (Bytes{0x30, 0x02, 7}));
    EXPECT_EQ(attribute(session, certificate, CKA_SERIAL_NUMBER), (Bytes{0x02, 0x01, 0x07}));
    EXPECT_EQ(attribute(session, certificate, CKA_ID), Bytes{0x0A});
    EXPECT_EQ(number(session, certificate, CKA_MODULUS_BITS), 2048u);
    EXPECT_TRUE(attribute(session, certificate, CKA_EC_POINT).empty());
    // No label of its own: computed from the certificate, and only returned.
    const std::string label = "Alice_Test CA";
    EXPECT_EQ(attribute(session, certificate, CKA_LABEL), Bytes(label.begin(), label.end()));
    EXPECT_EQ(dd::callCount("updateKeyPairDetails"), 0u);
}

TEST_F(Attributes, AKeyPairWithoutLabelTakesItsCertificatesAndStoresItWhenLoggedIn) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(3).alias(" \t ")});
    const OstrelKeyPair pair = dd::keyPairs("OBJ1").front();
    const Bytes publicKey(pair.publicValue, pair.publicValue + pair.publicValueLength);
    const Bytes other = scriptedCertificate("other certificate", "Bob", "Test CA", {0x01});
    const Bytes mine =
        scriptedCertificate("my certificate", std::string(100, 'A'), "Test CA", publicKey);
    dd::setCertificates(
        "OBJ1", {dd::CertificateBuilder(1).der(other), dd::CertificateBuilder(2).der(mine)});
    const std::string expected = (std::string(100, 'A') + "_Test CA").substr(0, 128);
    const CK_SESSION_HANDLE session = open();
    CK_ATTRIBUTE query{CKA_LABEL, nullptr, 0};
    ASSERT_EQ(C_GetAttributeValue(session, 0x70000003, &query, 1), CKR_OK);
    EXPECT_EQ(query.ulValueLen, expected.size());
    EXPECT_TRUE(log.contains(infoLine("Empty key pair label, computed: " + expected)));
    EXPECT_EQ(dd::callCount("updateKeyPairDetails"), 0u);  // nobody logged in

    login(session);
    ASSERT_EQ(C_GetAttributeValue(session, 0x70000003, &query, 1), CKR_OK);
    ASSERT_EQ(dd::callCount("updateKeyPairDetails"), 1u);
    const dd::Call update = dd::calls("updateKeyPairDetails").front();
    EXPECT_EQ(update.texts, (std::vector<std::string>{dd::kDefaultUserPin, expected}));
    EXPECT_EQ(std::string(dd::keyPairs("OBJ1").front().alias), expected);
}

TEST_F(Attributes, ATooSmallBufferStopsTheTemplateAtItsEntry) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(2).alias("label").objectId({1, 2})});
    const CK_SESSION_HANDLE session = open();
    char label[16] = {};
    unsigned char modulus[100] = {};
    unsigned char id[4] = {0xEE, 0xEE, 0xEE, 0xEE};
    CK_ATTRIBUTE read[] = {{CKA_LABEL, label, sizeof label},
                           {CKA_MODULUS, modulus, sizeof modulus},
                           {CKA_ID, id, sizeof id}};
    EXPECT_EQ(C_GetAttributeValue(session, 0x70001002, read, 3), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::string(label, read[0].ulValueLen), "label");
    EXPECT_EQ(read[1].ulValueLen, 100u);
    EXPECT_EQ(read[2].ulValueLen, sizeof id);
    EXPECT_EQ(id[0], 0xEE);
    EXPECT_EQ(callLines().back(),
              errorLine("C_GetAttributeValue: buffer too small at index=1 type=288 "
                        "provided=100 required=256"));
}

TEST_F(Attributes, RefusedHandlesAndTemplatesSayWhy) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(2).alias("k")});
    dd::setCertificates("OBJ1", {dd::CertificateBuilder(0).label("id zero")});
    const CK_SESSION_HANDLE session = open();
    CK_ATTRIBUTE query{CKA_CLASS, nullptr, 0};
    const auto refused = [&](CK_OBJECT_HANDLE object, const std::string& line) {
        EXPECT_EQ(C_GetAttributeValue(session, object, &query, 1), CKR_OBJECT_HANDLE_INVALID);
        EXPECT_EQ(callLines().back(), errorLine(line)) << object;
    };
    // A certificate is strictly above 0x70002000: a certificate of id 0 is unreadable.
    refused(0x70002000, "Input hobject not valid in get attribute : 1879056384");
    refused(0x6FFFFFFF, "Input hobject not valid in get attribute : 1879048191");
    refused(0x70000009, "Key pair not found in get attribute : 1879048201");
    refused(0x70002001, "Certificate not found in get attribute : 1879056385");
    refused(0x70003005, "C_GetAttributeValue: derived key handle not found=1879060485");
    if (kAbove32Bits != 0) {
        refused(0x70001002 + kAbove32Bits, "Input hobject not valid in get attribute : " +
                                               std::to_string(0x70001002 + kAbove32Bits));
    }
    EXPECT_EQ(C_GetAttributeValue(session, 0x70001002, nullptr, 1), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_GetAttributeValue template is null"));
    EXPECT_EQ(C_GetAttributeValue(session, 0x70001002, &query, 0), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines(),
              (std::vector<std::string>{infoLine("C_GetAttributeValue"),
                                        infoLine("C_GetAttributeValue count : 0"),
                                        errorLine("C_GetAttributeValue: ulCount<=0")}));
}

TEST_F(Attributes, DerivedKeysHaveOnlyAValue) {
    const CK_SESSION_HANDLE session = open();
    const Bytes secret = {1, 2, 3, 4, 5};
    const std::uint32_t handle =
        moduleState().derivedKeys.add(SecretBytes(secret.begin(), secret.end()));
    unsigned char value[8] = {};
    unsigned char small[4] = {};
    CK_ATTRIBUTE read[] = {{CKA_CLASS, nullptr, 0}, {CKA_VALUE, value, sizeof value}};
    ASSERT_EQ(C_GetAttributeValue(session, handle, read, 2), CKR_OK);
    EXPECT_EQ(read[0].ulValueLen, CK_UNAVAILABLE_INFORMATION);
    EXPECT_EQ(Bytes(value, value + read[1].ulValueLen), secret);
    CK_ATTRIBUTE tooSmall{CKA_VALUE, small, sizeof small};
    EXPECT_EQ(C_GetAttributeValue(session, handle, &tooSmall, 1), CKR_BUFFER_TOO_SMALL);
    EXPECT_EQ(tooSmall.ulValueLen, sizeof small);
}

TEST_F(Attributes, SetAttributeValueRenamesKeysOnly) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(2).alias("old")});
    dd::setCertificates("OBJ1", {dd::CertificateBuilder(3)});
    const CK_SESSION_HANDLE session = open();
    login(session);
    std::string label = "new name";
    Bytes id = {0xCA, 0xFE};
    CK_ATTRIBUTE rename[] = {textAttribute(CKA_LABEL, label), bytesAttribute(CKA_ID, id)};
    EXPECT_EQ(C_SetAttributeValue(session, 0x70001002, rename, 2), CKR_OK);
    const OstrelKeyPair pair = dd::keyPairs("OBJ1").front();
    EXPECT_EQ(std::string(pair.alias), label);
    EXPECT_EQ(Bytes(pair.objectId, pair.objectId + pair.objectIdLength), id);

    dd::clearCalls();
    CK_BBOOL no = CK_FALSE;
    CK_ATTRIBUTE modifiable{CKA_MODIFIABLE, &no, 1};
    EXPECT_EQ(C_SetAttributeValue(session, 0x70000002, &modifiable, 1), CKR_OK);
    EXPECT_EQ(dd::callCount("updateKeyPairDetails"), 0u);
    EXPECT_EQ(C_SetAttributeValue(session, 0x70002003, rename, 2), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(), errorLine("C_SetAttributeValue: invalid hObject=1879056387"));
    EXPECT_EQ(C_SetAttributeValue(session, 0x70000008, rename, 2), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(), errorLine("Key pair not found in Set attribute : 1879048200"));
    dd::scriptResult("updateKeyPairDetails", 40);
    EXPECT_EQ(C_SetAttributeValue(session, 0x70000002, rename, 2), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("Update key pair details failed : 40"));
    EXPECT_EQ(C_SetAttributeValue(session, 0x70000002, nullptr, 2), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_SetAttributeValue: pTemplate is NULL"));
}

TEST_F(Attributes, ObjectSizes) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(2).alias("k")});
    dd::setCertificates("OBJ1", {dd::CertificateBuilder(3).der(Bytes(321, 0x30))});
    const CK_SESSION_HANDLE session = open();
    CK_ULONG size = 0;
    ASSERT_EQ(C_GetObjectSize(session, 0x70000002, &size), CKR_OK);
    EXPECT_EQ(size, 512u);
    ASSERT_EQ(C_GetObjectSize(session, 0x70001002, &size), CKR_OK);
    EXPECT_EQ(size, 256u);
    ASSERT_EQ(C_GetObjectSize(session, 0x70002003, &size), CKR_OK);
    EXPECT_EQ(size, 321u);
    EXPECT_EQ(C_GetObjectSize(session, 0x70000003, &size), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(),
              errorLine("Private key not found in get object size : 1879048195"));
    // Derived keys and other handles are taken for certificates.
    EXPECT_EQ(C_GetObjectSize(session, 0x70003000, &size), CKR_OBJECT_HANDLE_INVALID);
    EXPECT_EQ(callLines().back(),
              errorLine("Certificate not found in get object size : 1879060480"));
    EXPECT_EQ(C_GetObjectSize(session, 0x70002003, nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_GetObjectSize: pulSize is NULL"));
}

}  // namespace
