// Signing: what reaches the device for each mechanism, the kept signature, the FIPS 140-3 and
// RSA-1024 rules, the firmware gate, multi-part signing and failures.
#include <algorithm>
#include <functional>

#include "crypto/hex_der.h"
#include "crypto_fixture.h"

namespace {

class SignTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
    }
    // Signs in one part on the session; answers the code of C_Sign.
    CK_RV signOnce(CK_SESSION_HANDLE on, CK_MECHANISM_TYPE type, const Bytes& data,
                   CK_OBJECT_HANDLE key = kRsaPrivate) {
        CK_BYTE garbage[7] = {0xFF, 0, 1, 2, 3, 4, 5};
        CK_MECHANISM signing{type, nullptr, 0};
        const CK_MECHANISM_TYPE pss[] = {CKM_RSA_PKCS_PSS,        CKM_SHA1_RSA_PKCS_PSS,
                                         CKM_SHA256_RSA_PKCS_PSS, CKM_SHA384_RSA_PKCS_PSS,
                                         CKM_SHA512_RSA_PKCS_PSS, CKM_SHA224_RSA_PKCS_PSS};
        if (std::find(std::begin(pss), std::end(pss), type) != std::end(pss)) {
            signing = {type, garbage, sizeof garbage};  // PSS parameters are never read
        }
        EXPECT_EQ(C_SignInit(on, &signing, key), CKR_OK) << type;
        Bytes input = data;
        CK_BYTE signature[1024];
        CK_ULONG length = sizeof signature;
        return C_Sign(on, input.data(), input.size(), signature, &length);
    }
};

// The digest of Sign input hashed by the double with this code.
Bytes digestOf(int code, const Bytes& data) {
    return dd::fakeDigest(code, data);
}

TEST_F(SignTest, HashingMechanismSignsTheDigestAndKeepsTheSignatureForTheNextCall) {
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &signing, kRsaPrivate), CKR_OK);
    forget();
    Bytes data = bytes("to be signed");
    CK_ULONG length = 0;
    const Bytes digest = digestOf(3, data);
    expectAnswer(C_Sign(session, data.data(), data.size(), nullptr, &length), CKR_OK,
                 {infoLine("C_Sign"), infoLine("sign echanism : 64"),
                  infoLine("Sign: password empty=0 hashLen=32 session state=3"),
                  infoLine("Sign input hash : " + bytesToHex(digest))});
    EXPECT_EQ(onlyCall("initHash").numbers, std::vector<std::int64_t>{3});
    EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{64});
    const dd::Call signCall = onlyCall("signHash");
    EXPECT_EQ(signCall.deviceId, "SER1");
    EXPECT_EQ(signCall.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(signCall.bytes, (std::vector<Bytes>{keyReference(1), digest}));
    EXPECT_EQ(signCall.numbers, (std::vector<std::int64_t>{32, 1024, 0, 0}));
    EXPECT_EQ(signCall.instance, moduleState().deviceInstance.load());
    const Bytes expected = dd::fakeSignature(pair(1), digest);
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(activeOperation(session), 5u);

    Bytes other = bytes("ignored");
    Bytes signature(expected.size() + 4, 0xEE);
    length = 3;
    expectAnswer(C_Sign(session, other.data(), other.size(), signature.data(), &length), CKR_OK,
                 {infoLine("C_Sign"), infoLine("sign echanism : 64")});
    EXPECT_EQ(Bytes(signature.begin(), signature.begin() + expected.size()), expected);
    EXPECT_EQ(dd::callCount("signHash"), 1u);
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_TRUE(context(session).pendingOutput.empty());
}

