// Byte layout of every structure that crosses the Cryptoki interface on Windows: packed to one
// byte, with 32-bit CK_ULONG and 64-bit pointers. Applications compiled against other Cryptoki
// headers read these bytes at exactly these offsets.
#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

#include "cryptoki/cryptoki.h"

namespace {

#define EXPECT_FIELD_AT(type, field, offset) \
    EXPECT_EQ(offsetof(type, field), std::size_t{offset}) << #type "::" #field

TEST(StructureLayout, BaseTypesHaveTheWindowsWidths) {
    EXPECT_EQ(sizeof(CK_BYTE), 1u);
    EXPECT_EQ(sizeof(CK_BBOOL), 1u);
    EXPECT_EQ(sizeof(CK_ULONG), 4u);
    EXPECT_EQ(sizeof(CK_LONG), 4u);
    EXPECT_EQ(sizeof(CK_FLAGS), 4u);
    EXPECT_EQ(sizeof(CK_RV), 4u);
    EXPECT_EQ(sizeof(CK_VOID_PTR), 8u);
    EXPECT_EQ(sizeof(CK_VERSION), 2u);
}

TEST(StructureLayout, Info) {
    EXPECT_FIELD_AT(CK_INFO, cryptokiVersion, 0);
    EXPECT_FIELD_AT(CK_INFO, manufacturerID, 2);
    EXPECT_FIELD_AT(CK_INFO, flags, 34);
    EXPECT_FIELD_AT(CK_INFO, libraryDescription, 38);
    EXPECT_FIELD_AT(CK_INFO, libraryVersion, 70);
    EXPECT_EQ(sizeof(CK_INFO), 72u);
}

TEST(StructureLayout, SlotInfo) {
    EXPECT_FIELD_AT(CK_SLOT_INFO, slotDescription, 0);
    EXPECT_FIELD_AT(CK_SLOT_INFO, manufacturerID, 64);
    EXPECT_FIELD_AT(CK_SLOT_INFO, flags, 96);
    EXPECT_FIELD_AT(CK_SLOT_INFO, hardwareVersion, 100);
    EXPECT_FIELD_AT(CK_SLOT_INFO, firmwareVersion, 102);
    EXPECT_EQ(sizeof(CK_SLOT_INFO), 104u);
}

TEST(StructureLayout, TokenInfo) {
    EXPECT_FIELD_AT(CK_TOKEN_INFO, label, 0);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, manufacturerID, 32);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, model, 64);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, serialNumber, 80);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, flags, 96);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulMaxSessionCount, 100);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulSessionCount, 104);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulMaxRwSessionCount, 108);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulRwSessionCount, 112);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulMaxPinLen, 116);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulMinPinLen, 120);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulTotalPublicMemory, 124);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulFreePublicMemory, 128);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulTotalPrivateMemory, 132);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, ulFreePrivateMemory, 136);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, hardwareVersion, 140);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, firmwareVersion, 142);
    EXPECT_FIELD_AT(CK_TOKEN_INFO, utcTime, 144);
    EXPECT_EQ(sizeof(CK_TOKEN_INFO), 160u);
}

TEST(StructureLayout, SessionInfo) {
    EXPECT_FIELD_AT(CK_SESSION_INFO, slotID, 0);
    EXPECT_FIELD_AT(CK_SESSION_INFO, state, 4);
    EXPECT_FIELD_AT(CK_SESSION_INFO, flags, 8);
    EXPECT_FIELD_AT(CK_SESSION_INFO, ulDeviceError, 12);
    EXPECT_EQ(sizeof(CK_SESSION_INFO), 16u);
}

TEST(StructureLayout, MechanismInfo) {
    EXPECT_FIELD_AT(CK_MECHANISM_INFO, ulMinKeySize, 0);
    EXPECT_FIELD_AT(CK_MECHANISM_INFO, ulMaxKeySize, 4);
    EXPECT_FIELD_AT(CK_MECHANISM_INFO, flags, 8);
    EXPECT_EQ(sizeof(CK_MECHANISM_INFO), 12u);
}

