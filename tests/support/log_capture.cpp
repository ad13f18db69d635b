#include "support/log_capture.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/platform.h"

namespace fs = std::filesystem;

namespace {

// "16/11::05:42:07:123-> " precedes every tag.
constexpr std::size_t kTimeStampLength = 22;

void setEnvironment(const char* name, const std::string& value) {
#if defined(_WIN32)
    _putenv_s(name, value.c_str());
#else
    setenv(name, value.c_str(), 1);
#endif
}

void unsetEnvironment(const char* name) {
#if defined(_WIN32)
    _putenv_s(name, "");
#else
    unsetenv(name);
#endif
}

std::string processFolderName() {
    const std::string base = platform::executableBaseName();
    return base.substr(0, base.find('.'));
}

fs::path uniqueFolder() {
    static std::atomic<int> counter{0};
    const auto stamp = std::chrono::steady_clock::now().time_since_epoch().count();
    return fs::temp_directory_path() /
           ("ostrel-test-" + std::to_string(stamp) + "-" + std::to_string(counter++));
}

}  // namespace

LogCapture::LogCapture(int level) : folder_(uniqueFolder()) {
    fs::create_directories(folder_);
    if (const char* tmpdir = std::getenv("TMPDIR")) {
        hadTmpdir_ = true;
        previousTmpdir_ = tmpdir;
    }
    setEnvironment("TMPDIR", folder_.string());
    // Made in advance so that the first message of a test is not spent on creating folders.
    fs::create_directories(logFolder());
    setLevel(level);
}

LogCapture::~LogCapture() {
#if !defined(_WIN32)
    platform::setSettingsFilePathForTesting("");
#endif
    if (hadTmpdir_) {
        setEnvironment("TMPDIR", previousTmpdir_);
    } else {
        unsetEnvironment("TMPDIR");
    }
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
}

void LogCapture::setLevel(int level) {
#if !defined(_WIN32)
    const fs::path settings = folder_ / "ostrel.conf";
    std::ofstream(settings) << "logLevel=" << level << "\n";
    platform::setSettingsFilePathForTesting(settings.string());
#else
    static_cast<void>(level);
#endif
}

fs::path LogCapture::logFolder() const {
    return folder_ / "Kelvanetics" / processFolderName();
}

std::vector<std::string> LogCapture::lines() const {
    std::vector<std::string> result;
    std::error_code error;
    for (const auto& file : fs::directory_iterator(logFolder(), error)) {
        if (file.path().extension() != ".LOG") {
            continue;
        }
        std::ifstream in(file.path(), std::ios::binary);
        std::string line;
        while (std::getline(in, line)) {
            result.push_back(line.size() >= kTimeStampLength ? line.substr(kTimeStampLength)
                                                             : line);
        }
    }
    return result;
}

std::vector<std::string> LogCapture::newLines() {
    std::vector<std::string> all = lines();
    std::vector<std::string> fresh(all.begin() + static_cast<std::ptrdiff_t>(
                                                     std::min(seen_, all.size())),
                                   all.end());
    seen_ = all.size();
    return fresh;
}

bool LogCapture::contains(const std::string& line) const {
    for (const auto& written : lines()) {
        if (written == line) {
            return true;
        }
    }
    return false;
}
