// Devices from the environment, for the shared build loaded by real clients (pkcs11-tool and
// the like) in a process where no test can call the scripting functions.
//
// OSTREL_DOUBLE_DEVICES="SERIAL:Label:model:firmware[:userPin];SERIAL2:..." -- see README.md.
#include <cstdlib>
#include <sstream>

#include "double_state.h"

namespace devicedouble::detail {

namespace {

std::string environmentValue(const char* name) {
#if defined(_MSC_VER)
    // MSVC deprecates getenv; _dupenv_s is its safe equivalent.
    char* value = nullptr;
    std::size_t size = 0;
    if (_dupenv_s(&value, &size, name) != 0 || value == nullptr)
        return {};
    std::string result(value);
    std::free(value);
    return result;
#else
    // Read under the state mutex at instance creation; nothing of ours writes the environment.
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe)
    return value == nullptr ? std::string() : std::string(value);
#endif
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream stream(text);
    std::string part;
    while (std::getline(stream, part, separator))
        parts.push_back(part);
    return parts;
}

}  // namespace

void addEnvironmentDevices(State& s) {
    for (const auto& entry : split(environmentValue("OSTREL_DOUBLE_DEVICES"), ';')) {
        std::vector<std::string> fields = split(entry, ':');
        fields.resize(5);
        const std::string& serial = fields[0];
        // Devices already known keep their state across C_Finalize and C_Initialize.
        if (serial.empty() || s.devices.count(serial) != 0)
            continue;
        Device device;
        device.info = makeTokenInfo(serial, fields[1]);
        if (!fields[2].empty())
            device.info.model = fields[2];
        if (!fields[3].empty())
            device.info.firmwareVersion = fields[3];
        if (!fields[4].empty())
            device.userPin = fields[4];
        s.devices[serial] = device;
        s.connected.push_back(serial);
    }
}

}  // namespace devicedouble::detail
