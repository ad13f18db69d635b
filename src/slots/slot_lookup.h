// Finding a slot by ID: the shared lookup of every operation that takes a slot ID.
#pragma once

#include <optional>

#include "core/export_call.h"
#include "slots/slot_table.h"

// The slot's entry as the last C_GetSlotList left the table, or nothing for an ID that names no
// slot (including any value that does not fit in 32 bits).
std::optional<SlotTable::Entry> findSlot(ModuleState& state, CK_SLOT_ID slotID);

// CKR_SLOT_ID_INVALID with "<name>: invalid slotID=<slotID>", the ID in full decimal.
CK_RV rejectInvalidSlot(const ExportCall& call, CK_SLOT_ID slotID);
