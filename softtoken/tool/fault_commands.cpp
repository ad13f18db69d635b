// The fault command: makes the next calls of a device operation fail, in every process that
// uses the store.
#include <ostream>

#include "common/control_characters.h"
#include "common/token_error.h"
#include "store/fault_writes.h"
#include "store/records.h"
#include "token/token_service.h"
#include "tool/arguments.h"

namespace softtoken::tool {

namespace {

const CommandSyntax kFault{
    "fault",
    "OPERATION CODE [--times N] | --clear [OPERATION] | --list",
    "The next N calls (default 1; 0: every call until cleared) of the device operation "
    "OPERATION (its name without the ostrel_ prefix, such as signHash) fail with CODE, in "
    "whichever process makes them. --clear removes the faults, --list shows them.",
    {"--times"},
    {"--clear", "--list"},
    0,
    2};

int runFault(ToolContext& context, const Arguments& arguments) {
    const auto& words = arguments.positional;
    if (arguments.flags.count("--list") != 0) {
        SnapshotPtr snapshot;
        if (int result = context.service.snapshot(snapshot); result != kOk) {
            return tokenError(context, kFault, result);
        }
        for (const auto& [operation, fault] : snapshot->faults) {
            context.out << printable(operation) << "\t" << fault.code << "\t"
                        << (fault.remaining == 0 ? std::string("always")
                                                 : std::to_string(fault.remaining))
                        << "\n";
        }
        return kExitDone;
    }
    if (arguments.flags.count("--clear") != 0) {
        if (words.size() > 1) {
            return usageError(context, kFault, "--clear takes one operation");
        }
        std::string operation = words.empty() ? "" : words[0];
        if (!operation.empty() && !isFaultableOperation(operation)) {
            return usageError(context, kFault, "unknown operation '" + operation + "'");
        }
        int result = context.service.store().write(
            [&](Database& database) { return clearFaults(database, operation); });
        return result == kOk ? kExitDone : tokenError(context, kFault, result);
    }
    if (words.size() != 2) {
        return usageError(context, kFault, "give OPERATION and CODE");
    }
    if (!isFaultableOperation(words[0])) {
        return usageError(
            context, kFault,
            "unknown operation '" + words[0] + "'; known: " + faultableOperationNames());
    }
    long code = 0;
    long times = 1;
    if (!parseNumber(words[1], -2147483647L - 1, 2147483647L, code) || code == 0) {
        return usageError(context, kFault, "CODE must be a non-zero 32-bit number");
    }
    if (arguments.has("--times") && !parseNumber(arguments.option("--times"), 0, 1000000, times)) {
        return usageError(context, kFault, "--times takes a number from 0 to 1000000");
    }
    int result = context.service.store().write([&](Database& database) {
        return setFault(database, words[0], static_cast<int>(code), static_cast<int>(times));
    });
    return result == kOk ? kExitDone : tokenError(context, kFault, result);
}

}  // namespace

const std::vector<Command>& faultCommands() {
    static const std::vector<Command> commands = {{kFault, runFault}};
    return commands;
}

}  // namespace softtoken::tool
