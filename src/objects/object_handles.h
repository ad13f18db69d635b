// Object handles: fixed arithmetic on the device's own record ids, in four ranges that
// applications see. A key pair's two halves differ by exactly 0x1000; derived keys count up
// from 0x70003000. The module stores no handle of a device object: it recomputes them.
#pragma once

#include <cstdint>
#include <optional>

#include "core/handle_value.h"
#include "cryptoki/cryptoki.h"

constexpr std::uint32_t kPrivateKeyHandleBase = 0x70000000;
constexpr std::uint32_t kPublicKeyHandleBase = 0x70001000;
constexpr std::uint32_t kCertificateHandleBase = 0x70002000;
constexpr std::uint32_t kFirstDerivedKeyHandle = 0x70003000;
// Device ids are below this; the module relies on it and does not check it.
constexpr std::uint32_t kHandleRangeSize = 0x1000;

enum class ObjectKind { None, PrivateKey, PublicKey, Certificate, DerivedKey };

struct DecodedHandle {
    ObjectKind kind = ObjectKind::None;
    std::uint32_t id = 0;      // device id (key pair or certificate); the handle for derived keys
    std::uint32_t handle = 0;  // the handle as a 32-bit number
};

// The general decoding: below 0x70000000 nothing, then private keys, public keys and
// certificates by range, then derived keys from 0x70003000 up. A value above 32 bits (64-bit
// platforms) names nothing: it never aliases a valid handle by truncation. Functions whose
// own rule is narrower or wider apply it on top of the base constants above.
inline DecodedHandle decodeObjectHandle(CK_OBJECT_HANDLE hObject) {
    const std::optional<std::uint32_t> value = handleValue(hObject);
    if (!value || *value < kPrivateKeyHandleBase) {
        return {};
    }
    const std::uint32_t handle = *value;
    if (handle >= kFirstDerivedKeyHandle) {
        return {ObjectKind::DerivedKey, handle, handle};
    }
    if (handle >= kCertificateHandleBase) {
        return {ObjectKind::Certificate, handle - kCertificateHandleBase, handle};
    }
    if (handle >= kPublicKeyHandleBase) {
        return {ObjectKind::PublicKey, handle - kPublicKeyHandleBase, handle};
    }
    return {ObjectKind::PrivateKey, handle - kPrivateKeyHandleBase, handle};
}

inline std::uint32_t privateKeyHandle(std::uint32_t id) {
    return kPrivateKeyHandleBase + id;
}
inline std::uint32_t publicKeyHandle(std::uint32_t id) {
    return kPublicKeyHandleBase + id;
}
inline std::uint32_t certificateHandle(std::uint32_t id) {
    return kCertificateHandleBase + id;
}

// CKO_PRIVATE_KEY, CKO_PUBLIC_KEY or CKO_CERTIFICATE for a handle of those ranges.
inline std::optional<CK_OBJECT_CLASS> objectClassOf(CK_OBJECT_HANDLE hObject) {
    switch (decodeObjectHandle(hObject).kind) {
        case ObjectKind::PrivateKey:
            return CKO_PRIVATE_KEY;
        case ObjectKind::PublicKey:
            return CKO_PUBLIC_KEY;
        case ObjectKind::Certificate:
            return CKO_CERTIFICATE;
        default:
            return std::nullopt;
    }
}
