#include "store/pin_writes.h"

#include "common/token_error.h"
#include "store/database.h"

namespace softtoken {

namespace {

// The columns of each PIN kind, as a table rather than a branch in every statement.
struct PinColumns {
    const char* select;
    const char* setLeft;
};

const PinColumns& columnsOf(PinKind kind) {
    static const PinColumns kUser{
        "SELECT blank, retries_max, retries_left, user_salt, user_iterations, user_verifier, "
        "wrapped_token_key FROM devices WHERE device_id = ?",
        "UPDATE devices SET retries_left = ?1 WHERE device_id = ?2"};
    static const PinColumns kSecurityOfficer{
        "SELECT blank, retries_max, so_retries_left, so_salt, so_iterations, so_verifier, x'' "
        "FROM devices WHERE device_id = ?",
        "UPDATE devices SET so_retries_left = ?1 WHERE device_id = ?2"};
    return kind == PinKind::User ? kUser : kSecurityOfficer;
}

}  // namespace

int readLivePin(Database& database, const std::string& deviceId, PinKind kind, LivePin& pin) {
    Statement query(database, columnsOf(kind).select);
    query.bind(1, deviceId);
    if (!query.step()) {
        return query.failed() ? kStoreWriteFailed : kDeviceUnreachable;
    }
    if (query.integer(0) != 0) {
        return kBlankDevice;
    }
    pin.retriesMax = static_cast<int>(query.integer(1));
    pin.retriesLeft = static_cast<int>(query.integer(2));
    pin.record = {query.blob(3), static_cast<int>(query.integer(4)), query.blob(5)};
    pin.wrappedTokenKey = query.blob(6);
    return kOk;
}

int setRetriesLeft(Database& database, const std::string& deviceId, PinKind kind, int left) {
    Statement update(database, columnsOf(kind).setLeft);
    update.bind(1, left).bind(2, deviceId);
    if (!update.run()) {
        return kStoreWriteFailed;
    }
    return database.changes() > 0 ? kOk : kDeviceUnreachable;
}

int replaceUserPin(Database& database, const std::string& deviceId, const PinRecord& pin,
                   const Bytes& wrappedTokenKey) {
    Statement update(database,
                     "UPDATE devices SET user_salt = ?, user_iterations = ?, user_verifier = ?, "
                     "wrapped_token_key = ?, pin_changed = 1, retries_left = retries_max "
                     "WHERE device_id = ? AND blank = 0");
    update.bind(1, pin.salt).bind(2, pin.iterations).bind(3, pin.verifier);
    update.bind(4, wrappedTokenKey).bind(5, deviceId);
    if (!update.run()) {
        return kStoreWriteFailed;
    }
    return database.changes() > 0 ? kOk : kDeviceUnreachable;
}

}  // namespace softtoken
