// ECDH on the token between the private half of a token EC pair and the caller's peer value.
// The secret may be hashed through the device, is cut to CKA_VALUE_LEN and stays in the module
// as a derived key under a handle that is never given twice.
//
// The early rejections answer their code without a line of their own (compatibility register,
// entry 34): the export runs in a frame that also answers "not initialized" silently.
#include <algorithm>
#include <cstring>
#include <string>

#include "core/template_values.h"
#include "crypto/crypto_operations.h"
#include "crypto/operation_support.h"
#include "objects/object_handles.h"
#include "objects/object_registry.h"

namespace {

// The key derivation functions that hash the secret, with the device hash code each passes and
// the digest length it announces to ostrel_finalHash. The codes are this function's own: 1 is
// SHA-1, and 4 is SHA-384 on the device although the function is named SHA-256, so its secret
// is 48 bytes (compatibility register, entry 34). Any other kdf keeps the raw secret.
struct HashingKdf {
    CK_EC_KDF_TYPE kdf;
    int hashCode;
    int announcedLength;
};

constexpr HashingKdf kHashingKdfs[] = {
    {CKD_SHA1_KDF, kHashSha1Legacy, 20},
    {CKD_SHA256_KDF, kHashSha384, 32},
};

// Base keys are private-key handles only: id = handle - 0x70000000 must stay below this.
constexpr std::uint32_t kBaseKeyIdLimit = kHandleRangeSize;

// The ECDH parameters as the caller laid them out. Their size is the platform's (28 bytes on
// Windows, 40 on 64-bit Linux); shorter parameters are refused before anything is read
// (compatibility register, entry 36).
std::optional<CK_ECDH1_DERIVE_PARAMS> readParameters(const CK_MECHANISM& mechanism) {
    if (mechanism.pParameter == nullptr ||
        mechanism.ulParameterLen < sizeof(CK_ECDH1_DERIVE_PARAMS)) {
        return std::nullopt;
    }
    CK_ECDH1_DERIVE_PARAMS parameters;
    std::memcpy(&parameters, mechanism.pParameter, sizeof parameters);
    // A public value longer than the device's int is refused too: compatibility register,
    // entry 38.
    if (parameters.pPublicData == nullptr || parameters.ulPublicDataLen == 0 ||
        parameters.ulPublicDataLen > kMaxDeviceLength) {
        return std::nullopt;
    }
    return parameters;
}

// The base key's pair id, or nothing for a handle outside the private-key range (every handle
// below 0x70000000 wraps to a large id; a handle above 32 bits names no key).
std::optional<std::uint32_t> baseKeyId(CK_OBJECT_HANDLE hBaseKey) {
    const std::optional<std::uint32_t> handle = handleValue(hBaseKey);
    if (!handle) {
        return std::nullopt;
    }
    const std::uint32_t id = *handle - kPrivateKeyHandleBase;
    if (id >= kBaseKeyIdLimit) {
        return std::nullopt;
    }
    return id;
}

// Hashes the secret when the kdf asks for it. The device's results are not looked at: a failed
// hash leaves the secret as the final call left it (compatibility register, entry 34).
void applyKdf(const SessionAccess& session, DeviceInstance instance, CK_EC_KDF_TYPE kdf,
              SecretBytes& secret) {
    const auto hashing = std::find_if(std::begin(kHashingKdfs), std::end(kHashingKdfs),
                                      [kdf](const HashingKdf& entry) { return entry.kdf == kdf; });
    if (hashing == std::end(kHashingKdfs)) {
        return;
    }
    HashContext context = nullptr;
    static_cast<void>(ostrel_initHash(session.deviceId(), hashing->hashCode, &context, instance));
    static_cast<void>(feedHash(context, secret.data(), secret.size(), instance));
    SecretBytes digest;
    static_cast<void>(finishHash(context, hashing->announcedLength, instance, digest));
    secret = std::move(digest);
}

// The first readable CKA_VALUE_LEN cuts the secret when it is not zero and shorter than it; a
// larger one leaves it whole. No other attribute is read.
void applyValueLength(const CK_ATTRIBUTE* attributes, CK_ULONG count, SecretBytes& secret) {
    if (attributes == nullptr) {
        return;
    }
    for (CK_ULONG i = 0; i < count; ++i) {
        if (attributes[i].type != CKA_VALUE_LEN) {
            continue;
        }
        const std::optional<CK_ULONG> length = templateNumber(attributes[i]);
        if (!length) {
            continue;
        }
        if (*length != 0 && *length < secret.size()) {
            wipeBytes(secret.data() + *length, secret.size() - *length);
            secret.resize(*length);
        }
        return;
    }
}

}  // namespace

CK_RV deriveKey(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount,
                CK_OBJECT_HANDLE_PTR phKey) {
    return withSessionOr(
        call, hSession, [] { return CKR_SESSION_HANDLE_INVALID; },
        [&](const SessionAccess& session) {
            if (pMechanism == nullptr || phKey == nullptr) {
                return CKR_ARGUMENTS_BAD;
            }
            if (pMechanism->mechanism != CKM_ECDH1_DERIVE) {
                return CKR_MECHANISM_INVALID;
            }
            if (!firmwareAllowsGatedMechanisms(session)) {
                return call.reject(CKR_MECHANISM_INVALID, "ECDH not supported on firmware " +
                                                              session.token().firmwareVersion);
            }
            // The kdf is not checked here: an unknown one keeps the raw secret.
            const std::optional<CK_ECDH1_DERIVE_PARAMS> parameters = readParameters(*pMechanism);
            if (!parameters) {
                return CKR_MECHANISM_PARAM_INVALID;
            }
            const std::optional<std::uint32_t> id = baseKeyId(hBaseKey);
            if (!id) {
                return CKR_KEY_HANDLE_INVALID;
            }
            logInfo("key id :: " + decimalText(*id));
            const std::optional<OstrelKeyPair> keyPair =
                findKeyPairById(session.deviceId(), *id, call.instance());
            if (!keyPair) {
                return CKR_KEY_HANDLE_INVALID;
            }
            logInfo("base key id :: " +
                    bytesToHex(keyPair->keyReference, sizeof keyPair->keyReference));
            logInfo("public key :: " +
                    bytesToHex(parameters->pPublicData, parameters->ulPublicDataLen));

            // The peer value goes to the device exactly as given: the device decides which
            // encodings of a point it takes.
            unsigned char* derived = nullptr;
            int derivedLength = 0;
            const int result = ostrel_ecdhDerive(
                session.deviceId(), keyPair->keyReference, userPasswordOf(call.state()).c_str(),
                parameters->pPublicData, deviceLength(parameters->ulPublicDataLen), &derived,
                &derivedLength, call.instance());
            if (result != 0 || derived == nullptr || derivedLength < 1) {
                return call.reject(CKR_FUNCTION_FAILED,
                                   "ostrel_ecdhDerive failed: " + decimalText(result));
            }
            // The buffer is the library's: copied, never freed or written here.
            SecretBytes secret(derived, derived + derivedLength);
            applyKdf(session, call.instance(), parameters->kdf, secret);
            applyValueLength(pTemplate, ulAttributeCount, secret);

            const std::size_t length = secret.size();
            const std::uint32_t handle = call.state().derivedKeys.add(std::move(secret));
            *phKey = handle;
            logInfo("C_DeriveKey: done, handle=" + decimalText(handle) +
                    " len=" + decimalText(length));
            return CKR_OK;
        });
}
