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

std::string tokenKeyContext(const std::string& deviceId) { return "token-key:" + deviceId; }

PinChecker::PinChecker(TokenStore& store) : store_(store), processSecret_(32) {
    randomBytes(processSecret_.data(), processSecret_.size());
    guardAcrossFork(&mutex_);
}

PinChecker::~PinChecker() { stopGuardingAcrossFork(&mutex_); }

Bytes PinChecker::cacheKey(const DeviceRecord& device, const PinRecord& record, PinKind kind,
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
        EVP_DigestUpdate(digest.get(), device.deviceId.data(), device.deviceId.size()) != 1 ||
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
    if (found == cache_.end()) return false;
    out = found->second;
    return true;
}

void PinChecker::remember(const Bytes& key, const Unlocked& entry) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (cache_.size() >= kMaxCachedPins) cache_.clear();
    cache_[key] = entry;
}

void PinChecker::clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    cache_.clear();  // SecretBytes wipe themselves
}

int PinChecker::check(const DeviceRecord& device, const std::string& pin, PinKind kind,
                      int* retriesLeft, SecretBytes* tokenKey) {
    const bool user = kind == PinKind::User;
    const PinRecord& record = user ? device.userPin : device.soPin;
    int live = user ? device.retriesLeft : device.soRetriesLeft;
    if (retriesLeft != nullptr) *retriesLeft = live;
    if (!user && !record.present()) return kErrNoSoPin;
    if (live <= 0) return kErrPinLocked;
    if (pin.empty()) return kErrPinRequired;

    Bytes key = cacheKey(device, record, kind, pin);
    if (key.empty()) return kErrCrypto;
    Unlocked unlocked;
    bool hit = cached(key, unlocked);
    if (!hit) {
        PinDerivation derived;
        if (!derivePin(pin, record.salt, record.iterations, derived)) return kErrCrypto;
        unlocked.verifier = std::move(derived.verifier);
        unlocked.wrappingKey = std::move(derived.wrappingKey);
    }
    if (!pinMatches(record, unlocked.verifier)) {
        int left = 0;
        int result = store_.write([&](Database& database) {
            return recordPinFailure(database, device.deviceId, kind, &left);
        });
        if (result != kOk) return result;
        if (retriesLeft != nullptr) *retriesLeft = left;
        return left == 0 ? kErrPinLocked : kErrPinIncorrect;
    }
    if (user && unlocked.tokenKey.empty() &&
        !unseal(unlocked.wrappingKey, device.wrappedTokenKey, tokenKeyContext(device.deviceId),
                unlocked.tokenKey)) {
        return kErrCrypto;  // the verifier matched, so the stored key itself is damaged
    }
    if (live != device.retriesMax) {
        int left = live;
        int result = store_.write([&](Database& database) {
            return recordPinSuccess(database, device.deviceId, kind, &left);
        });
        if (retriesLeft != nullptr) *retriesLeft = left;
        if (result != kOk) return result;
    }
    if (!hit) remember(key, unlocked);
    if (tokenKey != nullptr) *tokenKey = unlocked.tokenKey;
    return kOk;
}

}  // namespace softtoken
