// One PKCS #11 module under measurement: loaded, its token filled with the benchmark's objects,
// logged in, and its keys found, ready for the scenarios.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "p11bench/openssl_keys.h"
#include "p11bench/pkcs11_module.h"

struct StackOptions {
    std::string name;  // as printed
    std::string path;  // the module's file
    std::string pin;
    std::size_t objects = 1000;        // objects on the token for the search (certificates added)
    bool destroysDerivedKeys = false;  // derived keys are session objects to be destroyed
};

class TokenStack {
public:
    TokenStack(const StackOptions& options, EVP_PKEY* certificateKey);

    const std::string& name() const { return options_.name; }
    const CK_FUNCTION_LIST& api() const { return module_.api(); }
    const Pkcs11Module& module() const { return module_; }
    const StackOptions& options() const { return options_; }

    // Logged-in sessions (the login holds for all of them), for one and for many threads.
    static constexpr int kSessions = 64;
    CK_SESSION_HANDLE session(int index) const { return sessions_.at(index); }
    CK_OBJECT_HANDLE rsa2048() const { return rsa2048_; }
    CK_OBJECT_HANDLE rsa2048Public() const { return rsa2048Public_; }
    CK_OBJECT_HANDLE rsa3072() const { return rsa3072_; }
    CK_OBJECT_HANDLE p256() const { return p256_; }

private:
    void fillWithCertificates(EVP_PKEY* certificateKey);

    StackOptions options_;
    Pkcs11Module module_;
    std::vector<CK_SESSION_HANDLE> sessions_;
    CK_OBJECT_HANDLE rsa2048_ = 0, rsa2048Public_ = 0, rsa3072_ = 0, p256_ = 0;
};

// The labels the keys are imported under.
inline constexpr const char* kRsa2048Label = "bench-rsa2048";
inline constexpr const char* kRsa3072Label = "bench-rsa3072";
inline constexpr const char* kP256Label = "bench-p256";
