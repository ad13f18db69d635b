// A private token store per test, the device library opened on it, and helpers to run the
// ostrel-token tool and the openssl program.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"
#include "device/ostrel_device.h"
#include "token/token_admin.h"
#include "token/token_service.h"

namespace softtoken::testing {

struct ProcessResult {
    int exitCode = -1;
    std::string output;  // standard output and error together
};

// Runs a program and waits for it.
ProcessResult runProgram(const std::vector<std::string>& arguments);

// A fresh, empty folder under the system's temporary folder; removed by the destructor.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

void writeFile(const std::string& path, const Bytes& contents);
Bytes readFile(const std::string& path);

class TokenFixture : public ::testing::Test {
protected:
    static constexpr const char* kSerial = "ST0001";
    static constexpr const char* kPin = "1234";

    void SetUp() override;
    void TearDown() override;

    // Creates a plugged token through a second connection to the store, as the tool would.
    void createToken(const std::string& serial, const std::string& pin = kPin, int retries = 10,
                     int capacity = 64);
    ProcessResult tool(std::vector<std::string> arguments);
    TokenService& admin() { return *admin_; }

    // Generates a key pair through the device operation; fails the test if that fails.
    OstrelKeyPair generate(std::int32_t keyType, std::uint32_t usage = 3,
                           const std::string& serial = kSerial);

    TemporaryFolder folder_;
    std::unique_ptr<TokenService> admin_;
    DeviceInstance instance_ = nullptr;
};

// Public keys for checking the token's output with libcrypto alone.
PkeyPtr publicKeyFromRecord(const OstrelKeyPair& pair);
Bytes sha(const EVP_MD* digest, const std::string& message);

// A self-signed certificate of key made with libcrypto; the serial number makes each distinct.
Bytes selfSignedCertificate(EVP_PKEY* key, const std::string& commonName, long serial);
// The record ostrel_importCertificate takes.
OstrelCertificate certificateRecord(const Bytes& der, const std::string& label = "",
                                    const Bytes& objectId = {});

}  // namespace softtoken::testing
