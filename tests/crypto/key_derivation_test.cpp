// ECDH derivation and random numbers: what reaches the device, the derived-key table and its
// counter, the silent early rejections, and the caller's buffer filled in place.
#include <climits>
#include <cstring>

#include "crypto/hex_der.h"
#include "crypto_fixture.h"

namespace {

class DerivationTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
    }
    CK_RV derive(CK_OBJECT_HANDLE base = kEcPrivate, std::vector<CK_ATTRIBUTE> attributes = {}) {
        return C_DeriveKey(session, &derivation, base,
                           attributes.empty() ? nullptr : attributes.data(),
                           static_cast<CK_ULONG>(attributes.size()), &derived);
    }
    static Bytes stored(CK_OBJECT_HANDLE handle) {
        const SecretBytes key = moduleState()
                                    .derivedKeys.find(static_cast<std::uint32_t>(handle))
                                    .value_or(SecretBytes{});
        return Bytes(key.begin(), key.end());
    }
    Lines linesUntilDevice() const {
        return {infoLine("C_DeriveKey"), infoLine("key id :: 3"),
                infoLine("base key id :: " + bytesToHex(keyReference(3))),
                infoLine("public key :: " + bytesToHex(peer))};
    }

    Bytes peer = dd::fakePublicValue(kKeyTypeEcP256, "peer");
    CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, static_cast<CK_ULONG>(peer.size()),
                                      peer.data()};
    CK_MECHANISM derivation{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    CK_OBJECT_HANDLE derived = 0;
    const std::uint32_t next = moduleState().derivedKeys.nextHandle();
};

TEST_F(DerivationTest, SecretIsCutToValueLenAndStoredUnderHandlesThatOnlyGrow) {
    CK_ULONG sixteen = 16, sixtyFour = 64;
    CK_BYTE narrow[4] = {8, 0, 0, 0};
    ASSERT_EQ(derive(kEcPrivate, {{CKA_LABEL, nullptr, 0},
                                  {CKA_VALUE_LEN, narrow, sizeof narrow},
                                  {CKA_VALUE_LEN, &sixteen, sizeof sixteen},
                                  {CKA_VALUE_LEN, &sixtyFour, sizeof sixtyFour}}),
              CKR_OK);
    const Bytes secret = dd::fakeSharedSecret(pair(3), peer);
    ASSERT_EQ(secret.size(), 32u);
    // A 4-byte value is too short to read on 64-bit Linux; on Windows it is a whole CK_ULONG.
    const std::size_t kept = kWideUlong ? 16 : 8;
    EXPECT_EQ(derived, next);
    EXPECT_EQ(stored(derived), Bytes(secret.begin(), secret.begin() + kept));
    Lines lines = linesUntilDevice();
    lines.push_back(infoLine("C_DeriveKey: done, handle=" + std::to_string(next) +
                             " len=" + std::to_string(kept)));
    EXPECT_EQ(log.newCallLines(), lines);
    const dd::Call call = onlyCall("ecdhDerive");
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{keyReference(3), peer}));
    EXPECT_EQ(call.instance, moduleState().deviceInstance.load());

    // A larger CKA_VALUE_LEN keeps the whole secret; keys and counter outlive C_Finalize.
    ASSERT_EQ(derive(kEcPrivate, {{CKA_VALUE_LEN, &sixtyFour, sizeof sixtyFour}}), CKR_OK);
    EXPECT_EQ(derived, next + 1);
    EXPECT_EQ(stored(derived), secret);
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    listSlots();
    session = open(kFipsSlot, kReadWrite);
    loginUser();
    ASSERT_EQ(derive(), CKR_OK);
    EXPECT_EQ(derived, next + 2);
    EXPECT_EQ(stored(next).size(), kept);
}

TEST_F(DerivationTest, KdfsHashWithTheirOwnCodesAndUncheckedResults) {
    const Bytes secret = dd::fakeSharedSecret(pair(3), peer);
    // kdf, hash code (0: none), length announced to finalHash, key length.
    const std::tuple<CK_EC_KDF_TYPE, int, int, std::size_t> kdfs[] = {
        {CKD_SHA1_KDF, 1, 20, 20}, {CKD_SHA256_KDF, 4, 32, 48}, {CKD_SHA512_KDF, 0, 0, 32}};
    for (const auto& [kdf, code, announced, length] : kdfs) {
        forget();
        parameters.kdf = kdf;
        ASSERT_EQ(derive(), CKR_OK);
        EXPECT_EQ(stored(derived), code == 0 ? secret : dd::fakeDigest(code, secret));
        EXPECT_EQ(stored(derived).size(), length);
        if (code != 0) {
            EXPECT_EQ(onlyCall("initHash").numbers, std::vector<std::int64_t>{code});
            EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{announced});
        }
    }
    // A failed hash passes unnoticed: the key holds what the final call left.
    parameters.kdf = CKD_SHA1_KDF;
    dd::scriptResult("initHash", 27);
    forget();
    ASSERT_EQ(derive(), CKR_OK);
    EXPECT_EQ(dd::callCount("updateHash") + dd::callCount("finalHash"), 2u);
    EXPECT_EQ(stored(derived).size(), 20u);
}

