// PIN checks with the retry counter, and the in-memory cache that spares the slow derivation
// after the first success of a PIN in this process.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "common/secret_bytes.h"
#include "crypto/pin_kdf.h"
#include "store/device_writes.h"
#include "store/records.h"

namespace softtoken {

class TokenStore;

class PinChecker {
public:
    explicit PinChecker(TokenStore& store);
    ~PinChecker();
    PinChecker(const PinChecker&) = delete;
    PinChecker& operator=(const PinChecker&) = delete;

    // Checks pin as the user's or the security officer's PIN of device. A wrong PIN lowers the
    // live count by one, a right one restores it to the maximum; at 0 every check fails with
    // kErrPinLocked and no derivation is made. An empty PIN answers kErrPinRequired and leaves
    // the count alone. *retriesLeft (may be null) receives the count after the check. On success
    // for the user, *tokenKey (may be null) receives the unwrapped token key.
    int check(const DeviceRecord& device, const std::string& pin, PinKind kind, int* retriesLeft,
              SecretBytes* tokenKey);

    void clear();

private:
    struct Unlocked {
        Bytes verifier;
        SecretBytes wrappingKey;
        SecretBytes tokenKey;  // user PINs only
    };

    // A process-secret salted SHA-256 over everything the derivation depends on: a different
    // PIN, salt or work factor never meets another's entry.
    Bytes cacheKey(const DeviceRecord& device, const PinRecord& record, PinKind kind,
                   const std::string& pin) const;
    bool cached(const Bytes& key, Unlocked& out);
    void remember(const Bytes& key, const Unlocked& entry);

    TokenStore& store_;
    SecretBytes processSecret_;
    std::mutex mutex_;
    std::map<Bytes, Unlocked> cache_;
};

// The context text that binds a wrapped token key to its token.
std::string tokenKeyContext(const std::string& deviceId);

}  // namespace softtoken
