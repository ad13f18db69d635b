// Encryption and decryption: the EncryptionType and PaddingMode the device gets, the key halves
// each accepts, the kept result, the firmware gate and failures.
#include <algorithm>

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
    // Mechanism, key handle, EncryptionType, PaddingMode, pair id.
    const std::tuple<CK_MECHANISM_TYPE, CK_OBJECT_HANDLE, int, int, std::uint32_t> cases[] = {
        {CKM_RSA_PKCS, 0x70001002, 7, 1, 2},     {CKM_RSA_PKCS, kRsaPublic, 8, 1, 1},
        {CKM_RSA_PKCS, 0x70001005, 9, 1, 5},     {CKM_RSA_PKCS_OAEP, 0x70001006, 10, 4, 6},
        {CKM_RSA_PKCS_OAEP, kEcPublic, 8, 4, 3},  // any other key type encrypts as RSA-2048
        {CKM_RSA_PKCS, kRsaPrivate, 8, 1, 1},     // a private key's handle: its public half
    };
    const Bytes data = bytes("plain");
    for (const auto& [type, key, encryptionType, padding, id] : cases) {
        session = open(kFipsSlot, kReadWrite);
        dd::scriptResult("encrypt", 0);  // the double would refuse the EC pair
        ASSERT_EQ(encryptQuery(type, key, data), CKR_OK);
        const dd::Call call = onlyCall("encrypt");
        EXPECT_EQ(call.numbers.at(0), encryptionType) << key;
        EXPECT_EQ(call.numbers.at(1), padding) << key;
        EXPECT_EQ(call.numbers.at(3), 0);  // the output length on entry
        EXPECT_EQ(call.bytes.at(0), data);
        // The key: the pair's public value wrapped as an RSA SubjectPublicKeyInfo.
        const Bytes value = publicValue(id), &spki = call.bytes.at(1);
        ASSERT_GT(spki.size(), value.size() + 5);
        EXPECT_EQ(Bytes(spki.end() - 5 - value.size(), spki.end()),
                  concat(value, {0x02, 0x03, 0x01, 0x00, 0x01}))
            << key;
        EXPECT_EQ(call.instance, moduleState().deviceInstance.load());
    }
}

TEST_F(CipherTest, ResultsAreKeptAndDecryptionRunsOnTheToken) {
    const Bytes first = bytes("first");
    ASSERT_EQ(encryptQuery(CKM_RSA_PKCS, kRsaPublic, first), CKR_OK);
    Bytes input = bytes("second"), ciphertext(300, 0xEE);
    CK_ULONG length = 1;
    ASSERT_EQ(C_Encrypt(session, input.data(), input.size(), ciphertext.data(), &length), CKR_OK);
    ASSERT_EQ(length, 256u);
    ciphertext.resize(length);
    EXPECT_EQ(dd::callCount("encrypt"), 1u);
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, 0u);

    // The kept ciphertext is the first plaintext's: the token decrypts it back.
    loginUser();
    CK_MECHANISM decrypting = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_DecryptInit(session, &decrypting, 0x70000006), CKR_OK);  // deletion flag set
    Bytes plain(64, 0);
    length = 0;
    ASSERT_EQ(C_Decrypt(session, ciphertext.data(), ciphertext.size(), nullptr, &length), CKR_OK);
    ASSERT_EQ(C_Decrypt(session, ciphertext.data(), 1, plain.data(), &length), CKR_OK);
    EXPECT_EQ(Bytes(plain.begin(), plain.begin() + std::min<std::size_t>(length, 64)), first);
    const dd::Call call = onlyCall("decrypt");
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{keyReference(6), ciphertext}));
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{256, 1}));
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, CKM_RSA_PKCS);  // left as it was
    EXPECT_TRUE(context(session).pendingOutput.empty());
}

