#include "store/snapshot_loader.h"

#include <algorithm>
#include <cstring>

#include "store/database.h"

namespace softtoken {

namespace {

// Copies at most capacity bytes; the writers refuse anything longer, so this only guards
// against a store edited by hand.
template <std::size_t N>
std::int32_t copyBytes(unsigned char (&field)[N], const Bytes& value) {
    std::size_t size = std::min(N, value.size());
    if (size != 0) {
        std::memcpy(field, value.data(), size);
    }
    return static_cast<std::int32_t>(size);
}

template <std::size_t N>
void copyText(char (&field)[N], const std::string& value) {
    std::size_t size = std::min(N - 1, value.size());
    std::memcpy(field, value.data(), size);
    field[size] = '\0';
}

bool loadDevices(Database& database, Snapshot& snapshot) {
    Statement rows(database,
                   "SELECT device_id, blank, plug_order, label, model, firmware, pin_changed, "
                   "retries_max, retries_left, so_retries_left, capacity, user_salt, "
                   "user_iterations, user_verifier, so_salt, so_iterations, so_verifier, "
                   "wrapped_token_key FROM devices ORDER BY device_id");
    while (rows.step()) {
        DeviceRecord device;
        device.deviceId = rows.text(0);
        device.blank = rows.integer(1) != 0;
        device.plugOrder = rows.isNull(2) ? 0 : rows.integer(2);
        device.label = rows.text(3);
        device.model = rows.text(4);
        device.firmware = rows.text(5);
        device.pinChanged = static_cast<int>(rows.integer(6));
        device.retriesMax = static_cast<int>(rows.integer(7));
        device.retriesLeft = static_cast<int>(rows.integer(8));
        device.soRetriesLeft = static_cast<int>(rows.integer(9));
        device.capacity = static_cast<int>(rows.integer(10));
        device.userPin = {rows.blob(11), static_cast<int>(rows.integer(12)), rows.blob(13)};
        device.soPin = {rows.blob(14), static_cast<int>(rows.integer(15)), rows.blob(16)};
        device.wrappedTokenKey = rows.blob(17);
        snapshot.devices.push_back(std::move(device));
    }
    if (rows.failed()) {
        return false;
    }

    std::vector<const DeviceRecord*> plugged;
    for (const DeviceRecord& device : snapshot.devices) {
        if (device.plugged()) {
            plugged.push_back(&device);
        }
    }
    std::sort(plugged.begin(), plugged.end(), [](const DeviceRecord* a, const DeviceRecord* b) {
        return a->plugOrder < b->plugOrder;
    });
    for (const DeviceRecord* device : plugged) {
        snapshot.pluggedInOrder.push_back(device->deviceId);
    }
    return true;
}

// The lists are built as plain vectors and frozen into shared, immutable ones at the end.
struct LoadingObjects {
    KeyPairList keyPairs;
    std::vector<Bytes> sealedPrivateKeys;
    CertificateList certificates;
};

bool loadKeyPairs(Database& database, std::map<std::string, LoadingObjects>& objects) {
    Statement rows(database,
                   "SELECT device_id, id, reference, key_type, usage_flags, alias, object_id, "
                   "public_value, private_key FROM key_pairs ORDER BY device_id, id");
    while (rows.step()) {
        OstrelKeyPair record;
        std::memset(&record, 0, sizeof record);
        record.id = static_cast<std::uint32_t>(rows.integer(1));
        copyBytes(record.keyReference, rows.blob(2));
        record.keyType = static_cast<std::int32_t>(rows.integer(3));
        record.usageFlags = static_cast<std::uint32_t>(rows.integer(4));
        copyText(record.alias, rows.text(5));
        record.objectIdLength = copyBytes(record.objectId, rows.blob(6));
        record.publicValueLength = copyBytes(record.publicValue, rows.blob(7));
        record.deletionFlag = false;
        LoadingObjects& device = objects[rows.text(0)];
        device.keyPairs.push_back(record);
        device.sealedPrivateKeys.push_back(rows.blob(8));
    }
    return !rows.failed();
}

bool loadCertificates(Database& database, std::map<std::string, LoadingObjects>& objects) {
    Statement rows(database,
                   "SELECT device_id, id, reference, der, object_id, label FROM certificates "
                   "ORDER BY device_id, id");
    while (rows.step()) {
        OstrelCertificate record;
        std::memset(&record, 0, sizeof record);
        record.id = static_cast<std::uint32_t>(rows.integer(1));
        copyBytes(record.certificateReference, rows.blob(2));
        record.derLength = copyBytes(record.der, rows.blob(3));
        record.objectIdLength = copyBytes(record.objectId, rows.blob(4));
        copyText(record.label, rows.text(5));
        objects[rows.text(0)].certificates.push_back(record);
    }
    return !rows.failed();
}

bool loadObjects(Database& database, Snapshot& snapshot) {
    std::map<std::string, LoadingObjects> loading;
    for (const DeviceRecord& device : snapshot.devices) {
        loading[device.deviceId];
    }
    if (!loadKeyPairs(database, loading) || !loadCertificates(database, loading)) {
        return false;
    }
    for (auto& [deviceId, objects] : loading) {
        DeviceObjects& frozen = snapshot.objects[deviceId];
        frozen.keyPairs = std::make_shared<const KeyPairList>(std::move(objects.keyPairs));
        frozen.sealedPrivateKeys = std::move(objects.sealedPrivateKeys);
        frozen.certificates =
            std::make_shared<const CertificateList>(std::move(objects.certificates));
    }
    return true;
}

bool loadFaults(Database& database, Snapshot& snapshot) {
    Statement rows(database, "SELECT operation, code, remaining FROM faults");
    while (rows.step()) {
        snapshot.faults[rows.text(0)] = {static_cast<int>(rows.integer(1)),
                                         static_cast<int>(rows.integer(2))};
    }
    return !rows.failed();
}

}  // namespace

std::shared_ptr<Snapshot> loadSnapshot(Database& database) {
    if (!database.execute("BEGIN")) {
        return nullptr;
    }
    auto snapshot = std::make_shared<Snapshot>();
    bool loaded = loadDevices(database, *snapshot) && loadObjects(database, *snapshot) &&
                  loadFaults(database, *snapshot);
    database.execute(loaded ? "COMMIT" : "ROLLBACK");
    return loaded ? snapshot : nullptr;
}

const DeviceRecord* Snapshot::findDevice(const std::string& deviceId) const {
    auto found = std::lower_bound(
        devices.begin(), devices.end(), deviceId,
        [](const DeviceRecord& device, const std::string& id) { return device.deviceId < id; });
    return found != devices.end() && found->deviceId == deviceId ? &*found : nullptr;
}

const DeviceObjects* Snapshot::objectsOf(const std::string& deviceId) const {
    auto found = objects.find(deviceId);
    return found != objects.end() ? &found->second : nullptr;
}

KeyPairEntry Snapshot::findKeyPair(const std::string& deviceId,
                                   const unsigned char* keyReference) const {
    const DeviceObjects* device = objectsOf(deviceId);
    if (device == nullptr || keyReference == nullptr) {
        return {};
    }
    const KeyPairList& pairs = *device->keyPairs;
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        if (std::memcmp(pairs[i].keyReference, keyReference, kObjectReferenceSize) == 0) {
            return {&pairs[i], &device->sealedPrivateKeys[i]};
        }
    }
    return {};
}

const OstrelCertificate* Snapshot::findCertificate(
    const std::string& deviceId, const unsigned char* certificateReference) const {
    const DeviceObjects* device = objectsOf(deviceId);
    if (device == nullptr || certificateReference == nullptr) {
        return nullptr;
    }
    for (const OstrelCertificate& certificate : *device->certificates) {
        if (std::memcmp(certificate.certificateReference, certificateReference,
                        kObjectReferenceSize) == 0) {
            return &certificate;
        }
    }
    return nullptr;
}

std::size_t Snapshot::objectCount(const std::string& deviceId) const {
    const DeviceObjects* device = objectsOf(deviceId);
    return device != nullptr ? device->keyPairs->size() + device->certificates->size() : 0;
}

}  // namespace softtoken
