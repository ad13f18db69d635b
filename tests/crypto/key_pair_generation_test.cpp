// Key-pair generation: the record the device gets from the two templates, the handles of the
// new pair, and the refusals.
#include <cstring>

#include "crypto_fixture.h"

namespace {

// A template value that keeps its bytes.
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
    return {type, Bytes{static_cast<CK_BYTE>(value)}};
}
Value curve(const Bytes& der) {
    return {CKA_EC_PARAMS, der};
}

const Bytes kP384 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x22};
const Bytes kP521 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x23};

class GenerationTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
    }
    CK_RV generate(std::vector<Value> publicValues, std::vector<Value> privateValues) {
        const auto attributes = [](std::vector<Value>& values) {
            std::vector<CK_ATTRIBUTE> result;
            for (Value& value : values) {
                result.push_back({value.type, value.bytes.empty() ? nullptr : value.bytes.data(),
                                  static_cast<CK_ULONG>(value.bytes.size())});
            }
            return result;
        };
        std::vector<CK_ATTRIBUTE> publicTemplate = attributes(publicValues);
        std::vector<CK_ATTRIBUTE> privateTemplate = attributes(privateValues);
        CK_MECHANISM generation = mechanism(CKM_VENDOR_DEFINED);  // never looked at
        return C_GenerateKeyPair(
            session, &generation, publicTemplate.data(),
            static_cast<CK_ULONG>(publicTemplate.size()), privateTemplate.data(),
            static_cast<CK_ULONG>(privateTemplate.size()), &publicKey, &privateKey);
    }
    CK_OBJECT_HANDLE publicKey = 0, privateKey = 0;
};

TEST_F(GenerationTest, RecordFollowsTheTemplatesAndTheHandlesNameTheNewPair) {
    const Value ec = number(CKA_KEY_TYPE, CKK_EC), token = flag(CKA_TOKEN, true);
    const std::tuple<std::vector<Value>, std::vector<Value>, int, int> cases[] = {
        {{token}, {{CKA_LABEL, Bytes(200, 'L')}, {CKA_ID, {1, 2, 3}}}, 2, 1},
        {{number(CKA_MODULUS_BITS, 3072)}, {flag(CKA_DECRYPT, true)}, 3, 2},
        {{number(CKA_MODULUS_BITS, 4096)}, {flag(CKA_SIGN, true), flag(CKA_DECRYPT, true)}, 4, 3},
        {{token}, {ec}, 5, 3},
        {{curve(kP384)}, {ec, flag(CKA_SIGN, false)}, 6, 3},
        {{curve(kP521)}, {ec, flag(CKA_SIGN, true)}, 7, 1},
        // CKK_EC in the public template alone changes nothing, nor does a curve for RSA.
        {{ec, curve(kP384)}, {flag(CKA_SIGN, false)}, 2, 1},
        // Another key type ignores the public template, even a refused modulus size.
        {{number(CKA_MODULUS_BITS, 1024)}, {number(CKA_KEY_TYPE, CKK_DSA)}, 2, 1},
        // A later attribute of a type overwrites an earlier one; empty values are passed over.
        {{token}, {ec, number(CKA_KEY_TYPE, CKK_RSA), {CKA_KEY_TYPE, {}}}, 2, 1},
    };
    std::uint32_t id = 7;  // the double's next free id
    for (const auto& [publicValues, privateValues, keyType, usage] : cases) {
        forget();
        ASSERT_EQ(generate(publicValues, privateValues), CKR_OK);
        const dd::Call call = onlyCall("generateKeyPair");
        EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{keyType, usage})) << id;
        EXPECT_EQ(call.texts.at(0), dd::kDefaultUserPin);
        EXPECT_EQ(call.deviceId, "SER1");
        EXPECT_EQ(publicKey, 0x70001000u + id);
        EXPECT_EQ(privateKey, 0x70000000u + id);
        if (id++ == 7) {
            EXPECT_EQ(call.texts.at(1), std::string(128, 'L'));  // the label, cut
            EXPECT_EQ(call.bytes.at(0), (Bytes{1, 2, 3}));
            EXPECT_EQ(log.newCallLines(), (Lines{infoLine("C_GenerateKeyPair"),
                                                 infoLine("C_GenerateKeyPair - keytype : 0"),
                                                 infoLine("C_GenerateKeyPair - exit")}));
        }
    }
}