TEST_F(CipherTest, InitRefusals) {
    CK_BYTE parameter[8] = {};
    const std::string privateText = std::to_string(kRsaPrivate);
    const std::string publicText = std::to_string(kRsaPublic);
    const std::string wideText = std::to_string(kWideRsaPrivate);
    // Decryption?, mechanism, key, slot, code, line.
    using Case = std::tuple<bool, CK_MECHANISM, CK_OBJECT_HANDLE, CK_SLOT_ID, CK_RV, std::string>;
    const CK_MECHANISM oaep{CKM_RSA_PKCS_OAEP, nullptr, 0}, rsa{CKM_RSA_PKCS, nullptr, 0};
    const Case cases[] = {
        {false, oaep, kRsaPrivate, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "C_EncryptInit: invalid hKey=" + privateText + " for CKM_RSA_PKCS_OAEP"},
        {false, oaep, 0x70001040, kFipsSlot, CKR_KEY_HANDLE_INVALID,
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
        {false, rsa, 0x6FFFFFFF, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "C_EncryptInit: invalid hKey=1879048191"},
        {false, rsa, 0x70000040, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in encrypt : 1879048256"},
        {false,
         {CKM_RSA_X_509, nullptr, 0},
         kRsaPublic,
         kFipsSlot,
         CKR_MECHANISM_INVALID,
         "C_EncryptInit: unsupported mechanism=3"},
        {true, oaep, kRsaPrivate, kOldFirmwareSlot, CKR_MECHANISM_INVALID,
         "CKM_RSA_PKCS_OAEP not supported on firmware 1.9.9"},
        {true, oaep, kRsaPublic, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in decrypt OAEP : " + publicText},
        {true, oaep, 7, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "C_DecryptInit: invalid hKey=7 for CKM_RSA_PKCS_OAEP"},
        {true,
         {CKM_RSA_PKCS, nullptr, 1},
         kRsaPrivate,
         kFipsSlot,
         CKR_MECHANISM_PARAM_INVALID,
         "C_DecryptInit: mechanism param invalid for CKM_RSA_PKCS"},
        {true, rsa, 7, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "C_DecryptInit: invalid hKey=7 for CKM_RSA_PKCS"},
        {true, rsa, kRsaPublic, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in decrypt : " + publicText},
        {true, rsa, kWideRsaPrivate, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in decrypt : " + wideText},
        {false, rsa, kWideRsaPrivate, kFipsSlot, CKR_KEY_HANDLE_INVALID,
         "Invalid input handle in encrypt : " + wideText},
    };
    for (auto [decrypt, cipher, key, slot, expected, line] : cases) {
        if (!kWideUlong && key == kWideRsaPrivate) {
            continue;  // 32-bit CK_ULONG: no wide handle to try
        }
        const CK_SESSION_HANDLE on = open(slot, kReadWrite);
        const CK_RV rv =
            decrypt ? C_DecryptInit(on, &cipher, key) : C_EncryptInit(on, &cipher, key);
        expectAnswer(rv, expected, refused(decrypt ? "C_DecryptInit" : "C_EncryptInit", line));
        EXPECT_EQ(activeOperation(on), 0u);
    }
    // Version 2.0 is enough for OAEP in both directions.
    dd::setTokenInfo("SER3", dd::makeTokenInfo("SER3", "Three", "OT2-S", "2.0"));
    listSlots();
    CK_MECHANISM mechanism = oaep;
    EXPECT_EQ(C_EncryptInit(open(kOldFirmwareSlot, kReadWrite), &mechanism, kRsaPublic), CKR_OK);
    EXPECT_EQ(C_DecryptInit(open(kOldFirmwareSlot, kReadWrite), &mechanism, kRsaPrivate), CKR_OK);
}

TEST_F(CipherTest, FailedEncryptionEndsTheOperationFailedDecryptionDoesNot) {
    dd::scriptResult("encrypt", 21);
    EXPECT_EQ(encryptQuery(CKM_RSA_PKCS, kRsaPublic, bytes("x")), CKR_FUNCTION_FAILED);
    EXPECT_EQ(lastLine(), errorLine("Encrypt data failed : 21"));
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_EQ(context(session).cipherMechanism, 0u);

    CK_MECHANISM decrypting = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_DecryptInit(session, &decrypting, kRsaPrivate), CKR_OK);
    forget();
    Bytes ciphertext(256, 1), plain(256);
    CK_ULONG length = 0;
    expectAnswer(C_Decrypt(session, ciphertext.data(), 256, plain.data(), &length),
                 CKR_FUNCTION_FAILED, refused("C_Decrypt", "Dacrypt data failed : 10"));
    EXPECT_EQ(onlyCall("decrypt").texts, std::vector<std::string>{""});  // nobody logged in
    EXPECT_EQ(activeOperation(session), 3u);
    expectAnswer(C_Decrypt(session, ciphertext.data(), 0, plain.data(), &length), CKR_ARGUMENTS_BAD,
                 refused("C_Decrypt", "C_Decrypt: ulEncryptedDataLen<=0, ulEncryptedDataLen=0"));
    EXPECT_EQ(activeOperation(session), 3u);
}

}  // namespace
