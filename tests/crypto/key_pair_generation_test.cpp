// Key-pair generation: the record the device gets from the two templates, the handles of the
// new pair, and the refusals.
#include <cstring>
#include <functional>

#include "crypto_fixture.h"

namespace {

// A template value kept alive with its attribute.
struct Value {
    CK_ATTRIBUTE_TYPE type;
    Bytes bytes;
};
Value number(CK_ATTRIBUTE_TYPE type, CK_ULONG value) {
    Bytes encoded(sizeof value);
    std::memcpy(encoded.data(), &value, sizeof value);
    return {type, encoded};
}
Value flag(CK_ATTRIBUTE_TYPE type, bool value) {
    return {type, Bytes{value ? CK_BYTE{1} : CK_BYTE{0}}};
}

std::vector<CK_ATTRIBUTE> attributes(std::vector<Value>& values) {
    std::vector<CK_ATTRIBUTE> result;
    for (Value& value : values) {
        result.push_back(
            {value.type, value.bytes.data(), static_cast<CK_ULONG>(value.bytes.size())});
    }
    return result;
}

const Bytes kP384 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22};
const Bytes kP521 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x23};
const Bytes kSecp256k1 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x0A};

class GenerationTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
    }
    CK_RV generate(std::vector<Value> publicValues, std::vector<Value> privateValues,
                   CK_SESSION_HANDLE on = 0) {
        // Any mechanism type does: it is never looked at.
        CK_MECHANISM generation = mechanism(CKM_VENDOR_DEFINED);
        std::vector<CK_ATTRIBUTE> publicTemplate = attributes(publicValues);
        std::vector<CK_ATTRIBUTE> privateTemplate = attributes(privateValues);
        return C_GenerateKeyPair(
            on == 0 ? session : on, &generation, publicTemplate.data(),
            static_cast<CK_ULONG>(publicTemplate.size()), privateTemplate.data(),
            static_cast<CK_ULONG>(privateTemplate.size()), &publicKey, &privateKey);
    }
    CK_OBJECT_HANDLE publicKey = 0;
    CK_OBJECT_HANDLE privateKey = 0;
};

TEST_F(GenerationTest, RecordFollowsTheTemplatesAndTheHandlesNameTheNewPair) {
    const Value label{CKA_LABEL, Bytes(200, 'L')};
    const Value id{CKA_ID, Bytes{1, 2, 3}};
    struct Case {
        std::vector<Value> publicValues;
        std::vector<Value> privateValues;
        std::int64_t keyType;
        std::int64_t usage;
    };
    const Case cases[] = {
        {{flag(CKA_TOKEN, true)}, {label, id}, 2, 1},
        {{number(CKA_MODULUS_BITS, 3072)}, {flag(CKA_DECRYPT, true)}, 3, 2},
        {{number(CKA_MODULUS_BITS, 4096)}, {flag(CKA_SIGN, true), flag(CKA_DECRYPT, true)}, 4, 3},
        {{flag(CKA_TOKEN, true)}, {number(CKA_KEY_TYPE, CKK_EC)}, 5, 3},
        {{{CKA_EC_PARAMS, kP384}}, {number(CKA_KEY_TYPE, CKK_EC), flag(CKA_SIGN, false)}, 6, 3},
        {{{CKA_EC_PARAMS, kP521}}, {number(CKA_KEY_TYPE, CKK_EC), flag(CKA_SIGN, true)}, 7, 1},
        // CKK_EC in the public template alone, or an EC curve for an RSA key, changes nothing.
        {{number(CKA_KEY_TYPE, CKK_EC), {CKA_EC_PARAMS, kP384}}, {label}, 2, 1},
        // Another key type ignores the public template, even its modulus size.
        {{number(CKA_MODULUS_BITS, 1024)}, {number(CKA_KEY_TYPE, CKK_DSA)}, 2, 1},
        // A later attribute of a type overwrites an earlier one.
        {{flag(CKA_TOKEN, true)},
         {number(CKA_KEY_TYPE, CKK_EC), number(CKA_KEY_TYPE, CKK_RSA), {CKA_LABEL, {}}},
         2,
         1},
    };
    std::uint32_t expectedId = 7;
    for (const Case& each : cases) {
        forget();
        ASSERT_EQ(generate(each.publicValues, each.privateValues), CKR_OK);
        const dd::Call call = onlyCall("generateKeyPair");
        EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{each.keyType, each.usage}));
        EXPECT_EQ(call.texts.at(0), dd::kDefaultUserPin);
        EXPECT_EQ(call.deviceId, "SER1");
        EXPECT_EQ(publicKey, 0x70001000u + expectedId);
        EXPECT_EQ(privateKey, 0x70000000u + expectedId);
        ++expectedId;
    }
    // The label is cut to 128 bytes and the id kept.
    forget();
    ASSERT_EQ(generate({flag(CKA_TOKEN, true)}, {label, id}), CKR_OK);
    const dd::Call call = onlyCall("generateKeyPair");
    EXPECT_EQ(call.texts.at(1), std::string(128, 'L'));
    EXPECT_EQ(call.bytes.at(0), (Bytes{1, 2, 3}));
    EXPECT_EQ(log.newCallLines(),
              (Lines{infoLine("C_GenerateKeyPair"), infoLine("C_GenerateKeyPair - keytype : 0"),
                     infoLine("C_GenerateKeyPair - exit")}));
}

