// C_CreateObject: the only way to put objects on the token from outside. An X.509 certificate
// is imported with the chain of its issuers from the installation's certificate-authority
// folder when a user is logged in (alone otherwise), and gives its label to the key pair it
// belongs to when that pair has none; an RSA private key goes to the device's PFX import.
#include <algorithm>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/secret_bytes.h"
#include "core/template_values.h"
#include "device/device_failure.h"
#include "device/ostrel_device.h"
#include "objects/certificate_chain.h"
#include "objects/object_functions.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"
#include "sessions/session_access.h"
#include "sessions/user_password.h"

namespace {

// Labels stored with a certificate are cut to this many characters.
constexpr std::size_t kStoredLabelLength = 128;
// ImportPFXDetails::keyKind of an RSA key.
constexpr std::int32_t kPfxKeyKindRsa = 2;

// The template as C_CreateObject reads it. Entries without a value are skipped silently.
struct CreateTemplate {
    CK_OBJECT_CLASS objectClass = CKO_CERTIFICATE;
    std::optional<CK_KEY_TYPE> keyType;
    std::string label;
    std::optional<Bytes> value;
    Bytes id;
    std::optional<SecretBytes> modulus;
    std::optional<SecretBytes> privateExponent;
    std::optional<SecretBytes> prime1;
};

SecretBytes secretBytes(const CK_ATTRIBUTE& attribute) {
    const auto* bytes = static_cast<const unsigned char*>(attribute.pValue);
    return SecretBytes(bytes, bytes + attribute.ulValueLen);
}

// Numbers (class, key type) are read as CK_ULONG; a shorter value is taken as absent.
CreateTemplate readTemplate(const CK_ATTRIBUTE* pTemplate, CK_ULONG ulCount) {
    CreateTemplate read;
    for (CK_ULONG i = 0; i < ulCount; ++i) {
        const CK_ATTRIBUTE& attribute = pTemplate[i];
        if (!hasValue(attribute)) {
            continue;
        }
        // "attrip" is the line's fixed text (compatibility register, entry 6).
        logInfo("C_CreateObject - attrip type : " + decimalText(attribute.type));
        switch (attribute.type) {
            case CKA_CLASS:
                if (auto number = templateNumber(attribute)) {
                    read.objectClass = *number;
                }
                break;
            case CKA_KEY_TYPE:
                if (auto number = templateNumber(attribute)) {
                    read.keyType = *number;
                }
                break;
            case CKA_LABEL:
                read.label = templateText(attribute);
                break;
            case CKA_VALUE:
                read.value = templateBytes(attribute);
                break;
            case CKA_ID:
                read.id = templateBytes(attribute);
                break;
            case CKA_MODULUS:
                read.modulus = secretBytes(attribute);
                break;
            case CKA_PRIVATE_EXPONENT:
                read.privateExponent = secretBytes(attribute);
                break;
            case CKA_PRIME_1:
                read.prime1 = secretBytes(attribute);
                break;
            default:
                break;
        }
    }
    return read;
}

// Copies at most `capacity` bytes into a record field; answers how many.
std::size_t copyInto(void* field, std::size_t capacity, const void* data, std::size_t length) {
    const std::size_t copied = std::min(length, capacity);
    if (copied != 0) {
        std::memcpy(field, data, copied);
    }
    return copied;
}

// A certificate record to import: DER, label (cut to 128 characters) and id.
OstrelCertificate certificateRecord(const Bytes& der, const std::string& label, const Bytes& id) {
    OstrelCertificate record{};
    record.derLength =
        static_cast<std::int32_t>(copyInto(record.der, sizeof record.der, der.data(), der.size()));
    copyInto(record.label, kStoredLabelLength, label.data(), label.size());
    record.objectIdLength = static_cast<std::int32_t>(
        copyInto(record.objectId, sizeof record.objectId, id.data(), id.size()));
    return record;
}

// The handle of the certificate the device stored under this reference, read from a fresh list.
std::optional<std::uint32_t> storedCertificateHandle(const ExportCall& call, const char* deviceId,
                                                     const unsigned char* reference) {
    for (const OstrelCertificate& certificate :
         ostrel_getCertificateList(deviceId, call.instance())) {
        if (std::memcmp(certificate.certificateReference, reference, kObjectReferenceSize) == 0) {
            return certificateHandle(certificate.id);
        }
    }
    return std::nullopt;
}

// Imports the chain root first; the first failure ends the walk (members already stored stay).
// On success `leaf` holds the record the device filled for the certificate itself.
int importChain(const ExportCall& call, const char* deviceId, const SecretString& password,
                const std::vector<ChainMember>& chain, OstrelCertificate& leaf) {
    for (std::size_t i = 0; i < chain.size(); ++i) {
        const bool isLeaf = i + 1 == chain.size();
        OstrelCertificate record =
            isLeaf ? leaf : certificateRecord(chain[i].der, labelFromDetails(chain[i].details), {});
        const int result =
            ostrel_importCertificate(deviceId, password.c_str(), &record, call.instance());
        if (result != 0) {
            return result;
        }
        logInfo("Certificate imported successfully");
        if (isLeaf) {
            leaf = record;
        }
    }
    return 0;
}

// The key pair whose public value is the certificate's public key takes the certificate's
// label when it has none. Its result never makes the call fail.
void labelKeyPairOfCertificate(const ExportCall& call, const char* deviceId,
                               const SecretString& password, const CertificateDetails& details,
                               const std::string& label) {
    for (const OstrelKeyPair& pair : ostrel_getKeyPairList(deviceId, call.instance())) {
        if (!sameBytes(details.publicKey, pair.publicValue, publicValueLength(pair))) {
            continue;
        }
        if (trimmedText(pair.alias, sizeof pair.alias).empty()) {
            logInfo("Updating empty key pair alias to: " + label);
            if (!password.empty()) {
                const OstrelKeyPair target = pair;  // the list may change under the update
                static_cast<void>(ostrel_updateKeyPairDetails(deviceId, target.keyReference,
                                                              password.c_str(), label.c_str(),
                                                              nullptr, 0, call.instance()));
            }
        }
        return;
    }
}

CK_RV importCertificate(const ExportCall& call, const SessionAccess& session,
                        const CreateTemplate& read, CK_OBJECT_HANDLE_PTR phObject) {
    if (CK_RV rv = call.requireNonNull(phObject, "phObject"); rv != CKR_OK) {
        return rv;
    }
    if (!read.value) {
        logError("Certificate data not available in create object");
        return CKR_FUNCTION_FAILED;
    }
    ChainMember certificate{*read.value, {}};
    if (ostrel_getCertificateDetails(certificate.der.data(),
                                     static_cast<int>(certificate.der.size()), certificate.details,
                                     nullptr) != 0) {
        logInfo("certificate parsing failed");
        return CKR_DATA_INVALID;
    }
    std::string label = trimmedText(read.label);
    if (label.empty()) {
        label = labelFromDetails(certificate.details);
        logInfo("Label not provided, using: " + label);
    }
    label.resize(std::min(label.size(), kStoredLabelLength));
    OstrelCertificate leaf = certificateRecord(certificate.der, label, read.id);

    const SecretString password = userPasswordOf(call.state());
    std::vector<ChainMember> chain;
    if (!password.empty()) {
        chain = chainFromFolder(certificate, certificateAuthorityFolder());
    }
    int result = 0;
    if (!chain.empty()) {
        result = importChain(call, session.deviceId(), password, chain, leaf);
    } else {
        logInfo("Chain import skipped or failed \xE2\x80\x94 Performing normal leaf import");
        result =
            ostrel_importCertificate(session.deviceId(), password.c_str(), &leaf, call.instance());
    }
    if (result != 0) {
        return reportDeviceFailure("Leaf import failed: ", result, FullTokenAnswer::DeviceMemory);
    }
    const std::optional<std::uint32_t> handle =
        storedCertificateHandle(call, session.deviceId(), leaf.certificateReference);
    if (!handle) {
        logError("Imported certificate not found in create object");
        return CKR_FUNCTION_FAILED;
    }
    *phObject = *handle;
    labelKeyPairOfCertificate(call, session.deviceId(), password, certificate.details, label);
    return CKR_OK;
}

void wipeVector(std::vector<unsigned char>& bytes) {
    wipeBytes(bytes.data(), bytes.size());
    bytes.clear();
}

CK_RV importPrivateKey(const ExportCall& call, const SessionAccess& session,
                       const CreateTemplate& read, CK_OBJECT_HANDLE_PTR phObject) {
    if (read.keyType == CKK_EC) {
        logError("ECC keypair not supported for import");
        return CKR_FUNCTION_FAILED;
    }
    if (!read.modulus || !read.privateExponent || !read.prime1) {
        logError("Invalid input parameters for import RSA key");
        return CKR_FUNCTION_FAILED;
    }
    // Independent of the FIPS settings: RSA-1024 never enters the token.
    if (read.modulus->size() <= 128) {
        return call.reject(CKR_KEY_SIZE_RANGE,
                           "RSA-1024 key import not allowed \xE2\x80\x94 key size below 112-bit "
                           "security strength");
    }
    ImportPFXDetails details;
    details.modulus.assign(read.modulus->begin(), read.modulus->end());
    details.privateExponent.assign(read.privateExponent->begin(), read.privateExponent->end());
    details.prime1.assign(read.prime1->begin(), read.prime1->end());
    details.objectId = read.id;
    details.label = read.label;
    details.keyKind = kPfxKeyKindRsa;
    const SecretString password = userPasswordOf(call.state());
    const int result =
        ostrel_importPfx(session.deviceId(), password.c_str(), &details, call.instance());
    // The record's vectors are the device library's type; their key material is wiped here.
    wipeVector(details.privateExponent);
    wipeVector(details.prime1);
    if (result != 0) {
        return reportDeviceFailure("Import private key into device failed : ", result,
                                   FullTokenAnswer::DeviceMemory);
    }
    for (const OstrelKeyPair& pair : ostrel_getKeyPairList(session.deviceId(), call.instance())) {
        if (details.keyReference.size() == kObjectReferenceSize &&
            std::memcmp(pair.keyReference, details.keyReference.data(), kObjectReferenceSize) ==
                0) {
            *phObject = privateKeyHandle(pair.id);
            return CKR_OK;
        }
    }
    logError("Imported key pair not found in create object");
    return CKR_FUNCTION_FAILED;
}

}  // namespace

CK_RV createObject(ExportCall& call, CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                   CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phObject) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = requireTemplate(call, pTemplate, ulCount); rv != CKR_OK) {
            return rv;
        }
        const CreateTemplate read = readTemplate(pTemplate, ulCount);
        if (read.objectClass == CKO_CERTIFICATE) {
            return importCertificate(call, session, read, phObject);
        }
        if (CK_RV rv = call.requireNonNull(phObject, "phObject"); rv != CKR_OK) {
            return rv;
        }
        if (read.objectClass != CKO_PRIVATE_KEY) {
            logError("Provided object class not supported : " + decimalText(read.objectClass));
            return CKR_FUNCTION_NOT_SUPPORTED;
        }
        return importPrivateKey(call, session, read, phObject);
    });
}
