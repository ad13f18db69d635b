// Verification: the public key the device gets, the handles that select a pair, the multi-part
// path with its own rules, and failures.
#include <functional>

#include "crypto_fixture.h"

namespace {

class VerifyTest : public CryptoTest {
protected:
    // C_VerifyInit on the session, then C_Verify; the code of C_Verify.
    CK_RV verifyOnce(CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key, Bytes data, Bytes signature) {
        CK_MECHANISM verifying = mechanism(type);
        EXPECT_EQ(C_VerifyInit(session, &verifying, key), CKR_OK);
        return C_Verify(session, data.data(), data.size(), signature.data(), signature.size());
    }
};

TEST_F(VerifyTest, BareModulusIsWrappedInASubjectPublicKeyInfo) {
    const CK_SESSION_HANDLE readOnly = open(kFipsSlot, kReadOnly);  // no state check, no PIN
    CK_MECHANISM verifying = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_VerifyInit(readOnly, &verifying, kRsaPublic), CKR_OK);
    forget();
    Bytes data = bytes("signed data");
    Bytes signature(256, 0x42);
    expectAnswer(
        C_Verify(readOnly, data.data(), data.size(), signature.data(), signature.size()),
        CKR_SIGNATURE_INVALID,
        {infoLine("C_Verify"), infoLine("Public key is not der need to convert to the der"),
         errorLine("Verify signature failed : 22")});
    const dd::Call check = onlyCall("verifySignatureHash");
    const Bytes modulus = publicValue(1);
    ASSERT_EQ(modulus.size(), 256u);
    ASSERT_GE(modulus[0], 0x80);
    Bytes expectedKey = {0x30, 0x82, 0x01, 0x22, 0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48,
                         0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00, 0x03, 0x82, 0x01,
                         0x0F, 0x00, 0x30, 0x82, 0x01, 0x0A, 0x02, 0x82, 0x01, 0x01, 0x00};
    expectedKey = concat(concat(expectedKey, modulus), {0x02, 0x03, 0x01, 0x00, 0x01});
    EXPECT_EQ(check.bytes, (std::vector<Bytes>{dd::fakeDigest(3, data), expectedKey, signature}));
    EXPECT_EQ(check.numbers, (std::vector<std::int64_t>{2, 32, 294, 256, 0}));
    EXPECT_EQ(check.deviceId, "SER1");
    EXPECT_EQ(activeOperation(readOnly), 0u);
    EXPECT_EQ(C_Verify(readOnly, data.data(), data.size(), signature.data(), signature.size()),
              CKR_OPERATION_NOT_INITIALIZED);

