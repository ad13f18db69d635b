// Pieces of the diagnostic log shared by its source files; not for the rest of the module.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace logdetail {

constexpr int kExceptionLevel = 1;
constexpr int kErrorLevel = 2;
constexpr int kDebugLevel = 3;

// Log paths live in 1024-byte buffers on the original platform: at most 1023 characters.
constexpr std::size_t kPathCapacity = 1024;

// Appends as much of text as still fits into a log path.
void appendBounded(std::string& path, std::string_view text);

// Fills folder with the temporary folder, trailing separator included, and returns 0 when it is
// an existing directory; otherwise empties folder and returns -1.
int getLogBaseFolderPath(std::string& folder);

// Base name of the host's executable cut before its first "." ("certutil" for certutil.exe).
std::string getProcessName();

// Creates at most one missing level of folder (a path ending in "/"); see log_folder.cpp.
int createLogFolder(const std::string& folder);

// The log's own failures can only be reported on standard output: text, then detail.
void printToStdout(const char* text, const char* detail = "");

}  // namespace logdetail
