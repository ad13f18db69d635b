// C_CreateObject: certificates (alone, or with the chain of their issuers from the
// installation's certificate folder) and RSA private keys, with every refusal.
#include <cstdlib>

#include "object_fixture.h"
#include "platform/platform.h"

namespace {

class ObjectCreation : public ObjectTest {
protected:
    void SetUp() override {
        ObjectTest::SetUp();
        setHome("/install/ostrel");
    }
    void TearDown() override {
        setHome(nullptr);
        ObjectTest::TearDown();
    }
    static void setHome(const char* folder) {
#if defined(_WIN32)
        _putenv_s("OSTREL_HOME", folder == nullptr ? "" : folder);
#else
        if (folder == nullptr) {
            ::unsetenv("OSTREL_HOME");
        } else {
            ::setenv("OSTREL_HOME", folder, 1);
        }
#endif
    }
    static std::string caFolder() {
        const char separator = platform::folderSeparator();
        return std::string("/install/ostrel") + separator + "OstrelDSC" + separator +
               "Certificates";
    }

    CK_RV createCertificate(CK_SESSION_HANDLE session, Bytes der, CK_OBJECT_HANDLE* handle,
                            std::string label = "") {
        std::vector<CK_ATTRIBUTE> create = {bytesAttribute(CKA_VALUE, der)};
        if (!label.empty()) {
            create.push_back(textAttribute(CKA_LABEL, label));
        }
        return C_CreateObject(session, create.data(), create.size(), handle);
    }
    static std::vector<std::string> importedLabels() {
        std::vector<std::string> labels;
        for (const dd::Call& call : dd::calls("importCertificate")) {
            labels.push_back(call.texts.at(1));
        }
        return labels;
    }
};

TEST_F(ObjectCreation, ACertificateAloneWhenNobodyIsLoggedIn) {
    const Bytes der = scriptedCertificate("alice", "Alice", "Test CA");
    const CK_SESSION_HANDLE session = open();
    CK_OBJECT_HANDLE handle = 0;
    ASSERT_EQ(createCertificate(session, der, &handle), CKR_OK);
    const std::vector<OstrelCertificate> stored = dd::certificates("OBJ1");
    ASSERT_EQ(stored.size(), 1u);
    EXPECT_EQ(handle, 0x70002000u + stored[0].id);
    EXPECT_EQ(std::string(stored[0].label), "Alice_Test CA");
    EXPECT_EQ(dd::callCount("getFilesWithExtensionsAndConvertDER"), 0u);
    EXPECT_EQ(
        callLines(),
        (std::vector<std::string>{
            infoLine("C_CreateObject"), infoLine("C_CreateObject - attrip type : 17"),
            infoLine("Label not provided, using: Alice_Test CA"),
            infoLine(
                "Chain import skipped or failed \xE2\x80\x94 Performing normal leaf import")}));
}

TEST_F(ObjectCreation, AThreeLevelChainIsImportedRootFirst) {
    const Bytes root = scriptedCertificate("root", "Root CA", "Root CA");
    const Bytes intermediate = scriptedCertificate("intermediate", "Issuing CA", "Root CA");
    const Bytes leaf = scriptedCertificate("leaf", "Alice", "Issuing CA");
    dd::setFolderFiles(caFolder(), {{"unrelated.pem", scriptedCertificate("x", "X", "Y")},
                                    {"root.cer", root},
                                    {"issuing.crt", intermediate}});
    const CK_SESSION_HANDLE session = open();
    login(session);
    CK_OBJECT_HANDLE handle = 0;
    ASSERT_EQ(createCertificate(session, leaf, &handle, "  my signing cert "), CKR_OK);
    EXPECT_EQ(importedLabels(), (std::vector<std::string>{"Root CA_Root CA", "Issuing CA_Root CA",
                                                          "my signing cert"}));
    const dd::Call folderRead = dd::calls("getFilesWithExtensionsAndConvertDER").at(0);
    EXPECT_EQ(folderRead.texts,
              (std::vector<std::string>{caFolder(), ".cer", ".der", ".pem", ".crt"}));
    EXPECT_EQ(folderRead.instance, nullptr);
    EXPECT_EQ(handle, 0x70002000u + dd::certificates("OBJ1").back().id);
    const auto lines = callLines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), infoLine("Certificate imported successfully")),
              3);
    EXPECT_TRUE(log.contains(infoLine("CA Folder: " + caFolder())));
}

