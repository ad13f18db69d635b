// What the module pays for an object lookup on a token with 1,000 objects: it fetches the key
// pair or certificate list on every lookup, so a list of an unchanged store must cost
// microseconds, not a copy of the whole list. Also the same lookups alternating between two
// tokens, as a module with two slots makes them.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "crypto/key_types.h"
#include "device/ostrel_device.h"
#include "token/token_admin.h"
#include "token/token_service.h"

namespace {

constexpr const char* kPin = "1234";
constexpr int kKeyPairs = 500;
constexpr int kCertificates = 500;

// A small self-signed certificate; the serial number makes each one distinct.
softtoken::Bytes makeCertificate(EVP_PKEY* key, long serial) {
    X509* certificate = X509_new();
    X509_set_version(certificate, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(certificate), serial);
    X509_gmtime_adj(X509_getm_notBefore(certificate), 0);
    X509_gmtime_adj(X509_getm_notAfter(certificate), 86400);
    X509_NAME* name = X509_get_subject_name(certificate);
    const std::string common = "Bench " + std::to_string(serial);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(common.c_str()), -1, -1, 0);
    X509_set_issuer_name(certificate, name);
    X509_set_pubkey(certificate, key);
    X509_sign(certificate, key, EVP_sha256());
    int length = i2d_X509(certificate, nullptr);
    softtoken::Bytes der(static_cast<std::size_t>(length));
    unsigned char* cursor = der.data();
    i2d_X509(certificate, &cursor);
    X509_free(certificate);
    return der;
}

// Two tokens of 1,000 objects each (500 P-256 key pairs, 500 certificates) in a private store.
class ObjectStore {
public:
    ObjectStore() {
        char folder[] = "/tmp/ostrel-bench-objects-XXXXXX";
        if (mkdtemp(folder) == nullptr) {
            throw std::runtime_error("mkdtemp");
        }
        store_ = folder;
        setenv("OSTREL_TOKEN_STORE", store_.c_str(), 1);
        {
            softtoken::TokenService admin(store_);
            for (const char* serial : {"OBJECTS1", "OBJECTS2"}) {
                fill(admin, serial);
            }
            admin.shutDown();
        }
        ostrel_createInstance(&instance_);
        if (instance_ == nullptr) {
            throw std::runtime_error("no instance");
        }
    }
    ~ObjectStore() {
        ostrel_releaseInstance(instance_);
        std::system(("rm -rf " + store_).c_str());
    }
    DeviceInstance instance() const { return instance_; }

private:
    static void fill(softtoken::TokenService& admin, const char* serial) {
        softtoken::TokenSettings settings;
        settings.serial = serial;
        settings.userPin = kPin;
        settings.capacity = 4000;
        if (softtoken::createToken(admin, settings) != 0) {
            throw std::runtime_error("token");
        }
        softtoken::KeyPairRequest request;
        request.type = softtoken::keyTypeByCode(kKeyTypeEcP256);
        for (int i = 0; i < kKeyPairs; ++i) {
            request.alias = "key " + std::to_string(i);
            if (softtoken::generateKeyPair(admin, serial, kPin, request, false, nullptr) != 0) {
                throw std::runtime_error("key pair");
            }
        }
        EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256");
        for (int i = 0; i < kCertificates; ++i) {
            if (softtoken::importCertificate(admin, serial, makeCertificate(key, i + 1), "", {},
                                             false, nullptr) != 0) {
                throw std::runtime_error("certificate");
            }
        }
        EVP_PKEY_free(key);
    }

    std::string store_;
    DeviceInstance instance_ = nullptr;
};

ObjectStore& objects() {
    static ObjectStore store;
    return store;
}

void BM_KeyPairListUnchanged(benchmark::State& state) {
    DeviceInstance instance = objects().instance();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ostrel_getKeyPairList("OBJECTS1", instance).size());
    }
}
BENCHMARK(BM_KeyPairListUnchanged)->Unit(benchmark::kMicrosecond);

void BM_CertificateListUnchanged(benchmark::State& state) {
    DeviceInstance instance = objects().instance();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ostrel_getCertificateList("OBJECTS1", instance).size());
    }
}
BENCHMARK(BM_CertificateListUnchanged)->Unit(benchmark::kMicrosecond);

void BM_ListsAlternatingBetweenTwoTokens(benchmark::State& state) {
    DeviceInstance instance = objects().instance();
    for (auto _ : state) {
        benchmark::DoNotOptimize(ostrel_getCertificateList("OBJECTS1", instance).size());
        benchmark::DoNotOptimize(ostrel_getCertificateList("OBJECTS2", instance).size());
        benchmark::DoNotOptimize(ostrel_getKeyPairList("OBJECTS1", instance).size());
        benchmark::DoNotOptimize(ostrel_getKeyPairList("OBJECTS2", instance).size());
    }
}
BENCHMARK(BM_ListsAlternatingBetweenTwoTokens)->Unit(benchmark::kMicrosecond);

// The cost when the store did change: a renamed key pair makes the next list read the store
// again (the whole store, both tokens, into a new snapshot).
void BM_KeyPairListAfterAChange(benchmark::State& state) {
    DeviceInstance instance = objects().instance();
    const OstrelKeyPair first = ostrel_getKeyPairList("OBJECTS1", instance).front();
    bool flip = false;
    for (auto _ : state) {
        state.PauseTiming();
        flip = !flip;
        ostrel_updateKeyPairDetails("OBJECTS1", first.keyReference, kPin, flip ? "a" : "b", nullptr,
                                    0, instance);
        state.ResumeTiming();
        benchmark::DoNotOptimize(ostrel_getKeyPairList("OBJECTS1", instance).size());
    }
}
BENCHMARK(BM_KeyPairListAfterAChange)->Unit(benchmark::kMillisecond);

}  // namespace
