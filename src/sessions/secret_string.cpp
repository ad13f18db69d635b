#include "sessions/secret_string.h"

#include <utility>

namespace {

// Writes through a volatile pointer so the compiler cannot drop the stores as dead.
void wipe(std::string& text) noexcept {
    if (text.empty()) {
        return;
    }
    volatile char* bytes = &text[0];
    for (std::size_t i = 0; i < text.size(); ++i) {
        bytes[i] = 0;
    }
    text.clear();
}

}  // namespace

SecretString::SecretString(const char* data, std::size_t length) { assign(data, length); }

SecretString::SecretString(const SecretString& other) { assign(other.value_.data(), other.size()); }

SecretString& SecretString::operator=(const SecretString& other) {
    if (this != &other) {
        assign(other.value_.data(), other.size());
    }
    return *this;
}

SecretString::SecretString(SecretString&& other) noexcept : value_(std::move(other.value_)) {
    other.clear();
}

SecretString& SecretString::operator=(SecretString&& other) noexcept {
    if (this != &other) {
        clear();
        value_ = std::move(other.value_);
        other.clear();
    }
    return *this;
}

SecretString::~SecretString() { clear(); }

void SecretString::assign(const char* data, std::size_t length) {
    clear();
    value_.reserve(length < kCapacity ? kCapacity : length);
    value_.assign(data, length);
}

void SecretString::clear() noexcept { wipe(value_); }

bool SecretString::equals(const char* data, std::size_t length) const noexcept {
    if (length != value_.size()) {
        return false;
    }
    unsigned char difference = 0;
    for (std::size_t i = 0; i < length; ++i) {
        difference |= static_cast<unsigned char>(value_[i] ^ data[i]);
    }
    return difference == 0;
}
