// C_FindObjectsInit, C_FindObjects and C_FindObjectsFinal. Init reads the device's lists once,
// filters them by a few template attributes and keeps the ids of what matched; C_FindObjects
// hands the snapshot out as handles in a fixed order, from where the previous call stopped.
// Derived keys are never found. The snapshot's rules are compatibility register, entry 23.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "core/list_output.h"
#include "core/template_values.h"
#include "crypto/hex_der.h"
#include "crypto/operation_rules.h"
#include "device/ostrel_device.h"
#include "objects/object_functions.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"
#include "sessions/login_rules.h"
#include "sessions/session_access.h"

namespace {

// A template value as the caller holds it: the search only compares, it copies nothing.
struct ByteView {
    const unsigned char* data = nullptr;
    std::size_t size = 0;

    bool equals(const unsigned char* other, std::size_t otherSize) const {
        return size == otherSize && (size == 0 || std::memcmp(data, other, size) == 0);
    }
    bool equals(const std::vector<unsigned char>& other) const {
        return equals(other.data(), other.size());
    }
};

ByteView viewOf(const CK_ATTRIBUTE& attribute) {
    return {static_cast<const unsigned char*>(attribute.pValue),
            static_cast<std::size_t>(attribute.ulValueLen)};
}

// What the template asks for; the last occurrence of an attribute counts.
struct Criteria {
    std::optional<CK_OBJECT_CLASS> objectClass;
    std::optional<ByteView> id;
    std::optional<std::string> label;
    std::optional<ByteView> subject;
    std::optional<ByteView> value;
    std::optional<ByteView> modulus;
};

CK_RV readCriteria(const ExportCall& call, const CK_ATTRIBUTE* pTemplate, CK_ULONG ulCount,
                   Criteria& criteria) {
    for (CK_ULONG i = 0; i < ulCount; ++i) {
        const CK_ATTRIBUTE& attribute = pTemplate[i];
        const std::string where =
            " at attribute index=" + decimalText(i) + " type=" + decimalText(attribute.type);
        if (attribute.pValue == nullptr) {
            return call.reject(CKR_ATTRIBUTE_VALUE_INVALID, "pValue is NULL" + where);
        }
        if (attribute.ulValueLen == 0) {
            return call.reject(CKR_ATTRIBUTE_VALUE_INVALID, "ulValueLen<=0" + where);
        }
        logInfo("Find object init type : " + decimalText(attribute.type));
        switch (attribute.type) {
            case CKA_CLASS: {
                // As wide as CK_ULONG, and no other width (compatibility register, entry 23).
                const std::optional<CK_ULONG> objectClass = attribute.ulValueLen == sizeof(CK_ULONG)
                                                                ? templateNumber(attribute)
                                                                : std::nullopt;
                if (!objectClass) {
                    return call.reject(CKR_ATTRIBUTE_VALUE_INVALID,
                                       "wrong size for CKA_CLASS at index=" + decimalText(i) +
                                           " ulValueLen=" + decimalText(attribute.ulValueLen));
                }
                criteria.objectClass = *objectClass;
                logInfo("Find object class : " + decimalText(*objectClass));
                break;
            }
            case CKA_MODULUS:
                logInfo("Modulus provided length : " + decimalText(attribute.ulValueLen));
                criteria.modulus = viewOf(attribute);
                break;
            case CKA_ID:
                criteria.id = viewOf(attribute);
                break;
            case CKA_LABEL:
                criteria.label = templateTextToNul(attribute);
                break;
            case CKA_SUBJECT:
                criteria.subject = viewOf(attribute);
                break;
            case CKA_VALUE:
                criteria.value = viewOf(attribute);
                break;
            default:
                break;  // every other attribute is accepted and has no effect
        }
    }
    return CKR_OK;
}

// The first criterion given decides, in this order; none given matches everything.
bool keyPairMatches(const OstrelKeyPair& pair, const Criteria& criteria, const char* deviceId,
                    DeviceInstance instance) {
    if (criteria.label) {
        return effectiveLabel(pair, deviceId, instance).text == *criteria.label;
    }
    if (criteria.value) {
        return criteria.value->equals(pair.publicValue, publicValueLength(pair));
    }
    if (criteria.id) {
        return criteria.id->equals(pair.objectId, objectIdLength(pair));
    }
    if (criteria.modulus) {
        return criteria.modulus->equals(pair.publicValue, publicValueLength(pair));
    }
    return true;
}

bool certificateMatches(const OstrelCertificate& certificate, const Criteria& criteria) {
    if (criteria.label) {
        return effectiveLabel(certificate).text == *criteria.label;
    }
    if (criteria.value) {
        return criteria.value->equals(certificate.der, derLength(certificate));
    }
    if (criteria.id) {
        return criteria.id->equals(certificate.objectId, objectIdLength(certificate));
    }
    if (criteria.subject) {
        // The DER extractors take no instance.
        return criteria.subject->equals(ostrel_getCertificateSubject(
            certificate.der, static_cast<int>(derLength(certificate)), nullptr));
    }
    return true;
}

// The device's two lists, as the library hands them out (no copies: a search over a large
// token must stay cheap). The certificate list is valid until this thread asks for it again,
// which computing a key pair's label does: it is used up before the key pairs are filtered.
struct DeviceLists {
    const std::vector<OstrelKeyPair>* keyPairs;
    const std::vector<OstrelCertificate>* certificates;
};

// When either list is empty the device is prepared for certificate reads and both are read
// again.
DeviceLists readDeviceLists(const ExportCall& call, const char* deviceId) {
    DeviceLists lists{nullptr, &ostrel_getCertificateList(deviceId, call.instance())};
    lists.keyPairs = &ostrel_getKeyPairList(deviceId, call.instance());
    if (!lists.certificates->empty() && !lists.keyPairs->empty()) {
        return lists;
    }
    const int result = ostrel_initDevice(deviceId, true, call.instance());
    if (result != 0) {
        logError("Init device for certificates in find objects failed : " + decimalText(result));
        return lists;
    }
    lists.certificates = &ostrel_getCertificateList(deviceId, call.instance());
    lists.keyPairs = &ostrel_getKeyPairList(deviceId, call.instance());
    return lists;
}

void filterKeyPairs(const SessionAccess& session, const ExportCall& call,
                    const std::vector<OstrelKeyPair>& keyPairs, const Criteria& criteria) {
    SearchState& search = session.search();
    const bool anyClass = !criteria.objectClass.has_value();
    for (const OstrelKeyPair& pair : keyPairs) {
        if (!anyClass && !keyPairMatches(pair, criteria, session.deviceId(), call.instance())) {
            continue;
        }
        search.foundKeyPairs.push_back(pair.id);
        if (criteria.objectClass == CKO_PUBLIC_KEY) {
            search.findPublicKeys = true;
        } else {
            if (criteria.objectClass != CKO_PRIVATE_KEY) {
                search.findPublicKeys = true;
            }
            // Kept in the snapshot either way, handed out only to a logged-in user.
            if (isUserState(session.state())) {
                search.findPrivateKeys = true;
            }
        }
    }
}

}  // namespace

