// RFC 7512 "pkcs11:" URLs of a token and of its objects, as the module shows them, for users to
// paste into OpenSSL, GnuTLS and p11-kit tools.
#pragma once

#include <cstddef>
#include <string>

namespace softtoken {

// The token's URL: its serial number as the module reports it (a 16-byte field padded with
// NUL bytes, which the URL carries as %00).
std::string tokenUrl(const std::string& serial);

// An object's URL: the token's, then its CKA_ID (when it has one), its label (when it has
// one) and its type ("private", "public" or "cert").
std::string objectUrl(const std::string& serial, const unsigned char* id, std::size_t idLength,
                      const std::string& label, const char* type);

}  // namespace softtoken
