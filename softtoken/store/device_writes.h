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

// Settable device fields, by the names the tool uses.
enum class DeviceField { Label, Model, Firmware, PinChanged, Retries, Capacity };

int insertToken(Database& database, const NewToken& token);
int insertBlankDevice(Database& database, const std::string& deviceId);
// Plugging an already plugged device keeps its place in the plug order.
int plugDevice(Database& database, const std::string& deviceId);
int unplugDevice(Database& database, const std::string& deviceId);
int removeDevice(Database& database, const std::string& deviceId);
// Text fields take text; the others take a decimal value in text form, already checked.
// Retries from 1 sets the maximum and both live counts (user and security officer), which also
// unlocks; retries 0 sets both live counts to 0 and keeps the maximum, as running out of tries
// leaves a PIN.
int setDeviceField(Database& database, const std::string& deviceId, DeviceField field,
                   const std::string& value);

}  // namespace softtoken