TEST_F(GenerationTest, SizesAndCurvesOutsideTheTablesAreRefused) {
    const std::string dash = "\xE2\x80\x94";
    forget();
    expectAnswer(generate({number(CKA_MODULUS_BITS, 1024)}, {flag(CKA_SIGN, true)}),
                 CKR_KEY_SIZE_RANGE,
                 {infoLine("C_GenerateKeyPair"), infoLine("C_GenerateKeyPair - keytype : 0"),
                  infoLine("C_GenerateKeyPair - modulusBits : 1024"),
                  errorLine("C_GenerateKeyPair: RSA-1024 key generation not allowed " + dash +
                            " key size below 112-bit security strength")});
    expectAnswer(generate({number(CKA_MODULUS_BITS, 1536)}, {flag(CKA_SIGN, true)}),
                 CKR_MECHANISM_INVALID,
                 {infoLine("C_GenerateKeyPair"), infoLine("C_GenerateKeyPair - keytype : 0"),
                  infoLine("C_GenerateKeyPair - modulusBits : 1536"),
                  errorLine("C_GenerateKeyPair: unsupported RSA modulusBits=1536")});
    for (const Bytes& curve : {kSecp256k1, Bytes{0x13, 0x05, 'P', '-', '2', '5', '6'}, Bytes{1}}) {
        expectAnswer(generate({{CKA_EC_PARAMS, curve}}, {number(CKA_KEY_TYPE, CKK_EC)}),
                     CKR_MECHANISM_INVALID,
                     {infoLine("C_GenerateKeyPair"), infoLine("C_GenerateKeyPair - keytype : 3"),
                      errorLine("C_GenerateKeyPair: unknown EC param (len=" +
                                std::to_string(curve.size()) + ")")});
    }
    EXPECT_EQ(dd::callCount("generateKeyPair"), 0u);

    // A full token is device memory, whichever code says so.
    for (const int code : {40, 242, 51}) {
        dd::scriptResult("generateKeyPair", code);
        EXPECT_EQ(generate({flag(CKA_TOKEN, true)}, {flag(CKA_SIGN, true)}),
                  code == 51 ? CKR_FUNCTION_FAILED : CKR_DEVICE_MEMORY);
        EXPECT_EQ(log.newCallLines().back(),
                  errorLine("Generate key pair failed : " + std::to_string(code)));
    }
}

TEST_F(GenerationTest, NumbersShorterThanCkUlongCountAsAbsent) {
    if (!kWideUlong) {
        GTEST_SKIP() << "CK_ULONG is 4 bytes here: every number value is full width";
    }
    const Value shortBits{CKA_MODULUS_BITS, Bytes{0x00, 0x10, 0x00, 0x00}};  // 4096 in 4 bytes
    const Value shortType{CKA_KEY_TYPE, Bytes{0x03, 0x00, 0x00, 0x00}};      // CKK_EC in 4 bytes
    ASSERT_EQ(generate({shortBits}, {shortType}), CKR_OK);
    EXPECT_EQ(onlyCall("generateKeyPair").numbers, (std::vector<std::int64_t>{2, 1}));
    EXPECT_EQ(log.newCallLines(),
              (Lines{infoLine("C_GenerateKeyPair"), infoLine("C_GenerateKeyPair - keytype : 0"),
                     infoLine("C_GenerateKeyPair - exit")}));
}

TEST_F(GenerationTest, SessionStateAndArgumentsAreCheckedInOrder) {
    CK_MECHANISM generation = mechanism(CKM_RSA_PKCS_KEY_PAIR_GEN);
    CK_BYTE parameter = 0;
    CK_MECHANISM withParameter{CKM_EC_KEY_PAIR_GEN, &parameter, 1};
    std::vector<Value> values{flag(CKA_SIGN, true)};
    std::vector<CK_ATTRIBUTE> some = attributes(values);
    CK_ATTRIBUTE* t = some.data();
    CK_OBJECT_HANDLE h = 0;
    const std::string name = "C_GenerateKeyPair";
    const CK_SESSION_HANDLE readOnlyUser = open(kFipsSlot, kReadOnly);  // logged in: state 1
    expectAnswer(C_GenerateKeyPair(readOnlyUser, &generation, t, 1, t, 1, &h, &h),
                 CKR_SESSION_HANDLE_INVALID,
                 {infoLine(name), errorLine(name + ": invalid session state=1")});
    const std::pair<std::function<CK_RV()>, std::string> refusals[] = {
        {[&] { return C_GenerateKeyPair(session, nullptr, t, 1, t, 1, &h, &h); },
         "pMechanism is NULL"},
        {[&] { return C_GenerateKeyPair(session, &withParameter, t, 1, t, 1, &h, &h); },
         "mechanism param invalid for mechanism=4160"},
        {[&] { return C_GenerateKeyPair(session, &generation, nullptr, 1, t, 1, &h, &h); },
         "pPublicKeyTemplate is NULL"},
        {[&] { return C_GenerateKeyPair(session, &generation, t, 0, t, 1, &h, &h); },
         "ulPublicKeyAttributeCount<=0"},
        {[&] { return C_GenerateKeyPair(session, &generation, t, 1, nullptr, 1, &h, &h); },
         "pPrivateKeyTemplate is NULL"},
        {[&] { return C_GenerateKeyPair(session, &generation, t, 1, t, 0, &h, &h); },
         "ulPrivateKeyAttributeCount<=0"},
        {[&] { return C_GenerateKeyPair(session, &generation, t, 1, t, 1, nullptr, &h); },
         "phPublicKey is NULL"},
        {[&] { return C_GenerateKeyPair(session, &generation, t, 1, t, 1, &h, nullptr); },
         "phPrivateKey is NULL"},
    };
    for (const auto& [call, what] : refusals) {
        expectAnswer(
            call(),
            what.rfind("mechanism param", 0) == 0 ? CKR_MECHANISM_PARAM_INVALID : CKR_ARGUMENTS_BAD,
            {infoLine(name), errorLine(name + ": " + what)});
    }
    EXPECT_EQ(dd::callCount("generateKeyPair"), 0u);
}

}  // namespace
