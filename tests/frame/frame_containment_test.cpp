// The frame answers every exception with a logged code; nothing leaves an export.
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>

#include "frame/export_frame.h"
#include "support/log_capture.h"
#include "support/module_start.h"

namespace {

class Containment : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(initializeAndSettle(log), CKR_OK); }
    void TearDown() override { C_Finalize(nullptr); }
    LogCapture log;
};

TEST_F(Containment, UnexpectedExceptionIsGeneralError) {
    log.newLines();
    const CK_RV rv = runExport("C_Test", [](ExportCall&) -> CK_RV {
        throw std::runtime_error("boom");
    });
    EXPECT_EQ(rv, CKR_GENERAL_ERROR);
    EXPECT_EQ(log.newLines(), (std::vector<std::string>{
                                  infoLine("C_Test"), errorLine("C_Test: unexpected error: boom")}));
}

TEST_F(Containment, OutOfMemoryIsHostMemory) {
    const CK_RV rv = runExport("C_Test", [](ExportCall&) -> CK_RV { throw std::bad_alloc(); });
    EXPECT_EQ(rv, CKR_HOST_MEMORY);
}

TEST_F(Containment, ForeignExceptionIsContainedToo) {
    const CK_RV rv = runExport("C_Test", [](ExportCall&) -> CK_RV { throw 42; });
    EXPECT_EQ(rv, CKR_GENERAL_ERROR);
    EXPECT_TRUE(log.contains(errorLine("C_Test: unexpected error: unknown exception")));
}

TEST_F(Containment, RejectionLogsNameColonAndReason) {
    log.newLines();
    const CK_RV rv = runExport("C_Test", [](ExportCall& call) {
        return call.reject(CKR_ARGUMENTS_BAD, "pValue is NULL");
    });
    EXPECT_EQ(rv, CKR_ARGUMENTS_BAD);
    EXPECT_EQ(log.newLines(), (std::vector<std::string>{infoLine("C_Test"),
                                                        errorLine("C_Test: pValue is NULL")}));
}

}  // namespace
