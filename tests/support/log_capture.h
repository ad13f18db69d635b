// Test support: points the module's diagnostic log at a private temporary folder with a chosen
// level, and reads back what was written, without the time stamps.
//
// The level is the machine-wide setting made private to the test process: on POSIX a settings
// file of the capture's own, on Windows the registry value in a private HKEY_LOCAL_MACHINE
// (support/windows_registry.h). The temporary folder is the one the OS reports: TMPDIR on POSIX,
// TMP and TEMP on Windows, which GetTempPathA reads. One capture at a time per process.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#if defined(_WIN32)
#include "support/windows_registry.h"
#endif

class LogCapture {
public:
    explicit LogCapture(int level = 3);
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    void setLevel(int level);

    // Every line written so far, each as "<tag><message>" ("DEBUG ::=>C_Initialize").
    std::vector<std::string> lines() const;
    // The lines written since the previous call of newLines() (or since construction).
    std::vector<std::string> newLines();
    // newLines() without what the device monitor writes from its own thread, which lands at
    // moments no test controls.
    std::vector<std::string> newCallLines();
    // Forgets what was written so far, for newLines().
    void mark() { seen_ = lines().size(); }

    bool contains(const std::string& line) const;

    const std::filesystem::path& temporaryFolder() const { return folder_; }
    std::filesystem::path logFolder() const;

private:
    // An environment variable as it was before the capture replaced it.
    struct SavedVariable {
        const char* name;
        bool wasSet;
        std::string value;
    };

    std::filesystem::path folder_;
#if defined(_WIN32)
    testregistry::PrivateLocalMachine privateLocalMachine_;
#endif
    std::vector<SavedVariable> savedVariables_;
    std::size_t seen_ = 0;
};

// The two kinds of line the module writes.
inline std::string infoLine(const std::string& message) { return "DEBUG ::=>" + message; }
inline std::string errorLine(const std::string& message) { return "ERROR ::=>" + message; }
