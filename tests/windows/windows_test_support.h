// Helpers of the Windows-only tests: the folder of the test programs, a private temporary
// folder, and the log lines the module wrote into a folder.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace windowstest {

// The folder of the running test program, where the build puts the module, the device library
// and the stand-in host program as well.
std::filesystem::path programFolder();

// A fresh, empty folder that GetTempPathA reports (through TMP and TEMP) for the object's
// lifetime; removed afterwards. Child processes started meanwhile inherit it.
class ScopedTemporaryFolder {
public:
    ScopedTemporaryFolder();
    ~ScopedTemporaryFolder();
    ScopedTemporaryFolder(const ScopedTemporaryFolder&) = delete;
    ScopedTemporaryFolder& operator=(const ScopedTemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
    std::vector<std::pair<std::string, std::string>> previous_;  // name, value ("" = unset)
};

// The lines of every .LOG file in folder, each without its time stamp ("ERROR ::=>...").
std::vector<std::string> logLines(const std::filesystem::path& folder);

// Names of the entries of a folder, sorted.
std::vector<std::string> folderEntries(const std::filesystem::path& folder);

}  // namespace windowstest
