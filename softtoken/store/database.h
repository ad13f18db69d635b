// A thin C++ layer over one SQLite connection: statements with typed binding and reading, and
// write transactions that either commit whole or leave nothing behind.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "common/secret_bytes.h"

struct sqlite3;
struct sqlite3_stmt;

namespace softtoken {

class Database {
public:
    // Opens (creating when needed) with WAL journaling and a busy timeout, so that several
    // processes share the file. Null on failure.
    static std::unique_ptr<Database> open(const std::string& path);
    ~Database();
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    bool execute(const char* sql);
    // The store's change counter as SQLite keeps it: it moves whenever another connection
    // commits. Our own commits are counted by the caller.
    std::int64_t dataVersion();
    std::int64_t lastInsertRowId();
    int changes();
    sqlite3* handle() { return connection_; }

private:
    explicit Database(sqlite3* connection) : connection_(connection) {}
    sqlite3* connection_;
};

class Statement {
public:
    Statement(Database& database, const char* sql);
    ~Statement();
    Statement(const Statement&) = delete;
    Statement& operator=(const Statement&) = delete;

    bool valid() const { return statement_ != nullptr; }
    // Parameters are numbered from 1, as SQLite numbers them.
    Statement& bind(int index, std::int64_t value);
    Statement& bind(int index, const std::string& value);
    Statement& bind(int index, const unsigned char* data, std::size_t size);
    Statement& bind(int index, const Bytes& value) {
        return bind(index, value.data(), value.size());
    }
    Statement& bindNull(int index);

    // True when a row is available; false at the end or on an error (see failed()).
    bool step();
    // Runs a statement that returns no rows; false on an error.
    bool run();
    // Makes a prepared statement ready to run again (bindings are kept).
    void reset();
    bool failed() const { return failed_; }

    std::int64_t integer(int column);
    std::string text(int column);
    Bytes blob(int column);
    bool isNull(int column);

private:
    sqlite3_stmt* statement_ = nullptr;
    bool failed_ = false;
};

// BEGIN IMMEDIATE at once, so that the write lock is taken before anything is read and two
// processes never interleave a read-modify-write. Rolls back unless commit() succeeded.
class WriteTransaction {
public:
    explicit WriteTransaction(Database& database);
    ~WriteTransaction();
    WriteTransaction(const WriteTransaction&) = delete;
    WriteTransaction& operator=(const WriteTransaction&) = delete;

    bool begun() const { return begun_; }
    bool commit();

private:
    Database& database_;
    bool begun_ = false;
    bool finished_ = false;
};

}  // namespace softtoken
