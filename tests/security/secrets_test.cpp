// Secrets never reach the log, at the most talkative level either, and memory that held them is
// wiped: the user's PIN, the old and new PINs of a change, the private key components of an
// import, derived secrets and decrypted messages.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "core/module_state.h"
#include "core/secret_bytes.h"
#include "crypto/hex_der.h"
#include "cryptoki/cryptoki.h"
#include "device_double.h"
#include "sessions/secret_string.h"
#include "support/log_capture.h"

namespace dd = devicedouble;

namespace {

constexpr CK_SLOT_ID kSlot = 0x50000001;
constexpr CK_OBJECT_HANDLE kRsaPrivate = 0x70000001;
constexpr CK_OBJECT_HANDLE kEcPrivate = 0x70000002;

// Distinctive values: none of them can turn up in a log line by chance.
const std::string kPin = "Pin-7Q2v-secret";
const std::string kNewPin = "NewPin-K9w4-secret";
const Bytes kPrivateExponent(256, 0xD7);
const Bytes kPrime(128, 0xB3);
const Bytes kDerivedSecret = {0x5E, 0xC2, 0xE7, 0x01, 0x9A, 0x44, 0x6B, 0x3D,
                              0xF0, 0x11, 0x22, 0x9C, 0x7E, 0x65, 0x4A, 0xA8};
const Bytes kPlaintext = {'p', 'l', 'a', 'i', 'n', 't', 'e', 'x', 't', '-', 'Z', 'q', '8'};

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Each secret as it could appear: its bytes as text, and in hexadecimal of either case.
std::vector<std::string> tracesOf(const Bytes& secret) {
    const std::string hex = bytesToHex(secret);
    return {std::string(secret.begin(), secret.end()), hex, lowerCase(hex)};
}

class Secrets : public ::testing::Test {
protected:
    void SetUp() override {
        dd::reset();
        dd::addDevice("SEC1", "Secrets");
        dd::setPin("SEC1", kPin);
        dd::setKeyPairs("SEC1", {dd::KeyPairBuilder(1), dd::KeyPairBuilder(2).keyType(5)});
        ASSERT_EQ(C_Initialize(nullptr), CKR_OK);
        CK_SLOT_ID slot = 0;
        CK_ULONG count = 1;
        ASSERT_EQ(C_GetSlotList(CK_TRUE, &slot, &count), CKR_OK);
        ASSERT_EQ(
            C_OpenSession(kSlot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &session_),
            CKR_OK);
    }
    void TearDown() override { C_Finalize(nullptr); }

    CK_RV login(const std::string& pin) {
        std::string text = pin;
        return C_Login(session_, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(text.data()),
                       static_cast<CK_ULONG>(text.size()));
    }

