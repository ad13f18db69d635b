// Rows of the matrix for starting and stopping, library information, slots, sessions and
// login. The unsupported entry points get their rows from their signatures (in the runner).
#include <cstddef>

#include "bad_input_matrix.h"

namespace matrix {

namespace {

constexpr CK_FLAGS kSerialRw = CKF_SERIAL_SESSION | CKF_RW_SESSION;

// Lengths a PIN may not have: too short, too long, huge, and (where CK_ULONG is wider) a valid
// length plus 2^32, which must not be cut to the valid one.
std::vector<CK_ULONG> badPinLengths() {
    std::vector<CK_ULONG> lengths = {0, 1, 3, 64, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF};
    if (kWide) {
        lengths.push_back(kAbove32Bits + kUserPinLength);
    }
    return lengths;
}

// Six bytes with a NUL inside: the device would take "12" for the PIN.
Arg pinWithNul() {
    return input({'1', '2', 0, '4', '5', '6'});
}

}  // namespace

std::vector<Row> generalRows() {
    // C_GetInfo writes each text with one NUL and leaves the rest of its field as the caller's
    // buffer held it (compatibility register, entry 1); padding between fields stays too.
    const std::vector<Memory::Range> infoFields = {
        {offsetof(CK_INFO, cryptokiVersion), offsetof(CK_INFO, cryptokiVersion) + 2},
        {offsetof(CK_INFO, manufacturerID), offsetof(CK_INFO, manufacturerID) + 12},
        {offsetof(CK_INFO, flags), offsetof(CK_INFO, flags) + sizeof(CK_FLAGS)},
        {offsetof(CK_INFO, libraryDescription), offsetof(CK_INFO, libraryDescription) + 22},
        {offsetof(CK_INFO, libraryVersion), offsetof(CK_INFO, libraryVersion) + 2}};
    return {
        // The arguments of C_Initialize and C_Finalize are never read.
        {"C_Initialize", kSession, {null()}, CKR_CRYPTOKI_ALREADY_INITIALIZED},
        {"C_Initialize", kSession, {noAccess()}, CKR_CRYPTOKI_ALREADY_INITIALIZED},
        {"C_Finalize", kSession, {null()}, CKR_OK},
        {"C_Finalize", kSession, {noAccess()}, CKR_OK},
        {"C_GetInfo", kSession, {null()}, CKR_ARGUMENTS_BAD},
        {"C_GetInfo", kSession, {outputRanges("CK_INFO", sizeof(CK_INFO), infoFields)}, CKR_OK},
        {"C_GetFunctionList", kSession, {null()}, CKR_ARGUMENTS_BAD},
        {"C_GetFunctionList", kSession, {output(sizeof(void*), sizeof(void*))}, CKR_OK},
    };
}

std::vector<Row> slotRows() {
    const std::size_t slots = 4 * sizeof(CK_SLOT_ID);
    const std::size_t types = 32 * sizeof(CK_MECHANISM_TYPE);
    // The slot's token is a FIPS 140-3 model: 23 mechanisms. An unknown slot gets all 26
    // (compatibility register, entry 10).
    const std::size_t listed = 23 * sizeof(CK_MECHANISM_TYPE);
    const Arg slotInfo = output(sizeof(CK_SLOT_INFO), 0);
    const Arg tokenInfo = output(sizeof(CK_TOKEN_INFO), 0);
    const Arg mechanismInfo = output(sizeof(CK_MECHANISM_INFO), 0);
    std::vector<Row> rows = {
        {"C_GetSlotList", kSession, {num(CK_TRUE), null(), null()}, CKR_ARGUMENTS_BAD},
        {"C_GetSlotList", kSession, {num(CK_TRUE), output(slots, 0), null()}, CKR_ARGUMENTS_BAD},
        // tokenPresent is never read; the size query counts the one connected device.
        {"C_GetSlotList", kSession, {num(0xFF), null(), ulongOut(0xFFFFFFFF, 1)}, CKR_OK},
        {"C_GetSlotList",
         kSession,
         {num(CK_TRUE), output(slots, 0), ulongOut(0)},
         CKR_BUFFER_TOO_SMALL},
        {"C_GetSlotList",
         kSession,
         {num(CK_TRUE), output(slots, sizeof(CK_SLOT_ID)), ulongOut(1, 1)},
         CKR_OK},
        {"C_GetMechanismList", kSession, {slot(), null(), null()}, CKR_ARGUMENTS_BAD},
        {"C_GetMechanismList", kSession, {slot(), output(types, 0), null()}, CKR_ARGUMENTS_BAD},
        {"C_GetMechanismList", kSession, {slot(), null(), ulongOut(0xFFFFFFFF, 23)}, CKR_OK},
        // Too small: the count stays as the caller set it (compatibility register, entry 9).
        {"C_GetMechanismList",
         kSession,
         {slot(), output(types, 0), ulongOut(0)},
         CKR_BUFFER_TOO_SMALL},
        {"C_GetMechanismList",
         kSession,
         {slot(), output(types, 0), ulongOut(22)},
         CKR_BUFFER_TOO_SMALL},
        {"C_GetMechanismInfo", kSession, {slot(), num(CKM_RSA_PKCS), null()}, CKR_ARGUMENTS_BAD},
        {"C_GetMechanismInfo",
         kSession,
         {num(0xFFFFFFFF), num(0xFFFFFFFF), null()},
         CKR_ARGUMENTS_BAD},
        // A pending event is collected before each of these rows: none is left.
        {"C_WaitForSlotEvent",
         Before::NoEventPending,
         {num(CKF_DONT_BLOCK), null(), null()},
         CKR_ARGUMENTS_BAD},
        {"C_WaitForSlotEvent",
         Before::NoEventPending,
         {num(0), null(), noAccess()},
         CKR_ARGUMENTS_BAD},
        {"C_WaitForSlotEvent",
         Before::NoEventPending,
         {num(CKF_DONT_BLOCK), output(sizeof(CK_SLOT_ID), 0), noAccess()},
         CKR_NO_EVENT},
        {"C_WaitForSlotEvent",
         Before::NoEventPending,
         {num(0xFFFFFFFF), output(sizeof(CK_SLOT_ID), 0), null()},
         CKR_NO_EVENT},
    };
    // Huge room: only what there is gets written, and a count above 32 bits is not cut to 0.
    std::vector<CK_ULONG> hugeCounts = {0x7FFFFFFF, 0xFFFFFFFF};
    if (kWide) {
        hugeCounts.push_back(kAbove32Bits);
        rows.push_back({"C_WaitForSlotEvent",
                        Before::NoEventPending,
                        {num(kAbove32Bits | CKF_DONT_BLOCK), output(sizeof(CK_SLOT_ID), 0), null()},
                        CKR_NO_EVENT});
    }
    for (CK_ULONG count : hugeCounts) {
        rows.push_back({"C_GetSlotList",
                        kSession,
                        {num(CK_TRUE), output(slots, sizeof(CK_SLOT_ID)), ulongOut(count, 1)},
                        CKR_OK});
        rows.push_back({"C_GetMechanismList",
                        kSession,
                        {slot(), output(types, listed), ulongOut(count, 23)},
                        CKR_OK});
    }
    std::vector<CK_MECHANISM_TYPE> badTypes = {0xFFFFFFFF, CKM_VENDOR_DEFINED, CKM_MD5,
                                               CKM_ECDSA_SHA512};
    if (kWide) {
        badTypes.push_back(kAbove32Bits + CKM_RSA_PKCS);
        badTypes.push_back(kAbove32Bits + CKM_SHA256);
    }
    for (CK_MECHANISM_TYPE type : badTypes) {
        rows.push_back({"C_GetMechanismInfo",
                        kSession,
                        {slot(), num(type), mechanismInfo},
                        CKR_MECHANISM_INVALID});
    }
    // The slot is looked up before the pointer is checked (compatibility register, entry 14).
    append(rows, sweep({"C_GetSlotInfo", kSession, {swept(), slotInfo}, 0}, badSlots(),
                       CKR_SLOT_ID_INVALID));
    append(rows, sweep({"C_GetSlotInfo", kSession, {swept(), null()}, 0}, badSlots(),
                       CKR_SLOT_ID_INVALID));
    append(rows, sweep({"C_GetTokenInfo", kSession, {swept(), tokenInfo}, 0}, badSlots(),
                       CKR_SLOT_ID_INVALID));
    append(rows, sweep({"C_GetTokenInfo", kSession, {swept(), null()}, 0}, badSlots(),
                       CKR_SLOT_ID_INVALID));
    // The mechanism functions do not check the slot: an unknown one gets the whole catalogue.
    append(rows, sweep({"C_GetMechanismList", kSession, {swept(), null(), ulongOut(0, 26)}, 0},
                       badSlots(), CKR_OK));
    append(rows, sweep({"C_GetMechanismInfo",
                        kSession,
                        {swept(), num(CKM_SHA256),
                         output(sizeof(CK_MECHANISM_INFO), sizeof(CK_MECHANISM_INFO))},
                        0},
                       badSlots(), CKR_OK));
    return rows;
}

std::vector<Row> sessionRows() {
    const Arg handleOut = ulongOut(0);
    const Arg sessionInfo = output(sizeof(CK_SESSION_INFO), 0);
    std::vector<Row> rows = {
        {"C_OpenSession",
         kSession,
         {slot(), num(kSerialRw), noAccess(), noAccess(), null()},
         CKR_ARGUMENTS_BAD},
        {"C_OpenSession",
         kSession,
         {slot(), num(0), null(), null(), handleOut},
         CKR_SESSION_PARALLEL_NOT_SUPPORTED},
        {"C_OpenSession",
         kSession,
         {slot(), num(CKF_RW_SESSION), null(), null(), null()},
         CKR_SESSION_PARALLEL_NOT_SUPPORTED},
        // Every flag set includes the two that count; pApplication and Notify are never used.
        {"C_OpenSession",
         kSession,
         {slot(), num(0xFFFFFFFF), noAccess(), noAccess(), ulongOut(0, 0x60000002)},
         CKR_OK},
        {"C_GetSessionInfo", kSession, {session(), null()}, CKR_ARGUMENTS_BAD},
        {"C_Login",
         kSession,
         {session(), num(CKU_USER), null(), num(kUserPinLength)},
         CKR_ARGUMENTS_BAD},
        {"C_Login", kSession, {session(), num(CKU_SO), null(), num(0)}, CKR_ARGUMENTS_BAD},
        {"C_Login",
         kSession,
         {session(), num(CKU_CONTEXT_SPECIFIC), input(kUserPinLength), num(kUserPinLength)},
         CKR_USER_TYPE_INVALID},
        // The user type is checked before the PIN.
        {"C_Login", kSession, {session(), num(0xFFFFFFFF), null(), num(0)}, CKR_USER_TYPE_INVALID},
        {"C_Login",
         Before::UserSession,
         {session(), num(CKU_USER), null(), num(0xFFFFFFFF)},
         CKR_USER_ALREADY_LOGGED_IN},
        // A NUL inside would cut the PIN short at the device.
        {"C_Login",
         kSession,
         {session(), num(CKU_USER), pinWithNul(), num(kUserPinLength)},
         CKR_PIN_INCORRECT},
        {"C_Logout", kSession, {session()}, CKR_USER_NOT_LOGGED_IN},
        {"C_SetPIN",
         kSession,
         {session(), null(), num(kUserPinLength), input(kUserPinLength), num(kUserPinLength)},
         CKR_ARGUMENTS_BAD},
        {"C_SetPIN", kSession, {session(), null(), num(0), null(), num(0)}, CKR_ARGUMENTS_BAD},
        {"C_SetPIN",
         kSession,
         {session(), input(kUserPinLength), num(kUserPinLength), null(), num(kUserPinLength)},
         CKR_ARGUMENTS_BAD},
        {"C_SetPIN",
         kSession,
         {session(), input(kUserPinLength), num(kUserPinLength), null(), num(0xFFFFFFFF)},
         CKR_ARGUMENTS_BAD},
        {"C_SetPIN",
         kSession,
         {session(), pinWithNul(), num(kUserPinLength), input(kUserPinLength), num(kUserPinLength)},
         CKR_PIN_INVALID},
        {"C_SetPIN",
         kSession,
         {session(), input(kUserPinLength), num(kUserPinLength), pinWithNul(), num(kUserPinLength)},
         CKR_PIN_INVALID},
    };
    if (kWide) {
        rows.push_back({"C_OpenSession",
                        kSession,
                        {slot(), num(kAbove32Bits), null(), null(), handleOut},
                        CKR_SESSION_PARALLEL_NOT_SUPPORTED});
        rows.push_back({"C_OpenSession",
                        kSession,
                        {slot(), num(kAbove32Bits | CKF_SERIAL_SESSION), null(), null(),
                         ulongOut(0, 0x60000002)},
                        CKR_OK});
        rows.push_back(
            {"C_Login",
             kSession,
             {session(), num(kAbove32Bits + CKU_USER), input(kUserPinLength), num(kUserPinLength)},
             CKR_USER_TYPE_INVALID});
    }
    // Out-of-range lengths are refused before any byte of the PIN is read.
    for (CK_ULONG length : badPinLengths()) {
        rows.push_back({"C_Login",
                        kSession,
                        {session(), num(CKU_USER), noAccess(), num(length)},
                        CKR_PIN_LEN_RANGE});
        rows.push_back({"C_SetPIN",
                        kSession,
                        {session(), noAccess(), num(length), noAccess(), num(kUserPinLength)},
                        CKR_PIN_LEN_RANGE});
        rows.push_back(
            {"C_SetPIN",
             kSession,
             {session(), input(kUserPinLength), num(kUserPinLength), noAccess(), num(length)},
             CKR_PIN_LEN_RANGE});
    }
    append(
        rows,
        sweep({"C_OpenSession", kSession, {swept(), num(kSerialRw), null(), null(), handleOut}, 0},
              badSlots(), CKR_SLOT_ID_INVALID));
    // The slot is checked before the flags and the pointer.
    append(rows, sweep({"C_OpenSession", kSession, {swept(), num(0), null(), null(), null()}, 0},
                       badSlots(), CKR_SLOT_ID_INVALID));
    append(rows,
           sweep({"C_CloseAllSessions", kSession, {swept()}, 0}, badSlots(), CKR_SLOT_ID_INVALID));
    append(rows, sweep({"C_CloseSession", kSession, {swept()}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_GetSessionInfo", kSession, {swept(), sessionInfo}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_GetSessionInfo", kSession, {swept(), null()}, 0}, badSessions(),
                       CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_Login",
                        kSession,
                        {swept(), num(CKU_USER), input(kUserPinLength), num(kUserPinLength)},
                        0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    append(rows,
           sweep({"C_Logout", kSession, {swept()}, 0}, badSessions(), CKR_SESSION_HANDLE_INVALID));
    append(rows, sweep({"C_SetPIN",
                        kSession,
                        {swept(), input(kUserPinLength), num(kUserPinLength), input(kUserPinLength),
                         num(kUserPinLength)},
                        0},
                       badSessions(), CKR_SESSION_HANDLE_INVALID));
    return rows;
}

}  // namespace matrix
