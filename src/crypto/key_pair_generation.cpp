// Key pairs generated on the token. The module fills the device's key-pair record from the two
// templates (label, id, usage and the key-type code, which alone tells the device the key size
// or curve) and returns the handles of the new pair; the mechanism type itself is never looked
// at (compatibility register, entry 35).
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "core/template_values.h"
#include "crypto/crypto_operations.h"
#include "crypto/operation_rules.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"
#include "objects/key_types.h"
#include "objects/object_handles.h"

namespace {

// At most this many bytes of CKA_LABEL and CKA_ID are kept.
constexpr std::size_t kTemplateBytesKept = 128;

// Key generation needs a read-write session.
constexpr std::initializer_list<CK_STATE> kStatesForGeneration = {
    CKS_RW_PUBLIC_SESSION, CKS_RW_USER_FUNCTIONS, CKS_RW_SO_FUNCTIONS};

constexpr CK_ULONG kRefusedModulusBits = 1024;

// Without CKA_MODULUS_BITS an RSA pair is 2048 bits; without CKA_EC_PARAMS an EC pair is P-256.
constexpr std::int32_t kDefaultKeyType = kKeyTypeRsa2048;
constexpr std::int32_t kDefaultEcKeyType = kKeyTypeEcP256;

// Copies at most kTemplateBytesKept bytes of the value; answers how many.
std::size_t copyValue(const CK_ATTRIBUTE& attribute, void* field) {
    const std::size_t length = std::min<std::size_t>(attribute.ulValueLen, kTemplateBytesKept);
    std::memcpy(field, attribute.pValue, length);
    return length;
}

bool isTrue(const CK_ATTRIBUTE& attribute) {
    return *static_cast<const CK_BYTE*>(attribute.pValue) != 0;
}

// The private template gives the key type, the label, the id and the usage; every other
// attribute, and every null or empty value, is passed over. A later attribute of a type
// overwrites an earlier one.
CK_KEY_TYPE readPrivateTemplate(const CK_ATTRIBUTE* attributes, CK_ULONG count,
                                OstrelKeyPair& record) {
    CK_KEY_TYPE keyType = CKK_RSA;
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& attribute = attributes[i];
        if (!hasValue(attribute)) {
            continue;
        }
        switch (attribute.type) {
            case CKA_LABEL:
                record.alias[copyValue(attribute, record.alias)] = '\0';
                break;
            case CKA_KEY_TYPE:
                keyType = templateNumber(attribute).value_or(keyType);
                break;
            case CKA_ID:
                record.objectIdLength =
                    static_cast<std::int32_t>(copyValue(attribute, record.objectId));
                break;
            case CKA_DECRYPT:
                record.usageFlags |= isTrue(attribute) ? kKeyUsageDecrypt : 0;
                break;
            case CKA_SIGN:
                record.usageFlags |= isTrue(attribute) ? kKeyUsageSign : 0;
                break;
            default:
                break;
        }
    }
    if (record.usageFlags == 0) {
        record.usageFlags = keyType == CKK_EC ? kKeyUsageSign | kKeyUsageDecrypt : kKeyUsageSign;
    }
    return keyType;
}

CK_RV readModulusBits(const ExportCall& call, const CK_ATTRIBUTE& attribute,
                      OstrelKeyPair& record) {
    const std::optional<CK_ULONG> bits = templateNumber(attribute);
    if (!bits) {
        return CKR_OK;
    }
    logInfo("C_GenerateKeyPair - modulusBits : " + decimalText(*bits));
    if (*bits == kRefusedModulusBits) {
        return call.reject(CKR_KEY_SIZE_RANGE,
                           "RSA-1024 key generation not allowed \xE2\x80\x94 key size below "
                           "112-bit security strength");
    }
    const KeyTypeTraits* size = keyTypeOfModulusBits(*bits);
    if (size == nullptr) {
        return call.reject(CKR_MECHANISM_INVALID,
                           "unsupported RSA modulusBits=" + decimalText(*bits));
    }
    record.keyType = size->code;
    return CKR_OK;
}

CK_RV readCurve(const ExportCall& call, const CK_ATTRIBUTE& attribute, OstrelKeyPair& record) {
    const KeyTypeTraits* curve = keyTypeOfCurve(static_cast<const unsigned char*>(attribute.pValue),
                                                static_cast<std::size_t>(attribute.ulValueLen));
    if (curve == nullptr) {
        return call.reject(CKR_MECHANISM_INVALID,
                           "unknown EC param (len=" + decimalText(attribute.ulValueLen) + ")");
    }
    record.keyType = curve->code;
    return CKR_OK;
}

