// Authenticated encryption of secrets at rest: AES-256-GCM with a fresh random nonce. The
// sealed form is a version byte, the 12-byte nonce, the ciphertext and the 16-byte tag. The
// context text is bound in as associated data, so a sealed value cannot be moved to another
// token or key pair.
#pragma once

#include <string>

#include "common/secret_bytes.h"

namespace softtoken {

bool seal(const SecretBytes& key, const unsigned char* plain, std::size_t size,
          const std::string& context, Bytes& sealed);
bool unseal(const SecretBytes& key, const Bytes& sealed, const std::string& context,
            SecretBytes& plain);

}  // namespace softtoken
