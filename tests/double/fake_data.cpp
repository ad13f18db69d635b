// Deterministic stand-ins for the device's cryptographic outputs. They only need the right
// lengths and shapes and to differ when their inputs differ; they are not cryptography.
#include <array>

#include "double_state.h"

namespace devicedouble {
namespace detail {

namespace {

constexpr std::uint64_t kFnvOffset = 0xcbf29ce484222325ULL;
constexpr std::uint64_t kFnvPrime = 0x100000001b3ULL;

std::uint64_t fnv1a(std::uint64_t hash, const unsigned char* data, std::size_t length) {
    for (std::size_t i = 0; i < length; ++i) {
        hash ^= data[i];
        hash *= kFnvPrime;
    }
    return hash;
}

std::uint64_t splitMix(std::uint64_t& state) {
    std::uint64_t z = (state += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
}

// Size of the public value of each key-type code; other codes are read as RSA-2048.
int publicValueLength(std::int32_t keyType) {
    switch (keyType) {
        case kKeyTypeRsa1024:
            return 128;
        case kKeyTypeRsa3072:
            return 384;
        case kKeyTypeRsa4096:
            return 512;
        case kKeyTypeEcP256:
            return 65;
        case kKeyTypeEcP384:
            return 97;
        case kKeyTypeEcP521:
            return 133;
        default:
            return 256;
    }
}

Bytes concatenate(const Bytes& first, const Bytes& second) {
    Bytes joined = first;
    joined.insert(joined.end(), second.begin(), second.end());
    return joined;
}

}  // namespace

Bytes mixBytes(const std::string& tag, const Bytes& seed, std::size_t length) {
    std::uint64_t hash =
        fnv1a(kFnvOffset, reinterpret_cast<const unsigned char*>(tag.data()), tag.size());
    hash = fnv1a(hash ^ 0xff, seed.data(), seed.size());
    Bytes output(length);
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < length; ++i) {
        if (i % 8 == 0)
            word = splitMix(hash);
        output[i] = static_cast<unsigned char>(word >> (8 * (i % 8)));
    }
    return output;
}

bool isEcKeyType(std::int32_t keyType) {
    return keyType == kKeyTypeEcP256 || keyType == kKeyTypeEcP384 || keyType == kKeyTypeEcP521;
}

int signatureLength(std::int32_t keyType) {
    // ECDSA r || s is twice the coordinate size; RSA signatures are as long as the modulus.
    return isEcKeyType(keyType) ? 2 * secretLength(keyType) : publicValueLength(keyType);
}

int secretLength(std::int32_t keyType) {
    switch (keyType) {
        case kKeyTypeEcP256:
            return 32;
        case kKeyTypeEcP384:
            return 48;
        case kKeyTypeEcP521:
            return 66;
        default:
            return 0;
    }
}

}  // namespace detail

int digestLength(int algorithm) {
    static constexpr std::array<int, 7> kLengths = {0, 20, 20, 32, 48, 64, 28};
    if (algorithm < 1 || algorithm > 6)
        return 0;
    return kLengths[static_cast<std::size_t>(algorithm)];
}

Bytes fakeDigest(int algorithm, const Bytes& data) {
    // Tagged by length, not by code: codes 1 and 2 are both SHA-1 and agree, as on a device.
    int length = digestLength(algorithm);
    return detail::mixBytes("digest-" + std::to_string(length), data,
                            static_cast<std::size_t>(length));
}

Bytes fakePublicValue(std::int32_t keyType, const std::string& seed) {
    Bytes value =
        detail::mixBytes("public-" + std::to_string(keyType), Bytes(seed.begin(), seed.end()),
                         static_cast<std::size_t>(detail::publicValueLength(keyType)));
    if (detail::isEcKeyType(keyType)) {
        value[0] = 0x04;  // uncompressed point
    } else {
        value.front() |= 0x80;  // full-size modulus
        value.back() |= 0x01;   // odd, like any RSA modulus
    }
    return value;
}

Bytes fakeSignature(const OstrelKeyPair& keyPair, const Bytes& hash) {
    Bytes publicValue = detail::toBytes(keyPair.publicValue, keyPair.publicValueLength);
    return detail::mixBytes("signature", detail::concatenate(publicValue, hash),
                            static_cast<std::size_t>(detail::signatureLength(keyPair.keyType)));
}

Bytes fakeSharedSecret(const OstrelKeyPair& keyPair, const Bytes& peerPoint) {
    Bytes publicValue = detail::toBytes(keyPair.publicValue, keyPair.publicValueLength);
    return detail::mixBytes("ecdh", detail::concatenate(publicValue, peerPoint),
                            static_cast<std::size_t>(detail::secretLength(keyPair.keyType)));
}

}  // namespace devicedouble