TEST_F(SignTest, EachMechanismHashesWithItsCodeAndPassesItsPssFlag) {
    struct Case {
        CK_MECHANISM_TYPE type;
        int hashCode;  // 0: the input is signed as given
        bool pss;
        CK_OBJECT_HANDLE key;
    };
    const Case cases[] = {
        {CKM_RSA_PKCS, 0, false, kRsaPrivate},
        {CKM_RSA_PKCS_PSS, 0, true, kRsaPrivate},
        {CKM_SHA1_RSA_PKCS, 2, false, kRsaPrivate},
        {CKM_SHA1_RSA_PKCS_PSS, 2, true, kRsaPrivate},
        {CKM_SHA256_RSA_PKCS, 3, false, kRsaPrivate},
        {CKM_SHA384_RSA_PKCS, 4, false, kRsaPrivate},
        {CKM_SHA512_RSA_PKCS, 5, false, kRsaPrivate},
        {CKM_SHA256_RSA_PKCS_PSS, 3, true, kRsaPrivate},
        {CKM_SHA384_RSA_PKCS_PSS, 4, true, kRsaPrivate},
        {CKM_SHA512_RSA_PKCS_PSS, 5, true, kRsaPrivate},
        {CKM_SHA224_RSA_PKCS, 6, false, kRsaPrivate},
        {CKM_SHA224_RSA_PKCS_PSS, 6, true, kRsaPrivate},
        {CKM_ECDSA, 0, false, kEcPrivate},
        {CKM_ECDSA_SHA1, 2, false, kEcPrivate},
        {CKM_ECDSA_SHA224, 6, false, kEcPrivate},
        {CKM_ECDSA_SHA256, 3, false, kEcPrivate},
        {CKM_ECDSA_SHA384, 4, false, kEcPrivate},
    };
    const CK_SESSION_HANDLE nonFips = open(kNonFipsSlot, kReadWrite);  // SHA-1 allowed there
    const Bytes data(20, 0x5A);  // a SHA-1 length, refused raw only on a FIPS 140-3 token
    for (const Case& each : cases) {
        ASSERT_EQ(signOnce(nonFips, each.type, data, each.key), CKR_OK) << each.type;
        const dd::Call signCall = onlyCall("signHash");
        if (each.hashCode == 0) {
            EXPECT_EQ(dd::callCount("initHash"), 0u) << each.type;
            EXPECT_EQ(signCall.bytes.at(1), data) << each.type;
        } else {
            EXPECT_EQ(onlyCall("initHash").numbers.at(0), each.hashCode) << each.type;
            EXPECT_EQ(signCall.bytes.at(1), digestOf(each.hashCode, data)) << each.type;
        }
        EXPECT_EQ(signCall.numbers.back(), each.pss ? 1 : 0) << each.type;
        EXPECT_EQ(signCall.deviceId, "SER2");
        forget();
    }
}

