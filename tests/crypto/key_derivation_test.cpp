// ECDH derivation and random numbers: what reaches the device, the derived-key table and its
// counter, the silent early rejections, and buffers the module never copies.
#include <climits>
#include <cstring>
#include <functional>

#include "crypto/hex_der.h"
#include "crypto_fixture.h"

namespace {

class DerivationTest : public CryptoTest {
protected:
    void SetUp() override {
        CryptoTest::SetUp();
        loginUser();
        peer = dd::fakePublicValue(kKeyTypeEcP256, "peer");
        parameters = {CKD_NULL, 0, nullptr, static_cast<CK_ULONG>(peer.size()), peer.data()};
        derivation = {CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    }
    CK_RV derive(CK_OBJECT_HANDLE base = kEcPrivate, std::vector<CK_ATTRIBUTE> attributes = {},
                 CK_SESSION_HANDLE on = 0) {
        return C_DeriveKey(on == 0 ? session : on, &derivation, base,
                           attributes.empty() ? nullptr : attributes.data(),
                           static_cast<CK_ULONG>(attributes.size()), &derived);
    }
    static SecretBytes stored(CK_OBJECT_HANDLE handle) {
        return moduleState().derivedKeys.find(static_cast<std::uint32_t>(handle)).value();
    }
    static Bytes plain(const SecretBytes& secret) { return Bytes(secret.begin(), secret.end()); }

    Bytes peer;
    CK_ECDH1_DERIVE_PARAMS parameters{};
    CK_MECHANISM derivation{};
    CK_OBJECT_HANDLE derived = 0;
};

TEST_F(DerivationTest, SecretIsCutToValueLenAndStoredUnderTheNextHandle) {
    const std::uint32_t next = moduleState().derivedKeys.nextHandle();
    CK_ULONG sixteen = 16, sixtyFour = 64;
    CK_BYTE shortValue[4] = {8, 0, 0, 0};
    const std::vector<CK_ATTRIBUTE> cut = {{CKA_LABEL, nullptr, 0},
                                           {CKA_VALUE_LEN, shortValue, sizeof shortValue},
                                           {CKA_VALUE_LEN, &sixteen, sizeof sixteen},
                                           {CKA_VALUE_LEN, &sixtyFour, sizeof sixtyFour}};
    ASSERT_EQ(derive(kEcPrivate, cut), CKR_OK);
    const Bytes secret = dd::fakeSharedSecret(pair(3), peer);
    ASSERT_EQ(secret.size(), 32u);
    // On 64-bit Linux the 4-byte value is too short to read; on Windows it is a whole CK_ULONG.
    const std::size_t kept = kWideUlong ? 16 : 8;
    EXPECT_EQ(derived, next);
    EXPECT_EQ(plain(stored(derived)), Bytes(secret.begin(), secret.begin() + kept));
    EXPECT_EQ(log.newCallLines(),
              (Lines{infoLine("C_DeriveKey"), infoLine("key id :: 3"),
                     infoLine("base key id :: " + bytesToHex(keyReference(3))),
                     infoLine("public key :: " + bytesToHex(peer)),
                     infoLine("C_DeriveKey: done, handle=" + std::to_string(next) +
                              " len=" + std::to_string(kept))}));
    const dd::Call call = onlyCall("ecdhDerive");
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(call.texts, std::vector<std::string>{dd::kDefaultUserPin});
    EXPECT_EQ(call.bytes, (std::vector<Bytes>{keyReference(3), peer}));
    EXPECT_EQ(call.instance, moduleState().deviceInstance.load());

    // A larger CKA_VALUE_LEN keeps the whole secret; the counter only grows, across C_Finalize.
    ASSERT_EQ(derive(kEcPrivate, {{CKA_VALUE_LEN, &sixtyFour, sizeof sixtyFour}}), CKR_OK);
    EXPECT_EQ(derived, next + 1);
    EXPECT_EQ(plain(stored(derived)), secret);
    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    EXPECT_EQ(plain(stored(next)).size(), kept);  // derived keys stay while the module is loaded
    ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
    CK_ULONG count = 3;
    CK_SLOT_ID slots[3];
    ASSERT_EQ(C_GetSlotList(CK_TRUE, slots, &count), CKR_OK);
    session = open(kFipsSlot, kReadWrite);
    loginUser();
    ASSERT_EQ(derive(), CKR_OK);
    EXPECT_EQ(derived, next + 2);
}

TEST_F(DerivationTest, KdfsHashWithTheirOwnCodesAndUncheckedResults) {
    const Bytes secret = dd::fakeSharedSecret(pair(3), peer);
    const std::tuple<CK_EC_KDF_TYPE, std::int64_t, std::int64_t, std::size_t> kdfs[] = {
        {CKD_SHA1_KDF, 1, 20, 20}, {CKD_SHA256_KDF, 4, 32, 48}, {CKD_SHA512_KDF, 0, 0, 32}};
    for (const auto& [kdf, code, announced, length] : kdfs) {
        forget();
        parameters.kdf = kdf;
        ASSERT_EQ(derive(), CKR_OK);
        if (code == 0) {
            EXPECT_EQ(dd::callCount("initHash"), 0u);
            EXPECT_EQ(plain(stored(derived)), secret);
            continue;
        }
        EXPECT_EQ(onlyCall("initHash").numbers, std::vector<std::int64_t>{code});
        EXPECT_EQ(onlyCall("updateHash").bytes.at(0), secret);
        EXPECT_EQ(onlyCall("finalHash").numbers, std::vector<std::int64_t>{announced});
        EXPECT_EQ(plain(stored(derived)), dd::fakeDigest(static_cast<int>(code), secret));
        EXPECT_EQ(stored(derived).size(), length);
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
    const std::uint32_t next = moduleState().derivedKeys.nextHandle();
    CK_ECDH1_DERIVE_PARAMS noPeer = parameters;
    noPeer.pPublicData = nullptr;
    CK_ECDH1_DERIVE_PARAMS emptyPeer = parameters;
    emptyPeer.ulPublicDataLen = 0;
    CK_MECHANISM other = mechanism(CKM_ECDH1_COFACTOR_DERIVE);
    const std::pair<std::function<CK_RV()>, CK_RV> refusals[] = {
        {[&] { return C_DeriveKey(session + 1, &derivation, kEcPrivate, nullptr, 0, &derived); },
         CKR_SESSION_HANDLE_INVALID},
        {[&] { return C_DeriveKey(session, nullptr, kEcPrivate, nullptr, 0, &derived); },
         CKR_ARGUMENTS_BAD},
        {[&] { return C_DeriveKey(session, &derivation, kEcPrivate, nullptr, 0, nullptr); },
         CKR_ARGUMENTS_BAD},
        {[&] { return C_DeriveKey(session, &other, kEcPrivate, nullptr, 0, &derived); },
         CKR_MECHANISM_INVALID},
        {[&] {
             derivation.pParameter = &noPeer;
             return derive();
         },
         CKR_MECHANISM_PARAM_INVALID},
        {[&] {
             derivation.pParameter = &emptyPeer;
             return derive();
         },
         CKR_MECHANISM_PARAM_INVALID},
        {[&] {
             derivation.pParameter = &parameters;
             return derive(kEcPublic + 2);  // 0x70001005: a public key's handle
         },
         CKR_KEY_HANDLE_INVALID},
        {[&] { return derive(0x6FFFFFFF); }, CKR_KEY_HANDLE_INVALID},
        {[&] { return derive(kWideUlong ? kAliasOfRsaPrivate + 2 : 0x70001000); },
         CKR_KEY_HANDLE_INVALID},
    };
    for (const auto& [call, expected] : refusals) {
        expectAnswer(call(), expected, {infoLine("C_DeriveKey")});
    }
    // Parameters shorter than the structure are refused unread, whatever they hold; longer ones
    // are read as far as the structure goes.
    std::vector<CK_BYTE> garbage(1000, 0xA5);
    std::memcpy(garbage.data(), &parameters, sizeof parameters);
    derivation.pParameter = garbage.data();
    for (CK_ULONG length = 0; length <= garbage.size(); ++length) {
        derivation.ulParameterLen = length;
        const CK_RV rv = derive();
        ASSERT_EQ(rv,
                  length < sizeof(CK_ECDH1_DERIVE_PARAMS) ? CKR_MECHANISM_PARAM_INVALID : CKR_OK)
            << length;
    }
    EXPECT_EQ(dd::callCount("ecdhDerive"), garbage.size() + 1 - sizeof(CK_ECDH1_DERIVE_PARAMS));
    EXPECT_EQ(moduleState().derivedKeys.nextHandle(), next + dd::callCount("ecdhDerive"));

    ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
    forget();
    expectAnswer(derive(), CKR_CRYPTOKI_NOT_INITIALIZED, {infoLine("C_DeriveKey")});
}

TEST_F(DerivationTest, RefusalsThatWriteALineStoreNothing) {
    const std::uint32_t next = moduleState().derivedKeys.nextHandle();
    derivation.pParameter = &parameters;
    expectAnswer(
        derive(kEcPrivate, {}, open(kOldFirmwareSlot, kReadWrite)), CKR_MECHANISM_INVALID,
        {infoLine("C_DeriveKey"), errorLine("C_DeriveKey: ECDH not supported on firmware 1.9.9")});
    // The whole private-key range passes the range test; an id no pair has is looked up.
    expectAnswer(derive(0x70000FFF), CKR_KEY_HANDLE_INVALID,
                 {infoLine("C_DeriveKey"), infoLine("key id :: 4095")});
    for (const int code : {25, 0}) {
        if (code == 0) {
            dd::scriptResult("ecdhDerive", 0);
            dd::scriptOutput("ecdhDerive", Bytes{});  // success without a secret
        } else {
            dd::scriptResult("ecdhDerive", code);
        }
        const Lines lines = {
            infoLine("C_DeriveKey"), infoLine("key id :: 3"),
            infoLine("base key id :: " + bytesToHex(keyReference(3))),
            infoLine("public key :: " + bytesToHex(peer)),
            errorLine("C_DeriveKey: ostrel_ecdhDerive failed: " + std::to_string(code))};
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
    EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 5), scripted);
    EXPECT_EQ(buffer[5], 0xEE);
    const dd::Call call = onlyCall("generateRamdomNumber");
    EXPECT_EQ(call.deviceId, "SER1");
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{5, 1}));
    EXPECT_EQ(call.instance, nullptr);

