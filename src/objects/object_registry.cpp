#include "objects/object_registry.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr const char* kLabelWhiteSpace = " \t\n\r\f\v";

std::size_t boundedLength(std::int32_t length, std::size_t capacity) {
    if (length <= 0) {
        return 0;
    }
    return std::min(static_cast<std::size_t>(length), capacity);
}

template <typename Record>
std::optional<Record> findById(const std::vector<Record>& records, std::uint32_t id) {
    const auto found = std::find_if(records.begin(), records.end(),
                                    [id](const Record& record) { return record.id == id; });
    if (found == records.end()) {
        return std::nullopt;
    }
    return *found;
}

bool publicKeyMatches(const CertificateDetails& details, const OstrelKeyPair& keyPair) {
    const std::size_t length = publicValueLength(keyPair);
    return details.publicKey.size() == length &&
           std::equal(details.publicKey.begin(), details.publicKey.end(), keyPair.publicValue);
}

}  // namespace

std::optional<OstrelKeyPair> findKeyPairById(const char* deviceId, std::uint32_t id,
                                             DeviceInstance instance) {
    return findById(ostrel_getKeyPairList(deviceId, instance), id);
}

std::optional<OstrelCertificate> findCertificateById(const char* deviceId, std::uint32_t id,
                                                     DeviceInstance instance) {
    return findById(ostrel_getCertificateList(deviceId, instance), id);
}

std::string trimmedText(const std::string& text) {
    const std::size_t last = text.find_last_not_of(kLabelWhiteSpace);
    if (last == std::string::npos) {
        return {};
    }
    const std::size_t first = text.find_first_not_of(kLabelWhiteSpace);
    return text.substr(first, last - first + 1);
}

std::string trimmedText(const char* field, std::size_t capacity) {
    const void* nul = std::memchr(field, '\0', capacity);
    const std::size_t length =
        nul == nullptr ? capacity : static_cast<std::size_t>(static_cast<const char*>(nul) - field);
    return trimmedText(std::string(field, length));
}

std::string labelFromDetails(const CertificateDetails& details) {
    std::string label = details.subjectCommonName + "_" + details.issuerCommonName;
    if (label.size() > kComputedLabelLength) {
        label.resize(kComputedLabelLength);
    }
    return label;
}

EffectiveLabel effectiveLabel(const OstrelKeyPair& keyPair, const char* deviceId,
                              DeviceInstance instance) {
    EffectiveLabel label{trimmedText(keyPair.alias, sizeof keyPair.alias), false};
    if (!label.text.empty()) {
        return label;
    }
    // The list reference stays valid while only certificate details are asked for.
    for (const OstrelCertificate& certificate : ostrel_getCertificateList(deviceId, instance)) {
        CertificateDetails details;
        if (ostrel_getCertificateDetails(certificate.der, static_cast<int>(derLength(certificate)),
                                         details, nullptr) != 0 ||
            !publicKeyMatches(details, keyPair)) {
            continue;
        }
        return {labelFromDetails(details), true};
    }
    return label;
}

EffectiveLabel effectiveLabel(const OstrelCertificate& certificate) {
    EffectiveLabel label{trimmedText(certificate.label, sizeof certificate.label), false};
    if (!label.text.empty() || certificate.derLength <= 0) {
        return label;
    }
    CertificateDetails details;
    if (ostrel_getCertificateDetails(certificate.der, static_cast<int>(derLength(certificate)),
                                     details, nullptr) == 0) {
        return {labelFromDetails(details), true};
    }
    return label;
}

std::size_t publicValueLength(const OstrelKeyPair& keyPair) {
    return boundedLength(keyPair.publicValueLength, sizeof keyPair.publicValue);
}
std::size_t objectIdLength(const OstrelKeyPair& keyPair) {
    return boundedLength(keyPair.objectIdLength, sizeof keyPair.objectId);
}
std::size_t objectIdLength(const OstrelCertificate& certificate) {
    return boundedLength(certificate.objectIdLength, sizeof certificate.objectId);
}
std::size_t derLength(const OstrelCertificate& certificate) {
    return boundedLength(certificate.derLength, sizeof certificate.der);
}
