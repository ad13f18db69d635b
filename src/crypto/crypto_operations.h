// The work of the cryptographic entry points, one function per export. Each runs inside the
// export frame, which has already logged the call and checked initialisation.
#pragma once

#include "core/export_call.h"

// Message digests (digest.cpp).
CK_RV digestInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism);
CK_RV digest(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen);
CK_RV digestUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                   CK_ULONG ulPartLen);
CK_RV digestFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest,
                  CK_ULONG_PTR pulDigestLen);

// Signing (sign.cpp).
CK_RV signInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
               CK_OBJECT_HANDLE hKey);
CK_RV sign(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
           CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen);
CK_RV signUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                 CK_ULONG ulPartLen);
CK_RV signFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                CK_ULONG_PTR pulSignatureLen);

// Signature verification (verify.cpp).
CK_RV verifyInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                 CK_OBJECT_HANDLE hKey);
CK_RV verify(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen);
CK_RV verifyUpdate(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart,
                   CK_ULONG ulPartLen);
CK_RV verifyFinal(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                  CK_ULONG ulSignatureLen);

// RSA encryption and decryption, single-part only (cipher.cpp).
CK_RV encryptInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hKey);
CK_RV encrypt(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
              CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen);
CK_RV decryptInit(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hKey);
CK_RV decrypt(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData,
              CK_ULONG ulEncryptedDataLen, CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen);

// Key pairs generated on the token (key_pair_generation.cpp).
CK_RV generateKeyPair(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                      CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                      CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                      CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey);

// ECDH with a token key; the secret stays in the module (key_derivation.cpp). Its early
// rejections write no line: the export runs in the frame that writes none for "not
// initialized" either.
CK_RV deriveKey(ExportCall& call, CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount,
                CK_OBJECT_HANDLE_PTR phKey);

// The token's random numbers (random.cpp).
CK_RV generateRandom(ExportCall& call, CK_SESSION_HANDLE hSession, CK_BYTE_PTR pRandomData,
                     CK_ULONG ulRandomLen);