TEST_F(DerivationTest, EarlyRejectionsWriteNoLineOfTheirOwn) {
    CK_ECDH1_DERIVE_PARAMS noPeer = parameters, emptyPeer = parameters;
    noPeer.pPublicData = nullptr;
    emptyPeer.ulPublicDataLen = 0;
    CK_MECHANISM cofactor = mechanism(CKM_ECDH1_COFACTOR_DERIVE);
    const std::pair<std::function<CK_RV()>, CK_RV> refusals[] = {
        {[&] { return C_DeriveKey(session + 1, &derivation, kEcPrivate, nullptr, 0, &derived); },
         CKR_SESSION_HANDLE_INVALID},
        {[&] { return C_DeriveKey(session, nullptr, kEcPrivate, nullptr, 0, &derived); },
         CKR_ARGUMENTS_BAD},
        {[&] { return C_DeriveKey(session, &derivation, kEcPrivate, nullptr, 0, nullptr); },
         CKR_ARGUMENTS_BAD},
        {[&] { return C_DeriveKey(session, &cofactor, kEcPrivate, nullptr, 0, &derived); },
         CKR_MECHANISM_INVALID},
        {[&] { return (derivation.pParameter = &noPeer, derive()); }, CKR_MECHANISM_PARAM_INVALID},
        {[&] { return (derivation.pParameter = &emptyPeer, derive()); },
         CKR_MECHANISM_PARAM_INVALID},
        {[&] { return (derivation.pParameter = &parameters, derive(0x70001005)); },
         CKR_KEY_HANDLE_INVALID},  // a public key's handle
        {[&] { return derive(0x6FFFFFFF); }, CKR_KEY_HANDLE_INVALID},
        {[&] { return derive(kWideUlong ? kWideRsaPrivate + 2 : 0x70001000); },
         CKR_KEY_HANDLE_INVALID},
    };
    for (const auto& [call, expected] : refusals) {
        expectAnswer(call(), expected, {infoLine("C_DeriveKey")});
    }
    // Parameters shorter than the structure are refused unread whatever they hold; longer ones
    // are read as far as the structure goes.
    std::vector<CK_BYTE> garbage(1000, 0xA5);
    std::memcpy(garbage.data(), &parameters, sizeof parameters);
    derivation.pParameter = garbage.data();
    for (CK_ULONG length = 0; length <= garbage.size(); ++length) {
        derivation.ulParameterLen = length;
        ASSERT_EQ(derive(), length < sizeof parameters ? CKR_MECHANISM_PARAM_INVALID : CKR_OK)
            << length;
    }
    EXPECT_EQ(moduleState().derivedKeys.nextHandle(), next + 1001 - sizeof parameters);
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    forget();
    expectAnswer(derive(), CKR_CRYPTOKI_NOT_INITIALIZED, {infoLine("C_DeriveKey")});
}

TEST_F(DerivationTest, RefusalsWithALineStoreNothing) {
    session = open(kOldFirmwareSlot, kReadWrite);
    expectAnswer(derive(), CKR_MECHANISM_INVALID,
                 refused("C_DeriveKey", "C_DeriveKey: ECDH not supported on firmware 1.9.9"));
    session = open(kFipsSlot, kReadWrite);
    // The whole private-key range passes the range test; an id no pair has is looked up.
    expectAnswer(derive(0x70000FFF), CKR_KEY_HANDLE_INVALID,
                 {infoLine("C_DeriveKey"), infoLine("key id :: 4095")});
    dd::scriptResult("ecdhDerive", 25);
    dd::scriptResult("ecdhDerive", 0);
    dd::scriptOutput("ecdhDerive", Bytes{});  // then a success without a secret
    for (const int code : {25, 0}) {
        Lines lines = linesUntilDevice();
        lines.push_back(
            errorLine("C_DeriveKey: ostrel_ecdhDerive failed: " + std::to_string(code)));
        expectAnswer(derive(), CKR_FUNCTION_FAILED, lines);
    }
    EXPECT_EQ(moduleState().derivedKeys.nextHandle(), next);
}

using RandomTest = CryptoTest;

TEST_F(RandomTest, BytesGoStraightIntoTheCallersBufferWithANullInstance) {
    const Bytes scripted = {9, 8, 7, 6, 5};
    dd::scriptOutput("generateRamdomNumber", scripted);
    Bytes buffer(6, 0xEE);
    expectAnswer(C_GenerateRandom(session, buffer.data(), 5), CKR_OK,
                 {infoLine("C_GenerateRandom")});
    EXPECT_EQ(buffer, concat(scripted, {0xEE}));
    const dd::Call call = onlyCall("generateRamdomNumber");
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{5, 1}));
    EXPECT_EQ(call.instance, nullptr);
    expectAnswer(C_GenerateRandom(session, buffer.data(), 0), CKR_ARGUMENTS_BAD,
                 refused("C_GenerateRandom", "C_GenerateRandom: ulRandomLen<=0, ulRandomLen=0"));

    // A length beyond the device's int goes in pieces that each fit, into the caller's own
    // buffer. The failing first piece keeps the test from needing gigabytes.
    dd::scriptResult("generateRamdomNumber", 48);
    forget();
    expectAnswer(
        C_GenerateRandom(session, buffer.data(), static_cast<CK_ULONG>(INT_MAX) + 6),
        CKR_FUNCTION_FAILED,
        refused("C_GenerateRandom", "C_GenerateRandom: generate random number failed ret=48"));
    EXPECT_EQ(onlyCall("generateRamdomNumber").numbers, (std::vector<std::int64_t>{INT_MAX, 1}));
}

}  // namespace
