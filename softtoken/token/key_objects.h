// Private keys of the token, unsealed on first use and then kept in memory, so that a signature
// costs no more than the cryptography. Callers check the PIN before asking for a key.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <utility>

#include "common/secret_bytes.h"
#include "crypto/openssl_types.h"
#include "store/records.h"

namespace softtoken {

class KeyObjects {
public:
    KeyObjects();
    ~KeyObjects();
    KeyObjects(const KeyObjects&) = delete;
    KeyObjects& operator=(const KeyObjects&) = delete;

    // The private key of the pair (a found entry), unsealed with the token key on first use.
    int privateKey(const std::string& deviceId, const KeyPairEntry& pair,
                   const SecretBytes& tokenKey, SharedPkey& key);
    void clear();

private:
    struct Entry {
        Bytes sealed;  // what the key was unsealed from: a changed row is unsealed anew
        SharedPkey key;
    };
    std::mutex mutex_;
    std::map<std::pair<std::string, Bytes>, Entry> keys_;
};

// The context text that binds a sealed private key to its token and key pair.
std::string privateKeyContext(const std::string& deviceId, const unsigned char* keyReference);

}  // namespace softtoken
