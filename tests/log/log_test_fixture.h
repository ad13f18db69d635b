// Common ground of the log tests: every test gets its own temporary folder and its own log-level
// setting, and reads back what the log wrote there.
//  - POSIX: TMPDIR names the temporary folder; the level comes from a settings file of the
//    test's own (platform::setSettingsFilePathForTesting).
//  - Windows: TMP and TEMP name it (GetTempPathA reads them); the level is the registry value in
//    an HKEY_LOCAL_MACHINE private to the test process (testregistry::PrivateLocalMachine).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "platform/platform.h"
#if defined(_WIN32)
#include "support/windows_registry.h"
#endif

namespace fs = std::filesystem;

// Name under which this test program logs: its executable's name has no "." to cut.
inline constexpr const char* kTestProcessName = "ostrel_log_tests";

inline std::string todaysLogFileName() {
    const std::time_t now = std::time(nullptr);
    char text[32] = {};
    std::strftime(text, sizeof text, "%Y-%m-%d.LOG", std::localtime(&now));
    return text;
}

inline std::string readFile(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream content;
    content << stream.rdbuf();
    return content.str();
}

// The time stamp that starts every line: day/month::hour:minute:second:millisecond-> .
inline const std::regex& timeStampPattern() {
    static const std::regex pattern(R"(^(\d\d)/(\d\d)::(\d\d):(\d\d):(\d\d):(\d\d\d)-> )");
    return pattern;
}

// The text with the time stamp removed from the start of every line that has one, so that the
// rest can be compared byte for byte.
inline std::string withoutTimeStamps(const std::string& text) {
    std::string result;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        end = end == std::string::npos ? text.size() : end + 1;
        const std::string line = text.substr(start, end - start);
        std::smatch match;
        result += std::regex_search(line, match, timeStampPattern()) ? match.suffix().str() : line;
        start = end;
    }
    return result;
}

class LogTest : public ::testing::Test {
protected:
    void SetUp() override {
        root_ = newPrivateFolder();
        tmp_ = root_ / "tmp";
        fs::create_directory(tmp_);
        for (const char* name : kTemporaryFolderVariables) {
            const char* previous = std::getenv(name);
            previousVariables_.push_back(
                {name, previous != nullptr ? std::optional<std::string>(previous) : std::nullopt});
            setEnvironment(name, tmp_.string());
        }
#if !defined(_WIN32)
        settingsFile_ = root_ / "ostrel.conf";
        platform::setSettingsFilePathForTesting(settingsFile_.string());
#endif
    }

    void TearDown() override {
#if !defined(_WIN32)
        platform::setSettingsFilePathForTesting("");
#endif
        for (const auto& [name, value] : previousVariables_) {
            setEnvironment(name, value);
        }
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    // The machine-wide level: nothing configured, or a number. POSIX writes "logLevel=N" into
    // the settings file; Windows writes N as a REG_DWORD, whose first byte is N's low byte, the
    // byte that the settings file's number stands in for.
    void setLevelSetting(std::optional<std::int64_t> level) const {
#if defined(_WIN32)
        ASSERT_EQ(level ? testregistry::setLogLevelDword(static_cast<std::uint32_t>(*level))
                        : testregistry::deleteLogLevel(),
                  0);
#else
        if (level) {
            writeSettings("logLevel=" + std::to_string(*level) + "\n");
        } else {
            fs::remove(settingsFile_);
            platform::setSettingsFilePathForTesting(settingsFile_.string());
        }
#endif
    }

#if !defined(_WIN32)
    // Writes the settings and tells the module to read them at once, as the tests of what the
    // settings mean need; how a change is noticed on its own is tested apart.
    void writeSettings(const std::string& text) const {
        writeSettingsUnannounced(text);
        platform::setSettingsFilePathForTesting(settingsFile_.string());
    }
    // As an administrator changes the file: the module notices by itself.
    void writeSettingsUnannounced(const std::string& text) const {
        std::ofstream(settingsFile_, std::ios::binary | std::ios::trunc) << text;
    }
#endif

    fs::path makerFolder() const { return tmp_ / "Kelvanetics"; }
    fs::path processFolder() const { return makerFolder() / kTestProcessName; }
    fs::path logFile() const { return processFolder() / todaysLogFileName(); }

    // The folders that the first two messages on a clean machine would make.
    void makeLogFolders() const {
        fs::create_directory(makerFolder());
        fs::create_directory(processFolder());
    }

    // An empty temporary folder, as on a machine that never logged.
    void cleanTemporaryFolder() const {
        fs::remove_all(tmp_);
        fs::create_directory(tmp_);
    }

    fs::path root_;  // private to the test; tmp_ and (POSIX) the settings file live in it
    fs::path tmp_;   // the temporary folder as the OS reports it to the log
#if !defined(_WIN32)
    fs::path settingsFile_;
#endif

private:
#if defined(_WIN32)
    // GetTempPathA takes TMP, else TEMP.
    static constexpr const char* kTemporaryFolderVariables[] = {"TMP", "TEMP"};
#else
    static constexpr const char* kTemporaryFolderVariables[] = {"TMPDIR"};
#endif

    static void setEnvironment(const char* name, const std::optional<std::string>& value) {
#if defined(_WIN32)
        _putenv_s(name, value ? value->c_str() : "");  // an empty value removes the variable
#else
        if (value) {
            ::setenv(name, value->c_str(), 1);
        } else {
            ::unsetenv(name);
        }
#endif
    }

    static fs::path newPrivateFolder() {
        std::random_device random;
        for (;;) {
            const fs::path folder =
                fs::temp_directory_path() / ("ostrel-log-test-" + std::to_string(random()));
            if (fs::create_directory(folder)) {
                return folder;
            }
        }
    }

    struct SavedVariable {
        const char* name;
        std::optional<std::string> value;
    };
    std::vector<SavedVariable> previousVariables_;
#if defined(_WIN32)
    testregistry::PrivateLocalMachine localMachine_;  // starts with no logLevel value
#endif
};
