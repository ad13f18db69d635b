// Changes to device rows. Each runs inside TokenStore::write, so it is one transaction.
#pragma once

#include <string>

#include "store/records.h"

namespace softtoken {

class Database;

struct NewToken {
    std::string serial;
    std::string label;
    std::string model;
    std::string firmware;
    int pinChanged = 1;
    int retries = 10;
    int capacity = 64;
    PinRecord userPin;
    PinRecord soPin;  // empty: no security officer PIN
    Bytes wrappedTokenKey;
};

enum class PinKind { User, SecurityOfficer };

// Settable device fields, by the names the tool uses.
enum class DeviceField { Label, Model, Firmware, PinChanged, Retries, Capacity };

int insertToken(Database& database, const NewToken& token);
int insertBlankDevice(Database& database, const std::string& deviceId);
// Plugging an already plugged device keeps its place in the plug order.
int plugDevice(Database& database, const std::string& deviceId);
int unplugDevice(Database& database, const std::string& deviceId);
int removeDevice(Database& database, const std::string& deviceId);
// Text fields take text; the others take a decimal value in text form, already checked.
// Retries sets both the maximum and the live count.
int setDeviceField(Database& database, const std::string& deviceId, DeviceField field,
                   const std::string& value);

// A wrong PIN: the live count goes down by one (never below 0); *left receives it.
int recordPinFailure(Database& database, const std::string& deviceId, PinKind kind, int* left);
// A right PIN: the count goes back to its maximum, unless it reached 0 meanwhile (another
// process locked the PIN), in which case the answer is kErrPinLocked. *left receives the count.
int recordPinSuccess(Database& database, const std::string& deviceId, PinKind kind, int* left);
// A new user PIN with the token key wrapped under it; marks the PIN as changed.
int replaceUserPin(Database& database, const std::string& deviceId, const PinRecord& pin,
                   const Bytes& wrappedTokenKey);

}  // namespace softtoken
