// Random numbers from the token, written straight into the caller's buffer: the module keeps
// no copy and allocates nothing of the requested size. No login is needed and the session's
// operation is not touched.
#include <algorithm>

#include "crypto/crypto_operations.h"
#include "crypto/operation_support.h"
#include "device/device_failure.h"

CK_RV generateRandom(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pRandomData,
                     CK_ULONG ulRandomLen) {
    return withSession(call, hSession, [&](const SessionAccess& session) {
        if (CK_RV rv = call.requireNonNull(pRandomData, "RandomData"); rv != CKR_OK) {
            return rv;
        }
        if (ulRandomLen == 0) {
            return call.reject(CKR_ARGUMENTS_BAD,
                               "ulRandomLen<=0, ulRandomLen=" + decimalText(ulRandomLen));
        }
        // A length beyond the device's int is asked for in pieces, each filling its own part of
        // the caller's buffer (compatibility register, entry 38).
        CK_BYTE_PTR output = pRandomData;
        std::size_t remaining = ulRandomLen;
        while (remaining > 0) {
            const std::size_t piece = std::min(remaining, kMaxDeviceLength);
            // The instance argument is null for this call alone: compatibility register,
            // entry 34.
            const int result = ostrel_generateRamdomNumber(session.deviceId(), deviceLength(piece),
                                                           output, true, nullptr);
            if (result != 0) {
                return reportDeviceFailure("C_GenerateRandom: generate random number failed ret=",
                                           result);
            }
            output += piece;
            remaining -= piece;
        }
        return CKR_OK;
    });
}
