// Calls of the frame, the slots, the sessions and the login, with fuzzed handles and pointers.
#include "module_calls.h"

namespace modulefuzz {

namespace {

CK_RV notify(CK_SESSION_HANDLE, CK_NOTIFICATION, CK_VOID_PTR) {
    return CKR_OK;
}

CK_RV createMutex(CK_VOID_PTR_PTR) {
    return CKR_GENERAL_ERROR;
}

template <typename T>
T* structureOrNull(CallInput& in, CallState& state) {
    return in.byte() % 8 == 7 ? nullptr : state.holdValue(T{});
}

}  // namespace

void callInitialize(CallInput& in, CallState& state) {
    const std::uint8_t choice = in.byte();
    CK_VOID_PTR arguments = nullptr;
    if ((choice & 0x01) != 0) {
        // Locking callbacks that would fail if called, and fuzzed flags: never read.
        CK_C_INITIALIZE_ARGS given{};
        given.CreateMutex = (choice & 0x02) != 0 ? &createMutex : nullptr;
        given.flags = in.byte();
        given.pReserved = (choice & 0x04) != 0 ? state.room(1) : nullptr;
        arguments = state.holdValue(given);
    }
    C_Initialize(arguments);
}

void callFinalize(CallInput& in, CallState& state) {
    C_Finalize(in.byte() % 8 == 7 ? state.room(1) : nullptr);
}

void callGetInfo(CallInput& in, CallState& state) {
    if (in.byte() % 2 == 0) {
        C_GetInfo(structureOrNull<CK_INFO>(in, state));
    } else {
        CK_FUNCTION_LIST_PTR list = nullptr;
        C_GetFunctionList(in.byte() % 8 == 7 ? nullptr : &list);
    }
}

void callGetSlotList(CallInput& in, CallState& state) {
    const CK_BBOOL present = in.byte() % 3;
    const ListArea<CK_ULONG> area = listArea(in, state, 16);
    const CK_ULONG stated = area.count != nullptr ? *area.count : 0;
    if (C_GetSlotList(present, area.pointer, area.count) == CKR_OK && area.pointer != nullptr &&
        *area.count <= stated) {
        for (CK_ULONG i = 0; i < *area.count; ++i) {
            CallState::remember(state.slots, area.pointer[i]);
        }
    }
}

void callGetSlotInfo(CallInput& in, CallState& state) {
    const CK_SLOT_ID slot = slotArgument(in, state);
    C_GetSlotInfo(slot, structureOrNull<CK_SLOT_INFO>(in, state));
}

void callGetTokenInfo(CallInput& in, CallState& state) {
    const CK_SLOT_ID slot = slotArgument(in, state);
    C_GetTokenInfo(slot, structureOrNull<CK_TOKEN_INFO>(in, state));
}

void callGetMechanismList(CallInput& in, CallState& state) {
    const CK_SLOT_ID slot = slotArgument(in, state);
    const ListArea<CK_ULONG> area = listArea(in, state, 64);
    C_GetMechanismList(slot, area.pointer, area.count);
}

void callGetMechanismInfo(CallInput& in, CallState& state) {
    const CK_SLOT_ID slot = slotArgument(in, state);
    const CK_MECHANISM_PTR mechanism = mechanismArgument(in, state);
    const CK_MECHANISM_TYPE type = mechanism != nullptr ? mechanism->mechanism : in.word();
    C_GetMechanismInfo(slot, type, structureOrNull<CK_MECHANISM_INFO>(in, state));
}

void callWaitForSlotEvent(CallInput& in, CallState& state) {
    // Never blocking: no other thread of the harness would raise the event.
    const std::uint8_t choice = in.byte();
    C_WaitForSlotEvent(CKF_DONT_BLOCK | (choice & 0xF0),
                       (choice & 0x01) != 0 ? nullptr : state.holdValue<CK_SLOT_ID>(0),
                       (choice & 0x02) != 0 ? state.room(1) : nullptr);
}

void callOpenSession(CallInput& in, CallState& state) {
    static const CK_FLAGS kFlags[] = {CKF_SERIAL_SESSION | CKF_RW_SESSION, CKF_SERIAL_SESSION,
                                      CKF_RW_SESSION, 0};
    const CK_SLOT_ID slot = slotArgument(in, state);
    const std::uint8_t choice = in.byte();
    const CK_FLAGS flags = (choice & 0x0C) == 0x0C ? in.word() : kFlags[choice % 4];
    CK_SESSION_HANDLE_PTR session =
        (choice & 0x80) != 0 ? nullptr : state.holdValue<CK_SESSION_HANDLE>(0);
    if (C_OpenSession(slot, flags, (choice & 0x10) != 0 ? state.room(1) : nullptr,
                      (choice & 0x20) != 0 ? &notify : nullptr, session) == CKR_OK &&
        session != nullptr) {
        CallState::remember(state.sessions, *session);
    }
}

void callCloseSession(CallInput& in, CallState& state) {
    C_CloseSession(sessionArgument(in, state));
}

void callCloseAllSessions(CallInput& in, CallState& state) {
    C_CloseAllSessions(slotArgument(in, state));
}

void callGetSessionInfo(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    C_GetSessionInfo(session, structureOrNull<CK_SESSION_INFO>(in, state));
}

void callLogin(CallInput& in, CallState& state) {
    static const CK_USER_TYPE kUsers[] = {CKU_USER,
                                          CKU_USER,
                                          CKU_SO,
                                          CKU_CONTEXT_SPECIFIC,
                                          3,
                                          ~CK_ULONG{0},
                                          (CK_ULONG{1} << 32) | CKU_USER};
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const CK_USER_TYPE user = kUsers[in.pick(sizeof kUsers / sizeof kUsers[0])];
    const InputBytes pin = pinArgument(in, state);
    C_Login(session, user, pin.pointer, pin.length);
}

void callLogout(CallInput& in, CallState& state) {
    C_Logout(sessionArgument(in, state));
}

void callPinAdministration(CallInput& in, CallState& state) {
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    const InputBytes oldPin = pinArgument(in, state);
    const InputBytes newPin = pinArgument(in, state);
    C_SetPIN(session, oldPin.pointer, oldPin.length, newPin.pointer, newPin.length);
}

void callUnsupported(CallInput& in, CallState& state) {
    // These answer CKR_FUNCTION_NOT_SUPPORTED without looking at their arguments.
    const CK_SESSION_HANDLE session = sessionArgument(in, state);
    switch (in.pick(6)) {
        case 0:
            C_InitToken(slotArgument(in, state), nullptr, 0, nullptr);
            break;
        case 1:
            C_InitPIN(session, nullptr, 0);
            break;
        case 2:
            C_EncryptUpdate(session, nullptr, 0, nullptr, nullptr);
            break;
        case 3:
            C_DecryptFinal(session, nullptr, nullptr);
            break;
        case 4:
            C_SeedRandom(session, nullptr, 0);
            break;
        default:
            C_GetFunctionStatus(session);
            C_CancelFunction(session);
            break;
    }
}

}  // namespace modulefuzz
