#include "crypto/operation_support.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "crypto/mechanism_policy.h"
#include "crypto/operation_rules.h"
#include "device/device_failure.h"
#include "log/log.h"
#include "objects/object_registry.h"

namespace {

// What ostrel_finalHash may write.
constexpr int kHashArea = 64;

}  // namespace

CK_RV requireDeviceLength(const ExportCall& call, std::size_t length, CK_RV rv,
                          const char* argument) {
    if (length <= kMaxDeviceLength) {
        return CKR_OK;
    }
    return call.reject(rv, std::string(argument) + " too long for the device, " + argument + "=" +
                               decimalText(length));
}

CK_RV rejectWithLine(CK_RV rv, const std::string& line) {
    logError(line);
    return rv;
}

bool isFips1403Session(const SessionAccess& session) {
    return isFips1403Token(session.token().model);
}

bool firmwareAllowsGatedMechanisms(const SessionAccess& session) {
    return firmwareAtLeast(session.token().firmwareVersion, kGatedMechanismFirmware);
}

int feedHash(HashContext context, const unsigned char* data, std::size_t length,
             DeviceInstance instance) {
    do {
        const std::size_t piece = std::min(length, kMaxDeviceLength);
        const int result = ostrel_updateHash(context, data, deviceLength(piece), instance);
        if (result != 0) {
            return result;
        }
        data += piece;
        length -= piece;
    } while (length > 0);
    return 0;
}

int finishHash(HashContext context, int lengthOnEntry, DeviceInstance instance,
               SecretBytes& digest) {
    unsigned char area[kHashArea] = {};
    int length = lengthOnEntry;
    const int result = ostrel_finalHash(context, area, &length, instance);
    const int reported = std::clamp(length, 0, kHashArea);
    digest.assign(area, area + reported);
    wipeBytes(area, sizeof area);
    return result;
}

OnePassHash hashInOnePass(const char* deviceId, int hashCode, const unsigned char* data,
                          std::size_t length, DeviceInstance instance) {
    OnePassHash hash;
    HashContext context = nullptr;
    hash.result = ostrel_initHash(deviceId, hashCode, &context, instance);
    if (hash.result != 0) {
        hash.failedStep = HashStep::Init;
        return hash;
    }
    hash.result = feedHash(context, data, length, instance);
    if (hash.result != 0) {
        hash.failedStep = HashStep::Update;
        return hash;
    }
    hash.result = finishHash(context, kHashArea, instance, hash.digest);
    hash.failedStep = HashStep::Final;
    return hash;
}

std::optional<OstrelKeyPair> findKeyPairOrLog(const ExportCall& call, const SessionAccess& session,
                                              std::optional<std::uint32_t> id,
                                              CK_OBJECT_HANDLE hKey,
                                              const std::string& notFoundText) {
    std::optional<OstrelKeyPair> keyPair;
    if (id) {
        keyPair = findKeyPairById(session.deviceId(), *id, call.instance());
    }
    if (!keyPair) {
        logError(notFoundText + decimalText(hKey));
    }
    return keyPair;
}

KeptResultAnswer handOutAndEnd(const ExportCall& call, OperationContext& operation,
                               SecretBytes& kept, CK_BYTE_PTR output, CK_ULONG_PTR outputLength) {
    const KeptResultAnswer answer = handOutKeptResult(call, kept, output, outputLength);
    if (answer.outcome == KeptResult::HandedOut) {
        endOperation(operation);
    }
    return answer;
}

const SignatureMechanism& activeSignatureMechanism(const OperationContext& operation) {
    const SignatureMechanism* mechanism = findSignatureMechanism(operation.mechanism);
    if (mechanism == nullptr) {
        throw std::logic_error("no signature mechanism recorded for the operation in progress");
    }
    return *mechanism;
}

CK_RV takeUpdateInput(const ExportCall& call, const SessionAccess& session, int hashCode,
                      const unsigned char* part, std::size_t length, const char* initFailureText,
                      const char* updateFailureText) {
    OperationContext& operation = session.operation();
    if (hashCode == kRawInput) {
        operation.bufferedData.insert(operation.bufferedData.end(), part, part + length);
        return CKR_OK;
    }
    if (operation.hashContext == nullptr) {
        const int result =
            ostrel_initHash(session.deviceId(), hashCode, &operation.hashContext, call.instance());
        if (result != 0) {
            endOperation(operation);
            return reportDeviceFailure(initFailureText, result);
        }
    }
    const int result = feedHash(operation.hashContext, part, length, call.instance());
    if (result != 0) {
        operation.hashContext = nullptr;
        endOperation(operation);
        return reportDeviceFailure(updateFailureText, result);
    }
    return CKR_OK;
}

CK_RV finishRunningHash(const ExportCall& call, OperationContext& operation,
                        const char* failureText, SecretBytes& digest) {
    const HashContext context = std::exchange(operation.hashContext, nullptr);
    const int result = finishHash(context, kHashArea, call.instance(), digest);
    if (result != 0) {
        endOperation(operation);
        wipeAndClear(operation.bufferedData);
        return reportDeviceFailure(failureText, result);
    }
    return CKR_OK;
}

ByteVector rsaSubjectPublicKeyInfo(const OstrelKeyPair& keyPair) {
    return publicKeyToDer(bytesToHex(keyPair.publicValue, publicValueLength(keyPair)),
                          kRsaPublicExponentHex);
}
