// The level gate of the log: the machine-wide setting, read again for every message.
#include <optional>

#include "log/log.h"
#include "log/log_internal.h"
#include "platform/platform.h"

using logdetail::kDebugLevel;
using logdetail::kErrorLevel;

int getLogLevel() {
    const std::optional<std::int8_t> firstByte = platform::logLevelSettingFirstByte();
    // Nothing configured, or a value above debug: errors are logged. Zero and negative values
    // are levels too, and silence the module.
    if (!firstByte.has_value() || *firstByte > kDebugLevel) {
        return kErrorLevel;
    }
    return *firstByte;
}

bool infoLogEnabled() {
    return getLogLevel() >= kDebugLevel;
}

// logInfo writes level 3, tagged "DEBUG ::=>", not an INFO tag (compatibility register,
// entry 4).
void logInfo(const std::string& message) {
    if (infoLogEnabled()) {
        writeLog(kDebugLevel, message);
    }
}

void logInfo(const char* message) {
    if (infoLogEnabled()) {
        writeLog(kDebugLevel, message);
    }
}

void logError(const std::string& message) {
    if (getLogLevel() < kErrorLevel) {
        return;
    }
    writeLog(kErrorLevel, message);
}
