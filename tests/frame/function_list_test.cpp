// The function list and the entry points that work before initialisation.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "support/log_capture.h"

namespace {

TEST(FunctionList, IsAvailableBeforeInitialisationWithAllEntriesInStandardOrder) {
    LogCapture log;
    CK_FUNCTION_LIST* list = nullptr;
    ASSERT_EQ(C_GetFunctionList(&list), CKR_OK);
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->version.major, 2);
    EXPECT_EQ(list->version.minor, 20);

    // Each slot points at the export of the same name, in the standard's order.
    std::vector<void*> expected;
#define OSTREL_EXPECTED_ENTRY(name, params) expected.push_back(reinterpret_cast<void*>(&name));
    OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_EXPECTED_ENTRY)
#undef OSTREL_EXPECTED_ENTRY
    ASSERT_EQ(expected.size(), 68u);
    const auto* entries = reinterpret_cast<const unsigned char*>(&list->C_Initialize);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        void* entry = nullptr;
        std::memcpy(&entry, entries + i * sizeof(void*), sizeof(void*));
        EXPECT_NE(entry, nullptr) << "entry " << i;
        EXPECT_EQ(entry, expected[i]) << "entry " << i;
    }
    EXPECT_EQ(log.lines(), std::vector<std::string>{infoLine("C_GetFunctionList")});
}

TEST(FunctionList, NullOutputPointerIsRejected) {
    LogCapture log;
    EXPECT_EQ(C_GetFunctionList(nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               infoLine("C_GetFunctionList"),
                               errorLine("C_GetFunctionList: ppFunctionList is NULL")}));
}

TEST(FunctionList, ErrorLevelLogsOnlyTheRejection) {
    LogCapture log(2);
    EXPECT_EQ(C_GetFunctionList(nullptr), CKR_ARGUMENTS_BAD);
    EXPECT_EQ(log.lines(), std::vector<std::string>{
                               errorLine("C_GetFunctionList: ppFunctionList is NULL")});
}

}  // namespace