TEST_F(ObjectCreation, AMissingIssuerFallsBackToTheCertificateAlone) {
    const Bytes leaf = scriptedCertificate("leaf", "Alice", "Unknown CA");
    dd::setFolderFiles(caFolder(),
                       {{"root.cer", scriptedCertificate("root", "Root CA", "Root CA")}});
    const CK_SESSION_HANDLE session = open();
    login(session);
    CK_OBJECT_HANDLE handle = 0;
    ASSERT_EQ(createCertificate(session, leaf, &handle), CKR_OK);
    EXPECT_EQ(importedLabels(), std::vector<std::string>{"Alice_Unknown CA"});
    EXPECT_TRUE(
        log.contains(infoLine("Issuer 'Unknown CA' NOT found \xE2\x80\x94 skipping chain import")));
}

TEST_F(ObjectCreation, AFailedChainMemberEndsTheCallWithTheFullTokenCode) {
    const Bytes root = scriptedCertificate("root", "Root CA", "Root CA");
    dd::setFolderFiles(caFolder(), {{"root.der", root}});
    const CK_SESSION_HANDLE session = open();
    login(session);
    dd::scriptResult("importCertificate", 0);
    dd::scriptResult("importCertificate", 40);
    CK_OBJECT_HANDLE handle = 0;
    EXPECT_EQ(createCertificate(session, scriptedCertificate("leaf", "Alice", "Root CA"), &handle),
              CKR_DEVICE_MEMORY);
    EXPECT_EQ(callLines().back(), errorLine("Leaf import failed: 40"));
    EXPECT_EQ(dd::certificates("OBJ1").size(), 1u);  // the root stays
    dd::scriptResult("importCertificate", 25);
    EXPECT_EQ(createCertificate(session, scriptedCertificate("other", "Bob", "Nobody"), &handle),
              CKR_FUNCTION_FAILED);
}

TEST_F(ObjectCreation, TheKeyPairOfTheCertificateGetsItsLabel) {
    dd::setKeyPairs("OBJ1", {dd::KeyPairBuilder(4)});
    const OstrelKeyPair pair = dd::keyPairs("OBJ1").front();
    const Bytes publicKey(pair.publicValue, pair.publicValue + pair.publicValueLength);
    const CK_SESSION_HANDLE session = open();
    login(session);
    CK_OBJECT_HANDLE handle = 0;
    ASSERT_EQ(createCertificate(session, scriptedCertificate("mine", "Alice", "CA", publicKey),
                                &handle, "Alice signing"),
              CKR_OK);
    EXPECT_TRUE(log.contains(infoLine("Updating empty key pair alias to: Alice signing")));
    EXPECT_EQ(std::string(dd::keyPairs("OBJ1").front().alias), "Alice signing");
}

