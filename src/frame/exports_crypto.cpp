// Cryptographic entry points.
#include "frame/export_frame.h"

CK_RV C_EncryptInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runNotYetAvailableExport("C_EncryptInit");
}
CK_RV C_Encrypt(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_Encrypt");
}
CK_RV C_DecryptInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runNotYetAvailableExport("C_DecryptInit");
}
CK_RV C_Decrypt(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_Decrypt");
}
CK_RV C_DigestInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR) {
    return runNotYetAvailableExport("C_DigestInit");
}
CK_RV C_Digest(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_Digest");
}
CK_RV C_DigestUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_DigestUpdate");
}
CK_RV C_DigestFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_DigestFinal");
}
CK_RV C_SignInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runNotYetAvailableExport("C_SignInit");
}
CK_RV C_Sign(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_Sign");
}
CK_RV C_SignUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_SignUpdate");
}
CK_RV C_SignFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG_PTR) {
    return runNotYetAvailableExport("C_SignFinal");
}
CK_RV C_VerifyInit(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE) {
    return runNotYetAvailableExport("C_VerifyInit");
}
CK_RV C_Verify(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_Verify");
}
CK_RV C_VerifyUpdate(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_VerifyUpdate");
}
CK_RV C_VerifyFinal(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_VerifyFinal");
}
CK_RV C_GenerateKeyPair(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_ATTRIBUTE_PTR, CK_ULONG,
                        CK_ATTRIBUTE_PTR, CK_ULONG, CK_OBJECT_HANDLE_PTR, CK_OBJECT_HANDLE_PTR) {
    return runNotYetAvailableExport("C_GenerateKeyPair");
}
CK_RV C_DeriveKey(CK_SESSION_HANDLE, CK_MECHANISM_PTR, CK_OBJECT_HANDLE, CK_ATTRIBUTE_PTR,
                  CK_ULONG, CK_OBJECT_HANDLE_PTR) {
    return runNotYetAvailableExport("C_DeriveKey");
}
CK_RV C_GenerateRandom(CK_SESSION_HANDLE, CK_BYTE_PTR, CK_ULONG) {
    return runNotYetAvailableExport("C_GenerateRandom");
}