TEST_F(SignTest, InitRefusalsAndTheMechanismWrittenBeforeTheKeyCheck) {
    CK_BYTE parameter[8] = {};
    struct Case {
        CK_MECHANISM signing;
        CK_OBJECT_HANDLE key;
        CK_SLOT_ID slot;
        CK_RV expected;
        Lines lines;  // after the entry line
    };
    const std::string handleText = std::to_string(kRsaPublic);
    const Case cases[] = {
        {{CKM_SHA1_RSA_PKCS, nullptr, 0},
         kRsaPrivate,
         kFipsSlot,
         CKR_MECHANISM_INVALID,
         {errorLine("C_SignInit: SHA1 signing not allowed on FIPS 140-3 token")}},
        {{CKM_ECDSA_SHA1, nullptr, 0},
         kEcPrivate,
         kFipsSlot,
         CKR_MECHANISM_INVALID,
         {errorLine("C_SignInit: SHA1 signing not allowed on FIPS 140-3 token")}},
        {{CKM_ECDSA_SHA512, nullptr, 0},
         kEcPrivate,
         kFipsSlot,
         CKR_MECHANISM_INVALID,
         {errorLine("C_SignInit: unsupported mechanism=4166")}},
        {{CKM_SHA256_RSA_PKCS, parameter, 0},
         kRsaPrivate,
         kFipsSlot,
         CKR_MECHANISM_PARAM_INVALID,
         {errorLine("C_SignInit: mechanism param invalid for mechanism=64")}},
        {{CKM_RSA_PKCS, nullptr, 8},
         kRsaPrivate,
         kFipsSlot,
         CKR_MECHANISM_PARAM_INVALID,
         {errorLine("C_SignInit: mechanism param invalid for mechanism=1")}},
        {{CKM_SHA256_RSA_PKCS_PSS, parameter, 8},
         kRsaPrivate,
         kOldFirmwareSlot,
         CKR_MECHANISM_INVALID,
         {infoLine("firmware veriosn :: 1.9.9"),
          errorLine("C_SignInit: CKM_RSA_PKCS_PSS not supported on firmware 1.9.9")}},
        {{CKM_SHA256_RSA_PKCS, nullptr, 0},
         0x6FFFFFFF,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         {errorLine("C_SignInit: invalid hKey=1879048191")}},
        {{CKM_SHA256_RSA_PKCS, nullptr, 0},
         kRsaPublic,
         kFipsSlot,
         CKR_KEY_HANDLE_INVALID,
         {errorLine("Invalid input handle in sign : " + handleText)}},
        {{CKM_SHA256_RSA_PKCS, nullptr, 0},
         kAliasOfRsaPrivate,
         kFipsSlot,
         kWideUlong ? CKR_KEY_HANDLE_INVALID : CKR_OK,
         {kWideUlong
              ? errorLine("Invalid input handle in sign : " + std::to_string(kAliasOfRsaPrivate))
              : std::string()}},
        {{CKM_SHA384_RSA_PKCS, nullptr, 0},
         kRsa1024Private,
         kFipsSlot,
         CKR_KEY_SIZE_RANGE,
         {errorLine("C_SignInit: RSA-1024 signing not allowed \xE2\x80\x94 key size below "
                    "112-bit security strength")}},
    };
    for (const Case& each : cases) {
        if (each.expected == CKR_OK) {
            continue;  // 32-bit CK_ULONG: no wide handle to try
        }
        const CK_SESSION_HANDLE on = open(each.slot, kReadWrite);
        CK_MECHANISM signing = each.signing;
        Lines lines{infoLine("C_SignInit")};
        lines.insert(lines.end(), each.lines.begin(), each.lines.end());
        expectAnswer(C_SignInit(on, &signing, each.key), each.expected, lines);
        const OperationContext& operation = context(on);
        EXPECT_EQ(operation.activeOperation, 0u);
        EXPECT_FALSE(operation.keyPair.has_value());
        // Only a refused key leaves the mechanism written.
        const bool keyRefused =
            each.expected == CKR_KEY_HANDLE_INVALID || each.expected == CKR_KEY_SIZE_RANGE;
        EXPECT_EQ(operation.mechanism, keyRefused ? signing.mechanism : 0u) << lines.back();
        if (each.key == kAliasOfRsaPrivate) {
            EXPECT_EQ(dd::callCount("getKeyPairList"), 0u);  // a wide handle is not looked up
        }
    }
    expectAnswer(C_SignInit(session, nullptr, kRsaPrivate), CKR_ARGUMENTS_BAD,
                 {infoLine("C_SignInit"), errorLine("C_SignInit: pMechanism is NULL")});

    // After the RSA-1024 refusal nothing is active: a 2048-bit key signs on the same session.
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &signing, kRsa1024Private), CKR_KEY_SIZE_RANGE);
    ASSERT_EQ(C_SignInit(session, &signing, kRsaPrivate), CKR_OK);
    // PSS with any parameters on a recent firmware, after the version line.
    CK_MECHANISM pss{CKM_RSA_PKCS_PSS, parameter, 1000};
    forget();
    ASSERT_EQ(C_SignInit(open(kFipsSlot, kReadWrite), &pss, kRsaPrivate), CKR_OK);
    EXPECT_EQ(log.newCallLines(),
              (Lines{infoLine("C_SignInit"), infoLine("firmware veriosn :: 2.1.0")}));
}

