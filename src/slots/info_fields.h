// Helpers shared by C_GetSlotInfo and C_GetTokenInfo: the firmware version pair and the
// writing of the text fields that open both structures.
#pragma once

#include <cstddef>
#include <string>

#include "cryptoki/cryptoki.h"

inline constexpr const char* kSlotManufacturer = "Kelvanetics";
inline constexpr CK_VERSION kSlotHardwareVersion{1, 0};

// Major and minor version from a dotted firmware text: each piece as atoi reads it, 0 when it
// is missing, kept to its low 8 bits.
CK_VERSION firmwareVersionPair(const std::string& firmwareVersion);

// The text fields at the start of CK_SLOT_INFO and CK_TOKEN_INFO lie back to back, and the
// structure's numeric fields follow them. The module fills the text fields in the structure's
// order with copies that are not cut at their own field: a long text runs on into the next
// text fields, which are written after it and so replace what it left there (only a
// NUL-terminated copy replaces no more than itself and its NUL). Every copy stops at the end
// of the text fields instead of running on into the numeric fields; those are written in full
// afterwards, so the structure's fields come out exactly as with unbounded copies, and nothing
// past the caller's structure is ever written.
class TextFields {
public:
    TextFields(void* structure, std::size_t textBytes)
        : begin_(static_cast<unsigned char*>(structure)), size_(textBytes) {}

    // The text's bytes and its NUL from offset on.
    void writeTerminated(std::size_t offset, const std::string& text);
    // At most maxLength bytes of the text from offset on, without NUL.
    void writePrefix(std::size_t offset, const std::string& text, std::size_t maxLength);
    // The text's bytes from offset on, after zeroing the width bytes of the field there.
    void writeField(std::size_t offset, std::size_t width, const std::string& text);

private:
    void write(std::size_t offset, const char* bytes, std::size_t length);

    unsigned char* begin_;
    std::size_t size_;
};
