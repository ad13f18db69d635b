// Checks of the double itself, where a fault would make the module's tests pass or fail for the
// wrong reason: ownership of returned lists and buffers, result scripts, the call log, hash
// context lifetime, the device-list gate, and the certificate reader.
#include <gtest/gtest.h>

#include <algorithm>

#include <chrono>
#include <cstdlib>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>

#include "device_double.h"

#if defined(_MSC_VER)
#pragma warning(disable : 4996)  // getenv: the test only reads whether a variable is set
#endif

namespace dd = devicedouble;

namespace {

Bytes fromHex(const std::string& hex) {
    Bytes bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2) {
        bytes.push_back(static_cast<unsigned char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

class DeviceDouble : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice("S1", "One");
        ostrel_createInstance(&instance_);
        ASSERT_NE(instance_, nullptr);
    }
    void TearDown() override { ostrel_releaseInstance(instance_); }

    DeviceInstance instance_ = nullptr;
};

TEST_F(DeviceDouble, KeyPairListStaysUnchangedUntilTheSameThreadAsksAgain) {
    dd::setKeyPairs("S1", {dd::KeyPairBuilder(1)});
    const auto& mine = ostrel_getKeyPairList("S1", instance_);
    ASSERT_EQ(mine.size(), 1u);

    std::thread other([&] {
        dd::setKeyPairs("S1", {dd::KeyPairBuilder(1), dd::KeyPairBuilder(2)});
        EXPECT_EQ(ostrel_getKeyPairList("S1", instance_).size(), 2u);
    });
    other.join();
    EXPECT_EQ(mine.size(), 1u);  // another thread's call left this thread's list alone

    EXPECT_EQ(&ostrel_getKeyPairList("S1", instance_), &mine);
    EXPECT_EQ(mine.size(), 2u);
}

TEST_F(DeviceDouble, DecryptBufferBelongsToTheCallingThread) {
    dd::setKeyPairs("S1", {dd::KeyPairBuilder(1)});
    OstrelKeyPair pair = dd::KeyPairBuilder(1);
    unsigned char ciphertext[1024];
    int length = 0;
    const Bytes spki = {0x30, 0x01};
    const unsigned char secret[] = {'a', 'b', 'c'};
    ASSERT_EQ(ostrel_encrypt(kEncryptionRsa2048, kPaddingPkcs1, secret, 3, ciphertext, &length,
                             spki.data(), 2, instance_),
              0);
    unsigned char* plain = nullptr;
    int plainLength = 0;
    ASSERT_EQ(ostrel_decrypt("S1", pair.keyReference, dd::kDefaultUserPin, ciphertext, length,
                             &plain, &plainLength, false, instance_),
              0);
    ASSERT_EQ(Bytes(plain, plain + plainLength), Bytes(secret, secret + 3));

    std::thread other([&] {
        dd::scriptOutput("decrypt", Bytes(300, 0x55));
        unsigned char* theirs = nullptr;
        int theirLength = 0;
        EXPECT_EQ(ostrel_decrypt("S1", pair.keyReference, dd::kDefaultUserPin, ciphertext, length,
                                 &theirs, &theirLength, false, instance_),
                  0);
        EXPECT_NE(theirs, plain);
    });
    other.join();
    EXPECT_EQ(Bytes(plain, plain + plainLength), Bytes(secret, secret + 3));
}

TEST_F(DeviceDouble, ScriptedResultsCoverExactlyTheNextCallsThenThePinDecides) {
    EXPECT_THROW(dd::scriptResult("validatePasword", 48), std::invalid_argument);
    dd::setRetryCount("S1", 3);
    dd::scriptResult("validatePassword", 48, 2);
    int retries = -1;
    EXPECT_EQ(ostrel_validatePassword("S1", "123456", 1, &retries, instance_), 48);
    EXPECT_EQ(ostrel_validatePassword("S1", "123456", 1, &retries, instance_), 48);
    EXPECT_EQ(retries, 3);  // a scripted failure reports the count but spends no try

    EXPECT_EQ(ostrel_validatePassword("S1", "000000", 1, &retries, instance_), dd::kResultWrongPin);
    EXPECT_EQ(retries, 2);
    EXPECT_EQ(dd::tokenInfo("S1").pinRetryCount, 2);
    EXPECT_EQ(ostrel_validatePassword("S1", "123456", 1, &retries, instance_), 0);
    EXPECT_EQ(retries, 10);

    dd::setRetryCount("S1", 0);
    EXPECT_EQ(ostrel_validatePassword("S1", "123456", 1, &retries, instance_),
              dd::kResultPinLocked);
    EXPECT_EQ(retries, 0);
}

TEST_F(DeviceDouble, RecordsWhatReachedTheDeviceAndVerifiesOnlyItsOwnSignatures) {
    OstrelKeyPair pair = dd::KeyPairBuilder(7).keyType(kKeyTypeEcP256);
    dd::setKeyPairs("S1", {pair});
    dd::clearCalls();
    const Bytes hash(32, 0x11);
    unsigned char signature[1024];
    int signatureLength = 1024;
    ASSERT_EQ(ostrel_signHash("S1", pair.keyReference, "123456", hash.data(), 32, signature,
                              &signatureLength, false, instance_, true),
              0);
    ASSERT_EQ(signatureLength, 64);

    ASSERT_EQ(dd::calls().size(), 1u);
    const dd::Call call = dd::calls("signHash").at(0);
    EXPECT_EQ(call.deviceId, "S1");
    EXPECT_EQ(call.texts, std::vector<std::string>{"123456"});
    EXPECT_EQ(call.bytes.at(0), Bytes(pair.keyReference, pair.keyReference + 16));
    EXPECT_EQ(call.bytes.at(1), hash);
    EXPECT_EQ(call.numbers, (std::vector<std::int64_t>{32, 1024, 0, 1}));
    EXPECT_EQ(call.instance, instance_);
    EXPECT_EQ(dd::callCount("validatePassword"), 0u);

    const Bytes point(pair.publicValue, pair.publicValue + pair.publicValueLength);
    // Built by copying into a sized vector: GCC 12 misreads insert() after a 2-byte initialiser
    // as an out-of-bounds copy at -O2.
    Bytes spki(point.size() + 2);
    spki[0] = 0x30;
    spki[1] = 0x59;
    std::copy(point.begin(), point.end(), spki.begin() + 2);
    EXPECT_EQ(
        ostrel_verifySignatureHash(kKeyTypeEcP256, "S1", hash.data(), 32, spki.data(),
                                   static_cast<int>(spki.size()), signature, 64, instance_, false),
        0);
    signature[0] ^= 1;
    EXPECT_EQ(
        ostrel_verifySignatureHash(kKeyTypeEcP256, "S1", hash.data(), 32, spki.data(),
                                   static_cast<int>(spki.size()), signature, 64, instance_, false),
        dd::kResultBadSignature);

    EXPECT_EQ(ostrel_signHash("S1", pair.keyReference, "", hash.data(), 32, signature,
                              &signatureLength, false, instance_, false),
              dd::kResultWrongPin);
}

TEST_F(DeviceDouble, HashContextsEndAtFinalAndDieWithTheirInstance) {
    HashContext context = nullptr;
    ASSERT_EQ(ostrel_initHash("S1", kHashSha384, &context, instance_), 0);
    const unsigned char data[] = {1, 2, 3};
    ASSERT_EQ(ostrel_updateHash(context, data, 3, instance_), 0);
    unsigned char digest[64];
    int length = 0;
    dd::scriptResult("finalHash", 5);
    EXPECT_EQ(ostrel_finalHash(context, digest, &length, instance_), 5);
    EXPECT_EQ(ostrel_finalHash(context, digest, &length, instance_), dd::kResultBadContext);
    EXPECT_EQ(ostrel_finalHash(nullptr, digest, &length, instance_), dd::kResultBadContext);

    ASSERT_EQ(ostrel_initHash("S1", kHashSha224, &context, instance_), 0);
    ASSERT_EQ(ostrel_updateHash(context, data, 3, instance_), 0);
    ASSERT_EQ(ostrel_finalHash(context, digest, &length, instance_), 0);
    EXPECT_EQ(Bytes(digest, digest + length), dd::fakeDigest(kHashSha224, Bytes(data, data + 3)));
    EXPECT_EQ(length, 28);

    ASSERT_EQ(ostrel_initHash("S1", kHashSha1, &context, instance_), 0);
    EXPECT_EQ(dd::liveHashContextCount(), 1u);
    ostrel_releaseInstance(instance_);
    EXPECT_EQ(dd::liveHashContextCount(), 0u);
    ostrel_createInstance(&instance_);
}

TEST_F(DeviceDouble, ClosedGateHoldsTheDeviceListUntilOpened) {
    dd::closeDeviceListGate();
    auto pending = std::async(std::launch::async,
                              [&] { return ostrel_getConnectedDeviceList(false, instance_); });
    ASSERT_TRUE(dd::waitForBlockedDeviceListCalls(1, std::chrono::seconds(5)));
    EXPECT_EQ(pending.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    dd::addDevice("S2", "Two");
    dd::openDeviceListGate();
    EXPECT_EQ(pending.get(), (std::vector<std::string>{"S1", "S2"}));
}

TEST_F(DeviceDouble, ReadsARealCertificate) {
    // Version-1 RSA-1024 leaf, serial 00 A1 B2, issued by "Double CA" on 2026-11-21 09:59:58Z.
    const Bytes der = fromHex(
        "308201ae30820117020300a1b2300d06092a864886f70d01010b050030143112301006035504030c09446f75"
        "626c65204341301e170d3236313132313039353935385a170d3236313230313039353935385a302931143012"
        "06035504030c0b446f75626c65204c6561663111300f060355040a0c0854657374204f726730819f300d0609"
        "2a864886f70d010101050003818d0030818902818100fa83548558a308a851693b7c167f7bf70d38c6465719"
        "9fbab58aa420682abedd362d3c1249458866556291c191e73c78ca0ebe92965fa9722c60d9607865e1bc6244"
        "d0a234f76588f8048c3ee3efb81d0410f755c1191c539d553f0c2739254a420e7f889f50182758cfbee2f03b"
        "b8577f7f66ebfdf33b8e8fa132eef6b054e30203010001300d06092a864886f70d01010b0500038181000cf2"
        "e2eb60e5d28c3ffdad9d1b8e5eb335288f4a2a69f7bce90fc787a686eee728d18c645baed65c3298f02c25a6"
        "2c829ef11562e83cd7434a9303b831379ae6d3e7822805d5d8ad9845f8e8f20dfe45a74ae276e6626edb267e"
        "9c5bddc77767f80b7feffb1f017ea2c62a47a50bc026d63ff9914effba0608e4d2ce9f1f7b18");
    const int size = static_cast<int>(der.size());
    CertificateDetails details;
    ASSERT_EQ(ostrel_getCertificateDetails(der.data(), size, details, nullptr), 0);
    EXPECT_EQ(details.subjectName, "CN=Double Leaf,O=Test Org");
    EXPECT_EQ(details.subjectCommonName, "Double Leaf");
    EXPECT_EQ(details.issuerCommonName, "Double CA");
    EXPECT_EQ(details.serialNumberHex, "A1B2");
    EXPECT_EQ(details.notBefore, 1795255198);
    EXPECT_EQ(details.keyAlgorithm, "RSA");
    ASSERT_EQ(details.publicKey.size(), 128u);  // the modulus without its sign byte
    EXPECT_EQ(details.publicKey[0], 0xfa);
    EXPECT_EQ(ostrel_getCertificateSerialDER(der.data(), size, nullptr),
              (Bytes{0x02, 0x03, 0x00, 0xa1, 0xb2}));
    EXPECT_EQ(ostrel_getCertificateIssuer(der.data(), size, nullptr),
              Bytes(der.begin() + 28, der.begin() + 50));
    EXPECT_EQ(ostrel_getCertificateSubject(der.data(), size, nullptr),
              Bytes(der.begin() + 82, der.begin() + 125));

    const Bytes truncated(der.begin(), der.end() - 1);
    EXPECT_EQ(ostrel_getCertificateDetails(truncated.data(), size - 1, details, nullptr),
              dd::kResultBadData);
}

// Runs in its own process with OSTREL_DOUBLE_DEVICES set (see CMakeLists.txt).
TEST(DoubleEnvironment, CreateInstanceAddsTheListedDevices) {
    if (std::getenv("OSTREL_DOUBLE_DEVICES") == nullptr)  // NOLINT(concurrency-mt-unsafe)
        GTEST_SKIP();
    dd::reset();
    DeviceInstance instance = nullptr;
    ostrel_createInstance(&instance);
    EXPECT_EQ(ostrel_getConnectedDeviceList(false, instance),
              (std::vector<std::string>{"ENV001", "ENV002"}));
    TokenInfo first = ostrel_getTokenInfo("ENV001", instance);
    EXPECT_EQ(first.label, "First token");
    EXPECT_EQ(first.firmwareVersion, "2.0.1");
    TokenInfo second = ostrel_getTokenInfo("ENV002", instance);
    EXPECT_EQ(second.label, "ENV002");
    EXPECT_EQ(second.model, "OT1-F");
    int retries = 0;
    EXPECT_EQ(ostrel_validatePassword("ENV002", "4321", 1, &retries, instance), 0);
    ostrel_releaseInstance(instance);
}

}  // namespace
