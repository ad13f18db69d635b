#include "store/device_writes.h"

#include "common/token_error.h"
#include "store/database.h"

namespace softtoken {

namespace {

bool deviceExists(Database& database, const std::string& deviceId) {
    Statement query(database, "SELECT 1 FROM devices WHERE device_id = ?");
    query.bind(1, deviceId);
    return query.step();
}

// A statement that must touch the device's row: when it touched none, the device is unknown
// (kDeviceUnreachable) or, for token fields, blank (kBlankDevice).
int changedOne(Database& database, Statement& statement, const std::string& deviceId) {
    if (!statement.run()) {
        return kStoreWriteFailed;
    }
    if (database.changes() > 0) {
        return kOk;
    }
    return deviceExists(database, deviceId) ? kBlankDevice : kDeviceUnreachable;
}

int nextPlugOrder(Database& database, std::int64_t* order) {
    Statement bump(database,
                   "UPDATE counters SET value = value + 1 WHERE name = 'plug_sequence' "
                   "RETURNING value");
    if (!bump.step()) {
        return kStoreWriteFailed;
    }
    *order = bump.integer(0);
    return kOk;
}

}  // namespace

int insertToken(Database& database, const NewToken& token) {
    if (deviceExists(database, token.serial)) {
        return kAlreadyExists;
    }
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) {
        return result;
    }
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
    return insert.run() ? kOk : kStoreWriteFailed;
}

int insertBlankDevice(Database& database, const std::string& deviceId) {
    if (deviceExists(database, deviceId)) {
        return kAlreadyExists;
    }
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) {
        return result;
    }
    Statement insert(database,
                     "INSERT INTO devices (device_id, blank, plug_order) VALUES (?, 1, ?)");
    insert.bind(1, deviceId).bind(2, order);
    return insert.run() ? kOk : kStoreWriteFailed;
}

int plugDevice(Database& database, const std::string& deviceId) {
    Statement query(database, "SELECT plug_order IS NOT NULL FROM devices WHERE device_id = ?");
    query.bind(1, deviceId);
    if (!query.step()) {
        return query.failed() ? kStoreWriteFailed : kDeviceUnreachable;
    }
    if (query.integer(0) != 0) {
        return kOk;
    }
    std::int64_t order = 0;
    if (int result = nextPlugOrder(database, &order); result != kOk) {
        return result;
    }
    Statement update(database, "UPDATE devices SET plug_order = ? WHERE device_id = ?");
    update.bind(1, order).bind(2, deviceId);
    return changedOne(database, update, deviceId);
}

int unplugDevice(Database& database, const std::string& deviceId) {
    Statement update(database, "UPDATE devices SET plug_order = NULL WHERE device_id = ?");
    update.bind(1, deviceId);
    return changedOne(database, update, deviceId);
}

int removeDevice(Database& database, const std::string& deviceId) {
    // Key pairs and certificates go with it (ON DELETE CASCADE).
    Statement remove(database, "DELETE FROM devices WHERE device_id = ?");
    remove.bind(1, deviceId);
    return changedOne(database, remove, deviceId);
}

int setDeviceField(Database& database, const std::string& deviceId, DeviceField field,
                   const std::string& value) {
    // Blank devices have none of these fields: "AND blank = 0" makes them answer kBlankDevice.
    static const struct {
        DeviceField field;
        bool numeric;
        const char* sql;
    } kUpdates[] = {
        {DeviceField::Label, false,
         "UPDATE devices SET label = ?1 WHERE device_id = ?2 AND blank = 0"},
        {DeviceField::Model, false,
         "UPDATE devices SET model = ?1 WHERE device_id = ?2 AND blank = 0"},
        {DeviceField::Firmware, false,
         "UPDATE devices SET firmware = ?1 WHERE device_id = ?2 AND blank = 0"},
        {DeviceField::PinChanged, true,
         "UPDATE devices SET pin_changed = ?1 WHERE device_id = ?2 AND blank = 0"},
        {DeviceField::Retries, true,
         "UPDATE devices SET retries_max = ?1, retries_left = ?1, so_retries_left = ?1 "
         "WHERE device_id = ?2 AND blank = 0"},
        {DeviceField::Capacity, true,
         "UPDATE devices SET capacity = ?1 WHERE device_id = ?2 AND blank = 0"},
    };
    // Retries 0 locks both PINs the way running out of tries does: the maximum stays, so that
    // a later "retries N" or nothing else tells what the token allowed.
    static const char* const kLockPins =
        "UPDATE devices SET retries_left = 0, so_retries_left = 0 WHERE device_id = ?2 AND "
        "blank = 0";
    for (const auto& update : kUpdates) {
        if (update.field != field) {
            continue;
        }
        std::int64_t number = update.numeric ? std::stoll(value) : 0;
        const bool lock = field == DeviceField::Retries && number == 0;
        Statement statement(database, lock ? kLockPins : update.sql);
        if (!lock && update.numeric) {
            statement.bind(1, number);
        } else if (!lock) {
            statement.bind(1, value);
        }
        statement.bind(2, deviceId);
        return changedOne(database, statement, deviceId);
    }
    return kBadArgument;
}

}  // namespace softtoken
