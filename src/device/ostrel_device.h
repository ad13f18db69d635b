// The device library OstrelDSCLibrary: the 29 operations that the module calls.
//
// They are free C++ functions: the module imports them by the compiler's decorated names of
// these exact signatures, so argument types must not change. "Instance" is the opaque
// DeviceInstance made by ostrel_createInstance; operations documented as taking a null instance
// must work with one.
//
// Contract that every implementation (the maker's library, the software token, the test double)
// keeps:
//  - Results: 0 is success, anything else is the library's own error code; the module logs the
//    code and maps it. Code 48 from ostrel_validatePassword means a device failure, never a PIN
//    failure. Code 40 means the token's storage is full. ostrel_changeUserPassword answers true
//    on success.
//  - Threads: any operation may be called from several threads at once, for different sessions
//    and from the module's device monitor (ostrel_getConnectedDeviceList).
//  - Ownership:
//    * Values returned by value (device lists, TokenInfo, DER vectors, file lists) belong to the
//      caller.
//    * The lists returned by reference from ostrel_getKeyPairList and ostrel_getCertificateList
//      belong to the library. The reference a thread gets stays valid, and its contents
//      unchanged, until the same thread calls the same operation again or the thread ends,
//      whatever other threads call meanwhile (threads may be handed the same immutable list).
//      The module copies what it keeps.
//    * The buffers that ostrel_decrypt and ostrel_ecdhDerive hand out through their output
//      pointer belong to the library, one per calling thread and operation, valid until that
//      thread's next call of the same operation. The caller copies and never frees them.
//    * A hash context made by ostrel_initHash belongs to the library. ostrel_finalHash ends it
//      whatever its result; a context never finalised is released with the instance. Passing a
//      null or ended context fails with an error code.
//  - Output sizes: ostrel_finalHash writes at most 64 bytes; ostrel_signHash and ostrel_encrypt
//    write at most 1024 bytes (ostrel_signHash is told the room in *signatureLength).
//  - PINs and passwords are NUL-terminated texts; an empty text means none was given.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "device/device_records.h"

using DeviceInstance = void*;
using HashContext = void*;
using Bytes = std::vector<unsigned char>;
using FileList = std::vector<std::pair<std::string, Bytes>>;

#if defined(_WIN32) && defined(OSTREL_BUILDING_DEVICE_LIBRARY)
#define OSTREL_DEVICE_API __declspec(dllexport)
#elif defined(_WIN32)
#define OSTREL_DEVICE_API __declspec(dllimport)
#else
#define OSTREL_DEVICE_API __attribute__((visibility("default")))
#endif

// Makes a library instance and stores it in *instance (null when the library cannot start).
OSTREL_DEVICE_API void ostrel_createInstance(DeviceInstance* instance);
// Releases an instance and everything it still holds (hash contexts, caches).
OSTREL_DEVICE_API void ostrel_releaseInstance(DeviceInstance instance);

// Identifiers of the connected devices, oldest plugged first. The flag is reserved (false).
OSTREL_DEVICE_API std::vector<std::string> ostrel_getConnectedDeviceList(bool flag,
                                                                         DeviceInstance instance);
// Description of one device; serialNumber is empty when it holds no usable token.
OSTREL_DEVICE_API TokenInfo ostrel_getTokenInfo(const char* deviceId, DeviceInstance instance);
// Prepares a device for certificate reads. The module passes true.
OSTREL_DEVICE_API int ostrel_initDevice(const char* deviceId, bool flag, DeviceInstance instance);

// Checks a PIN; userKind 1 is the user, 2 the security officer. *retryCount receives the tries
// left after the check (on success as well as on failure).
OSTREL_DEVICE_API int ostrel_validatePassword(const char* deviceId, const char* pin, int userKind,
                                              int* retryCount, DeviceInstance instance);
// Changes the user PIN; on failure *failureCount receives the tries left. The two flags are
// reserved (the module passes false, false).
OSTREL_DEVICE_API bool ostrel_changeUserPassword(const char* deviceId, const char* oldPin,
                                                 const char* newPin, int* failureCount,
                                                 bool flag1, bool flag2, DeviceInstance instance);

OSTREL_DEVICE_API const std::vector<OstrelKeyPair>& ostrel_getKeyPairList(
    const char* deviceId, DeviceInstance instance);
OSTREL_DEVICE_API const std::vector<OstrelCertificate>& ostrel_getCertificateList(
    const char* deviceId, DeviceInstance instance);

