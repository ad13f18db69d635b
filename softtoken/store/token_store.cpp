#include "store/token_store.h"

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

// A writer that dies between its commit and its count leaves the counter behind the store:
// the snapshot is checked with SQLite at least this often anyway, and the clock is read only
// every few calls, so that the common case stays free of system calls.
constexpr auto kFullCheckPeriod = std::chrono::seconds(1);
constexpr unsigned kCallsPerClockCheck = 16;

}  // namespace

TokenStore::TokenStore(std::string folder) : folder_(std::move(folder)) {
    // The connection is closed before every fork(), so that a child inherits no SQLite state
    // of the store. SQLite keeps one record per database file and process of the POSIX locks
    // the process holds; a child that inherited it and opened a connection of its own would
    // believe it held the parent's locks without holding any. The parent closing its last
    // connection would then take the child for gone, checkpoint and delete the log the child
    // still writes to, and the child's later commits were lost. The next use reopens.
    guardAcrossFork(&mutex_, [this] { dropLocked(ownerForkGeneration_ == forkGeneration()); });
}

TokenStore::~TokenStore() {
    stopGuardingAcrossFork(&mutex_);
    close();
}

int TokenStore::openLocked() {
    const unsigned self = forkGeneration();
    if (database_ != nullptr && ownerForkGeneration_ == self) {
        return kOk;
    }
    // A connection inherited through fork() belongs to the parent: leave it untouched.
    dropLocked(ownerForkGeneration_ == self);
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
    changes_ = std::make_unique<ChangeCounter>(folder_);
    ownerForkGeneration_ = self;
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
    changes_.reset();
    snapshot_.reset();
    snapshotDataVersion_ = -1;
}

void TokenStore::close() {
    std::lock_guard<std::mutex> lock(mutex_);
    dropLocked(ownerForkGeneration_ == forkGeneration());
}

bool TokenStore::snapshotIsCurrentLocked() {
    if (snapshot_ == nullptr || database_ == nullptr || changes_ == nullptr ||
        !changes_->active() || ownerForkGeneration_ != forkGeneration() ||
        ownWrites_ != snapshotOwnWrites_ || changes_->read() != snapshotChanges_) {
        return false;
    }
    if (++callsSinceClockCheck_ < kCallsPerClockCheck) {
        return true;
    }
    callsSinceClockCheck_ = 0;
    return std::chrono::steady_clock::now() - lastFullCheck_ < kFullCheckPeriod;
}

int TokenStore::snapshot(SnapshotPtr& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    if (snapshotIsCurrentLocked()) {
        out = snapshot_;
        return kOk;
    }
    int opened = openLocked();
    if (opened != kOk) {
        return opened;
    }
    // Read before SQLite is asked: a commit that lands in between makes the next call check.
    const std::uint64_t changes = changes_->active() ? changes_->read() : 0;
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
    snapshotChanges_ = changes;
    lastFullCheck_ = std::chrono::steady_clock::now();
    callsSinceClockCheck_ = 0;
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
    changes_->bump();
    return kOk;
}

}  // namespace softtoken
