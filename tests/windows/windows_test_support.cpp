#include "windows_test_support.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <fstream>

namespace fs = std::filesystem;

namespace windowstest {
namespace {

// "16/11::05:42:07:123-> " precedes every tag.
constexpr std::size_t kTimeStampLength = 22;

}  // namespace

fs::path programFolder() {
    char file[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, file, MAX_PATH);
    return fs::path(std::string(file, length)).parent_path();
}

ScopedTemporaryFolder::ScopedTemporaryFolder() {
    static std::atomic<int> counter{0};
    path_ = fs::temp_directory_path() /
            ("ostrel-windows-test-" + std::to_string(::GetCurrentProcessId()) + "-" +
             std::to_string(counter++));
    fs::remove_all(path_);
    fs::create_directories(path_);
    for (const char* name : {"TMP", "TEMP"}) {
        const char* value = std::getenv(name);
        previous_.emplace_back(name, value != nullptr ? value : "");
        _putenv_s(name, path_.string().c_str());
    }
}

ScopedTemporaryFolder::~ScopedTemporaryFolder() {
    for (const auto& [name, value] : previous_) {
        _putenv_s(name.c_str(), value.c_str());  // an empty value removes the variable
    }
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

std::vector<std::string> logLines(const fs::path& folder) {
    std::vector<std::string> lines;
    std::error_code error;
    for (const auto& file : fs::directory_iterator(folder, error)) {
        if (file.path().extension() != ".LOG") {
            continue;
        }
        std::ifstream in(file.path(), std::ios::binary);
        std::string line;
        while (std::getline(in, line)) {
            lines.push_back(line.size() >= kTimeStampLength ? line.substr(kTimeStampLength) : line);
        }
    }
    return lines;
}

std::vector<std::string> folderEntries(const fs::path& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace windowstest
