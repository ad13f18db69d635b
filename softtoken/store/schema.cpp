#include "store/schema.h"

#include <string>

#include "store/database.h"

namespace softtoken {

namespace {

constexpr int kSchemaVersion = 1;

// devices: one row per device, blank or holding a token. plug_order is NULL while unplugged and
// otherwise a value of the plug_sequence counter, so plugging order survives restarts.
// PIN columns hold salted PBKDF2 verifiers with their iteration count; wrapped_token_key is the
// token's key-encryption key sealed under the user PIN's derived key.
// key_pairs.private_key is the PKCS #8 DER sealed under the token key.
const char* const kCreateTables = R"SQL(
CREATE TABLE IF NOT EXISTS counters (
  name  TEXT PRIMARY KEY,
  value INTEGER NOT NULL
);
CREATE TABLE IF NOT EXISTS devices (
  device_id          TEXT PRIMARY KEY,
  blank              INTEGER NOT NULL,
  plug_order         INTEGER,
  label              TEXT NOT NULL DEFAULT '',
  model              TEXT NOT NULL DEFAULT '',
  firmware           TEXT NOT NULL DEFAULT '',
  pin_changed        INTEGER NOT NULL DEFAULT 1,
  retries_max        INTEGER NOT NULL DEFAULT 0,
  retries_left       INTEGER NOT NULL DEFAULT 0,
  so_retries_left    INTEGER NOT NULL DEFAULT 0,
  capacity           INTEGER NOT NULL DEFAULT 0,
  next_object_id     INTEGER NOT NULL DEFAULT 1,
  user_salt          BLOB NOT NULL DEFAULT x'',
  user_iterations    INTEGER NOT NULL DEFAULT 0,
  user_verifier      BLOB NOT NULL DEFAULT x'',
  so_salt            BLOB NOT NULL DEFAULT x'',
  so_iterations      INTEGER NOT NULL DEFAULT 0,
  so_verifier        BLOB NOT NULL DEFAULT x'',
  wrapped_token_key  BLOB NOT NULL DEFAULT x''
);
CREATE TABLE IF NOT EXISTS key_pairs (
  device_id     TEXT NOT NULL REFERENCES devices(device_id) ON DELETE CASCADE,
  id            INTEGER NOT NULL,
  reference     BLOB NOT NULL UNIQUE,
  key_type      INTEGER NOT NULL,
  usage_flags   INTEGER NOT NULL,
  alias         TEXT NOT NULL,
  object_id     BLOB NOT NULL,
  public_value  BLOB NOT NULL,
  private_key   BLOB NOT NULL,
  PRIMARY KEY (device_id, id)
);
CREATE TABLE IF NOT EXISTS certificates (
  device_id     TEXT NOT NULL REFERENCES devices(device_id) ON DELETE CASCADE,
  id            INTEGER NOT NULL,
  reference     BLOB NOT NULL UNIQUE,
  der           BLOB NOT NULL,
  object_id     BLOB NOT NULL,
  label         TEXT NOT NULL,
  PRIMARY KEY (device_id, id)
);
CREATE TABLE IF NOT EXISTS faults (
  operation  TEXT PRIMARY KEY,
  code       INTEGER NOT NULL,
  remaining  INTEGER NOT NULL
);
INSERT OR IGNORE INTO counters (name, value) VALUES ('plug_sequence', 0);
)SQL";

}  // namespace

namespace {

// The store's schema version, or -1 when it cannot be read.
std::int64_t schemaVersion(Database& database) {
    Statement version(database, "PRAGMA user_version");
    return version.step() ? version.integer(0) : -1;
}

}  // namespace

bool ensureSchema(Database& database) {
    // A current store is only read: opening it needs no write lock, so it opens while another
    // process writes, and on a store that cannot be written at all.
    const std::int64_t seen = schemaVersion(database);
    if (seen == kSchemaVersion) {
        return true;
    }
    WriteTransaction transaction(database);
    if (seen < 0 || !transaction.begun()) {
        return false;
    }
    // Read again under the write lock: another process may have made the tables meanwhile.
    const std::int64_t current = schemaVersion(database);
    if (current < 0 || current > kSchemaVersion) {
        return false;
    }
    if (current == kSchemaVersion) {
        return true;  // nothing to do; the rollback is harmless
    }
    if (!database.execute(kCreateTables)) {
        return false;
    }
    std::string setVersion = "PRAGMA user_version = " + std::to_string(kSchemaVersion);
    if (!database.execute(setVersion.c_str())) {
        return false;
    }
    return transaction.commit();
}

}  // namespace softtoken
