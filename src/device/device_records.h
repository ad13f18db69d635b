// Records exchanged with the device library OstrelDSCLibrary.
//
// OstrelKeyPair and OstrelCertificate are byte-exact images of the library's records: their
// sizes and field offsets are part of the binary interface and are checked at compile time.
// TokenInfo, CertificateDetails and ImportPFXDetails are C++ types of the library and travel
// by value or by reference with standard-library members.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// Key-type codes of OstrelKeyPair::keyType.
enum OstrelKeyType : std::int32_t {
    kKeyTypeRsa1024 = 1,
    kKeyTypeRsa2048 = 2,
    kKeyTypeRsa3072 = 3,
    kKeyTypeRsa4096 = 4,
    kKeyTypeEcP256 = 5,
    kKeyTypeEcP384 = 6,
    kKeyTypeEcP521 = 7,
};

// Bits of OstrelKeyPair::usageFlags.
constexpr std::uint32_t kKeyUsageSign = 0x1;
constexpr std::uint32_t kKeyUsageDecrypt = 0x2;

constexpr std::size_t kObjectReferenceSize = 16;
constexpr std::size_t kPublicValueCapacity = 1024;
constexpr std::size_t kObjectIdCapacity = 128;
constexpr std::size_t kAliasCapacity = 132;
constexpr std::size_t kCertificateDerCapacity = 3072;
constexpr std::size_t kCertificateLabelCapacity = 152;

struct OstrelKeyPair {
    std::uint32_t id;                                    // handle number of both halves
    unsigned char keyReference[kObjectReferenceSize];    // the library's name of the pair
    unsigned char publicValue[kPublicValueCapacity];     // RSA modulus, or EC point (04 || X || Y)
    std::int32_t publicValueLength;
    unsigned char objectId[kObjectIdCapacity];           // CKA_ID
    std::int32_t objectIdLength;
    char alias[kAliasCapacity];                          // label, NUL-terminated
    std::uint32_t usageFlags;                            // kKeyUsageSign | kKeyUsageDecrypt
    std::int32_t keyType;                                // OstrelKeyType
    bool deletionFlag;                                   // passed back to delete and decrypt
    unsigned char reserved[3];
};

struct OstrelCertificate {
    std::uint32_t id;                                          // handle number
    unsigned char certificateReference[kObjectReferenceSize];  // the library's name of it
    unsigned char der[kCertificateDerCapacity];
    std::int32_t derLength;
    unsigned char objectId[kObjectIdCapacity];                 // CKA_ID
    std::int32_t objectIdLength;
    char label[kCertificateLabelCapacity];                     // NUL-terminated
};

static_assert(sizeof(bool) == 1, "the records carry one-byte booleans");
static_assert(sizeof(OstrelKeyPair) == 1324, "OstrelKeyPair is 1324 bytes");
static_assert(offsetof(OstrelKeyPair, keyReference) == 4, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, publicValue) == 20, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, publicValueLength) == 1044, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, objectId) == 1048, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, objectIdLength) == 1176, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, alias) == 1180, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, usageFlags) == 1312, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, keyType) == 1316, "OstrelKeyPair layout");
static_assert(offsetof(OstrelKeyPair, deletionFlag) == 1320, "OstrelKeyPair layout");
static_assert(sizeof(OstrelCertificate) == 3380, "OstrelCertificate is 3380 bytes");
static_assert(offsetof(OstrelCertificate, certificateReference) == 4, "OstrelCertificate layout");
static_assert(offsetof(OstrelCertificate, der) == 20, "OstrelCertificate layout");
static_assert(offsetof(OstrelCertificate, derLength) == 3092, "OstrelCertificate layout");
static_assert(offsetof(OstrelCertificate, objectId) == 3096, "OstrelCertificate layout");
static_assert(offsetof(OstrelCertificate, objectIdLength) == 3224, "OstrelCertificate layout");
static_assert(offsetof(OstrelCertificate, label) == 3228, "OstrelCertificate layout");

// The library's description of one token. The module reads serialNumber, label, model,
// firmwareVersion, userPinChanged and pinRetryCount; the other fields are the library's.
struct TokenInfo {
    std::string serialNumber;     // also the device identifier; empty: no usable token
    std::string deviceName;
    std::string label;
    std::string manufacturer;
    std::string model;            // third character '1' marks a token outside FIPS 140-3 mode
    std::string firmwareVersion;  // dotted text, such as "2.1.0"
    std::string hardwareVersion;
    std::int32_t userPinChanged = 0;  // 1: the user PIN need not be changed
    std::int32_t pinRetryCount = 0;   // live count of PIN tries left
    std::int32_t maximumPinRetries = 0;
    std::int32_t freeObjectSpace = 0;  // how many more key pairs plus certificates fit
};

// What the library reads out of a certificate. subjectCommonName and issuerCommonName are the
// second and third text fields, which the module joins with "_" into a default label.
struct CertificateDetails {
    std::string subjectName;        // distinguished name as text, "CN=...,O=..."
    std::string subjectCommonName;
    std::string issuerCommonName;
    std::string issuerName;         // distinguished name as text
    std::string serialNumberHex;
    std::int64_t notBefore = 0;     // seconds since 1970, UTC
    std::int64_t notAfter = 0;
    std::string keyAlgorithm;       // "RSA" or "EC"
    std::string signatureAlgorithm;
    std::string keyUsage;
    std::vector<unsigned char> publicKey;  // same bytes as OstrelKeyPair::publicValue
};

// Parameters of ostrel_importPfx: an RSA private key given by its components.
struct ImportPFXDetails {
    std::vector<unsigned char> modulus;          // big-endian
    std::vector<unsigned char> privateExponent;  // big-endian
    std::vector<unsigned char> prime1;           // big-endian; the other prime follows from it
    std::vector<unsigned char> objectId;         // CKA_ID of the new pair
    std::string label;
    std::int32_t keyKind = 0;                    // the module passes 2 (RSA)
    std::vector<unsigned char> keyReference;     // out: 16 bytes naming the stored pair
};

// Arguments of ostrel_encrypt.
enum EncryptionType : std::int32_t {
    kEncryptionRsa1024 = 7,
    kEncryptionRsa2048 = 8,
    kEncryptionRsa3072 = 9,
    kEncryptionRsa4096 = 10,
};

enum PaddingMode : std::int32_t {
    kPaddingPkcs1 = 1,
    kPaddingOaep = 4,
};

// Hash selectors of ostrel_initHash. Codes 2 to 6 are the digest family; code 1 is an older
// name of SHA-1 that key derivation still uses.
enum HashAlgorithmCode : std::int32_t {
    kHashSha1Legacy = 1,
    kHashSha1 = 2,
    kHashSha256 = 3,
    kHashSha384 = 4,
    kHashSha512 = 5,
    kHashSha224 = 6,
};
