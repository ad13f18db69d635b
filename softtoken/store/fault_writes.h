// Injected failures: the next calls of a named device operation fail with a chosen code, in
// whichever process makes them. They live in the store so that the tool can reach a module
// running elsewhere.
#pragma once

#include <string>

namespace softtoken {

class Database;

// times 0: every call fails until the fault is cleared.
int setFault(Database& database, const std::string& operation, int code, int times);
// An empty operation clears every fault.
int clearFaults(Database& database, const std::string& operation);
// Takes one use of the operation's fault, if any is left: *code receives it and *fired tells
// whether one was taken. The count is shared by all processes.
int takeFault(Database& database, const std::string& operation, int* code, bool* fired);

}  // namespace softtoken
