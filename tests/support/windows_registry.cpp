#include "support/windows_registry.h"

#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>

#include <atomic>
#include <stdexcept>

namespace testregistry {
namespace {

constexpr const char* kOstrelKey = "Software\\Kelvanetics\\Ostrel";
constexpr const char* kLogLevelValue = "logLevel";

long setLogLevel(DWORD type, const void* data, std::size_t size) {
    HKEY key = nullptr;
    LSTATUS status = ::RegCreateKeyExA(HKEY_LOCAL_MACHINE, kOstrelKey, 0, nullptr, 0, KEY_SET_VALUE,
                                       nullptr, &key, nullptr);
    if (status != ERROR_SUCCESS) {
        return status;
    }
    status = ::RegSetValueExA(key, kLogLevelValue, 0, type, static_cast<const BYTE*>(data),
                              static_cast<DWORD>(size));
    ::RegCloseKey(key);
    return status;
}

}  // namespace

PrivateLocalMachine::PrivateLocalMachine() {
    static std::atomic<int> counter{0};
    keyPath_ = "Software\\OstrelTests\\" + std::to_string(::GetCurrentProcessId()) + "-" +
               std::to_string(counter++);
    HKEY key = nullptr;
    if (::RegCreateKeyExA(HKEY_CURRENT_USER, keyPath_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS,
                          nullptr, &key, nullptr) != ERROR_SUCCESS) {
        throw std::runtime_error("cannot create HKEY_CURRENT_USER\\" + keyPath_);
    }
    // The override keeps a handle of its own.
    const LSTATUS status = ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, key);
    ::RegCloseKey(key);
    if (status != ERROR_SUCCESS) {
        throw std::runtime_error("cannot redirect HKEY_LOCAL_MACHINE");
    }
}

PrivateLocalMachine::~PrivateLocalMachine() {
    ::RegOverridePredefKey(HKEY_LOCAL_MACHINE, nullptr);
    ::RegDeleteTreeA(HKEY_CURRENT_USER, keyPath_.c_str());
    ::RegDeleteKeyA(HKEY_CURRENT_USER, keyPath_.c_str());
}

long setLogLevelDword(std::uint32_t value) {
    const DWORD data = value;
    return setLogLevel(REG_DWORD, &data, sizeof data);
}

long setLogLevelString(const std::string& value) {
    return setLogLevel(REG_SZ, value.c_str(), value.size() + 1);
}

long setLogLevelBinary(const std::vector<unsigned char>& bytes) {
    return setLogLevel(REG_BINARY, bytes.data(), bytes.size());
}

long deleteLogLevel() {
    const LSTATUS status = ::RegDeleteKeyValueA(HKEY_LOCAL_MACHINE, kOstrelKey, kLogLevelValue);
    return status == ERROR_FILE_NOT_FOUND ? ERROR_SUCCESS : status;
}

}  // namespace testregistry
