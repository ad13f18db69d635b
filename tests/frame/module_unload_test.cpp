// The module unloaded while its device monitor still runs: the application loads it, calls
// C_Initialize and unloads it again, with or without C_Finalize. The monitor thread must never
// run after the module's code is gone; if it did, the process would crash in the waits below.
// Each scenario runs in a process of its own (a death test that must exit normally), so that
// what one leaves loaded cannot hide a fault of the next.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <string>
#include <thread>

#include "cryptoki/cryptoki.h"

namespace {

// Two polling periods of the monitor and a little more.
constexpr auto kPastTwoPollingPeriods = std::chrono::milliseconds(2500);

CK_RV call(void* module, const char* name) {
    auto* function = reinterpret_cast<CK_RV (*)(CK_VOID_PTR)>(::dlsym(module, name));
    EXPECT_NE(function, nullptr) << name;
    return function == nullptr ? CKR_GENERAL_ERROR : function(nullptr);
}
bool isLoaded() {
    void* module = ::dlopen(OSTREL_MODULE_PATH, RTLD_NOW | RTLD_NOLOAD);
    if (module != nullptr) {
        ::dlclose(module);
    }
    return module != nullptr;
}

class ModuleUnload : public ::testing::Test {
protected:
    void SetUp() override {
        GTEST_FLAG_SET(death_test_style, "threadsafe");
        static const std::filesystem::path temporary = std::filesystem::temp_directory_path();
        folder_ = temporary / ("ostrel-unload-" + std::to_string(::getpid()));
        std::filesystem::create_directories(folder_);
        // A store of the test's own, and a log folder of its own.
        ::setenv("OSTREL_TOKEN_STORE", (folder_ / "store").c_str(), 1);
        ::setenv("TMPDIR", folder_.c_str(), 1);
    }
    void TearDown() override { std::filesystem::remove_all(folder_); }

    std::filesystem::path folder_;
};

// Runs the scenario in a fresh process, which must end with exit code 0 and not by a signal.
#define EXPECT_SCENARIO_SURVIVES(scenario)                    \
    EXPECT_EXIT(                                              \
        {                                                     \
            scenario();                                       \
            std::exit(::testing::Test::HasFailure() ? 1 : 0); \
        },                                                    \
        ::testing::ExitedWithCode(0), "")

void unloadWithoutFinalize() {
    for (int round = 0; round < 3; ++round) {
        void* module = ::dlopen(OSTREL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        // Each round is a fresh load: the previous one really went away.
        EXPECT_EQ(call(module, "C_Initialize"), CKR_OK) << "round " << round;
        ASSERT_EQ(::dlclose(module), 0);
        EXPECT_FALSE(isLoaded()) << "round " << round;
    }
    std::this_thread::sleep_for(kPastTwoPollingPeriods);
}

void unloadAfterInitializeWithoutInstance(const std::filesystem::path& folder) {
    // A store path that is a file: the device library gives no instance, C_Initialize still
    // answers CKR_OK with its monitor started, and C_Finalize answers "not initialized".
    const std::filesystem::path notAFolder = folder / "store-is-a-file";
    std::FILE* file = std::fopen(notAFolder.c_str(), "w");
    ASSERT_NE(file, nullptr);
    std::fclose(file);
    ::setenv("OSTREL_TOKEN_STORE", notAFolder.c_str(), 1);
    for (int round = 0; round < 3; ++round) {
        void* module = ::dlopen(OSTREL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        EXPECT_EQ(call(module, "C_Initialize"), CKR_OK);
        EXPECT_EQ(call(module, "C_Finalize"), CKR_CRYPTOKI_NOT_INITIALIZED);
        ASSERT_EQ(::dlclose(module), 0);
        EXPECT_FALSE(isLoaded()) << "round " << round;
    }
    std::this_thread::sleep_for(kPastTwoPollingPeriods);
}

void unloadAfterFinalize() {
    for (int round = 0; round < 3; ++round) {
        void* module = ::dlopen(OSTREL_MODULE_PATH, RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(module, nullptr) << ::dlerror();
        EXPECT_EQ(call(module, "C_Initialize"), CKR_OK);
        EXPECT_EQ(call(module, "C_Finalize"), CKR_OK);
        ASSERT_EQ(::dlclose(module), 0);
        EXPECT_FALSE(isLoaded());
    }
}

TEST_F(ModuleUnload, WithoutFinalizeTheMonitorEndsBeforeTheCodeGoes) {
    EXPECT_SCENARIO_SURVIVES(unloadWithoutFinalize);
}

TEST_F(ModuleUnload, AMonitorStartedWithoutADeviceInstanceEndsToo) {
    EXPECT_SCENARIO_SURVIVES([this] { unloadAfterInitializeWithoutInstance(folder_); });
}

TEST_F(ModuleUnload, FinalizedModulesUnloadAsBefore) {
    EXPECT_SCENARIO_SURVIVES(unloadAfterFinalize);
}

}  // namespace
