// Verification: the public key the device gets, the handles that select a pair, the multi-part
// path with its own rules, and failures.
#include "crypto_fixture.h"

namespace {

class VerifyTest : public CryptoTest {
protected:
    CK_RV verifyOnce(CK_MECHANISM_TYPE type, CK_OBJECT_HANDLE key, Bytes data, Bytes signature) {
        CK_MECHANISM verifying = mechanism(type);
        EXPECT_EQ(C_VerifyInit(session, &verifying, key), CKR_OK);
        return C_Verify(session, data.data(), data.size(), signature.data(), signature.size());
    }
};

TEST_F(VerifyTest, BareModulusIsWrappedInASubjectPublicKeyInfo) {
    session = open(kFipsSlot, kReadOnly);  // no state check, no PIN needed
    Bytes data = bytes("signed data"), signature(256, 0x42);
    EXPECT_EQ(verifyOnce(CKM_SHA256_RSA_PKCS, kRsaPublic, data, signature), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(log.newCallLines(),
              (Lines{infoLine("C_VerifyInit"), infoLine("C_Verify"),
                     infoLine("Public key is not der need to convert to the der"),
                     errorLine("Verify signature failed : 22")}));
    const Bytes modulus = publicValue(1);
    ASSERT_EQ(modulus.size(), 256u);
    ASSERT_GE(modulus[0], 0x80);
    const Bytes spki =
        concat(concat({0x30, 0x82, 0x01, 0x22, 0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48,
                       0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00, 0x03, 0x82, 0x01,
                       0x0F, 0x00, 0x30, 0x82, 0x01, 0x0A, 0x02, 0x82, 0x01, 0x01, 0x00},
                      modulus),
               {0x02, 0x03, 0x01, 0x00, 0x01});
    const dd::Call call = onlyCall("verifySignatureHash");
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{dd::fakeDigest(3, data), spki, signature}));
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{2, 32, 294, 256, 0}));
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(C_Verify(session, data.data(), data.size(), signature.data(), signature.size()),
              CKR_OPERATION_NOT_INITIALIZED);

    // What the token signed verifies, SHA-1 included on a FIPS 140-3 token, with either half.
    loginUser();
    CK_MECHANISM signing = mechanism(CKM_SHA1_RSA_PKCS);
    const CK_SESSION_HANDLE signer = open(kNonFipsSlot, kReadWrite);
    ASSERT_EQ(C_SignInit(signer, &signing, kRsaPrivate), CKR_OK);
    CK_ULONG length = static_cast<CK_ULONG>(signature.size());
    ASSERT_EQ(C_Sign(signer, data.data(), data.size(), signature.data(), &length), CKR_OK);
    EXPECT_EQ(verifyOnce(CKM_SHA1_RSA_PKCS, kRsaPrivate, data, signature), CKR_OK);
    EXPECT_EQ(verifyOnce(CKM_SHA1_RSA_PKCS, kRsaPublic, data, signature), CKR_OK);
}

TEST_F(VerifyTest, EcPointsAndDerKeysGoAsStoredAndPssSetsTheFlag) {
    const Bytes hash(32, 0x11);
    EXPECT_EQ(verifyOnce(CKM_ECDSA, kEcPublic, hash, Bytes(64, 9)), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(log.newCallLines().at(2), infoLine("Public key passed as-is"));
    EXPECT_EQ(onlyCall("verifySignatureHash").bytes.at(1), publicValue(3));
    EXPECT_EQ(onlyCall("verifySignatureHash").numbers.at(0), kKeyTypeEcP256);
    forget();
    EXPECT_EQ(verifyOnce(CKM_RSA_PKCS_PSS, 0x70001004, hash, Bytes(8, 1)), CKR_SIGNATURE_INVALID);
    const dd::Call call = onlyCall("verifySignatureHash");
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{hash, publicValue(4), Bytes(8, 1)}));
    EXPECT_EQ(call.numbers.at(4), 1);  // PSS
}

TEST_F(VerifyTest, InitRefusals) {
    CK_MECHANISM verifying = mechanism(CKM_SHA256_RSA_PKCS);
    CK_MECHANISM sha512Ecdsa = mechanism(CKM_ECDSA_SHA512);
    CK_MECHANISM pss = mechanism(CKM_SHA256_RSA_PKCS_PSS);
    const std::string name = "C_VerifyInit";
    expectAnswer(C_VerifyInit(session, &verifying, 0x70002001), CKR_KEY_HANDLE_INVALID,
                 refused(name, "Invalid input handle in verify : 1879056385"));
    EXPECT_FALSE(context(session).keyPair.has_value());
    expectAnswer(C_VerifyInit(session, &verifying, 5), CKR_KEY_HANDLE_INVALID,
                 refused(name, "C_VerifyInit: invalid hKey=5"));
    if (kWideUlong) {
        expectAnswer(
            C_VerifyInit(session, &verifying, kWideRsaPrivate), CKR_KEY_HANDLE_INVALID,
            refused(name, "Invalid input handle in verify : " + std::to_string(kWideRsaPrivate)));
    }
    expectAnswer(C_VerifyInit(session, &sha512Ecdsa, kEcPublic), CKR_MECHANISM_INVALID,
                 refused(name, "C_VerifyInit: unsupported mechanism=4166"));
    expectAnswer(C_VerifyInit(open(kOldFirmwareSlot, kReadWrite), &pss, kRsaPublic),
                 CKR_MECHANISM_INVALID,
                 refused(name, "C_VerifyInit: CKM_RSA_PKCS_PSS not supported on firmware 1.9.9"));
    EXPECT_EQ(activeOperation(session), 0u);
}

