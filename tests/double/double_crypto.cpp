// Hashing, signing, verification, encryption, decryption, ECDH and random numbers, with fake
// but consistent outputs: what this double signs it verifies, what it encrypts it decrypts.
#include <algorithm>
#include <cstring>

#include "double_state.h"

using devicedouble::detail::HashState;
using devicedouble::detail::Instance;
using devicedouble::detail::Operation;
namespace dd = devicedouble;
namespace detail = devicedouble::detail;

namespace {

// Modulus size of each EncryptionType; 0 for values the device does not know.
std::size_t modulusLength(EncryptionType type) {
    switch (type) {
        case kEncryptionRsa1024:
            return 128;
        case kEncryptionRsa2048:
            return 256;
        case kEncryptionRsa3072:
            return 384;
        case kEncryptionRsa4096:
            return 512;
        default:
            return 0;
    }
}

// Largest message each padding takes: PKCS #1 v1.5 needs 11 bytes, OAEP with SHA-1 needs 42.
std::size_t paddingOverhead(PaddingMode padding) {
    return padding == kPaddingOaep ? 42 : 11;
}

bool contains(const Bytes& haystack, const Bytes& needle) {
    return std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end()) !=
           haystack.end();
}

// The output bytes: the scripted ones when a test queued some, else the double's own.
Bytes outputOr(Operation& op, const Bytes& made) {
    auto scripted = op.scriptedOutput();
    return scripted ? *scripted : made;
}

// The key pair named by the reference. A scripted success without one signs with an empty
// RSA-2048 stand-in, so that the call still produces an output of a plausible size.
const OstrelKeyPair* keyPairFor(Operation& op, const unsigned char* keyReference) {
    static const OstrelKeyPair kStandIn = [] {
        OstrelKeyPair pair{};
        pair.keyType = kKeyTypeRsa2048;
        return pair;
    }();
    const OstrelKeyPair* pair = detail::findKeyPair(*op.target(), keyReference);
    return pair == nullptr && op.forced() ? &kStandIn : pair;
}

// Hands a library-owned buffer out through an output pointer: one per thread and operation,
// valid until the same thread calls the same operation again.
void handOut(Bytes& buffer, const Bytes& value, unsigned char** output, int* outputLength) {
    buffer.reserve(1);  // never hand out a null pointer, even for an empty result
    buffer.assign(value.begin(), value.end());
    *output = buffer.data();
    *outputLength = static_cast<int>(buffer.size());
}

}  // namespace

int ostrel_initHash(const char* deviceId, int algorithm, HashContext* context,
                    DeviceInstance instance) {
    Operation op("initHash", instance);
    op.device(deviceId);
    op.number(algorithm);
    if (op.isNull(context, "context"))
        return dd::kResultBadArgument;
    *context = nullptr;
    auto script = op.scripted();
    if (script && *script != 0)
        return *script;
    Instance* owner = op.instance();
    if (owner == nullptr)
        return dd::kResultBadInstance;
    if (!script) {
        if (op.connectedDevice() == nullptr)
            return dd::kResultDeviceFailure;
        if (dd::digestLength(algorithm) == 0)
            return dd::kResultBadArgument;
    }
    std::uintptr_t handle = op.state().nextHandle;
    op.state().nextHandle += 0x10;
    owner->hashContexts[handle].algorithm = algorithm;
    *context = detail::handlePointer(handle);
    op.call().context = *context;
    return 0;
}

int ostrel_updateHash(HashContext context, const unsigned char* data, int length,
                      DeviceInstance instance) {
    Operation op("updateHash", instance);
    op.call().context = context;
    op.bytes(data, length, "data");
    op.number(length);
    if (auto script = op.scripted())
        return *script;
    Instance* owner = op.instance();
    if (owner == nullptr)
        return dd::kResultBadInstance;
    auto found = owner->hashContexts.find(reinterpret_cast<std::uintptr_t>(context));
    if (found == owner->hashContexts.end())
        return dd::kResultBadContext;
    if (length < 0 || (data == nullptr && length > 0))
        return dd::kResultBadArgument;
    Bytes& fed = found->second.data;
    if (length > 0)
        fed.insert(fed.end(), data, data + length);
    return 0;
}

