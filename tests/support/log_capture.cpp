#include "support/log_capture.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "platform/platform.h"

namespace fs = std::filesystem;

namespace {

#if defined(_WIN32)
// GetTempPathA takes TMP, else TEMP.
constexpr const char* kTemporaryFolderVariables[] = {"TMP", "TEMP"};
#else
constexpr const char* kTemporaryFolderVariables[] = {"TMPDIR"};
#endif

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
    for (const char* name : kTemporaryFolderVariables) {
        const char* value = std::getenv(name);
        savedVariables_.push_back({name, value != nullptr, value != nullptr ? value : ""});
        setEnvironment(name, folder_.string());
    }
    // Made in advance so that the first message of a test is not spent on creating folders.
    fs::create_directories(logFolder());
    setLevel(level);
}

LogCapture::~LogCapture() {
#if !defined(_WIN32)
    platform::setSettingsFilePathForTesting("");
#endif
    for (const SavedVariable& variable : savedVariables_) {
        if (variable.wasSet) {
            setEnvironment(variable.name, variable.value);
        } else {
            unsetEnvironment(variable.name);
        }
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
    // The registry keeps the DWORD's bytes; the module reads the first, as POSIX reads the
    // low byte of the number.
    if (testregistry::setLogLevelDword(static_cast<std::uint32_t>(level)) != 0) {
        throw std::runtime_error("cannot write the logLevel registry value");
    }
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

std::vector<std::string> LogCapture::newCallLines() {
    std::vector<std::string> lines;
    for (std::string& line : newLines()) {
        const bool fromMonitor = line.rfind(infoLine("Session monitor thread"), 0) == 0 ||
                                 line.rfind(infoLine("Slot event:"), 0) == 0;
        if (!fromMonitor) {
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

bool LogCapture::contains(const std::string& line) const {
    for (const auto& written : lines()) {
        if (written == line) {
            return true;
        }
    }
    return false;
}
