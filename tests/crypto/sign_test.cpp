// Signing: what reaches the device for each mechanism, the kept signature, the FIPS 140-3 and
// RSA-1024 rules, the firmware gate, multi-part signing and failures.
#include "crypto/hex_der.h"
#include "crypto_fixture.h"

namespace {

class SignTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
    }
    // C_SignInit (PSS with garbage parameters, which are never read), then C_Sign.
    CK_RV signOnce(CK_SESSION_HANDLE on, CK_MECHANISM_TYPE type, Bytes data,
                   CK_OBJECT_HANDLE key = kRsaPrivate) {
        CK_BYTE garbage[7] = {0xFF, 0, 1, 2, 3, 4, 5};
        const bool pss = type == CKM_RSA_PKCS_PSS || type == CKM_SHA1_RSA_PKCS_PSS ||
                         (type >= CKM_SHA256_RSA_PKCS_PSS && type <= CKM_SHA512_RSA_PKCS_PSS) ||
                         type == CKM_SHA224_RSA_PKCS_PSS;
        CK_MECHANISM signing{type, pss ? garbage : nullptr, pss ? CK_ULONG{sizeof garbage} : 0};
        EXPECT_EQ(C_SignInit(on, &signing, key), CKR_OK) << type;
        CK_BYTE signature[1024];
        CK_ULONG length = sizeof signature;
        return C_Sign(on, data.data(), data.size(), signature, &length);
    }
};

TEST_F(SignTest, DigestIsSignedWithTheKeyReferenceAndPinAndKeptForTheNextCall) {
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &signing, kRsaPrivate), CKR_OK);
    forget();
    Bytes data = bytes("to be signed"), other = bytes("ignored");
    const Bytes digest = dd::fakeDigest(3, data);
    CK_ULONG length = 0;
    expectAnswer(C_Sign(session, data.data(), data.size(), nullptr, &length), CKR_OK,
                 {infoLine("C_Sign"), infoLine("sign echanism : 64"),
                  infoLine("Sign: password empty=0 hashLen=32 session state=3"),
                  infoLine("Sign input hash : " + bytesToHex(digest))});
    EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{64});
    const dd::Call call = onlyCall("signHash");
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{keyReference(1), digest}));
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{32, 1024, 0, 0}));
    EXPECT_EQ(call.instance, moduleState().deviceInstance.load());
    const Bytes expected = dd::fakeSignature(pair(1), digest);
    EXPECT_EQ(length, expected.size());
    EXPECT_EQ(activeOperation(session), 5u);
    Bytes signature(expected.size() + 1, 0xEE);
    length = 3;
    expectAnswer(C_Sign(session, other.data(), other.size(), signature.data(), &length), CKR_OK,
                 {infoLine("C_Sign"), infoLine("sign echanism : 64")});
    EXPECT_EQ(signature, concat(expected, {0xEE}));
    EXPECT_EQ(dd::callCount("signHash"), 1u);
    EXPECT_EQ(activeOperation(session), 0u);
    EXPECT_TRUE(context(session).pendingOutput.empty());
}

