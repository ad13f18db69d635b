// Keys and public values from outside: RSA components to import, ECDH peers, and the public
// keys, data and signatures of encryption and verification.
#include <algorithm>
#include <cstring>

#include "device/device_results.h"
#include "parser_targets.h"

namespace softtoken::fuzz {

namespace {

using namespace device_result;

// Components longer than an 8192-bit key only make the big-number arithmetic slow.
constexpr std::size_t kMaxComponent = 1024;

bool oneOf(int result, std::initializer_list<int> codes) {
    return std::find(codes.begin(), codes.end(), result) != codes.end();
}

int componentBytes(std::int32_t keyType) {
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

// A key the token accepted must sign, and the signature must verify against its modulus.
void checkImportedKey(const Bytes& modulus, const Bytes& reference, const FuzzToken& token) {
    const unsigned char digest[32] = {1, 2, 3};
    unsigned char signature[1024];
    int length = sizeof signature;
    require(ostrel_signHash(kSerial, reference.data(), kPin, digest, sizeof digest, signature,
                            &length, false, token.instance(), false) == kOk,
            "an imported key signs");
    auto start = std::find_if(modulus.begin(), modulus.end(), [](unsigned char b) { return b; });
    const Bytes bare(start, modulus.end());
    require(ostrel_verifySignatureHash(kKeyTypeRsa2048, kSerial, digest, sizeof digest, bare.data(),
                                       static_cast<int>(bare.size()), signature, length,
                                       token.instance(), false) == kOk,
            "an imported key's signature verifies with its modulus");
    require(ostrel_deleteKeyPair(kSerial, reference.data(), kPin, false, token.instance()) == kOk,
            "an imported key can be deleted");
}

}  // namespace

void fuzzKeyImport(FuzzInput& input, const FuzzToken& token) {
    ImportPFXDetails details;
    const std::uint8_t kind = input.byte();
    details.keyKind = kind < 0xF0 ? 2 : kind;
    details.modulus = input.part();
    details.privateExponent = input.part();
    details.prime1 = input.part();
    details.objectId = input.part();
    const Bytes label = input.rest();
    details.label.assign(label.begin(), label.end());
    if (details.modulus.size() > kMaxComponent || details.privateExponent.size() > kMaxComponent ||
        details.prime1.size() > kMaxComponent) {
        return;
    }
    const int result = ostrel_importPfx(kSerial, kPin, &details, token.instance());
    require(oneOf(result, {kOk, kBadArgument, kKeyCannotDoThis}), "key import answers 0, 1 or 20");
    if (result == kOk) {
        require(details.keyReference.size() == kObjectReferenceSize, "a key reference is given");
        checkImportedKey(details.modulus, details.keyReference, token);
    }
}

void fuzzEcdhPeer(FuzzInput& input, const FuzzToken& token) {
    const OstrelKeyPair& key = token.key(input.byte());
    const Bytes peer = input.rest();
    unsigned char* secret = nullptr;
    int secretLength = -1;
    const int result =
        ostrel_ecdhDerive(kSerial, key.keyReference, kPin, peer.data(),
                          static_cast<int>(peer.size()), &secret, &secretLength, token.instance());
    if (peer.empty()) {
        require(result == kBadArgument, "an empty peer is refused");
    } else if (componentBytes(key.keyType) == 0) {
        require(result == kKeyCannotDoThis, "an RSA key derives nothing");
    } else {
        require(oneOf(result, {kOk, kBadArgument}), "a peer is taken or refused as malformed");
    }
    if (result == kOk) {
        require(secret != nullptr && secretLength == componentBytes(key.keyType),
                "the secret is the curve's size");
    } else {
        require(secret == nullptr && secretLength == 0, "no secret is handed out on failure");
    }
}

void fuzzEncryption(FuzzInput& input, const FuzzToken& token) {
    // Types 6 and 11 are outside the table; paddings other than 1 and 4 are unknown.
    const auto type = static_cast<EncryptionType>(6 + input.byte() % 6);
    const std::uint8_t paddingChoice = input.byte();
    const auto padding = static_cast<PaddingMode>(paddingChoice < 0x80   ? kPaddingPkcs1
                                                  : paddingChoice < 0xF0 ? kPaddingOaep
                                                                         : paddingChoice);
    const Bytes key = input.part();
    const Bytes data = input.rest();
    // Exactly the room the contract promises, on the heap, so that one byte more is seen.
    std::vector<unsigned char> output(1024);
    int outputLength = -1;
    const int result =
        ostrel_encrypt(type, padding, data.data(), static_cast<int>(data.size()), output.data(),
                       &outputLength, key.data(), static_cast<int>(key.size()), token.instance());
    require(oneOf(result, {kOk, kBadArgument, kKeyCannotDoThis, kInputSize, kUnknownAlgorithm}),
            "encryption answers 0, 1, 20, 21 or 27");
    if (result == kOk) {
        require(outputLength == 128 * (type - kEncryptionRsa1024 + 1),
                "the ciphertext is the modulus size");
    }
}

void fuzzVerification(FuzzInput& input, const FuzzToken& token) {
    const unsigned int keyType = input.byte() % 9;
    const bool pss = (input.byte() & 1) != 0;
    const Bytes key = input.part();
    const Bytes signature = input.part();
    const Bytes data = input.rest();
    const int result =
        ostrel_verifySignatureHash(keyType, kSerial, data.data(), static_cast<int>(data.size()),
                                   key.data(), static_cast<int>(key.size()), signature.data(),
                                   static_cast<int>(signature.size()), token.instance(), pss);
    require(oneOf(result, {kOk, kBadArgument, kKeyCannotDoThis, kInputSize, kSignatureInvalid}),
            "verification answers 0, 1, 20, 21 or 22");
}

}  // namespace softtoken::fuzz
