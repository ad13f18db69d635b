#include "tool/pkcs11_url.h"

namespace softtoken {
namespace {

// Everything but the unreserved characters is percent-encoded: always valid, in any attribute.
std::string percentEncoded(const unsigned char* bytes, std::size_t length) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    for (std::size_t i = 0; i < length; ++i) {
        const unsigned char byte = bytes[i];
        const bool unreserved = (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') ||
                                (byte >= '0' && byte <= '9') || byte == '-' || byte == '.' ||
                                byte == '_' || byte == '~';
        if (unreserved) {
            encoded += static_cast<char>(byte);
        } else {
            encoded += '%';
            encoded += kHex[byte >> 4];
            encoded += kHex[byte & 0x0F];
        }
    }
    return encoded;
}

std::string percentEncoded(const std::string& text) {
    return percentEncoded(reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

// Every byte of an id is encoded, as tools print ids.
std::string encodedId(const unsigned char* id, std::size_t length) {
    static const char kHex[] = "0123456789ABCDEF";
    std::string encoded;
    for (std::size_t i = 0; i < length; ++i) {
        encoded += '%';
        encoded += kHex[id[i] >> 4];
        encoded += kHex[id[i] & 0x0F];
    }
    return encoded;
}

}  // namespace

// The module reports the serial number in its 16-byte field padded with NUL bytes, not blanks,
// and URL tools compare the whole field: the padding is part of the value they match.
std::string tokenUrl(const std::string& serial) {
    constexpr std::size_t kSerialField = 16;
    std::string field = serial.substr(0, kSerialField);
    field.resize(kSerialField, '\0');
    return "pkcs11:serial=" + percentEncoded(field);
}

std::string objectUrl(const std::string& serial, const unsigned char* id, std::size_t idLength,
                      const std::string& label, const char* type) {
    std::string url = tokenUrl(serial);
    if (idLength != 0) {
        url += ";id=" + encodedId(id, idLength);
    }
    if (!label.empty()) {
        url += ";object=" + percentEncoded(label);
    }
    url += ";type=";
    url += type;
    return url;
}

}  // namespace softtoken
