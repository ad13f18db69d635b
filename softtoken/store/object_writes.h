// Changes to key pairs and certificates. Each runs inside TokenStore::write.
#pragma once

#include <cstdint>
#include <string>

#include "common/secret_bytes.h"

namespace softtoken {

class Database;

// The highest id the module can turn into a handle (its handle ranges are 0x1000 wide).
constexpr std::uint32_t kMaxObjectId = 0xFFF;

struct NewKeyPair {
    Bytes reference;  // 16 random bytes
    std::int32_t keyType = 0;
    std::uint32_t usageFlags = 0;
    std::string alias;
    Bytes objectId;
    Bytes publicValue;
    Bytes sealedPrivateKey;
};

struct NewCertificate {
    Bytes reference;
    Bytes der;
    Bytes objectId;
    std::string label;
};

// Both check that the device holds a token with room left (kStorageFull otherwise) and answer
// the new object's id, small and unique on the device across key pairs and certificates.
int insertKeyPair(Database& database, const std::string& deviceId, const NewKeyPair& pair,
                  std::uint32_t* id);
int insertCertificate(Database& database, const std::string& deviceId,
                      const NewCertificate& certificate, std::uint32_t* id);

// The certificate of the device with exactly this DER: kOk with its id and reference, or
// kObjectNotFound.
int findCertificateByDer(Database& database, const std::string& deviceId, const Bytes& der,
                         std::uint32_t* id, Bytes* reference);

int deleteKeyPair(Database& database, const std::string& deviceId, const unsigned char* reference);
int deleteCertificate(Database& database, const std::string& deviceId,
                      const unsigned char* reference);
// Null alias or objectId: that field stays as it is.
int updateKeyPair(Database& database, const std::string& deviceId, const unsigned char* reference,
                  const std::string* alias, const Bytes* objectId);

}  // namespace softtoken
