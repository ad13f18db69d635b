#include "objects/derived_keys.h"

#include <utility>

std::uint32_t DerivedKeyTable::add(SecretBytes key) {
    std::lock_guard<std::mutex> lock(mutex_);
    const std::uint32_t handle = nextDerivedKeyHandle_++;
    keys_[handle] = std::move(key);
    return handle;
}

std::optional<SecretBytes> DerivedKeyTable::find(std::uint32_t handle) const {
    std::lock_guard<std::mutex> lock(mutex_);
    const auto found = keys_.find(handle);
    if (found == keys_.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::uint32_t DerivedKeyTable::nextHandle() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return nextDerivedKeyHandle_;
}

void DerivedKeyTable::wipeWithoutLocking() noexcept {
    for (auto& entry : keys_) {
        wipeAndClear(entry.second);
    }
}
