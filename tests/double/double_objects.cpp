// Key pairs and certificates on the devices: listing, generation, import, update and deletion.
#include <algorithm>
#include <cstring>

#include "double_state.h"

namespace devicedouble {

using detail::state;

void setKeyPairs(const std::string& deviceId, const std::vector<OstrelKeyPair>& keyPairs) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId).keyPairs = keyPairs;
}

void setCertificates(const std::string& deviceId,
                     const std::vector<OstrelCertificate>& certificates) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    detail::knownDevice(s, deviceId).certificates = certificates;
}

std::vector<OstrelKeyPair> keyPairs(const std::string& deviceId) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return detail::knownDevice(s, deviceId).keyPairs;
}

std::vector<OstrelCertificate> certificates(const std::string& deviceId) {
    auto& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return detail::knownDevice(s, deviceId).certificates;
}

namespace {

using detail::Device;

template <typename Record>
std::uint32_t nextId(const std::vector<Record>& records) {
    std::uint32_t highest = 0;
    for (const auto& record : records)
        highest = std::max(highest, record.id);
    return highest + 1;
}

bool sameReference(const unsigned char* stored, const unsigned char* given) {
    return std::memcmp(stored, given, kObjectReferenceSize) == 0;
}

// Storage is counted in the live TokenInfo, as the device reports it.
bool takeStorage(Device& device, bool forced) {
    if (device.info.freeObjectSpace <= 0 && !forced)
        return false;
    if (device.info.freeObjectSpace > 0)
        --device.info.freeObjectSpace;
    return true;
}

std::int32_t keyTypeOfModulus(std::size_t modulusLength) {
    switch (modulusLength) {
        case 128:
            return kKeyTypeRsa1024;
        case 256:
            return kKeyTypeRsa2048;
        case 384:
            return kKeyTypeRsa3072;
        case 512:
            return kKeyTypeRsa4096;
        default:
            return 0;
    }
}

}  // namespace

namespace detail {

OstrelKeyPair* findKeyPair(Device& device, const unsigned char* keyReference) {
    for (auto& pair : device.keyPairs) {
        if (sameReference(pair.keyReference, keyReference))
            return &pair;
    }
    return nullptr;
}

}  // namespace detail

}  // namespace devicedouble

using devicedouble::Call;
using devicedouble::detail::Device;
using devicedouble::detail::Operation;
namespace dd = devicedouble;
namespace detail = devicedouble::detail;

// Each thread has its own list, valid until that thread asks again: a monitor or a second
// session refreshing the list must not change one that the module is still walking.
const std::vector<OstrelKeyPair>& ostrel_getKeyPairList(const char* deviceId,
                                                        DeviceInstance instance) {
    thread_local std::vector<OstrelKeyPair> list;
    Operation op("getKeyPairList", instance);
    op.device(deviceId);
    list.clear();
    if (!op.admit(nullptr))
        list = op.target()->keyPairs;
    return list;
}

const std::vector<OstrelCertificate>& ostrel_getCertificateList(const char* deviceId,
                                                                DeviceInstance instance) {
    thread_local std::vector<OstrelCertificate> list;
    Operation op("getCertificateList", instance);
    op.device(deviceId);
    list.clear();
    if (!op.admit(nullptr))
        list = op.target()->certificates;
    return list;
}

int ostrel_generateKeyPair(const char* deviceId, const char* password, OstrelKeyPair* keyPair,
                           DeviceInstance instance) {
    Operation op("generateKeyPair", instance);
    op.device(deviceId);
    std::string passwordText = op.text(password, "password");
    if (!op.isNull(keyPair, "keyPair")) {
        op.call().texts.push_back(detail::fieldText(keyPair->alias, kAliasCapacity));
        op.call().bytes.push_back(detail::toBytes(
            keyPair->objectId, detail::clampedLength(keyPair->objectIdLength, kObjectIdCapacity)));
        op.number(keyPair->keyType);
        op.number(keyPair->usageFlags);
    }
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyPair == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();
    bool knownType = keyPair->keyType >= kKeyTypeRsa1024 && keyPair->keyType <= kKeyTypeEcP521;
    if (!knownType && !op.forced())
        return dd::kResultBadArgument;
    if (!dd::takeStorage(device, op.forced()))
        return dd::kResultStorageFull;

    keyPair->id = dd::nextId(device.keyPairs);
    detail::fillReference(keyPair->keyReference, detail::kKeyReferenceBase, keyPair->id);
    Bytes publicValue = dd::fakePublicValue(
        keyPair->keyType, op.call().deviceId + "-generated-" + std::to_string(keyPair->id));
    detail::storeField(keyPair->publicValue, kPublicValueCapacity, publicValue);
    keyPair->publicValueLength = static_cast<std::int32_t>(publicValue.size());
    device.keyPairs.push_back(*keyPair);
    return 0;
}

int ostrel_deleteKeyPair(const char* deviceId, const unsigned char* keyReference,
                         const char* password, bool deletionFlag, DeviceInstance instance) {
    Operation op("deleteKeyPair", instance);
    op.device(deviceId);
    op.bytes(keyReference, kObjectReferenceSize, "keyReference");
    std::string passwordText = op.text(password, "password");
    op.number(deletionFlag);
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyReference == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();
    OstrelKeyPair* found = detail::findKeyPair(device, keyReference);
    if (found == nullptr)
        return op.forced() ? 0 : dd::kResultNotFound;
    device.keyPairs.erase(device.keyPairs.begin() + (found - device.keyPairs.data()));
    ++device.info.freeObjectSpace;
    return 0;
}

