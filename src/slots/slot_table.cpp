#include "slots/slot_table.h"

#include <iterator>
#include <utility>

void SlotTable::replace(std::vector<Entry>& fresh) {
    std::map<std::string, TokenInfo> previous = std::move(entries_);
    entries_.clear();
    for (Entry& entry : fresh) {
        if (entries_.count(entry.deviceId) != 0) {
            continue;
        }
        auto node = previous.extract(entry.deviceId);
        if (node.empty()) {
            entries_.emplace(std::move(entry.deviceId), std::move(entry.token));
        } else {
            node.mapped() = std::move(entry.token);
            entries_.insert(std::move(node));
        }
    }
}

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