TEST_F(ObjectCreation, CertificateRefusals) {
    const CK_SESSION_HANDLE session = open();
    CK_OBJECT_HANDLE handle = 0;
    Bytes garbage = {1, 2, 3};
    EXPECT_EQ(createCertificate(session, garbage, &handle), CKR_DATA_INVALID);
    EXPECT_EQ(callLines().back(), infoLine("certificate parsing failed"));
    std::string label = "label only";
    CK_ATTRIBUTE labelOnly = textAttribute(CKA_LABEL, label);
    EXPECT_EQ(C_CreateObject(session, &labelOnly, 1, &handle), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("Certificate data not available in create object"));
    EXPECT_EQ(createCertificate(session, scriptedCertificate("a", "A", "B"), nullptr),
              CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_CreateObject: phObject is NULL"));
    EXPECT_EQ(C_CreateObject(session, nullptr, 1, &handle), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_CreateObject: pTemplate is NULL"));
    EXPECT_EQ(C_CreateObject(session, &labelOnly, 0, &handle), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_CreateObject: ulCount<=0"));
    EXPECT_EQ(dd::callCount("importCertificate"), 0u);
}

class PrivateKeyImport : public ObjectCreation {
protected:
    CK_RV import(CK_OBJECT_HANDLE* handle, std::size_t modulusBytes = 256,
                 CK_KEY_TYPE keyType = CKK_RSA, bool withPrime = true) {
        modulus_.assign(modulusBytes, 0xC1);
        std::vector<CK_ATTRIBUTE> create = {numberAttribute(CKA_CLASS, class_),
                                            numberAttribute(CKA_KEY_TYPE, keyType_ = keyType),
                                            bytesAttribute(CKA_MODULUS, modulus_),
                                            bytesAttribute(CKA_PRIVATE_EXPONENT, exponent_),
                                            textAttribute(CKA_LABEL, label_),
                                            bytesAttribute(CKA_ID, id_)};
        if (withPrime) {
            create.push_back(bytesAttribute(CKA_PRIME_1, prime_));
        }
        return C_CreateObject(session_, create.data(), create.size(), handle);
    }

    CK_SESSION_HANDLE session_ = 0;
    CK_ULONG class_ = CKO_PRIVATE_KEY;
    CK_ULONG keyType_ = CKK_RSA;
    Bytes modulus_;
    Bytes exponent_ = Bytes(256, 0x77);
    Bytes prime_ = Bytes(128, 0x99);
    std::string label_ = "imported key";
    Bytes id_ = {0x42};
};

TEST_F(PrivateKeyImport, TheComponentsReachTheDeviceAndTheHandleIsThePrivateKeys) {
    session_ = open();
    login(session_);
    CK_OBJECT_HANDLE handle = 0;
    ASSERT_EQ(import(&handle), CKR_OK);
    const dd::Call call = dd::calls("importPfx").at(0);
    EXPECT_EQ(call.texts, (std::vector<std::string>{dd::kDefaultUserPin, label_}));
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{modulus_, exponent_, prime_, id_}));
    EXPECT_EQ(call.numbers, std::vector<std::int64_t>{2});
    EXPECT_EQ(handle, 0x70000000u + dd::keyPairs("OBJ1").at(0).id);
}

TEST_F(PrivateKeyImport, Refusals) {
    session_ = open();
    login(session_);
    CK_OBJECT_HANDLE handle = 0;
    EXPECT_EQ(import(&handle, 128), CKR_KEY_SIZE_RANGE);
    EXPECT_EQ(callLines().back(),
              errorLine("C_CreateObject: RSA-1024 key import not allowed \xE2\x80\x94 key size "
                        "below 112-bit security strength"));
    EXPECT_EQ(import(&handle, 256, CKK_EC), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("ECC keypair not supported for import"));
    EXPECT_EQ(import(&handle, 256, CKK_RSA, false), CKR_FUNCTION_FAILED);
    EXPECT_EQ(callLines().back(), errorLine("Invalid input parameters for import RSA key"));
    EXPECT_EQ(import(nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(callLines().back(), errorLine("C_CreateObject: phObject is NULL"));
    class_ = CKO_PUBLIC_KEY;
    EXPECT_EQ(import(&handle), CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(callLines().back(), errorLine("Provided object class not supported : 2"));
    EXPECT_EQ(dd::callCount("importPfx"), 0u);
    class_ = CKO_PRIVATE_KEY;
    for (int code : {40, 242}) {
        dd::scriptResult("importPfx", code);
        EXPECT_EQ(import(&handle), CKR_DEVICE_MEMORY) << code;
        EXPECT_EQ(callLines().back(),
                  errorLine("Import private key into device failed : " + std::to_string(code)));
    }
    dd::scriptResult("importPfx", 12);
    EXPECT_EQ(import(&handle), CKR_FUNCTION_FAILED);
}

}  // namespace
