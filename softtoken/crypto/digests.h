// Hash algorithms by the codes the device interface uses.
#pragma once

#include <openssl/evp.h>

#include <cstddef>

namespace softtoken {

// HashAlgorithmCode to digest; null for an unknown code.
const EVP_MD* digestForCode(int code);
// The digest whose output has this length (20, 28, 32, 48, 64); null for any other length.
const EVP_MD* digestForLength(std::size_t length);

}  // namespace softtoken
