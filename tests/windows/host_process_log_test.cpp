// ostrel-pkcs11.dll, loaded by an application, logs under the application's name: the process
// folder is named after the host's executable, never after the DLL.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <string>
#include <vector>

#include "support/windows_registry.h"
#include "windows_test_support.h"

namespace fs = std::filesystem;
using windowstest::folderEntries;
using windowstest::logLines;
using windowstest::ScopedTemporaryFolder;

namespace {

constexpr long kAccessDenied = 5;  // ERROR_ACCESS_DENIED

// The host is a separate process and reads the machine's own registry value, which is removed
// for the test (level 2: the refusal is logged).
TEST(HostProcessLog, DllLogsIntoTheHostsFolder) {
    const long status = testregistry::deleteLogLevel();
    if (status == kAccessDenied) {
        GTEST_SKIP() << "HKEY_LOCAL_MACHINE cannot be written without administrator rights";
    }
    ASSERT_EQ(status, 0);
    ScopedTemporaryFolder temporary;
    fs::create_directory(temporary.path() / "Kelvanetics");

    const fs::path host = windowstest::programFolder() / "ostrel_log_host.exe";
    ASSERT_TRUE(fs::exists(host)) << host;
    std::string commandLine = "\"" + host.string() + "\"";
    STARTUPINFOA startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(::CreateProcessA(nullptr, commandLine.data(), nullptr, nullptr, FALSE, 0, nullptr,
                                 nullptr, &startup, &process))
        << "error " << ::GetLastError();
    ASSERT_EQ(::WaitForSingleObject(process.hProcess, 60000), WAIT_OBJECT_0);
    DWORD exitCode = 0;
    ::GetExitCodeProcess(process.hProcess, &exitCode);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    EXPECT_EQ(exitCode, 0u);

    EXPECT_EQ(folderEntries(temporary.path() / "Kelvanetics"),
              std::vector<std::string>{"ostrel_log_host"});
    EXPECT_EQ(logLines(temporary.path() / "Kelvanetics" / "ostrel_log_host"),
              std::vector<std::string>{"ERROR ::=>C_GetInfo: not initialized"});
}

}  // namespace
