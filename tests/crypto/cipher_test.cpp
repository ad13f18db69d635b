// Encryption and decryption: the EncryptionType and PaddingMode the device gets, the key halves
// each accepts, the kept result, the firmware gate and failures.
#include "crypto_fixture.h"

namespace {

class CipherTest : public CryptoTest {
protected:
    // Init and a length query; the code of the query.
    CK_RV encryptQuery(CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key, Bytes data) {
        CK_MECHANISM encrypting = mechanism(type);
        EXPECT_EQ(C_EncryptInit(session, &encrypting, key), CKR_OK);
        CK_ULONG length = 0;
        return C_Encrypt(session, data.data(), data.size(), nullptr, &length);
    }
};

TEST_F(CipherTest, EncryptionTypeAndPaddingFollowTheKeyAndTheMechanism) {
    struct Case {
        CK_MECHANISM_TYPE type;
        CK_OBJECT_HANDLE key;
        std::int64_t encryptionType;
        std::int64_t padding;
        std::uint32_t pairId;
    };
    const Case cases[] = {
        {CKM_RSA_PKCS, 0x70001002, 7, 1, 2},
        {CKM_RSA_PKCS, kRsaPublic, 8, 1, 1},
        {CKM_RSA_PKCS, 0x70001005, 9, 1, 5},
        {CKM_RSA_PKCS_OAEP, 0x70001006, 10, 4, 6},
        {CKM_RSA_PKCS_OAEP, kEcPublic, 8, 4, 3},  // any other key type encrypts as RSA-2048
        // A private key's handle encrypts with the public half of its pair.
        {CKM_RSA_PKCS, kRsaPrivate, 8, 1, 1},
    };
    const Bytes data = bytes("plain");
    for (const Case& each : cases) {
        forget();
        dd::scriptResult("encrypt", 0);  // the double would refuse the EC pair
        ASSERT_EQ(encryptQuery(each.type, each.key, data), CKR_OK);
        const dd::Call call = onlyCall("encrypt");
        EXPECT_EQ(call.numbers.at(0), each.encryptionType) << each.key;
        EXPECT_EQ(call.numbers.at(1), each.padding) << each.key;
        EXPECT_EQ(call.numbers.at(3), 0);  // the output length on entry
        EXPECT_EQ(call.bytes.at(0), data);
        const Bytes value = publicValue(each.pairId);
        // The key is the pair's public value wrapped as an RSA SubjectPublicKeyInfo.
        const Bytes& key = call.bytes.at(1);
        ASSERT_GT(key.size(), value.size() + 5);
        EXPECT_EQ(Bytes(key.end() - 5 - value.size(), key.end() - 5), value) << each.key;
        EXPECT_EQ(Bytes(key.end() - 5, key.end()), (Bytes{0x02, 0x03, 0x01, 0x00, 0x01}));
        EXPECT_EQ(call.instance, moduleState().deviceInstance.load());
        C_CloseSession(session);
        session = open(kFipsSlot, kReadWrite);
    }
}

TEST_F(CipherTest, EncryptKeepsTheCiphertextOfTheFirstPlaintext) {
    const Bytes first = bytes("first"), second = bytes("second");
    forget();
    ASSERT_EQ(encryptQuery(CKM_RSA_PKCS, kRsaPublic, first), CKR_OK);
    EXPECT_EQ(log.newCallLines(), (Lines{infoLine("C_EncryptInit"), infoLine("C_Encrypt")}));
    Bytes input = second, output(300, 0xEE);
    CK_ULONG length = 1;
    ASSERT_EQ(C_Encrypt(session, input.data(), input.size(), output.data(), &length), CKR_OK);
    EXPECT_EQ(length, 256u);
    output.resize(length);
    EXPECT_EQ(dd::callCount("encrypt"), 1u);
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, 0u);

