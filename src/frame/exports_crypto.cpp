// Cryptographic entry points.
#include "crypto/crypto_operations.h"
#include "frame/export_frame.h"

CK_RV C_EncryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_OBJECT_HANDLE hKey) {
    return runExport("C_EncryptInit", [&](ExportCall& call) {
        return encryptInit(call, hSession, pMechanism, hKey);
    });
}
CK_RV C_Encrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
                CK_BYTE_PTR pEncryptedData, CK_ULONG_PTR pulEncryptedDataLen) {
    return runExport("C_Encrypt", [&](ExportCall& call) {
        return encrypt(call, hSession, pData, ulDataLen, pEncryptedData, pulEncryptedDataLen);
    });
}
CK_RV C_DecryptInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                    CK_OBJECT_HANDLE hKey) {
    return runExport("C_DecryptInit", [&](ExportCall& call) {
        return decryptInit(call, hSession, pMechanism, hKey);
    });
}
CK_RV C_Decrypt(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pEncryptedData, CK_ULONG ulEncryptedDataLen,
                CK_BYTE_PTR pData, CK_ULONG_PTR pulDataLen) {
    return runExport("C_Decrypt", [&](ExportCall& call) {
        return decrypt(call, hSession, pEncryptedData, ulEncryptedDataLen, pData, pulDataLen);
    });
}
CK_RV C_DigestInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism) {
    return runExport("C_DigestInit",
                     [&](ExportCall& call) { return digestInit(call, hSession, pMechanism); });
}
CK_RV C_Digest(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
    return runExport("C_Digest", [&](ExportCall& call) {
        return digest(call, hSession, pData, ulDataLen, pDigest, pulDigestLen);
    });
}
CK_RV C_DigestUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return runExport("C_DigestUpdate", [&](ExportCall& call) {
        return digestUpdate(call, hSession, pPart, ulPartLen);
    });
}
CK_RV C_DigestFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pDigest, CK_ULONG_PTR pulDigestLen) {
    return runExport("C_DigestFinal", [&](ExportCall& call) {
        return digestFinal(call, hSession, pDigest, pulDigestLen);
    });
}
CK_RV C_SignInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
    return runExport("C_SignInit",
                     [&](ExportCall& call) { return signInit(call, hSession, pMechanism, hKey); });
}
CK_RV C_Sign(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
             CK_BYTE_PTR pSignature, CK_ULONG_PTR pulSignatureLen) {
    return runExport("C_Sign", [&](ExportCall& call) {
        return sign(call, hSession, pData, ulDataLen, pSignature, pulSignatureLen);
    });
}
CK_RV C_SignUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return runExport("C_SignUpdate", [&](ExportCall& call) {
        return signUpdate(call, hSession, pPart, ulPartLen);
    });
}
CK_RV C_SignFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature,
                  CK_ULONG_PTR pulSignatureLen) {
    return runExport("C_SignFinal", [&](ExportCall& call) {
        return signFinal(call, hSession, pSignature, pulSignatureLen);
    });
}
CK_RV C_VerifyInit(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism, CK_OBJECT_HANDLE hKey) {
    return runExport("C_VerifyInit", [&](ExportCall& call) {
        return verifyInit(call, hSession, pMechanism, hKey);
    });
}
CK_RV C_Verify(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pData, CK_ULONG ulDataLen,
               CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
    return runExport("C_Verify", [&](ExportCall& call) {
        return verify(call, hSession, pData, ulDataLen, pSignature, ulSignatureLen);
    });
}
CK_RV C_VerifyUpdate(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pPart, CK_ULONG ulPartLen) {
    return runExport("C_VerifyUpdate", [&](ExportCall& call) {
        return verifyUpdate(call, hSession, pPart, ulPartLen);
    });
}
CK_RV C_VerifyFinal(CK_SESSION_HANDLE hSession, CK_BYTE_PTR pSignature, CK_ULONG ulSignatureLen) {
    return runExport("C_VerifyFinal", [&](ExportCall& call) {
        return verifyFinal(call, hSession, pSignature, ulSignatureLen);
    });
}
CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                        CK_ATTRIBUTE_PTR pPublicKeyTemplate, CK_ULONG ulPublicKeyAttributeCount,
                        CK_ATTRIBUTE_PTR pPrivateKeyTemplate, CK_ULONG ulPrivateKeyAttributeCount,
                        CK_OBJECT_HANDLE_PTR phPublicKey, CK_OBJECT_HANDLE_PTR phPrivateKey) {
    return runExport("C_GenerateKeyPair", [&](ExportCall& call) {
        return generateKeyPair(call, hSession, pMechanism, pPublicKeyTemplate,
                               ulPublicKeyAttributeCount, pPrivateKeyTemplate,
                               ulPrivateKeyAttributeCount, phPublicKey, phPrivateKey);
    });
}
// Its early rejections, "not initialized" included, write no line: compatibility register,
// entry 34.
CK_RV C_DeriveKey(CK_SESSION_HANDLE hSession, CK_MECHANISM_PTR pMechanism,
                  CK_OBJECT_HANDLE hBaseKey, CK_ATTRIBUTE_PTR pTemplate, CK_ULONG ulAttributeCount,
                  CK_OBJECT_HANDLE_PTR phKey) {
    return runExportWithoutRejectionLines("C_DeriveKey", [&](ExportCall& call) {
        return deriveKey(call, hSession, pMechanism, hBaseKey, pTemplate, ulAttributeCount, phKey);
    });
}
CK_RV C_GenerateRandom(CK_SESSION_HANDLE hSession, CK_BYTE_PTR RandomData, CK_ULONG ulRandomLen) {
    return runExport("C_GenerateRandom", [&](ExportCall& call) {
        return generateRandom(call, hSession, RandomData, ulRandomLen);
    });
}
