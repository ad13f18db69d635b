// The level setting and which messages it lets through.
#include <optional>

#include "log/log.h"
#include "log_test_fixture.h"

namespace {

struct LevelCase {
    std::optional<std::string> settings;  // file content; nothing: no settings file
    int level = 0;
};

TEST_F(LogTest, LevelFollowsTheSettingFirstByteRules) {
    const LevelCase cases[] = {
        {std::nullopt, 2},
        {"", 2},
        {"logLevel=3\n", 3},
        {"logLevel=1\n", 1},
        {"logLevel=0\n", 0},
        {"logLevel=7\n", 2},
        {"logLevel=127\n", 2},
        // Only the low byte counts, as only the first byte of the registry value does.
        {"logLevel=256\n", 0},
        {"logLevel=259\n", 3},
        {"logLevel=255\n", -1},
        {"logLevel=128\n", -128},
        {"logLevel=-1\n", -1},
        // Not a number: like the registry string "3", it is not a level.
        {"logLevel=\"3\"\n", 2},
        {"logLevel=three\n", 2},
        {"logLevel=3x\n", 2},
        {"logLevel=99999999999999999999\n", 2},
        {"logLevelX=3\n", 2},
        {"# machine settings\nother=1\n  logLevel = 3 \r\n", 3},
        {"logLevel=3\nlogLevel=1\n", 3},
        {"logLevel=junk\nlogLevel=3\n", 2},
    };
    // Read anew on every call: each case rewrites the file between calls.
    for (const LevelCase& test : cases) {
        SCOPED_TRACE(test.settings.value_or("<no settings file>"));
        if (test.settings) {
            writeSettings(*test.settings);
        } else {
            fs::remove(settingsFile_);
        }
        EXPECT_EQ(getLogLevel(), test.level);
    }
}

struct GateCase {
    const char* settings;
    const char* written;  // nullptr: the log folders are not even touched
};

TEST_F(LogTest, LevelDecidesWhichMessagesAreWritten) {
    const GateCase cases[] = {
        {"", "ERROR ::=>error message\n"},
        {"logLevel=2\n", "ERROR ::=>error message\n"},
        {"logLevel=7\n", "ERROR ::=>error message\n"},
        {"logLevel=3\n", "DEBUG ::=>info message\nERROR ::=>error message\n"},
        {"logLevel=1\n", nullptr},
        {"logLevel=0\n", nullptr},
        {"logLevel=255\n", nullptr},
    };
    for (const GateCase& test : cases) {
        SCOPED_TRACE(test.settings);
        cleanTemporaryFolder();
        if (test.written != nullptr) {
            makeLogFolders();
        }
        writeSettings(test.settings);
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

}  // namespace
