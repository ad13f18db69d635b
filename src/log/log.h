// The diagnostic log: one plain-text file per host process and per day under the user's
// temporary folder, one line per message, opened and closed for every line.
#pragma once

#include <cstdint>
#include <string>
#include <type_traits>

// Level from the machine-wide setting, read anew for every message: 1 exception, 2 error,
// 3 debug; 2 when nothing usable is configured.
int getLogLevel();

// The level at which logInfo writes.
constexpr int kInfoLogLevel = 3;

// Writes one line whatever the configured level. Never throws.
void writeLog(int level, const std::string& message);

// Entry and progress messages: written at level 3 (tagged "DEBUG ::=>") when the level is 3.
void logInfo(const std::string& message);
void logInfo(const char* message);
// Whether logInfo writes at the moment: lets a caller skip building a text that would be
// dropped.
bool infoLogEnabled();
// For texts that cost something to build (numbers, hexadecimal dumps): makeText runs only when
// the text will be written.
template <typename MakeText,
          typename = std::enable_if_t<std::is_invocable_r_v<std::string, MakeText>>>
void logInfo(MakeText&& makeText) {
    if (infoLogEnabled()) {
        writeLog(kInfoLogLevel, makeText());
    }
}
// Rejections and failures: written at level 2 (tagged "ERROR ::=>") when the level is 2 or more.
void logError(const std::string& message);

// Decimal text of a number as log messages append it; negative values get a leading "-".
std::string decimalText(std::int64_t value);
std::string decimalText(std::uint64_t value);
template <typename Integer, typename = std::enable_if_t<std::is_integral_v<Integer> &&
                                                        !std::is_same_v<Integer, std::int64_t> &&
                                                        !std::is_same_v<Integer, std::uint64_t>>>
std::string decimalText(Integer value) {
    if constexpr (std::is_signed_v<Integer>) {
        return decimalText(static_cast<std::int64_t>(value));
    } else {
        return decimalText(static_cast<std::uint64_t>(value));
    }
}