    expectAnswer(C_GenerateRandom(session, nullptr, 5), CKR_ARGUMENTS_BAD,
                 {infoLine("C_GenerateRandom"), errorLine("C_GenerateRandom: RandomData is NULL")});
    expectAnswer(C_GenerateRandom(session, buffer.data(), 0), CKR_ARGUMENTS_BAD,
                 {infoLine("C_GenerateRandom"),
                  errorLine("C_GenerateRandom: ulRandomLen<=0, ulRandomLen=0")});
    dd::scriptResult("generateRamdomNumber", 48);
    expectAnswer(C_GenerateRandom(session, buffer.data(), 5), CKR_FUNCTION_FAILED,
                 {infoLine("C_GenerateRandom"),
                  errorLine("C_GenerateRandom: generate random number failed ret=48")});
}

// A length beyond the device's int is asked for in pieces that each fit, into the caller's own
// buffer: nothing of that size is allocated, and no length is cut short. The failing first piece
// keeps the test from needing gigabytes.
TEST_F(RandomTest, HugeLengthsAreAskedForInPiecesTheDeviceCanTake) {
    CK_BYTE buffer[8] = {};
    dd::scriptResult("generateRamdomNumber", 48);
    const CK_ULONG huge = static_cast<CK_ULONG>(INT_MAX) + 6;
    EXPECT_EQ(C_GenerateRandom(session, buffer, huge), CKR_FUNCTION_FAILED);
    EXPECT_EQ(onlyCall("generateRamdomNumber").numbers, (std::vector<std::int64_t>{INT_MAX, 1}));
}

}  // namespace
