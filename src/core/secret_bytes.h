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

// An allocator that wipes every block before its underlying allocator takes it back.
template <typename T, typename Underlying = std::allocator<T>>
struct WipingAllocator {
    using value_type = T;
    template <typename U>
    struct rebind {
        using other =
            WipingAllocator<U,
                            typename std::allocator_traits<Underlying>::template rebind_alloc<U>>;
    };

    WipingAllocator() noexcept = default;
    template <typename U, typename OtherUnderlying>
    WipingAllocator(const WipingAllocator<U, OtherUnderlying>& /*other*/) noexcept {}

    T* allocate(std::size_t count) { return Underlying().allocate(count); }
    void deallocate(T* block, std::size_t count) noexcept {
        wipeBytes(block, count * sizeof(T));
        Underlying().deallocate(block, count);
    }

    template <typename U, typename OtherUnderlying>
    bool operator==(const WipingAllocator<U, OtherUnderlying>& /*other*/) const noexcept {
        return true;
    }
    template <typename U, typename OtherUnderlying>
    bool operator!=(const WipingAllocator<U, OtherUnderlying>& /*other*/) const noexcept {
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
