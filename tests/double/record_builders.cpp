// Builders for the records a test puts on a device: TokenInfo, OstrelKeyPair, OstrelCertificate.
#include <algorithm>
#include <stdexcept>

#include "double_state.h"

namespace devicedouble {

namespace {

// Fixed-size record fields are filled from vectors and strings; an oversized value is a mistake
// in the test, reported rather than cut.
void copyInto(unsigned char* field, std::size_t capacity, const Bytes& value, const char* name) {
    if (!detail::storeField(field, capacity, value)) {
        throw std::length_error(std::string("device double: ") + name + " holds at most " +
                                std::to_string(capacity) + " bytes");
    }
}

void copyText(char* field, std::size_t capacity, const std::string& value, const char* name) {
    // One byte stays for the terminating NUL the module relies on.
    if (!detail::storeText(field, capacity, value)) {
        throw std::length_error(std::string("device double: ") + name + " holds at most " +
                                std::to_string(capacity - 1) + " characters");
    }
}

void requireReferenceSize(const Bytes& reference) {
    if (reference.size() != kObjectReferenceSize) {
        throw std::length_error("device double: a reference has exactly 16 bytes");
    }
}

}  // namespace

namespace detail {

void fillReference(unsigned char* reference, unsigned char base, std::uint32_t id) {
    for (std::size_t i = 0; i < 12; ++i)
        reference[i] = static_cast<unsigned char>(base + i);
    for (std::size_t i = 0; i < 4; ++i) {
        reference[12 + i] = static_cast<unsigned char>(id >> (24 - 8 * i));
    }
}

}  // namespace detail

TokenInfo makeTokenInfo(const std::string& serial, const std::string& label,
                        const std::string& model, const std::string& firmwareVersion) {
    TokenInfo info;
    info.serialNumber = serial;
    info.deviceName = "Ostrel test token";
    info.label = label.empty() ? serial : label;
    info.manufacturer = "Kelvanetics";
    info.model = model;
    info.firmwareVersion = firmwareVersion;
    info.hardwareVersion = "1.0";
    info.userPinChanged = 1;
    info.pinRetryCount = 10;
    info.maximumPinRetries = 10;
    info.freeObjectSpace = 32;
    return info;
}

KeyPairBuilder::KeyPairBuilder(std::uint32_t id) : record_() {
    record_.id = id;
    detail::fillReference(record_.keyReference, detail::kKeyReferenceBase, id);
    record_.usageFlags = kKeyUsageSign | kKeyUsageDecrypt;
    keyType(kKeyTypeRsa2048);
}

KeyPairBuilder& KeyPairBuilder::keyReference(const Bytes& reference) {
    requireReferenceSize(reference);
    copyInto(record_.keyReference, kObjectReferenceSize, reference, "keyReference");
    return *this;
}

KeyPairBuilder& KeyPairBuilder::publicValue(const Bytes& value) {
    copyInto(record_.publicValue, kPublicValueCapacity, value, "publicValue");
    record_.publicValueLength = static_cast<std::int32_t>(value.size());
    publicValueGiven_ = true;
    return *this;
}

KeyPairBuilder& KeyPairBuilder::objectId(const Bytes& id) {
    copyInto(record_.objectId, kObjectIdCapacity, id, "objectId");
    record_.objectIdLength = static_cast<std::int32_t>(id.size());
    return *this;
}

KeyPairBuilder& KeyPairBuilder::alias(const std::string& alias) {
    copyText(record_.alias, kAliasCapacity, alias, "alias");
    return *this;
}

KeyPairBuilder& KeyPairBuilder::usageFlags(std::uint32_t flags) {
    record_.usageFlags = flags;
    return *this;
}

KeyPairBuilder& KeyPairBuilder::keyType(std::int32_t type) {
    record_.keyType = type;
    if (!publicValueGiven_) {
        Bytes value = fakePublicValue(type, "pair-" + std::to_string(record_.id));
        copyInto(record_.publicValue, kPublicValueCapacity, value, "publicValue");
        record_.publicValueLength = static_cast<std::int32_t>(value.size());
    }
    return *this;
}

KeyPairBuilder& KeyPairBuilder::deletionFlag(bool flag) {
    record_.deletionFlag = flag;
    return *this;
}

OstrelKeyPair KeyPairBuilder::build() const {
    return record_;
}

CertificateBuilder::CertificateBuilder(std::uint32_t id) : record_() {
    record_.id = id;
    detail::fillReference(record_.certificateReference, detail::kCertificateReferenceBase, id);
}

CertificateBuilder& CertificateBuilder::certificateReference(const Bytes& reference) {
    requireReferenceSize(reference);
    copyInto(record_.certificateReference, kObjectReferenceSize, reference, "certificateReference");
    return *this;
}

CertificateBuilder& CertificateBuilder::der(const Bytes& der) {
    copyInto(record_.der, kCertificateDerCapacity, der, "der");
    record_.derLength = static_cast<std::int32_t>(der.size());
    return *this;
}

CertificateBuilder& CertificateBuilder::objectId(const Bytes& id) {
    copyInto(record_.objectId, kObjectIdCapacity, id, "objectId");
    record_.objectIdLength = static_cast<std::int32_t>(id.size());
    return *this;
}

CertificateBuilder& CertificateBuilder::label(const std::string& label) {
    copyText(record_.label, kCertificateLabelCapacity, label, "label");
    return *this;
}

OstrelCertificate CertificateBuilder::build() const {
    return record_;
}

}  // namespace devicedouble
