// PIN checks: the retry counter, locking, PIN change, the security officer PIN, and what the
// checks cost.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>

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
    EXPECT_FALSE(
        ostrel_changeUserPassword(kSerial, "0000", "5678", &failures, false, false, instance_));
    EXPECT_EQ(failures, 9);
    EXPECT_FALSE(ostrel_changeUserPassword(kSerial, kPin, "567", &failures, false, false,
                                           instance_));  // too short: no try spent
    EXPECT_EQ(failures, 9);
    ASSERT_TRUE(
        ostrel_changeUserPassword(kSerial, kPin, "5678", &failures, false, false, instance_));
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

// What a group of guessing threads saw: the counts reported with each "wrong PIN" answer, and
// whether any answer was something other than wrong (10) or locked (11).
struct Guesses {
    std::mutex mutex;
    std::vector<int> countsAfterWrong;
    bool unexpected = false;
};

// Each thread guesses wrong PINs of its own until the PIN is locked, starting when go is set.
void guessUntilLocked(DeviceInstance instance, const char* serial, int threads, int tag,
                      const std::atomic<bool>& go, Guesses& seen) {
    std::vector<std::thread> guessers;
    for (int t = 0; t < threads; ++t) {
        guessers.emplace_back([&, t] {
            while (!go.load()) {
                std::this_thread::yield();
            }
            for (int attempt = 0; attempt < 30; ++attempt) {
                const std::string pin = "9" + std::to_string(tag * 1000 + t * 30 + attempt);
                int retries = -1;
                int result = ostrel_validatePassword(serial, pin.c_str(), 1, &retries, instance);
                std::lock_guard<std::mutex> lock(seen.mutex);
                if (result == kPinIncorrect) {
                    seen.countsAfterWrong.push_back(retries);
                } else if (result != kPinLocked || retries != 0) {
                    seen.unexpected = true;
                }
                if (result != kPinIncorrect) {
                    return;
                }
            }
        });
    }
    for (std::thread& guesser : guessers) {
        guesser.join();
    }
}

TEST_F(PinTest, ParallelGuessesFromThreadsAndProcessesNeverGetMoreTriesThanTheCount) {
    constexpr int kMax = 10;
    createToken("RACE", kPin, kMax);
    OstrelKeyPair pair = generate(kKeyTypeEcP256, 3, "RACE");
    // This process derives and caches the right PIN first: the cache must not open a token that
    // gets locked afterwards.
    int retries = 0;
    ASSERT_EQ(validate(instance_, kPin, &retries, 1, "RACE"), 0);

    int start[2];
    int report[2];
    ASSERT_EQ(pipe(start), 0);
    ASSERT_EQ(pipe(report), 0);
    std::vector<pid_t> children;
    for (int child = 0; child < 2; ++child) {
        pid_t made = fork();
        if (made == 0) {
            close(start[1]);
            close(report[0]);
            DeviceInstance own = nullptr;
            ostrel_createInstance(&own);
            char byte = 0;
            if (own == nullptr || read(start[0], &byte, 1) != 1) {
                _exit(2);
            }
            std::atomic<bool> go{true};
            Guesses seen;
            guessUntilLocked(own, "RACE", 4, child + 1, go, seen);
            for (int count : seen.countsAfterWrong) {
                const auto value = static_cast<unsigned char>(count);
                if (write(report[1], &value, 1) != 1) {
                    _exit(2);
                }
            }
            ostrel_releaseInstance(own);
            _exit(seen.unexpected ? 1 : 0);
        }
        children.push_back(made);
    }
    close(start[0]);
    close(report[1]);

    std::atomic<bool> go{false};
    Guesses seen;
    std::thread parent([&] { guessUntilLocked(instance_, "RACE", 8, 0, go, seen); });
    const char bytes[2] = {1, 1};
    ASSERT_EQ(write(start[1], bytes, 2), 2);
    go = true;
    parent.join();
    close(start[1]);
    unsigned char value = 0;
    while (read(report[0], &value, 1) == 1) {
        seen.countsAfterWrong.push_back(value);
    }
    close(report[0]);
    for (pid_t child : children) {
        int status = 0;
        waitpid(child, &status, 0);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    }

    // Every try was taken from the live count: the wrong answers reported 9, 8, ..., 1 once
    // each, and the guess that took the last try answered "locked".
    EXPECT_FALSE(seen.unexpected);
    std::sort(seen.countsAfterWrong.begin(), seen.countsAfterWrong.end());
    std::vector<int> expected;
    for (int count = 1; count < kMax; ++count) {
        expected.push_back(count);
    }
    EXPECT_EQ(seen.countsAfterWrong, expected);
    EXPECT_EQ(ostrel_getTokenInfo("RACE", instance_).pinRetryCount, 0);

    // The right PIN, derived and cached here before, no longer opens anything.
    EXPECT_EQ(validate(instance_, kPin, &retries, 1, "RACE"), kPinLocked);
    EXPECT_EQ(retries, 0);
    Bytes digest(32, 4);
    unsigned char signature[1024];
    int length = sizeof signature;
    EXPECT_EQ(ostrel_signHash("RACE", pair.keyReference, kPin, digest.data(), 32, signature,
                              &length, false, instance_, false),
              kPinLocked);
}

TEST_F(PinTest, RightPinSeenByAnotherProcessRestoresTheLiveCount) {
    // The snapshot of this process shows every try left; another process then spends one. A
    // right PIN here must restore the count in the store, not trust its earlier view.
    int retries = 0;
    ASSERT_EQ(validate(instance_, kPin, &retries), 0);
    ASSERT_EQ(ostrel_getTokenInfo(kSerial, instance_).pinRetryCount, 10);
    pid_t child = fork();
    if (child == 0) {
        DeviceInstance own = nullptr;
        ostrel_createInstance(&own);
        int left = 0;
        int result = ostrel_validatePassword(kSerial, "0000", 1, &left, own);
        ostrel_releaseInstance(own);
        _exit(result == kPinIncorrect && left == 9 ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(validate(instance_, kPin, &retries), 0);
    EXPECT_EQ(retries, 10);
    EXPECT_EQ(ostrel_getTokenInfo(kSerial, instance_).pinRetryCount, 10);
}

TEST_F(PinTest, UnreachableDeviceAnswers48AndReportsNoCount) {
    ASSERT_EQ(tool({"unplug", kSerial}).exitCode, 0);
    int retries = 1234;
    EXPECT_EQ(validate(instance_, kPin, &retries), kDeviceUnreachable);
    EXPECT_EQ(retries, 1234);
    EXPECT_EQ(validate(instance_, kPin, &retries, 1, "NOSUCH"), kDeviceUnreachable);
    EXPECT_EQ(retries, 1234);
    int failures = 1234;
    EXPECT_FALSE(
        ostrel_changeUserPassword(kSerial, kPin, "5678", &failures, false, false, instance_));
    EXPECT_EQ(failures, 1234);
    ASSERT_EQ(tool({"plug", kSerial}).exitCode, 0);
    EXPECT_EQ(validate(instance_, kPin, &retries), 0);
    EXPECT_EQ(retries, 10);
}

}  // namespace
}  // namespace softtoken::testing
