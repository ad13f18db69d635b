// ostrel-pkcs11.dll as an application sees it: loaded by name, its entry points found through
// the export table, its structures read as bytes.
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "cryptoki/cryptoki.h"
#include "support/windows_registry.h"
#include "windows_test_support.h"

namespace {

class ModuleDll : public ::testing::Test {
protected:
    void SetUp() override {
        const std::string path = (windowstest::programFolder() / "ostrel-pkcs11.dll").string();
        module_ = ::LoadLibraryA(path.c_str());
        ASSERT_NE(module_, nullptr) << path << ": error " << ::GetLastError();
    }
    void TearDown() override {
        if (module_ != nullptr) {
            ::FreeLibrary(module_);
        }
    }

    void* entry(const char* name) const {
        return reinterpret_cast<void*>(::GetProcAddress(module_, name));
    }
    template <typename Function>
    Function* entryAs(const char* name) const {
        return reinterpret_cast<Function*>(entry(name));
    }

    // Nothing configured: only errors are logged, into the real temporary folder.
    testregistry::PrivateLocalMachine localMachine_;
    HMODULE module_ = nullptr;
};

// Each of the 68 entries of the DLL's function list, read at byte 2 + 8 * i, is the DLL's
// export of that name: the list and the export table agree entry by entry.
TEST_F(ModuleDll, FunctionListEntriesAreTheExportsOfTheSameName) {
    auto* getFunctionList = entryAs<decltype(C_GetFunctionList)>("C_GetFunctionList");
    ASSERT_NE(getFunctionList, nullptr);
    CK_FUNCTION_LIST_PTR list = nullptr;
    ASSERT_EQ(getFunctionList(&list), CKR_OK);
    const auto* bytes = reinterpret_cast<const unsigned char*>(list);
    EXPECT_EQ(bytes[0], 2);
    EXPECT_EQ(bytes[1], 20);

    std::vector<const char*> names;
#define OSTREL_ENTRY_NAME(name, params) names.push_back(#name);
    OSTREL_CRYPTOKI_FUNCTIONS(OSTREL_ENTRY_NAME)
#undef OSTREL_ENTRY_NAME
    ASSERT_EQ(names.size(), 68u);
    for (std::size_t i = 0; i < names.size(); ++i) {
        void* listed = nullptr;
        std::memcpy(&listed, bytes + 2 + 8 * i, sizeof listed);
        ASSERT_NE(entry(names[i]), nullptr) << names[i] << " is not exported";
        EXPECT_EQ(listed, entry(names[i])) << names[i];
    }
}

// The maker's extra entry points are found under their Microsoft C++ names, reach the module's
// own functions, and answer CKR_FUNCTION_NOT_SUPPORTED without touching their arguments.
TEST_F(ModuleDll, ExtraEntryPointsAnswerUnderTheirDecoratedNames) {
    using SlotFunction = CK_RV(CK_ULONG);
    using SizeListFunction = CK_RV(CK_ULONG_PTR, CK_ULONG_PTR);
    auto* ejectToken = entryAs<SlotFunction>("?C_EjectToken@@YAKK@Z");
    auto* interactiveLogin = entryAs<SlotFunction>("?C_InteractiveLogin@@YAKK@Z");
    auto* sizeList = entryAs<SizeListFunction>("?C_GetUnmanagedStructSizeList@@YAKPEAK0@Z");
    ASSERT_NE(ejectToken, nullptr);
    ASSERT_NE(interactiveLogin, nullptr);
    ASSERT_NE(sizeList, nullptr);

    EXPECT_EQ(ejectToken(0x50000001), CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(interactiveLogin(0x60000001), CKR_FUNCTION_NOT_SUPPORTED);
    std::array<CK_ULONG, 4> sizes = {0xAAAAAAAA, 0xAAAAAAAA, 0xAAAAAAAA, 0xAAAAAAAA};
    CK_ULONG count = 4;
    EXPECT_EQ(sizeList(sizes.data(), &count), CKR_FUNCTION_NOT_SUPPORTED);
    EXPECT_EQ(count, 4u);
    EXPECT_EQ(sizes, (std::array<CK_ULONG, 4>{0xAAAAAAAA, 0xAAAAAAAA, 0xAAAAAAAA, 0xAAAAAAAA}));

    // The GCC names that the Microsoft names stand for are not exported themselves.
    EXPECT_EQ(entry("_Z12C_EjectTokenm"), nullptr);
    EXPECT_EQ(entry("C_EjectToken"), nullptr);
}

// C_GetInfo into a buffer of 0xFF bytes: the fields at bytes 0, 2, 34, 38 and 70, each text
// ended by one NUL and the rest of its field left as the caller had it.
TEST_F(ModuleDll, InfoBytesAsTheCallerReadsThem) {
    auto* initialize = entryAs<decltype(C_Initialize)>("C_Initialize");
    auto* getInfo = entryAs<decltype(C_GetInfo)>("C_GetInfo");
    auto* finalize = entryAs<decltype(C_Finalize)>("C_Finalize");
    ASSERT_EQ(initialize(nullptr), CKR_OK);
    std::array<unsigned char, 72 + 8> buffer;
    buffer.fill(0xFF);
    const CK_RV rv = getInfo(reinterpret_cast<CK_INFO*>(buffer.data()));
    EXPECT_EQ(finalize(nullptr), CKR_OK);
    ASSERT_EQ(rv, CKR_OK);

    std::array<unsigned char, 72 + 8> expected;
    expected.fill(0xFF);
    const auto put = [&expected](std::size_t offset, const void* bytes, std::size_t size) {
        std::memcpy(expected.data() + offset, bytes, size);
    };
    put(0, "\x02\x14", 2);
    put(2, "Kelvanetics", 12);
    put(34, "\0\0\0\0", 4);
    put(38, "Ostrel PKCS11 Library", 22);
    put(70, "\x03\x06", 2);
    EXPECT_EQ(buffer, expected);
}

// FreeLibrary without C_Finalize: the monitor thread holds the DLL loaded, so its code never
// goes away under the running thread (DllMain cannot wait for a thread under the loader lock).
// C_Finalize joins the thread and gives the hold back; the next FreeLibrary unloads the DLL.
TEST(ModuleDllUnload, TheMonitorKeepsTheDllLoadedUntilFinalize) {
    testregistry::PrivateLocalMachine localMachine;
    const std::string path = (windowstest::programFolder() / "ostrel-pkcs11.dll").string();
    using Lifecycle = CK_RV(CK_VOID_PTR);
    HMODULE module = ::LoadLibraryA(path.c_str());
    ASSERT_NE(module, nullptr);
    auto* initialize = reinterpret_cast<Lifecycle*>(
        reinterpret_cast<void*>(::GetProcAddress(module, "C_Initialize")));
    ASSERT_NE(initialize, nullptr);
    ASSERT_EQ(initialize(nullptr), CKR_OK);
    ASSERT_TRUE(::FreeLibrary(module));
    EXPECT_NE(::GetModuleHandleA("ostrel-pkcs11.dll"), nullptr);
    ::Sleep(2500);  // two polling periods: the monitor runs on in code that is still there

    module = ::LoadLibraryA(path.c_str());
    ASSERT_NE(module, nullptr);
    auto* finalize = reinterpret_cast<Lifecycle*>(
        reinterpret_cast<void*>(::GetProcAddress(module, "C_Finalize")));
    ASSERT_NE(finalize, nullptr);
    EXPECT_EQ(finalize(nullptr), CKR_OK);
    ASSERT_TRUE(::FreeLibrary(module));
    EXPECT_EQ(::GetModuleHandleA("ostrel-pkcs11.dll"), nullptr);
}

}  // namespace
