// What the device operations share: the process's token service, the instances handed to the
// module, and the frame every operation runs in.
#pragma once

#include <memory>
#include <string>

#include "common/token_error.h"
#include "crypto/openssl_error_scope.h"
#include "device/ostrel_device.h"
#include "store/records.h"
#include "token/token_service.h"

namespace softtoken {

// The service for the default store. It is opened by the first use and closed, with its caches
// wiped, when the last instance is released; the next use opens it again (and reads the store
// location anew). Null only when out of memory.
std::shared_ptr<TokenService> currentService();

// The service if one is open, without opening one.
std::shared_ptr<TokenService> existingService();

DeviceInstance makeInstance();
void releaseInstance(DeviceInstance instance);
// Frees the hash contexts that an instance still holds (called on release).
void releaseHashContexts(DeviceInstance instance);

// The start of each operation: the service, a fresh snapshot, and an injected fault if one is
// set for the operation. 0 means go on; any other value is the operation's answer.
struct OperationFrame {
    std::shared_ptr<TokenService> service;
    SnapshotPtr snapshot;
    // For operations that address a device: a store that cannot be read answers
    // kDeviceUnreachable, as an unknown device does.
    int begin(const char* operation);
    // For operations that need no token (certificate parsing, a running hash, verification and
    // encryption with a public key given by the caller): only an injected fault stops them; a
    // store that cannot be opened does not. snapshot may stay null.
    int faultOnly(const char* operation);
};

// Runs body, turning an escaping exception (out of memory) into kInternal: no exception may
// cross into the module. The OpenSSL errors body raises go with it.
template <typename Body>
int guarded(Body body) noexcept {
    const OpensslErrorScope errors;
    try {
        return body();
    } catch (...) {
        return kInternal;
    }
}

// The same for operations that answer a value: fallback when an exception escapes.
template <typename Result, typename Body>
Result guardedValue(Body body, Result fallback) noexcept {
    const OpensslErrorScope errors;
    try {
        return body();
    } catch (...) {
        return fallback;
    }
}

// A device identifier or PIN as text; empty for a null pointer.
inline std::string text(const char* value) {
    return value != nullptr ? value : "";
}

// PIN copies made from the module's arguments wipe themselves.
class PinText {
public:
    explicit PinText(const char* pin) : value_(text(pin)) {}
    ~PinText() { wipeText(value_); }
    PinText(const PinText&) = delete;
    PinText& operator=(const PinText&) = delete;
    const std::string& get() const { return value_; }

private:
    std::string value_;
};

}  // namespace softtoken
