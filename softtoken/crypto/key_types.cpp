#include "crypto/key_types.h"

#include <cstring>

#include "device/device_records.h"

namespace softtoken {

namespace {

constexpr KeyTypeInfo kKeyTypes[] = {
    {kKeyTypeRsa1024, "rsa1024", true, 1024, nullptr, kEncryptionRsa1024, 128},
    {kKeyTypeRsa2048, "rsa2048", true, 2048, nullptr, kEncryptionRsa2048, 256},
    {kKeyTypeRsa3072, "rsa3072", true, 3072, nullptr, kEncryptionRsa3072, 384},
    {kKeyTypeRsa4096, "rsa4096", true, 4096, nullptr, kEncryptionRsa4096, 512},
    {kKeyTypeEcP256, "p256", false, 256, "prime256v1", 0, 32},
    {kKeyTypeEcP384, "p384", false, 384, "secp384r1", 0, 48},
    {kKeyTypeEcP521, "p521", false, 521, "secp521r1", 0, 66},
};

template <typename Predicate>
const KeyTypeInfo* findType(Predicate matches) {
    for (const KeyTypeInfo& info : kKeyTypes) {
        if (matches(info)) {
            return &info;
        }
    }
    return nullptr;
}

}  // namespace

const KeyTypeInfo* keyTypeByCode(std::int32_t code) {
    return findType([code](const KeyTypeInfo& info) { return info.code == code; });
}

const KeyTypeInfo* keyTypeByName(const std::string& name) {
    return findType([&name](const KeyTypeInfo& info) { return name == info.name; });
}

const KeyTypeInfo* keyTypeForRsaBits(int bits) {
    return findType([bits](const KeyTypeInfo& info) { return info.rsa && info.bits == bits; });
}

const KeyTypeInfo* keyTypeForCurve(const std::string& curve) {
    // OpenSSL reports P-256 as "prime256v1"; accept the NIST spelling as well.
    const std::string name = curve == "P-256"   ? "prime256v1"
                             : curve == "P-384" ? "secp384r1"
                             : curve == "P-521" ? "secp521r1"
                                                : curve;
    return findType([&name](const KeyTypeInfo& info) { return !info.rsa && name == info.curve; });
}

const KeyTypeInfo* keyTypeForEncryption(int encryptionType) {
    return findType([encryptionType](const KeyTypeInfo& info) {
        return info.rsa && info.encryptionType == encryptionType;
    });
}

std::string keyTypeNames() {
    std::string names;
    for (const KeyTypeInfo& info : kKeyTypes) {
        if (!names.empty()) {
            names += '|';
        }
        names += info.name;
    }
    return names;
}

}  // namespace softtoken
