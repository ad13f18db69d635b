// The token the harness works on: a private store in a temporary folder with one plugged token
// that holds a key pair of each curve and an RSA pair, and a folder for certificate files.
#pragma once

#include <array>
#include <string>

#include "device/ostrel_device.h"

namespace softtoken::fuzz {

constexpr const char* kSerial = "FUZZ01";
constexpr const char* kPin = "1234";

class FuzzToken {
public:
    // Aborts when the token cannot be made: nothing could be fuzzed without it.
    FuzzToken();
    ~FuzzToken();
    FuzzToken(const FuzzToken&) = delete;
    FuzzToken& operator=(const FuzzToken&) = delete;

    DeviceInstance instance() const { return instance_; }
    // P-256, P-384, P-521 and RSA-2048, in that order.
    static constexpr std::size_t kKeyCount = 4;
    const OstrelKeyPair& key(std::size_t index) const { return keys_[index % kKeyCount]; }
    // An empty folder for the certificate files of one run.
    const std::string& certificateFolder() const { return certificates_; }

private:
    std::string root_;
    std::string certificates_;
    DeviceInstance instance_ = nullptr;
    std::array<OstrelKeyPair, kKeyCount> keys_{};
};

// Stops the run with a message when an invariant of the operations does not hold: libFuzzer
// saves the input that did it, like any crash.
void require(bool condition, const char* what);

}  // namespace softtoken::fuzz