// The multi-part path passes the stored key unconverted and the PSS flag false, hashes raw PSS
// input with SHA-256, and leaves collected raw input in the session for the next one.
TEST_F(VerifyTest, MultiPartPathHasItsOwnRules) {
    const std::pair<CK_MECHANISM_TYPE, int> cases[] = {{CKM_SHA256_RSA_PKCS_PSS, 3},
                                                       {CKM_SHA1_RSA_PKCS, 2},
                                                       {CKM_RSA_PKCS_PSS, 3},
                                                       {CKM_RSA_PKCS, 0}};  // 0: collected unhashed
    Bytes a = bytes("alpha "), b = bytes("beta"), signature(16, 7);
    for (const auto& [type, hashCode] : cases) {
        for (int round = 0; round < 2; ++round) {
            forget();
            CK_MECHANISM verifying = mechanism(type);
            ASSERT_EQ(C_VerifyInit(session, &verifying, kRsaPublic), CKR_OK);
            ASSERT_EQ(C_VerifyUpdate(session, a.data(), a.size()), CKR_OK);
            ASSERT_EQ(C_VerifyUpdate(session, b.data(), b.size()), CKR_OK);
            EXPECT_EQ(C_VerifyFinal(session, signature.data(), signature.size()),
                      CKR_SIGNATURE_INVALID);
            Bytes checked = concat(a, b);
            if (hashCode != 0) {
                checked = dd::fakeDigest(hashCode, checked);
            } else if (round == 1) {
                checked = concat(concat(a, b), checked);  // the first round's input stayed
            }
            const dd::Call call = onlyCall("verifySignatureHash");
            EXPECT_EQ(call.bytes, (std::vector<Bytes>{checked, publicValue(1), signature})) << type;
            EXPECT_EQ(call.numbers.at(4), 0) << type;
            EXPECT_EQ(dd::callCount("initHash"), hashCode == 0 ? 0u : 1u) << type;
            EXPECT_EQ(lastLine(), errorLine("C_VerifyFinal: verify failed 22"));
            EXPECT_EQ(activeOperation(session), 0u);
        }
        session = open(kFipsSlot, kReadWrite);
    }
    // A verification that replaces a digest continues the digest's hash.
    CK_MECHANISM sha1 = mechanism(CKM_SHA_1), verifying = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_DigestInit(session, &sha1), CKR_OK);
    ASSERT_EQ(C_DigestUpdate(session, a.data(), a.size()), CKR_OK);
    ASSERT_EQ(C_VerifyInit(session, &verifying, kRsaPublic), CKR_OK);
    ASSERT_EQ(C_VerifyUpdate(session, b.data(), b.size()), CKR_OK);
    EXPECT_EQ(C_VerifyFinal(session, signature.data(), 4), CKR_SIGNATURE_INVALID);
    EXPECT_EQ(onlyCall("initHash").numbers, std::vector<std::int64_t>{2});
    EXPECT_EQ(onlyCall("verifySignatureHash").bytes.at(0), dd::fakeDigest(2, concat(a, b)));
}

TEST_F(VerifyTest, HashFailuresEndTheOperation) {
    Bytes data(8, 3), signature(8, 4);
    const auto single = [&] {
        return C_Verify(session, data.data(), data.size(), signature.data(), signature.size());
    };
    const auto update = [&] { return C_VerifyUpdate(session, data.data(), data.size()); };
    const auto final = [&] {
        EXPECT_EQ(update(), CKR_OK);
        return C_VerifyFinal(session, signature.data(), signature.size());
    };
    const std::tuple<const char*, std::function<CK_RV()>, std::string> failures[] = {
        {"initHash", single, "C_Verify: initHash failed ret=27"},
        {"updateHash", single, "C_Verify: updateHash failed ret=27"},
        {"finalHash", single, "C_Verify: finalHash failed ret=27"},
        {"initHash", update, "C_VerifyUpdate: initHash failed 27"},
        {"updateHash", update, "C_VerifyUpdate: updateHash failed 27"},
        {"finalHash", final, "C_VerifyFinal: finalHash failed 27"},
    };
    for (const auto& [operation, call, line] : failures) {
        CK_MECHANISM verifying = mechanism(CKM_SHA256_RSA_PKCS);
        ASSERT_EQ(C_VerifyInit(session, &verifying, kRsaPublic), CKR_OK);
        forget();
        dd::scriptResult(operation, 27);
        EXPECT_EQ(call(), CKR_FUNCTION_FAILED) << line;
        EXPECT_EQ(lastLine(), errorLine(line));
        EXPECT_EQ(activeOperation(session), 0u) << line;
        EXPECT_EQ(context(session).hashContext, nullptr) << line;
        EXPECT_EQ(dd::callCount("verifySignatureHash"), 0u);
    }
    CK_MECHANISM verifying = mechanism(CKM_ECDSA);
    ASSERT_EQ(C_VerifyInit(session, &verifying, kEcPublic), CKR_OK);
    forget();
    expectAnswer(C_Verify(session, data.data(), 8, signature.data(), 0), CKR_ARGUMENTS_BAD,
                 refused("C_Verify",
                         "C_Verify: ulDataLen or ulSignatureLen <= 0, ulDataLen=8 "
                         "ulSignatureLen=0"));
    EXPECT_EQ(activeOperation(session), 7u);
}

}  // namespace
