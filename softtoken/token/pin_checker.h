// PIN checks with the retry counter, and the in-memory cache that spares the slow derivation
// after the first success of a PIN in this process.
//
// A try is taken and settled inside one store transaction (BEGIN IMMEDIATE): the live count is
// read there, a locked PIN is refused, the PIN is compared with the record read in the same
// transaction, and the count is lowered or restored before the commit. No other thread or
// process can read or change the count in between, so parallel guesses never get more tries
// than the count allows, and a right PIN never passes a count that is already 0.
//
// The one exception is the common case that needs no write: the fresh snapshot shows every try
// left and the PIN matches its record. Restoring the count would change nothing, and the answer
// is the one a transaction at the snapshot's moment would give; a locked PIN (count 0) never
// takes this path.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "common/secret_bytes.h"
#include "crypto/pin_kdf.h"
#include "store/pin_writes.h"
#include "store/records.h"

namespace softtoken {

class Database;
class TokenStore;

// A change that a right PIN makes in the transaction that checked it (a PIN change), given the
// unwrapped token key. Its failure rolls the whole try back.
using WriteOnSuccess = std::function<int(Database&, const SecretBytes& tokenKey)>;

class PinChecker {
public:
    explicit PinChecker(TokenStore& store);
    ~PinChecker();
    PinChecker(const PinChecker&) = delete;
    PinChecker& operator=(const PinChecker&) = delete;

    // Checks pin as the user's or the security officer's PIN of device, a record of a fresh
    // snapshot. A wrong PIN lowers the live count by one, a right one restores it to the
    // maximum; at 0 every check fails with kPinLocked and no PIN is compared. An empty PIN
    // answers kPinRequired and takes no try. *retriesLeft (may be null) receives the live count
    // after the check. On success for the user, *tokenKey (may be null) receives the unwrapped
    // token key, and alsoOnSuccess (may be null) runs in the same transaction.
    int check(const DeviceRecord& device, const std::string& pin, PinKind kind, int* retriesLeft,
              SecretBytes* tokenKey, const WriteOnSuccess* alsoOnSuccess = nullptr);

    void clear();

private:
    struct Unlocked {
        Bytes verifier;
        SecretBytes wrappingKey;
        SecretBytes tokenKey;  // user PINs only, once unwrapped
    };

    // The derivation of pin under record: from the cache (*hit true), or computed and not yet
    // cached, since only a PIN that proved right is remembered.
    int derive(const std::string& deviceId, const PinRecord& record, PinKind kind,
               const std::string& pin, Bytes& cacheKey, Unlocked& unlocked, bool& hit);
    // A process-secret salted SHA-256 over everything the derivation depends on: a different
    // PIN, salt or work factor never meets another's entry.
    Bytes cacheKeyOf(const std::string& deviceId, const PinRecord& record, PinKind kind,
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
