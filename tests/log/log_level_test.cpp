// The level setting and which messages it lets through.
#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>

#include "log/log.h"
#include "platform/platform.h"
#include "support/wait_until.h"
#include "log_test_fixture.h"

namespace {

struct LevelCase {
    std::optional<std::int64_t> setting;  // nothing: not configured
    int level = 0;
};

std::string describe(const std::optional<std::int64_t>& setting) {
    return setting ? "logLevel " + std::to_string(*setting) : "no logLevel";
}

TEST_F(LogTest, LevelFollowsTheSettingFirstByteRules) {
    const LevelCase cases[] = {
        {std::nullopt, 2},
        {3, 3},
        {2, 2},
        {1, 1},
        {0, 0},
        {7, 2},
        {127, 2},
        // Only the first byte counts: 256 is 0, 259 is 3, 255 and -1 are -1, 128 is -128.
        {256, 0},
        {259, 3},
        {255, -1},
        {-1, -1},
        {128, -128},
    };
    // Read anew on every call: each case changes the setting between calls.
    for (const LevelCase& test : cases) {
        SCOPED_TRACE(describe(test.setting));
        setLevelSetting(test.setting);
        EXPECT_EQ(getLogLevel(), test.level);
    }
}

struct GateCase {
    std::optional<std::int64_t> setting;
    const char* written;  // nullptr: the log folders are not even touched
};

TEST_F(LogTest, LevelDecidesWhichMessagesAreWritten) {
    const GateCase cases[] = {
        {std::nullopt, "ERROR ::=>error message\n"},
        {2, "ERROR ::=>error message\n"},
        {7, "ERROR ::=>error message\n"},
        {3, "DEBUG ::=>info message\nERROR ::=>error message\n"},
        {1, nullptr},
        {0, nullptr},
        {255, nullptr},
    };
    for (const GateCase& test : cases) {
        SCOPED_TRACE(describe(test.setting));
        cleanTemporaryFolder();
        if (test.written != nullptr) {
            makeLogFolders();
        }
        setLevelSetting(test.setting);
        testing::internal::CaptureStdout();
        logInfo("info message");
        logError("error message");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        if (test.written != nullptr) {
            EXPECT_EQ(withoutTimeStamps(readFile(logFile())), test.written);
        } else {
            EXPECT_FALSE(fs::exists(makerFolder()));
        }
    }
}

#if defined(_WIN32)

// The registry value may have any type and its first byte is the level; data that does not fit
// in 32 bytes cannot be read at all.
TEST_F(LogTest, RegistryValueOfAnyTypeUpTo32Bytes) {
    std::vector<unsigned char> bytes(32, 0);
    bytes[0] = 3;
    ASSERT_EQ(testregistry::setLogLevelBinary(bytes), 0);
    EXPECT_EQ(getLogLevel(), 3);
    bytes.push_back(0);
    ASSERT_EQ(testregistry::setLogLevelBinary(bytes), 0);
    EXPECT_EQ(getLogLevel(), 2);
    // The string "3" starts with the character code 0x33, which is above 3.
    ASSERT_EQ(testregistry::setLogLevelString("3"), 0);
    EXPECT_EQ(getLogLevel(), 2);
}

#else

// The settings file stands in for the registry: the first "logLevel" line decides, and a value
// that is not a decimal number is not a level, as the registry string "3" is not one.
TEST_F(LogTest, SettingsFileLines) {
    const struct {
        const char* settings;
        int level;
    } cases[] = {
        {"", 2},
        {"logLevel=\"3\"\n", 2},
        {"logLevel=three\n", 2},
        {"logLevel=3x\n", 2},
        {"logLevel=\n", 2},
        {"logLevel=99999999999999999999\n", 2},
        {"logLevelX=3\n", 2},
        {"# machine settings\nother=1\n  logLevel = 3 \r\n", 3},
        {"logLevel=3\nlogLevel=1\n", 3},
        {"logLevel=junk\nlogLevel=3\n", 2},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.settings);
        writeSettings(test.settings);
        EXPECT_EQ(getLogLevel(), test.level);
    }
}

// An administrator's change is noticed by the module on its own: the setting is remembered
// between messages and read again when the settings folder saw a change, also a rewrite of the
// same size within one clock tick, a removal and a re-creation.
TEST_F(LogTest, ChangesOfTheSettingsFileAreNoticedWithoutBeingAnnounced) {
    writeSettings("logLevel=3\n");
    EXPECT_EQ(getLogLevel(), 3);
    for (const char* settings : {"logLevel=1\n", "logLevel=3\n", "logLevel=0\n"}) {
        writeSettingsUnannounced(settings);
        const int expected = settings[9] - '0';
        EXPECT_TRUE(waitUntil([&] { return getLogLevel() == expected; })) << settings;
    }
    fs::remove(settingsFile_);
    EXPECT_TRUE(waitUntil([&] { return getLogLevel() == 2; }));
    writeSettingsUnannounced("logLevel=3\n");
    EXPECT_TRUE(waitUntil([&] { return getLogLevel() == 3; }));
}

// Where the folder cannot be watched (the settings file is a symbolic link, whose target may
// change elsewhere), every message looks at the file itself: changes count at once.
TEST_F(LogTest, ASettingsFileBehindALinkIsCheckedAtEveryMessage) {
    const fs::path target = settingsFile_.parent_path() / "real-ostrel.conf";
    std::ofstream(target, std::ios::binary | std::ios::trunc) << "logLevel=3\n";
    fs::create_symlink(target, settingsFile_);
    platform::setSettingsFilePathForTesting(settingsFile_.string());
    EXPECT_EQ(getLogLevel(), 3);
    for (const char* settings : {"logLevel=1\n", "logLevel=3\n", "logLevel=0\n"}) {
        std::ofstream(target, std::ios::binary | std::ios::trunc) << settings;
        EXPECT_EQ(getLogLevel(), settings[9] - '0') << settings;
    }
}

#endif

}  // namespace
