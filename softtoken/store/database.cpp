#include "store/database.h"

#include <sqlite3.h>

namespace softtoken {

namespace {
// A write waits this long for another process's transaction before giving up. Key generation
// holds no transaction while it computes, so real waits are short.
constexpr int kBusyTimeoutMs = 10000;
}  // namespace

std::unique_ptr<Database> Database::open(const std::string& path) {
    sqlite3* connection = nullptr;
    int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &connection, flags, nullptr) != SQLITE_OK) {
        sqlite3_close(connection);
        return nullptr;
    }
    std::unique_ptr<Database> database(new Database(connection));
    sqlite3_busy_timeout(connection, kBusyTimeoutMs);
    // NORMAL synchronous is durable against process crashes in WAL mode; only a power loss can
    // undo the last commits, never half of one.
    if (!database->execute("PRAGMA journal_mode=WAL") ||
        !database->execute("PRAGMA synchronous=NORMAL") ||
        !database->execute("PRAGMA foreign_keys=ON")) {
        return nullptr;
    }
    return database;
}

Database::~Database() {
    if (connection_ != nullptr) {
        sqlite3_close_v2(connection_);
    }
}

bool Database::execute(const char* sql) {
    return sqlite3_exec(connection_, sql, nullptr, nullptr, nullptr) == SQLITE_OK;
}

std::int64_t Database::dataVersion() {
    Statement statement(*this, "PRAGMA data_version");
    return statement.step() ? statement.integer(0) : -1;
}

std::int64_t Database::lastInsertRowId() {
    return sqlite3_last_insert_rowid(connection_);
}

int Database::changes() {
    return sqlite3_changes(connection_);
}

Statement::Statement(Database& database, const char* sql) {
    if (sqlite3_prepare_v2(database.handle(), sql, -1, &statement_, nullptr) != SQLITE_OK) {
        sqlite3_finalize(statement_);
        statement_ = nullptr;
        failed_ = true;
    }
}

Statement::~Statement() {
    sqlite3_finalize(statement_);
}

Statement& Statement::bind(int index, std::int64_t value) {
    if (statement_ != nullptr && sqlite3_bind_int64(statement_, index, value) != SQLITE_OK) {
        failed_ = true;
    }
    return *this;
}

Statement& Statement::bind(int index, const std::string& value) {
    if (statement_ != nullptr &&
        sqlite3_bind_text(statement_, index, value.data(), static_cast<int>(value.size()),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
        failed_ = true;
    }
    return *this;
}

Statement& Statement::bind(int index, const unsigned char* data, std::size_t size) {
    // A zero-length blob, not NULL: the columns that hold bytes are NOT NULL.
    static const unsigned char empty = 0;
    if (statement_ != nullptr &&
        sqlite3_bind_blob(statement_, index, size == 0 ? &empty : data, static_cast<int>(size),
                          SQLITE_TRANSIENT) != SQLITE_OK) {
        failed_ = true;
    }
    return *this;
}

Statement& Statement::bindNull(int index) {
    if (statement_ != nullptr && sqlite3_bind_null(statement_, index) != SQLITE_OK) {
        failed_ = true;
    }
    return *this;
}

bool Statement::step() {
    if (statement_ == nullptr || failed_) {
        return false;
    }
    int result = sqlite3_step(statement_);
    if (result == SQLITE_ROW) {
        return true;
    }
    if (result != SQLITE_DONE) {
        failed_ = true;
    }
    return false;
}

bool Statement::run() {
    step();
    return !failed_;
}

void Statement::reset() {
    if (statement_ != nullptr) {
        sqlite3_reset(statement_);
    }
    failed_ = statement_ == nullptr;
}

std::int64_t Statement::integer(int column) {
    return sqlite3_column_int64(statement_, column);
}

std::string Statement::text(int column) {
    const unsigned char* value = sqlite3_column_text(statement_, column);
    int size = sqlite3_column_bytes(statement_, column);
    return value != nullptr
               ? std::string(reinterpret_cast<const char*>(value), static_cast<std::size_t>(size))
               : std::string();
}

Bytes Statement::blob(int column) {
    const auto* value = static_cast<const unsigned char*>(sqlite3_column_blob(statement_, column));
    int size = sqlite3_column_bytes(statement_, column);
    return value != nullptr ? Bytes(value, value + size) : Bytes();
}

bool Statement::isNull(int column) {
    return sqlite3_column_type(statement_, column) == SQLITE_NULL;
}

WriteTransaction::WriteTransaction(Database& database) : database_(database) {
    begun_ = database_.execute("BEGIN IMMEDIATE");
}

WriteTransaction::~WriteTransaction() {
    if (begun_ && !finished_) {
        database_.execute("ROLLBACK");
    }
}

bool WriteTransaction::commit() {
    if (!begun_ || finished_) {
        return false;
    }
    finished_ = database_.execute("COMMIT");
    return finished_;
}

}  // namespace softtoken
