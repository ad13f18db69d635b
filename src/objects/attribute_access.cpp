// C_GetAttributeValue, C_SetAttributeValue and C_GetObjectSize. Every value is produced on
// demand from a fresh device record through the attribute table; only a key pair's label and
// id can be changed.
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/template_values.h"
#include "device/ostrel_device.h"
#include "objects/attribute_table.h"
#include "objects/key_types.h"
#include "objects/object_functions.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"
#include "sessions/session_access.h"
#include "sessions/user_password.h"

namespace {

using Bytes = std::vector<unsigned char>;

// The object C_GetAttributeValue answers for, with the values it prepared before reading the
// template.
struct ObjectView {
    ObjectKind kind;
    std::uint32_t handle;
    std::optional<OstrelKeyPair> keyPair;
    std::optional<OstrelCertificate> certificate;
    std::string label;
    const KeyTypeTraits* keyType = nullptr;  // key pairs only
};

Bytes numberBytes(CK_ULONG value) {
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

Bytes booleanBytes(bool value) {
    return Bytes{value ? CK_TRUE : CK_FALSE};
}

bool usageBit(const ObjectView& object, std::uint32_t bit) {
    return (object.keyPair->usageFlags & bit) != 0;
}

Bytes certificateDer(const ObjectView& object) {
    const OstrelCertificate& certificate = *object.certificate;
    return Bytes(certificate.der, certificate.der + derLength(certificate));
}

// The public value as a DER OCTET STRING: 04, the length (one byte, after 81 from 128 bytes
// on), the bytes. Public values are at most 1024 bytes, so a longer length form never arises.
Bytes ecPoint(const OstrelKeyPair& pair) {
    const std::size_t length = publicValueLength(pair);
    Bytes point{0x04};
    if (length >= 0x80) {
        point.push_back(0x81);
    }
    point.push_back(static_cast<unsigned char>(length & 0xFF));
    point.insert(point.end(), pair.publicValue, pair.publicValue + length);
    return point;
}

Bytes valueOf(AttributeSource source, const ObjectView& object) {
    const bool isPrivate = object.kind == ObjectKind::PrivateKey;
    const bool isPublic = object.kind == ObjectKind::PublicKey;
    switch (source) {
        case AttributeSource::False:
            return booleanBytes(false);
        case AttributeSource::True:
            return booleanBytes(true);
        case AttributeSource::TrueForPrivate:
            return booleanBytes(isPrivate);
        case AttributeSource::TrueForPublic:
            return booleanBytes(isPublic);
        case AttributeSource::EncryptUsage:
            return booleanBytes(isPublic && usageBit(object, kKeyUsageDecrypt));
        case AttributeSource::DecryptUsage:
            return booleanBytes(isPrivate && usageBit(object, kKeyUsageDecrypt));
        case AttributeSource::SignUsage:
            return booleanBytes(isPrivate && usageBit(object, kKeyUsageSign));
        case AttributeSource::VerifyUsage:
            return booleanBytes(isPublic && usageBit(object, kKeyUsageSign));
        case AttributeSource::ObjectClass:
            return numberBytes(objectClassOf(object.handle).value_or(CKO_CERTIFICATE));
        case AttributeSource::ObjectHandle:
            return numberBytes(object.handle);
        case AttributeSource::Zero:
            return numberBytes(0);
        case AttributeSource::ModulusBits2048:
            return numberBytes(2048);
        case AttributeSource::KeyType:
            return numberBytes(object.keyType->keyType);
        case AttributeSource::ModulusBits:
            return numberBytes(object.keyType->bits);
        case AttributeSource::KeyGenMechanism:
            return numberBytes(object.keyType->keyGenMechanism);
        case AttributeSource::Label:
            return Bytes(object.label.begin(), object.label.end());
        case AttributeSource::PublicValue:
            return Bytes(object.keyPair->publicValue,
                         object.keyPair->publicValue + publicValueLength(*object.keyPair));
        case AttributeSource::CertificateDer:
            return certificateDer(object);
        case AttributeSource::ObjectId:
            return object.keyPair
                       ? Bytes(object.keyPair->objectId,
                               object.keyPair->objectId + objectIdLength(*object.keyPair))
                       : Bytes(object.certificate->objectId,
                               object.certificate->objectId + objectIdLength(*object.certificate));
        // The DER extractors take no instance. Whatever they return is the value, also nothing.
        case AttributeSource::CertificateSubject:
            return ostrel_getCertificateSubject(
                object.certificate->der, static_cast<int>(derLength(*object.certificate)), nullptr);
        case AttributeSource::CertificateIssuer:
            return ostrel_getCertificateIssuer(
                object.certificate->der, static_cast<int>(derLength(*object.certificate)), nullptr);
        case AttributeSource::CertificateSerial:
            return ostrel_getCertificateSerialDER(
                object.certificate->der, static_cast<int>(derLength(*object.certificate)), nullptr);
        case AttributeSource::PublicExponent:
            return Bytes{0x01, 0x00, 0x01};
        case AttributeSource::EcParams:
            return object.keyType->ecParams;
        case AttributeSource::EcPoint:
            return ecPoint(*object.keyPair);
        case AttributeSource::Empty:
            return {};
    }
    return booleanBytes(false);
}

// Fills the template from the values of one object, stopping at the first entry whose buffer
// is too small: that entry keeps the caller's length and the later ones are not touched.
CK_RV fillTemplate(const ExportCall& call, const ObjectView& object, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount) {
    const bool isCertificate = object.kind == ObjectKind::Certificate;
    for (CK_ULONG i = 0; i < ulCount; ++i) {
        CK_ATTRIBUTE& attribute = pTemplate[i];
        logInfo("C_GetAttributeValue type : " + decimalText(attribute.type));
        const AttributeSources sources = attributeSources(attribute.type);
        const Bytes value = valueOf(isCertificate ? sources.certificate : sources.key, object);
        logInfo("C_GetAttributeValue length : " + decimalText(value.size()));
        if (attribute.pValue == nullptr) {
            attribute.ulValueLen = static_cast<CK_ULONG>(value.size());
            continue;
        }
        if (attribute.ulValueLen < value.size()) {
            return call.reject(CKR_BUFFER_TOO_SMALL,
                               "buffer too small at index=" + decimalText(i) +
                                   " type=" + decimalText(attribute.type) +
                                   " provided=" + decimalText(attribute.ulValueLen) +
                                   " required=" + decimalText(value.size()));
        }
        if (!value.empty()) {
            std::memcpy(attribute.pValue, value.data(), value.size());
        }
        attribute.ulValueLen = static_cast<CK_ULONG>(value.size());
    }
    return CKR_OK;
}

// A derived key has one attribute, its value; every other type is unavailable, with CKR_OK.
CK_RV fillDerivedKeyTemplate(const SecretBytes& key, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    for (CK_ULONG i = 0; i < ulCount; ++i) {
        CK_ATTRIBUTE& attribute = pTemplate[i];
        if (attribute.type != CKA_VALUE) {
            attribute.ulValueLen = CK_UNAVAILABLE_INFORMATION;
            continue;
        }
        if (attribute.pValue != nullptr) {
            if (attribute.ulValueLen < key.size()) {
                return CKR_BUFFER_TOO_SMALL;
            }
            if (!key.empty()) {
                std::memcpy(attribute.pValue, key.data(), key.size());
            }
        }
        attribute.ulValueLen = static_cast<CK_ULONG>(key.size());
    }
    return CKR_OK;
}

// The label step: the record's own label, or one computed from a certificate. A key pair's
// computed label is stored on the token while a user is logged in (compatibility register,
// entry 25); a certificate's is only returned.
void prepareLabel(const ExportCall& call, const SessionAccess& session, ObjectView& object) {
    const EffectiveLabel label =
        object.keyPair ? effectiveLabel(*object.keyPair, session.deviceId(), call.instance())
                       : effectiveLabel(*object.certificate);
    object.label = label.text;
    if (!label.computed || label.text.empty()) {
        return;
    }
    if (!object.keyPair) {
        logInfo("Empty certificate label, computed: " + label.text);
        return;
    }
    logInfo("Empty key pair label, computed: " + label.text);
    const SecretString password = userPasswordOf(call.state());
    if (!password.empty()) {
        static_cast<void>(ostrel_updateKeyPairDetails(
            session.deviceId(), object.keyPair->keyReference, password.c_str(), label.text.c_str(),
            nullptr, 0, call.instance()));
    }
}

}  // namespace

CK_RV getAttributeValue(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (pTemplate == nullptr) {
            // No colon after the name: the line's text is fixed (compatibility register,
            // entry 6).
            logError("C_GetAttributeValue template is null");
            return CKR_ARGUMENTS_BAD;
        }
        logInfo("C_GetAttributeValue count : " + decimalText(ulCount));
        if (ulCount == 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "ulCount<=0");
        }
        const DecodedHandle decoded = decodeObjectHandle(hObject);
        if (decoded.kind == ObjectKind::DerivedKey) {
            const std::optional<SecretBytes> key = call.state().derivedKeys.find(decoded.handle);
            if (!key) {
                return call.reject(CKR_OBJECT_HANDLE_INVALID,
                                   "derived key handle not found=" + decimalText(hObject));
            }
            return fillDerivedKeyTemplate(*key, pTemplate, ulCount);
        }
        ObjectView object{decoded.kind, decoded.handle, std::nullopt, std::nullopt, {}, nullptr};
        // Certificates are those strictly above 0x70002000: the handle 0x70002000 itself falls
        // through to the invalid handles (compatibility register, entry 21).
        if (decoded.kind == ObjectKind::Certificate && decoded.id != 0) {
            object.certificate =
                findCertificateById(session.deviceId(), decoded.id, call.instance());
            if (!object.certificate) {
                logError("Certificate not found in get attribute : " + decimalText(hObject));
                return CKR_OBJECT_HANDLE_INVALID;
            }
        } else if (decoded.kind != ObjectKind::PrivateKey &&
                   decoded.kind != ObjectKind::PublicKey) {
            logError("Input hobject not valid in get attribute : " + decimalText(hObject));
            return CKR_OBJECT_HANDLE_INVALID;
        } else {
            object.keyPair = findKeyPairById(session.deviceId(), decoded.id, call.instance());
            if (!object.keyPair) {
                logError("Key pair not found in get attribute : " + decimalText(hObject));
                return CKR_OBJECT_HANDLE_INVALID;
            }
            object.keyType = &keyTypeTraits(object.keyPair->keyType);
        }
        prepareLabel(call, session, object);
        return fillTemplate(call, object, pTemplate, ulCount);
    });
}