TEST_F(SignTest, EachMechanismHashesWithItsCodeAndPassesItsPssFlag) {
    struct Case {
        CK_MECHANISM_TYPE type;
        int hashCode;  // 0: the input is signed as given
        bool pss;
    };
    const Case rsa[] = {{CKM_RSA_PKCS, 0, false},           {CKM_RSA_PKCS_PSS, 0, true},
                        {CKM_SHA1_RSA_PKCS, 2, false},      {CKM_SHA1_RSA_PKCS_PSS, 2, true},
                        {CKM_SHA256_RSA_PKCS, 3, false},    {CKM_SHA384_RSA_PKCS, 4, false},
                        {CKM_SHA512_RSA_PKCS, 5, false},    {CKM_SHA256_RSA_PKCS_PSS, 3, true},
                        {CKM_SHA384_RSA_PKCS_PSS, 4, true}, {CKM_SHA512_RSA_PKCS_PSS, 5, true},
                        {CKM_SHA224_RSA_PKCS, 6, false},    {CKM_SHA224_RSA_PKCS_PSS, 6, true}};
    const Case ec[] = {{CKM_ECDSA, 0, false},
                       {CKM_ECDSA_SHA1, 2, false},
                       {CKM_ECDSA_SHA224, 6, false},
                       {CKM_ECDSA_SHA256, 3, false},
                       {CKM_ECDSA_SHA384, 4, false}};
    const CK_SESSION_HANDLE nonFips = open(kNonFipsSlot, kReadWrite);  // SHA-1 allowed there
    const Bytes data(20, 0x5A);  // a SHA-1 length: refused raw only on a FIPS 140-3 token
    for (const auto& [cases, key] :
         {std::make_pair(std::vector<Case>(rsa, std::end(rsa)), kRsaPrivate),
          std::make_pair(std::vector<Case>(ec, std::end(ec)), kEcPrivate)}) {
        for (const Case& each : cases) {
            ASSERT_EQ(signOnce(nonFips, each.type, data, key), CKR_OK) << each.type;
            const dd::Call call = onlyCall("signHash");
            EXPECT_EQ(call.bytes.at(1),
                      each.hashCode == 0 ? data : dd::fakeDigest(each.hashCode, data));
            EXPECT_EQ(dd::calls("initHash").size(), each.hashCode == 0 ? 0u : 1u) << each.type;
            EXPECT_EQ(call.numbers.at(3), each.pss ? 1 : 0) << each.type;
            EXPECT_EQ(call.deviceId, "SER2");
            forget();
        }
    }
}

TEST_F(SignTest, InitRefusalsAndTheMechanismWrittenBeforeTheKeyCheck) {
    CK_BYTE parameter[8] = {};
    const std::string dash = "\xE2\x80\x94";
    struct Case {
        CK_MECHANISM signing;
        CK_OBJECT_HANDLE key;
        CK_SLOT_ID slot;
        CK_RV expected;
        Lines lines;  // after the entry line
    };
    const std::vector<Case> cases = {
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
         {errorLine("Invalid input handle in sign : " + std::to_string(kRsaPublic))}},
        {{CKM_SHA256_RSA_PKCS, nullptr, 0},
         kWideRsaPrivate,
         kFipsSlot,
         kWideUlong ? CKR_KEY_HANDLE_INVALID : CKR_OK,
         {errorLine("Invalid input handle in sign : " + std::to_string(kWideRsaPrivate))}},
        {{CKM_SHA384_RSA_PKCS, nullptr, 0},
         0x70000002,
         kFipsSlot,
         CKR_KEY_SIZE_RANGE,
         {errorLine("C_SignInit: RSA-1024 signing not allowed " + dash +
                    " key size below 112-bit security strength")}},
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
        if (each.key == kWideRsaPrivate) {
            EXPECT_EQ(dd::callCount("getKeyPairList"), 0u);  // a wide handle is not looked up
        }
    }
    // Nothing stayed active: a 2048-bit key signs on a session whose RSA-1024 key was refused,
    // and PSS takes parameters of any length on a recent firmware, after the version line.
    CK_MECHANISM signing = mechanism(CKM_SHA256_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &signing, 0x70000002), CKR_KEY_SIZE_RANGE);
    ASSERT_EQ(C_SignInit(session, &signing, kRsaPrivate), CKR_OK);
    CK_MECHANISM pss{CKM_RSA_PKCS_PSS, parameter, 1000};
    forget();
    expectAnswer(C_SignInit(open(kFipsSlot, kReadWrite), &pss, kRsaPrivate), CKR_OK,
                 {infoLine("C_SignInit"), infoLine("firmware veriosn :: 2.1.0")});
}

