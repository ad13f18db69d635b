#include "key_suite.h"

#include <cstdlib>

namespace softtoken::testing {

TemporaryFolder* KeySuite::folder_ = nullptr;
std::map<std::int32_t, OstrelKeyPair>* KeySuite::pairs_ = nullptr;
DeviceInstance KeySuite::instance_ = nullptr;

void KeySuite::SetUpTestSuite() {
    folder_ = new TemporaryFolder;
    pairs_ = new std::map<std::int32_t, OstrelKeyPair>;
    setenv("OSTREL_TOKEN_STORE", folder_->path().c_str(), 1);
    {
        TokenService admin(folder_->path());
        TokenSettings settings;
        settings.serial = kSerial;
        settings.userPin = kPin;
        ASSERT_EQ(createToken(admin, settings), 0);
    }
    ostrel_createInstance(&instance_);
    ASSERT_NE(instance_, nullptr);
    for (std::int32_t type : {kKeyTypeRsa2048, kKeyTypeEcP256, kKeyTypeEcP384, kKeyTypeEcP521}) {
        OstrelKeyPair record{};
        record.keyType = type;
        record.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
        ASSERT_EQ(ostrel_generateKeyPair(kSerial, kPin, &record, instance_), 0);
        (*pairs_)[type] = record;
    }
}

void KeySuite::TearDownTestSuite() {
    ostrel_releaseInstance(instance_);
    instance_ = nullptr;
    unsetenv("OSTREL_TOKEN_STORE");
    delete pairs_;
    delete folder_;
}

Bytes KeySuite::sign(const OstrelKeyPair& pair, const Bytes& input, bool pss, int* result) {
    unsigned char signature[1024];
    int length = sizeof signature;
    int answer =
        ostrel_signHash(kSerial, pair.keyReference, kPin, input.data(),
                        static_cast<int>(input.size()), signature, &length, false, instance_, pss);
    if (result != nullptr) {
        *result = answer;
    } else {
        EXPECT_EQ(answer, 0);
    }
    return answer == 0 ? Bytes(signature, signature + length) : Bytes();
}

PkeyPtr opensslKey(const char* algorithm, const char* parameter) {
    if (std::string(algorithm) == "RSA") {
        return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA",
                                         static_cast<std::size_t>(std::atoi(parameter))));
    }
    return PkeyPtr(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", parameter));
}

Bytes subjectPublicKeyInfo(EVP_PKEY* key) {
    int length = i2d_PUBKEY(key, nullptr);
    Bytes der(static_cast<std::size_t>(length));
    unsigned char* cursor = der.data();
    i2d_PUBKEY(key, &cursor);
    return der;
}

}  // namespace softtoken::testing