int ostrel_finalHash(HashContext context, unsigned char* digest, int* length,
                     DeviceInstance instance) {
    Operation op("finalHash", instance);
    op.call().context = context;
    op.number(op.isNull(length, "length") ? 0 : *length);
    op.isNull(digest, "digest");
    // The context ends here whatever the result.
    Instance* owner = op.instance();
    HashState ended;
    bool wasLive = false;
    if (owner != nullptr) {
        auto found = owner->hashContexts.find(reinterpret_cast<std::uintptr_t>(context));
        if (found != owner->hashContexts.end()) {
            ended = std::move(found->second);
            owner->hashContexts.erase(found);
            wasLive = true;
        }
    }
    if (auto script = op.scripted(); script && *script != 0)
        return *script;
    if (owner == nullptr)
        return dd::kResultBadInstance;
    if (!wasLive)
        return dd::kResultBadContext;
    if (digest == nullptr || length == nullptr)
        return dd::kResultBadArgument;
    Bytes value = outputOr(op, dd::fakeDigest(ended.algorithm, ended.data));
    std::copy(value.begin(), value.end(), digest);
    *length = static_cast<int>(value.size());
    return 0;
}

int ostrel_signHash(const char* deviceId, const unsigned char* keyReference, const char* password,
                    const unsigned char* hash, int hashLength, unsigned char* signature,
                    int* signatureLength, bool flag, DeviceInstance instance, bool isPss) {
    Operation op("signHash", instance);
    op.device(deviceId);
    op.bytes(keyReference, kObjectReferenceSize, "keyReference");
    std::string passwordText = op.text(password, "password");
    Bytes hashBytes = op.bytes(hash, hashLength, "hash");
    op.number(hashLength);
    op.number(op.isNull(signatureLength, "signatureLength") ? 0 : *signatureLength);
    op.number(flag);
    op.number(isPss);
    op.isNull(signature, "signature");
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyReference == nullptr || hashBytes.empty() || signature == nullptr ||
        signatureLength == nullptr) {
        return dd::kResultBadArgument;
    }
    const OstrelKeyPair* pair = keyPairFor(op, keyReference);
    if (pair == nullptr)
        return dd::kResultNotFound;
    Bytes value = outputOr(op, dd::fakeSignature(*pair, hashBytes));
    if (value.size() > static_cast<std::size_t>(std::max(*signatureLength, 0))) {
        *signatureLength = static_cast<int>(value.size());
        return dd::kResultBufferTooSmall;
    }
    std::copy(value.begin(), value.end(), signature);
    *signatureLength = static_cast<int>(value.size());
    op.state().signatures.push_back(
        {hashBytes, value, detail::toBytes(pair->publicValue, pair->publicValueLength)});
    return 0;
}

// Valid when this double made the signature over these bytes with a pair whose public value
// appears in the given key (a bare modulus or point, or one wrapped in a SubjectPublicKeyInfo).
int ostrel_verifySignatureHash(unsigned int keyType, const char* deviceId,
                               const unsigned char* data, int dataLength,
                               const unsigned char* publicKey, int publicKeyLength,
                               const unsigned char* signature, int signatureLength,
                               DeviceInstance instance, bool isPss) {
    Operation op("verifySignatureHash", instance);
    op.number(keyType);
    op.device(deviceId);
    Bytes dataBytes = op.bytes(data, dataLength, "data");
    op.number(dataLength);
    Bytes keyBytes = op.bytes(publicKey, publicKeyLength, "publicKey");
    op.number(publicKeyLength);
    Bytes signatureBytes = op.bytes(signature, signatureLength, "signature");
    op.number(signatureLength);
    op.number(isPss);
    if (auto answer = op.admit(nullptr))
        return *answer;
    if (op.forced())
        return 0;
    for (const auto& memo : op.state().signatures) {
        if (memo.hash == dataBytes && memo.signature == signatureBytes &&
            contains(keyBytes, memo.publicValue)) {
            return 0;
        }
    }
    return dd::kResultBadSignature;
}

int ostrel_encrypt(EncryptionType type, PaddingMode padding, const unsigned char* input,
                   int inputLength, unsigned char* output, int* outputLength,
                   const unsigned char* key, int keyLength, DeviceInstance instance) {
    Operation op("encrypt", instance);
    op.number(type);
    op.number(padding);
    Bytes plaintext = op.bytes(input, inputLength, "input");
    op.number(inputLength);
    op.isNull(output, "output");
    op.number(op.isNull(outputLength, "outputLength") ? 0 : *outputLength);
    Bytes keyBytes = op.bytes(key, keyLength, "key");
    op.number(keyLength);
    auto script = op.scripted();
    if (script && *script != 0)
        return *script;
    if (!op.instanceIsLive())
        return dd::kResultBadInstance;
    if (output == nullptr || outputLength == nullptr || inputLength < 0 || keyBytes.empty()) {
        return dd::kResultBadArgument;
    }
    std::size_t size = modulusLength(type);
    bool knownPadding = padding == kPaddingPkcs1 || padding == kPaddingOaep;
    if (!script) {
        if (size == 0 || !knownPadding)
            return dd::kResultBadArgument;
        if (plaintext.size() + paddingOverhead(padding) > size)
            return dd::kResultInputSize;
    }
    Bytes seed = keyBytes;
    seed.insert(seed.end(), plaintext.begin(), plaintext.end());
    Bytes value = outputOr(op, detail::mixBytes("ciphertext", seed, size == 0 ? 256 : size));
    std::copy(value.begin(), value.end(), output);
    *outputLength = static_cast<int>(value.size());
    op.state().plaintextOf[value] = plaintext;
    return 0;
}

