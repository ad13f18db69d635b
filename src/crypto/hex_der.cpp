#include "crypto/hex_der.h"

namespace {

constexpr char kHexDigits[] = "0123456789ABCDEF";

unsigned char nibble(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned char>(digit - '0');
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<unsigned char>(digit - 'a' + 10);
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<unsigned char>(digit - 'A' + 10);
    }
    return 0;
}

ByteVector derInteger(const ByteVector& magnitude) {
    ByteVector content;
    content.reserve(magnitude.size() + 1);
    if (!magnitude.empty() && (magnitude.front() & 0x80) != 0) {
        content.push_back(0x00);
    }
    content.insert(content.end(), magnitude.begin(), magnitude.end());
    return derEncodeTlv(0x02, content);
}

void append(ByteVector& to, const ByteVector& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

std::string bytesToHex(const unsigned char* data, std::size_t length) {
    std::string hex;
    hex.reserve(length * 2);
    for (std::size_t i = 0; i < length; ++i) {
        hex.push_back(kHexDigits[data[i] >> 4]);
        hex.push_back(kHexDigits[data[i] & 0x0F]);
    }
    return hex;
}

ByteVector hexToBytes(const std::string& hex) {
    std::string digits = hex;
    if (digits.size() >= 2 && digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X')) {
        digits.erase(0, 2);
    }
    if (digits.size() % 2 != 0) {
        digits.insert(digits.begin(), '0');
    }
    ByteVector bytes(digits.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] =
            static_cast<unsigned char>(nibble(digits[2 * i]) << 4 | nibble(digits[2 * i + 1]));
    }
    return bytes;
}

ByteVector derEncodeTlv(unsigned char tag, const ByteVector& content) {
    ByteVector encoded{tag};
    const std::size_t length = content.size();
    if (length < 0x80) {
        encoded.push_back(static_cast<unsigned char>(length));
    } else {
        ByteVector lengthBytes;
        for (std::size_t rest = length; rest != 0; rest >>= 8) {
            lengthBytes.insert(lengthBytes.begin(), static_cast<unsigned char>(rest & 0xFF));
        }
        encoded.push_back(static_cast<unsigned char>(0x80 | lengthBytes.size()));
        append(encoded, lengthBytes);
    }
    append(encoded, content);
    return encoded;
}

ByteVector publicKeyToDer(const std::string& modulusHex, const std::string& exponentHex) {
    // SEQUENCE { OID 1.2.840.113549.1.1.1 (rsaEncryption), NULL }
    static const ByteVector kRsaAlgorithm = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86,
                                             0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00};
    ByteVector rsaPublicKey = derInteger(hexToBytes(modulusHex));
    append(rsaPublicKey, derInteger(hexToBytes(exponentHex)));
    ByteVector bitString{0x00};  // no unused bits
    append(bitString, derEncodeTlv(0x30, rsaPublicKey));
    ByteVector info = kRsaAlgorithm;
    append(info, derEncodeTlv(0x03, bitString));
    return derEncodeTlv(0x30, info);
}
