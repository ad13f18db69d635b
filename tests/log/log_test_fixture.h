// Common ground of the log tests: every test gets its own temporary folder (TMPDIR) and its own
// settings file, and reads back what the log wrote there.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>
#include <string>

#include "platform/platform.h"

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
        const char* previous = std::getenv("TMPDIR");
        if (previous != nullptr) {
            previousTmpdir_ = previous;
        }
        std::string pattern = (fs::temp_directory_path() / "ostrel-log-test-XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root_ = pattern;
        tmp_ = root_ / "tmp";
        fs::create_directory(tmp_);
        ::setenv("TMPDIR", tmp_.c_str(), 1);
        settingsFile_ = root_ / "ostrel.conf";
        platform::setSettingsFilePathForTesting(settingsFile_.string());
    }

    void TearDown() override {
        platform::setSettingsFilePathForTesting("");
        if (previousTmpdir_) {
            ::setenv("TMPDIR", previousTmpdir_->c_str(), 1);
        } else {
            ::unsetenv("TMPDIR");
        }
        std::error_code ignored;
        fs::remove_all(root_, ignored);
    }

    void writeSettings(const std::string& text) const {
        std::ofstream(settingsFile_, std::ios::binary | std::ios::trunc) << text;
    }

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

    fs::path root_;
    fs::path tmp_;
    fs::path settingsFile_;

private:
    std::optional<std::string> previousTmpdir_;
};
