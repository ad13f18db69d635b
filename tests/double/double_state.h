// The double's shared state and the helpers every device operation uses. Internal to the double.
#pragma once

// The double defines the device operations, so on Windows it exports them instead of importing
// them. Must come before the first include of device/ostrel_device.h in each of our files.
#ifndef OSTREL_BUILDING_DEVICE_LIBRARY
#define OSTREL_BUILDING_DEVICE_LIBRARY 1
#endif

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "device/ostrel_device.h"
#include "device_double.h"

namespace devicedouble::detail {

struct Device {
    TokenInfo info;
    std::string userPin = kDefaultUserPin;
    std::string soPin = kDefaultSoPin;
    int soRetriesLeft = 10;
    std::vector<OstrelKeyPair> keyPairs;
    std::vector<OstrelCertificate> certificates;
};

struct HashState {
    int algorithm = 0;
    Bytes data;  // everything fed so far; the fake digest is computed at the end
};

// Instances and hash contexts are counters dressed as pointers: the double never dereferences
// them and never hands the same value out twice, so a stale handle is always recognised.
struct Instance {
    std::map<std::uintptr_t, HashState> hashContexts;
};

// A signature the double made, so that verifySignatureHash can recognise it.
struct SignatureMemo {
    Bytes hash;
    Bytes signature;
    Bytes publicValue;
};

struct Gate {
    std::mutex mutex;
    std::condition_variable changed;
    bool closed = false;
    std::uint64_t openings = 0;  // a caller leaves once the gate opened after it arrived
    std::size_t waiting = 0;
};

// Gates of any operation (closeGate): the names of the closed ones and who waits at them.
struct OperationGates {
    std::mutex mutex;
    std::condition_variable changed;
    std::set<std::string> closed;
    std::map<std::string, std::size_t> waiting;
};

struct State {
    std::mutex mutex;
    std::map<std::string, Device> devices;
    std::vector<std::string> connected;  // oldest plugged first
    std::map<std::string, std::deque<int>> scriptedResults;
    std::map<std::string, int> permanentResults;
    std::map<std::string, std::deque<Bytes>> scriptedOutputs;
    std::map<Bytes, CertificateInfo> certificateInfo;
    std::map<std::string, FileList> folders;
    std::vector<Call> calls;
    std::map<std::uintptr_t, Instance> instances;
    std::uintptr_t nextHandle = 0x0D0B1000;
    bool createInstanceYieldsNull = false;
    std::vector<SignatureMemo> signatures;
    std::map<Bytes, Bytes> plaintextOf;  // ciphertexts made by encrypt
    std::uint64_t fakeCounter = 0;
    Gate gate;
    OperationGates operationGates;
};

// The one state of the process. Never destroyed, so that a monitor thread still polling at exit
// does not meet a dead mutex.
State& state();

// Throws std::invalid_argument unless `operation` is one of the 29 names (without "ostrel_").
void requireOperationName(const std::string& operation);
// The device of that identifier; throws std::invalid_argument when it was never added.
// Caller holds the state mutex.
Device& knownDevice(State& s, const std::string& deviceId);

// The frame of one device operation: holds the state mutex for its lifetime, builds the Call
// record through the argument helpers and appends it to the log when it ends, whatever the
// return path.
class Operation {
public:
    Operation(const char* name, DeviceInstance instance);
    ~Operation();
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

    State& state() { return state_; }
    Call& call() { return call_; }

    // Recorders: each notes the argument in the Call and returns its value.
    std::string device(const char* deviceId);
    std::string text(const char* value, const char* argumentName);
    Bytes bytes(const unsigned char* data, int length, const char* argumentName);
    std::int64_t number(std::int64_t value);
    // Notes a null pointer argument; returns true when `pointer` is null.
    bool isNull(const void* pointer, const char* argumentName);

    // The scripted result for this call, if any (consumes one queued script).
    std::optional<int> scripted();
    // True when the instance argument is a live instance.
    bool instanceIsLive() const;
    Instance* instance();
    // The connected device that the recorded device identifier names, or null.
    Device* connectedDevice();
    // The checks shared by the operations that address a device: a scripted result, a live
    // instance (unless the operation is passed a null one), the device being connected, and the
    // password when one is given. Returns the code to answer at once, or nothing to go on with
    // target() connected. A scripted 0 answers 0 at once when there is no device to work on,
    // and otherwise skips the password check and sets forced().
    std::optional<int> admit(const std::string* password, bool needsInstance = true);
    Device* target() { return target_; }
    bool forced() const { return forced_; }
    // The user PIN check shared by the operations that take a password.
    bool passwordMatches(const Device& device, const std::string& password) const;
    // Output bytes scripted for this operation, if any (consumes one).
    std::optional<Bytes> scriptedOutput();
    // Deterministic fake bytes; `tag` separates the uses, the counter makes calls differ.
    Bytes counterBytes(const char* tag, std::size_t length);

private:
    std::unique_lock<std::mutex> lock_;
    State& state_;
    Call call_;
    Device* target_ = nullptr;
    bool forced_ = false;
};

// References the double gives objects: base, base + 1, ... base + 11, then the id big-endian.
// Generated and imported objects get the same scheme as built ones (record_builders.cpp).
constexpr unsigned char kKeyReferenceBase = 0xA0;
constexpr unsigned char kCertificateReferenceBase = 0xC0;
void fillReference(unsigned char* reference, unsigned char base, std::uint32_t id);

// The pair whose keyReference is these 16 bytes, or null (double_objects.cpp).
OstrelKeyPair* findKeyPair(Device& device, const unsigned char* keyReference);

// Fake data (fake_data.cpp).
Bytes mixBytes(const std::string& tag, const Bytes& seed, std::size_t length);
int signatureLength(std::int32_t keyType);
int secretLength(std::int32_t keyType);
bool isEcKeyType(std::int32_t keyType);

// Small DER reader for certificates (double_der.cpp). False when the DER is not a certificate
// the reader understands.
bool parseCertificate(const Bytes& der, CertificateInfo& info);

// Blocks while the device-list gate is closed. Caller must not hold the state mutex.
void waitAtDeviceListGate();
// Blocks while the gate of the operation is closed. Caller must not hold the state mutex.
void waitAtOperationGate(const char* operation);

// Adds the devices of OSTREL_DOUBLE_DEVICES not yet known (double_environment.cpp). Caller holds
// the state mutex.
void addEnvironmentDevices(State& s);

// Instances and hash contexts as the pointers the interface wants. They are counters, never
// dereferenced, so the integer-to-pointer cast is the point here.
inline void* handlePointer(std::uintptr_t handle) {
    return reinterpret_cast<void*>(handle);  // NOLINT(performance-no-int-to-ptr)
}

std::string toText(const char* value);
Bytes toBytes(const unsigned char* data, int length);
// Text of a fixed-size record field: up to its first NUL, never past its end.
std::string fieldText(const char* field, std::size_t capacity);
// Length field of a record clamped to its buffer, so that a bad record cannot make us overread.
int clampedLength(std::int32_t length, std::size_t capacity);
// Copies `value` into a fixed-size record field; false when it does not fit.
bool storeField(unsigned char* field, std::size_t capacity, const Bytes& value);
bool storeText(char* field, std::size_t capacity, const std::string& value);

}  // namespace devicedouble::detail