int ostrel_deleteCertificate(const char* deviceId, const unsigned char* certificateReference,
                             const char* password, DeviceInstance instance) {
    Operation op("deleteCertificate", instance);
    op.device(deviceId);
    op.bytes(certificateReference, kObjectReferenceSize, "certificateReference");
    op.text(password, "password");  // recorded; certificates need no PIN
    if (auto answer = op.admit(nullptr))
        return *answer;
    if (certificateReference == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();
    auto found = std::find_if(device.certificates.begin(), device.certificates.end(),
                              [&](const OstrelCertificate& certificate) {
                                  return dd::sameReference(certificate.certificateReference,
                                                           certificateReference);
                              });
    if (found == device.certificates.end())
        return op.forced() ? 0 : dd::kResultNotFound;
    device.certificates.erase(found);
    ++device.info.freeObjectSpace;
    return 0;
}

int ostrel_updateKeyPairDetails(const char* deviceId, const unsigned char* keyReference,
                                const char* password, const char* label, const unsigned char* id,
                                int idLength, DeviceInstance instance) {
    Operation op("updateKeyPairDetails", instance);
    op.device(deviceId);
    op.bytes(keyReference, kObjectReferenceSize, "keyReference");
    std::string passwordText = op.text(password, "password");
    std::string labelText = op.text(label, "label");
    Bytes idBytes = op.bytes(id, idLength, "id");
    op.number(idLength);
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyReference == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();
    OstrelKeyPair* found = detail::findKeyPair(device, keyReference);
    if (found == nullptr)
        return op.forced() ? 0 : dd::kResultNotFound;
    if (labelText.size() >= kAliasCapacity || idBytes.size() > kObjectIdCapacity) {
        return dd::kResultBadArgument;
    }
    if (!labelText.empty())
        detail::storeText(found->alias, kAliasCapacity, labelText);
    if (!idBytes.empty()) {
        detail::storeField(found->objectId, kObjectIdCapacity, idBytes);
        found->objectIdLength = static_cast<std::int32_t>(idBytes.size());
    }
    return 0;
}

int ostrel_importCertificate(const char* deviceId, const char* password,
                             OstrelCertificate* certificate, DeviceInstance instance) {
    Operation op("importCertificate", instance);
    op.device(deviceId);
    op.text(password, "password");  // recorded; certificates need no PIN
    if (!op.isNull(certificate, "certificate")) {
        Call& call = op.call();
        call.texts.push_back(detail::fieldText(certificate->label, kCertificateLabelCapacity));
        call.bytes.push_back(detail::toBytes(
            certificate->der,
            detail::clampedLength(certificate->derLength, kCertificateDerCapacity)));
        call.bytes.push_back(
            detail::toBytes(certificate->objectId,
                            detail::clampedLength(certificate->objectIdLength, kObjectIdCapacity)));
        op.number(certificate->derLength);
        op.number(certificate->objectIdLength);
    }
    if (auto answer = op.admit(nullptr))
        return *answer;
    if (certificate == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();
    bool derFits = certificate->derLength > 0 &&
                   static_cast<std::size_t>(certificate->derLength) <= kCertificateDerCapacity;
    if (!derFits && !op.forced())
        return dd::kResultBadArgument;
    if (!dd::takeStorage(device, op.forced()))
        return dd::kResultStorageFull;

    certificate->id = dd::nextId(device.certificates);
    detail::fillReference(certificate->certificateReference, detail::kCertificateReferenceBase,
                          certificate->id);
    device.certificates.push_back(*certificate);
    return 0;
}

int ostrel_importPfx(const char* deviceId, const char* password, ImportPFXDetails* details,
                     DeviceInstance instance) {
    Operation op("importPfx", instance);
    op.device(deviceId);
    std::string passwordText = op.text(password, "password");
    if (!op.isNull(details, "details")) {
        op.call().texts.push_back(details->label);
        op.call().bytes.insert(op.call().bytes.end(), {details->modulus, details->privateExponent,
                                                       details->prime1, details->objectId});
        op.number(details->keyKind);
    }
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (details == nullptr)
        return dd::kResultBadArgument;
    Device& device = *op.target();

    // The stored public value is the modulus without leading zero bytes.
    Bytes modulus = details->modulus;
    modulus.erase(modulus.begin(), std::find_if(modulus.begin(), modulus.end(),
                                                [](unsigned char b) { return b != 0; }));
    std::int32_t keyType = dd::keyTypeOfModulus(modulus.size());
    OstrelKeyPair pair{};
    bool fits = detail::storeField(pair.publicValue, kPublicValueCapacity, modulus) &&
                detail::storeField(pair.objectId, kObjectIdCapacity, details->objectId) &&
                detail::storeText(pair.alias, kAliasCapacity, details->label);
    if (!fits || keyType == 0 || details->privateExponent.empty() || details->prime1.empty()) {
        return dd::kResultBadArgument;
    }
    if (!dd::takeStorage(device, op.forced()))
        return dd::kResultStorageFull;

    pair.id = dd::nextId(device.keyPairs);
    detail::fillReference(pair.keyReference, detail::kKeyReferenceBase, pair.id);
    pair.publicValueLength = static_cast<std::int32_t>(modulus.size());
    pair.objectIdLength = static_cast<std::int32_t>(details->objectId.size());
    pair.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
    pair.keyType = keyType;
    device.keyPairs.push_back(pair);
    details->keyReference.assign(pair.keyReference, pair.keyReference + kObjectReferenceSize);
    return 0;
}
