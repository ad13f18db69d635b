// Slot IDs, session and object handles are 32-bit numbers. On platforms whose CK_ULONG is wider,
// a caller's value above 0xFFFFFFFF names nothing; it must never alias a valid handle by
// truncation.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include "cryptoki/cryptoki.h"

inline std::optional<std::uint32_t> handleValue(CK_ULONG value) {
    if (value > std::numeric_limits<std::uint32_t>::max()) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}
