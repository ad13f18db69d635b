// Command-line parsing for ostrel-token: options with values, flags, and positional words.
#pragma once

#include <iosfwd>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace softtoken {
class TokenService;
}

namespace softtoken::tool {

// Exit codes: 0 done, 1 the token refused or failed, 2 the command line was wrong.
constexpr int kExitDone = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

struct Arguments {
    std::vector<std::string> positional;
    std::map<std::string, std::string> options;  // "--label" -> value
    std::set<std::string> flags;                 // "--clear"

    bool has(const std::string& option) const { return options.count(option) != 0; }
    std::string option(const std::string& name, const std::string& fallback = "") const;
};

struct CommandSyntax {
    const char* name;
    const char* usage;    // the arguments after the command name
    const char* summary;  // one line for the overview
    std::set<std::string> valueOptions;
    std::set<std::string> flagOptions;
    std::size_t minPositional;
    std::size_t maxPositional;
};

struct ToolContext {
    TokenService& service;
    std::ostream& out;
    std::ostream& err;
};

using CommandRunner = int (*)(ToolContext& context, const Arguments& arguments);

struct Command {
    CommandSyntax syntax;
    CommandRunner run;
};

// Parses words for syntax; false with a message for unknown options, missing values or a wrong
// number of positional arguments.
bool parseArguments(const CommandSyntax& syntax, const std::vector<std::string>& words,
                    Arguments& parsed, std::string& error);

// Whole decimal numbers within [minimum, maximum]; false for anything else.
bool parseNumber(const std::string& text, long minimum, long maximum, long& value);

// Reports a usage error ("ostrel-token NAME: message") and answers kExitUsage.
int usageError(ToolContext& context, const CommandSyntax& syntax, const std::string& message);
// Reports a token error with its code and answers kExitFailed.
int tokenError(ToolContext& context, const CommandSyntax& syntax, int code);

// The command groups, each defined beside its commands.
const std::vector<Command>& tokenCommands();
const std::vector<Command>& objectCommands();
const std::vector<Command>& faultCommands();

}  // namespace softtoken::tool
