// One store with one token and one key pair of each kind that the cryptographic tests share:
// generating keys is slow, so it happens once per test program.
#pragma once

#include <map>

#include "token_fixture.h"

namespace softtoken::testing {

class KeySuite : public ::testing::Test {
public:
    static DeviceInstance instance() { return instance_; }

protected:
    static constexpr const char* kSerial = "CRYPTO";
    static constexpr const char* kPin = "24680";

    static void SetUpTestSuite();
    static void TearDownTestSuite();

    static const OstrelKeyPair& pair(std::int32_t keyType) { return (*pairs_)[keyType]; }
    // The token's signature over input; the result code goes to *result when given.
    static Bytes sign(const OstrelKeyPair& pair, const Bytes& input, bool pss,
                      int* result = nullptr);

private:
    static TemporaryFolder* folder_;
    static std::map<std::int32_t, OstrelKeyPair>* pairs_;
    static DeviceInstance instance_;
};

// A key made by OpenSSL alone, to check the token against.
PkeyPtr opensslKey(const char* algorithm, const char* parameter);
Bytes subjectPublicKeyInfo(EVP_PKEY* key);

}  // namespace softtoken::testing
