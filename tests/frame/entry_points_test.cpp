// What every entry point answers before initialisation, and the unsupported entry points.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "support/log_capture.h"
#include "support/module_start.h"

namespace {

struct EntryPoint {
    std::string name;
    std::function<CK_RV()> callWithNullArguments;
};

// Every export that needs an initialised module, called with zero and null arguments.
std::vector<EntryPoint> initialisedOnlyEntryPoints() {
    return {
        {"C_GetInfo", [] { return C_GetInfo(nullptr); }},
        {"C_GetSlotList", [] { return C_GetSlotList(0, nullptr, nullptr); }},
        {"C_GetSlotInfo", [] { return C_GetSlotInfo(0, nullptr); }},
        {"C_GetTokenInfo", [] { return C_GetTokenInfo(0, nullptr); }},
        {"C_GetMechanismList", [] { return C_GetMechanismList(0, nullptr, nullptr); }},
        {"C_GetMechanismInfo", [] { return C_GetMechanismInfo(0, 0, nullptr); }},
        {"C_SetPIN", [] { return C_SetPIN(0, nullptr, 0, nullptr, 0); }},
        {"C_OpenSession", [] { return C_OpenSession(0, 0, nullptr, nullptr, nullptr); }},
        {"C_CloseSession", [] { return C_CloseSession(0); }},
        {"C_CloseAllSessions", [] { return C_CloseAllSessions(0); }},
        {"C_GetSessionInfo", [] { return C_GetSessionInfo(0, nullptr); }},
        {"C_Login", [] { return C_Login(0, 0, nullptr, 0); }},
        {"C_Logout", [] { return C_Logout(0); }},
        {"C_CreateObject", [] { return C_CreateObject(0, nullptr, 0, nullptr); }},
        {"C_DestroyObject", [] { return C_DestroyObject(0, 0); }},
        {"C_GetObjectSize", [] { return C_GetObjectSize(0, 0, nullptr); }},
        {"C_GetAttributeValue", [] { return C_GetAttributeValue(0, 0, nullptr, 0); }},
        {"C_SetAttributeValue", [] { return C_SetAttributeValue(0, 0, nullptr, 0); }},
        {"C_FindObjectsInit", [] { return C_FindObjectsInit(0, nullptr, 0); }},
        {"C_FindObjects", [] { return C_FindObjects(0, nullptr, 0, nullptr); }},
        {"C_FindObjectsFinal", [] { return C_FindObjectsFinal(0); }},
        {"C_EncryptInit", [] { return C_EncryptInit(0, nullptr, 0); }},
        {"C_Encrypt", [] { return C_Encrypt(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DecryptInit", [] { return C_DecryptInit(0, nullptr, 0); }},
        {"C_Decrypt", [] { return C_Decrypt(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DigestInit", [] { return C_DigestInit(0, nullptr); }},
        {"C_Digest", [] { return C_Digest(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DigestUpdate", [] { return C_DigestUpdate(0, nullptr, 0); }},
        {"C_DigestFinal", [] { return C_DigestFinal(0, nullptr, nullptr); }},
        {"C_SignInit", [] { return C_SignInit(0, nullptr, 0); }},
        {"C_Sign", [] { return C_Sign(0, nullptr, 0, nullptr, nullptr); }},
        {"C_SignUpdate", [] { return C_SignUpdate(0, nullptr, 0); }},
        {"C_SignFinal", [] { return C_SignFinal(0, nullptr, nullptr); }},
        {"C_VerifyInit", [] { return C_VerifyInit(0, nullptr, 0); }},
        {"C_Verify", [] { return C_Verify(0, nullptr, 0, nullptr, 0); }},
        {"C_VerifyUpdate", [] { return C_VerifyUpdate(0, nullptr, 0); }},
        {"C_VerifyFinal", [] { return C_VerifyFinal(0, nullptr, 0); }},
        {"C_GenerateKeyPair",
         [] { return C_GenerateKeyPair(0, nullptr, nullptr, 0, nullptr, 0, nullptr, nullptr); }},
        {"C_DeriveKey", [] { return C_DeriveKey(0, nullptr, 0, nullptr, 0, nullptr); }},
        {"C_GenerateRandom", [] { return C_GenerateRandom(0, nullptr, 0); }},
        {"C_WaitForSlotEvent", [] { return C_WaitForSlotEvent(0, nullptr, nullptr); }},
    };
}

std::vector<EntryPoint> unsupportedEntryPoints() {
    return {
        {"C_InitToken", [] { return C_InitToken(0, nullptr, 0, nullptr); }},
        {"C_InitPIN", [] { return C_InitPIN(0, nullptr, 0); }},
        {"C_GetOperationState", [] { return C_GetOperationState(0, nullptr, nullptr); }},
        {"C_SetOperationState", [] { return C_SetOperationState(0, nullptr, 0, 0, 0); }},
        {"C_CopyObject", [] { return C_CopyObject(0, 0, nullptr, 0, nullptr); }},
        {"C_EncryptUpdate", [] { return C_EncryptUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_EncryptFinal", [] { return C_EncryptFinal(0, nullptr, nullptr); }},
        {"C_DecryptUpdate", [] { return C_DecryptUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DecryptFinal", [] { return C_DecryptFinal(0, nullptr, nullptr); }},
        {"C_DigestKey", [] { return C_DigestKey(0, 0); }},
        {"C_SignRecoverInit", [] { return C_SignRecoverInit(0, nullptr, 0); }},
        {"C_SignRecover", [] { return C_SignRecover(0, nullptr, 0, nullptr, nullptr); }},
        {"C_VerifyRecoverInit", [] { return C_VerifyRecoverInit(0, nullptr, 0); }},
        {"C_VerifyRecover", [] { return C_VerifyRecover(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DigestEncryptUpdate",
         [] { return C_DigestEncryptUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DecryptDigestUpdate",
         [] { return C_DecryptDigestUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_SignEncryptUpdate",
         [] { return C_SignEncryptUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_DecryptVerifyUpdate",
         [] { return C_DecryptVerifyUpdate(0, nullptr, 0, nullptr, nullptr); }},
        {"C_GenerateKey", [] { return C_GenerateKey(0, nullptr, nullptr, 0, nullptr); }},
        {"C_WrapKey", [] { return C_WrapKey(0, nullptr, 0, 0, nullptr, nullptr); }},
        {"C_UnwrapKey",
         [] { return C_UnwrapKey(0, nullptr, 0, nullptr, 0, nullptr, 0, nullptr); }},
        {"C_SeedRandom", [] { return C_SeedRandom(0, nullptr, 0); }},
        {"C_GetFunctionStatus", [] { return C_GetFunctionStatus(0); }},
        {"C_CancelFunction", [] { return C_CancelFunction(0); }},
        {"C_EjectToken", [] { return C_EjectToken(0); }},
        {"C_GetUnmanagedStructSizeList",
         [] { return C_GetUnmanagedStructSizeList(nullptr, nullptr); }},
        {"C_InteractiveLogin", [] { return C_InteractiveLogin(0); }},
    };
}

TEST(EntryPoints, EveryOtherEntryAnswersNotInitialisedBeforeInitialise) {
    LogCapture log;
    for (const EntryPoint& entry : initialisedOnlyEntryPoints()) {
        log.newLines();
        EXPECT_EQ(entry.callWithNullArguments(), CKR_CRYPTOKI_NOT_INITIALIZED) << entry.name;
        // C_DeriveKey's early rejections write no line of their own, this one included.
        std::vector<std::string> expected{infoLine(entry.name)};
        if (entry.name != "C_DeriveKey") {
            expected.push_back(errorLine(entry.name + ": not initialized"));
        }
        EXPECT_EQ(log.newLines(), expected) << entry.name;
    }
}

TEST(EntryPoints, UnsupportedEntriesOnlyLogTheirNameBeforeAndAfterInitialise) {
    LogCapture log;
    for (bool initialised : {false, true}) {
        if (initialised) {
            ASSERT_EQ(initializeAndSettle(log), CKR_OK);
        }
        for (const EntryPoint& entry : unsupportedEntryPoints()) {
            log.newLines();
            EXPECT_EQ(entry.callWithNullArguments(), CKR_FUNCTION_NOT_SUPPORTED) << entry.name;
            EXPECT_EQ(log.newLines(), std::vector<std::string>{infoLine(entry.name)})
                << entry.name;
        }
    }
    EXPECT_EQ(C_Finalize(nullptr), CKR_OK);
}

TEST(EntryPoints, UnmanagedStructSizeListWritesNothing) {
    LogCapture log;
    CK_ULONG sizes[4] = {7, 7, 7, 7};
    CK_ULONG count = 4;
    EXPECT_EQ(C_GetUnmanagedStructSizeList(sizes, &count), CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(count, 4u);
    for (CK_ULONG size : sizes) {
        EXPECT_EQ(size, 7u);
    }
}

}  // namespace