TEST_F(SignTest, Fips1403TokenRefusesSha1AndMd5SingleRawInput) {
    const Bytes sha1Info = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05,
                            0x00, 0x04, 0x14, 1,    2,    3,    4,    5,    6,    7,    8,    9,
                            10,   11,   12,   13,   14,   15,   16,   17,   18,   19,   20};
    const Bytes md5Info = {0x30, 0x20, 0x30, 0x0C, 0x06, 0x08, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D,
                           0x02, 0x05, 0x05, 0x00, 0x04, 0x10, 1,    2,    3,    4,    5,    6,
                           7,    8,    9,    10,   11,   12,   13,   14,   15,   16};
    Bytes notStartingWith30 = sha1Info;
    notStartingWith30[0] = 0x31;
    const Bytes tooShort = {0x30, 0x00, 0x00, 0x00, 0x00, 0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const Bytes identifierAtTheEnd = {0x30, 0, 0, 0, 0, 0, 0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const std::string sha1Line = "C_Sign: SHA1 DigestInfo signing not allowed on FIPS 140-3 token";
    const std::string md5Line = "C_Sign: MD5 DigestInfo signing not allowed on FIPS 140-3 token";
    const std::string via = " hash signing via ";
    const std::string tail = " not allowed on FIPS 140-3 token";
    struct Case {
        CK_MECHANISM_TYPE type;
        CK_OBJECT_HANDLE key;
        Bytes input;
        std::string refusal;  // empty: signed
    };
    const Case cases[] = {
        {CKM_RSA_PKCS, kRsaPrivate, sha1Info, sha1Line},
        {CKM_RSA_PKCS, kRsaPrivate, md5Info, md5Line},
        {CKM_RSA_PKCS, kRsaPrivate, identifierAtTheEnd, sha1Line},
        {CKM_RSA_PKCS, kRsaPrivate, notStartingWith30, ""},
        {CKM_RSA_PKCS, kRsaPrivate, tooShort, ""},
        {CKM_ECDSA, kEcPrivate, Bytes(20, 1), "C_Sign: SHA1" + via + "CKM_ECDSA" + tail},
        {CKM_ECDSA, kEcPrivate, Bytes(16, 1), "C_Sign: MD5" + via + "CKM_ECDSA" + tail},
        {CKM_ECDSA, kEcPrivate, Bytes(32, 1), ""},
        {CKM_RSA_PKCS_PSS, kRsaPrivate, Bytes(20, 1),
         "C_Sign: SHA1" + via + "CKM_RSA_PKCS_PSS" + tail},
        {CKM_RSA_PKCS_PSS, kRsaPrivate, Bytes(16, 1),
         "C_Sign: MD5" + via + "CKM_RSA_PKCS_PSS" + tail},
    };
    for (const Case& each : cases) {
        forget();
        if (each.refusal.empty()) {
            EXPECT_EQ(signOnce(session, each.type, each.input, each.key), CKR_OK);
            EXPECT_EQ(onlyCall("signHash").bytes.at(1), each.input);
            continue;
        }
        EXPECT_EQ(signOnce(session, each.type, each.input, each.key), CKR_MECHANISM_INVALID);
        EXPECT_EQ(log.newCallLines().back(), errorLine(each.refusal));
        EXPECT_EQ(activeOperation(session), 0u);
        EXPECT_EQ(dd::callCount("signHash"), 0u);
    }
    // Outside FIPS 140-3 mode, and in several parts, the same input is signed.
    const CK_SESSION_HANDLE nonFips = open(kNonFipsSlot, kReadWrite);
    EXPECT_EQ(signOnce(nonFips, CKM_RSA_PKCS, sha1Info), CKR_OK);
    CK_MECHANISM raw = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &raw, kRsaPrivate), CKR_OK);
    Bytes input = sha1Info;
    ASSERT_EQ(C_SignUpdate(session, input.data(), input.size()), CKR_OK);
    CK_BYTE signature[1024];
    CK_ULONG length = sizeof signature;
    EXPECT_EQ(C_SignFinal(session, signature, &length), CKR_OK);
}

TEST_F(SignTest, MultiPartSigningHashesOnOneContextOrCollectsRawInput) {
    CK_MECHANISM hashing = mechanism(CKM_SHA384_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &hashing, kRsaPrivate), CKR_OK);
    Bytes a = bytes("first "), b = bytes("second");
    ASSERT_EQ(C_SignUpdate(session, a.data(), a.size()), CKR_OK);
    ASSERT_EQ(C_SignUpdate(session, b.data(), b.size()), CKR_OK);
    const std::vector<dd::Call> updates = dd::calls("updateHash");
    ASSERT_EQ(updates.size(), 2u);
    EXPECT_EQ(updates[0].context, onlyCall("initHash").context);
    EXPECT_EQ(updates[1].context, updates[0].context);
    CK_ULONG length = 0;
    ASSERT_EQ(C_SignFinal(session, nullptr, &length), CKR_OK);
    EXPECT_EQ(context(session).hashContext, nullptr);
    Bytes signature(length);
    // A kept signature is handed out by either path.
    ASSERT_EQ(C_Sign(session, a.data(), a.size(), signature.data(), &length), CKR_OK);
    const Bytes digest = digestOf(4, concat(a, b));
    EXPECT_EQ(onlyCall("signHash").bytes.at(1), digest);
    EXPECT_EQ(signature, dd::fakeSignature(pair(1), digest));
    EXPECT_EQ(activeOperation(session), 0u);
    forget();

    CK_MECHANISM raw = mechanism(CKM_ECDSA);
    ASSERT_EQ(C_SignInit(session, &raw, kEcPrivate), CKR_OK);
    ASSERT_EQ(C_SignUpdate(session, a.data(), a.size()), CKR_OK);
    ASSERT_EQ(C_SignUpdate(session, b.data(), b.size()), CKR_OK);
    length = static_cast<CK_ULONG>(signature.size());
    ASSERT_EQ(C_SignFinal(session, signature.data(), &length), CKR_OK);
    EXPECT_EQ(dd::callCount("initHash"), 0u);
    EXPECT_EQ(onlyCall("signHash").bytes.at(1), concat(a, b));
    EXPECT_TRUE(context(session).bufferedData.empty());
}

