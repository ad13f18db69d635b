// Bytes that held a secret (a derived key, a decrypted message, a signature's input) are
// overwritten before their memory goes back to the heap: when the buffer is destroyed, cleared
// and shrunk, or grows into a new block.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

// Writes zeros through a volatile pointer, so the compiler cannot drop the stores as dead.
inline void wipeBytes(void* data, std::size_t length) noexcept {
    volatile unsigned char* bytes = static_cast<volatile unsigned char*>(data);
    for (std::size_t i = 0; i < length; ++i) {
        bytes[i] = 0;
    }
}

// An allocator that wipes every block it gives back.
template <typename T>
struct WipingAllocator {
    using value_type = T;

    WipingAllocator() noexcept = default;
    template <typename U>
    WipingAllocator(const WipingAllocator<U>& /*other*/) noexcept {}

    T* allocate(std::size_t count) { return std::allocator<T>().allocate(count); }
    void deallocate(T* block, std::size_t count) noexcept {
        wipeBytes(block, count * sizeof(T));
        std::allocator<T>().deallocate(block, count);
    }

    template <typename U>
    bool operator==(const WipingAllocator<U>& /*other*/) const noexcept {
        return true;
    }
    template <typename U>
    bool operator!=(const WipingAllocator<U>& /*other*/) const noexcept {
        return false;
    }
};

using SecretBytes = std::vector<unsigned char, WipingAllocator<unsigned char>>;

// Wipes what the buffer holds now and empties it (a plain clear() keeps the old bytes in the
// block until it is given back).
inline void wipeAndClear(SecretBytes& bytes) noexcept {
    wipeBytes(bytes.data(), bytes.size());
    bytes.clear();
}
