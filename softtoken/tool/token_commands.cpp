// Token and device commands: init, init-blank, list, show, plug, unplug, remove, set.
#include <algorithm>
#include <cstring>
#include <ostream>

#include "certificates/certificate_reader.h"
#include "common/control_characters.h"
#include "common/token_error.h"
#include "crypto/key_types.h"
#include "store/device_writes.h"
#include "token/token_admin.h"
#include "token/token_service.h"
#include "tool/arguments.h"
#include "tool/pkcs11_url.h"

namespace softtoken::tool {

namespace {

const CommandSyntax kInit{
    "init",
    "SERIAL --label TEXT --pin PIN [--so-pin PIN] [--model TEXT] [--firmware TEXT] "
    "[--pin-changed 0|1] [--retries N] [--capacity N]",
    "Creates a token with this serial number and plugs it. Defaults: model SW1-SOFT, firmware "
    "2.1.0, pin-changed 1, retries 10, capacity 64.",
    {"--label", "--pin", "--so-pin", "--model", "--firmware", "--pin-changed", "--retries",
     "--capacity"},
    {},
    1,
    1};
const CommandSyntax kInitBlank{"init-blank",
                               "ID",
                               "Plugs a device that holds no usable token (its serial is empty).",
                               {},
                               {},
                               1,
                               1};
const CommandSyntax kList{
    "list", "", "Lists the devices: plugged ones in plug order, then the rest.", {}, {}, 0, 0};
const CommandSyntax kShow{
    "show", "SERIAL", "Shows a token with its key pairs and certificates.", {}, {}, 1, 1};
const CommandSyntax kPlug{
    "plug", "SERIAL", "Plugs a device in; it goes to the end of the plug order.", {}, {}, 1, 1};
const CommandSyntax kUnplug{"unplug", "SERIAL", "Pulls a device out.", {}, {}, 1, 1};
const CommandSyntax kRemove{"remove", "SERIAL", "Deletes a device with all its objects.", {}, {},
                            1,        1};
const CommandSyntax kSet{
    "set",
    "SERIAL label|model|firmware|pin-changed|retries|capacity VALUE",
    "Changes one field of a token. retries N (1 to 1000) sets the maximum and both live counts, "
    "which also unlocks; retries 0 locks both PINs as running out of tries does and keeps the "
    "maximum.",
    {},
    {},
    3,
    3};

// Runs one change in the store and reports its failure.
template <typename Change>
int storeChange(ToolContext& context, const CommandSyntax& syntax, Change change) {
    int result = context.service.store().write(change);
    return result == kOk ? kExitDone : tokenError(context, syntax, result);
}

int snapshotOrFail(ToolContext& context, const CommandSyntax& syntax, SnapshotPtr& snapshot) {
    int result = context.service.snapshot(snapshot);
    return result == kOk ? kExitDone : tokenError(context, syntax, result);
}

int runInit(ToolContext& context, const Arguments& arguments) {
    TokenSettings settings;
    settings.serial = arguments.positional[0];
    if (!arguments.has("--label") || !arguments.has("--pin")) {
        return usageError(context, kInit, "--label and --pin are required");
    }
    settings.label = arguments.option("--label");
    settings.userPin = arguments.option("--pin");
    settings.soPin = arguments.option("--so-pin");
    settings.model = arguments.option("--model", settings.model);
    settings.firmware = arguments.option("--firmware", settings.firmware);
    long number = 0;
    if (arguments.has("--pin-changed")) {
        if (!parseNumber(arguments.option("--pin-changed"), 0, 1, number)) {
            return usageError(context, kInit, "--pin-changed takes 0 or 1");
        }
        settings.pinChanged = static_cast<int>(number);
    }
    if (arguments.has("--retries")) {
        if (!parseNumber(arguments.option("--retries"), 1, 1000, number)) {
            return usageError(context, kInit, "--retries takes a number from 1 to 1000");
        }
        settings.retries = static_cast<int>(number);
    }
    if (arguments.has("--capacity")) {
        if (!parseNumber(arguments.option("--capacity"), 0, 4095, number)) {
            return usageError(context, kInit, "--capacity takes a number from 0 to 4095");
        }
        settings.capacity = static_cast<int>(number);
    }
    int result = createToken(context.service, settings);
    if (result == kBadArgument) {
        return usageError(context, kInit,
                          "the serial must be 1 to 255 bytes without control characters, and "
                          "texts at most 255 bytes");
    }
    if (result != kOk) {
        return tokenError(context, kInit, result);
    }
    context.out << "token " << printable(settings.serial) << " created and plugged\n";
    return kExitDone;
}

int runInitBlank(ToolContext& context, const Arguments& arguments) {
    const std::string& id = arguments.positional[0];
    if (!serialAcceptable(id)) {
        return usageError(context, kInitBlank,
                          "the identifier must be 1 to 255 bytes without control characters");
    }
    return storeChange(context, kInitBlank,
                       [&](Database& database) { return insertBlankDevice(database, id); });
}

// One line per device: stored texts are escaped, so a label holding a line feed and tabs cannot
// forge another device's line.
std::string deviceLine(const DeviceRecord& device) {
    return printable(device.deviceId) + "\t" + (device.plugged() ? "plugged" : "unplugged") + "\t" +
           (device.blank ? "blank" : "token") + "\t" + printable(device.label);
}

int runList(ToolContext& context, const Arguments&) {
    SnapshotPtr snapshot;
    if (int failed = snapshotOrFail(context, kList, snapshot); failed != kExitDone) {
        return failed;
    }
    for (const std::string& id : snapshot->pluggedInOrder) {
        context.out << deviceLine(*snapshot->findDevice(id)) << "\n";
    }
    for (const DeviceRecord& device : snapshot->devices) {
        if (!device.plugged()) {
            context.out << deviceLine(device) << "\n";
        }
    }
    return kExitDone;
}

// A record's text field up to its first NUL, never past the field.
std::string boundedText(const char* field, std::size_t capacity) {
    const void* nul = std::memchr(field, '\0', capacity);
    return std::string(
        field, nul == nullptr ? capacity
                              : static_cast<std::size_t>(static_cast<const char*>(nul) - field));
}

void showKeyPairs(std::ostream& out, const Snapshot& snapshot, const std::string& id) {
    const DeviceObjects* objects = snapshot.objectsOf(id);
    if (objects == nullptr) {
        return;
    }
    for (const OstrelKeyPair& pair : *objects->keyPairs) {
        const KeyTypeInfo* type = keyTypeByCode(pair.keyType);
        out << "key pair " << pair.id << ": " << (type != nullptr ? type->name : "unknown")
            << " usage=" << ((pair.usageFlags & kKeyUsageSign) != 0 ? "sign" : "")
            << ((pair.usageFlags & kKeyUsageDecrypt) != 0 ? "+decrypt" : "")
            << " id=" << toHex(pair.objectId, static_cast<std::size_t>(pair.objectIdLength))
            << " label=" << printable(pair.alias) << "\n";
        const std::size_t idLength = static_cast<std::size_t>(std::max(pair.objectIdLength, 0));
        const std::string label = boundedText(pair.alias, sizeof pair.alias);
        out << "  private key: " << objectUrl(id, pair.objectId, idLength, label, "private") << "\n"
            << "  public key: " << objectUrl(id, pair.objectId, idLength, label, "public") << "\n";
    }
}

void showCertificates(std::ostream& out, const Snapshot& snapshot, const std::string& id) {
    const DeviceObjects* objects = snapshot.objectsOf(id);
    if (objects == nullptr) {
        return;
    }
    for (const OstrelCertificate& certificate : *objects->certificates) {
        CertificateDetails details;
        X509Ptr parsed =
            parseCertificate(certificate.der, static_cast<std::size_t>(certificate.derLength));
        if (parsed != nullptr) {
            readCertificateDetails(parsed.get(), details);
        }
        out << "certificate " << certificate.id << ": subject=" << printable(details.subjectName)
            << " id="
            << toHex(certificate.objectId, static_cast<std::size_t>(certificate.objectIdLength))
            << " label=" << printable(certificate.label) << "\n";
        out << "  certificate: "
            << objectUrl(id, certificate.objectId,
                         static_cast<std::size_t>(std::max(certificate.objectIdLength, 0)),
                         boundedText(certificate.label, sizeof certificate.label), "cert")
            << "\n";
    }
}

int runShow(ToolContext& context, const Arguments& arguments) {
    SnapshotPtr snapshot;
    if (int failed = snapshotOrFail(context, kShow, snapshot); failed != kExitDone) {
        return failed;
    }
    const std::string& id = arguments.positional[0];
    const DeviceRecord* device = snapshot->findDevice(id);
    if (device == nullptr) {
        return tokenError(context, kShow, kDeviceUnreachable);
    }
    std::ostream& out = context.out;
    out << "device: " << printable(device->deviceId) << "\n"
        << "state: " << (device->plugged() ? "plugged" : "unplugged") << "\n";
    if (device->blank) {
        out << "token: none (blank device)\n";
        return kExitDone;
    }
    std::size_t used = snapshot->objectCount(id);
    out << "label: " << printable(device->label) << "\n"
        << "model: " << printable(device->model) << "\n"
        << "firmware: " << printable(device->firmware) << "\n"
        << "pin-changed: " << device->pinChanged << "\n"
        << "retries: " << device->retriesLeft << "/" << device->retriesMax << "\n"
        << "so-pin: " << (device->soPin.present() ? "set" : "none") << "\n"
        << "capacity: " << device->capacity << " (" << used << " used)\n"
        << "url: " << tokenUrl(device->deviceId) << "\n";
    showKeyPairs(out, *snapshot, id);
    showCertificates(out, *snapshot, id);
    return kExitDone;
}

int runPlug(ToolContext& context, const Arguments& arguments) {
    return storeChange(context, kPlug, [&](Database& database) {
        return plugDevice(database, arguments.positional[0]);
    });
}

int runUnplug(ToolContext& context, const Arguments& arguments) {
    return storeChange(context, kUnplug, [&](Database& database) {
        return unplugDevice(database, arguments.positional[0]);
    });
}

int runRemove(ToolContext& context, const Arguments& arguments) {
    return storeChange(context, kRemove, [&](Database& database) {
        return removeDevice(database, arguments.positional[0]);
    });
}

int runSet(ToolContext& context, const Arguments& arguments) {
    static const struct {
        const char* name;
        DeviceField field;
        long minimum;
        long maximum;  // both 0: a text field
    } kFields[] = {
        {"label", DeviceField::Label, 0, 0},        {"model", DeviceField::Model, 0, 0},
        {"firmware", DeviceField::Firmware, 0, 0},  {"pin-changed", DeviceField::PinChanged, 0, 1},
        {"retries", DeviceField::Retries, 0, 1000}, {"capacity", DeviceField::Capacity, 0, 4095},
    };
    const std::string& name = arguments.positional[1];
    const std::string& value = arguments.positional[2];
    for (const auto& entry : kFields) {
        if (name != entry.name) {
            continue;
        }
        long number = 0;
        if (entry.maximum == 0 && value.size() > kMaxTextLength) {
            return usageError(context, kSet, "texts are at most 255 bytes");
        }
        if (entry.maximum != 0 && !parseNumber(value, entry.minimum, entry.maximum, number)) {
            return usageError(context, kSet,
                              name + " takes a number from " + std::to_string(entry.minimum) +
                                  " to " + std::to_string(entry.maximum));
        }
        // Numbers travel in their plain decimal form ("007" and "-0" are 7 and 0).
        const std::string stored = entry.maximum != 0 ? std::to_string(number) : value;
        return storeChange(context, kSet, [&](Database& database) {
            return setDeviceField(database, arguments.positional[0], entry.field, stored);
        });
    }
    return usageError(context, kSet, "unknown field '" + name + "'");
}

}  // namespace

const std::vector<Command>& tokenCommands() {
    static const std::vector<Command> commands = {
        {kInit, runInit}, {kInitBlank, runInitBlank}, {kList, runList},     {kShow, runShow},
        {kPlug, runPlug}, {kUnplug, runUnplug},       {kRemove, runRemove}, {kSet, runSet},
    };
    return commands;
}

}  // namespace softtoken::tool
