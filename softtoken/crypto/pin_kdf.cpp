#include "crypto/pin_kdf.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <algorithm>
#include <climits>
#include <cstring>

namespace softtoken {

namespace {

constexpr std::size_t kSaltSize = 16;
constexpr std::size_t kKeySize = 32;
const char kVerifierLabel[] = "ostrel-token pin verifier";
const char kWrappingLabel[] = "ostrel-token key wrapping";

bool hmacSha256(const SecretBytes& key, const char* label, unsigned char* out) {
    std::size_t length = 0;
    return EVP_Q_mac(nullptr, "HMAC", nullptr, "SHA256", nullptr, key.data(), key.size(),
                     reinterpret_cast<const unsigned char*>(label), std::strlen(label), out,
                     kKeySize, &length) != nullptr &&
           length == kKeySize;
}

}  // namespace

bool derivePin(const std::string& pin, const Bytes& salt, int iterations, PinDerivation& out) {
    if (iterations <= 0 || pin.size() > INT_MAX) {
        return false;
    }
    SecretBytes master(kKeySize);
    if (PKCS5_PBKDF2_HMAC(pin.data(), static_cast<int>(pin.size()), salt.data(),
                          static_cast<int>(salt.size()), iterations, EVP_sha256(),
                          static_cast<int>(kKeySize), master.data()) != 1) {
        return false;
    }
    // Two independent keys from one derivation: knowing the stored verifier tells nothing about
    // the wrapping key.
    out.verifier.assign(kKeySize, 0);
    out.wrappingKey = SecretBytes(kKeySize);
    return hmacSha256(master, kVerifierLabel, out.verifier.data()) &&
           hmacSha256(master, kWrappingLabel, out.wrappingKey.data());
}

bool makePinRecord(const std::string& pin, int iterations, PinRecord& record,
                   PinDerivation* derivation) {
    PinRecord made;
    made.salt = randomBytes(kSaltSize);
    made.iterations = iterations;
    PinDerivation derived;
    if (made.salt.empty() || !derivePin(pin, made.salt, iterations, derived)) {
        return false;
    }
    made.verifier = derived.verifier;
    record = std::move(made);
    if (derivation != nullptr) {
        *derivation = std::move(derived);
    }
    return true;
}

bool pinMatches(const PinRecord& record, const Bytes& verifier) {
    return record.present() && record.verifier.size() == verifier.size() &&
           CRYPTO_memcmp(record.verifier.data(), verifier.data(), record.verifier.size()) == 0;
}

bool randomBytes(unsigned char* out, std::size_t size) {
    // Bounded requests straight into the caller's memory: any length works without an
    // allocation of that size, and each request stays within what the DRBG serves at once.
    constexpr std::size_t kChunk = 64 * 1024;
    for (std::size_t done = 0; done < size; done += kChunk) {
        std::size_t chunk = std::min(kChunk, size - done);
        if (RAND_bytes(out + done, static_cast<int>(chunk)) != 1) {
            return false;
        }
    }
    return true;
}

Bytes randomBytes(std::size_t size) {
    Bytes bytes(size);
    if (!randomBytes(bytes.data(), size)) {
        bytes.clear();
    }
    return bytes;
}

}  // namespace softtoken
