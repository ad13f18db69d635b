// Where the log goes: the temporary folder and the host process's name.
#include <algorithm>
#include <cstdio>
#include <exception>

#include "log/log_internal.h"
#include "platform/platform.h"

namespace logdetail {

void appendBounded(std::string& path, std::string_view text) {
    const std::size_t room = kPathCapacity - 1 - std::min(path.size(), kPathCapacity - 1);
    path.append(text.substr(0, room));
}

int getLogBaseFolderPath(std::string& folder) {
    try {
        folder.clear();
        appendBounded(folder, platform::temporaryFolder());
        if (platform::isDirectory(folder)) {
            return 0;
        }
    } catch (const std::exception& error) {
        printToStdout("Exception in getLogBaseFolderPath(): ", error.what());
    } catch (...) {
        printToStdout("Exception in getLogBaseFolderPath(): ", "unknown exception");
    }
    folder.clear();
    return -1;
}

std::string getProcessName() {
    try {
        const std::string name = platform::executableBaseName();
        return name.substr(0, name.find('.'));
    } catch (const std::exception& error) {
        printToStdout("Exception in getProcessName(): ", error.what());
    } catch (...) {
        printToStdout("Exception in getProcessName(): ", "unknown exception");
    }
    return "OstrelKey Interface";
}

void printToStdout(const char* text, const char* detail) {
    std::fputs(text, stdout);
    std::fputs(detail, stdout);
}

}  // namespace logdetail
