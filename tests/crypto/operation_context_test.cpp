// The operation context as every cryptographic entry point uses it: which Init may follow what,
// the session states each checks, and the session handle refusals.
#include <functional>

#include "crypto_fixture.h"

namespace {

using OperationContextTest = CryptoTest;

TEST_F(OperationContextTest, ReadOnlyPublicSessionVerifiesAndEncryptsOnly) {
    const CK_SESSION_HANDLE readOnly = open(kFipsSlot, kReadOnly);
    CK_MECHANISM sha256 = mechanism(CKM_SHA256);
    CK_MECHANISM rsa = mechanism(CKM_RSA_PKCS);
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    expectAnswer(C_DigestInit(readOnly, &sha256), CKR_SESSION_HANDLE_INVALID,
                 {infoLine("C_DigestInit"), errorLine("C_DigestInit: invalid session state=0")});
    expectAnswer(C_SignInit(readOnly, &signing, kRsaPrivate), CKR_SESSION_HANDLE_INVALID,
                 {infoLine("C_SignInit"), errorLine("C_SignInit: invalid session state=0")});
    expectAnswer(C_DecryptInit(readOnly, &rsa, kRsaPrivate), CKR_SESSION_HANDLE_INVALID,
                 {infoLine("C_DecryptInit"), errorLine("C_DecryptInit: invalid session state=0")});
    EXPECT_EQ(C_VerifyInit(readOnly, &signing, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(readOnly), 7u);

    const CK_SESSION_HANDLE other = open(kFipsSlot, kReadOnly);
    EXPECT_EQ(C_EncryptInit(other, &rsa, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(other), 2u);
    EXPECT_EQ(dd::callCount("initHash"), 0u);
}

TEST_F(OperationContextTest, InitsOverARunningDigest) {
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1);
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    CK_MECHANISM rsa = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);  // restarted
    EXPECT_EQ(dd::callCount("initHash"), 2u);
    forget();
    expectAnswer(C_SignInit(session, &signing, kRsaPrivate), CKR_OPERATION_ACTIVE,
                 {infoLine("C_SignInit"),
                  errorLine("C_SignInit: operation already active, activeOperation=4")});

    // Encryption begun over a digest gets code 9, which nothing continues or replaces.
    ASSERT_EQ(C_EncryptInit(session, &rsa, kRsaPublic), CKR_OK);
    EXPECT_EQ(activeOperation(session), 9u);
    forget();
    CK_BYTE data[4] = {1, 2, 3, 4};
    CK_ULONG length = 0;
    expectAnswer(C_Encrypt(session, data, sizeof data, nullptr, &length),
                 CKR_OPERATION_NOT_INITIALIZED,
                 {infoLine("C_Encrypt"),
                  errorLine("C_Encrypt: operation not initialized, activeOperation=9")});
    expectAnswer(C_DecryptInit(session, &rsa, kRsaPrivate), CKR_OPERATION_ACTIVE,
                 {infoLine("C_DecryptInit"),
                  errorLine("C_DecryptInit: operation already active, activeOperation=9")});

    // A verification replaces a digest; the digest's calls then find no digest.
    const CK_SESSION_HANDLE other = open(kFipsSlot, kReadWrite);
    ASSERT_EQ(C_DigestInit(other, &sha1), CKR_OK);
    ASSERT_EQ(C_VerifyInit(other, &signing, kRsaPublic), CKR_OK);
    forget();
    expectAnswer(C_DigestUpdate(other, data, sizeof data), CKR_OPERATION_NOT_INITIALIZED,
                 {infoLine("C_DigestUpdate"),
                  errorLine("C_DigestUpdate: operation not initialized, activeOperation=7")});
    ASSERT_EQ(C_DecryptInit(open(kFipsSlot, kReadWrite), &rsa, kRsaPrivate), CKR_OK);
}

// Every entry point with a session refuses an unknown handle, and one above 32 bits that would
// name the open session if it were cut short, with its own name in the line.
TEST_F(OperationContextTest, UnknownAndWideSessionHandlesAreRefused) {
    CK_BYTE buffer[64] = {};
    CK_ULONG length = sizeof buffer;
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1);
    const std::vector<std::pair<std::string, std::function<CK_RV(CK_SESSION_HANDLE)>>> entries = {
        {"C_DigestInit", [&](CK_SESSION_HANDLE h) { return C_DigestInit(h, &sha1); }},
        {"C_Digest", [&](CK_SESSION_HANDLE h) { return C_Digest(h, buffer, 1, buffer, &length); }},
        {"C_DigestUpdate", [&](CK_SESSION_HANDLE h) { return C_DigestUpdate(h, buffer, 1); }},
        {"C_DigestFinal", [&](CK_SESSION_HANDLE h) { return C_DigestFinal(h, buffer, &length); }},
        {"C_SignInit", [&](CK_SESSION_HANDLE h) { return C_SignInit(h, &sha1, kRsaPrivate); }},
        {"C_Sign", [&](CK_SESSION_HANDLE h) { return C_Sign(h, buffer, 1, buffer, &length); }},
        {"C_SignUpdate", [&](CK_SESSION_HANDLE h) { return C_SignUpdate(h, buffer, 1); }},
        {"C_SignFinal", [&](CK_SESSION_HANDLE h) { return C_SignFinal(h, buffer, &length); }},
        {"C_VerifyInit", [&](CK_SESSION_HANDLE h) { return C_VerifyInit(h, &sha1, kRsaPublic); }},
        {"C_Verify", [&](CK_SESSION_HANDLE h) { return C_Verify(h, buffer, 1, buffer, 1); }},
        {"C_VerifyUpdate", [&](CK_SESSION_HANDLE h) { return C_VerifyUpdate(h, buffer, 1); }},
        {"C_VerifyFinal", [&](CK_SESSION_HANDLE h) { return C_VerifyFinal(h, buffer, 1); }},
        {"C_EncryptInit", [&](CK_SESSION_HANDLE h) { return C_EncryptInit(h, &sha1, kRsaPublic); }},
        {"C_Encrypt",
         [&](CK_SESSION_HANDLE h) { return C_Encrypt(h, buffer, 1, buffer, &length); }},
        {"C_DecryptInit",
         [&](CK_SESSION_HANDLE h) { return C_DecryptInit(h, &sha1, kRsaPrivate); }},
        {"C_Decrypt",
         [&](CK_SESSION_HANDLE h) { return C_Decrypt(h, buffer, 1, buffer, &length); }},
        {"C_GenerateKeyPair",
         [&](CK_SESSION_HANDLE h) {
             return C_GenerateKeyPair(h, &sha1, nullptr, 0, nullptr, 0, nullptr, nullptr);
         }},
        {"C_GenerateRandom", [&](CK_SESSION_HANDLE h) { return C_GenerateRandom(h, buffer, 8); }},
    };
    const CK_SESSION_HANDLE wide =
        static_cast<CK_SESSION_HANDLE>(kWideUlong ? (std::uint64_t{1} << 32) + session : 0);
    for (const CK_SESSION_HANDLE handle : {CK_SESSION_HANDLE{0}, session + 1, wide}) {
        for (const auto& [name, call] : entries) {
            expectAnswer(
                call(handle), CKR_SESSION_HANDLE_INVALID,
                {infoLine(name), errorLine(name + ": invalid hSession=" + std::to_string(handle))});
        }
    }
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_TRUE(dd::calls().empty() ||
                dd::callCount("getConnectedDeviceList") == dd::calls().size());
}

}  // namespace