    // What the token signed verifies; SHA-1 is verified on a FIPS 140-3 token.
    loginUser();
    CK_MECHANISM signing = mechanism(CKM_SHA1_RSA_PKCS);
    const CK_SESSION_HANDLE signer = open(kNonFipsSlot, kReadWrite);
    ASSERT_EQ(C_SignInit(signer, &signing, kRsaPrivate), CKR_OK);
    signature.resize(256);
    CK_ULONG length = static_cast<CK_ULONG>(signature.size());
    ASSERT_EQ(C_Sign(signer, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(verifyOnce(CKM_SHA1_RSA_PKCS, kRsaPrivate, data, signature), CKR_OK);
}

TEST_F(VerifyTest, EcPointsAndDerKeysGoAsStoredAndPssSetsTheFlag) {
    const Bytes hash(32, 0x11);
    forget();
    EXPECT_EQ(verifyOnce(CKM_ECDSA, kEcPublic, hash, Bytes(64, 9)), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(log.newCallLines().at(2), infoLine("Public key passed as-is"));
    dd::Call check = onlyCall("verifySignatureHash");
    EXPECT_EQ(check.bytes.at(1), publicValue(3));
    EXPECT_EQ(check.numbers.front(), kKeyTypeEcP256);
    forget();
    EXPECT_EQ(verifyOnce(CKM_RSA_PKCS_PSS, kDerKeyPublic, hash, Bytes(8, 1)),
              CKR_SIGNATURE_INVALID);
    check = onlyCall("verifySignatureHash");
    EXPECT_EQ(check.bytes, (std::vector<Bytes>{hash, publicValue(4), Bytes(8, 1)}));
    EXPECT_EQ(check.numbers.back(), 1);  // PSS
}

TEST_F(VerifyTest, EitherHalfSelectsThePairAndOtherHandlesAreRefused) {
    const Bytes hash(32, 0x22);
    for (const CK_OBJECT_HANDLE key : {kRsaPrivate, kRsaPublic}) {
        forget();
        EXPECT_EQ(verifyOnce(CKM_RSA_PKCS, key, hash, Bytes(4, 0)), CKR_SIGNATURE_INVALID);
        EXPECT_EQ(onlyCall("verifySignatureHash").bytes.at(1).size(), 294u) << key;
    }
    forget();
    CK_MECHANISM verifying = mechanism(CKM_SHA256_RSA_PKCS);
    const CK_OBJECT_HANDLE certificate = 0x70002001;
    expectAnswer(C_VerifyInit(session, &verifying, certificate), CKR_KEY_HANDLE_INVALID,
                 {infoLine("C_VerifyInit"),
                  errorLine("Invalid input handle in verify : " + std::to_string(certificate))});
    expectAnswer(C_VerifyInit(session, &verifying, 5), CKR_KEY_HANDLE_INVALID,
                 {infoLine("C_VerifyInit"), errorLine("C_VerifyInit: invalid hKey=5")});
    if (kWideUlong) {
        expectAnswer(C_VerifyInit(session, &verifying, kAliasOfRsaPrivate), CKR_KEY_HANDLE_INVALID,
                     {infoLine("C_VerifyInit"), errorLine("Invalid input handle in verify : " +
                                                          std::to_string(kAliasOfRsaPrivate))});
    }
    CK_MECHANISM sha512Ecdsa = mechanism(CKM_ECDSA_SHA512);
    expectAnswer(C_VerifyInit(session, &sha512Ecdsa, kEcPublic), CKR_MECHANISM_INVALID,
                 {infoLine("C_VerifyInit"), errorLine("C_VerifyInit: unsupported mechanism=4166")});
    expectAnswer(C_VerifyInit(session, nullptr, kRsaPublic), CKR_ARGUMENTS_BAD,
                 {infoLine("C_VerifyInit"), errorLine("C_VerifyInit: pMechanism is NULL")});
    CK_MECHANISM pss = mechanism(CKM_SHA256_RSA_PKCS_PSS);
    expectAnswer(C_VerifyInit(open(kOldFirmwareSlot, kReadWrite), &pss, kRsaPublic),
                 CKR_MECHANISM_INVALID,
                 {infoLine("C_VerifyInit"),
                  errorLine("C_VerifyInit: CKM_RSA_PKCS_PSS not supported on firmware 1.9.9")});
    EXPECT_EQ(activeOperation(session), 0u);
}

TEST_F(VerifyTest, MultiPartPassesTheStoredKeyWithoutPssAndHashesRawPssWithSha256) {
    struct Case {
        CK_MECHANISM_TYPE type;
        int hashCode;  // 0: the parts are collected unhashed
    };
    const Case cases[] = {{CKM_SHA256_RSA_PKCS_PSS, 3},
                          {CKM_SHA1_RSA_PKCS, 2},
                          {CKM_RSA_PKCS_PSS, 3},
                          {CKM_RSA_PKCS, 0}};
    Bytes a = bytes("alpha "), b = bytes("beta");
    for (const Case& each : cases) {
        const CK_SESSION_HANDLE on = open(kFipsSlot, kReadWrite);
        CK_MECHANISM verifying = mechanism(each.type);
        ASSERT_EQ(C_VerifyInit(on, &verifying, kRsaPublic), CKR_OK);
        ASSERT_EQ(C_VerifyUpdate(on, a.data(), a.size()), CKR_OK);
        ASSERT_EQ(C_VerifyUpdate(on, b.data(), b.size()), CKR_OK);
        Bytes signature(16, 7);
        EXPECT_EQ(C_VerifyFinal(on, signature.data(), signature.size()), CKR_SIGNATURE_INVALID);
        const dd::Call check = onlyCall("verifySignatureHash");
        const Bytes checked =
            each.hashCode == 0 ? concat(a, b) : dd::fakeDigest(each.hashCode, concat(a, b));
        EXPECT_EQ(check.bytes, (std::vector<Bytes>{checked, publicValue(1), signature}))
            << each.type;
        EXPECT_EQ(check.numbers.back(), 0) << each.type;
        EXPECT_EQ(dd::callCount("initHash"), each.hashCode == 0 ? 0u : 1u) << each.type;
        EXPECT_EQ(log.newCallLines().back(), errorLine("C_VerifyFinal: verify failed 22"));
        EXPECT_EQ(activeOperation(on), 0u);
    }
}

TEST_F(VerifyTest, VerificationOverADigestContinuesItsHash) {
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    Bytes a = bytes("digested "), b = bytes("verified");
    ASSERT_EQ(C_DigestUpdate(session, a.data(), a.size()), CKR_OK);
    CK_MECHANISM verifying = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_VerifyInit(session, &verifying, kRsaPublic), CKR_OK);
    ASSERT_EQ(C_VerifyUpdate(session, b.data(), b.size()), CKR_OK);
    Bytes signature(4, 1);
    EXPECT_EQ(C_VerifyFinal(session, signature.data(), signature.size()), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(onlyCall("initHash").numbers, std::vector<std::int64_t>{2});
    EXPECT_EQ(onlyCall("verifySignatureHash").bytes.at(0), dd::fakeDigest(2, concat(a, b)));
}

TEST_F(VerifyTest, FailuresEndTheOperationArgumentErrorsDoNot) {
    Bytes data(8, 3), signature(8, 4);
    struct Failure {
        CK_MECHANISM_TYPE type;
        const char* operation;
        std::function<CK_RV()> call;
        std::string line;
    };
    const auto single = [&] {
        return C_Verify(session, data.data(), data.size(), signature.data(), signature.size());
    };
    const auto update = [&] { return C_VerifyUpdate(session, data.data(), data.size()); };
    const Failure failures[] = {
        {CKM_SHA256_RSA_PKCS, "initHash", single, "C_Verify: initHash failed ret=27"},
        {CKM_SHA256_RSA_PKCS, "updateHash", single, "C_Verify: updateHash failed ret=27"},
        {CKM_SHA256_RSA_PKCS, "finalHash", single, "C_Verify: finalHash failed ret=27"},
        {CKM_SHA256_RSA_PKCS, "initHash", update, "C_VerifyUpdate: initHash failed 27"},
        {CKM_SHA256_RSA_PKCS, "updateHash", update, "C_VerifyUpdate: updateHash failed 27"},
        {CKM_SHA256_RSA_PKCS, "finalHash",
         [&] {
             EXPECT_EQ(update(), CKR_OK);
             return C_VerifyFinal(session, signature.data(), signature.size());
         },
         "C_VerifyFinal: finalHash failed 27"},
    };
    for (const Failure& failure : failures) {
        CK_MECHANISM verifying = mechanism(failure.type);
        ASSERT_EQ(C_VerifyInit(session, &verifying, kRsaPublic), CKR_OK);
        forget();
        dd::scriptResult(failure.operation, 27);
        EXPECT_EQ(failure.call(), CKR_FUNCTION_FAILED) << failure.line;
        EXPECT_EQ(log.newCallLines().back(), errorLine(failure.line));
        EXPECT_EQ(activeOperation(session), 0u) << failure.line;
        EXPECT_EQ(context(session).hashContext, nullptr) << failure.line;
        EXPECT_EQ(dd::callCount("verifySignatureHash"), 0u);
    }

    CK_MECHANISM verifying = mechanism(CKM_ECDSA);
    ASSERT_EQ(C_VerifyInit(session, &verifying, kEcPublic), CKR_OK);
    forget();
    expectAnswer(C_Verify(session, nullptr, 8, signature.data(), 8), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Verify"), errorLine("C_Verify: pData or pSignature is NULL")});
    expectAnswer(
        C_Verify(session, data.data(), 8, signature.data(), 0), CKR_ARGUMENTS_BAD,
        {infoLine("C_Verify"), errorLine("C_Verify: ulDataLen or ulSignatureLen <= 0, ulDataLen=8 "
                                         "ulSignatureLen=0")});
    expectAnswer(C_VerifyUpdate(session, data.data(), 0), CKR_ARGUMENTS_BAD,
                 {infoLine("C_VerifyUpdate"),
                  errorLine("C_VerifyUpdate: pPart is NULL or ulPartLen<=0, ulPartLen=0")});
    expectAnswer(
        C_VerifyFinal(session, nullptr, 8), CKR_ARGUMENTS_BAD,
        {infoLine("C_VerifyFinal"),
         errorLine("C_VerifyFinal: pSignature is NULL or ulSignatureLen<=0, ulSignatureLen=8")});
    EXPECT_EQ(activeOperation(session), 7u);
}

}  // namespace
