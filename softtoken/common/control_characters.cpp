#include "common/control_characters.h"

namespace softtoken {

namespace {

// The length of the control character starting at text[i]: 1 for C0 and DEL, 2 for a C1
// control in UTF-8, 0 for anything else.
std::size_t controlAt(const std::string& text, std::size_t i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) {
        return 1;
    }
    if (byte == 0xC2 && i + 1 < text.size()) {
        const auto next = static_cast<unsigned char>(text[i + 1]);
        if (next >= 0x80 && next <= 0x9F) {
            return 2;
        }
    }
    return 0;
}

}  // namespace

bool hasControlCharacters(const std::string& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (controlAt(text, i) != 0) {
            return true;
        }
    }
    return false;
}

std::string printable(const std::string& text) {
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size();) {
        std::size_t control = controlAt(text, i);
        if (control == 0) {
            if (text[i] == '\\') {
                out += '\\';
            }
            out += text[i++];
            continue;
        }
        for (std::size_t end = i + control; i < end; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            out += "\\x";
            out += kDigits[byte >> 4];
            out += kDigits[byte & 0x0F];
        }
    }
    return out;
}

}  // namespace softtoken