// Pointers follow 32-bit fields without padding: arrays of these are walked by 16-byte steps.
TEST(StructureLayout, AttributeAndMechanism) {
    EXPECT_FIELD_AT(CK_ATTRIBUTE, type, 0);
    EXPECT_FIELD_AT(CK_ATTRIBUTE, pValue, 4);
    EXPECT_FIELD_AT(CK_ATTRIBUTE, ulValueLen, 12);
    EXPECT_EQ(sizeof(CK_ATTRIBUTE), 16u);
    EXPECT_EQ(sizeof(CK_ATTRIBUTE[3]), 48u);

    EXPECT_FIELD_AT(CK_MECHANISM, mechanism, 0);
    EXPECT_FIELD_AT(CK_MECHANISM, pParameter, 4);
    EXPECT_FIELD_AT(CK_MECHANISM, ulParameterLen, 12);
    EXPECT_EQ(sizeof(CK_MECHANISM), 16u);
}

TEST(StructureLayout, MechanismParameters) {
    EXPECT_FIELD_AT(CK_ECDH1_DERIVE_PARAMS, kdf, 0);
    EXPECT_FIELD_AT(CK_ECDH1_DERIVE_PARAMS, ulSharedDataLen, 4);
    EXPECT_FIELD_AT(CK_ECDH1_DERIVE_PARAMS, pSharedData, 8);
    EXPECT_FIELD_AT(CK_ECDH1_DERIVE_PARAMS, ulPublicDataLen, 16);
    EXPECT_FIELD_AT(CK_ECDH1_DERIVE_PARAMS, pPublicData, 20);
    EXPECT_EQ(sizeof(CK_ECDH1_DERIVE_PARAMS), 28u);

    EXPECT_FIELD_AT(CK_RSA_PKCS_PSS_PARAMS, hashAlg, 0);
    EXPECT_FIELD_AT(CK_RSA_PKCS_PSS_PARAMS, mgf, 4);
    EXPECT_FIELD_AT(CK_RSA_PKCS_PSS_PARAMS, sLen, 8);
    EXPECT_EQ(sizeof(CK_RSA_PKCS_PSS_PARAMS), 12u);

    EXPECT_FIELD_AT(CK_RSA_PKCS_OAEP_PARAMS, hashAlg, 0);
    EXPECT_FIELD_AT(CK_RSA_PKCS_OAEP_PARAMS, mgf, 4);
    EXPECT_FIELD_AT(CK_RSA_PKCS_OAEP_PARAMS, source, 8);
    EXPECT_FIELD_AT(CK_RSA_PKCS_OAEP_PARAMS, pSourceData, 12);
    EXPECT_FIELD_AT(CK_RSA_PKCS_OAEP_PARAMS, ulSourceDataLen, 20);
    EXPECT_EQ(sizeof(CK_RSA_PKCS_OAEP_PARAMS), 24u);
}

TEST(StructureLayout, InitializeArguments) {
    EXPECT_FIELD_AT(CK_C_INITIALIZE_ARGS, CreateMutex, 0);
    EXPECT_FIELD_AT(CK_C_INITIALIZE_ARGS, UnlockMutex, 24);
    EXPECT_FIELD_AT(CK_C_INITIALIZE_ARGS, flags, 32);
    EXPECT_FIELD_AT(CK_C_INITIALIZE_ARGS, pReserved, 36);
    EXPECT_EQ(sizeof(CK_C_INITIALIZE_ARGS), 44u);
}

// The version in two bytes, then the 68 entry points in the standard's order, 8 bytes each.
TEST(StructureLayout, FunctionList) {
    EXPECT_FIELD_AT(CK_FUNCTION_LIST, version, 0);
    std::vector<std::size_t> offsets;
#define OSTREL_ENTRY_OFFSET(name, params) offsets.push_back(offsetof(CK_FUNCTION_LIST, name));
    OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_ENTRY_OFFSET)
#undef OSTREL_ENTRY_OFFSET
    ASSERT_EQ(offsets.size(), 68u);
    for (std::size_t i = 0; i < offsets.size(); ++i) {
        EXPECT_EQ(offsets[i], 2 + 8 * i) << "entry " << i;
    }
    EXPECT_FIELD_AT(CK_FUNCTION_LIST, C_Initialize, 2);
    EXPECT_FIELD_AT(CK_FUNCTION_LIST, C_GetInfo, 18);
    EXPECT_FIELD_AT(CK_FUNCTION_LIST, C_WaitForSlotEvent, 538);
    EXPECT_EQ(sizeof(CK_FUNCTION_LIST), 2u + 68u * 8u);
}

}  // namespace