    // The ciphertext is the first plaintext's: the token decrypts it back.
    loginUser();
    CK_MECHANISM decrypting = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_DecryptInit(session, &decrypting, 0x70000006), CKR_OK);  // deletion flag true
    ASSERT_EQ(C_DecryptInit(session, &decrypting, kRsaPrivate), CKR_OPERATION_ACTIVE);
    forget();
    Bytes plain(64, 0);
    length = 0;
    ASSERT_EQ(C_Decrypt(session, output.data(), output.size(), nullptr, &length), CKR_OK);
    EXPECT_EQ(length, first.size());
    ASSERT_EQ(C_Decrypt(session, output.data(), 1, plain.data(), &length), CKR_OK);
    EXPECT_EQ(Bytes(plain.begin(), plain.begin() + length), first);
    const dd::Call call = onlyCall("decrypt");
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{keyReference(6), output}));
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{256, 1}));
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, CKM_RSA_PKCS);  // left as it was
    EXPECT_TRUE(context(session).pendingOutput.empty());
}

TEST_F(CipherTest, InitRefusals) {
    CK_BYTE parameter[8] = {};
    const std::string privateText = std::to_string(kRsaPrivate);
    const std::string publicText = std::to_string(kRsaPublic);
    struct Case {
        bool decrypt;
        CK_MECHANISM cipher;
        CK_OBJECT_HANDLE key;
        CK_SLOT_ID slot;
        CK_RV expected;
        std::string line;
    };
    const Case cases[] = {
        {false,
         {CKM_RSA_PKCS_OAEP, nullptr, 0},
         kRsaPrivate,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "C_EncryptInit: invalid hKey=" + privateText + " for CKM_RSA_PKCS_OAEP"},
        {false,
         {CKM_RSA_PKCS_OAEP, nullptr, 0},
         0x70001040,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "C_EncryptInit: invalid input handle for OAEP encrypt : 1879052352"},
        {false,
         {CKM_RSA_PKCS_OAEP, parameter, 8},
         kRsaPublic,
         kOldFirmwareSlot,
         CKR_MECHANISM_INVALID,
         "C_EncryptInit: CKM_RSA_PKCS_OAEP not supported on firmware 1.9.9"},
        {false,
         {CKM_RSA_PKCS, parameter, 8},
         kRsaPublic,
         kFipsSlot,
         CKR_MECHANISM_PARAM_INVALID,
         "C_EncryptInit: mechanism param invalid for mechanism=1"},
        {false,
         {CKM_RSA_PKCS, nullptr, 0},
         0x6FFFFFFF,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "C_EncryptInit: invalid hKey=1879048191"},
        {false,
         {CKM_RSA_PKCS, nullptr, 0},
         0x70000040,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in encrypt : 1879048256"},
        {false,
         {CKM_RSA_X_509, nullptr, 0},
         kRsaPublic,
         kFipsSlot,
         CKR_MECHANISM_INVALID,
         "C_EncryptInit: unsupported mechanism=3"},
        {true,
         {CKM_RSA_PKCS_OAEP, nullptr, 0},
         kRsaPrivate,
         kOldFirmwareSlot,
         CKR_MECHANISM_INVALID,
         "CKM_RSA_PKCS_OAEP not supported on firmware 1.9.9"},
        {true,
         {CKM_RSA_PKCS_OAEP, nullptr, 0},
         kRsaPublic,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in decrypt OAEP : " + publicText},
        {true,
         {CKM_RSA_PKCS_OAEP, nullptr, 0},
         7,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "C_DecryptInit: invalid hKey=7 for CKM_RSA_PKCS_OAEP"},
        {true,
         {CKM_RSA_PKCS, nullptr, 1},
         kRsaPrivate,
         kFipsSlot,
         CKR_MECHANISM_PARAM_INVALID,
         "C_DecryptInit: mechanism param invalid for CKM_RSA_PKCS"},
        {true,
         {CKM_RSA_PKCS, nullptr, 0},
         7,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "C_DecryptInit: invalid hKey=7 for CKM_RSA_PKCS"},
        {true,
         {CKM_RSA_PKCS, nullptr, 0},
         kRsaPublic,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in decrypt : " + publicText},
        {true,
         {CKM_RSA_PKCS, nullptr, 0},
         kAliasOfRsaPrivate,
         kFipsSlot,
         kWideUlong ? CKR_KEY_HANDLE_INVALID : CKR_OK,
         "Invalid input handle in decrypt : " + std::to_string(kAliasOfRsaPrivate)},
        {false,
         {CKM_RSA_PKCS, nullptr, 0},
         kAliasOfRsaPrivate + 0x1000,
         kFipsSlot,
         kWideUlong ? CKR_KEY_HANDLE_INVALID : CKR_OK,
         "Invalid input handle in encrypt : " + std::to_string(kAliasOfRsaPrivate + 0x1000)},
    };
    for (const Case& each : cases) {
        if (each.expected == CKR_OK) {
            continue;  // 32-bit CK_ULONG: no wide handle to try
        }
        const CK_SESSION_HANDLE on = open(each.slot, kReadWrite);
        CK_MECHANISM cipher = each.cipher;
        const std::string name = each.decrypt ? "C_DecryptInit" : "C_EncryptInit";
        const CK_RV rv = each.decrypt ? C_DecryptInit(on, &cipher, each.key)
                                      : C_EncryptInit(on, &cipher, each.key);
        expectAnswer(rv, each.expected, {infoLine(name), errorLine(each.line)});
        EXPECT_EQ(activeOperation(on), 0u);
        EXPECT_EQ(context(on).cipherMechanism, 0u);
    }
    // Version 2.0 is enough for OAEP in both directions.
    dd::setTokenInfo("SER3", dd::makeTokenInfo("SER3", "Three", "OT2-S", "2.0"));
    CK_ULONG count = 3;
    CK_SLOT_ID slots[3];
    ASSERT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
    CK_MECHANISM oaep = mechanism(CKM_RSA_PKCS_OAEP);
    EXPECT_EQ(C_EncryptInit(open(kOldFirmwareSlot, kReadWrite), &oaep, kRsaPublic), CKR_OK);
    EXPECT_EQ(C_DecryptInit(open(kOldFirmwareSlot, kReadWrite), &oaep, kRsaPrivate), CKR_OK);
}

TEST_F(CipherTest, FailedEncryptionEndsTheOperationFailedDecryptionDoesNot) {
    dd::scriptResult("encrypt", 21);
    forget();
    EXPECT_EQ(encryptQuery(CKM_RSA_PKCS, kRsaPublic, bytes("x")), CKR_FUNCTION_FAILED);
    EXPECT_EQ(log.newCallLines().back(), errorLine("Encrypt data failed : 21"));
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, 0u);

    CK_MECHANISM decrypting = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_DecryptInit(session, &decrypting, kRsaPrivate), CKR_OK);
    forget();
    Bytes ciphertext(256, 1), plain(256);
    CK_ULONG length = 0;
    expectAnswer(C_Decrypt(session, ciphertext.data(), 256, plain.data(), &length),
                 CKR_FUNCTION_FAILED,
                 {infoLine("C_Decrypt"), errorLine("Dacrypt data failed : 10")});
    EXPECT_EQ(onlyCall("decrypt").texts, std::vector<std::string>{""});  // nobody logged in
    EXPECT_EQ(activeOperation(session), 3u);

    expectAnswer(C_Decrypt(session, nullptr, 256, plain.data(), &length), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Decrypt"), errorLine("C_Decrypt: pEncryptedData is NULL")});
    expectAnswer(C_Decrypt(session, ciphertext.data(), 0, plain.data(), &length), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Decrypt"),
                  errorLine("C_Decrypt: ulEncryptedDataLen<=0, ulEncryptedDataLen=0")});
    expectAnswer(C_Decrypt(session, ciphertext.data(), 256, plain.data(), nullptr),
                 CKR_ARGUMENTS_BAD,
                 {infoLine("C_Decrypt"), errorLine("C_Decrypt: pulDataLen is NULL")});
    EXPECT_EQ(activeOperation(session), 3u);
    const CK_SESSION_HANDLE encrypting = open(kFipsSlot, kReadOnly);
    CK_MECHANISM rsa = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_EncryptInit(encrypting, &rsa, kRsaPublic), CKR_OK);
    forget();
    expectAnswer(C_Encrypt(encrypting, plain.data(), 0, nullptr, &length), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Encrypt"),
                  errorLine("C_Encrypt: pData is NULL or ulDataLen<=0, ulDataLen=0")});
    expectAnswer(C_Encrypt(encrypting, plain.data(), 4, nullptr, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Encrypt"), errorLine("C_Encrypt: pulEncryptedDataLen is NULL")});
    EXPECT_EQ(activeOperation(encrypting), 2u);
}

}  // namespace