// The public template gives the size: CKA_MODULUS_BITS for RSA, CKA_EC_PARAMS for EC. Every
// other attribute, and the whole template for any other key type, is passed over.
CK_RV readPublicTemplate(const ExportCall& call, const CK_ATTRIBUTE* attributes, CK_ULONG count,
                         CK_KEY_TYPE keyType, OstrelKeyPair& record) {
    record.keyType = kDefaultKeyType;
    for (CK_ULONG i = 0; i < count; ++i) {
        const CK_ATTRIBUTE& attribute = attributes[i];
        if (!hasValue(attribute)) {
            continue;
        }
        CK_RV rv = CKR_OK;
        if (keyType == CKK_RSA && attribute.type == CKA_MODULUS_BITS) {
            rv = readModulusBits(call, attribute, record);
        } else if (keyType == CKK_EC && attribute.type == CKA_EC_PARAMS) {
            rv = readCurve(call, attribute, record);
        }
        if (rv != CKR_OK) {
            return rv;
        }
    }
    if (keyType == CKK_EC && record.keyType < kDefaultEcKeyType) {
        record.keyType = kDefaultEcKeyType;
    }
    return CKR_OK;
}

CK_RV checkArguments(const ExportCall& call, CK_MECHANISM_PTR pMechanism,
                     CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                     CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                     CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey) {
    if (CK_RV rv = call.requireNonNull(pMechanism, "pMechanism"); rv != CKR_OK) {
        return rv;
    }
    if (pMechanism->pParameter != nullptr || pMechanism->ulParameterLen != 0) {
        return call.reject(CKR_MECHANISM_PARAM_INVALID, "mechanism param invalid for mechanism=" +
                                                            decimalText(pMechanism->mechanism));
    }
    if (CK_RV rv = call.requireNonNull(pPublicKeyTemplate, "pPublicKeyTemplate"); rv != CKR_OK) {
        return rv;
    }
    if (ulPublicKeyAttributeCount == 0) {
        return call.reject(CKR_ARGUMENTS_BAD, "ulPublicKeyAttributeCount<=0");
    }
    if (CK_RV rv = call.requireNonNull(pPrivateKeyTemplate, "pPrivateKeyTemplate"); rv != CKR_OK) {
        return rv;
    }
    if (ulPrivateKeyAttributeCount == 0) {
        return call.reject(CKR_ARGUMENTS_BAD, "ulPrivateKeyAttributeCount<=0");
    }
    if (CK_RV rv = call.requireNonNull(phPublicKey, "phPublicKey"); rv != CKR_OK) {
        return rv;
    }
    return call.requireNonNull(phPrivateKey, "phPrivateKey");
}

}  // namespace

CK_RV generateKeyPair(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                      CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                      CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                      CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        // Both read-only states are refused: compatibility register, entry 28.
        if (CK_RV rv = requireSessionState(call, session, kStatesForGeneration); rv != CKR_OK) {
            return rv;
        }
        if (CK_RV rv = checkArguments(call, pMechanism, pPublicKeyTemplate,
                                      ulPublicKeyAttributeCount, pPrivateKeyTemplate,
                                      ulPrivateKeyAttributeCount, phPublicKey, phPrivateKey);
            rv != CKR_OK) {
            return rv;
        }
        OstrelKeyPair record{};
        const CK_KEY_TYPE keyType =
            readPrivateTemplate(pPrivateKeyTemplate, ulPrivateKeyAttributeCount, record);
        logInfo("C_GenerateKeyPair - keytype : " + decimalText(keyType));
        if (CK_RV rv = readPublicTemplate(call, pPublicKeyTemplate, ulPublicKeyAttributeCount,
                                          keyType, record);
            rv != CKR_OK) {
            return rv;
        }
        const int result = ostrel_generateKeyPair(
            session.deviceId(), userPasswordOf(call.state()).c_str(), &record, call.instance());
        if (result != 0) {
            return reportDeviceFailure("Generate key pair failed : ", result,
                                       FullTokenAnswer::DeviceMemory);
        }
        // The new pair is found on the token by its id like every other: nothing is kept here.
        *phPublicKey = publicKeyHandle(record.id);
        *phPrivateKey = privateKeyHandle(record.id);
        logInfo("C_GenerateKeyPair - exit");
        return CKR_OK;
    });
}
