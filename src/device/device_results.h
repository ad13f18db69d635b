// The device library's result codes: one table with one meaning per code, shared by the module
// (which maps them to Cryptoki codes), the software token and the test double (which answer
// them). Every operation that returns int answers 0 for success or one of these.
//
// Three codes carry a meaning the module acts on:
//  - 40 and 242: the token has no room for another object (the maker's library answers 242
//    when the object does not fit the token's memory, 40 when the object count is reached).
//    Generation and import report them as CKR_DEVICE_MEMORY.
//  - 48: the device cannot be reached: it is not connected, not known, or its store cannot be
//    read. Never a PIN failure: a login that gets 48 answers CKR_FUNCTION_FAILED and reports
//    no retry count, because there is none to report.
// Every other code is only logged (in decimal) and answered as each call says, mostly
// CKR_FUNCTION_FAILED. Implementations use the codes below for the failures they name, so that
// a log line means the same whichever library wrote it.
#pragma once

#include <cstddef>

namespace device_result {

constexpr int kOk = 0;
constexpr int kBadArgument = 1;       // null pointer, bad length, malformed value
constexpr int kBlankDevice = 3;       // the device holds no usable token
constexpr int kObjectNotFound = 4;    // no key pair or certificate with that reference
constexpr int kAlreadyExists = 5;     // a device with that identifier exists (administration)
constexpr int kPinIncorrect = 10;     // wrong PIN; the live retry count went down
constexpr int kPinLocked = 11;        // no tries left: every check fails
constexpr int kPinRequired = 12;      // the user PIN is needed and an empty one was given
constexpr int kPinLength = 13;        // a new PIN outside 4 to 63 bytes
constexpr int kNoSoPin = 14;          // the token has no security officer PIN
constexpr int kKeyCannotDoThis = 20;  // wrong key kind or size for the operation
constexpr int kInputSize = 21;        // input too long, or a digest length the scheme cannot use
constexpr int kSignatureInvalid = 22;
constexpr int kDecryptFailed = 23;    // the ciphertext decrypts under no padding tried
constexpr int kBufferTooSmall = 24;   // the output does not fit the room given
constexpr int kUnparsable = 25;       // a certificate or key could not be parsed
constexpr int kBadHashContext = 26;   // null, unknown or already finished hash context
constexpr int kUnknownAlgorithm = 27; // unknown hash, key type, padding or encryption code
constexpr int kBadInstance = 30;      // an instance the library did not make
constexpr int kStorageFull = 40;
constexpr int kDeviceUnreachable = 48;
constexpr int kStoreWriteFailed = 50; // the token store could not be written
constexpr int kCryptoFailed = 51;     // the cryptographic library failed unexpectedly
constexpr int kInternal = 52;         // out of memory and the like
constexpr int kNoRoomForObject = 242;

struct Entry {
    int code;
    const char* meaning;
};

// One line per code, for tools and documentation; the order is ascending.
constexpr Entry kTable[] = {
    {kOk, "success"},
    {kBadArgument, "invalid argument"},
    {kBlankDevice, "the device holds no usable token"},
    {kObjectNotFound, "no such key pair or certificate"},
    {kAlreadyExists, "a device with that identifier already exists"},
    {kPinIncorrect, "wrong PIN"},
    {kPinLocked, "PIN locked: no tries left"},
    {kPinRequired, "the user PIN is needed"},
    {kPinLength, "a PIN must be 4 to 63 bytes long"},
    {kNoSoPin, "the token has no security officer PIN"},
    {kKeyCannotDoThis, "the key cannot do this"},
    {kInputSize, "the input does not fit"},
    {kSignatureInvalid, "the signature does not verify"},
    {kDecryptFailed, "the ciphertext does not decrypt"},
    {kBufferTooSmall, "the output does not fit the room given"},
    {kUnparsable, "a certificate or key could not be parsed"},
    {kBadHashContext, "null, unknown or finished hash context"},
    {kUnknownAlgorithm, "unknown hash, key type, padding or encryption code"},
    {kBadInstance, "not an instance of this library"},
    {kStorageFull, "the token is full"},
    {kDeviceUnreachable, "the device cannot be reached"},
    {kStoreWriteFailed, "the token store cannot be written"},
    {kCryptoFailed, "the cryptographic library failed"},
    {kInternal, "internal failure"},
    {kNoRoomForObject, "the object does not fit the token's memory"},
};

// The meaning of a code, or null for a code outside the table.
constexpr const char* meaningOf(int code) {
    for (const Entry& entry : kTable) {
        if (entry.code == code) {
            return entry.meaning;
        }
    }
    return nullptr;
}

// A full token, whichever of the two codes the library uses for it.
constexpr bool isStorageFull(int code) { return code == kStorageFull || code == kNoRoomForObject; }

}  // namespace device_result
