#include "token/key_objects.h"

#include "common/fork_guard.h"
#include "common/token_error.h"
#include "crypto/key_codec.h"
#include "crypto/sealing.h"
#include "device/device_records.h"

namespace softtoken {

namespace {
// Deleted and replaced pairs leave entries behind; past this many the cache starts over.
constexpr std::size_t kMaxCachedKeys = 256;
}  // namespace

KeyObjects::KeyObjects() {
    guardAcrossFork(&mutex_);
}

KeyObjects::~KeyObjects() {
    stopGuardingAcrossFork(&mutex_);
}

std::string privateKeyContext(const std::string& deviceId, const unsigned char* keyReference) {
    return "private-key:" + deviceId + ":" + toHex(keyReference, kObjectReferenceSize);
}

int KeyObjects::privateKey(const std::string& deviceId, const KeyPairEntry& pair,
                           const SecretBytes& tokenKey, SharedPkey& key) {
    const OstrelKeyPair& record = *pair.record;
    const Bytes& sealed = *pair.sealedPrivateKey;
    auto name = std::make_pair(
        deviceId, Bytes(record.keyReference, record.keyReference + kObjectReferenceSize));
    {
        std::lock_guard<std::mutex> lock(mutex_);
        auto found = keys_.find(name);
        if (found != keys_.end() && found->second.sealed == sealed) {
            key = found->second.key;
            return kOk;
        }
    }
    SecretBytes der;
    if (!unseal(tokenKey, sealed, privateKeyContext(deviceId, record.keyReference), der)) {
        return kCryptoFailed;
    }
    PkeyPtr decoded = decodePrivateKey(der.data(), der.size());
    if (decoded == nullptr) {
        return kCryptoFailed;
    }
    SharedPkey shared = share(std::move(decoded));
    std::lock_guard<std::mutex> lock(mutex_);
    if (keys_.size() >= kMaxCachedKeys) {
        keys_.clear();
    }
    keys_[name] = Entry{sealed, shared};
    key = std::move(shared);
    return kOk;
}

void KeyObjects::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    keys_.clear();
}

}  // namespace softtoken
