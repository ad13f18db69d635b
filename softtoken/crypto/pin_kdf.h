// PINs are kept only as salted PBKDF2 verifiers. The same derivation also yields the key that
// wraps the token key, so one slow derivation serves both the check and the unlock.
#pragma once

#include <string>

#include "common/secret_bytes.h"
#include "store/records.h"

namespace softtoken {

// PBKDF2-HMAC-SHA256 iterations of new PIN records: about 6 ms on a quiet current core and
// still below the 20 ms that a PIN check may cost on a loaded one. Each record keeps its own
// count, so this may grow later without touching existing tokens.
constexpr int kPinIterations = 20000;

struct PinDerivation {
    Bytes verifier;           // what the store keeps
    SecretBytes wrappingKey;  // 32 bytes, never stored
};

bool derivePin(const std::string& pin, const Bytes& salt, int iterations, PinDerivation& out);
// A new record with a fresh random salt; *derivation receives what it was made from.
bool makePinRecord(const std::string& pin, int iterations, PinRecord& record,
                   PinDerivation* derivation);
// Constant-time comparison of a derivation with a stored record.
bool pinMatches(const PinRecord& record, const Bytes& verifier);

bool randomBytes(unsigned char* out, std::size_t size);
Bytes randomBytes(std::size_t size);

}  // namespace softtoken
