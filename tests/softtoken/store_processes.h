// Processes of the store tests: the store workers and the ostrel-token tool, started, killed
// and waited for.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace softtoken::testing {

// Starts a program with its standard output (and, when quiet, its standard error) sent to
// /dev/null. With readyArgument, a pipe's write end is passed as the last argument and the call
// returns once the program wrote a byte to it (or 30 s passed). -1 when it could not start or
// never got ready.
pid_t startProgram(std::vector<std::string> arguments, bool quiet, bool readyArgument = false);

struct Ending {
    bool killed = false;  // ended by SIGKILL
    int exitCode = -1;    // when it exited
};
Ending waitForProgram(pid_t child);

// Runs the worker: softtoken_store_worker STORE SERIAL PIN_SERIAL JOURNAL TAG MODE OPERATIONS.
std::vector<std::string> workerArguments(const std::string& store, const std::string& serial,
                                         const std::string& pinSerial, const std::string& journal,
                                         const std::string& tag, const char* mode, int operations);

// Runs the module worker: softtoken_module_worker STORE SERIAL JOURNAL TAG OPERATIONS.
std::vector<std::string> moduleWorkerArguments(const std::string& store, const std::string& serial,
                                               const std::string& journal, const std::string& tag,
                                               int operations);

}  // namespace softtoken::testing
