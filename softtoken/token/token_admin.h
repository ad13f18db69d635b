// Changes to tokens and their objects, shared by the device operations and the ostrel-token
// tool. Each checks what it needs (the token, the PIN) and stores its change in one transaction.
#pragma once

#include <cstdint>
#include <string>

#include "common/secret_bytes.h"
#include "crypto/key_types.h"
#include "crypto/openssl_types.h"
#include "device/device_records.h"

namespace softtoken {

class TokenService;

struct TokenSettings {
    std::string serial;
    std::string label;
    std::string model = "SW1-SOFT";
    std::string firmware = "2.1.0";
    int pinChanged = 1;
    int retries = 10;
    int capacity = 64;
    std::string userPin;
    std::string soPin;  // empty: none
};

// New user PINs and tool-set PINs: 4 to 63 bytes, the range the module reports.
bool pinLengthAcceptable(const std::string& pin);
// Serial numbers and blank device identifiers: 1 to 255 bytes without control characters (they
// are printed and passed around as device identifiers).
bool serialAcceptable(const std::string& serial);
// Texts of a token (label, model, firmware) and object labels are at most this long.
constexpr std::size_t kMaxTextLength = 255;

int createToken(TokenService& service, const TokenSettings& settings);

// Checks the old PIN (with the retry rules) and re-wraps the token key under the new one.
int changeUserPin(TokenService& service, const std::string& deviceId, const std::string& oldPin,
                  const std::string& newPin, int* retriesLeft);

struct KeyPairRequest {
    const KeyTypeInfo* type = nullptr;
    std::uint32_t usageFlags = kKeyUsageSign;
    std::string alias;
    Bytes objectId;
};

// mustBePlugged: the device operations address plugged devices only; the tool may prepare an
// unplugged token. On success *stored receives the pair's record as lists show it.
int generateKeyPair(TokenService& service, const std::string& deviceId, const std::string& pin,
                    const KeyPairRequest& request, bool mustBePlugged, OstrelKeyPair* stored);
// Stores an existing private key (its type follows from the key).
int importKeyPair(TokenService& service, const std::string& deviceId, const std::string& pin,
                  EVP_PKEY* key, const KeyPairRequest& request, bool mustBePlugged,
                  OstrelKeyPair* stored);

// Certificates are public objects: storing and deleting them needs no PIN. The DER must parse
// as X.509. Storing the same DER twice on a token answers the stored certificate, not a copy.
int importCertificate(TokenService& service, const std::string& deviceId, const Bytes& der,
                      const std::string& label, const Bytes& objectId, bool mustBePlugged,
                      OstrelCertificate* stored);

int deleteKeyPair(TokenService& service, const std::string& deviceId,
                  const unsigned char* keyReference, const std::string& pin);
int deleteCertificate(TokenService& service, const std::string& deviceId,
                      const unsigned char* certificateReference);
// Null label or objectId: that field stays.
int updateKeyPair(TokenService& service, const std::string& deviceId,
                  const unsigned char* keyReference, const std::string& pin,
                  const std::string* label, const Bytes* objectId);

// The PIN check and key lookup that every private-key operation starts with.
int unlockPrivateKey(TokenService& service, const std::string& deviceId,
                     const unsigned char* keyReference, const std::string& pin, SharedPkey& key,
                     const KeyTypeInfo** type);

}  // namespace softtoken
