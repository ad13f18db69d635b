#include "token/token_admin.h"

#include <algorithm>
#include <cstring>

#include "certificates/certificate_reader.h"
#include "common/control_characters.h"
#include "common/token_error.h"
#include "crypto/key_codec.h"
#include "crypto/pin_kdf.h"
#include "crypto/sealing.h"
#include "store/device_writes.h"
#include "store/object_writes.h"
#include "store/pin_writes.h"
#include "token/token_service.h"

namespace softtoken {

namespace {

constexpr std::size_t kMinPinLength = 4;
constexpr std::size_t kMaxPinLength = 63;
constexpr int kMaxRetries = 1000;

bool textAcceptable(const std::string& text, std::size_t limit) {
    return text.size() <= limit && text.find('\0') == std::string::npos;
}

bool requestAcceptable(const KeyPairRequest& request) {
    return textAcceptable(request.alias, kAliasCapacity - 1) &&
           request.objectId.size() <= kObjectIdCapacity && request.usageFlags != 0 &&
           (request.usageFlags & ~(kKeyUsageSign | kKeyUsageDecrypt)) == 0;
}

template <std::size_t N>
void copyInto(unsigned char (&field)[N], const Bytes& value) {
    if (!value.empty()) {
        std::memcpy(field, value.data(), std::min(N, value.size()));
    }
}

OstrelKeyPair keyPairRecord(std::uint32_t id, const NewKeyPair& pair) {
    OstrelKeyPair record;
    std::memset(&record, 0, sizeof record);
    record.id = id;
    copyInto(record.keyReference, pair.reference);
    copyInto(record.publicValue, pair.publicValue);
    record.publicValueLength = static_cast<std::int32_t>(pair.publicValue.size());
    copyInto(record.objectId, pair.objectId);
    record.objectIdLength = static_cast<std::int32_t>(pair.objectId.size());
    std::memcpy(record.alias, pair.alias.data(), pair.alias.size());
    record.usageFlags = pair.usageFlags;
    record.keyType = pair.keyType;
    return record;
}

int storeKeyPair(TokenService& service, const std::string& deviceId, const SecretBytes& tokenKey,
                 EVP_PKEY* key, const KeyTypeInfo& type, const KeyPairRequest& request,
                 OstrelKeyPair* stored) {
    NewKeyPair pair;
    pair.reference = randomBytes(kObjectReferenceSize);
    pair.keyType = type.code;
    pair.usageFlags = request.usageFlags;
    pair.alias = request.alias;
    pair.objectId = request.objectId;
    SecretBytes der;
    if (pair.reference.empty() || !publicValueOf(key, pair.publicValue) ||
        !encodePrivateKey(key, der) ||
        !seal(tokenKey, der.data(), der.size(), privateKeyContext(deviceId, pair.reference.data()),
              pair.sealedPrivateKey)) {
        return kCryptoFailed;
    }
    std::uint32_t id = 0;
    int result = service.store().write(
        [&](Database& database) { return insertKeyPair(database, deviceId, pair, &id); });
    if (result == kOk && stored != nullptr) {
        *stored = keyPairRecord(id, pair);
    }
    return result;
}

// The plugged token, its key pair and the user PIN, checked in that order (an unknown key costs
// no PIN try). *tokenKey (may be null) receives the unwrapped token key.
int authorizeKeyPair(TokenService& service, const std::string& deviceId,
                     const unsigned char* keyReference, const std::string& pin,
                     SnapshotPtr& snapshot, KeyPairEntry* pair, SecretBytes* tokenKey) {
    if (keyReference == nullptr) {
        return kBadArgument;
    }
    if (int result = service.snapshot(snapshot); result != kOk) {
        return result;
    }
    const DeviceRecord* device = nullptr;
    if (int result = TokenService::findToken(*snapshot, deviceId, true, &device); result != kOk) {
        return result;
    }
    *pair = snapshot->findKeyPair(deviceId, keyReference);
    if (pair->record == nullptr) {
        return kObjectNotFound;
    }
    return service.pins().check(*device, pin, PinKind::User, nullptr, tokenKey);
}

// A token that has room for one more object, unlocked with the user PIN: its token key.
int unlockTokenWithRoom(TokenService& service, const std::string& deviceId, const std::string& pin,
                        bool mustBePlugged, SecretBytes& tokenKey) {
    SnapshotPtr snapshot;
    if (int result = service.snapshot(snapshot); result != kOk) {
        return result;
    }
    const DeviceRecord* device = nullptr;
    if (int result = TokenService::findToken(*snapshot, deviceId, mustBePlugged, &device);
        result != kOk) {
        return result;
    }
    // A caller without a PIN hears so (or that the PIN is locked) before the room is looked
    // at: the module reports a full token as full device memory, which would mislead.
    if (pin.empty()) {
        return service.pins().check(*device, pin, PinKind::User, nullptr, nullptr);
    }
    if (snapshot->objectCount(deviceId) >= static_cast<std::size_t>(device->capacity)) {
        return kStorageFull;
    }
    return service.pins().check(*device, pin, PinKind::User, nullptr, &tokenKey);
}

}  // namespace

bool pinLengthAcceptable(const std::string& pin) {
    return pin.size() >= kMinPinLength && pin.size() <= kMaxPinLength;
}

bool serialAcceptable(const std::string& serial) {
    return !serial.empty() && serial.size() <= kMaxTextLength && !hasControlCharacters(serial);
}

int createToken(TokenService& service, const TokenSettings& settings) {
    if (!serialAcceptable(settings.serial) || !textAcceptable(settings.label, kMaxTextLength) ||
        !textAcceptable(settings.model, kMaxTextLength) ||
        !textAcceptable(settings.firmware, kMaxTextLength) || settings.retries < 1 ||
        settings.retries > kMaxRetries || settings.capacity < 0 ||
        settings.capacity > static_cast<int>(kMaxObjectId)) {
        return kBadArgument;
    }
    if (!pinLengthAcceptable(settings.userPin) ||
        (!settings.soPin.empty() && !pinLengthAcceptable(settings.soPin))) {
        return kPinLength;
    }
    NewToken token;
    token.serial = settings.serial;
    token.label = settings.label;
    token.model = settings.model;
    token.firmware = settings.firmware;
    token.pinChanged = settings.pinChanged;
    token.retries = settings.retries;
    token.capacity = settings.capacity;
    PinDerivation user;
    SecretBytes tokenKey(32);
    if (!randomBytes(tokenKey.data(), tokenKey.size()) ||
        !makePinRecord(settings.userPin, kPinIterations, token.userPin, &user) ||
        !seal(user.wrappingKey, tokenKey.data(), tokenKey.size(), tokenKeyContext(token.serial),
              token.wrappedTokenKey)) {
        return kCryptoFailed;
    }
    if (!settings.soPin.empty() &&
        !makePinRecord(settings.soPin, kPinIterations, token.soPin, nullptr)) {
        return kCryptoFailed;
    }
    return service.store().write([&](Database& database) { return insertToken(database, token); });
}

int changeUserPin(TokenService& service, const std::string& deviceId, const std::string& oldPin,
                  const std::string& newPin, int* retriesLeft) {
    SnapshotPtr snapshot;
    if (int result = service.snapshot(snapshot); result != kOk) {
        return result;
    }
    const DeviceRecord* device = nullptr;
    if (int result = TokenService::findToken(*snapshot, deviceId, true, &device); result != kOk) {
        return result;
    }
    if (retriesLeft != nullptr) {
        *retriesLeft = device->retriesLeft;
    }
    if (!pinLengthAcceptable(newPin)) {
        return kPinLength;
    }
    // The new record is derived before the try, so the transaction that checks the old PIN
    // also stores the new one: no other check can come between the two.
    PinRecord pin;
    PinDerivation derived;
    if (!makePinRecord(newPin, kPinIterations, pin, &derived)) {
        return kCryptoFailed;
    }
    const WriteOnSuccess replace = [&](Database& database, const SecretBytes& tokenKey) {
        Bytes wrapped;
        if (!seal(derived.wrappingKey, tokenKey.data(), tokenKey.size(), tokenKeyContext(deviceId),
                  wrapped)) {
            return kCryptoFailed;
        }
        return replaceUserPin(database, deviceId, pin, wrapped);
    };
    return service.pins().check(*device, oldPin, PinKind::User, retriesLeft, nullptr, &replace);
}

int generateKeyPair(TokenService& service, const std::string& deviceId, const std::string& pin,
                    const KeyPairRequest& request, bool mustBePlugged, OstrelKeyPair* stored) {
    if (request.type == nullptr) {
        return kUnknownAlgorithm;
    }
    if (!requestAcceptable(request)) {
        return kBadArgument;
    }
    // Room is checked before the slow generation as well as when storing.
    SecretBytes tokenKey;
    if (int result = unlockTokenWithRoom(service, deviceId, pin, mustBePlugged, tokenKey);
        result != kOk) {
        return result;
    }
    PkeyPtr key = generateKey(*request.type);
    if (key == nullptr) {
        return kCryptoFailed;
    }
    return storeKeyPair(service, deviceId, tokenKey, key.get(), *request.type, request, stored);
}

int importKeyPair(TokenService& service, const std::string& deviceId, const std::string& pin,
                  EVP_PKEY* key, const KeyPairRequest& request, bool mustBePlugged,
                  OstrelKeyPair* stored) {
    const KeyTypeInfo* type = keyTypeOf(key);
    if (type == nullptr) {
        return kKeyCannotDoThis;
    }
    if (!requestAcceptable(request)) {
        return kBadArgument;
    }
    SecretBytes tokenKey;
    if (int result = unlockTokenWithRoom(service, deviceId, pin, mustBePlugged, tokenKey);
        result != kOk) {
        return result;
    }
    return storeKeyPair(service, deviceId, tokenKey, key, *type, request, stored);
}

int importCertificate(TokenService& service, const std::string& deviceId, const Bytes& der,
                      const std::string& label, const Bytes& objectId, bool mustBePlugged,
                      OstrelCertificate* stored) {
    if (der.empty() || der.size() > kCertificateDerCapacity ||
        !textAcceptable(label, kCertificateLabelCapacity - 1) ||
        objectId.size() > kObjectIdCapacity) {
        return kBadArgument;
    }
    if (parseCertificate(der.data(), der.size()) == nullptr) {
        return kUnparsable;
    }
    SnapshotPtr snapshot;
    const DeviceRecord* device = nullptr;
    if (int result = service.snapshot(snapshot); result != kOk) {
        return result;
    }
    if (int result = TokenService::findToken(*snapshot, deviceId, mustBePlugged, &device);
        result != kOk) {
        return result;
    }
    NewCertificate certificate{randomBytes(kObjectReferenceSize), der, objectId, label};
    if (certificate.reference.empty()) {
        return kCryptoFailed;
    }
    std::uint32_t id = 0;
    int result = service.store().write([&](Database& database) {
        int found = findCertificateByDer(database, deviceId, der, &id, &certificate.reference);
        if (found != kObjectNotFound) {
            return found;
        }
        return insertCertificate(database, deviceId, certificate, &id);
    });
    if (result == kOk && stored != nullptr) {
        std::memset(stored, 0, sizeof *stored);
        stored->id = id;
        copyInto(stored->certificateReference, certificate.reference);
        copyInto(stored->der, der);
        stored->derLength = static_cast<std::int32_t>(der.size());
        copyInto(stored->objectId, objectId);
        stored->objectIdLength = static_cast<std::int32_t>(objectId.size());
        std::memcpy(stored->label, label.data(), label.size());
    }
    return result;
}

int deleteKeyPair(TokenService& service, const std::string& deviceId,
                  const unsigned char* keyReference, const std::string& pin) {
    SnapshotPtr snapshot;
    KeyPairEntry pair;
    if (int result =
            authorizeKeyPair(service, deviceId, keyReference, pin, snapshot, &pair, nullptr);
        result != kOk) {
        return result;
    }
    return service.store().write([&](Database& database) {
        return softtoken::deleteKeyPair(database, deviceId, keyReference);
    });
}

int deleteCertificate(TokenService& service, const std::string& deviceId,
                      const unsigned char* certificateReference) {
    SnapshotPtr snapshot;
    const DeviceRecord* device = nullptr;
    if (int result = service.snapshot(snapshot); result != kOk) {
        return result;
    }
    if (int result = TokenService::findToken(*snapshot, deviceId, true, &device); result != kOk) {
        return result;
    }
    return service.store().write([&](Database& database) {
        return softtoken::deleteCertificate(database, deviceId, certificateReference);
    });
}

int updateKeyPair(TokenService& service, const std::string& deviceId,
                  const unsigned char* keyReference, const std::string& pin,
                  const std::string* label, const Bytes* objectId) {
    if ((label != nullptr && !textAcceptable(*label, kAliasCapacity - 1)) ||
        (objectId != nullptr && objectId->size() > kObjectIdCapacity)) {
        return kBadArgument;
    }
    SnapshotPtr snapshot;
    KeyPairEntry pair;
    if (int result =
            authorizeKeyPair(service, deviceId, keyReference, pin, snapshot, &pair, nullptr);
        result != kOk) {
        return result;
    }
    return service.store().write([&](Database& database) {
        return softtoken::updateKeyPair(database, deviceId, keyReference, label, objectId);
    });
}

int unlockPrivateKey(TokenService& service, const std::string& deviceId,
                     const unsigned char* keyReference, const std::string& pin, SharedPkey& key,
                     const KeyTypeInfo** type) {
    SnapshotPtr snapshot;
    KeyPairEntry pair;
    SecretBytes tokenKey;
    if (int result =
            authorizeKeyPair(service, deviceId, keyReference, pin, snapshot, &pair, &tokenKey);
        result != kOk) {
        return result;
    }
    *type = keyTypeByCode(pair.record->keyType);
    if (*type == nullptr) {
        return kKeyCannotDoThis;
    }
    return service.keys().privateKey(deviceId, pair, tokenKey, key);
}

}  // namespace softtoken
