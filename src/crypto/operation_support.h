// What the cryptographic operations share beyond the operation rules: the stored PIN for a
// device call, hashing through the device in pieces its int lengths can carry, the key-pair
// lookup with its refusal line, and the kept-result output that ends an operation.
#pragma once

#include <climits>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "core/export_call.h"
#include "core/secret_bytes.h"
#include "crypto/hex_der.h"
#include "crypto/kept_result.h"
#include "crypto/mechanism_table.h"
#include "device/ostrel_device.h"
#include "sessions/operation_context.h"
#include "sessions/secret_string.h"
#include "sessions/session_access.h"
#include "sessions/user_password.h"

// The device library's lengths are int: no argument may carry more than this.
constexpr std::size_t kMaxDeviceLength = INT_MAX;

// A length already known to fit an int argument.
inline int deviceLength(std::size_t length) {
    return static_cast<int>(length);
}

// CKR_OK when the length fits one device argument, else `rv` with "<name>: <argument> too long
// for the device, <argument>=<length>": nothing is cut short behind the caller's back
// (compatibility register, entry 38).
CK_RV requireDeviceLength(const ExportCall& call, std::size_t length, CK_RV rv,
                          const char* argument);

// Logs a refusal whose line does not start with the function's name, and answers rv. Such
// lines are kept as they are: compatibility register, entry 40.
CK_RV rejectWithLine(CK_RV rv, const std::string& line);

// True when the session's token is in FIPS 140-3 mode, and when its firmware is recent enough
// for the gated mechanisms (RSA-PSS, RSA-OAEP, ECDH); versions compare as atoi reads their
// fields (compatibility register, entry 32).
bool isFips1403Session(const SessionAccess& session);
bool firmwareAllowsGatedMechanisms(const SessionAccess& session);

// Feeds bytes to a running hash, in pieces of at most kMaxDeviceLength (compatibility register,
// entry 38). The result of the first piece that fails, or 0.
int feedHash(HashContext context, const unsigned char* data, std::size_t length,
             DeviceInstance instance);

// ostrel_finalHash into a 64-byte area, with *length = lengthOnEntry on entry. `digest` gets
// as many bytes of the area as the device reports (bounded to the area), whatever the result,
// so that a caller which does not check it (key derivation) takes what the call left.
int finishHash(HashContext context, int lengthOnEntry, DeviceInstance instance,
               SecretBytes& digest);

// Hashing in one pass with a context of its own: init, update over all of the data, final
// (64 on entry). Which step failed, with the device's result, or the digest.
enum class HashStep { Init, Update, Final };
struct OnePassHash {
    int result = 0;
    HashStep failedStep = HashStep::Init;
    SecretBytes digest;
};
OnePassHash hashInOnePass(const char* deviceId, int hashCode, const unsigned char* data,
                          std::size_t length, DeviceInstance instance);

// The key pair with this id on the session's device. Without one (also for an id that a handle
// above 32 bits could not give, which is not looked up), logs "<notFoundText><hKey>" at error
// level and answers nothing: the caller answers CKR_KEY_HANDLE_INVALID, the standard 0x60
// (compatibility register, entry 39).
std::optional<OstrelKeyPair> findKeyPairOrLog(const ExportCall& call, const SessionAccess& session,
                                              std::optional<std::uint32_t> id,
                                              CK_OBJECT_HANDLE hKey,
                                              const std::string& notFoundText);

// The signature mechanism of the operation in progress. Only C_SignInit and C_VerifyInit store
// one, both from the table, so a miss is a fault of the module: it throws std::logic_error,
// which the export frame answers with CKR_GENERAL_ERROR.
const SignatureMechanism& activeSignatureMechanism(const OperationContext& operation);

// An Update call's input: collected in bufferedData when hashCode is kRawInput, else fed to the
// session's running hash, which is started with hashCode when there is none. A device failure
// ends the operation (a failed update also drops the context) and is logged as
// "<initFailureText><result>" or "<updateFailureText><result>".
CK_RV takeUpdateInput(const ExportCall& call, const SessionAccess& session, int hashCode,
                      const unsigned char* part, std::size_t length, const char* initFailureText,
                      const char* updateFailureText);

// A Final call's running hash: finished (64 on entry) into `digest` and dropped from the
// session whatever the result. A failure ends the operation, empties bufferedData and is
// logged as "<failureText><result>".
CK_RV finishRunningHash(const ExportCall& call, OperationContext& operation,
                        const char* failureText, SecretBytes& digest);

// The SubjectPublicKeyInfo of an RSA pair whose stored public value is its bare modulus, with
// the module's fixed exponent 65537.
ByteVector rsaSubjectPublicKeyInfo(const OstrelKeyPair& keyPair);

// The output of C_Digest, C_DigestFinal, C_Sign, C_SignFinal, C_Encrypt and C_Decrypt: the
// kept result is handed out (compatibility register, entry 26) and, once it has been copied,
// the operation ends.
KeptResultAnswer handOutAndEnd(const ExportCall& call, OperationContext& operation,
                               SecretBytes& kept, CK_BYTE_PTR output, CK_ULONG_PTR outputLength);
