// The secret keys made by C_DeriveKey: the only objects that live in the module. Handles count
// up from 0x70003000 for the life of the loaded module; no handle is ever given twice, and no
// entry is ever removed (not by C_DestroyObject, C_CloseSession, C_Logout or C_Finalize).
#pragma once

#include <cstdint>
#include <map>
#include <optional>

#include "core/mutex.h"
#include "core/secret_bytes.h"
#include "objects/object_handles.h"

class DerivedKeyTable {
public:
    // Stores the key under the next handle (nextDerivedKeyHandle) and answers that handle.
    std::uint32_t add(SecretBytes key);
    // A copy of the key stored under the handle.
    std::optional<SecretBytes> find(std::uint32_t handle) const;
    std::uint32_t nextHandle() const;

    // Overwrites every stored key. Only for moments when no other thread can use the table
    // (the module's code going away, a fork child's inherited copy): takes no lock.
    void wipeWithoutLocking() noexcept NO_THREAD_SAFETY_ANALYSIS;

    // Wipes and forgets every key and starts the handles again, as a fresh load of the module
    // would. Never called by the module: it is for the fuzz harness, which runs many independent
    // inputs in one process and must not see the table grow from one input to the next.
    void resetForTesting();

private:
    mutable Mutex mutex_;
    std::map<std::uint32_t, SecretBytes> keys_ GUARDED_BY(mutex_);
    std::uint32_t nextDerivedKeyHandle_ GUARDED_BY(mutex_) = kFirstDerivedKeyHandle;
};
