// Byte buffers: plain ones, and one for secrets that wipes itself when it goes away.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace softtoken {

using Bytes = std::vector<unsigned char>;

// Keys, PIN derivations and decrypted key material: wiped with OPENSSL_cleanse on destruction
// and on clear(), so they do not linger in freed heap memory.
class SecretBytes {
public:
    SecretBytes() = default;
    explicit SecretBytes(std::size_t size) : bytes_(size) {}
    SecretBytes(const unsigned char* data, std::size_t size) : bytes_(data, data + size) {}
    SecretBytes(const SecretBytes& other) = default;
    SecretBytes(SecretBytes&& other) noexcept;
    SecretBytes& operator=(const SecretBytes& other);
    SecretBytes& operator=(SecretBytes&& other) noexcept;
    ~SecretBytes();

    void clear();
    void resize(std::size_t size);
    unsigned char* data() { return bytes_.data(); }
    const unsigned char* data() const { return bytes_.data(); }
    std::size_t size() const { return bytes_.size(); }
    bool empty() const { return bytes_.empty(); }
    bool operator==(const SecretBytes& other) const;

private:
    std::vector<unsigned char> bytes_;
};

// Wipes a text that held a PIN.
void wipeText(std::string& text);

std::string toHex(const unsigned char* data, std::size_t size);
inline std::string toHex(const Bytes& bytes) {
    return toHex(bytes.data(), bytes.size());
}
// Reads hexadecimal digits (an optional "0x" in front); false on any other character or an odd
// count.
bool fromHex(const std::string& text, Bytes& out);

}  // namespace softtoken
