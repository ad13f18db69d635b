// The parts of the operating-system layer that the log tests do not already reach, and
// decimalText.
#if defined(_WIN32)
#ifndef NOMINMAX
#define NOMINMAX
#endif
#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#include <windows.h>
#endif

#include "log/log.h"
#include "log_test_fixture.h"

namespace {

// Full path of this test program, as the system knows it.
fs::path thisProgram() {
#if defined(_WIN32)
    char file[MAX_PATH] = {};
    const DWORD length = ::GetModuleFileNameA(nullptr, file, MAX_PATH);
    return fs::path(std::string(file, length));
#else
    return fs::read_symlink("/proc/self/exe");
#endif
}

// POSIX chooses the folder itself; Windows takes GetTempPathA's answer as it is, and every log
// test finds its lines there.
#if !defined(_WIN32)

TEST_F(LogTest, TemporaryFolderIsTmpdirWhenItIsAFolderElseTmp) {
    EXPECT_EQ(platform::temporaryFolder(), tmp_.string() + "/");
    ::setenv("TMPDIR", (tmp_.string() + "/").c_str(), 1);
    EXPECT_EQ(platform::temporaryFolder(), tmp_.string() + "/");

    std::ofstream(root_ / "file") << "not a folder";
    for (const fs::path& unusable : {root_ / "missing", root_ / "file", fs::path()}) {
        ::setenv("TMPDIR", unusable.c_str(), 1);
        EXPECT_EQ(platform::temporaryFolder(), "/tmp/") << unusable;
    }
    ::unsetenv("TMPDIR");
    EXPECT_EQ(platform::temporaryFolder(), "/tmp/");
}

#endif

TEST(PlatformTest, ModuleFolderHoldsThisProgram) {
    // The test program is the "module" here: the log's code is linked into it.
    const fs::path folder = platform::moduleFolder();
    ASSERT_FALSE(folder.empty());
    EXPECT_TRUE(fs::equivalent(folder, thisProgram().parent_path()));
}

TEST(DecimalTextTest, ExtremesOfEveryWidth) {
    EXPECT_EQ(decimalText(0), "0");
    EXPECT_EQ(decimalText(std::int32_t{-2147483647 - 1}), "-2147483648");
    EXPECT_EQ(decimalText(std::int32_t{2147483647}), "2147483647");
    EXPECT_EQ(decimalText(std::uint32_t{4294967295u}), "4294967295");
    EXPECT_EQ(decimalText(std::uint64_t{18446744073709551615u}), "18446744073709551615");
    EXPECT_EQ(decimalText(std::int64_t{-9223372036854775807 - 1}), "-9223372036854775808");
    EXPECT_EQ(decimalText(static_cast<unsigned long>(-1)),
              sizeof(unsigned long) == 8 ? "18446744073709551615" : "4294967295");
    EXPECT_EQ(decimalText(static_cast<signed char>(-5)), "-5");
    EXPECT_EQ(decimalText(static_cast<unsigned char>(200)), "200");
}

}  // namespace
