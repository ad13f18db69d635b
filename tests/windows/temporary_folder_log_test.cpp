// Where the log goes on Windows: the folder that GetTempPathA reports, with its backslashes and
// its trailing separator, then "/Kelvanetics/", the process folder and "/" with forward
// slashes; the process folder is the executable's base name cut at its first ".".
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <gtest/gtest.h>
#include <windows.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "log/log.h"
#include "support/windows_registry.h"
#include "windows_test_support.h"

namespace fs = std::filesystem;
using windowstest::folderEntries;
using windowstest::logLines;
using windowstest::ScopedTemporaryFolder;

namespace {

constexpr long kAccessDenied = 5;  // ERROR_ACCESS_DENIED

std::string temporaryFolderFromWindows() {
    char folder[1024] = {};
    const DWORD length = ::GetTempPathA(static_cast<DWORD>(sizeof folder), folder);
    return std::string(folder, length);
}

bool contains(const std::vector<std::string>& lines, const std::string& line) {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

// Nothing configured in a private HKEY_LOCAL_MACHINE: level 2, errors are written.
class TemporaryFolderLog : public ::testing::Test {
protected:
    testregistry::PrivateLocalMachine localMachine_;
};

TEST_F(TemporaryFolderLog, GoesUnderTheFolderThatGetTempPathReports) {
    const std::string temporary = temporaryFolderFromWindows();
    ASSERT_FALSE(temporary.empty());
    EXPECT_EQ(temporary.back(), '\\');
    // On a machine where the folders are missing, the first two messages make them.
    const std::string message = "temporary folder check " + std::to_string(::GetTickCount64());
    for (int attempt = 0; attempt < 3; ++attempt) {
        logError(message);
    }
    EXPECT_TRUE(contains(logLines(fs::path(temporary) / "Kelvanetics" / "windows_tests"),
                         "ERROR ::=>" + message));
}

// "C:\...\fresh\" + "/Kelvanetics/windows_tests/": only the forward slashes separate folders
// for the folder maker, which creates one missing level per message. The first message makes
// Kelvanetics and is lost, the second makes the process folder and is written.
TEST_F(TemporaryFolderLog, FreshFolderGainsOneLevelPerMessage) {
    ScopedTemporaryFolder temporary;
    ASSERT_EQ(temporaryFolderFromWindows(), temporary.path().string() + "\\");

    ::testing::internal::CaptureStdout();
    logError("first");
    const std::string output = ::testing::internal::GetCapturedStdout();
    EXPECT_EQ(output, "\nUnable to write log");
    EXPECT_EQ(folderEntries(temporary.path()), std::vector<std::string>{"Kelvanetics"});
    EXPECT_TRUE(folderEntries(temporary.path() / "Kelvanetics").empty());

    logError("second");
    logError("third");
    EXPECT_EQ(folderEntries(temporary.path() / "Kelvanetics"),
              std::vector<std::string>{"windows_tests"});
    EXPECT_EQ(logLines(temporary.path() / "Kelvanetics" / "windows_tests"),
              (std::vector<std::string>{"ERROR ::=>second", "ERROR ::=>third"}));
}

// A host whose executable is host.with.dots.exe logs into the folder "host". The host is a
// separate process and reads the machine's own registry value, which is removed for the test.
TEST(HostProcessLog, FolderIsTheExecutableNameCutAtItsFirstDot) {
    const long status = testregistry::deleteLogLevel();
    if (status == kAccessDenied) {
        GTEST_SKIP() << "HKEY_LOCAL_MACHINE cannot be written without administrator rights";
    }
    ASSERT_EQ(status, 0);
    ScopedTemporaryFolder temporary;
    fs::create_directory(temporary.path() / "Kelvanetics");

    const fs::path host = windowstest::programFolder() / "host.with.dots.exe";
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

    EXPECT_EQ(folderEntries(temporary.path() / "Kelvanetics"), std::vector<std::string>{"host"});
    EXPECT_EQ(logLines(temporary.path() / "Kelvanetics" / "host"),
              std::vector<std::string>{"ERROR ::=>C_GetInfo: not initialized"});
}

}  // namespace
