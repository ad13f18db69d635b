// Cryptoki 2.20 interface of the module: the 68 standard entry points in the standard's order,
// the function list, and the types and constants they use.
#pragma once

#include "cryptoki/cryptoki_constants.h"
#include "cryptoki/cryptoki_types.h"

#if defined(_WIN32)
// Exports on Windows come from the module-definition file.
#define CK_EXPORT_SPEC
#else
#define CK_EXPORT_SPEC __attribute__((visibility("default")))
#endif

extern "C" {
struct CK_FUNCTION_LIST;
typedef CK_FUNCTION_LIST* CK_FUNCTION_LIST_PTR;
typedef CK_FUNCTION_LIST_PTR* CK_FUNCTION_LIST_PTR_PTR;
}

// The standard entry points in the order of CK_FUNCTION_LIST. X(name, parameter list).
#define OSTREL_CRYPTOKI_FUNCTIONS(X)                                                               \
    X(C_Initialize, (CK_VOID_PTR pInitArgs))                                                       \
    X(C_Finalize, (CK_VOID_PTR pReserved))                                                         \
    X(C_GetInfo, (CK_INFO * pInfo))                                                                \
    X(C_GetFunctionList, (CK_FUNCTION_LIST_PTR_PTR ppFunctionList))                                \
    X(C_GetSlotList,                                                                               \
      (CK_BBOOL tokenPresent, CK_SLOT_ID_PTR pSlotList, CK_ULONG_PTR pulCount))                    \
    X(C_GetSlotInfo, (CK_SLOT_ID slotID, CK_SLOT_INFO * pInfo))                                    \
    X(C_GetTokenInfo, (CK_SLOT_ID slotID, CK_TOKEN_INFO * pInfo))                                  \
    X(C_GetMechanismList,                                                                          \
      (CK_SLOT_ID slotID, CK_MECHANISM_TYPE_PTR pMechanismList, CK_ULONG_PTR pulCount))            \
    X(C_GetMechanismInfo,                                                                          \
      (CK_SLOT_ID slotID, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO_PTR pInfo))                    \
    X(C_InitToken,                                                                                 \
      (CK_SLOT_ID slotID, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen, CK_UTF8CHAR_PTR pLabel))        \
    X(C_InitPIN, (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pPin, CK_ULONG ulPinLen))            \
    X(C_SetPIN, (CK_SESSION_HANDLE hSession, CK_UTF8CHAR_PTR pOldPin, CK_ULONG ulOldLen,           \
                 CK_UTF8CHAR_PTR pNewPin, CK_ULONG ulNewLen))                                      \
    X(C_OpenSession, (CK_SLOT_ID slotID, CK_FLAGS flags, CK_VOID_PTR pApplication,                 \
                      CK_NOTIFY Notify, CK_SESSION_HANDLE_PTR phSession))                          \
    X(C_CloseSession, (CK_SESSION_HANDLE hSession))                                                \
    X(C_CloseAllSessions, (CK_SLOT_ID slotID))                                                     \
    X(C_GetSessionInfo, (CK_SESSION_HANDLE hSession, CK_SESSION_INFO * pInfo))                     \
    X(C_GetOperationState, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState,               \
                            CK_ULONG_PTR pulOperationStateLen))                                    \
    X(C_SetOperationState,                                                                         \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pOperationState, CK_ULONG ulOperationStateLen,      \
       CK_OBJECT_HANDLE hEncryptionKey, CK_OBJECT_HANDLE hAuthenticationKey))                      \
    X(C_Login, (CK_SESSION_HANDLE hSession, CK_USER_TYPE userType, CK_UTF8CHAR_PTR pPin,           \
                CK_ULONG ulPinLen))                                                                \
    X(C_Logout, (CK_SESSION_HANDLE hSession))                                                      \
    X(C_CreateObject, (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,   \
                       CK_OBJECT_HANDLE_PTR phObject))                                             \
    X(C_CopyObject, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                         \
                     CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount,                                 \
                     CK_OBJECT_HANDLE_PTR phNewObject))                                            \
    X(C_DestroyObject, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject))                     \
    X(C_GetObjectSize,                                                                             \
      (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject, CK_ULONG_PTR pulSize))                \
    X(C_GetAttributeValue, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                  \
                            CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))                         \
    X(C_SetAttributeValue, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hObject,                  \
                            CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))                         \
    X(C_FindObjectsInit,                                                                           \
      (CK_SESSION_HANDLE hSession, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount))                  \
    X(C_FindObjects, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE_PTR phObject,                   \
                      CK_ULONG ulMaxObjectCount, CK_ULONG_PTR pulObjectCount))                     \
    X(C_FindObjectsFinal, (CK_SESSION_HANDLE hSession))                                            \
    X(C_EncryptInit,                                                                               \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_Encrypt, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,               \
                  CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen))                   \
    X(C_EncryptUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,         \
                        CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))             \
    X(C_EncryptFinal, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastEncryptedPart,                 \
                       CK_ULONG_PTR pulLastEncryptedPartLen))                                      \
    X(C_DecryptInit,                                                                               \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_Decrypt, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,                          \
                  CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen))        \
    X(C_DecryptUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart,                    \
                        CK_ULONG ulEncryptedPartLen, CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))  \
    X(C_DecryptFinal,                                                                              \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pLastPart, CK_ULONG_PTR pulLastPartLen))            \
    X(C_DigestInit, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism))                     \
    X(C_Digest, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,                \
                 CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen))                                  \
    X(C_DigestUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))         \
    X(C_DigestKey, (CK_SESSION_HANDLE hSession, CK_OBJECT_HANDLE hKey))                            \
    X(C_DigestFinal,                                                                               \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen))                \
    X(C_SignInit,                                                                                  \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_Sign, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,                  \
               CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen))                              \
    X(C_SignUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))           \
    X(C_SignFinal,                                                                                 \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen))          \
    X(C_SignRecoverInit,                                                                           \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_SignRecover, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,           \
                      CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen))                       \
    X(C_VerifyInit,                                                                                \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_Verify, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,                \
                 CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen))                                 \
    X(C_VerifyUpdate, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen))         \
    X(C_VerifyFinal,                                                                               \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen))               \
    X(C_VerifyRecoverInit,                                                                         \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey))            \
    X(C_VerifyRecover, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,                        \
                        CK_ULONG ulSignatureLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen))      \
    X(C_DigestEncryptUpdate,                                                                       \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,                          \
       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))                              \
    X(C_DecryptDigestUpdate,                                                                       \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,        \
       CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))                                                \
    X(C_SignEncryptUpdate,                                                                         \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen,                          \
       CK_BYTE_PTR pEncryptedPart, CK_ULONG_PTR pulEncryptedPartLen))                              \
    X(C_DecryptVerifyUpdate,                                                                       \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedPart, CK_ULONG ulEncryptedPartLen,        \
       CK_BYTE_PTR pPart, CK_ULONG_PTR pulPartLen))                                                \
    X(C_GenerateKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                     \
                      CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulCount, CK_OBJECT_HANDLE_PTR phKey))   \
    X(C_GenerateKeyPair,                                                                           \
      (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                                    \
       CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,                    \
       CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,                  \
       CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey))                       \
    X(C_WrapKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                         \
                  CK_OBJECT_HANDLE hWrappingKey, CK_OBJECT_HANDLE hKey, CK_BYTE_PTR pWrappedKey,   \
                  CK_ULONG_PTR pulWrappedKeyLen))                                                  \
    X(C_UnwrapKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                       \
                    CK_OBJECT_HANDLE hUnwrappingKey, CK_BYTE_PTR pWrappedKey,                      \
                    CK_ULONG ulWrappedKeyLen, CK_ATTRIBUTE_PTR pTemplate,                          \
                    CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey))                        \
    X(C_DeriveKey, (CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,                       \
                    CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate,                         \
                    CK_ULONG ulAttributeCount, CK_OBJECT_HANDLE_PTR phKey))                        \
    X(C_SeedRandom, (CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSeed, CK_ULONG ulSeedLen))           \
    X(C_GenerateRandom,                                                                            \
      (CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen))                  \
    X(C_GetFunctionStatus, (CK_SESSION_HANDLE hSession))                                           \
    X(C_CancelFunction, (CK_SESSION_HANDLE hSession))                                              \
    X(C_WaitForSlotEvent, (CK_FLAGS flags, CK_SLOT_ID_PTR pSlot, CK_VOID_PTR pReserved))

#if defined(_WIN32)
#pragma pack(push, 1)
#endif

extern "C" {

#define OSTREL_DECLARE_EXPORT(name, params) CK_EXPORT_SPEC CK_RV name params;
OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_DECLARE_EXPORT)
#undef OSTREL_DECLARE_EXPORT

struct CK_FUNCTION_LIST {
    CK_VERSION version;
#define OSTREL_FUNCTION_POINTER(name, params) CK_RV(*name) params;
    OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_FUNCTION_POINTER)
#undef OSTREL_FUNCTION_POINTER
};

}  // extern "C"

#if defined(_WIN32)
#pragma pack(pop)
#endif

// The maker's three extra entry points keep C++ linkage: their export names are the compiler's
// decorated names of these signatures, which existing callers look up.
CK_EXPORT_SPEC CK_RV C_EjectToken(CK_SLOT_ID slotID);
CK_EXPORT_SPEC CK_RV C_GetUnmanagedStructSizeList(CK_ULONG_PTR pSizeList, CK_ULONG_PTR pulCount);
CK_EXPORT_SPEC CK_RV C_InteractiveLogin(CK_SESSION_HANDLE hSession);
