// Hexadecimal and DER helpers: the log's byte dumps, and the SubjectPublicKeyInfo that the
// device library takes for an RSA public key stored as a bare modulus.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

using ByteVector = std::vector<unsigned char>;

// Upper-case hexadecimal digits, two per byte, no separators.
std::string bytesToHex(const unsigned char* data, std::size_t length);
inline std::string bytesToHex(const ByteVector& bytes) {
    return bytesToHex(bytes.data(), bytes.size());
}

// Reads hexadecimal text: a leading "0x" or "0X" is dropped, an odd length reads as if a '0'
// stood in front, and any character that is not a hexadecimal digit counts as 0.
ByteVector hexToBytes(const std::string& hex);

// Tag, DER definite length (one byte below 128, else 0x80 plus the count of length bytes and
// the length in the fewest big-endian bytes), then the content.
ByteVector derEncodeTlv(unsigned char tag, const ByteVector& content);

// The SubjectPublicKeyInfo of an RSA key (rsaEncryption with a NULL parameter) from its modulus
// and exponent as hexadecimal text; each INTEGER gets a 00 byte in front when its first byte
// has the high bit set.
ByteVector publicKeyToDer(const std::string& modulusHex, const std::string& exponentHex);

// The module's fixed RSA public exponent, 65537, as publicKeyToDer takes it.
inline constexpr const char* kRsaPublicExponentHex = "010001";
