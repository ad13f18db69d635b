#include "store/token_store.h"

#include <unistd.h>

#include <atomic>
#include <utility>
#include <vector>

#include "common/fork_guard.h"
#include "common/token_error.h"
#include "store/database.h"
#include "store/schema.h"
#include "store/snapshot_loader.h"
#include "store/store_location.h"

namespace softtoken {

namespace {

std::atomic<std::uint64_t> nextGeneration{1};

}  // namespace

TokenStore::TokenStore(std::string folder) : folder_(std::move(folder)) {
    // The connection is closed before every fork(), so that a child inherits no SQLite state
    // of the store. SQLite keeps one record per database file and process of the POSIX locks
    // the process holds; a child that inherited it and opened a connection of its own would
    // believe it held the parent's locks without holding any. The parent closing its last
    // connection would then take the child for gone, checkpoint and delete the log the child
    // still writes to, and the child's later commits were lost. The next use reopens.
    guardAcrossFork(&mutex_, [this] { dropLocked(owner_ == getpid()); });
}

TokenStore::~TokenStore() {
    stopGuardingAcrossFork(&mutex_);
    close();
}

int TokenStore::openLocked() {
    pid_t self = getpid();
    if (database_ != nullptr && owner_ == self) {
        return kOk;
    }
    // A connection inherited through fork() belongs to the parent: leave it untouched.
    dropLocked(owner_ == self);
    std::string path = prepareStoreFile(folder_);
    // A store that cannot be opened cannot be read: to the caller its devices are unreachable.
    if (path.empty()) {
        return kDeviceUnreachable;
    }
    std::unique_ptr<Database> database = Database::open(path);
    if (database == nullptr || !ensureSchema(*database)) {
        return kDeviceUnreachable;
    }
    auto query = std::make_unique<Statement>(*database, "PRAGMA data_version");
    if (!query->valid()) {
        return kDeviceUnreachable;
    }
    database_ = std::move(database);
    dataVersionQuery_ = std::move(query);
    owner_ = self;
    return kOk;
}

void TokenStore::dropLocked(bool closeConnection) {
    if (!closeConnection && database_ != nullptr) {
        // Kept, never finalised nor closed, and still reachable (so leak checkers stay quiet).
        static auto* inherited =
            new std::vector<std::pair<std::unique_ptr<Database>, std::unique_ptr<Statement>>>;
        inherited->emplace_back(std::move(database_), std::move(dataVersionQuery_));
    }
    dataVersionQuery_.reset();
    database_.reset();
    snapshot_.reset();
    snapshotDataVersion_ = -1;
}

void TokenStore::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    dropLocked(owner_ == getpid());
}

int TokenStore::snapshot(SnapshotPtr& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    int opened = openLocked();
    if (opened != kOk) {
        return opened;
    }
    dataVersionQuery_->reset();
    std::int64_t dataVersion = dataVersionQuery_->step() ? dataVersionQuery_->integer(0) : -1;
    dataVersionQuery_->reset();
    if (dataVersion < 0) {
        return kDeviceUnreachable;
    }
    if (snapshot_ == nullptr || dataVersion != snapshotDataVersion_ ||
        ownWrites_ != snapshotOwnWrites_) {
        std::shared_ptr<Snapshot> loaded = loadSnapshot(*database_);
        if (loaded == nullptr) {
            return kDeviceUnreachable;
        }
        loaded->generation = nextGeneration.fetch_add(1);
        snapshot_ = std::move(loaded);
        snapshotDataVersion_ = dataVersion;
        snapshotOwnWrites_ = ownWrites_;
    }
    out = snapshot_;
    return kOk;
}

void TokenStore::setBeforeCommit(std::function<void()> hook) {
    std::lock_guard<std::mutex> lock(mutex_);
    beforeCommit_ = std::move(hook);
}

int TokenStore::write(const std::function<int(Database&)>& change) {
    std::lock_guard<std::mutex> lock(mutex_);
    int opened = openLocked();
    if (opened != kOk) {
        return opened;
    }
    WriteTransaction transaction(*database_);
    if (!transaction.begun()) {
        return kStoreWriteFailed;
    }
    int result = change(*database_);
    if (result != kOk) {
        return result;
    }
    if (beforeCommit_) {
        beforeCommit_();
    }
    if (!transaction.commit()) {
        return kStoreWriteFailed;
    }
    ++ownWrites_;
    return kOk;
}

}  // namespace softtoken
