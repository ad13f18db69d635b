// A byte string for PINs: its memory is overwritten before it is released, whenever the value
// is cleared, replaced or destroyed, so a PIN does not linger in freed heap blocks.
#pragma once

#include <cstddef>
#include <string>

class SecretString {
public:
    SecretString() = default;
    SecretString(const char* data, std::size_t length);
    SecretString(const SecretString& other);
    SecretString& operator=(const SecretString& other);
    SecretString(SecretString&& other) noexcept;
    SecretString& operator=(SecretString&& other) noexcept;
    ~SecretString();

    void assign(const char* data, std::size_t length);
    void clear() noexcept;

    bool empty() const noexcept { return value_.empty(); }
    std::size_t size() const noexcept { return value_.size(); }
    // NUL-terminated, as the device library takes PINs.
    const char* c_str() const noexcept { return value_.c_str(); }
    bool equals(const char* data, std::size_t length) const noexcept;

private:
    // Reserved beyond the small-string buffer so that growth never leaves an unwiped copy.
    static constexpr std::size_t kCapacity = 128;
    std::string value_;
};
