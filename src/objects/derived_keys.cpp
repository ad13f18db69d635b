#include "objects/derived_keys.h"

#include <utility>

#include "core/mutex.h"

std::uint32_t DerivedKeyTable::add(SecretBytes key) {
    MutexLock lock(mutex_);
    const std::uint32_t handle = nextDerivedKeyHandle_++;
    keys_[handle] = std::move(key);
    return handle;
}

std::optional<SecretBytes> DerivedKeyTable::find(std::uint32_t handle) const {
    MutexLock lock(mutex_);
    const auto found = keys_.find(handle);
    if (found == keys_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::uint32_t DerivedKeyTable::nextHandle() const {
    MutexLock lock(mutex_);
    return nextDerivedKeyHandle_;
}

void DerivedKeyTable::wipeWithoutLocking() noexcept {
    for (auto& entry : keys_) {
        wipeAndClear(entry.second);
    }
}

void DerivedKeyTable::resetForTesting() {
    MutexLock lock(mutex_);
    keys_.clear();  // SecretBytes' allocator wipes each key as it is freed
    nextDerivedKeyHandle_ = kFirstDerivedKeyHandle;
}
