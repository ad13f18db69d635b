#include "tool/arguments.h"

#include <cerrno>
#include <cstdlib>
#include <ostream>

#include "common/control_characters.h"
#include "common/token_error.h"

namespace softtoken::tool {

std::string Arguments::option(const std::string& name, const std::string& fallback) const {
    auto found = options.find(name);
    return found != options.end() ? found->second : fallback;
}

bool parseArguments(const CommandSyntax& syntax, const std::vector<std::string>& words,
                    Arguments& parsed, std::string& error) {
    bool optionsEnded = false;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (!optionsEnded && word == "--") {
            optionsEnded = true;
        } else if (!optionsEnded && word.size() > 2 && word.compare(0, 2, "--") == 0) {
            if (syntax.flagOptions.count(word) != 0) {
                parsed.flags.insert(word);
            } else if (syntax.valueOptions.count(word) != 0) {
                if (i + 1 >= words.size()) {
                    error = "option " + word + " needs a value";
                    return false;
                }
                parsed.options[word] = words[++i];
            } else {
                error = "unknown option " + word;
                return false;
            }
        } else {
            parsed.positional.push_back(word);
        }
    }
    if (parsed.positional.size() < syntax.minPositional) {
        error = "missing arguments";
        return false;
    }
    if (parsed.positional.size() > syntax.maxPositional) {
        error = "unexpected argument '" + parsed.positional[syntax.maxPositional] + "'";
        return false;
    }
    return true;
}

bool parseNumber(const std::string& text, long minimum, long maximum, long& value) {
    if (text.empty() || text.size() > 18) {
        return false;
    }
    for (std::size_t i = 0; i < text.size(); ++i) {
        bool sign = i == 0 && text[i] == '-' && text.size() > 1;
        if (!sign && (text[i] < '0' || text[i] > '9')) {
            return false;
        }
    }
    errno = 0;
    long parsed = std::strtol(text.c_str(), nullptr, 10);
    if (errno != 0 || parsed < minimum || parsed > maximum) {
        return false;
    }
    value = parsed;
    return true;
}

int usageError(ToolContext& context, const CommandSyntax& syntax, const std::string& message) {
    // Messages quote what the user typed: escaped like every other text the tool prints.
    context.err << "ostrel-token " << syntax.name << ": " << printable(message) << "\n"
                << "usage: ostrel-token " << syntax.name << " " << syntax.usage << "\n";
    return kExitUsage;
}

int tokenError(ToolContext& context, const CommandSyntax& syntax, int code) {
    context.err << "ostrel-token " << syntax.name << ": " << describeError(code) << " (code "
                << code << ")\n";
    return kExitFailed;
}

}  // namespace softtoken::tool
