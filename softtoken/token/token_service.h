// The software token of one process over one store: the store itself, the PIN checker with its
// derivation cache, and the cache of unlocked private keys. The device library keeps one for
// the default store; the tool makes one for the store it is told.
#pragma once

#include <memory>
#include <string>

#include "store/token_store.h"
#include "token/key_objects.h"
#include "token/pin_checker.h"

namespace softtoken {

class TokenService {
public:
    explicit TokenService(std::string storeFolder);

    TokenStore& store() { return store_; }
    PinChecker& pins() { return pins_; }
    KeyObjects& keys() { return keys_; }

    int snapshot(SnapshotPtr& out) { return store_.snapshot(out); }

    // The device that holds a usable token: kDeviceUnreachable when unknown (or unplugged, when
    // mustBePlugged), kBlankDevice when blank.
    static int findToken(const Snapshot& snapshot, const std::string& deviceId, bool mustBePlugged,
                         const DeviceRecord** device);

    // An injected failure for this operation: its code when one fired, else 0. Costs nothing
    // while no fault is set; firing one takes a use of it in the store, shared by processes.
    int injectedFault(const Snapshot& snapshot, const char* operation);

    // Wipes cached PIN derivations and keys, and closes the store.
    void shutDown();

private:
    TokenStore store_;
    PinChecker pins_;
    KeyObjects keys_;
};

// The names of the operations that can be made to fail ("signHash", ...), as the tool's fault
// command takes them.
bool isFaultableOperation(const std::string& name);
std::string faultableOperationNames();

}  // namespace softtoken