TEST_F(SignTest, DeviceFailuresEndTheOperationArgumentErrorsDoNot) {
    CK_MECHANISM hashing = mechanism(CKM_SHA256_RSA_PKCS);
    CK_BYTE data[4] = {1, 2, 3, 4};
    CK_BYTE signature[1024];
    CK_ULONG length = sizeof signature;
    struct Failure {
        const char* operation;
        int code;
        std::function<CK_RV()> call;
        std::string line;
    };
    const Failure failures[] = {
        {"initHash", 27, [&] { return C_Sign(session, data, 4, signature, &length); },
         "init hash failed 27"},
        {"updateHash", 26, [&] { return C_Sign(session, data, 4, signature, &length); },
         "update hash failed 26"},
        {"finalHash", 26, [&] { return C_Sign(session, data, 4, signature, &length); },
         "final hash failed 26"},
        {"signHash", 22, [&] { return C_Sign(session, data, 4, signature, &length); },
         "Sign hash failed : 22"},
        {"initHash", 27, [&] { return C_SignUpdate(session, data, 4); },
         "C_SignUpdate: initHash failed 27"},
        {"updateHash", 26, [&] { return C_SignUpdate(session, data, 4); },
         "C_SignUpdate: updateHash failed 26"},
        {"signHash", 22,
         [&] {
             EXPECT_EQ(C_SignUpdate(session, data, 4), CKR_OK);
             return C_SignFinal(session, signature, &length);
         },
         "C_SignFinal: signHash failed 22"},
        // Without an Update there is no hash to finish.
        {"none", 0, [&] { return C_SignFinal(session, signature, &length); },
         "C_SignFinal: finalHash failed 26"},
    };
    for (const Failure& failure : failures) {
        ASSERT_EQ(C_SignInit(session, &hashing, kRsaPrivate), CKR_OK);
        forget();
        if (failure.code != 0) {
            dd::scriptResult(failure.operation, failure.code);
        }
        EXPECT_EQ(failure.call(), CKR_FUNCTION_FAILED) << failure.line;
        EXPECT_EQ(log.newCallLines().back(), errorLine(failure.line));
        EXPECT_EQ(activeOperation(session), 0u) << failure.line;
        EXPECT_EQ(context(session).hashContext, nullptr) << failure.line;
        EXPECT_TRUE(context(session).bufferedData.empty()) << failure.line;
    }

    ASSERT_EQ(C_SignInit(session, &hashing, kRsaPrivate), CKR_OK);
    forget();
    expectAnswer(C_Sign(session, nullptr, 4, signature, &length), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Sign"), errorLine("C_Sign: pData is NULL")});
    expectAnswer(C_Sign(session, data, 0, signature, &length), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Sign"), errorLine("C_Sign: ulDataLen<=0, ulDataLen=0")});
    expectAnswer(C_Sign(session, data, 4, signature, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_Sign"), errorLine("C_Sign: pulSignatureLen is NULL")});
    expectAnswer(C_SignUpdate(session, nullptr, 4), CKR_ARGUMENTS_BAD,
                 {infoLine("C_SignUpdate"),
                  errorLine("C_SignUpdate: pPart is NULL or ulPartLen<=0, ulPartLen=4")});
    expectAnswer(C_SignFinal(session, signature, nullptr), CKR_ARGUMENTS_BAD,
                 {infoLine("C_SignFinal"), errorLine("C_SignFinal: pulSignatureLen is NULL")});
    EXPECT_EQ(activeOperation(session), 5u);
    EXPECT_EQ(dd::calls().size(), dd::callCount("getConnectedDeviceList"));
}

}  // namespace
