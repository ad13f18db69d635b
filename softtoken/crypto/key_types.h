// The key types the token knows, as one table: the module's key type codes, their algorithm,
// size, curve and the encryption type code that goes with them.
#pragma once

#include <cstdint>
#include <string>

namespace softtoken {

struct KeyTypeInfo {
    std::int32_t code;  // OstrelKeyType
    const char* name;   // the tool's name: rsa2048, p256, ...
    bool rsa;
    int bits;                    // modulus or field size
    const char* curve;           // OpenSSL group name, null for RSA
    int encryptionType;          // EncryptionType for RSA, 0 for EC
    std::size_t componentBytes;  // modulus bytes, or bytes of one coordinate
};

const KeyTypeInfo* keyTypeByCode(std::int32_t code);
const KeyTypeInfo* keyTypeByName(const std::string& name);
const KeyTypeInfo* keyTypeForRsaBits(int bits);
const KeyTypeInfo* keyTypeForCurve(const std::string& curve);
const KeyTypeInfo* keyTypeForEncryption(int encryptionType);
// The tool's names, for help texts: "rsa1024|rsa2048|...".
std::string keyTypeNames();

}  // namespace softtoken
