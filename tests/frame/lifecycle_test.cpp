// C_Initialize, C_Finalize and C_GetInfo.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "support/log_capture.h"
#include "support/module_start.h"

namespace {

class Lifecycle : public ::testing::Test {
protected:
    void TearDown() override { C_Finalize(nullptr); }
    LogCapture log;
};

TEST_F(Lifecycle, InitialiseFinaliseCyclesLogEachStep) {
    for (int cycle = 0; cycle < 3; ++cycle) {
        log.newLines();
        ASSERT_EQ(initializeAndSettle(log), CKR_OK);
        ASSERT_EQ(C_Finalize(nullptr), CKR_OK);
        const std::vector<std::string> lines = log.newLines();
        ASSERT_FALSE(lines.empty());
        EXPECT_EQ(lines.front(), infoLine("C_Initialize"));
        EXPECT_EQ(lines.back(), infoLine("C_Finalize completed successfully."));
        EXPECT_TRUE(log.contains(infoLine("Monitor thread joined (stopDeviceMonitor).")));
    }
}

TEST_F(Lifecycle, SecondInitialiseIsRefusedAndChangesNothing) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    log.newLines();
    EXPECT_EQ(C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
    EXPECT_EQ(log.newLines(),
              (std::vector<std::string>{infoLine("C_Initialize"),
                                        errorLine("C_Initialize: already initialized")}));
    CK_INFO info;
    EXPECT_EQ(C_GetInfo(&info), CKR_OK);
}

TEST_F(Lifecycle, FinaliseWithoutInitialiseIsRefused) {
    EXPECT_EQ(C_Finalize(nullptr), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{infoLine("C_Finalize"),
                                                     errorLine("C_Finalize: not initialized")}));
}

TEST_F(Lifecycle, ArgumentsOfInitialiseAndFinaliseAreNeverRead) {
    // Pointers that would crash if they were dereferenced.
    auto* garbage = reinterpret_cast<CK_VOID_PTR>(static_cast<std::uintptr_t>(0x10));
    EXPECT_EQ(C_Initialize(garbage), CKR_OK);
    EXPECT_EQ(C_Finalize(garbage), CKR_OK);
}

TEST_F(Lifecycle, GetInfoBeforeInitialiseIsRefused) {
    CK_INFO info;
    EXPECT_EQ(C_GetInfo(&info), CKR_CRYPTOKI_NOT_INITIALIZED);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{infoLine("C_GetInfo"),
                                                     errorLine("C_GetInfo: not initialized")}));
}

TEST_F(Lifecycle, GetInfoRejectsNullPointer) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    log.newLines();
    EXPECT_EQ(C_GetInfo(nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(log.newLines(), (std::vector<std::string>{infoLine("C_GetInfo"),
                                                        errorLine("C_GetInfo: pInfo is NULL")}));
}

TEST_F(Lifecycle, GetInfoWritesTextsWithOneNulAndLeavesTheRestOfEachField) {
    ASSERT_EQ(initializeAndSettle(log), CKR_OK);
    unsigned char raw[sizeof(CK_INFO)];
    std::memset(raw, 0xFF, sizeof raw);
    auto* info = reinterpret_cast<CK_INFO*>(raw);
    ASSERT_EQ(C_GetInfo(info), CKR_OK);

    EXPECT_EQ(raw[0], 2);
    EXPECT_EQ(raw[1], 20);
    const std::size_t manufacturer = offsetof(CK_INFO, manufacturerID);
    EXPECT_EQ(std::memcmp(raw + manufacturer, "Kelvanetics\0", 12), 0);
    for (std::size_t i = manufacturer + 12; i < manufacturer + 32; ++i) {
        EXPECT_EQ(raw[i], 0xFF) << "manufacturerID byte " << i;
    }
    EXPECT_EQ(info->flags, 0u);
    const std::size_t description = offsetof(CK_INFO, libraryDescription);
    EXPECT_EQ(std::memcmp(raw + description, "Ostrel PKCS11 Library\0", 22), 0);
    for (std::size_t i = description + 22; i < description + 32; ++i) {
        EXPECT_EQ(raw[i], 0xFF) << "libraryDescription byte " << i;
    }
    EXPECT_EQ(info->libraryVersion.major, 3);
    EXPECT_EQ(info->libraryVersion.minor, 6);
}

}  // namespace
