// Signing, verification, encryption, decryption, ECDH and random numbers.
#include <algorithm>

#include "api/instance.h"
#include "crypto/ec_keys.h"
#include "crypto/ecdh.h"
#include "crypto/pin_kdf.h"
#include "crypto/public_key_cache.h"
#include "crypto/rsa_cipher.h"
#include "crypto/rsa_keys.h"
#include "crypto/signing.h"
#include "token/token_admin.h"

using namespace softtoken;

namespace {

constexpr std::size_t kMaxOutput = 1024;

// The buffers handed out by decrypt and ECDH: one per thread and operation, valid until that
// thread's next call of the same operation. They hold secrets and wipe the previous one.
SecretBytes& decryptBuffer() {
    thread_local SecretBytes buffer;
    return buffer;
}

SecretBytes& ecdhBuffer() {
    thread_local SecretBytes buffer;
    return buffer;
}

// The private-key operations that hand out a secret through an output pointer.
template <typename Operation>
int secretOutput(const char* operation, SecretBytes& buffer, const char* deviceId,
                 const unsigned char* keyReference, const char* password,
                 const unsigned char* input, int inputLength, unsigned char** output,
                 int* outputLength, Operation compute) {
    return guarded([&] {
        if (output != nullptr) {
            *output = nullptr;
        }
        if (outputLength != nullptr) {
            *outputLength = 0;
        }
        OperationFrame frame;
        if (int result = frame.begin(operation); result != kOk) {
            return result;
        }
        if (input == nullptr || inputLength <= 0 || output == nullptr || outputLength == nullptr) {
            return kBadArgument;
        }
        PinText pin(password);
        SharedPkey key;
        const KeyTypeInfo* type = nullptr;
        if (int result = unlockPrivateKey(*frame.service, text(deviceId), keyReference, pin.get(),
                                          key, &type);
            result != kOk) {
            return result;
        }
        SecretBytes secret;
        if (int result =
                compute(key.get(), *type, input, static_cast<std::size_t>(inputLength), secret);
            result != kOk) {
            return result;
        }
        buffer = std::move(secret);
        *output = buffer.data();
        *outputLength = static_cast<int>(buffer.size());
        return kOk;
    });
}

// The public key of a verification: an EC point for key types 5 to 7, otherwise RSA.
SharedPkey verificationKey(const KeyTypeInfo* type, const unsigned char* data, std::size_t size,
                           KeyTypeInfo& rsaType) {
    if (type != nullptr && !type->rsa) {
        return cachedEcPublicKey(*type, data, size);
    }
    SharedPkey key = cachedRsaPublicKey(data, size);
    if (key != nullptr) {
        // Any modulus size verifies; only the size matters to the signing rules.
        rsaType = KeyTypeInfo{0,
                              "rsa",
                              true,
                              EVP_PKEY_get_bits(key.get()),
                              nullptr,
                              0,
                              static_cast<std::size_t>(EVP_PKEY_get_size(key.get()))};
    }
    return key;
}

}  // namespace

int ostrel_signHash(const char* deviceId, const unsigned char* keyReference, const char* password,
                    const unsigned char* hash, int hashLength, unsigned char* signature,
                    int* signatureLength, bool, DeviceInstance, bool isPss) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("signHash"); result != kOk) {
            return result;
        }
        if (hash == nullptr || hashLength <= 0 || signature == nullptr ||
            signatureLength == nullptr || *signatureLength < 0) {
            return kBadArgument;
        }
        PinText pin(password);
        SharedPkey key;
        const KeyTypeInfo* type = nullptr;
        if (int result = unlockPrivateKey(*frame.service, text(deviceId), keyReference, pin.get(),
                                          key, &type);
            result != kOk) {
            return result;
        }
        Bytes out;
        if (int result =
                signHash(key.get(), *type, hash, static_cast<std::size_t>(hashLength), isPss, out);
            result != kOk) {
            return result;
        }
        if (out.size() > static_cast<std::size_t>(*signatureLength) || out.size() > kMaxOutput) {
            *signatureLength = static_cast<int>(out.size());
            return kBufferTooSmall;
        }
        std::copy(out.begin(), out.end(), signature);
        *signatureLength = static_cast<int>(out.size());
        return kOk;
    });
}

