#include "device/device_failure.h"

#include "device/device_results.h"
#include "log/log.h"

CK_RV reportDeviceFailure(const std::string& text, int result, FullTokenAnswer fullToken) {
    logError(text + decimalText(result));
    if (fullToken == FullTokenAnswer::DeviceMemory && device_result::isStorageFull(result)) {
        return CKR_DEVICE_MEMORY;
    }
    return CKR_FUNCTION_FAILED;
}
