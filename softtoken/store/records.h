// What the store holds, as the rest of the token reads it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "common/secret_bytes.h"
#include "device/device_records.h"

namespace softtoken {

// A salted slow hash of a PIN with the work factor it was made with.
struct PinRecord {
    Bytes salt;
    int iterations = 0;
    Bytes verifier;
    bool present() const { return !verifier.empty(); }
};

struct DeviceRecord {
    std::string deviceId;  // the token's serial number, or a blank device's identifier
    bool blank = false;
    std::int64_t plugOrder = 0;  // 0 while unplugged
    std::string label;
    std::string model;
    std::string firmware;
    int pinChanged = 1;
    int retriesMax = 0;
    int retriesLeft = 0;
    int soRetriesLeft = 0;
    int capacity = 0;
    PinRecord userPin;
    PinRecord soPin;
    Bytes wrappedTokenKey;
    bool plugged() const { return plugOrder != 0; }
};

using KeyPairList = std::vector<OstrelKeyPair>;
using CertificateList = std::vector<OstrelCertificate>;

// A device's objects in the form the list operations hand out. The lists are immutable and
// shared: a caller may keep one alive past the snapshot it came from, which is how the lists
// reach the module without a copy.
struct DeviceObjects {
    std::shared_ptr<const KeyPairList> keyPairs;          // ordered by id; never null
    std::vector<Bytes> sealedPrivateKeys;                 // of keyPairs, in the same order
    std::shared_ptr<const CertificateList> certificates;  // ordered by id; never null
};

// One key pair of a snapshot with its sealed private key; both null when not found.
struct KeyPairEntry {
    const OstrelKeyPair* record = nullptr;
    const Bytes* sealedPrivateKey = nullptr;
};

struct FaultEntry {
    int code = 0;
    int remaining = 0;  // 0: every call until cleared
};

// One consistent, immutable reading of the whole store. Readers share it through a shared_ptr;
// a change anywhere makes the next reader load a new one.
struct Snapshot {
    std::uint64_t generation = 0;
    std::vector<DeviceRecord> devices;             // by device identifier
    std::map<std::string, DeviceObjects> objects;  // one entry for every device
    std::map<std::string, FaultEntry> faults;
    std::vector<std::string> pluggedInOrder;  // oldest plugged first

    const DeviceRecord* findDevice(const std::string& deviceId) const;
    // Null for an unknown device.
    const DeviceObjects* objectsOf(const std::string& deviceId) const;
    KeyPairEntry findKeyPair(const std::string& deviceId, const unsigned char* keyReference) const;
    const OstrelCertificate* findCertificate(const std::string& deviceId,
                                             const unsigned char* certificateReference) const;
    std::size_t objectCount(const std::string& deviceId) const;
};

using SnapshotPtr = std::shared_ptr<const Snapshot>;

}  // namespace softtoken
