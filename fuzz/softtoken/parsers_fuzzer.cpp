// libFuzzer entry points of the software token's parser harness. The first byte of an input
// chooses the operation; the rest are its arguments (fuzz_input.h).
#include <cstddef>
#include <cstdint>
#include <memory>

#include "parser_targets.h"

using namespace softtoken::fuzz;

namespace {

// Made once per process: a token with keys costs far more than an operation.
std::unique_ptr<FuzzToken>& token() {
    static std::unique_ptr<FuzzToken> made;
    return made;
}

void removeToken() {
    token().reset();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    token() = std::make_unique<FuzzToken>();
    std::atexit(removeToken);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Target = void (*)(FuzzInput&, const FuzzToken&);
    static const Target kTargets[] = {fuzzCertificate, fuzzCertificateFolder, fuzzKeyImport,
                                      fuzzEcdhPeer,    fuzzEncryption,        fuzzVerification};
    FuzzInput input(data, size);
    const std::uint8_t choice = input.byte();
    kTargets[choice % (sizeof kTargets / sizeof kTargets[0])](input, *token());
    return 0;
}
