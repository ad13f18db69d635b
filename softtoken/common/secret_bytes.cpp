#include "common/secret_bytes.h"

#include <openssl/crypto.h>

#include <algorithm>
#include <utility>

namespace softtoken {

SecretBytes::SecretBytes(SecretBytes&& other) noexcept : bytes_(std::move(other.bytes_)) {
    other.bytes_.clear();
}

SecretBytes& SecretBytes::operator=(const SecretBytes& other) {
    if (this != &other) {
        clear();
        bytes_ = other.bytes_;
    }
    return *this;
}

SecretBytes& SecretBytes::operator=(SecretBytes&& other) noexcept {
    if (this != &other) {
        clear();
        bytes_ = std::move(other.bytes_);
        other.bytes_.clear();
    }
    return *this;
}

SecretBytes::~SecretBytes() {
    clear();
}

void SecretBytes::clear() {
    if (!bytes_.empty()) {
        OPENSSL_cleanse(bytes_.data(), bytes_.size());
    }
    bytes_.clear();
}

void SecretBytes::resize(std::size_t size) {
    // Shrinking leaves the cut-off bytes in the buffer's spare capacity: wipe them first.
    if (size < bytes_.size()) {
        OPENSSL_cleanse(bytes_.data() + size, bytes_.size() - size);
    }
    if (size > bytes_.capacity()) {
        std::vector<unsigned char> bigger(size);
        std::copy(bytes_.begin(), bytes_.end(), bigger.begin());
        clear();
        bytes_ = std::move(bigger);
        return;
    }
    bytes_.resize(size);
}

bool SecretBytes::operator==(const SecretBytes& other) const {
    return bytes_.size() == other.bytes_.size() &&
           CRYPTO_memcmp(bytes_.data(), other.bytes_.data(), bytes_.size()) == 0;
}

void wipeText(std::string& text) {
    if (!text.empty()) {
        OPENSSL_cleanse(&text[0], text.size());
    }
    text.clear();
}

std::string toHex(const unsigned char* data, std::size_t size) {
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t i = 0; i < size; ++i) {
        text.push_back(digits[data[i] >> 4]);
        text.push_back(digits[data[i] & 0x0F]);
    }
    return text;
}

namespace {
int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    return -1;
}
}  // namespace

bool fromHex(const std::string& text, Bytes& out) {
    std::size_t start =
        (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) ? 2 : 0;
    if ((text.size() - start) % 2 != 0) {
        return false;
    }
    Bytes bytes;
    for (std::size_t i = start; i < text.size(); i += 2) {
        int high = hexDigit(text[i]);
        int low = hexDigit(text[i + 1]);
        if (high < 0 || low < 0) {
            return false;
        }
        bytes.push_back(static_cast<unsigned char>(high * 16 + low));
    }
    out = std::move(bytes);
    return true;
}

}  // namespace softtoken