int ostrel_decrypt(const char* deviceId, const unsigned char* keyReference, const char* password,
                   const unsigned char* input, int inputLength, unsigned char** output,
                   int* outputLength, bool flag, DeviceInstance instance) {
    thread_local Bytes buffer;
    Operation op("decrypt", instance);
    op.device(deviceId);
    op.bytes(keyReference, kObjectReferenceSize, "keyReference");
    std::string passwordText = op.text(password, "password");
    Bytes ciphertext = op.bytes(input, inputLength, "input");
    op.number(inputLength);
    op.isNull(output, "output");
    op.isNull(outputLength, "outputLength");
    op.number(flag);
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyReference == nullptr || ciphertext.empty() || output == nullptr ||
        outputLength == nullptr) {
        return dd::kResultBadArgument;
    }
    if (keyPairFor(op, keyReference) == nullptr)
        return dd::kResultNotFound;
    auto scripted = op.scriptedOutput();
    auto known = op.state().plaintextOf.find(ciphertext);
    if (!scripted && known == op.state().plaintextOf.end() && !op.forced()) {
        return dd::kResultDecryptFailed;
    }
    Bytes value = scripted                                ? *scripted
                  : known != op.state().plaintextOf.end() ? known->second
                                                          : Bytes{};
    handOut(buffer, value, output, outputLength);
    return 0;
}

int ostrel_ecdhDerive(const char* deviceId, const unsigned char* keyReference, const char* password,
                      const unsigned char* publicData, int publicDataLength, unsigned char** secret,
                      int* secretLength, DeviceInstance instance) {
    thread_local Bytes buffer;
    Operation op("ecdhDerive", instance);
    op.device(deviceId);
    op.bytes(keyReference, kObjectReferenceSize, "keyReference");
    std::string passwordText = op.text(password, "password");
    Bytes peer = op.bytes(publicData, publicDataLength, "publicData");
    op.number(publicDataLength);
    op.isNull(secret, "secret");
    op.isNull(secretLength, "secretLength");
    if (auto answer = op.admit(&passwordText))
        return *answer;
    if (keyReference == nullptr || secret == nullptr || secretLength == nullptr) {
        return dd::kResultBadArgument;
    }
    const OstrelKeyPair* pair = keyPairFor(op, keyReference);
    if (pair == nullptr)
        return dd::kResultNotFound;
    if (!op.forced()) {
        // Only an uncompressed point (04 || X || Y) on the pair's own curve is accepted.
        int coordinate = detail::secretLength(pair->keyType);
        if (coordinate == 0)
            return dd::kResultBadArgument;
        if (peer.size() != 1 + 2 * static_cast<std::size_t>(coordinate) || peer[0] != 0x04) {
            return dd::kResultBadData;
        }
    }
    handOut(buffer, outputOr(op, dd::fakeSharedSecret(*pair, peer)), secret, secretLength);
    return 0;
}

int ostrel_generateRamdomNumber(const char* deviceId, int length, unsigned char* output, bool flag,
                                DeviceInstance instance) {
    Operation op("generateRamdomNumber", instance);
    op.device(deviceId);
    op.number(length);
    op.number(flag);
    op.isNull(output, "output");
    // The module passes a null instance here; the call works without one.
    if (auto answer = op.admit(nullptr, false))
        return *answer;
    if (length < 0 || (output == nullptr && length > 0))
        return dd::kResultBadArgument;
    auto size = static_cast<std::size_t>(length);
    Bytes value = op.scriptedOutput().value_or(Bytes{});
    value.resize(std::min(value.size(), size));
    Bytes filler = op.counterBytes("random", size - value.size());
    value.insert(value.end(), filler.begin(), filler.end());
    if (size > 0)
        std::memcpy(output, value.data(), size);
    return 0;
}
