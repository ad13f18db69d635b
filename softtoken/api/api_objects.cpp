// Key pair and certificate lists, and the operations that change them.
#include <algorithm>
#include <cstring>

#include "api/instance.h"
#include "crypto/rsa_keys.h"
#include "token/token_admin.h"

using namespace softtoken;

namespace {

// The lists handed out by reference: one per thread and operation, unchanged until that
// thread asks again. When the store has not changed since, the copy is skipped.
template <typename Record>
struct ListBuffer {
    std::uint64_t generation = 0;
    std::string deviceId;
    std::vector<Record> records;

    const std::vector<Record>& empty() {
        generation = 0;
        records.clear();
        return records;
    }
};

template <typename Record, typename Source>
const std::vector<Record>& fillList(ListBuffer<Record>& buffer, const char* operation,
                                    const char* deviceId, Source copyFromSnapshot) {
    OperationFrame frame;
    if (frame.begin(operation) != kOk) return buffer.empty();
    std::string device = text(deviceId);
    const DeviceRecord* found = nullptr;
    if (TokenService::findToken(*frame.snapshot, device, true, &found) != kOk) {
        return buffer.empty();
    }
    if (buffer.generation != frame.snapshot->generation || buffer.deviceId != device) {
        buffer.records.clear();
        copyFromSnapshot(*frame.snapshot, device, buffer.records);
        buffer.generation = frame.snapshot->generation;
        buffer.deviceId = device;
    }
    return buffer.records;
}

template <std::size_t N>
std::string boundedText(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

Bytes recordBytes(const unsigned char* data, std::int32_t length, std::size_t capacity) {
    if (length <= 0) return {};
    return Bytes(data, data + std::min(static_cast<std::size_t>(length), capacity));
}

}  // namespace

const std::vector<OstrelKeyPair>& ostrel_getKeyPairList(const char* deviceId, DeviceInstance) {
    thread_local ListBuffer<OstrelKeyPair> buffer;
    try {
        return fillList(buffer, "getKeyPairList", deviceId,
                        [](const Snapshot& snapshot, const std::string& device,
                           std::vector<OstrelKeyPair>& out) {
                            auto pairs = snapshot.keyPairs.find(device);
                            if (pairs == snapshot.keyPairs.end()) return;
                            out.reserve(pairs->second.size());
                            for (const KeyPairEntry& entry : pairs->second) {
                                out.push_back(entry.record);
                            }
                        });
    } catch (...) {
        return buffer.empty();
    }
}

const std::vector<OstrelCertificate>& ostrel_getCertificateList(const char* deviceId,
                                                                DeviceInstance) {
    thread_local ListBuffer<OstrelCertificate> buffer;
    try {
        return fillList(buffer, "getCertificateList", deviceId,
                        [](const Snapshot& snapshot, const std::string& device,
                           std::vector<OstrelCertificate>& out) {
                            auto certificates = snapshot.certificates.find(device);
                            if (certificates != snapshot.certificates.end()) {
                                out = certificates->second;
                            }
                        });
    } catch (...) {
        return buffer.empty();
    }
}

int ostrel_generateKeyPair(const char* deviceId, const char* password, OstrelKeyPair* keyPair,
                           DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("generateKeyPair"); result != kOk) return result;
        if (keyPair == nullptr || keyPair->objectIdLength < 0 ||
            static_cast<std::size_t>(keyPair->objectIdLength) > kObjectIdCapacity) {
            return kBadArgument;
        }
        KeyPairRequest request;
        request.type = keyTypeByCode(keyPair->keyType);
        if (request.type == nullptr) return kUnknownAlgorithm;
        // No usage given: what the module would choose itself (EC pairs also derive keys).
        request.usageFlags = keyPair->usageFlags != 0 ? keyPair->usageFlags
                             : request.type->rsa      ? kKeyUsageSign
                                                      : kKeyUsageSign | kKeyUsageDecrypt;
        request.alias = boundedText(keyPair->alias);
        request.objectId = recordBytes(keyPair->objectId, keyPair->objectIdLength,
                                       kObjectIdCapacity);
        PinText pin(password);
        OstrelKeyPair stored;
        int result = generateKeyPair(*frame.service, text(deviceId), pin.get(), request, true,
                                     &stored);
        if (result == kOk) *keyPair = stored;
        return result;
    });
}

int ostrel_deleteKeyPair(const char* deviceId, const unsigned char* keyReference,
                         const char* password, bool, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("deleteKeyPair"); result != kOk) return result;
        PinText pin(password);
        return deleteKeyPair(*frame.service, text(deviceId), keyReference, pin.get());
    });
}

int ostrel_deleteCertificate(const char* deviceId, const unsigned char* certificateReference,
                             const char*, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("deleteCertificate"); result != kOk) return result;
        if (certificateReference == nullptr) return kBadArgument;
        return deleteCertificate(*frame.service, text(deviceId), certificateReference);
    });
}

int ostrel_updateKeyPairDetails(const char* deviceId, const unsigned char* keyReference,
                                const char* password, const char* label, const unsigned char* id,
                                int idLength, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("updateKeyPairDetails"); result != kOk) return result;
        std::string newLabel = text(label);
        Bytes newId;
        if (id != nullptr && idLength > 0) newId.assign(id, id + idLength);
        PinText pin(password);
        return updateKeyPair(*frame.service, text(deviceId), keyReference, pin.get(),
                             newLabel.empty() ? nullptr : &newLabel,
                             newId.empty() ? nullptr : &newId);
    });
}

int ostrel_importCertificate(const char* deviceId, const char*, OstrelCertificate* certificate,
                             DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("importCertificate"); result != kOk) return result;
        if (certificate == nullptr || certificate->derLength <= 0 ||
            static_cast<std::size_t>(certificate->derLength) > kCertificateDerCapacity ||
            certificate->objectIdLength < 0 ||
            static_cast<std::size_t>(certificate->objectIdLength) > kObjectIdCapacity) {
            return kBadArgument;
        }
        Bytes der = recordBytes(certificate->der, certificate->derLength, kCertificateDerCapacity);
        Bytes objectId = recordBytes(certificate->objectId, certificate->objectIdLength,
                                     kObjectIdCapacity);
        OstrelCertificate stored;
        int result = importCertificate(*frame.service, text(deviceId), der,
                                       boundedText(certificate->label), objectId, true, &stored);
        if (result == kOk) {
            certificate->id = stored.id;
            std::memcpy(certificate->certificateReference, stored.certificateReference,
                        kObjectReferenceSize);
        }
        return result;
    });
}

int ostrel_importPfx(const char* deviceId, const char* password, ImportPFXDetails* details,
                     DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("importPfx"); result != kOk) return result;
        if (details == nullptr || details->objectId.size() > kObjectIdCapacity) {
            return kBadArgument;
        }
        if (details->keyKind != 2) return kKeyCannotDoThis;  // RSA is the only kind imported so
        PkeyPtr key;
        if (int result = rsaFromComponents(details->modulus, details->privateExponent,
                                           details->prime1, key);
            result != kOk) {
            return result;
        }
        KeyPairRequest request;
        request.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
        // Labels come from applications unbounded; the record holds what fits.
        request.alias = details->label.substr(0, kAliasCapacity - 1);
        request.objectId = details->objectId;
        PinText pin(password);
        OstrelKeyPair stored;
        int result = importKeyPair(*frame.service, text(deviceId), pin.get(), key.get(), request,
                                   true, &stored);
        if (result == kOk) {
            details->keyReference.assign(stored.keyReference,
                                         stored.keyReference + kObjectReferenceSize);
        }
        return result;
    });
}
