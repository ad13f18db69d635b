#include "crypto/mechanism_policy.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <sstream>

namespace {

bool isCSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

// atoi without its undefined behaviour: a value beyond int saturates, as the Windows C
// library's atoi does.
int leadingInteger(const std::string& field) {
    std::size_t position = 0;
    while (position < field.size() && isCSpace(field[position])) {
        ++position;
    }
    bool negative = false;
    if (position < field.size() && (field[position] == '+' || field[position] == '-')) {
        negative = field[position] == '-';
        ++position;
    }
    constexpr std::int64_t limit = std::int64_t{std::numeric_limits<int>::max()} + 1;
    std::int64_t magnitude = 0;
    for (; position < field.size() && field[position] >= '0' && field[position] <= '9';
         ++position) {
        if (magnitude < limit) {
            magnitude = magnitude * 10 + (field[position] - '0');
        }
    }
    const std::int64_t value = negative ? -magnitude : magnitude;
    if (value > std::numeric_limits<int>::max()) {
        return std::numeric_limits<int>::max();
    }
    if (value < std::numeric_limits<int>::min()) {
        return std::numeric_limits<int>::min();
    }
    return static_cast<int>(value);
}

}  // namespace

bool isFips1403Token(const std::string& model) {
    return !(model.size() > 2 && model[2] == '1');
}

std::vector<int> versionFields(const std::string& text) {
    std::vector<int> fields;
    std::istringstream stream(text);
    std::string field;
    while (std::getline(stream, field, '.')) {
        fields.push_back(leadingInteger(field));
    }
    return fields;
}

int compareVersions(const std::string& a, const std::string& b) {
    const std::vector<int> left = versionFields(a);
    const std::vector<int> right = versionFields(b);
    const std::size_t count = left.size() > right.size() ? left.size() : right.size();
    for (std::size_t i = 0; i < count; ++i) {
        const int x = i < left.size() ? left[i] : 0;
        const int y = i < right.size() ? right[i] : 0;
        if (x != y) {
            return x < y ? -1 : 1;
        }
    }
    return 0;
}

bool firmwareAtLeast(const std::string& firmware, const std::string& required) {
    return compareVersions(firmware, required) >= 0;
}
