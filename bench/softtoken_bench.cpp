// Speed of the software token's hot paths next to plain OpenSSL: what a PIN check costs the
// first time and once cached, and an RSA-2048 signature through the token against the same
// signature made with libcrypto directly. Run: softtoken_bench [--benchmark_filter=...]
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "crypto/pin_kdf.h"
#include "device/ostrel_device.h"

namespace {

constexpr const char* kSerial = "BENCH001";
constexpr const char* kPin = "1234";

// One token with an RSA-2048 pair in a private store, made by the ostrel-token tool.
class BenchToken {
public:
    BenchToken() {
        char folder[] = "/tmp/ostrel-bench-XXXXXX";
        if (mkdtemp(folder) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        store_ = folder;
        setenv("OSTREL_TOKEN_STORE", store_.c_str(), 1);
        run(std::string(OSTREL_TOKEN_TOOL) + " init " + kSerial + " --label bench --pin " + kPin);
        run(std::string(OSTREL_TOKEN_TOOL) + " keygen " + kSerial + " --type rsa2048 --pin " +
            kPin + " --label signer --id 01");
        ostrel_createInstance(&instance_);
        const auto& pairs = ostrel_getKeyPairList(kSerial, instance_);
        if (pairs.empty()) {
            throw std::runtime_error("no key pair");
        }
        pair_ = pairs.front();
    }
    ~BenchToken() {
        ostrel_releaseInstance(instance_);
        run("rm -rf " + store_);
    }
    DeviceInstance instance() const { return instance_; }
    const OstrelKeyPair& pair() const { return pair_; }

private:
    static void run(const std::string& command) {
        if (std::system((command + " >/dev/null").c_str()) != 0) {
            throw std::runtime_error("failed: " + command);
        }
    }
    std::string store_;
    DeviceInstance instance_ = nullptr;
    OstrelKeyPair pair_{};
};

BenchToken& token() {
    static BenchToken instance;
    return instance;
}

const std::vector<unsigned char> kDigest(32, 0x5A);

void BM_PinDerivationFirstCheck(benchmark::State& state) {
    const softtoken::Bytes salt(16, 0x11);
    softtoken::PinDerivation derivation;
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            softtoken::derivePin(kPin, salt, softtoken::kPinIterations, derivation));
    }
}
BENCHMARK(BM_PinDerivationFirstCheck)->Unit(benchmark::kMillisecond);

void BM_PinCheckCached(benchmark::State& state) {
    int retries = 0;
    ostrel_validatePassword(kSerial, kPin, 1, &retries, token().instance());
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            ostrel_validatePassword(kSerial, kPin, 1, &retries, token().instance()));
    }
}
BENCHMARK(BM_PinCheckCached)->Unit(benchmark::kMicrosecond);

void BM_Rsa2048SignOpenssl(benchmark::State& state) {
    EVP_PKEY* key = EVP_RSA_gen(2048);
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new(key, nullptr);
    EVP_PKEY_sign_init(context);
    EVP_PKEY_CTX_set_rsa_padding(context, RSA_PKCS1_PADDING);
    EVP_PKEY_CTX_set_signature_md(context, EVP_sha256());
    std::vector<unsigned char> signature(256);
    for (auto _ : state) {
        std::size_t length = signature.size();
        benchmark::DoNotOptimize(
            EVP_PKEY_sign(context, signature.data(), &length, kDigest.data(), kDigest.size()));
    }
    EVP_PKEY_CTX_free(context);
    EVP_PKEY_free(key);
}
BENCHMARK(BM_Rsa2048SignOpenssl)->Unit(benchmark::kMicrosecond);

void BM_Rsa2048SignToken(benchmark::State& state) {
    const OstrelKeyPair& pair = token().pair();
    unsigned char signature[1024];
    for (auto _ : state) {
        int length = sizeof signature;
        benchmark::DoNotOptimize(ostrel_signHash(kSerial, pair.keyReference, kPin, kDigest.data(),
                                                 static_cast<int>(kDigest.size()), signature,
                                                 &length, false, token().instance(), false));
    }
}
BENCHMARK(BM_Rsa2048SignToken)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
