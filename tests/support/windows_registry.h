// Test support, Windows only: the registry value "logLevel" under HKEY_LOCAL_MACHINE
// "Software\Kelvanetics\Ostrel", from which the module reads its log level on every message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace testregistry {

// Gives this process an HKEY_LOCAL_MACHINE of its own for the object's lifetime: a fresh, empty
// key under HKEY_CURRENT_USER that every registry call of the process, the module's included,
// reaches through HKEY_LOCAL_MACHINE (RegOverridePredefKey). Test processes that run side by side
// then do not share a log level, and none needs the rights to write the machine's own.
// One at a time per process.
class PrivateLocalMachine {
public:
    PrivateLocalMachine();
    ~PrivateLocalMachine();
    PrivateLocalMachine(const PrivateLocalMachine&) = delete;
    PrivateLocalMachine& operator=(const PrivateLocalMachine&) = delete;

private:
    std::string keyPath_;  // under HKEY_CURRENT_USER
};

// Write or remove "logLevel" under HKEY_LOCAL_MACHINE as this process sees it. Each answers the
// Win32 error code: 0 on success, ERROR_ACCESS_DENIED (5) for the machine's own key without
// administrator rights.
long setLogLevelDword(std::uint32_t value);
long setLogLevelString(const std::string& value);  // REG_SZ, stored with its NUL
long setLogLevelBinary(const std::vector<unsigned char>& bytes);
long deleteLogLevel();  // 0 also when there was no value

}  // namespace testregistry
