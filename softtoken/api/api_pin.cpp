// PIN checks and PIN change.
#include "api/instance.h"
#include "token/token_admin.h"

using namespace softtoken;

int ostrel_validatePassword(const char* deviceId, const char* pin, int userKind, int* retryCount,
                            DeviceInstance) {
    // Without a device there is no count to report: *retryCount is then left as the caller set
    // it, never a 0 that would read as a locked PIN.
    int ignored = 0;
    int* retries = retryCount != nullptr ? retryCount : &ignored;
    return guarded([&] {
        PinKind kind = userKind == 2 ? PinKind::SecurityOfficer : PinKind::User;
        OperationFrame frame;
        int result = frame.begin("validatePassword");
        const DeviceRecord* device = nullptr;
        int found = frame.snapshot != nullptr
                        ? TokenService::findToken(*frame.snapshot, text(deviceId), true, &device)
                        : kDeviceUnreachable;
        if (found == kOk) {
            // Also what an injected failure reports: the live count, unchanged.
            *retries = kind == PinKind::User ? device->retriesLeft : device->soRetriesLeft;
        }
        if (result != kOk) {
            return result;
        }
        if (userKind != 1 && userKind != 2) {
            return kBadArgument;
        }
        if (found != kOk) {
            return found;
        }
        PinText given(pin);
        return frame.service->pins().check(*device, given.get(), kind, retries, nullptr);
    });
}

bool ostrel_changeUserPassword(const char* deviceId, const char* oldPin, const char* newPin,
                               int* failureCount, bool, bool, DeviceInstance) {
    int ignored = 0;
    int* retries = failureCount != nullptr ? failureCount : &ignored;
    return guarded([&] {
               OperationFrame frame;
               int result = frame.begin("changeUserPassword");
               const DeviceRecord* device = nullptr;
               if (frame.snapshot != nullptr &&
                   TokenService::findToken(*frame.snapshot, text(deviceId), true, &device) == kOk) {
                   *retries = device->retriesLeft;
               }
               if (result != kOk) {
                   return result;
               }
               PinText oldText(oldPin);
               PinText newText(newPin);
               return changeUserPin(*frame.service, text(deviceId), oldText.get(), newText.get(),
                                    retries);
           }) == kOk;
}
