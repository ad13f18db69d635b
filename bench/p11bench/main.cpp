// p11bench: PKCS #11 modules side by side with raw libcrypto, on the same keys, in one run.
//
//   p11bench --keys DIR --pin PIN --module NAME=PATH[:destroy-derived] [--module ...]
//            [--objects N] [--seconds S] [--only TEXT]
//
// DIR holds rsa2048.pem, rsa3072.pem, p256.pem and p256-peer.pem; every module's first token
// holds the first three under the labels bench-rsa2048, bench-rsa3072 and bench-p256 (see
// bench/run-p11bench.sh, which prepares our token and a SoftHSMv2 token that way). Each module
// gets certificates until its token holds N objects, for the search. For each scenario the
// table shows operations per second, the ratio to raw libcrypto where there is one, and the
// ratio of each module to the first.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "p11bench/scenarios.h"

namespace {

struct Options {
    std::string keys;
    std::string pin;
    std::vector<StackOptions> modules;
    std::size_t objects = 1000;
    double seconds = 1.0;
    std::string only;  // runs only the scenarios whose name holds this text
};

[[noreturn]] void usage(const char* problem) {
    std::fprintf(stderr,
                 "p11bench: %s\nusage: p11bench --keys DIR --pin PIN "
                 "--module NAME=PATH[:destroy-derived]... [--objects N] [--seconds S] "
                 "[--only TEXT]\n",
                 problem);
    std::exit(2);
}

Options parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string argument = argv[i];
        if (i + 1 >= argc) {
            usage(("no value for " + argument).c_str());
        }
        const std::string value = argv[++i];
        if (argument == "--keys") {
            options.keys = value;
        } else if (argument == "--pin") {
            options.pin = value;
        } else if (argument == "--objects") {
            options.objects = std::stoul(value);
        } else if (argument == "--only") {
            options.only = value;
        } else if (argument == "--seconds") {
            options.seconds = std::stod(value);
        } else if (argument == "--module") {
            const std::size_t equals = value.find('=');
            if (equals == std::string::npos) {
                usage("--module takes NAME=PATH");
            }
            StackOptions module;
            module.name = value.substr(0, equals);
            module.path = value.substr(equals + 1);
            const std::string flag = ":destroy-derived";
            if (module.path.size() > flag.size() &&
                module.path.compare(module.path.size() - flag.size(), flag.size(), flag) == 0) {
                module.path.resize(module.path.size() - flag.size());
                module.destroysDerivedKeys = true;
            }
            options.modules.push_back(module);
        } else {
            usage(("unknown option " + argument).c_str());
        }
    }
    if (options.keys.empty() || options.pin.empty() || options.modules.empty()) {
        usage("--keys, --pin and at least one --module are needed");
    }
    return options;
}

// Operations per second as text, in the unit that reads best.
std::string rateText(double rate) {
    char text[32];
    std::snprintf(text, sizeof text, "%.0f/s", rate);
    return text;
}

std::string timeText(double rate) {
    char text[32];
    const double microseconds = 1e6 / rate;
    if (microseconds >= 1000) {
        std::snprintf(text, sizeof text, "%.2f ms", microseconds / 1000);
    } else {
        std::snprintf(text, sizeof text, "%.2f us", microseconds);
    }
    return text;
}

}  // namespace

int main(int argc, char** argv) {
    try {
        Options options = parse(argc, argv);
        ReferenceKeys keys{readPrivateKey(options.keys + "/rsa2048.pem"),
                           readPrivateKey(options.keys + "/rsa3072.pem"),
                           readPrivateKey(options.keys + "/p256.pem"),
                           readPrivateKey(options.keys + "/p256-peer.pem")};
        std::vector<std::unique_ptr<TokenStack>> stacks;
        for (StackOptions& module : options.modules) {
            module.pin = options.pin;
            module.objects = options.objects;
            stacks.push_back(std::make_unique<TokenStack>(module, keys.p256.get()));
        }
        const std::chrono::duration<double> duration(options.seconds);
        std::printf("%-40s %12s", "scenario", "libcrypto");
        for (const auto& stack : stacks) {
            std::printf(" %14s %9s %9s", stack->name().c_str(), "time", "÷crypto");
        }
        std::printf("  target\n");
        for (const Scenario& scenario : makeScenarios(keys, true)) {
            if (scenario.name.find(options.only) == std::string::npos) {
                continue;
            }
            std::printf("%-40s", scenario.name.c_str());
            std::optional<double> reference;
            if (scenario.reference) {
                reference =
                    scenario.threads == 1
                        ? operationsPerSecond(*scenario.reference, duration)
                        : operationsPerSecond(
                              std::vector<Operation>(static_cast<std::size_t>(scenario.threads),
                                                     *scenario.reference),
                              duration);
                std::printf(" %12s", rateText(*reference).c_str());
            } else {
                std::printf(" %12s", "-");
            }
            std::fflush(stdout);
            for (const auto& stack : stacks) {
                try {
                    const std::vector<Operation> operations = scenario.onModule(*stack);
                    const double rate = operations.size() == 1
                                            ? operationsPerSecond(operations[0], duration)
                                            : operationsPerSecond(operations, duration);
                    std::printf(" %14s %9s", rateText(rate).c_str(), timeText(rate).c_str());
                    if (reference) {
                        std::printf(" %9.2f", rate / *reference);
                    } else {
                        std::printf(" %9s", "-");
                    }
                } catch (const std::exception& error) {
                    std::printf(" %34s", ("failed: " + std::string(error.what())).c_str());
                }
                std::fflush(stdout);
            }
            if (scenario.targetRatio) {
                std::printf("  >= %.2f", *scenario.targetRatio);
            }
            std::printf("\n");
        }
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "p11bench: %s\n", error.what());
        return 1;
    }
}