CK_RV setAttributeValue(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                        CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = requireTemplate(call, pTemplate, ulCount); rv != CKR_OK) {
            return rv;
        }
        // Only keys: certificates and derived keys cannot be changed.
        const DecodedHandle decoded = decodeObjectHandle(hObject);
        if (decoded.kind != ObjectKind::PrivateKey && decoded.kind != ObjectKind::PublicKey) {
            return call.reject(CKR_OBJECT_HANDLE_INVALID,
                               "invalid hObject=" + decimalText(hObject));
        }
        const std::optional<OstrelKeyPair> pair =
            findKeyPairById(session.deviceId(), decoded.id, call.instance());
        if (!pair) {
            logError("Key pair not found in Set attribute : " + decimalText(hObject));
            return CKR_OBJECT_HANDLE_INVALID;
        }
        std::string label;
        Bytes id;
        for (CK_ULONG i = 0; i < ulCount; ++i) {
            const CK_ATTRIBUTE& attribute = pTemplate[i];
            logInfo("C_SetAttributeValue - attrip type : " + decimalText(attribute.type));
            if (attribute.type == CKA_LABEL) {
                label = templateText(attribute);
            } else if (attribute.type == CKA_ID) {
                id = templateBytes(attribute);
            }
        }
        if (!label.empty() || !id.empty()) {
            // Neither the session state nor a login is checked: the device decides with the
            // PIN it is given, empty when nobody is logged in.
            const SecretString password = userPasswordOf(call.state());
            const int result = ostrel_updateKeyPairDetails(
                session.deviceId(), pair->keyReference, password.c_str(), label.c_str(),
                id.empty() ? nullptr : id.data(), static_cast<int>(id.size()), call.instance());
            if (result != 0) {
                logError("Update key pair details failed : " + decimalText(result));
                return CKR_FUNCTION_FAILED;
            }
        }
        logInfo("Set attribute end");
        return CKR_OK;
    });
}

