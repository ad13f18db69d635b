// ostrel-token: creates and manages the software tokens of a token store.
#include <unistd.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include "common/control_characters.h"
#include "store/store_location.h"
#include "token/token_service.h"
#include "tool/arguments.h"

using namespace softtoken;
using namespace softtoken::tool;

namespace {

// For tests only: with OSTREL_TOKEN_TEST_STOP_IN_WRITE set to an open file descriptor, the tool
// writes one byte to it from inside its first write transaction, just before the commit, and
// then waits there for ever. A test reads the byte and kills the tool at exactly that moment.
void stopInsideWritesWhenAsked(TokenStore& store) {
    const char* value = secure_getenv("OSTREL_TOKEN_TEST_STOP_IN_WRITE");
    if (value == nullptr || *value == '\0') {
        return;
    }
    const int descriptor = std::atoi(value);
    store.setBeforeCommit([descriptor] {
        const char ready = 1;
        if (write(descriptor, &ready, 1) == 1) {
            for (;;) {
                pause();
            }
        }
    });
}

std::vector<const Command*> allCommands() {
    std::vector<const Command*> commands;
    for (const auto* group : {&tokenCommands(), &objectCommands(), &faultCommands()}) {
        for (const Command& command : *group) {
            commands.push_back(&command);
        }
    }
    return commands;
}

void printOverview(std::ostream& out) {
    out << "usage: ostrel-token [--store DIR] COMMAND [ARGUMENTS]\n\n"
           "Manages the software tokens of a token store. The store is DIR, else\n"
           "$OSTREL_TOKEN_STORE, else $XDG_DATA_HOME/ostrel-token, else\n"
           "~/.local/share/ostrel-token.\n\ncommands:\n";
    for (const Command* command : allCommands()) {
        out << "  " << command->syntax.name << " " << command->syntax.usage << "\n      "
            << command->syntax.summary << "\n";
    }
    out << "\n'ostrel-token COMMAND --help' describes one command.\n";
}

void printCommandHelp(const CommandSyntax& syntax, std::ostream& out) {
    out << "usage: ostrel-token [--store DIR] " << syntax.name << " " << syntax.usage << "\n"
        << syntax.summary << "\n";
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> words(argv + 1, argv + argc);
    std::string folder;
    std::size_t next = 0;
    if (next < words.size() && words[next] == "--store") {
        if (next + 1 >= words.size()) {
            std::cerr << "ostrel-token: --store needs a folder\n";
            return kExitUsage;
        }
        folder = words[next + 1];
        next += 2;
    }
    if (next >= words.size()) {
        printOverview(std::cerr);
        return kExitUsage;
    }
    const std::string name = words[next++];
    if (name == "--help" || name == "help" || name == "-h") {
        printOverview(std::cout);
        return kExitDone;
    }
    const Command* chosen = nullptr;
    for (const Command* command : allCommands()) {
        if (name == command->syntax.name) {
            chosen = command;
        }
    }
    if (chosen == nullptr) {
        std::cerr << "ostrel-token: unknown command '" << printable(name) << "'\n";
        printOverview(std::cerr);
        return kExitUsage;
    }
    std::vector<std::string> rest(words.begin() + static_cast<long>(next), words.end());
    for (const std::string& word : rest) {
        if (word == "--help" || word == "-h") {
            printCommandHelp(chosen->syntax, std::cout);
            return kExitDone;
        }
    }
    if (folder.empty()) {
        folder = defaultStoreFolder();
    }
    if (folder.empty()) {
        std::cerr << "ostrel-token: no store folder: give --store DIR or set OSTREL_TOKEN_STORE\n";
        return kExitUsage;
    }
    TokenService service(folder);
    stopInsideWritesWhenAsked(service.store());
    ToolContext context{service, std::cout, std::cerr};
    Arguments arguments;
    std::string error;
    if (!parseArguments(chosen->syntax, rest, arguments, error)) {
        return usageError(context, chosen->syntax, error);
    }
    int result = chosen->run(context, arguments);
    service.shutDown();
    return result;
}
