// The snapshot and cursor of an object search on one session, empty when the session opens.
#pragma once

#include <cstdint>
#include <vector>

struct SearchState {
    // The ids of what C_FindObjectsInit accepted, in device order. Ids are all that the search
    // hands out (as handles); the records themselves are read again by whoever uses a handle.
    std::vector<std::uint32_t> foundKeyPairs;
    std::vector<std::uint32_t> foundCertificates;
    bool findPublicKeys = false;   // foundKeyPairs are handed out as public keys
    bool findPrivateKeys = false;  // foundKeyPairs are handed out as private keys
    std::int32_t findCursor = 0;   // handles already handed out since the search began

    void reset() { *this = SearchState{}; }
};
