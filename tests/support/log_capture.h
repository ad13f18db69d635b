// Test support: points the module's diagnostic log at a private temporary folder with a chosen
// level, and reads back what was written, without the time stamps.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

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
    // Forgets what was written so far, for newLines().
    void mark() { seen_ = lines().size(); }

    bool contains(const std::string& line) const;

    const std::filesystem::path& temporaryFolder() const { return folder_; }
    std::filesystem::path logFolder() const;

private:
    std::filesystem::path folder_;
    std::string previousTmpdir_;
    bool hadTmpdir_ = false;
    std::size_t seen_ = 0;
};

// The two kinds of line the module writes.
inline std::string infoLine(const std::string& message) { return "DEBUG ::=>" + message; }
inline std::string errorLine(const std::string& message) { return "ERROR ::=>" + message; }
