// The memory of one call of the bad-input matrix: every block the module is handed lives in an
// allocation of its own, and afterwards each byte is compared with what it held before.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
#else
#include <sys/mman.h>
#endif

#include "bad_input_matrix.h"

#if defined(__SANITIZE_ADDRESS__)
#define MATRIX_UNDER_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define MATRIX_UNDER_ADDRESS_SANITIZER 1
#endif
#endif

namespace matrix {

namespace {

// Under AddressSanitizer a block ends where its allocation ends, so that any read or write past
// it is reported; elsewhere a guard of known bytes follows it, so that a write past it is seen.
#if defined(MATRIX_UNDER_ADDRESS_SANITIZER)
constexpr std::size_t kGuard = 0;
#else
constexpr std::size_t kGuard = 32;
#endif
constexpr unsigned char kGuardByte = 0x5A;

}  // namespace

// A page that may be neither read nor written: the module touching it ends the process.
void* noAccessPage() {
    static void* const page = []() -> void* {
#if defined(_WIN32)
        return VirtualAlloc(nullptr, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_NOACCESS);
#else
        void* mapped = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        return mapped == MAP_FAILED ? nullptr : mapped;
#endif
    }();
    return page;
}

CallMemory::CallMemory(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE nextDerived)
    : session_(session), nextDerived_(nextDerived) {}

CallValue CallMemory::value(const Arg& arg) {
    switch (arg.kind) {
        case Arg::Kind::Number:
            return {arg.value, nullptr};
        case Arg::Kind::Session:
            return {session_ + arg.value, nullptr};
        case Arg::Kind::Slot:
            return {kSlot + arg.value, nullptr};
        case Arg::Kind::NextDerived:
            return {nextDerived_, nullptr};
        case Arg::Kind::Sweep:
            throw std::logic_error("a row kept the placeholder of its sweep");
        case Arg::Kind::Null:
            return {0, nullptr};
        case Arg::Kind::NoAccess:
            return {0, noAccessPage()};
        case Arg::Kind::Memory:
            break;
    }
    return {0, place(*arg.memory)};
}

std::vector<std::string> CallMemory::misuses(bool writesAllowed) const {
    std::vector<std::string> found;
    for (const auto& block : blocks_) {
        const Memory& memory = *block->memory;
        const std::size_t size = memory.bytes.size();
        std::size_t changed = 0;
        std::size_t first = 0;
        for (std::size_t i = 0; i < size + kGuard; ++i) {
            if (block->storage[i] == block->before[i] ||
                (writesAllowed && i < size && writable(memory, i))) {
                continue;
            }
            first = changed == 0 ? i : first;
            ++changed;
        }
        if (changed != 0) {
            found.push_back(memory.name + ": " + std::to_string(changed) +
                            " byte(s) changed, the first at offset " + std::to_string(first) +
                            (first >= size ? " (past its end)" : ""));
        }
        if (writesAllowed && memory.after &&
            !std::equal(memory.after->begin(), memory.after->end(), block->storage.get())) {
            found.push_back(memory.name + ": not the value the call must leave");
        }
    }
    return found;
}

bool CallMemory::writable(const Memory& memory, std::size_t offset) {
    return std::any_of(memory.writable.begin(), memory.writable.end(),
                       [offset](const Memory::Range& range) {
                           return offset >= range.begin && offset < range.end;
                       });
}

void* CallMemory::place(const Memory& memory) {
    auto block = std::make_unique<Block>();
    block->memory = &memory;
    const std::size_t size = memory.bytes.size();
    block->storage = std::make_unique<unsigned char[]>(std::max<std::size_t>(size, 1) + kGuard);
    std::copy(memory.bytes.begin(), memory.bytes.end(), block->storage.get());
    std::fill_n(block->storage.get() + size, kGuard, kGuardByte);
    for (const Memory::Pointer& pointer : memory.pointers) {
        const CallValue target = value(pointer.target);
        std::memcpy(block->storage.get() + pointer.offset, &target.pointer, sizeof(void*));
    }
    block->before.assign(block->storage.get(), block->storage.get() + size + kGuard);
    void* address = block->storage.get();
    blocks_.push_back(std::move(block));
    return address;
}

}  // namespace matrix
