#include "store/device_writes.h"

#include "common/token_error.h"
#include "store/database.h"

namespace softtoken {

namespace {

// Answers kErrNoDevice when the statement touched no row.
int changedOne(Database& database, Statement& statement) {
    if (!statement.run()) return kErrStore;
    return database.changes() > 0 ? kOk : kErrNoDevice;
}

bool deviceExists(Database& database, const std::string& deviceId) {
    Statement query(database, "SELECT 1 FROM devices WHERE device_id = ?");
    query.bind(1, deviceId);
    return query.step();
}

int nextPlugOrder(Database& database, std::int64_t* order) {
    Statement bump(database,
                   "UPDATE counters SET value = value + 1 WHERE name = 'plug_sequence' "
                   "RETURNING value");
    if (!bump.step()) return kErrStore;
    *order = bump.integer(0);
    return kOk;
}

const char* retriesColumn(PinKind kind) {
    return kind == PinKind::User ? "retries_left" : "so_retries_left";
}

int readRetries(Database& database, const std::string& deviceId, PinKind kind, int* left) {
    std::string sql = std::string("SELECT ") + retriesColumn(kind) +
                      " FROM devices WHERE device_id = ?";
    Statement query(database, sql.c_str());
    query.bind(1, deviceId);
    if (!query.step()) return query.failed() ? kErrStore : kErrNoDevice;
    if (left != nullptr) *left = static_cast<int>(query.integer(0));
    return kOk;
}

}  // namespace

int insertToken(Database& database, const NewToken& token) {
    if (deviceExists(database, token.serial)) return kErrExists;
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) return result;
    Statement insert(database,
                     "INSERT INTO devices (device_id, blank, plug_order, label, model, firmware, "
                     "pin_changed, retries_max, retries_left, so_retries_left, capacity, "
                     "user_salt, user_iterations, user_verifier, so_salt, so_iterations, "
                     "so_verifier, wrapped_token_key) "
                     "VALUES (?, 0, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    insert.bind(1, token.serial).bind(2, order).bind(3, token.label).bind(4, token.model);
    insert.bind(5, token.firmware).bind(6, token.pinChanged).bind(7, token.retries);
    insert.bind(8, token.retries).bind(9, token.retries).bind(10, token.capacity);
    insert.bind(11, token.userPin.salt).bind(12, token.userPin.iterations);
    insert.bind(13, token.userPin.verifier).bind(14, token.soPin.salt);
    insert.bind(15, token.soPin.iterations).bind(16, token.soPin.verifier);
    insert.bind(17, token.wrappedTokenKey);
    return insert.run() ? kOk : kErrStore;
}

int insertBlankDevice(Database& database, const std::string& deviceId) {
    if (deviceExists(database, deviceId)) return kErrExists;
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) return result;
    Statement insert(database,
                     "INSERT INTO devices (device_id, blank, plug_order) VALUES (?, 1, ?)");
    insert.bind(1, deviceId).bind(2, order);
    return insert.run() ? kOk : kErrStore;
}

int plugDevice(Database& database, const std::string& deviceId) {
    Statement query(database, "SELECT plug_order IS NOT NULL FROM devices WHERE device_id = ?");
    query.bind(1, deviceId);
    if (!query.step()) return query.failed() ? kErrStore : kErrNoDevice;
    if (query.integer(0) != 0) return kOk;
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) return result;
    Statement update(database, "UPDATE devices SET plug_order = ? WHERE device_id = ?");
    update.bind(1, order).bind(2, deviceId);
    return changedOne(database, update);
}

int unplugDevice(Database& database, const std::string& deviceId) {
    Statement update(database, "UPDATE devices SET plug_order = NULL WHERE device_id = ?");
    update.bind(1, deviceId);
    return changedOne(database, update);
}

int removeDevice(Database& database, const std::string& deviceId) {
    // Key pairs and certificates go with it (ON DELETE CASCADE).
    Statement remove(database, "DELETE FROM devices WHERE device_id = ?");
    remove.bind(1, deviceId);
    return changedOne(database, remove);
}

int setDeviceField(Database& database, const std::string& deviceId, DeviceField field,
                   const std::string& value) {
    const char* sql = nullptr;
    bool numeric = true;
    switch (field) {
    case DeviceField::Label:
        sql = "UPDATE devices SET label = ?1 WHERE device_id = ?2 AND blank = 0";
        numeric = false;
        break;
    case DeviceField::Model:
        sql = "UPDATE devices SET model = ?1 WHERE device_id = ?2 AND blank = 0";
        numeric = false;
        break;
    case DeviceField::Firmware:
        sql = "UPDATE devices SET firmware = ?1 WHERE device_id = ?2 AND blank = 0";
        numeric = false;
        break;
    case DeviceField::PinChanged:
        sql = "UPDATE devices SET pin_changed = ?1 WHERE device_id = ?2 AND blank = 0";
        break;
    case DeviceField::Retries:
        sql = "UPDATE devices SET retries_max = ?1, retries_left = ?1, so_retries_left = ?1 "
              "WHERE device_id = ?2 AND blank = 0";
        break;
    case DeviceField::Capacity:
        sql = "UPDATE devices SET capacity = ?1 WHERE device_id = ?2 AND blank = 0";
        break;
    }
    Statement update(database, sql);
    if (numeric) {
        update.bind(1, static_cast<std::int64_t>(std::stoll(value)));
    } else {
        update.bind(1, value);
    }
    update.bind(2, deviceId);
    return changedOne(database, update);
}

int recordPinFailure(Database& database, const std::string& deviceId, PinKind kind, int* left) {
    std::string sql = std::string("UPDATE devices SET ") + retriesColumn(kind) + " = MAX(" +
                      retriesColumn(kind) + " - 1, 0) WHERE device_id = ?";
    Statement update(database, sql.c_str());
    update.bind(1, deviceId);
    if (int result = changedOne(database, update); result != kOk) return result;
    return readRetries(database, deviceId, kind, left);
}

int recordPinSuccess(Database& database, const std::string& deviceId, PinKind kind, int* left) {
    int current = 0;
    if (int result = readRetries(database, deviceId, kind, &current); result != kOk) {
        return result;
    }
    if (current <= 0) {
        if (left != nullptr) *left = 0;
        return kErrPinLocked;
    }
    std::string sql = std::string("UPDATE devices SET ") + retriesColumn(kind) +
                      " = retries_max WHERE device_id = ?";
    Statement update(database, sql.c_str());
    update.bind(1, deviceId);
    if (int result = changedOne(database, update); result != kOk) return result;
    return readRetries(database, deviceId, kind, left);
}

int replaceUserPin(Database& database, const std::string& deviceId, const PinRecord& pin,
                   const Bytes& wrappedTokenKey) {
    Statement update(database,
                     "UPDATE devices SET user_salt = ?, user_iterations = ?, user_verifier = ?, "
                     "wrapped_token_key = ?, pin_changed = 1, retries_left = retries_max "
                     "WHERE device_id = ? AND blank = 0");
    update.bind(1, pin.salt).bind(2, pin.iterations).bind(3, pin.verifier);
    update.bind(4, wrappedTokenKey).bind(5, deviceId);
    return changedOne(database, update);
}

}  // namespace softtoken