CK_RV getObjectSize(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,
                    CK_ULONG_PTR pulSize) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // The size pointer was never checked before; a null one would crash the caller.
        if (CK_RV rv = call.requireNonNull(pulSize, "pulSize"); rv != CKR_OK) {
            return rv;
        }
        const DecodedHandle decoded = decodeObjectHandle(hObject);
        if (decoded.kind == ObjectKind::PrivateKey || decoded.kind == ObjectKind::PublicKey) {
            const std::optional<OstrelKeyPair> pair =
                findKeyPairById(session.deviceId(), decoded.id, call.instance());
            const bool isPrivate = decoded.kind == ObjectKind::PrivateKey;
            if (!pair) {
                logError(std::string(isPrivate ? "Private" : "Public") +
                         " key not found in get object size : " + decimalText(hObject));
                return CKR_OBJECT_HANDLE_INVALID;
            }
            // A private key counts twice its public value (compatibility register, entry 24).
            *pulSize = static_cast<CK_ULONG>((isPrivate ? 2 : 1) * publicValueLength(*pair));
            return CKR_OK;
        }
        // Every other handle is taken for a certificate, its id by 32-bit arithmetic; a handle
        // above 32 bits names none.
        const std::optional<std::uint32_t> value = handleValue(hObject);
        const std::optional<OstrelCertificate> certificate =
            value ? findCertificateById(session.deviceId(), *value - kCertificateHandleBase,
                                        call.instance())
                  : std::nullopt;
        if (!certificate) {
            logError("Certificate not found in get object size : " + decimalText(hObject));
            return CKR_OBJECT_HANDLE_INVALID;
        }
        *pulSize = static_cast<CK_ULONG>(derLength(*certificate));
        return CKR_OK;
    });
}
