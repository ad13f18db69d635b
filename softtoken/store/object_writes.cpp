#include "store/object_writes.h"

#include "common/token_error.h"
#include "device/device_records.h"
#include "store/database.h"

namespace softtoken {

namespace {

bool idInUse(Database& database, const std::string& deviceId, std::int64_t id) {
    Statement query(database,
                    "SELECT 1 FROM key_pairs WHERE device_id = ?1 AND id = ?2 UNION ALL "
                    "SELECT 1 FROM certificates WHERE device_id = ?1 AND id = ?2");
    query.bind(1, deviceId).bind(2, id);
    return query.step();
}

// Checks room on the device and takes the next id. Ids count up so that a deleted object's
// handle does not at once name a new one; past kMaxObjectId they wrap to the lowest free id.
int reserveObjectId(Database& database, const std::string& deviceId, std::uint32_t* id) {
    Statement device(database,
                     "SELECT blank, capacity, next_object_id, "
                     "(SELECT COUNT(*) FROM key_pairs WHERE device_id = ?1) + "
                     "(SELECT COUNT(*) FROM certificates WHERE device_id = ?1) "
                     "FROM devices WHERE device_id = ?1");
    device.bind(1, deviceId);
    if (!device.step()) {
        return device.failed() ? kStoreWriteFailed : kDeviceUnreachable;
    }
    if (device.integer(0) != 0) {
        return kBlankDevice;
    }
    std::int64_t capacity = device.integer(1);
    std::int64_t next = device.integer(2);
    std::int64_t count = device.integer(3);
    if (count >= capacity || count >= static_cast<std::int64_t>(kMaxObjectId)) {
        return kStorageFull;
    }
    if (next < 1 || next > kMaxObjectId) {
        next = 1;
    }
    std::int64_t candidate = next;
    while (idInUse(database, deviceId, candidate)) {
        candidate = candidate >= kMaxObjectId ? 1 : candidate + 1;
        if (candidate == next) {
            return kStorageFull;
        }
    }
    Statement bump(database, "UPDATE devices SET next_object_id = ? WHERE device_id = ?");
    bump.bind(1, candidate + 1).bind(2, deviceId);
    if (!bump.run()) {
        return kStoreWriteFailed;
    }
    *id = static_cast<std::uint32_t>(candidate);
    return kOk;
}

int deletedOne(Database& database, Statement& statement) {
    if (!statement.run()) {
        return kStoreWriteFailed;
    }
    return database.changes() > 0 ? kOk : kObjectNotFound;
}

}  // namespace

int insertKeyPair(Database& database, const std::string& deviceId, const NewKeyPair& pair,
                  std::uint32_t* id) {
    if (int result = reserveObjectId(database, deviceId, id); result != kOk) {
        return result;
    }
    Statement insert(database,
                     "INSERT INTO key_pairs (device_id, id, reference, key_type, usage_flags, "
                     "alias, object_id, public_value, private_key) "
                     "VALUES (?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, deviceId).bind(2, static_cast<std::int64_t>(*id)).bind(3, pair.reference);
    insert.bind(4, pair.keyType).bind(5, static_cast<std::int64_t>(pair.usageFlags));
    insert.bind(6, pair.alias).bind(7, pair.objectId).bind(8, pair.publicValue);
    insert.bind(9, pair.sealedPrivateKey);
    return insert.run() ? kOk : kStoreWriteFailed;
}

int insertCertificate(Database& database, const std::string& deviceId,
                      const NewCertificate& certificate, std::uint32_t* id) {
    if (int result = reserveObjectId(database, deviceId, id); result != kOk) {
        return result;
    }
    Statement insert(database,
                     "INSERT INTO certificates (device_id, id, reference, der, object_id, label) "
                     "VALUES (?, ?, ?, ?, ?, ?)");
    insert.bind(1, deviceId).bind(2, static_cast<std::int64_t>(*id));
    insert.bind(3, certificate.reference).bind(4, certificate.der);
    insert.bind(5, certificate.objectId).bind(6, certificate.label);
    return insert.run() ? kOk : kStoreWriteFailed;
}

int findCertificateByDer(Database& database, const std::string& deviceId, const Bytes& der,
                         std::uint32_t* id, Bytes* reference) {
    Statement query(database,
                    "SELECT id, reference FROM certificates WHERE device_id = ? AND der = ?");
    query.bind(1, deviceId).bind(2, der);
    if (!query.step()) {
        return query.failed() ? kStoreWriteFailed : kObjectNotFound;
    }
    *id = static_cast<std::uint32_t>(query.integer(0));
    *reference = query.blob(1);
    return kOk;
}

int deleteKeyPair(Database& database, const std::string& deviceId, const unsigned char* reference) {
    Statement remove(database, "DELETE FROM key_pairs WHERE device_id = ? AND reference = ?");
    remove.bind(1, deviceId).bind(2, reference, kObjectReferenceSize);
    return deletedOne(database, remove);
}

int deleteCertificate(Database& database, const std::string& deviceId,
                      const unsigned char* reference) {
    Statement remove(database, "DELETE FROM certificates WHERE device_id = ? AND reference = ?");
    remove.bind(1, deviceId).bind(2, reference, kObjectReferenceSize);
    return deletedOne(database, remove);
}

int updateKeyPair(Database& database, const std::string& deviceId, const unsigned char* reference,
                  const std::string* alias, const Bytes* objectId) {
    Statement update(database,
                     "UPDATE key_pairs SET alias = COALESCE(?1, alias), "
                     "object_id = COALESCE(?2, object_id) WHERE device_id = ?3 AND reference = ?4");
    if (alias != nullptr) {
        update.bind(1, *alias);
    } else {
        update.bindNull(1);
    }
    if (objectId != nullptr) {
        update.bind(2, *objectId);
    } else {
        update.bindNull(2);
    }
    update.bind(3, deviceId).bind(4, reference, kObjectReferenceSize);
    return deletedOne(database, update);
}

}  // namespace softtoken
