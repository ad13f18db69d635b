// The slots: one entry per connected device whose token is present, keyed by the device
// identifier in ascending byte order. Slot IDs are 0x50000001 + position in that order.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "device/device_records.h"

constexpr std::uint32_t kFirstSlotId = 0x50000001;

class SlotTable {
public:
    struct Entry {
        std::string deviceId;
        TokenInfo token;
    };

    void clear() { entries_.clear(); }
    std::size_t size() const { return entries_.size(); }
    // Makes these the only entries; of a repeated identifier the first is kept. Every
    // C_GetSlotList rebuilds the table, mostly with the devices it already holds: their entries
    // are updated where they are, so that the rebuild allocates nothing for them.
    void replace(std::vector<Entry>& fresh);
    // The entry at position slotId - kFirstSlotId in ascending identifier order.
    std::optional<Entry> find(std::uint32_t slotId) const;

private:
    std::map<std::string, TokenInfo> entries_;
};
