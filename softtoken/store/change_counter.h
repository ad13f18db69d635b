// A counter of committed changes, shared by every process that uses one store: an 8-byte file
// beside the database, mapped into memory. Each commit adds one after it is durable; a process
// whose snapshot was read at the current count knows, without a system call, that nothing
// changed since. (SQLite's own change check, PRAGMA data_version, costs a read transaction and
// several system calls, which is too much for every hash or signature.)
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace softtoken {

class ChangeCounter {
public:
    // Maps <folder>/tokens.changes, creating it (mode 0600) when missing. Inactive when it
    // cannot: the store then checks SQLite every time, as before.
    explicit ChangeCounter(const std::string& folder);
    ~ChangeCounter();
    ChangeCounter(const ChangeCounter&) = delete;
    ChangeCounter& operator=(const ChangeCounter&) = delete;

    bool active() const { return counter_ != nullptr; }
    std::uint64_t read() const { return counter_->load(std::memory_order_acquire); }
    // After a commit. Another process may be adding at the same moment: the addition is atomic
    // on the shared memory.
    void bump() {
        if (counter_ != nullptr) {
            counter_->fetch_add(1, std::memory_order_acq_rel);
        }
    }

private:
    std::atomic<std::uint64_t>* counter_ = nullptr;
};

}  // namespace softtoken
