// The snapshot and cursor of an object search on one session, empty when the session opens.
#pragma once

#include <cstdint>
#include <vector>

#include "device/device_records.h"

struct SearchState {
    // Copies of what C_FindObjectsInit accepted, in device order.
    std::vector<OstrelKeyPair> foundKeyPairs;
    std::vector<OstrelCertificate> foundCertificates;
    bool findPublicKeys = false;   // foundKeyPairs are handed out as public keys
    bool findPrivateKeys = false;  // foundKeyPairs are handed out as private keys
    std::int32_t findCursor = 0;   // handles already handed out since the search began
};
