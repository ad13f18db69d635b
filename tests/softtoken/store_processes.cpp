#include "store_processes.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

namespace softtoken::testing {

pid_t startProgram(std::vector<std::string> arguments, bool quiet, bool readyArgument) {
    int ready[2] = {-1, -1};
    if (readyArgument) {
        if (pipe(ready) != 0) {
            return -1;
        }
        arguments.push_back(std::to_string(ready[1]));
    }
    pid_t child = fork();
    if (child == 0) {
        if (readyArgument) {
            close(ready[0]);
        }
        int nothing = open("/dev/null", O_WRONLY);
        dup2(nothing, STDOUT_FILENO);
        if (quiet) {
            dup2(nothing, STDERR_FILENO);
        }
        std::vector<char*> argv;
        for (std::string& argument : arguments) {
            argv.push_back(&argument[0]);
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (!readyArgument || child < 0) {
        return child;
    }
    close(ready[1]);
    pollfd wait{ready[0], POLLIN, 0};
    char byte = 0;
    const bool started = poll(&wait, 1, 30000) == 1 && read(ready[0], &byte, 1) == 1;
    close(ready[0]);
    if (!started) {
        kill(child, SIGKILL);
        waitForProgram(child);
        return -1;
    }
    return child;
}

Ending waitForProgram(pid_t child) {
    int status = 0;
    Ending ending;
    if (waitpid(child, &status, 0) != child) {
        return ending;
    }
    ending.killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    ending.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ending;
}

std::vector<std::string> workerArguments(const std::string& store, const std::string& serial,
                                         const std::string& pinSerial, const std::string& journal,
                                         const std::string& tag, const char* mode, int operations) {
    return {OSTREL_STORE_WORKER,       store, serial, pinSerial, journal, tag, mode,
            std::to_string(operations)};
}

std::vector<std::string> moduleWorkerArguments(const std::string& store, const std::string& serial,
                                               const std::string& journal, const std::string& tag,
                                               int operations) {
    return {OSTREL_MODULE_WORKER, store, serial, journal, tag, std::to_string(operations)};
}

}  // namespace softtoken::testing
