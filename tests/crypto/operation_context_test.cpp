// The operation context as every cryptographic entry point uses it: which Init may follow what,
// the session states each checks, and unknown session handles.
#include <climits>

#include "crypto_fixture.h"

namespace {

using OperationContextTest = CryptoTest;

TEST_F(OperationContextTest, ReadOnlyPublicSessionVerifiesAndEncryptsOnly) {
    const CK_SESSION_HANDLE readOnly = open(kFipsSlot, kReadOnly);
    CK_MECHANISM sha256 = mechanism(CKM_SHA256), rsa = mechanism(CKM_RSA_PKCS);
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    expectAnswer(C_DigestInit(readOnly, &sha256), CKR_SESSION_HANDLE_INVALID,
                 refused("C_DigestInit", "C_DigestInit: invalid session state=0"));
    expectAnswer(C_SignInit(readOnly, &signing, kRsaPrivate), CKR_SESSION_HANDLE_INVALID,
                 refused("C_SignInit", "C_SignInit: invalid session state=0"));
    expectAnswer(C_DecryptInit(readOnly, &rsa, kRsaPrivate), CKR_SESSION_HANDLE_INVALID,
                 refused("C_DecryptInit", "C_DecryptInit: invalid session state=0"));
    EXPECT_EQ(C_VerifyInit(readOnly, &signing, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(readOnly), 7u);
    const CK_SESSION_HANDLE other = open(kFipsSlot, kReadOnly);
    EXPECT_EQ(C_EncryptInit(other, &rsa, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(other), 2u);
}

TEST_F(OperationContextTest, InitsOverARunningDigest) {
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1), rsa = mechanism(CKM_RSA_PKCS);
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);  // restarted
    EXPECT_EQ(dd::callCount("initHash"), 2u);
    forget();
    expectAnswer(C_SignInit(session, &signing, kRsaPrivate), CKR_OPERATION_ACTIVE,
                 refused("C_SignInit", "C_SignInit: operation already active, activeOperation=4"));
    // Encryption begun over a digest gets code 9, which nothing continues or replaces.
    ASSERT_EQ(C_EncryptInit(session, &rsa, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(session), 9u);
    forget();
    CK_BYTE data[4] = {1, 2, 3, 4};
    CK_ULONG length = 0;
    expectAnswer(C_Encrypt(session, data, sizeof data, nullptr, &length),
                 CKR_OPERATION_NOT_INITIALIZED,
                 refused("C_Encrypt", "C_Encrypt: operation not initialized, activeOperation=9"));
    expectAnswer(
        C_DecryptInit(session, &rsa, kRsaPrivate), CKR_OPERATION_ACTIVE,
        refused("C_DecryptInit", "C_DecryptInit: operation already active, activeOperation=9"));
    // Decryption over a digest gets 10; a verification replaces the digest.
    const CK_SESSION_HANDLE other = open(kFipsSlot, kReadWrite);
    ASSERT_EQ(C_DigestInit(other, &sha1), CKR_OK);
    ASSERT_EQ(C_DecryptInit(other, &rsa, kRsaPrivate), CKR_OK);
    EXPECT_EQ(activeOperation(other), 10u);
    ASSERT_EQ(C_DigestInit(session = open(kFipsSlot, kReadWrite), &sha1), CKR_OK);
    ASSERT_EQ(C_VerifyInit(session, &signing, kRsaPublic), CKR_OK);
    forget();
    expectAnswer(
        C_DigestUpdate(session, data, sizeof data), CKR_OPERATION_NOT_INITIALIZED,
        refused("C_DigestUpdate", "C_DigestUpdate: operation not initialized, activeOperation=7"));
}

// Every entry point refuses an unknown session handle, and one above 32 bits that would name
// the open session if it were cut short, with its own name in the line.
TEST_F(OperationContextTest, UnknownAndWideSessionHandlesAreRefused) {
    CK_BYTE b[64] = {};
    CK_ULONG n = sizeof b;
    CK_MECHANISM m = mechanism(CKM_SHA_1);
    using Entry = std::pair<std::string, std::function<CK_RV(CK_SESSION_HANDLE)>>;
    const std::vector<Entry> entries = {
        {"C_DigestInit", [&](CK_SESSION_HANDLE h) { return C_DigestInit(h, &m); }},
        {"C_Digest", [&](CK_SESSION_HANDLE h) { return C_Digest(h, b, 1, b, &n); }},
        {"C_DigestUpdate", [&](CK_SESSION_HANDLE h) { return C_DigestUpdate(h, b, 1); }},
        {"C_DigestFinal", [&](CK_SESSION_HANDLE h) { return C_DigestFinal(h, b, &n); }},
        {"C_SignInit", [&](CK_SESSION_HANDLE h) { return C_SignInit(h, &m, kRsaPrivate); }},
        {"C_Sign", [&](CK_SESSION_HANDLE h) { return C_Sign(h, b, 1, b, &n); }},
        {"C_SignUpdate", [&](CK_SESSION_HANDLE h) { return C_SignUpdate(h, b, 1); }},
        {"C_SignFinal", [&](CK_SESSION_HANDLE h) { return C_SignFinal(h, b, &n); }},
        {"C_VerifyInit", [&](CK_SESSION_HANDLE h) { return C_VerifyInit(h, &m, kRsaPublic); }},
        {"C_Verify", [&](CK_SESSION_HANDLE h) { return C_Verify(h, b, 1, b, 1); }},
        {"C_VerifyUpdate", [&](CK_SESSION_HANDLE h) { return C_VerifyUpdate(h, b, 1); }},
        {"C_VerifyFinal", [&](CK_SESSION_HANDLE h) { return C_VerifyFinal(h, b, 1); }},
        {"C_EncryptInit", [&](CK_SESSION_HANDLE h) { return C_EncryptInit(h, &m, kRsaPublic); }},
        {"C_Encrypt", [&](CK_SESSION_HANDLE h) { return C_Encrypt(h, b, 1, b, &n); }},
        {"C_DecryptInit", [&](CK_SESSION_HANDLE h) { return C_DecryptInit(h, &m, kRsaPrivate); }},
        {"C_Decrypt", [&](CK_SESSION_HANDLE h) { return C_Decrypt(h, b, 1, b, &n); }},
        {"C_GenerateKeyPair",
         [&](CK_SESSION_HANDLE h) {
             return C_GenerateKeyPair(h, &m, nullptr, 0, nullptr, 0, nullptr, nullptr);
         }},
        {"C_GenerateRandom", [&](CK_SESSION_HANDLE h) { return C_GenerateRandom(h, b, 8); }},
    };
    const CK_SESSION_HANDLE wide =
        static_cast<CK_SESSION_HANDLE>(kWideUlong ? (std::uint64_t{1} << 32) + session : 0);
    for (const CK_SESSION_HANDLE handle : {CK_SESSION_HANDLE{0}, session + 1, wide}) {
        for (const auto& [name, call] : entries) {
            expectAnswer(call(handle), CKR_SESSION_HANDLE_INVALID,
                         refused(name, name + ": invalid hSession=" + std::to_string(handle)));
        }
    }
    EXPECT_EQ(dd::calls().size(), dd::callCount("getConnectedDeviceList"));
}

// Lengths no int argument of the device can carry are refused before anything is read: the
// buffers here are one byte long.
TEST_F(OperationContextTest, LengthsBeyondTheDevicesIntAreRefusedUnread) {
    CK_BYTE b[1] = {0x30};
    CK_ULONG n = 0;
    const CK_ULONG huge = static_cast<CK_ULONG>(INT_MAX) + 1;
    const std::string hugeText = std::to_string(huge);
    CK_MECHANISM rsa = mechanism(CKM_RSA_PKCS);
    std::string pin = dd::kDefaultUserPin;
    ASSERT_EQ(C_Login(session, CKU_USER, reinterpret_cast<CK_BYTE_PTR>(pin.data()), pin.size()),
              CKR_OK);
    ASSERT_EQ(C_SignInit(session, &rsa, kRsaPrivate), CKR_OK);
    ASSERT_EQ(C_VerifyInit(open(kFipsSlot, kReadWrite), &rsa, kRsaPublic), CKR_OK);
    const CK_SESSION_HANDLE verifying = session + 1;
    ASSERT_EQ(C_EncryptInit(open(kFipsSlot, kReadWrite), &rsa, kRsaPublic), CKR_OK);
    const CK_SESSION_HANDLE encrypting = session + 2;
    ASSERT_EQ(C_DecryptInit(open(kFipsSlot, kReadWrite), &rsa, kRsaPrivate), CKR_OK);
    const CK_SESSION_HANDLE decrypting = session + 3;
    forget();
    expectAnswer(C_Sign(session, b, huge, nullptr, &n), CKR_DATA_LEN_RANGE,
                 {infoLine("C_Sign"), infoLine("sign echanism : 1"),
                  errorLine("C_Sign: ulDataLen too long for the device, ulDataLen=" + hugeText)});
    expectAnswer(C_Verify(verifying, b, 1, b, huge), CKR_SIGNATURE_LEN_RANGE,
                 refused("C_Verify",
                         "C_Verify: ulSignatureLen too long for the device, "
                         "ulSignatureLen=" +
                             hugeText));
    expectAnswer(C_Encrypt(encrypting, b, huge, nullptr, &n), CKR_DATA_LEN_RANGE,
                 refused("C_Encrypt",
                         "C_Encrypt: ulDataLen too long for the device, ulDataLen=" + hugeText));
    expectAnswer(C_Decrypt(decrypting, b, huge, nullptr, &n), CKR_ENCRYPTED_DATA_LEN_RANGE,
                 refused("C_Decrypt",
                         "C_Decrypt: ulEncryptedDataLen too long for the device, "
                         "ulEncryptedDataLen=" +
                             hugeText));
    CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, huge, b};
    CK_MECHANISM ecdh{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    CK_OBJECT_HANDLE derived = 0;
    expectAnswer(C_DeriveKey(session, &ecdh, kEcPrivate, nullptr, 0, &derived),
                 CKR_MECHANISM_PARAM_INVALID, {infoLine("C_DeriveKey")});
    EXPECT_EQ(dd::calls().size(), dd::callCount("getConnectedDeviceList"));
    EXPECT_EQ(activeOperation(session), 5u);
}

}  // namespace
