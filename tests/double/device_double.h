// Scripting interface of the in-memory device library used by the module's tests.
//
// The double implements every ostrel_* operation of device/ostrel_device.h against an in-memory
// world of devices, key pairs and certificates. A test builds that world, scripts the results it
// wants, drives the module, and then reads the call log to assert exactly what reached the
// device (or that nothing did).
//
// All functions here are thread-safe: they share one mutex with the device operations, so a test
// may script while the module's monitor thread polls the device list.
//
// Scripting errors (an unknown operation name, an unknown device, an oversized field) throw
// std::invalid_argument or std::length_error, so that a mistyped test fails loudly instead of
// silently testing nothing.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "device/device_results.h"
#include "device/ostrel_device.h"

// The scripting functions are exported from the shared build too, so that a test which loads
// the module as a shared library (linked against the shared double) can still script it.
#if defined(_WIN32) && defined(OSTREL_BUILDING_DEVICE_LIBRARY)
#define DEVICE_DOUBLE_API __declspec(dllexport)
#elif defined(_WIN32)
#define DEVICE_DOUBLE_API
#else
#define DEVICE_DOUBLE_API __attribute__((visibility("default")))
#endif

namespace devicedouble {

// Result codes that the double's own behaviour produces: those of the shared table
// (device/device_results.h), so that a code means the same whichever library answered it.
constexpr int kResultStorageFull = device_result::kStorageFull;
constexpr int kResultDeviceFailure = device_result::kDeviceUnreachable;  // not connected, unknown
constexpr int kResultWrongPin = device_result::kPinIncorrect;
constexpr int kResultPinLocked = device_result::kPinLocked;
constexpr int kResultNotFound = device_result::kObjectNotFound;
constexpr int kResultBadArgument = device_result::kBadArgument;  // null pointer, bad length, code
constexpr int kResultBufferTooSmall = device_result::kBufferTooSmall;
constexpr int kResultBadSignature = device_result::kSignatureInvalid;  // not one the double made
constexpr int kResultBadData = device_result::kUnparsable;   // unparsable certificate or point
constexpr int kResultInputSize = device_result::kInputSize;  // too long for the key
constexpr int kResultDecryptFailed = device_result::kDecryptFailed;  // not a ciphertext we made
constexpr int kResultBadContext = device_result::kBadHashContext;    // null, ended or foreign
constexpr int kResultBadInstance = device_result::kBadInstance;      // not made by createInstance

// Every device starts with these PINs until setPin changes them.
constexpr const char* kDefaultUserPin = "123456";
constexpr const char* kDefaultSoPin = "12345678";

// Makes a scripted result apply to every later call until reset or clearScriptedResults.
constexpr int kEveryCall = -1;

// One call that reached the double. Arguments are split by kind and kept in argument order;
// which argument lands where is listed per operation below. A null text pointer is recorded
// as "" and a null byte pointer as an empty vector; either way its name is added to
// nullArguments. Byte arguments hold exactly as many bytes as their length argument said.
//
//  createInstance, releaseInstance, getTokenInfo, getKeyPairList, getCertificateList: nothing
//  getConnectedDeviceList, initDevice  numbers {flag}
//  validatePassword        texts {pin}; numbers {userKind}
//  changeUserPassword      texts {oldPin, newPin}; numbers {flag1, flag2}
//  generateKeyPair         texts {password, alias}; bytes {objectId};
//                          numbers {keyType, usageFlags}
//  deleteKeyPair           texts {password}; bytes {keyReference}; numbers {deletionFlag}
//  deleteCertificate       texts {password}; bytes {certificateReference}
//  updateKeyPairDetails    texts {password, label}; bytes {keyReference, id};
//                          numbers {idLength}
//  importCertificate       texts {password, label}; bytes {der, objectId};
//                          numbers {derLength, objectIdLength}
//  importPfx               texts {password, label};
//                          bytes {modulus, privateExponent, prime1, objectId}; numbers {keyKind}
//  getFilesWithExtensionsAndConvertDER  texts {folder, extension, extension, ...}
//  getCertificateDetails, getCertificateSubject, getCertificateIssuer, getCertificateSerialDER
//                          bytes {der}; numbers {derLength}
//  initHash                numbers {algorithm}
//  updateHash              bytes {data}; numbers {length}
//  finalHash               numbers {*length on entry}
//  signHash                texts {password}; bytes {keyReference, hash};
//                          numbers {hashLength, *signatureLength on entry, flag, isPss}
//  verifySignatureHash     bytes {data, publicKey, signature};
//                          numbers {keyType, dataLength, publicKeyLength, signatureLength, isPss}
//  encrypt                 bytes {input, key};
//                          numbers {type, padding, inputLength, *outputLength on entry, keyLength}
//  decrypt                 texts {password}; bytes {keyReference, input};
//                          numbers {inputLength, flag}
//  ecdhDerive              texts {password}; bytes {keyReference, publicData};
//                          numbers {publicDataLength}
//  generateRamdomNumber    numbers {length, flag}
//
// deviceId holds the device identifier argument of the operations that take one. context holds
// the hash context made by initHash or passed to updateHash/finalHash. instance is the
// DeviceInstance argument (for createInstance: the instance it made).
struct Call {
    std::string operation;  // without the "ostrel_" prefix, e.g. "validatePassword"
    std::string deviceId;
    std::vector<std::string> texts;
    std::vector<Bytes> bytes;
    std::vector<std::int64_t> numbers;
    std::vector<std::string> nullArguments;
    HashContext context = nullptr;
    DeviceInstance instance = nullptr;
    // When the call finished, to order it against what the test's threads did.
    std::chrono::steady_clock::time_point finishedAt;
};

// What the certificate operations answer for one DER encoding.
struct CertificateInfo {
    CertificateDetails details;
    Bytes subject;  // DER of the subject Name
    Bytes issuer;   // DER of the issuer Name
    Bytes serial;   // DER of the serial-number INTEGER (tag and length included)
};

// ---- Whole double ----

// Forgets devices, objects, scripts, recorded calls and the fake-data counters, and opens the
// device-list gate. Live instances and their hash contexts stay: they belong to the module.
DEVICE_DOUBLE_API void reset();

// ---- Devices ----

// A TokenInfo with workable defaults: PIN already changed (userPinChanged 1), 10 of 10 PIN
// tries left, room for 32 objects. An empty label becomes the serial. The default model counts
// as a FIPS 140-3 token (its third character is not '1'); "OT1-F" would be one that is not.
DEVICE_DOUBLE_API TokenInfo makeTokenInfo(const std::string& serial, const std::string& label = "",
                                          const std::string& model = "OT2-S",
                                          const std::string& firmwareVersion = "2.1.0");
// Adds a device (replacing one of the same identifier) and, when connected, appends it to the
// connected list. The first form names the device by info.serialNumber (which must not be
// empty); the second allows any identifier, e.g. a reader whose TokenInfo has an empty serial.
// The device starts with the default PINs and no objects.
DEVICE_DOUBLE_API void addDevice(const TokenInfo& info, bool connected = true);
DEVICE_DOUBLE_API void addDevice(const std::string& deviceId, const TokenInfo& info,
                                 bool connected = true);
// Convenience: addDevice(makeTokenInfo(serial, label)).
DEVICE_DOUBLE_API void addDevice(const std::string& serial, const std::string& label);
// The connected list in exactly this order; every identifier must have been added.
DEVICE_DOUBLE_API void setConnectedDevices(const std::vector<std::string>& deviceIds);
DEVICE_DOUBLE_API std::vector<std::string> connectedDevices();
// unplug removes a device from the connected list (its objects stay); plug appends it at the
// end, as the newest device. Operations that address an unplugged device fail with 48.
DEVICE_DOUBLE_API void unplug(const std::string& deviceId);
DEVICE_DOUBLE_API void plug(const std::string& deviceId);
// The device's live TokenInfo: PIN checks and object storage update pinRetryCount and
// freeObjectSpace in it.
DEVICE_DOUBLE_API void setTokenInfo(const std::string& deviceId, const TokenInfo& info);
DEVICE_DOUBLE_API TokenInfo tokenInfo(const std::string& deviceId);
// PIN of userKind 1 (user) or 2 (security officer).
DEVICE_DOUBLE_API void setPin(const std::string& deviceId, const std::string& pin,
                              int userKind = 1);
DEVICE_DOUBLE_API std::string pin(const std::string& deviceId, int userKind = 1);
// Tries left for the user PIN (the live TokenInfo::pinRetryCount), reported by validatePassword
// and changeUserPassword. A correct PIN restores maximumPinRetries; a wrong one takes one off;
// at 0 every check fails with kResultPinLocked.
DEVICE_DOUBLE_API void setRetryCount(const std::string& deviceId, int retriesLeft);

// ---- Key pairs and certificates ----

// Builds an OstrelKeyPair. Defaults: keyReference A0 A1 .. AB followed by the id (big-endian),
// keyType RSA-2048, usage sign|decrypt, a fake public value of the key type's size (see
// fakePublicValue), empty objectId and alias, deletionFlag false.
class DEVICE_DOUBLE_API KeyPairBuilder {
public:
    explicit KeyPairBuilder(std::uint32_t id);
    KeyPairBuilder& keyReference(const Bytes& reference);  // exactly 16 bytes
    KeyPairBuilder& publicValue(const Bytes& value);
    KeyPairBuilder& objectId(const Bytes& id);
    KeyPairBuilder& alias(const std::string& alias);
    KeyPairBuilder& usageFlags(std::uint32_t flags);
    // Also replaces a default public value by the fake one of the new type.
    KeyPairBuilder& keyType(std::int32_t type);
    KeyPairBuilder& deletionFlag(bool flag);
    OstrelKeyPair build() const;
    operator OstrelKeyPair() const { return build(); }

private:
    OstrelKeyPair record_;
    bool publicValueGiven_ = false;
};

// Builds an OstrelCertificate. Defaults: certificateReference C0 C1 .. CB followed by the id,
// no DER, empty objectId and label.
class DEVICE_DOUBLE_API CertificateBuilder {
public:
    explicit CertificateBuilder(std::uint32_t id);
    CertificateBuilder& certificateReference(const Bytes& reference);  // exactly 16 bytes
    CertificateBuilder& der(const Bytes& der);
    CertificateBuilder& objectId(const Bytes& id);
    CertificateBuilder& label(const std::string& label);
    OstrelCertificate build() const;
    operator OstrelCertificate() const { return build(); }

private:
    OstrelCertificate record_;
};

DEVICE_DOUBLE_API void setKeyPairs(const std::string& deviceId,
                                   const std::vector<OstrelKeyPair>& keyPairs);
DEVICE_DOUBLE_API void setCertificates(const std::string& deviceId,
                                       const std::vector<OstrelCertificate>& certificates);
// What the device holds now (after the module generated, imported, updated or deleted).
DEVICE_DOUBLE_API std::vector<OstrelKeyPair> keyPairs(const std::string& deviceId);
DEVICE_DOUBLE_API std::vector<OstrelCertificate> certificates(const std::string& deviceId);

// What getCertificateDetails/Subject/Issuer/SerialDER answer for this DER. Without it the double
// parses the DER itself (X.509 subject, issuer, serial, common names, public key); an
// unparsable DER makes getCertificateDetails fail with kResultBadData and the others answer
// empty.
DEVICE_DOUBLE_API void setCertificateInfo(const Bytes& der, const CertificateInfo& info);
// The files that getFilesWithExtensionsAndConvertDER finds in this folder (names without the
// folder). The operation filters them by the requested extensions, case-insensitively, in the
// order of the extensions.
DEVICE_DOUBLE_API void setFolderFiles(const std::string& folder, const FileList& files);

// ---- Scripting results and outputs ----

// The next `times` calls of the operation (name without "ostrel_") return `code` instead of
// doing their work; kEveryCall makes it permanent. Scripts queue up in order.
//  - A non-zero code fails the call without changing any state; out-values that the operation
//    reports on failure are still set (retry count, failureCount, *context = null).
//    changeUserPassword answers false; createInstance yields null; operations that return a
//    list, bytes or a TokenInfo return an empty one; releaseInstance ignores scripts.
//  - Code 0 forces success where the double's own checks (PIN, password, references) would
//    have failed; the work is done as far as it can be.
DEVICE_DOUBLE_API void scriptResult(const std::string& operation, int code, int times = 1);
DEVICE_DOUBLE_API void clearScriptedResults(const std::string& operation);
// The output bytes of the next call of finalHash (the digest, at most 64 bytes), signHash (the
// signature), encrypt, decrypt, ecdhDerive or generateRamdomNumber (the first `length` bytes;
// a shorter script is completed with fake bytes). Queued, one per call.
DEVICE_DOUBLE_API void scriptOutput(const std::string& operation, const Bytes& output);
// Makes every following ostrel_createInstance store null (the library cannot start).
DEVICE_DOUBLE_API void setCreateInstanceYieldsNull(bool yieldsNull);
// Instances made and not yet released.
DEVICE_DOUBLE_API std::vector<DeviceInstance> liveInstances();
// Hash contexts made and not yet ended, over all live instances.
DEVICE_DOUBLE_API std::size_t liveHashContextCount();

// ---- Device-list gate ----

// While closed, ostrel_getConnectedDeviceList records its call and then blocks until the gate
// opens (reset opens it too). Lets a test catch the module's monitor in the middle of a query.
DEVICE_DOUBLE_API void closeDeviceListGate();
DEVICE_DOUBLE_API void openDeviceListGate();
// True once at least `count` callers are blocked at the closed gate, false after the timeout.
DEVICE_DOUBLE_API bool waitForBlockedDeviceListCalls(std::size_t count,
                                                     std::chrono::milliseconds timeout);

// ---- Gates of any operation ----

// While the gate of an operation (name without "ostrel_") is closed, every call of it blocks
// before it is recorded or does anything, until the gate opens (reset opens all gates). Lets a
// test hold a module call in the middle of its device call, e.g. to race C_CloseSession
// against it.
DEVICE_DOUBLE_API void closeGate(const std::string& operation);
DEVICE_DOUBLE_API void openGate(const std::string& operation);
DEVICE_DOUBLE_API void openAllGates();
// True once at least `count` callers are blocked at the operation's closed gate.
DEVICE_DOUBLE_API bool waitForBlockedCalls(const std::string& operation, std::size_t count,
                                           std::chrono::milliseconds timeout);

// ---- Call log ----
// Calls in the order they finished. The module's device monitor polls getConnectedDeviceList
// every second, so a test that counts all calls should count one operation instead.

DEVICE_DOUBLE_API std::vector<Call> calls();
DEVICE_DOUBLE_API std::vector<Call> calls(const std::string& operation);
DEVICE_DOUBLE_API std::size_t callCount(const std::string& operation);
DEVICE_DOUBLE_API void clearCalls();

// ---- The double's fake data, for expected values in tests ----

// Digest length of HashAlgorithmCode 1..6 (20, 20, 32, 48, 64, 28); 0 for other codes.
DEVICE_DOUBLE_API int digestLength(int algorithm);
// What finalHash answers, unscripted, after these bytes were fed to a context of the algorithm.
DEVICE_DOUBLE_API Bytes fakeDigest(int algorithm, const Bytes& data);
// Public value the double gives a new pair of this key type: an RSA modulus of the key's size
// with its top bit set, or an uncompressed EC point 04 || X || Y. `seed` makes it unique.
DEVICE_DOUBLE_API Bytes fakePublicValue(std::int32_t keyType, const std::string& seed);
// What signHash answers, unscripted: as long as the key's modulus (RSA) or r || s (EC).
DEVICE_DOUBLE_API Bytes fakeSignature(const OstrelKeyPair& keyPair, const Bytes& hash);
// What ecdhDerive answers, unscripted: as long as a coordinate of the pair's curve.
DEVICE_DOUBLE_API Bytes fakeSharedSecret(const OstrelKeyPair& keyPair, const Bytes& peerPoint);

}  // namespace devicedouble
