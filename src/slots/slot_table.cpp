#include "slots/slot_table.h"

#include <iterator>

std::optional<SlotTable::Entry> SlotTable::find(std::uint32_t slotId) const {
    if (slotId < kFirstSlotId) {
        return std::nullopt;
    }
    const std::uint32_t position = slotId - kFirstSlotId;
    if (position >= entries_.size()) {
        return std::nullopt;
    }
    auto entry = std::next(entries_.begin(), static_cast<std::ptrdiff_t>(position));
    return Entry{entry->first, entry->second};
}
