// C_GetTokenInfo: the token as the last C_GetSlotList stored it, with the session counts of
// the moment; the device is not asked.
#include <cstddef>
#include <cstring>
#include <mutex>

#include "core/mutex.h"
#include "slots/info_fields.h"
#include "slots/slot_lookup.h"
#include "slots/slot_operations.h"

static_assert(offsetof(CK_TOKEN_INFO, manufacturerID) == 32 &&
                  offsetof(CK_TOKEN_INFO, model) == 64 &&
                  offsetof(CK_TOKEN_INFO, serialNumber) == 80 &&
                  offsetof(CK_TOKEN_INFO, flags) == 96,
              "the text fields of CK_TOKEN_INFO lie back to back before flags");

namespace {

constexpr std::size_t kLabelWidth = sizeof(CK_TOKEN_INFO::label);
// Labels that fit the field keep at most this many characters, so 31 and 32 characters lose
// their last one or two. Deliberate (compatibility register, entry 11).
constexpr std::size_t kShortLabelKept = 30;
constexpr CK_ULONG kMaxPinLength = 63;
constexpr CK_ULONG kMinPinLength = 4;

void writeTexts(CK_TOKEN_INFO& info, const TokenInfo& token) {
    TextFields texts(&info, offsetof(CK_TOKEN_INFO, flags));
    // A label longer than the field is copied whole (its first 32 bytes remain, see TextFields);
    // a shorter one is cut at 30. Both deliberate (compatibility register, entry 11).
    if (token.label.size() > kLabelWidth) {
        texts.writeTerminated(offsetof(CK_TOKEN_INFO, label), token.label);
    } else {
        texts.writePrefix(offsetof(CK_TOKEN_INFO, label), token.label, kShortLabelKept);
    }
    texts.writeField(offsetof(CK_TOKEN_INFO, manufacturerID), sizeof info.manufacturerID,
                     kSlotManufacturer);
    texts.writeTerminated(offsetof(CK_TOKEN_INFO, model), token.model);
    // The serial number has no NUL of its own; the rest of its field is zero.
    texts.writeField(offsetof(CK_TOKEN_INFO, serialNumber), sizeof info.serialNumber,
                     token.serialNumber);
}

CK_FLAGS tokenFlags(const TokenInfo& token) {
    CK_FLAGS flags =
        CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED;
    if (token.userPinChanged != 1) {
        flags |= CKF_USER_PIN_TO_BE_CHANGED;
    }
    switch (token.pinRetryCount) {
        case 0:
            flags |= CKF_USER_PIN_LOCKED;
            break;
        case 1:
            flags |= CKF_USER_PIN_FINAL_TRY;
            break;
        case 2:
            flags |= CKF_USER_PIN_COUNT_LOW;
            break;
        default:  // 3 and more, or a negative count: nothing to report
            break;
    }
    return flags;
}

// Deliberately counts the public sessions of every slot, not only this one's (compatibility
// register, entry 13), and leaves
// logged-in sessions out.
void writeSessionCounts(ModuleState& state, CK_TOKEN_INFO& info) {
    MutexLock tables(state.tableMutex);
    info.ulSessionCount =
        static_cast<CK_ULONG>(state.sessionTable.countInState(CKS_RO_PUBLIC_SESSION));
    info.ulRwSessionCount =
        static_cast<CK_ULONG>(state.sessionTable.countInState(CKS_RW_PUBLIC_SESSION));
}

}  // namespace

CK_RV getTokenInfo(ExportCall& call, CK_SLOT_ID slotID, CK_TOKEN_INFO* pInfo) {
    // The slot is looked up before pInfo is checked (compatibility register, entry 14).
    const auto slot = findSlot(call.state(), slotID);
    if (!slot) {
        return rejectInvalidSlot(call, slotID);
    }
    if (CK_RV rv = call.requireNonNull(pInfo, "pInfo"); rv != CKR_OK) {
        return rv;
    }
    const TokenInfo& token = slot->token;
    std::memset(pInfo, 0, sizeof *pInfo);
    writeTexts(*pInfo, token);
    pInfo->flags = tokenFlags(token);
    pInfo->ulMaxSessionCount = CK_EFFECTIVELY_INFINITE;
    pInfo->ulMaxRwSessionCount = CK_EFFECTIVELY_INFINITE;
    writeSessionCounts(call.state(), *pInfo);
    pInfo->ulMaxPinLen = kMaxPinLength;
    pInfo->ulMinPinLen = kMinPinLength;
    pInfo->ulTotalPublicMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulTotalPrivateMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    pInfo->hardwareVersion = kSlotHardwareVersion;
    pInfo->firmwareVersion = firmwareVersionPair(token.firmwareVersion);
    // The token has no clock: blanks, the only blank-padded text.
    std::memset(pInfo->utcTime, ' ', sizeof pInfo->utcTime);
    logInfo("C_GetTokenInfo -- exit");
    return CKR_OK;
}
