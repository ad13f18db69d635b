// Decimal text of numbers for log messages, independent of the C locale.
#include <charconv>

#include "log/log.h"

namespace {

template <typename Integer>
std::string toDecimal(Integer value) {
    char text[24];  // 20 digits of UINT64_MAX, or a sign and 19 digits
    const std::to_chars_result result = std::to_chars(text, text + sizeof text, value);
    return std::string(text, result.ptr);
}

}  // namespace

std::string decimalText(std::int64_t value) {
    return toDecimal(value);
}

std::string decimalText(std::uint64_t value) {
    return toDecimal(value);
}