int ostrel_verifySignatureHash(unsigned int keyType, const char*, const unsigned char* data,
                               int dataLength, const unsigned char* publicKey, int publicKeyLength,
                               const unsigned char* signature, int signatureLength, DeviceInstance,
                               bool isPss) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.faultOnly("verifySignatureHash"); result != kOk) {
            return result;
        }
        if (data == nullptr || dataLength <= 0 || publicKey == nullptr || publicKeyLength <= 0 ||
            signature == nullptr || signatureLength <= 0) {
            return kBadArgument;
        }
        const KeyTypeInfo* type = keyTypeByCode(static_cast<std::int32_t>(keyType));
        KeyTypeInfo rsaType{};
        SharedPkey key =
            verificationKey(type, publicKey, static_cast<std::size_t>(publicKeyLength), rsaType);
        if (key == nullptr) {
            return kBadArgument;
        }
        return verifyHash(key.get(), type != nullptr && !type->rsa ? *type : rsaType, data,
                          static_cast<std::size_t>(dataLength), signature,
                          static_cast<std::size_t>(signatureLength), isPss);
    });
}

int ostrel_encrypt(EncryptionType type, PaddingMode padding, const unsigned char* input,
                   int inputLength, unsigned char* output, int* outputLength,
                   const unsigned char* key, int keyLength, DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.faultOnly("encrypt"); result != kOk) {
            return result;
        }
        if (input == nullptr || inputLength <= 0 || output == nullptr || outputLength == nullptr ||
            key == nullptr || keyLength <= 0) {
            return kBadArgument;
        }
        const KeyTypeInfo* keyType = keyTypeForEncryption(type);
        if (keyType == nullptr) {
            return kUnknownAlgorithm;
        }
        SharedPkey publicKey = cachedRsaPublicKey(key, static_cast<std::size_t>(keyLength));
        if (publicKey == nullptr) {
            return kBadArgument;
        }
        if (EVP_PKEY_get_bits(publicKey.get()) != keyType->bits) {
            return kKeyCannotDoThis;
        }
        Bytes out;
        if (int result = rsaEncrypt(publicKey.get(), padding, input,
                                    static_cast<std::size_t>(inputLength), out);
            result != kOk) {
            return result;
        }
        std::copy(out.begin(), out.end(), output);
        *outputLength = static_cast<int>(out.size());
        return kOk;
    });
}

int ostrel_decrypt(const char* deviceId, const unsigned char* keyReference, const char* password,
                   const unsigned char* input, int inputLength, unsigned char** output,
                   int* outputLength, bool, DeviceInstance) {
    return secretOutput("decrypt", decryptBuffer(), deviceId, keyReference, password, input,
                        inputLength, output, outputLength,
                        [](EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* data,
                           std::size_t size, SecretBytes& plain) {
                            return type.rsa ? rsaDecrypt(key, data, size, plain) : kKeyCannotDoThis;
                        });
}

int ostrel_ecdhDerive(const char* deviceId, const unsigned char* keyReference, const char* password,
                      const unsigned char* publicData, int publicDataLength, unsigned char** secret,
                      int* secretLength, DeviceInstance) {
    return secretOutput(
        "ecdhDerive", ecdhBuffer(), deviceId, keyReference, password, publicData, publicDataLength,
        secret, secretLength,
        [](EVP_PKEY* key, const KeyTypeInfo& type, const unsigned char* data, std::size_t size,
           SecretBytes& shared) { return ecdhDerive(key, type, data, size, shared); });
}

int ostrel_generateRamdomNumber(const char* deviceId, int length, unsigned char* output, bool,
                                DeviceInstance) {
    return guarded([&] {
        OperationFrame frame;
        if (int result = frame.begin("generateRamdomNumber"); result != kOk) {
            return result;
        }
        if (length <= 0 || output == nullptr) {
            return kBadArgument;
        }
        const DeviceRecord* device = nullptr;
        if (int result = TokenService::findToken(*frame.snapshot, text(deviceId), true, &device);
            result != kOk) {
            return result;
        }
        return randomBytes(output, static_cast<std::size_t>(length)) ? kOk : kCryptoFailed;
    });
}
