// PIN checks: the retry counter, locking, PIN change, the security officer PIN, and what the
// checks cost.
#include "common/token_error.h"
#include "token_fixture.h"

namespace softtoken::testing {
namespace {

using PinTest = TokenFixture;

int validate(DeviceInstance instance, const char* pin, int* retries, int kind = 1,
             const char* serial = "ST0001") {
    return ostrel_validatePassword(serial, pin, kind, retries, instance);
}

TEST_F(PinTest, WrongPinLowersTheLiveCountAndTheRightOneRestoresIt) {
    createToken("FIVE", kPin, 5);
    int retries = -1;
    EXPECT_EQ(validate(instance_, "0000", &retries, 1, "FIVE"), kPinIncorrect);
    EXPECT_EQ(retries, 4);
    EXPECT_EQ(validate(instance_, "9999", &retries, 1, "FIVE"), kPinIncorrect);
    EXPECT_EQ(retries, 3);
    EXPECT_EQ(ostrel_getTokenInfo("FIVE", instance_).pinRetryCount, 3);
    EXPECT_EQ(ostrel_getTokenInfo("FIVE", instance_).maximumPinRetries, 5);

    EXPECT_EQ(validate(instance_, kPin, &retries, 1, "FIVE"), 0);
    EXPECT_EQ(retries, 5);
    EXPECT_EQ(ostrel_getTokenInfo("FIVE", instance_).pinRetryCount, 5);
}

TEST_F(PinTest, LockedPinRefusesEveryCheckAndEveryKeyUse) {
    createToken("TWO", kPin, 2);
    OstrelKeyPair pair = generate(kKeyTypeEcP256, 3, "TWO");
    int retries = -1;
    EXPECT_EQ(validate(instance_, "0000", &retries, 1, "TWO"), kPinIncorrect);
    EXPECT_EQ(validate(instance_, "0000", &retries, 1, "TWO"), kPinLocked);
    EXPECT_EQ(retries, 0);
    // The right PIN, even one this process has already derived, no longer opens the token.
    EXPECT_EQ(validate(instance_, kPin, &retries, 1, "TWO"), kPinLocked);
    EXPECT_EQ(retries, 0);
    unsigned char signature[1024];
    int length = sizeof signature;
    Bytes digest(32, 1);
    EXPECT_EQ(ostrel_signHash("TWO", pair.keyReference, kPin, digest.data(), 32, signature, &length,
                              false, instance_, false),
              kPinLocked);
    EXPECT_EQ(ostrel_getTokenInfo("TWO", instance_).pinRetryCount, 0);
}

TEST_F(PinTest, PinFailuresAreNeverReportedAsDeviceFailure48) {
    int retries = 0;
    for (const char* pin : {"", "0000", "00000000000000000000"}) {
        int result = validate(instance_, pin, &retries);
        EXPECT_NE(result, 0);
        EXPECT_NE(result, 48);
    }
    EXPECT_EQ(validate(instance_, "", &retries), kPinRequired);
    EXPECT_EQ(retries, 8);  // the empty PIN cost no try
}

TEST_F(PinTest, CachedDerivationNeverAcceptsAnotherPin) {
    int retries = 0;
    ASSERT_EQ(validate(instance_, kPin, &retries), 0);
    EXPECT_EQ(validate(instance_, "12345", &retries), kPinIncorrect);
    EXPECT_EQ(validate(instance_, "123", &retries), kPinIncorrect);
    EXPECT_EQ(retries, 8);
}

TEST_F(PinTest, PinChangeKeepsTheKeysUsableUnderTheNewPin) {
    OstrelKeyPair pair = generate(kKeyTypeEcP256);
    int failures = -1;
    EXPECT_FALSE(ostrel_changeUserPassword(kSerial, "0000", "5678", &failures, false, false,
                                           instance_));
    EXPECT_EQ(failures, 9);
    EXPECT_FALSE(ostrel_changeUserPassword(kSerial, kPin, "567", &failures, false, false,
                                           instance_));  // too short: no try spent
    EXPECT_EQ(failures, 9);
    ASSERT_TRUE(ostrel_changeUserPassword(kSerial, kPin, "5678", &failures, false, false,
                                          instance_));
    TokenInfo info = ostrel_getTokenInfo(kSerial, instance_);
    EXPECT_EQ(info.userPinChanged, 1);
    EXPECT_EQ(info.pinRetryCount, 10);

    Bytes digest(32, 7);
    unsigned char signature[1024];
    int length = sizeof signature;
    EXPECT_EQ(ostrel_signHash(kSerial, pair.keyReference, "5678", digest.data(), 32, signature,
                              &length, false, instance_, false),
              0);
    length = sizeof signature;
    EXPECT_EQ(ostrel_signHash(kSerial, pair.keyReference, kPin, digest.data(), 32, signature,
                              &length, false, instance_, false),
              kPinIncorrect);
}

TEST_F(PinTest, SecurityOfficerPinHasItsOwnCount) {
    int retries = 0;
    EXPECT_EQ(validate(instance_, "87654321", &retries, 2), 0);
    EXPECT_EQ(validate(instance_, kPin, &retries, 2), kPinIncorrect);
    EXPECT_EQ(retries, 9);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).pinRetryCount, 10);
    EXPECT_EQ(validate(instance_, "87654321", &retries, 3), kBadArgument);
}

}  // namespace
}  // namespace softtoken::testing
