#include "slots/info_fields.h"

#include <cstring>
#include <vector>

#include "crypto/mechanism_policy.h"

namespace {

CK_BYTE lowByte(int value) {
    return static_cast<CK_BYTE>(static_cast<unsigned>(value) & 0xFFu);
}

}  // namespace

CK_VERSION firmwareVersionPair(const std::string& firmwareVersion) {
    const std::vector<int> pieces = versionFields(firmwareVersion);
    CK_VERSION version{0, 0};
    if (!pieces.empty()) {
        version.major = lowByte(pieces[0]);
    }
    if (pieces.size() > 1) {
        version.minor = lowByte(pieces[1]);
    }
    return version;
}

void TextFields::writeTerminated(std::size_t offset, const std::string& text) {
    write(offset, text.c_str(), text.size() + 1);
}

void TextFields::writePrefix(std::size_t offset, const std::string& text, std::size_t maxLength) {
    write(offset, text.data(), text.size() < maxLength ? text.size() : maxLength);
}

void TextFields::writeField(std::size_t offset, std::size_t width, const std::string& text) {
    if (offset < size_) {
        std::memset(begin_ + offset, 0, width < size_ - offset ? width : size_ - offset);
    }
    write(offset, text.data(), text.size());
}

void TextFields::write(std::size_t offset, const char* bytes, std::size_t length) {
    if (offset >= size_) {
        return;
    }
    const std::size_t room = size_ - offset;
    std::memcpy(begin_ + offset, bytes, length < room ? length : room);
}
