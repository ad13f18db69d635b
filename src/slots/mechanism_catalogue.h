// The fixed catalogue of mechanisms that the module advertises, shared by C_GetMechanismList
// and C_GetMechanismInfo. It is a constant of the module; the token is never asked.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "cryptoki/cryptoki.h"

struct MechanismEntry {
    CK_MECHANISM_TYPE type;
    CK_ULONG minKeySize;  // bits for RSA and EC, 0 for digests
    CK_ULONG maxKeySize;
    CK_FLAGS flags;
    // SHA-1 signing: left out of the list, and verify-only, on a FIPS 140-3 token.
    bool hiddenOnFips1403;
};

constexpr std::size_t kCatalogueSize = 26;

// In the order C_GetMechanismList reports it.
extern const std::array<MechanismEntry, kCatalogueSize> kMechanismCatalogue;

// What a slot makes of the catalogue: an unknown slot gets it as it stands.
struct SlotView {
    bool knownSlot;
    bool fips1403Token;
};

// The entry of the type, or null when the catalogue does not hold it.
const MechanismEntry* findMechanism(CK_MECHANISM_TYPE type);
// The types listed for the slot, in catalogue order.
std::vector<CK_MECHANISM_TYPE> listedMechanisms(SlotView slot);
// The answer of C_GetMechanismInfo for the entry on the slot.
CK_MECHANISM_INFO describeMechanism(const MechanismEntry& entry, SlotView slot);
