// The token's key pairs and certificates as PKCS #11 objects. Every lookup asks the device
// library afresh, so an object deleted on the token stops resolving at once; what a lookup
// returns is the caller's own copy of the device's record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "device/ostrel_device.h"

// The key pair with this id on the device, or nothing (also for an empty list).
std::optional<OstrelKeyPair> findKeyPairById(const char* deviceId, std::uint32_t id,
                                             DeviceInstance instance);
// The certificate with this id on the device, or nothing.
std::optional<OstrelCertificate> findCertificateById(const char* deviceId, std::uint32_t id,
                                                     DeviceInstance instance);

// Labels longer than this are cut when they are computed from a certificate.
constexpr std::size_t kComputedLabelLength = 128;

// A record's text field up to its first NUL (never past the field), with white space (blank,
// tab, line feed, carriage return, form feed, vertical tab) removed from both ends.
std::string trimmedText(const char* field, std::size_t capacity);
std::string trimmedText(const std::string& text);

// The label a certificate gives: the subject's common name, "_", the issuer's common name
// (the second and third text fields of its details), cut to 128 characters.
std::string labelFromDetails(const CertificateDetails& details);

struct EffectiveLabel {
    std::string text;
    bool computed = false;  // the record had none; `text` comes from a certificate
};

// The label that search and attributes show: the record's own label, trimmed; when that is
// empty, for a key pair the label of the first certificate on the device whose public key
// equals the pair's public value, for a certificate the label its own DER gives.
EffectiveLabel effectiveLabel(const OstrelKeyPair& keyPair, const char* deviceId,
                              DeviceInstance instance);
EffectiveLabel effectiveLabel(const OstrelCertificate& certificate);

// Bounded views of the records' length fields: a record that claims more than its field holds
// never makes the module read past it.
std::size_t publicValueLength(const OstrelKeyPair& keyPair);
std::size_t objectIdLength(const OstrelKeyPair& keyPair);
std::size_t objectIdLength(const OstrelCertificate& certificate);
std::size_t derLength(const OstrelCertificate& certificate);