// Generates a pair as the record asks (keyType, usageFlags, alias, objectId) and fills in id,
// keyReference, publicValue and publicValueLength.
OSTREL_DEVICE_API int ostrel_generateKeyPair(const char* deviceId, const char* password,
                                             OstrelKeyPair* keyPair, DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_deleteKeyPair(const char* deviceId, const unsigned char* keyReference,
                                           const char* password, bool deletionFlag,
                                           DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_deleteCertificate(const char* deviceId,
                                               const unsigned char* certificateReference,
                                               const char* password, DeviceInstance instance);
// Sets the label (when not empty) and the CKA_ID (when id is not null and idLength > 0).
OSTREL_DEVICE_API int ostrel_updateKeyPairDetails(const char* deviceId,
                                                  const unsigned char* keyReference,
                                                  const char* password, const char* label,
                                                  const unsigned char* id, int idLength,
                                                  DeviceInstance instance);
// Stores der/derLength with label and objectId; fills id and certificateReference.
OSTREL_DEVICE_API int ostrel_importCertificate(const char* deviceId, const char* password,
                                               OstrelCertificate* certificate,
                                               DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_importPfx(const char* deviceId, const char* password,
                                       ImportPFXDetails* details, DeviceInstance instance);

// Reads every file of the folder whose name ends in one of the extensions (in the order of the
// extensions), PEM or DER, and returns (file name, DER) pairs. Unreadable files are left out.
OSTREL_DEVICE_API FileList ostrel_getFilesWithExtensionsAndConvertDER(
    const std::string& folder, const std::vector<std::string>& extensions,
    DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_getCertificateDetails(const unsigned char* der, int derLength,
                                                   CertificateDetails& details,
                                                   DeviceInstance instance);
// DER encodings of the subject name, the issuer name and the serial-number INTEGER; empty when
// the certificate cannot be parsed.
OSTREL_DEVICE_API Bytes ostrel_getCertificateSubject(const unsigned char* der, int derLength,
                                                     DeviceInstance instance);
OSTREL_DEVICE_API Bytes ostrel_getCertificateIssuer(const unsigned char* der, int derLength,
                                                    DeviceInstance instance);
OSTREL_DEVICE_API Bytes ostrel_getCertificateSerialDER(const unsigned char* der, int derLength,
                                                       DeviceInstance instance);

// Hashing by HashAlgorithmCode.
OSTREL_DEVICE_API int ostrel_initHash(const char* deviceId, int algorithm, HashContext* context,
                                      DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_updateHash(HashContext context, const unsigned char* data, int length,
                                        DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_finalHash(HashContext context, unsigned char* digest, int* length,
                                       DeviceInstance instance);

// Signs hash bytes with the pair's private key. RSA without isPss: PKCS #1 v1.5, a bare digest
// of 20, 28, 32, 48 or 64 bytes wrapped in its DigestInfo, anything else signed as given. RSA
// with isPss: PSS with the hash chosen by the input length. EC: ECDSA, r || s.
OSTREL_DEVICE_API int ostrel_signHash(const char* deviceId, const unsigned char* keyReference,
                                      const char* password, const unsigned char* hash,
                                      int hashLength, unsigned char* signature,
                                      int* signatureLength, bool flag, DeviceInstance instance,
                                      bool isPss);
// 0 when the signature is valid. publicKey: an RSA SubjectPublicKeyInfo, a bare RSA modulus
// (exponent 65537), or an EC point whose curve follows from keyType.
OSTREL_DEVICE_API int ostrel_verifySignatureHash(unsigned int keyType, const char* deviceId,
                                                 const unsigned char* data, int dataLength,
                                                 const unsigned char* publicKey,
                                                 int publicKeyLength,
                                                 const unsigned char* signature,
                                                 int signatureLength, DeviceInstance instance,
                                                 bool isPss);
// RSA public-key encryption; key is a SubjectPublicKeyInfo. *outputLength receives the length.
OSTREL_DEVICE_API int ostrel_encrypt(EncryptionType type, PaddingMode padding,
                                     const unsigned char* input, int inputLength,
                                     unsigned char* output, int* outputLength,
                                     const unsigned char* key, int keyLength,
                                     DeviceInstance instance);
OSTREL_DEVICE_API int ostrel_decrypt(const char* deviceId, const unsigned char* keyReference,
                                     const char* password, const unsigned char* input,
                                     int inputLength, unsigned char** output, int* outputLength,
                                     bool flag, DeviceInstance instance);
// ECDH between the pair's private key and an uncompressed peer point.
OSTREL_DEVICE_API int ostrel_ecdhDerive(const char* deviceId, const unsigned char* keyReference,
                                        const char* password, const unsigned char* publicData,
                                        int publicDataLength, unsigned char** secret,
                                        int* secretLength, DeviceInstance instance);
// The name's spelling is the library's own.
OSTREL_DEVICE_API int ostrel_generateRamdomNumber(const char* deviceId, int length,
                                                  unsigned char* output, bool flag,
                                                  DeviceInstance instance);