TEST_F(SignTest, Fips1403TokenRefusesSha1AndMd5SingleRawInput) {
    const Bytes sha1Info = concat(
        {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E, 0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14},
        Bytes(20, 7));
    const Bytes md5Info = concat({0x30, 0x20, 0x30, 0x0C, 0x06, 0x08, 0x2A, 0x86, 0x48, 0x86, 0xF7,
                                  0x0D, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10},
                                 Bytes(16, 7));
    Bytes notStartingWith30 = sha1Info;
    notStartingWith30[0] = 0x31;
    const Bytes tooShort = {0x30, 0, 0, 0, 0, 0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const Bytes identifierAtTheEnd = {0x30, 0, 0, 0, 0, 0, 0x2B, 0x0E, 0x03, 0x02, 0x1A};
    const std::string digestInfo = " DigestInfo signing not allowed on FIPS 140-3 token";
    const std::string tail = " not allowed on FIPS 140-3 token";
    struct Case {
        CK_MECHANISM_TYPE type;
        Bytes input;
        std::string refusal;  // empty: signed
    };
    const Case cases[] = {
        {CKM_RSA_PKCS, sha1Info, "C_Sign: SHA1" + digestInfo},
        {CKM_RSA_PKCS, md5Info, "C_Sign: MD5" + digestInfo},
        {CKM_RSA_PKCS, identifierAtTheEnd, "C_Sign: SHA1" + digestInfo},
        {CKM_RSA_PKCS, notStartingWith30, ""},
        {CKM_RSA_PKCS, tooShort, ""},
        {CKM_ECDSA, Bytes(20, 1), "C_Sign: SHA1 hash signing via CKM_ECDSA" + tail},
        {CKM_ECDSA, Bytes(16, 1), "C_Sign: MD5 hash signing via CKM_ECDSA" + tail},
        {CKM_ECDSA, Bytes(32, 1), ""},
        {CKM_RSA_PKCS_PSS, Bytes(20, 1), "C_Sign: SHA1 hash signing via CKM_RSA_PKCS_PSS" + tail},
        {CKM_RSA_PKCS_PSS, Bytes(16, 1), "C_Sign: MD5 hash signing via CKM_RSA_PKCS_PSS" + tail},
    };
    for (const Case& each : cases) {
        forget();
        const CK_OBJECT_HANDLE key = each.type == CKM_ECDSA ? kEcPrivate : kRsaPrivate;
        const CK_RV rv = signOnce(session, each.type, each.input, key);
        if (each.refusal.empty()) {
            EXPECT_EQ(rv, CKR_OK);
            EXPECT_EQ(onlyCall("signHash").bytes.at(1), each.input);
            continue;
        }
        EXPECT_EQ(rv, CKR_MECHANISM_INVALID);
        EXPECT_EQ(lastLine(), errorLine(each.refusal));
        EXPECT_EQ(activeOperation(session), 0u);
        EXPECT_EQ(dd::callCount("signHash"), 0u);
    }
    // Outside FIPS 140-3 mode, and in several parts, the same input is signed.
    EXPECT_EQ(signOnce(open(kNonFipsSlot, kReadWrite), CKM_RSA_PKCS, sha1Info), CKR_OK);
    CK_MECHANISM raw = mechanism(CKM_RSA_PKCS);
    ASSERT_EQ(C_SignInit(session, &raw, kRsaPrivate), CKR_OK);
    Bytes input = sha1Info;
    ASSERT_EQ(C_SignUpdate(session, input.data(), input.size()), CKR_OK);
    CK_BYTE signature[1024];
    CK_ULONG length = sizeof signature;
    EXPECT_EQ(C_SignFinal(session, signature, &length), CKR_OK);
}

TEST_F(SignTest, MultiPartSigningHashesOnOneContextOrCollectsRawInput) {
    Bytes a = bytes("first "), b = bytes("second"), signature(1024);
    for (const auto& [type, key] : {std::make_pair(CKM_SHA384_RSA_PKCS, kRsaPrivate),
                                    std::make_pair(CKM_ECDSA, kEcPrivate)}) {
        forget();
        CK_MECHANISM signing = mechanism(type);
        ASSERT_EQ(C_SignInit(session, &signing, key), CKR_OK);
        ASSERT_EQ(C_SignUpdate(session, a.data(), a.size()), CKR_OK);
        ASSERT_EQ(C_SignUpdate(session, b.data(), b.size()), CKR_OK);
        CK_ULONG length = 0;
        ASSERT_EQ(C_SignFinal(session, nullptr, &length), CKR_OK);
        // A kept signature is handed out by either path.
        ASSERT_EQ(C_Sign(session, a.data(), a.size(), signature.data(), &length), CKR_OK);
        const dd::Call call = onlyCall("signHash");
        if (type == CKM_ECDSA) {
            EXPECT_EQ(dd::callCount("initHash"), 0u);
            EXPECT_EQ(call.bytes.at(1), concat(a, b));
        } else {
            const std::vector<dd::Call> updates = dd::calls("updateHash");
            ASSERT_EQ(updates.size(), 2u);
            EXPECT_EQ(updates[1].context, onlyCall("initHash").context);
            EXPECT_EQ(call.bytes.at(1), dd::fakeDigest(4, concat(a, b)));
        }
        EXPECT_EQ(Bytes(signature.begin(), signature.begin() + length),
                  dd::fakeSignature(pair(type == CKM_ECDSA ? 3 : 1), call.bytes.at(1)));
        EXPECT_EQ(activeOperation(session), 0u);
        EXPECT_EQ(context(session).hashContext, nullptr);
        EXPECT_TRUE(context(session).bufferedData.empty());
    }
}

TEST_F(SignTest, DeviceFailuresEndTheOperationArgumentErrorsDoNot) {
    CK_MECHANISM hashing = mechanism(CKM_SHA256_RSA_PKCS);
    CK_BYTE data[4] = {1, 2, 3, 4}, signature[1024];
    CK_ULONG length = sizeof signature;
    const auto single = [&] { return C_Sign(session, data, 4, signature, &length); };
    const auto update = [&] { return C_SignUpdate(session, data, 4); };
    const auto final = [&] {
        EXPECT_EQ(update(), CKR_OK);
        return C_SignFinal(session, signature, &length);
    };
    const std::tuple<const char*, std::function<CK_RV()>, std::string> failures[] = {
        {"initHash", single, "init hash failed 27"},
        {"updateHash", single, "update hash failed 27"},
        {"finalHash", single, "final hash failed 27"},
        {"signHash", single, "Sign hash failed : 27"},
        {"initHash", update, "C_SignUpdate: initHash failed 27"},
        {"updateHash", update, "C_SignUpdate: updateHash failed 27"},
        {"signHash", final, "C_SignFinal: signHash failed 27"},
        // Without an Update there is no hash to finish: the double answers 26.
        {nullptr, [&] { return C_SignFinal(session, signature, &length); },
         "C_SignFinal: finalHash failed 26"},
    };
    for (const auto& [operation, call, line] : failures) {
        ASSERT_EQ(C_SignInit(session, &hashing, kRsaPrivate), CKR_OK);
        forget();
        if (operation != nullptr) {
            dd::scriptResult(operation, 27);
        }
        EXPECT_EQ(call(), CKR_FUNCTION_FAILED) << line;
        EXPECT_EQ(lastLine(), errorLine(line));
        EXPECT_EQ(activeOperation(session), 0u) << line;
        EXPECT_EQ(context(session).hashContext, nullptr) << line;
        EXPECT_TRUE(context(session).bufferedData.empty()) << line;
    }
    ASSERT_EQ(C_SignInit(session, &hashing, kRsaPrivate), CKR_OK);
    forget();
    expectAnswer(C_Sign(session, data, 0, signature, &length), CKR_ARGUMENTS_BAD,
                 refused("C_Sign", "C_Sign: ulDataLen<=0, ulDataLen=0"));
    expectAnswer(
        C_SignUpdate(session, nullptr, 4), CKR_ARGUMENTS_BAD,
        refused("C_SignUpdate", "C_SignUpdate: pPart is NULL or ulPartLen<=0, ulPartLen=4"));
    EXPECT_EQ(activeOperation(session), 5u);
}

}  // namespace