    LogCapture log{3};
    CK_SESSION_HANDLE session_ = 0;
};

TEST_F(Secrets, NoSecretReachesTheLogAtTheDebugLevel) {
    // A wrong PIN, the right one, a second login, a PIN change and back.
    EXPECT_EQ(login("Wrong-PIN-secret"), CKR_PIN_INCORRECT);
    ASSERT_EQ(login(kPin), CKR_OK);
    EXPECT_EQ(login(kPin), CKR_USER_ALREADY_LOGGED_IN);
    std::string oldPin = kPin, newPin = kNewPin;
    ASSERT_EQ(C_SetPIN(session_, reinterpret_cast<CK_UTF8CHAR_PTR>(oldPin.data()), oldPin.size(),
                       reinterpret_cast<CK_UTF8CHAR_PTR>(newPin.data()), newPin.size()),
              CKR_OK);

    // A private key imported from its components.
    Bytes modulus(256, 0xC1);
    Bytes exponent = kPrivateExponent, prime = kPrime;
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE key[] = {
        {CKA_CLASS, &keyClass, sizeof keyClass},
        {CKA_MODULUS, modulus.data(), static_cast<CK_ULONG>(modulus.size())},
        {CKA_PRIVATE_EXPONENT, exponent.data(), static_cast<CK_ULONG>(exponent.size())},
        {CKA_PRIME_1, prime.data(), static_cast<CK_ULONG>(prime.size())}};
    CK_OBJECT_HANDLE imported = 0;
    ASSERT_EQ(C_CreateObject(session_, key, 4, &imported), CKR_OK);

    // A derived secret, created and read back.
    dd::scriptOutput("ecdhDerive", kDerivedSecret);
    Bytes peer(65, 0x04);
    CK_ECDH1_DERIVE_PARAMS parameters{CKD_NULL, 0, nullptr, static_cast<CK_ULONG>(peer.size()),
                                      peer.data()};
    CK_MECHANISM derive{CKM_ECDH1_DERIVE, &parameters, sizeof parameters};
    CK_OBJECT_HANDLE derived = 0;
    ASSERT_EQ(C_DeriveKey(session_, &derive, kEcPrivate, nullptr, 0, &derived), CKR_OK);
    unsigned char value[64];
    CK_ATTRIBUTE read{CKA_VALUE, value, sizeof value};
    ASSERT_EQ(C_GetAttributeValue(session_, derived, &read, 1), CKR_OK);
    ASSERT_EQ(Bytes(value, value + read.ulValueLen), kDerivedSecret);

    // A decrypted message, asked for its length first and then handed out.
    dd::scriptOutput("decrypt", kPlaintext);
    CK_MECHANISM pkcs1{CKM_RSA_PKCS, nullptr, 0};
    Bytes ciphertext(256, 0x42);
    ASSERT_EQ(C_DecryptInit(session_, &pkcs1, kRsaPrivate), CKR_OK);
    CK_ULONG length = 0;
    ASSERT_EQ(C_Decrypt(session_, ciphertext.data(), ciphertext.size(), nullptr, &length), CKR_OK);
    Bytes plaintext(length);
    ASSERT_EQ(C_Decrypt(session_, ciphertext.data(), ciphertext.size(), plaintext.data(), &length),
              CKR_OK);
    ASSERT_EQ(plaintext, kPlaintext);
    ASSERT_EQ(C_Logout(session_), CKR_OK);

    const std::vector<std::string> lines = log.lines();
    // The debug level really wrote the calls, the secrets' neighbours included.
    ASSERT_TRUE(log.contains(infoLine("C_Decrypt")));
    ASSERT_TRUE(log.contains(infoLine("C_CreateObject - attrip type : 291")));
    std::vector<std::string> secrets = {kPin, kNewPin, "Wrong-PIN-secret"};
    for (const Bytes& secret : {kPrivateExponent, kPrime, kDerivedSecret, kPlaintext}) {
        const std::vector<std::string> traces = tracesOf(secret);
        secrets.insert(secrets.end(), traces.begin(), traces.end());
    }
    for (const std::string& line : lines) {
        for (const std::string& secret : secrets) {
            EXPECT_EQ(line.find(secret), std::string::npos) << line;
        }
    }
}

TEST_F(Secrets, TheUserPinIsWipedWhereItWasKeptAtLogout) {
    ASSERT_EQ(login(kPin), CKR_OK);
    const char* kept = nullptr;
    {
        MutexLock tables(moduleState().tableMutex);
        kept = moduleState().userPassword.c_str();
        ASSERT_EQ(std::string(kept, kPin.size()), kPin);
    }
    ASSERT_EQ(C_Logout(session_), CKR_OK);
    // The string keeps its buffer (it never shrinks), so the bytes can still be read: all zero.
    MutexLock tables(moduleState().tableMutex);
    ASSERT_EQ(moduleState().userPassword.c_str(), kept);
    EXPECT_EQ(std::string(kept, kPin.size()), std::string(kPin.size(), '\0'));
}

TEST(Wiping, SecretStringsAndBuffersOverwriteWhatTheyHeld) {
    SecretString pin(kPin.data(), kPin.size());
    const char* bytes = pin.c_str();
    pin.clear();
    EXPECT_EQ(std::string(bytes, kPin.size()), std::string(kPin.size(), '\0'));

    SecretBytes secret(kDerivedSecret.begin(), kDerivedSecret.end());
    const unsigned char* held = secret.data();
    wipeAndClear(secret);
    EXPECT_TRUE(secret.empty());
    EXPECT_EQ(Bytes(held, held + kDerivedSecret.size()), Bytes(kDerivedSecret.size(), 0));

    Bytes raw = kPlaintext;
    wipeBytes(raw.data(), raw.size());
    EXPECT_EQ(raw, Bytes(kPlaintext.size(), 0));
}

// Hands out one buffer of its own and takes blocks back without freeing them, so that a test
// can look at what the wiping allocator left in a block it gave back.
template <typename T>
struct ArenaAllocator {
    using value_type = T;
    static unsigned char arena[256];
    ArenaAllocator() noexcept = default;
    template <typename U>
    ArenaAllocator(const ArenaAllocator<U>& /*other*/) noexcept {}
    T* allocate(std::size_t count) {
        EXPECT_LE(count * sizeof(T), sizeof arena);
        return reinterpret_cast<T*>(arena);
    }
    void deallocate(T* /*block*/, std::size_t /*count*/) noexcept {}
};
template <typename T>
unsigned char ArenaAllocator<T>::arena[256];

TEST(Wiping, TheWipingAllocatorZeroesEveryBlockItGivesBack) {
    std::memset(ArenaAllocator<unsigned char>::arena, 0xAA, 256);
    {
        std::vector<unsigned char, WipingAllocator<unsigned char, ArenaAllocator<unsigned char>>>
            secret(kDerivedSecret.begin(), kDerivedSecret.end());
        EXPECT_EQ(Bytes(ArenaAllocator<unsigned char>::arena,
                        ArenaAllocator<unsigned char>::arena + kDerivedSecret.size()),
                  kDerivedSecret);
    }
    EXPECT_EQ(Bytes(ArenaAllocator<unsigned char>::arena,
                    ArenaAllocator<unsigned char>::arena + kDerivedSecret.size()),
              Bytes(kDerivedSecret.size(), 0));
}

TEST_F(Secrets, DerivedKeysAreWipedWhenTheStateIsWiped) {
    ASSERT_EQ(login(kPin), CKR_OK);
    const std::uint32_t handle =
        moduleState().derivedKeys.add(SecretBytes(kDerivedSecret.begin(), kDerivedSecret.end()));
    ASSERT_TRUE(moduleState().derivedKeys.find(handle).has_value());
    moduleState().wipeSecretsWithoutLocking();
    EXPECT_TRUE(moduleState().derivedKeys.find(handle)->empty());
    MutexLock tables(moduleState().tableMutex);
    EXPECT_TRUE(moduleState().userPassword.empty());
}

}  // namespace
