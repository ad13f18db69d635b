// What is measured: each scenario runs on raw libcrypto (where that makes sense) and on every
// module under measurement, with the same keys and inputs.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "p11bench/measure.h"
#include "p11bench/openssl_keys.h"
#include "p11bench/token_stack.h"

struct ReferenceKeys {
    Pkey rsa2048;
    Pkey rsa3072;
    Pkey p256;
    Pkey p256Peer;  // the other side of ECDH
};

struct Scenario {
    std::string name;
    // Raw libcrypto doing the same work; none for calls that only a module has.
    std::optional<Operation> reference;
    // The operation on one module, or on several threads (one operation each) of it.
    std::function<std::vector<Operation>(const TokenStack&)> onModule;
    std::optional<double> targetRatio;  // wanted at least, of raw libcrypto's rate
    int threads = 1;  // the reference runs on as many threads as the module's operation
};

std::vector<Scenario> makeScenarios(const ReferenceKeys& keys, bool withThreads);