CK_RV findObjectsInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate,
                      CK_ULONG ulCount) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (pTemplate == nullptr && ulCount != 0) {
            return call.reject(CKR_ARGUMENTS_BAD,
                               "pTemplate is NULL with ulCount=" + decimalText(ulCount));
        }
        // No check that another operation is in progress, and activeOperation is left alone
        // until the search is ready (compatibility register, entry 23).
        session.search().reset();
        logInfo("Find object init count : " + decimalText(ulCount));
        Criteria criteria;
        if (CK_RV rv = readCriteria(call, pTemplate, ulCount, criteria); rv != CKR_OK) {
            return rv;
        }

        const DeviceLists lists = readDeviceLists(call, session.deviceId());
        if (criteria.id) {
            logInfo("Find init id : " + bytesToHex(criteria.id->data, criteria.id->size));
        }

        SearchState& search = session.search();
        if (!criteria.objectClass || *criteria.objectClass == CKO_CERTIFICATE) {
            for (const OstrelCertificate& certificate : *lists.certificates) {
                // Without a class every certificate is taken, unfiltered.
                if (!criteria.objectClass || certificateMatches(certificate, criteria)) {
                    search.foundCertificates.push_back(certificate.id);
                }
            }
        }
        if (!criteria.objectClass || *criteria.objectClass == CKO_PUBLIC_KEY ||
            *criteria.objectClass == CKO_PRIVATE_KEY) {
            filterKeyPairs(session, call, *lists.keyPairs, criteria);
        }
        session.operation().activeOperation = kOperationFindObjects;
        return CKR_OK;
    });
}

CK_RV findObjects(ExportCall& call, CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,
                  CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = requireActiveOperation(call, session.operation(), kOperationFindObjects);
            rv != CKR_OK) {
            return rv;
        }
        if (phObject == nullptr && ulMaxObjectCount != 0) {
            return call.reject(CKR_ARGUMENTS_BAD, "phObject is NULL with ulMaxObjectCount=" +
                                                      decimalText(ulMaxObjectCount));
        }
        if (CK_RV rv = call.requireNonNull(pulObjectCount, "pulObjectCount"); rv != CKR_OK) {
            return rv;
        }
        *pulObjectCount = 0;
        SearchState& search = session.search();
        // Public keys first, then private keys, then certificates.
        std::vector<CK_OBJECT_HANDLE> sequence;
        if (search.findPublicKeys) {
            for (std::uint32_t id : search.foundKeyPairs) {
                sequence.push_back(publicKeyHandle(id));
            }
        }
        if (search.findPrivateKeys) {
            for (std::uint32_t id : search.foundKeyPairs) {
                sequence.push_back(privateKeyHandle(id));
            }
        }
        for (std::uint32_t id : search.foundCertificates) {
            sequence.push_back(certificateHandle(id));
        }
        logInfo("C_FindObjects find object count : " + decimalText(sequence.size()));
        if (sequence.empty()) {
            logInfo("C_FindObjects find object count 0");
            return CKR_OK;
        }
        std::vector<CK_OBJECT_HANDLE> page;
        if (ulMaxObjectCount == 0) {
            logInfo("C_FindObjects find object max count is 0 : 0");
        } else {
            const std::size_t from = static_cast<std::size_t>(std::max(search.findCursor, 0));
            for (std::size_t p = from; p < sequence.size() && page.size() < ulMaxObjectCount; ++p) {
                page.push_back(sequence[p]);
            }
        }
        ListOutput<CK_OBJECT_HANDLE>(call, phObject, pulObjectCount).fill(page);
        for (CK_OBJECT_HANDLE handle : page) {
            logInfo("Find object return : " + decimalText(handle));
        }
        search.findCursor += static_cast<std::int32_t>(page.size());
        logInfo("C_FindObjects find object count return : " + decimalText(page.size()));
        return CKR_OK;
    });
}

CK_RV findObjectsFinal(ExportCall& call, CK_SESSION_HANDLE hSession) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = requireActiveOperation(call, session.operation(), kOperationFindObjects);
            rv != CKR_OK) {
            return rv;
        }
        // The found lists stay until the next C_FindObjectsInit.
        endOperation(session.operation());
        session.search().findCursor = 0;
        return CKR_OK;
    });
}
