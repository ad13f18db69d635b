// Key pair and certificate lists, and the operations that change them.
#include <algorithm>
#include <cstring>

#include "api/instance.h"
#include "crypto/rsa_keys.h"
#include "token/token_admin.h"

using namespace softtoken;

namespace {

// The lists handed out by reference are the snapshot's own immutable vectors: nothing is copied.
// Each thread holds the last list of each operation it asked for, which keeps that vector
// alive and unchanged until the same thread asks again, whatever the store does meanwhile (the
// contract of ostrel_device.h). A list of an unchanged store thus costs the snapshot check (one
// PRAGMA data_version) and a map lookup, and alternating between tokens costs no more.
template <typename Record>
const std::vector<Record>& emptyList() {
    static const auto* empty = new std::vector<Record>;
    return *empty;
}

template <typename Record, typename Select>
const std::vector<Record>& handOut(std::shared_ptr<const std::vector<Record>>& held,
                                   const char* operation, const char* deviceId, Select select) {
    const OpensslErrorScope errors;
    held.reset();
    OperationFrame frame;
    if (frame.begin(operation) != kOk) {
        return emptyList<Record>();
    }
    const std::string device = text(deviceId);
    const DeviceRecord* found = nullptr;
    if (TokenService::findToken(*frame.snapshot, device, true, &found) != kOk) {
        return emptyList<Record>();
    }
    const DeviceObjects* objects = frame.snapshot->objectsOf(device);
    if (objects == nullptr) {
        return emptyList<Record>();
    }
    held = select(*objects);
    return *held;
}

template <std::size_t N>
std::string boundedText(const char (&field)[N]) {
    return std::string(field, strnlen(field, N));
}

Bytes recordBytes(const unsigned char* data, std::int32_t length, std::size_t capacity) {
    if (length <= 0) {
        return {};
    }
    return Bytes(data, data + std::min(static_cast<std::size_t>(length), capacity));
}

}  // namespace

const std::vector<OstrelKeyPair>& ostrel_getKeyPairList(const char* deviceId, DeviceInstance) {
    thread_local std::shared_ptr<const KeyPairList> held;
    try {
        return handOut(held, "getKeyPairList", deviceId,
                       [](const DeviceObjects& objects) { return objects.keyPairs; });
    } catch (...) {
        return emptyList<OstrelKeyPair>();
    }
}

const std::vector<OstrelCertificate>& ostrel_getCertificateList(const char* deviceId,
                                                                DeviceInstance) {
    thread_local std::shared_ptr<const CertificateList> held;
    try {
        return handOut(held, "getCertificateList", deviceId,
                       [](const DeviceObjects& objects) { return objects.certificates; });
    } catch (...) {
        return emptyList<OstrelCertificate>();
    }
}

int ostrel_generateKeyPair(const char* deviceId, const char* password, OstrelKeyPair* keyPair,
                           DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("generateKeyPair"); result != kOk) {
            return result;
        }
        if (keyPair == nullptr || keyPair->objectIdLength < 0 ||
            static_cast<std::size_t>(keyPair->objectIdLength) > kObjectIdCapacity) {
            return kBadArgument;
        }
        KeyPairRequest request;
        request.type = keyTypeByCode(keyPair->keyType);
        if (request.type == nullptr) {
            return kUnknownAlgorithm;
        }
        // No usage given: what the module would choose itself (EC pairs also derive keys).
        request.usageFlags = keyPair->usageFlags != 0 ? keyPair->usageFlags
                             : request.type->rsa      ? kKeyUsageSign
                                                      : kKeyUsageSign | kKeyUsageDecrypt;
        request.alias = boundedText(keyPair->alias);
        request.objectId =
            recordBytes(keyPair->objectId, keyPair->objectIdLength, kObjectIdCapacity);
        PinText pin(password);
        OstrelKeyPair stored;
        int result =
            generateKeyPair(*frame.service, text(deviceId), pin.get(), request, true, &stored);
        if (result == kOk) {
            *keyPair = stored;
        }
        return result;
    });
}

int ostrel_deleteKeyPair(const char* deviceId, const unsigned char* keyReference,
                         const char* password, bool, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("deleteKeyPair"); result != kOk) {
            return result;
        }
        PinText pin(password);
        return deleteKeyPair(*frame.service, text(deviceId), keyReference, pin.get());
    });
}

int ostrel_deleteCertificate(const char* deviceId, const unsigned char* certificateReference,
                             const char*, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("deleteCertificate"); result != kOk) {
            return result;
        }
        if (certificateReference == nullptr) {
            return kBadArgument;
        }
        return deleteCertificate(*frame.service, text(deviceId), certificateReference);
    });
}

int ostrel_updateKeyPairDetails(const char* deviceId, const unsigned char* keyReference,
                                const char* password, const char* label, const unsigned char* id,
                                int idLength, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("updateKeyPairDetails"); result != kOk) {
            return result;
        }
        std::string newLabel = text(label);
        Bytes newId;
        if (id != nullptr && idLength > 0) {
            newId.assign(id, id + idLength);
        }
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
        if (int result = frame.begin("importCertificate"); result != kOk) {
            return result;
        }
        if (certificate == nullptr || certificate->derLength <= 0 ||
            static_cast<std::size_t>(certificate->derLength) > kCertificateDerCapacity ||
            certificate->objectIdLength < 0 ||
            static_cast<std::size_t>(certificate->objectIdLength) > kObjectIdCapacity) {
            return kBadArgument;
        }
        Bytes der = recordBytes(certificate->der, certificate->derLength, kCertificateDerCapacity);
        Bytes objectId =
            recordBytes(certificate->objectId, certificate->objectIdLength, kObjectIdCapacity);
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
        if (int result = frame.begin("importPfx"); result != kOk) {
            return result;
        }
        if (details == nullptr || details->objectId.size() > kObjectIdCapacity) {
            return kBadArgument;
        }
        if (details->keyKind != 2) {
            return kKeyCannotDoThis;  // RSA is the only kind imported so
        }
        PkeyPtr key;
        if (int result =
                rsaFromComponents(details->modulus, details->privateExponent, details->prime1, key);
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