TEST_F(GenerationTest, SizesCurvesStatesAndDeviceFailures) {
    const Value sign = flag(CKA_SIGN, true), ec = number(CKA_KEY_TYPE, CKK_EC);
    const std::string name = "C_GenerateKeyPair", dash = "\xE2\x80\x94";
    const auto rsaEntry = [&](const Lines& more) {
        Lines lines = {infoLine(name), infoLine(name + " - keytype : 0")};
        lines.insert(lines.end(), more.begin(), more.end());
        return lines;
    };
    expectAnswer(generate({number(CKA_MODULUS_BITS, 1024)}, {sign}), CKR_KEY_SIZE_RANGE,
                 rsaEntry({infoLine(name + " - modulusBits : 1024"),
                           errorLine(name + ": RSA-1024 key generation not allowed " + dash +
                                     " key size below 112-bit security strength")}));
    expectAnswer(generate({number(CKA_MODULUS_BITS, 1536)}, {sign}), CKR_MECHANISM_INVALID,
                 rsaEntry({infoLine(name + " - modulusBits : 1536"),
                           errorLine(name + ": unsupported RSA modulusBits=1536")}));
    const Bytes secp256k1 = {0x06, 0x05, 0x2B, 0x81, 0x04, 0x00, 0x0A};
    for (const Bytes& unknown : {secp256k1, Bytes{0x13, 0x05, 'P', '-', '2', '5', '6'}, Bytes{6}}) {
        expectAnswer(
            generate({curve(unknown)}, {ec}), CKR_MECHANISM_INVALID,
            {infoLine(name), infoLine(name + " - keytype : 3"),
             errorLine(name + ": unknown EC param (len=" + std::to_string(unknown.size()) + ")")});
    }
    // Numbers are CK_ULONG wide: a shorter value counts as absent (64-bit Linux only).
    if (kWideUlong) {
        ASSERT_EQ(
            generate({{CKA_MODULUS_BITS, {0x00, 0x10, 0, 0}}}, {{CKA_KEY_TYPE, {3, 0, 0, 0}}}),
            CKR_OK);
        EXPECT_EQ(onlyCall("generateKeyPair").numbers, (std::vector<std::int64_t>{2, 1}));
        EXPECT_EQ(log.newCallLines(), rsaEntry({infoLine(name + " - exit")}));
        forget();
    }
    for (const int code : {40, 242, 51}) {  // a full token is device memory
        dd::scriptResult("generateKeyPair", code);
        EXPECT_EQ(generate({sign}, {sign}), code == 51 ? CKR_FUNCTION_FAILED : CKR_DEVICE_MEMORY);
        EXPECT_EQ(lastLine(), errorLine("Generate key pair failed : " + std::to_string(code)));
    }
    CK_BYTE parameter = 0;
    CK_MECHANISM withParameter{CKM_EC_KEY_PAIR_GEN, &parameter, 1};
    CK_ATTRIBUTE attribute{CKA_SIGN, &parameter, 1};
    CK_OBJECT_HANDLE h = 0;
    expectAnswer(C_GenerateKeyPair(session, &withParameter, &attribute, 1, &attribute, 1, &h, &h),
                 CKR_MECHANISM_PARAM_INVALID,
                 refused(name, name + ": mechanism param invalid for mechanism=4160"));
    session = open(kFipsSlot, kReadOnly);  // logged in: state 1, which digests but not this
    expectAnswer(generate({sign}, {sign}), CKR_SESSION_HANDLE_INVALID,
                 refused(name, name + ": invalid session state=1"));
    EXPECT_EQ(dd::callCount("generateKeyPair"), 0u);
}

}  // namespace
