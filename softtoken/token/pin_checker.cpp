#include "token/pin_checker.h"

#include <openssl/evp.h>

#include "common/fork_guard.h"
#include "common/token_error.h"
#include "crypto/digests.h"
#include "crypto/openssl_types.h"
#include "crypto/sealing.h"
#include "device/device_records.h"
#include "store/token_store.h"

namespace softtoken {

namespace {

// Enough for every token and PIN a process meets; past it the cache starts over.
constexpr std::size_t kMaxCachedPins = 64;

}  // namespace

std::string tokenKeyContext(const std::string& deviceId) {
    return "token-key:" + deviceId;
}

PinChecker::PinChecker(TokenStore& store) : store_(store), processSecret_(32) {
    randomBytes(processSecret_.data(), processSecret_.size());
    guardAcrossFork(&mutex_);
}

PinChecker::~PinChecker() {
    stopGuardingAcrossFork(&mutex_);
}

Bytes PinChecker::cacheKeyOf(const std::string& deviceId, const PinRecord& record, PinKind kind,
                             const std::string& pin) const {
    MdCtxPtr digest(EVP_MD_CTX_new());
    Bytes key(32);
    unsigned int length = 0;
    const unsigned char kindByte = kind == PinKind::User ? 1 : 2;
    const std::string iterations = std::to_string(record.iterations);
    // Separators keep the fields from running into one another.
    const unsigned char separator = 0;
    if (digest == nullptr ||
        EVP_DigestInit_ex(digest.get(), digestForCode(kHashSha256), nullptr) != 1 ||
        EVP_DigestUpdate(digest.get(), processSecret_.data(), processSecret_.size()) != 1 ||
        EVP_DigestUpdate(digest.get(), &kindByte, 1) != 1 ||
        EVP_DigestUpdate(digest.get(), deviceId.data(), deviceId.size()) != 1 ||
        EVP_DigestUpdate(digest.get(), &separator, 1) != 1 ||
        EVP_DigestUpdate(digest.get(), record.salt.data(), record.salt.size()) != 1 ||
        EVP_DigestUpdate(digest.get(), iterations.data(), iterations.size()) != 1 ||
        EVP_DigestUpdate(digest.get(), &separator, 1) != 1 ||
        EVP_DigestUpdate(digest.get(), pin.data(), pin.size()) != 1 ||
        EVP_DigestFinal_ex(digest.get(), key.data(), &length) != 1) {
        return {};
    }
    return key;
}

bool PinChecker::cached(const Bytes& key, Unlocked& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    auto found = cache_.find(key);
    if (found == cache_.end()) {
        return false;
    }
    out = found->second;
    return true;
}

void PinChecker::remember(const Bytes& key, const Unlocked& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (cache_.size() >= kMaxCachedPins) {
        cache_.clear();
    }
    cache_[key] = entry;
}

void PinChecker::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    cache_.clear();  // SecretBytes wipe themselves
}

int PinChecker::derive(const std::string& deviceId, const PinRecord& record, PinKind kind,
                       const std::string& pin, Bytes& cacheKey, Unlocked& unlocked, bool& hit) {
    cacheKey = cacheKeyOf(deviceId, record, kind, pin);
    if (cacheKey.empty()) {
        return kCryptoFailed;
    }
    hit = cached(cacheKey, unlocked);
    if (hit) {
        return kOk;
    }
    PinDerivation derived;
    if (!derivePin(pin, record.salt, record.iterations, derived)) {
        return kCryptoFailed;
    }
    unlocked = Unlocked{std::move(derived.verifier), std::move(derived.wrappingKey), {}};
    return kOk;
}

int PinChecker::check(const DeviceRecord& device, const std::string& pin, PinKind kind,
                      int* retriesLeft, SecretBytes* tokenKey,
                      const WriteOnSuccess* alsoOnSuccess) {
    const bool user = kind == PinKind::User;
    const std::string& deviceId = device.deviceId;
    const PinRecord& seen = user ? device.userPin : device.soPin;
    const int seenLeft = user ? device.retriesLeft : device.soRetriesLeft;
    if (retriesLeft != nullptr) {
        *retriesLeft = seenLeft;
    }
    // Refusals that take no try are answered from the snapshot.
    if (!user && !seen.present()) {
        return kNoSoPin;
    }
    if (seenLeft <= 0) {
        return kPinLocked;
    }
    if (pin.empty()) {
        return kPinRequired;
    }

    // The slow derivation runs before the transaction, from the snapshot's record, so that no
    // store lock is held while it computes.
    Bytes key;
    Unlocked unlocked;
    bool hit = false;
    if (int result = derive(deviceId, seen, kind, pin, key, unlocked, hit); result != kOk) {
        return result;
    }
    auto unwrapTokenKey = [&](const Bytes& wrapped) {
        return !user || !unlocked.tokenKey.empty() ||
               unseal(unlocked.wrappingKey, wrapped, tokenKeyContext(deviceId), unlocked.tokenKey);
    };

    bool settledInSnapshot = alsoOnSuccess == nullptr && seenLeft == device.retriesMax &&
                             pinMatches(seen, unlocked.verifier);
    int outcome = kOk;
    int left = seenLeft;
    if (settledInSnapshot) {
        // The verifier matched, so a token key that does not unwrap is damaged in the store.
        if (!unwrapTokenKey(device.wrappedTokenKey)) {
            return kCryptoFailed;
        }
    } else {
        int result = store_.write([&](Database& database) {
            LivePin live;
            if (int read = readLivePin(database, deviceId, kind, live); read != kOk) {
                return read;
            }
            left = live.retriesLeft;
            if (!user && !live.record.present()) {
                outcome = kNoSoPin;
                return kOk;
            }
            if (live.retriesLeft <= 0) {
                left = 0;
                outcome = kPinLocked;
                return kOk;
            }
            // Another process changed the PIN since the snapshot: judge by the live record.
            // Rare, so deriving while the transaction is open is acceptable.
            if (live.record.salt != seen.salt || live.record.iterations != seen.iterations) {
                if (int redo = derive(deviceId, live.record, kind, pin, key, unlocked, hit);
                    redo != kOk) {
                    return redo;
                }
            }
            if (!pinMatches(live.record, unlocked.verifier)) {
                left = live.retriesLeft - 1;
                outcome = left == 0 ? kPinLocked : kPinIncorrect;
                return setRetriesLeft(database, deviceId, kind, left);
            }
            if (!unwrapTokenKey(live.wrappedTokenKey)) {
                return kCryptoFailed;
            }
            if (live.retriesLeft != live.retriesMax) {
                if (int set = setRetriesLeft(database, deviceId, kind, live.retriesMax);
                    set != kOk) {
                    return set;
                }
            }
            left = live.retriesMax;
            return alsoOnSuccess != nullptr ? (*alsoOnSuccess)(database, unlocked.tokenKey) : kOk;
        });
        if (result != kOk) {
            return result;
        }
    }
    if (retriesLeft != nullptr) {
        *retriesLeft = left;
    }
    if (outcome != kOk) {
        return outcome;
    }
    // Entries are remembered only after a success, so a hit is already complete.
    if (!hit) {
        remember(key, unlocked);
    }
    if (tokenKey != nullptr) {
        *tokenKey = unlocked.tokenKey;
    }
    return kOk;
}

}  // namespace softtoken
