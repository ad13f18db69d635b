// The PIN columns of a device row, read and written inside one TokenStore::write transaction so
// that a PIN try is taken, checked and settled before any other connection can look.
#pragma once

#include <string>

#include "store/records.h"

namespace softtoken {

class Database;

enum class PinKind { User, SecurityOfficer };

// The PIN of one kind as the store holds it at this moment.
struct LivePin {
    int retriesMax = 0;
    int retriesLeft = 0;
    PinRecord record;       // empty for a security officer PIN that was never set
    Bytes wrappedTokenKey;  // user PINs only
};

// kDeviceUnreachable for an unknown device, kBlankDevice for a blank one.
int readLivePin(Database& database, const std::string& deviceId, PinKind kind, LivePin& pin);
int setRetriesLeft(Database& database, const std::string& deviceId, PinKind kind, int left);
// A new user PIN with the token key wrapped under it; marks the PIN as changed and gives it every
// try.
int replaceUserPin(Database& database, const std::string& deviceId, const PinRecord& pin,
                   const Bytes& wrappedTokenKey);

}  // namespace softtoken
