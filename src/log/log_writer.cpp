// writeLog: one line per call, in a file opened and closed for that line. No lock: threads
// append on their own and their lines may interleave, but each line goes out in one write.
#include <cstdio>
#include <exception>

#include "log/log.h"
#include "log/log_internal.h"
#include "platform/platform.h"

namespace {

using logdetail::printToStdout;

// Every tag is ten characters. Levels other than 1, 2 and 3 get the INFO tag.
const char* levelTag(int level) {
    switch (level) {
        case logdetail::kExceptionLevel:
            return "EXCEP ::=>";
        case logdetail::kErrorLevel:
            return "ERROR ::=>";
        case logdetail::kDebugLevel:
            return "DEBUG ::=>";
        default:
            return "INFO  ::=>";
    }
}

// Day first, no year, two colons after the month, a blank after the arrow: the established
// format that existing log readers expect.
std::string timeStamp(const platform::LocalTime& now) {
    char text[96] = {};
    std::snprintf(text, sizeof text, "%02d/%02d::%02d:%02d:%02d:%03d-> ", now.day, now.month,
                  now.hour, now.minute, now.second, now.millisecond);
    return text;
}

void writeLine(int level, const std::string& message) {
    std::string path;
    if (logdetail::getLogBaseFolderPath(path) != 0) {
        // Goes on from an empty base: the path then starts at the root of the current drive.
        printToStdout("\nUnable to getLogBaseFolderPath");
    }
    const std::size_t baseLength = path.size();
    logdetail::appendBounded(path, "/Kelvanetics/");
    logdetail::appendBounded(path, logdetail::getProcessName());
    logdetail::appendBounded(path, "/");
    try {
        logdetail::createLogFolder(path);  // its result is of no use here
    } catch (const std::exception& error) {
        printToStdout("Exception in Create Log Folder: ", error.what());
    } catch (...) {
        printToStdout("Exception in Create Log Folder: ", "unknown exception");
    }
    logdetail::appendBounded(path, platform::localDateText());
    logdetail::appendBounded(path, ".LOG");

    std::string line = timeStamp(platform::localTime());
    line += levelTag(level);
    line += message;  // as given, line feeds and all
    line += '\n';     // binary: no carriage return
    if (!platform::appendToFile(path, baseLength, line)) {
        printToStdout("\nUnable to write log");
    }
}

}  // namespace

void writeLog(int level, const std::string& message) {
    // A failure of the log must never reach the export that logged.
    try {
        writeLine(level, message);
    } catch (const std::exception& error) {
        printToStdout("Exception in write log : ", error.what());
    } catch (...) {
        printToStdout("Exception in write log : ", "unknown exception");
    }
}
