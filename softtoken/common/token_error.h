// The software token's result codes. Every operation answers 0 or one of these; README.md lists
// them for users. Two values are fixed by the module that calls us: 40 means the token is full,
// and 48 is never used for a PIN failure (the module reads 48 as a broken device).
#pragma once

namespace softtoken {

// Plain int constants: the operations answer int, and lambdas returning them deduce one type.
constexpr int kOk = 0;
constexpr int kErrArguments = 1;          // null pointer, negative length, malformed value
constexpr int kErrNoDevice = 2;           // no such device, or it is unplugged
constexpr int kErrNoToken = 3;            // the device is blank: it holds no usable token
constexpr int kErrObjectNotFound = 4;     // no key pair or certificate with that reference
constexpr int kErrExists = 5;             // a device with that identifier already exists
constexpr int kErrPinIncorrect = 10;      // wrong PIN; the retry count went down
constexpr int kErrPinLocked = 11;         // no tries left: every check fails
constexpr int kErrPinRequired = 12;       // the user PIN is needed and none was given
constexpr int kErrPinLength = 13;         // a new PIN outside 4 to 63 bytes
constexpr int kErrNoSoPin = 14;           // the token has no security officer PIN
constexpr int kErrKeyType = 20;           // the key cannot do this (decrypt with EC, ...)
constexpr int kErrInputSize = 21;         // input too long, or a length PSS cannot use
constexpr int kErrSignatureInvalid = 22;  // verification failed
constexpr int kErrDecryptFailed = 23;     // the ciphertext decrypts under neither padding
constexpr int kErrBufferTooSmall = 24;    // the signature does not fit the caller's room
constexpr int kErrCertificate = 25;       // a certificate or key file could not be parsed
constexpr int kErrHashContext = 26;       // null, unknown or finished hash context
constexpr int kErrAlgorithm = 27;         // unknown hash, key type, padding or encryption code
constexpr int kErrStorageFull = 40;       // the token holds as many objects as it may
constexpr int kErrStore = 50;             // the token store cannot be opened, read or written
constexpr int kErrCrypto = 51;            // OpenSSL failed unexpectedly
constexpr int kErrInternal = 52;          // an unexpected failure (out of memory and the like)

// A short English description, for the tool's messages.
const char* describeError(int code);

}  // namespace softtoken
