// The token store of one process: one SQLite connection, the current snapshot, and the write
// path. Safe to use from many threads; closed before every fork() and reopened by the next use,
// in parent and child alike (token_store.cpp says why).
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

#include "store/change_counter.h"
#include "store/records.h"

namespace softtoken {

class Database;
class Statement;

class TokenStore {
public:
    explicit TokenStore(std::string folder);
    ~TokenStore();
    TokenStore(const TokenStore&) = delete;
    TokenStore& operator=(const TokenStore&) = delete;

    const std::string& folder() const { return folder_; }

    // The current snapshot. When the shared change counter says nothing was committed since it
    // was read, it costs no system call at all, so the hot paths (device list, key lists,
    // hashing, signing) call it freely; otherwise one PRAGMA data_version tells, and only a
    // real change reloads the snapshot.
    int snapshot(SnapshotPtr& out);

    // Runs change inside one BEGIN IMMEDIATE transaction and commits when it answers 0, so a
    // change is either wholly stored or not at all, whatever happens to the process.
    int write(const std::function<int(Database&)>& change);

    // Drops the connection and the snapshot; the next call reopens.
    void close();

    // Called inside every write transaction once its change is made, just before the commit.
    // Tests use it (through the tool, see tool/main.cpp) to stop a writer at the one moment
    // that matters and kill it there.
    void setBeforeCommit(std::function<void()> hook);

private:
    int openLocked();
    void dropLocked(bool closeConnection);
    // True when the snapshot is known to be current without asking SQLite.
    bool snapshotIsCurrentLocked();

    std::mutex mutex_;
    const std::string folder_;
    std::unique_ptr<Database> database_;
    std::unique_ptr<Statement> dataVersionQuery_;
    std::unique_ptr<ChangeCounter> changes_;
    unsigned ownerForkGeneration_ = 0;  // the process that opened the connection
    std::uint64_t ownWrites_ = 0;
    std::int64_t snapshotDataVersion_ = -1;
    std::uint64_t snapshotOwnWrites_ = 0;
    std::uint64_t snapshotChanges_ = 0;  // the change counter when the snapshot was checked
    std::chrono::steady_clock::time_point lastFullCheck_;
    unsigned callsSinceClockCheck_ = 0;
    SnapshotPtr snapshot_;
    std::function<void()> beforeCommit_;
};

}  // namespace softtoken
